// Writing XML documents: escaping, attribute replacement, atomic writes.
#include <sys/stat.h>

#include <filesystem>

#include "QdmXml.h"
#include "TestEnv.h"

namespace {

class XmlTest : public qdmtest::HostTest {
protected:
    std::vector<std::string> FolderNames(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        return names;
    }
};

TEST_F(XmlTest, EscapesAndReadsBack) {
    const std::string hostile = "<a> & \"b\" 'c'";
    CQdmXmlNode root("root");
    CQdmXmlNode child("port");
    child.addAttribute("name", hostile);
    root.addChildNode(child);
    std::string path = temp_ + "/doc.xml";
    ASSERT_TRUE(CQdmXmlWrite().writeXML(path, root));

    std::string text = qdmtest::ReadFile(path);
    EXPECT_EQ(0U, text.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
    EXPECT_NE(std::string::npos, text.find("\n  <port name=\"&lt;a> &amp; &quot;b&quot; 'c'\" />"))
        << text;
}

TEST_F(XmlTest, AddAttributeReplacesInPlace) {
    CQdmXmlNode node("n");
    node.addAttribute("a", "1");
    node.addAttribute("b", "2");
    node.addAttribute("a", "3");
    using Attributes = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ((Attributes{{"a", "3"}, {"b", "2"}}), node.attributes());
    node.clearAttribute();
    EXPECT_TRUE(node.attributes().empty());
}

TEST_F(XmlTest, ReplacesExistingFileAndLeavesNoTemporary) {
    std::string path = temp_ + "/doc.xml";
    qdmtest::WriteFile(path, "old");
    ASSERT_TRUE(CQdmXmlWrite().writeXML(path, CQdmXmlNode("fresh")));
    EXPECT_NE(std::string::npos, qdmtest::ReadFile(path).find("<fresh />"));
    EXPECT_EQ(std::vector<std::string>{"doc.xml"}, FolderNames(temp_));
}

TEST_F(XmlTest, FailsCleanlyWhereItCannotWrite) {
    EXPECT_FALSE(CQdmXmlWrite().writeXML(root_ + "/missing/doc.xml", CQdmXmlNode("r")));
    std::string folder = temp_ + "/a_folder";
    std::filesystem::create_directories(folder);
    EXPECT_FALSE(CQdmXmlWrite().writeXML(folder, CQdmXmlNode("r")));
    EXPECT_EQ(std::vector<std::string>{"a_folder"}, FolderNames(temp_));
    if (::geteuid() != 0) {
        std::string locked = root_ + "/locked";
        std::filesystem::create_directories(locked);
        ::chmod(locked.c_str(), 0555);
        EXPECT_FALSE(CQdmXmlWrite().writeXML(locked + "/doc.xml", CQdmXmlNode("r")));
    }
}

}  // namespace
