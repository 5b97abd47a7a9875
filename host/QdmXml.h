#pragma once
// Building and writing an XML document.
#include <string>
#include <utility>
#include <vector>

class CQdmXmlNode {
public:
    explicit CQdmXmlNode(std::string name);
    CQdmXmlNode(const CQdmXmlNode& other) = default;
    CQdmXmlNode& operator=(const CQdmXmlNode& other) = default;

    // Replaces an attribute of the same name, else appends it.
    void addAttribute(std::string name, std::string value);
    void addChildNode(const CQdmXmlNode& child);
    void clearAttribute();

    const std::string& name() const { return name_; }
    const std::vector<std::pair<std::string, std::string>>& attributes() const { return attributes_; }
    const std::vector<CQdmXmlNode>& children() const { return children_; }

private:
    std::string name_;
    std::vector<std::pair<std::string, std::string>> attributes_;
    std::vector<CQdmXmlNode> children_;
};

class CQdmXmlWrite {
public:
    CQdmXmlWrite();
    // Writes atomically (temporary file, then rename); false when it cannot.
    bool writeXML(std::string path, CQdmXmlNode root);
};
