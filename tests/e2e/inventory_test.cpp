// Inventory of the demo server, end to end: discovery through lspci, the
// provider's vendors and modules, the repository's versions.
#include "HostRun.h"

namespace {

using e2e::HostE2eTest;
using nlohmann::json;

class InventoryTest : public HostE2eTest {};

TEST_F(InventoryTest, DemoServerMatchesGoldenFieldByField) {
    BuildDemoRepository();
    e2e::HostRun run = Host({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json golden = json::parse(qdmtest::ReadFile(std::string(QDM_GOLDEN_DIR) + "/e2e/inventory.json"));
    json ports = run.Json()["ports"];
    ASSERT_EQ(ports.size(), golden.size());
    for (std::size_t i = 0; i < golden.size(); ++i) {
        SCOPED_TRACE(golden[i]["deviceId"].get<std::string>());
        for (const char* field : {"deviceId", "vendorClass", "modelKey", "wwpn", "busDevFunc", "bootBios"})
            EXPECT_EQ(ports[i][field], golden[i][field]) << field;
        ASSERT_EQ(ports[i]["modules"].size(), golden[i]["modules"].size());
        for (std::size_t m = 0; m < golden[i]["modules"].size(); ++m)
            for (const char* field : {"kind", "operating", "repository", "status"})
                EXPECT_EQ(ports[i]["modules"][m][field], golden[i]["modules"][m][field])
                    << golden[i]["modules"][m]["kind"] << " " << field;
    }
}

TEST_F(InventoryTest, TableShowsEveryPortAndVersion) {
    BuildDemoRepository();
    e2e::HostRun run = Host({"inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    for (const char* text : {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF", "10000090FAC30002",
                             "boot BIOS  5.10a5", "2.01a12", "older", "current"})
        EXPECT_NE(run.out.find(text), std::string::npos) << text;
}

TEST_F(InventoryTest, WithoutRepositoryVersionsStillShown) {
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json firstFirmware = run.Json()["ports"][0]["modules"][0];
    EXPECT_EQ(firstFirmware["operating"], "2.01a12");
    EXPECT_TRUE(firstFirmware["repository"].is_null());
    EXPECT_EQ(firstFirmware["status"], "no-package");
}

// Every form of --port selects the same single port.
TEST_F(InventoryTest, PortSelectors) {
    for (const char* selector : {"0000:04:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "0000:04:00.1", "04:00.1",
                                 "10:00:00:00:c9:b2:00:02", "10000000C9B20002", "4/0/1"}) {
        e2e::HostRun run = e2e::RunHost({"--json", "--port", selector, "inventory"});
        ASSERT_EQ(run.exitCode, 0) << selector << run.err;
        ASSERT_EQ(run.Json()["ports"].size(), 1u) << selector;
        EXPECT_EQ(run.Json()["ports"][0]["wwpn"], "10000000C9B20002") << selector;
    }
}

TEST_F(InventoryTest, UnknownPortIsNoDevice) {
    e2e::HostRun run = e2e::RunHost({"--port", "9/9/9", "inventory"});
    EXPECT_EQ(run.exitCode, 9);
    EXPECT_NE(run.err.find("no port matches --port 9/9/9"), std::string::npos) << run.err;
}

TEST_F(InventoryTest, UnlistedAdapterIsSkippedWithWarning) {
    // Only the 16G adapter stays supported.
    qdmtest::WriteFile(e2e::kRoot + "/qdmhost/devices.json",
                       R"({"devices": [{"match": "PCI\\VEN_10DF&DEV_E200", "class": "CFC_EMULEX_16G_Vendor"}]})");
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.Json()["ports"].size(), 2u);
    EXPECT_NE(run.err.find("unsupported Fibre Channel function 0000:03:00.0"), std::string::npos) << run.err;
}

TEST_F(InventoryTest, MissingProviderAndDeviceTableAreClearErrors) {
    e2e::HostRun noProvider = e2e::RunHost({"--provider", "/nonexistent/libqdmp_EMULEX_FC.so", "inventory"});
    EXPECT_EQ(noProvider.exitCode, 7);
    EXPECT_NE(noProvider.err.find("provider library not found"), std::string::npos) << noProvider.err;
    qdmtest::RemoveTree(e2e::kRoot + "/qdmhost/devices.json");
    e2e::HostRun noTable = e2e::RunHost({"inventory"});
    EXPECT_EQ(noTable.exitCode, 9);
    EXPECT_NE(noTable.err.find("supported-device table"), std::string::npos) << noTable.err;
}

}  // namespace
