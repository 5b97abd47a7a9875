// Utility install and upgrade: the package's uninstall and install scripts.
#include <list>
#include <string>
#include <vector>

#include "Archive.h"
#include "CEMULEX_OCM_Utility.h"
#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

using qdmtest::ArchiveEntry;

// Both scripts share the package's message file.
const char kMessages[] = "EndMessage=finished\nSuccessMessage=succeeded\n";

class UtilityUpdateTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        scriptLog_ = root_ + "/scripts.log";
        module_ = root_ + "/ocm.zip";
        installOutput_ = temp_ + "/temp_ocm_install.txt";
        uninstallOutput_ = temp_ + "/temp_ocm_uninstall.txt";
        CCommon_Information::SetArchitectureOverride("x86_64");
        CEmulexCommon::SetLastError(0);
    }

    // A script that logs its package-relative name and arguments, then prints its end and
    // (when it succeeds) its success message.
    ArchiveEntry Script(const std::string& folder, const std::string& name, bool succeeds = true) const {
        std::string body = "#!/bin/sh\necho \"" + folder + "/" + name + " $*\" >> '" + scriptLog_ + "'\n";
        body += "echo \"" + name + " finished\"\n";
        if (succeeds) body += "echo \"" + name + " succeeded\"\n";
        return {folder + "/" + name, body, true};
    }

    std::vector<ArchiveEntry> Package(const std::string& folder) const {
        return {Script(folder, "uninstall.sh"), Script(folder, "install.sh"), {folder + "/message.txt", kMessages}};
    }

    bool RunUpdate(const std::vector<ArchiveEntry>& entries) {
        EXPECT_TRUE(qdmtest::MakeZip(module_, entries));
        return utility_.OCMUpdate("dev", module_, &files_, false);
    }

    std::string ScriptLog() const { return qdmtest::ReadFile(scriptLog_); }

    CEMULEX_OCM_Utility utility_{"dev"};
    std::list<std::string> files_;
    moduletest::FakeBin bin_;
    std::string scriptLog_, module_, installOutput_, uninstallOutput_;
};

TEST_F(UtilityUpdateTest, UninstallRunsBeforeQuietInstall) {
    ASSERT_TRUE(qdmtest::MakeZip(module_, Package("x64")));
    EXPECT_EQ(0, utility_.PreUpdate("dev", module_, &files_, false));

    const std::string folder = temp_ + "/tmp/x64";
    EXPECT_EQ("x64/uninstall.sh \nx64/install.sh -q\n", ScriptLog());
    EXPECT_FALSE(qdmtest::Exists(uninstallOutput_));
    EXPECT_EQ("install.sh finished\ninstall.sh succeeded\n", qdmtest::ReadFile(installOutput_));
    EXPECT_TRUE(qdmtest::Exists(folder));  // the unzip folder stays
    EXPECT_TRUE(HasDebug("Execute tsystem command:[chmod 777 " + folder + "/*]"));
    // Each script's result is looked at after one 30-second wait.
    EXPECT_EQ(2u, clock_->count(30000));
}

TEST_F(UtilityUpdateTest, InstallOutputMarksTheInstallDone) {
    qdmtest::WriteFile(installOutput_, "earlier");
    EXPECT_TRUE(utility_.OCMUpdate("dev", root_ + "/missing.zip", &files_, false));
    EXPECT_TRUE(HasDebug("OCM update is previously-reported.OCM Update is skipped"));
    EXPECT_FALSE(qdmtest::Exists(scriptLog_));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/tmp"));
}

TEST_F(UtilityUpdateTest, FailedUninstallStopsBeforeInstallAndDeletesItsOutput) {
    std::vector<ArchiveEntry> entries = Package("x64");
    entries[0] = Script("x64", "uninstall.sh", false);
    ASSERT_TRUE(qdmtest::MakeZip(module_, entries));

    EXPECT_EQ(1, utility_.PreUpdate("dev", module_, &files_, false));

    EXPECT_EQ("x64/uninstall.sh \n", ScriptLog());
    EXPECT_FALSE(qdmtest::Exists(uninstallOutput_));
    EXPECT_FALSE(qdmtest::Exists(installOutput_));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to open file(" + uninstallOutput_ + ")."));
    EXPECT_TRUE(HasDebug("Failed to update(ocm)(17)."));
}

TEST_F(UtilityUpdateTest, UndeletableUninstallOutputIsLoggedUnderTheOtherName) {
    // A folder in its place: the uninstall cannot write it and it cannot be unlinked.
    qdmtest::WriteFile(uninstallOutput_ + "/keep", "");
    EXPECT_FALSE(RunUpdate(Package("x64")));
    EXPECT_TRUE(HasDebug("Failed to delete OCM update result File [" + temp_ + "/ocm_update_result.txt]"));
    EXPECT_FALSE(qdmtest::Exists(installOutput_));
}

TEST_F(UtilityUpdateTest, MissingInstallScriptFailsAfterTheUninstall) {
    EXPECT_FALSE(RunUpdate({Script("x64", "uninstall.sh"), {"x64/message.txt", kMessages}}));
    EXPECT_EQ("x64/uninstall.sh \n", ScriptLog());
    EXPECT_EQ(29u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to find update module.There is not install.sh file."));
}

TEST_F(UtilityUpdateTest, MissingUninstallScriptRunsNothing) {
    EXPECT_FALSE(RunUpdate({Script("x64", "install.sh"), {"x64/message.txt", kMessages}}));
    EXPECT_FALSE(qdmtest::Exists(scriptLog_));
    EXPECT_EQ(29u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to find update module.There is not uninstall.sh file."));
}

TEST_F(UtilityUpdateTest, UnusableModuleIsReportedUnderTheUtilitysWord) {
    qdmtest::WriteFile(module_, "not a zip archive");
    EXPECT_FALSE(utility_.OCMUpdate("dev", module_, &files_, false));
    EXPECT_EQ(26u, CEmulexCommon::GetLastError());
    ASSERT_EQ(1u, Messages().size());
    EXPECT_EQ("MSGID_EMULEX_FC_0004_F", Messages()[0].id);
    EXPECT_EQ((std::vector<std::string>{"ocm", "1a"}), Messages()[0].inserts);
}

TEST_F(UtilityUpdateTest, FailingChmodDoesNotStopTheUpdate) {
    bin_.Add("chmod", "exit 1\n");
    EXPECT_TRUE(RunUpdate(Package("x64")));
    EXPECT_TRUE(HasDebug("[chmod 777 " + temp_ + "/tmp/x64/*] return [256]"));
    EXPECT_TRUE(qdmtest::Exists(installOutput_));
}

TEST_F(UtilityUpdateTest, ArchitectureSelectsThePackageFolder) {
    struct Case {
        const char* machine;
        const char* folder;  // empty: unsupported
    } cases[] = {
        {"x86_64", "x64"},
        {"i686", "x86"},
        {"aarch64", ""},
    };
    std::vector<ArchiveEntry> entries = Package("x86");
    for (const auto& entry : Package("x64")) entries.push_back(entry);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        qdmtest::RemoveTree(installOutput_);
        qdmtest::RemoveTree(scriptLog_);
        CTraceUtility::ClearCapture();
        CCommon_Information::SetArchitectureOverride(c.machine);
        CEmulexCommon::SetLastError(5);
        const bool supported = *c.folder != '\0';
        EXPECT_EQ(supported, RunUpdate(entries));
        if (supported) {
            const std::string folder = c.folder;
            EXPECT_EQ(folder + "/uninstall.sh \n" + folder + "/install.sh -q\n", ScriptLog());
        } else {
            EXPECT_FALSE(qdmtest::Exists(scriptLog_));
            EXPECT_TRUE(HasDebug("Failed to get os architecture."));
            EXPECT_EQ(5u, CEmulexCommon::GetLastError());  // left as it was
            EXPECT_TRUE(Messages().empty());
        }
    }
}

}  // namespace
