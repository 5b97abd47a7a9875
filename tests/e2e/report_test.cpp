// The configuration report written through the provider's three phases.
#include <pugixml.hpp>

#include "HostRun.h"

namespace {

class ReportTest : public e2e::HostE2eTest {};

std::string Attr(pugi::xml_node parent, const char* name) {
    return parent.find_child_by_attribute("attr", "name", name).attribute("value").value();
}

TEST_F(ReportTest, XmlHoldsEveryPortWithItsVersions) {
    std::string out = folder_ + "/report";
    e2e::HostRun run = e2e::RunHost({"--json", "report", "--out", out});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.Json()["ports"], 5);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file((out + "/Emulex_FcConfigInfo.xml").c_str()));
    std::vector<pugi::xml_node> ports;
    for (pugi::xml_node port : document.child("data").children("port")) ports.push_back(port);
    ASSERT_EQ(ports.size(), 5u);
    struct Expected {
        const char* busDevFunc;
        const char* deviceId;
        const char* wwpn;
        const char* firmware;
        const char* bootBios;
    };
    const Expected expected[] = {
        {"3/0/0", "0xF100", "10000000C9A10001", "2.01a12", "5.10a5"},       // 8G single-port
        {"4/0/1", "0xF100", "10000000C9B20002", "2.02a5", "5.12a3"},        // 8G dual-port, second function
        {"5/0/0", "0xE200", "10000090FAC30001", "10.2.370.15", "10.2.370.15"},  // 16G
    };
    const std::size_t index[] = {0, 2, 3};
    for (std::size_t i = 0; i < 3; ++i) {
        pugi::xml_node general = ports[index[i]].child("general-inf");
        pugi::xml_node version = ports[index[i]].child("version-inf");
        EXPECT_EQ(Attr(general, "PCI Bus/Dev/Func"), expected[i].busDevFunc);
        EXPECT_EQ(Attr(general, "Vendor ID"), "0x10DF");
        EXPECT_EQ(Attr(general, "Device ID"), expected[i].deviceId);
        EXPECT_EQ(Attr(general, "WWPN"), expected[i].wwpn);
        EXPECT_EQ(Attr(version, "Firmware Version"), expected[i].firmware);
        EXPECT_EQ(Attr(version, "BootBios Version"), expected[i].bootBios);
        EXPECT_EQ(Attr(version, "Driver Version"), "11.2.156.27");
        EXPECT_EQ(Attr(version.child("utility"), "Utility Name"), "OCM");
        EXPECT_EQ(Attr(version.child("utility"), "Utility Version"), "10.2.370.16");
    }
}

TEST_F(ReportTest, PortFilterReportsOnlyThatPort) {
    std::string out = folder_ + "/one";
    ASSERT_EQ(e2e::RunHost({"--port", "5/0/1", "report", "--out", out}).exitCode, 0);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file((out + "/Emulex_FcConfigInfo.xml").c_str()));
    EXPECT_EQ(Attr(document.child("data").child("port").child("general-inf"), "WWPN"), "10000090FAC30002");
    EXPECT_FALSE(document.child("data").child("port").next_sibling("port"));
}

TEST_F(ReportTest, UnsafeOutputFolderIsUsageError) {
    EXPECT_EQ(e2e::RunHost({"report", "--out", folder_ + "/a;touch x"}).exitCode, 2);
}

}  // namespace
