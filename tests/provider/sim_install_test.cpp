// Installing the simulator into the sandbox, and the utility scripts that
// the builder writes.
#include <gtest/gtest.h>

#include <algorithm>

#include "Sim.h"
#include "TestEnv.h"

namespace {

const char* const kTool = "/usr/sbin/ocmanager/hbacmd";

class SimInstallTest : public ::testing::Test {
protected:
    void SetUp() override {
        QDM_REQUIRE_SANDBOX();
        folder_ = qdmtest::MakeTempDir("siminstall");
    }
    void TearDown() override { qdmtest::RemoveTree(folder_); }

    bool Install(const qdmtest::SimOptions& options) {
        return !qdmtest::InstallSimulator(folder_, qdmtest::DemoState(), options).empty();
    }

    // The configuration file with every blank removed, as the provider compares it.
    static std::string Squeezed(const std::string& path) {
        std::string text = qdmtest::ReadFile(path);
        text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
        return text;
    }

    std::string folder_;
};

TEST_F(SimInstallTest, PlacesToolLinksConfigsAndDepmodFolder) {
    ASSERT_TRUE(Install({}));
    EXPECT_TRUE(qdmtest::Exists(kTool));
    for (const char* tool : {"lspci", "rpm", "depmod"})
        EXPECT_TRUE(qdmtest::Exists(std::string("/opt/qdmsim/bin/") + tool)) << tool;
    EXPECT_TRUE(qdmtest::Exists("/etc/depmod.d"));

    const std::string disc = Squeezed("/etc/emulexDiscConfig");
    for (const char* line : {"ClientRemoteOperation:disabled\n", "ClientOperationMode:enabled\n",
                             "ClientReadOnlyOperation:disabled\n", "TcpSocketPortNumber:23333\n"})
        EXPECT_NE(disc.find(std::string("\n") + line), std::string::npos) << line;
    const std::string rm = Squeezed("/etc/emulexRMConfig");
    for (const char* line : {"ServerRemoteOperation:enabled\n", "ManagementHost:false\n",
                             "SecureManagement:disabled\n", "MngmtHostIpAddress:0\n",
                             "ExclusiveHostMgmnt:false\n"})
        EXPECT_NE(rm.find(std::string("\n") + line), std::string::npos) << line;
    // Real files carry blanks around the colon.
    EXPECT_NE(qdmtest::ReadFile("/etc/emulexDiscConfig").find("TcpSocketPortNumber : 23333"),
              std::string::npos);
}

TEST_F(SimInstallTest, BrokenConfigVariants) {
    const struct {
        const char* variant;
        const char* file;
        const char* present;  // after blank removal
        const char* absent;
    } rows[] = {
        {"broken-port", "/etc/emulexDiscConfig", "TcpSocketPortNumber:23334", "TcpSocketPortNumber:23333"},
        {"commented", "/etc/emulexDiscConfig", "#ClientRemoteOperation:disabled", "\nClientRemoteOperation"},
        {"missing", "/etc/emulexRMConfig", "ManagementHost:false", "ExclusiveHostMgmnt"},
    };
    for (const auto& row : rows) {
        qdmtest::SimOptions options;
        options.config = row.variant;
        ASSERT_TRUE(Install(options));
        const std::string text = Squeezed(row.file);
        EXPECT_NE(text.find(row.present), std::string::npos) << row.variant;
        EXPECT_EQ(text.find(row.absent), std::string::npos) << row.variant;
    }
    qdmtest::SimOptions none;
    none.config = "none";
    ASSERT_TRUE(Install(none));
    EXPECT_FALSE(qdmtest::Exists("/etc/emulexDiscConfig"));
    EXPECT_FALSE(qdmtest::Exists("/etc/emulexRMConfig"));
}

TEST_F(SimInstallTest, NoUtilityLeavesNoTool) {
    ASSERT_TRUE(Install({}));
    qdmtest::SimOptions options;
    options.utility = false;
    ASSERT_TRUE(Install(options));
    EXPECT_FALSE(qdmtest::Exists(kTool));
    EXPECT_TRUE(qdmtest::Exists("/opt/qdmsim/bin/lspci"));
}

TEST_F(SimInstallTest, RefusesABrokenState) {
    std::string output;
    qdmtest::WriteFile(folder_ + "/bad.json", "{\"adapters\": 3}");
    EXPECT_EQ(qdmtest::RunSim({"install", "--state", folder_ + "/bad.json"}, &output), 2);
    EXPECT_NE(output.find("adapters: expected an array"), std::string::npos) << output;
}

TEST_F(SimInstallTest, UtilityScriptsReplaceTheUtility) {
    ASSERT_TRUE(Install({}));
    const std::string unpacked = folder_ + "/ocm";
    ASSERT_TRUE(qdmtest::BuildUtilityModule(folder_ + "/ocm.zip", "11.0.1.2"));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/ocm.zip", unpacked));
    const std::string messages = qdmtest::ReadFile(unpacked + "/x64/message.txt");
    EXPECT_EQ(messages, "SuccessMessage=completed successfully\nEndMessage=OCM script end\n");

    std::string output;
    EXPECT_EQ(qdmtest::RunShell(unpacked + "/x64/uninstall.sh", &output), 0);
    EXPECT_EQ(output, "Uninstallation completed successfully\nOCM script end\n");
    EXPECT_FALSE(qdmtest::Exists(kTool));
    EXPECT_EQ(qdmtest::SimGet("utilityVersion"), "");

    EXPECT_EQ(qdmtest::RunShell(unpacked + "/x64/install.sh -q", &output), 0);
    EXPECT_EQ(output, "Installation completed successfully\nOCM script end\n");
    EXPECT_EQ(qdmtest::RunShell(std::string(kTool) + " version | grep 'Interface'", &output), 0);
    EXPECT_NE(output.find("Version: 11.0.1.2 (build 12)"), std::string::npos) << output;
    EXPECT_EQ(qdmtest::RunShell("rpm -qa | grep elxocmcore", &output), 0);
    EXPECT_EQ(output, "elxocmcore-11.0.1.2-1.x86_64\n");
}

TEST_F(SimInstallTest, FailingScriptsPrintTheEndButNoSuccess) {
    ASSERT_TRUE(Install({}));
    const std::string unpacked = folder_ + "/ocm";
    ASSERT_TRUE(qdmtest::BuildUtilityModule(folder_ + "/ocm.zip", "11.0.1.2",
                                            {"--fail-install", "--fail-uninstall"}));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/ocm.zip", unpacked));
    for (const char* script : {"/x86/uninstall.sh", "/x86/install.sh"}) {
        std::string output;
        EXPECT_EQ(qdmtest::RunShell(unpacked + script, &output), 1) << script;
        EXPECT_NE(output.find("OCM script end"), std::string::npos) << script;
        EXPECT_EQ(output.find("completed successfully"), std::string::npos) << script;
    }
    EXPECT_EQ(qdmtest::SimGet("utilityVersion"), "\"10.2.370.16\"");
    EXPECT_TRUE(qdmtest::Exists(kTool));
}

TEST_F(SimInstallTest, MissingScriptOptions) {
    ASSERT_TRUE(qdmtest::BuildUtilityModule(folder_ + "/ocm.zip", "11.0.1.2", {"--no-install-script"}));
    ASSERT_TRUE(qdmtest::UnpackModule(folder_ + "/ocm.zip", folder_ + "/ocm"));
    EXPECT_TRUE(qdmtest::Exists(folder_ + "/ocm/x64/uninstall.sh"));
    EXPECT_FALSE(qdmtest::Exists(folder_ + "/ocm/x64/install.sh"));
}

}  // namespace
