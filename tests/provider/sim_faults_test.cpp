// Fault switches, hostile state files and concurrent state writers.
#include <gtest/gtest.h>

#include "Sim.h"
#include "TestEnv.h"

namespace {

using qdmtest::RunShell;

const std::string kTool = "/usr/sbin/ocmanager/hbacmd";

class SimFaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        QDM_REQUIRE_SANDBOX();
        folder_ = qdmtest::MakeTempDir("simfaults");
        state_ = qdmtest::InstallSimulator(folder_, qdmtest::DemoState());
        ASSERT_FALSE(state_.empty());
    }
    void TearDown() override { qdmtest::RemoveTree(folder_); }

    std::string folder_, state_;
};

TEST_F(SimFaultsTest, CountedFaultFiresThenClears) {
    ASSERT_TRUE(qdmtest::SimFault("listhbas", "error64", 2));
    std::string output;
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(RunShell(kTool + " listhbas", &output), 1);
        EXPECT_EQ(output, "ERROR: <64>: Adapter busy, retry later\n");
    }
    EXPECT_EQ(RunShell(kTool + " listhbas", &output), 0);
    EXPECT_NE(output.find("Serial No."), std::string::npos);
}

TEST_F(SimFaultsTest, OutputFaults) {
    const struct {
        const char* verb;
        const char* mode;
        const char* command;
        int status;
        size_t minBytes, maxBytes;
        const char* holds;  // text the output must hold ("" = none)
    } rows[] = {
        {"listhbas", "error", " listhbas", 1, 1, 100, "ERROR: <251>"},
        {"listhbas", "empty", " listhbas", 0, 0, 0, ""},
        {"listhbas", "garbage", " listhbas", 0, 65536, 65536, ""},
        {"listhbas", "garbage10m", " listhbas", 0, 10485760, 10485760, ""},
        {"listhbas", "longlines", " listhbas", 0, 1000000, 2000000, "Serial No."},
        {"listhbas", "manyports", " listhbas", 0, 1000000, 5000000, "10:00:00:00:c9:ff:13:87"},
        {"hbacmd", "crash", " version", 128 + 6, 1, 100, "Version:"},  // half, then SIGABRT
        {"HbaAttributes", "badversions", " HbaAttributes 10:00:00:00:c9:a1:00:01", 0, 100, 5000,
         "FW Version        : ?.??"},
        {"Download", "silent", " Download 10:00:00:00:c9:a1:00:01 /nonexistent", 0, 0, 0, ""},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(qdmtest::SimFault(row.verb, row.mode)) << row.mode;
        std::string output;
        EXPECT_EQ(RunShell(kTool + row.command, &output), row.status) << row.mode;
        EXPECT_GE(output.size(), row.minBytes) << row.mode;
        EXPECT_LE(output.size(), row.maxBytes) << row.mode;
        EXPECT_NE(output.find(row.holds), std::string::npos) << row.mode;
        ASSERT_TRUE(qdmtest::SimFault(row.verb, "off"));
    }
}

TEST_F(SimFaultsTest, DownloadFailAppliesNothing) {
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(folder_ + "/fw.zip", "fcelx_16g", {"--message"}));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/fw.zip", folder_ + "/fw"));
    ASSERT_TRUE(qdmtest::SimFault("Download", "fail"));
    std::string output;
    EXPECT_EQ(RunShell(kTool + " Download 10:00:00:90:fa:c3:00:01 " + folder_ + "/fw/fw_11.4.204.8.grp",
                       &output), 1);
    EXPECT_EQ(output.find("Download Complete"), std::string::npos);
    EXPECT_NE(output.find("Download session closed"), std::string::npos);  // end, no success
    EXPECT_EQ(output.find("Firmware image applied"), std::string::npos);
    EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), "\"10.2.370.15\"");
}

TEST_F(SimFaultsTest, SystemToolFaults) {
    ASSERT_TRUE(qdmtest::SimFault("rpm", "fail"));
    ASSERT_TRUE(qdmtest::SimFault("depmod", "fail"));
    EXPECT_EQ(RunShell("rpm -qa"), 1);
    EXPECT_EQ(RunShell("depmod -a"), 1);
    ASSERT_TRUE(qdmtest::BuildDriverModule(folder_ + "/d.zip", "12.0.0.1"));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/d.zip", folder_ + "/d"));
    EXPECT_EQ(RunShell("rpm -Uhv --oldpackage " + folder_ + "/d/x64/FC/lpfc-12.0.0.1.rpm"), 1);
    EXPECT_EQ(qdmtest::SimGet("driverVersion"), "\"11.2.156.27\"");
}

TEST_F(SimFaultsTest, UnknownFaultIsRefused) {
    EXPECT_EQ(qdmtest::RunSim({"fault", "listhbas", "explode"}), 2);
    EXPECT_EQ(qdmtest::RunSim({"fault", "rpm", "garbage"}), 2);
    EXPECT_EQ(qdmtest::SimGet("faults"), "");
}

TEST_F(SimFaultsTest, HostileStateFilesGiveClearErrors) {
    const struct {
        const char* content;  // nullptr: no file
        const char* reason;
    } rows[] = {
        {nullptr, "cannot open the state file"},
        {"{\"adapters\": [", "not valid JSON"},
        {"[]", "expected a JSON object"},
        {"{\"adapters\": [{\"model\": 5}]}", "adapters[0].model: expected a string"},
        {"{\"adapters\": [{\"model\": \"m\", \"kind\": \"16g\", \"slot\": \"zz\", \"serial\": \"s\", "
         "\"firmware\": \"f\", \"bootBios\": \"b\", \"vendor\": \"10df\", \"device\": \"e200\", "
         "\"subVendor\": \"10df\", \"subDevice\": \"e200\", \"ports\": []}]}",
         "adapters[0].slot"},
        {"{\"faults\": {\"hbacmd\": 7}}", "fault switch"},
    };
    const std::string path = folder_ + "/hostile.json";
    for (const auto& row : rows) {
        qdmtest::RemoveTree(path);
        if (row.content) qdmtest::WriteFile(path, row.content);
        for (const char* tool : {" listhbas", " version"}) {
            std::string output;
            EXPECT_EQ(RunShell("QDMSIM_STATE=" + path + " " + kTool + tool, &output), 2) << row.reason;
            EXPECT_NE(output.find(row.reason), std::string::npos) << output;
        }
    }
}

TEST_F(SimFaultsTest, ConcurrentWritersLoseNothing) {
    std::string command;
    for (int i = 0; i < 16; ++i)
        command += std::string(QDM_SIM_BINARY) + " state set /packages/- p" + std::to_string(i) + " & ";
    ASSERT_EQ(RunShell(command + "wait"), 0);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(RunShell("rpm -qa | grep -qx p" + std::to_string(i)), 0) << i;
}

}  // namespace
