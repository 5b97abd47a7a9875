#include "QdmXml.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <pugixml.hpp>
#include <sstream>

#include "HostSys.h"

CQdmXmlNode::CQdmXmlNode(std::string name) : name_(std::move(name)) {}

void CQdmXmlNode::addAttribute(std::string name, std::string value) {
    for (auto& attribute : attributes_) {
        if (attribute.first == name) {
            attribute.second = std::move(value);
            return;
        }
    }
    attributes_.emplace_back(std::move(name), std::move(value));
}

void CQdmXmlNode::addChildNode(const CQdmXmlNode& child) { children_.push_back(child); }

void CQdmXmlNode::clearAttribute() { attributes_.clear(); }

namespace {

void AppendNode(pugi::xml_node parent, const CQdmXmlNode& node) {
    pugi::xml_node element = parent.append_child(node.name().c_str());
    for (const auto& attribute : node.attributes())
        element.append_attribute(attribute.first.c_str()).set_value(attribute.second.c_str());
    for (const auto& child : node.children()) AppendNode(element, child);
}

std::string Render(const CQdmXmlNode& root) {
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version").set_value("1.0");
    declaration.append_attribute("encoding").set_value("UTF-8");
    AppendNode(document, root);
    std::ostringstream out;
    document.save(out, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return out.str();
}

bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t written = ::write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

// A temporary file beside the target, renamed over it once complete, so a
// reader never sees half a document.
bool WriteAtomically(const std::string& path, const std::string& text) {
    std::string temporary = path + ".tmpXXXXXX";
    int fd = ::mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0) return false;
    bool written = WriteAll(fd, text) && (!qdmhost::DurableWrites() || ::fsync(fd) == 0);
    written = ::close(fd) == 0 && written;
    if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

}  // namespace

CQdmXmlWrite::CQdmXmlWrite() = default;

bool CQdmXmlWrite::writeXML(std::string path, CQdmXmlNode root) {
    if (path.empty() || root.name().empty()) return false;
    return WriteAtomically(path, Render(root));
}
