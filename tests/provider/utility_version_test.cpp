// Utility version: the one-hour "HbaVersion.txt" cache, the version line, and
// the steps around the install (backup, restore, apply check).
#include <string>
#include <vector>

#include "CEMULEX_OCM_Utility.h"
#include "CEmulexCommon.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

using moduletest::LineCount;

const char kToolVersionLine[] = "Command Line Interface Version: 10.2.370.16 (build)";

class UtilityVersionTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        versionFile_ = cache_ + "/HbaVersion.txt";
        runLog_ = root_ + "/hbacmd.log";
    }

    void InstallTool() {
        moduletest::InstallFakeHbacmd(placed_, runLog_, "Driver Version : 11.2.156.27", kToolVersionLine);
    }

    void WriteCache(const std::string& content, long ageSeconds) {
        qdmtest::WriteFile(versionFile_, content);
        qdmtest::SetFileAge(versionFile_, ageSeconds);
    }

    CEMULEX_OCM_Utility utility_{"dev"};
    moduletest::PlacedPaths placed_;
    std::string versionFile_, runLog_;
};

TEST_F(UtilityVersionTest, CacheIsReusedUpTo3599SecondsAndRefreshedFrom3600) {
    InstallTool();
    struct Case {
        long age;
        const char* expected;
        size_t toolRuns;
    } cases[] = {
        {3599, "9.1.2.3", 0},
        {3600, "10.2.370.16", 1},
        {-1, "10.2.370.16", 1},  // no file at all
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.age);
        qdmtest::RemoveTree(runLog_);
        if (c.age >= 0)
            WriteCache("Command Line Interface Version: 9.1.2.3 (old)\n", c.age);
        else
            qdmtest::RemoveTree(versionFile_);
        EXPECT_EQ(c.expected, utility_.GetOperatingVersion());
        EXPECT_EQ(c.toolRuns, LineCount(runLog_));
    }
    EXPECT_EQ("version\n", qdmtest::ReadFile(runLog_));
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() Hba version file elapse time [3599] sec"));
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() ExecForeignModule cmd:[\"" +
                         std::string(moduletest::kHbacmd) + " version  > \"" + versionFile_ + "\"]"));
}

TEST_F(UtilityVersionTest, VersionLineRules) {
    struct Case {
        const char* comment;
        const char* content;
        const char* expected;
    } cases[] = {
        {"after the first colon, before the parenthesis", "Command Line Interface Version: 10.2.370.16 (build)\n",
         "10.2.370.16"},
        {"other lines first", "\nOne Command Manager\nCLI: x\nCommand Line Interface: 11.0.1.2\n", "11.0.1.2"},
        {"only the first such line", "Command Line Interface: 1.2.3.4\nCommand Line Interface: 5.6.7.8\n", "1.2.3.4"},
        {"dust after the last segment", "Command Line Interface Version: 10.2.370.16b\n", "10.2.370.16"},
        {"no colon on the line", "Command Line Interface Version 10.2.370.16\n", "abnormal"},
        {"no such line", "Version: 10.2.370.16\n", "abnormal"},
        {"not four segments", "Command Line Interface Version: 10.2.370 (build)\n", "abnormal"},
        {"empty file", "", "abnormal"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        WriteCache(c.content, 0);
        EXPECT_EQ(c.expected, utility_.GetOperatingVersion());
    }
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() operating version abnormal. []"));
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() operating version format error. [10.2.370]"));
}

TEST_F(UtilityVersionTest, StaleFileIsStillReadWhenTheToolIsMissing) {
    WriteCache("Command Line Interface Version: 9.1.2.3 (old)\n", 7200);
    EXPECT_EQ("9.1.2.3", utility_.GetOperatingVersion());
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion Fail OCMPath:"));
}

TEST_F(UtilityVersionTest, FailingToolRunGivesAbnormal) {
    placed_.Script(moduletest::kHbacmd, "exit 3\n");
    WriteCache("Command Line Interface Version: 9.1.2.3 (old)\n", 7200);
    EXPECT_EQ("abnormal", utility_.GetOperatingVersion());
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() command error"));
}

TEST_F(UtilityVersionTest, ApplyCheckTells0008From0009) {
    struct Case {
        const char* comment;
        const char* cached;
        const char* update;
        const char* messageId;  // nullptr: no mismatch
    } cases[] = {
        {"installed version reached", kToolVersionLine, "10.2.370.16", nullptr},
        {"another version installed", kToolVersionLine, "11.0.0.1", "MSGID_EMULEX_FC_0009_F"},
        {"version unreadable", "garbage", "11.0.0.1", "MSGID_EMULEX_FC_0008_F"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        CTraceUtility::ClearCapture();
        WriteCache(c.cached, 0);
        CManageRepositoryInfo info;
        info.version = c.update;
        utility_.CheckRegisterUpdateModule(info);
        EXPECT_EQ(c.messageId != nullptr, utility_.UpdateApplyCheck(""));
        const auto messages = Messages();
        ASSERT_EQ(c.messageId ? 1u : 0u, messages.size());
        if (c.messageId) {
            EXPECT_EQ(c.messageId, messages[0].id);
            EXPECT_EQ("ocm", messages[0].inserts.at(0));
            EXPECT_EQ(c.update, messages[0].inserts.at(2));
        }
    }
}

TEST_F(UtilityVersionTest, BackupAndRestoreDeleteTheirFiles) {
    const std::string installOutput = temp_ + "/temp_ocm_install.txt";
    qdmtest::WriteFile(installOutput, "x");
    WriteCache(kToolVersionLine, 0);

    EXPECT_EQ(0, utility_.UpdateBackup("", false));
    EXPECT_FALSE(qdmtest::Exists(installOutput));
    EXPECT_TRUE(qdmtest::Exists(versionFile_));

    qdmtest::WriteFile(installOutput, "x");
    EXPECT_EQ(0, utility_.UpdateRestore(""));
    EXPECT_FALSE(qdmtest::Exists(installOutput));
    EXPECT_FALSE(qdmtest::Exists(versionFile_));
}

}  // namespace
