// The FC driver package update: skips, package choice, rpm run, depmod,
// backup, restore and the apply check.
#include <list>
#include <string>
#include <vector>

#include "Archive.h"
#include "CEmulexCommon.h"
#include "CFC_EMULEX_Driver.h"
#include "CommonInformation.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

using moduletest::kWwpn;
using moduletest::LineCount;
using qdmtest::ArchiveEntry;

const char kUpdateFailed[] = "MSGID_EMULEX_FC_0004_F";
const char kNoPackage[] = "MSGID_EMULEX_FC_0005_F";
const char kMismatch[] = "MSGID_EMULEX_FC_0009_F";

class DriverUpdateTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        rpmLog_ = root_ + "/rpm.log";
        depmodLog_ = root_ + "/depmod.log";
        module_ = root_ + "/driver.zip";
        resultFile_ = temp_ + "/temp_driver_fc.txt";
        unzipFolder_ = temp_ + "/tmp";
        SetRpmExit(0);
        bin_.Add("depmod", "echo \"$*\" >> '" + depmodLog_ + "'\n");
        placed_.Folder("/etc/depmod.d");
        CCommon_Information::SetArchitectureOverride("x86_64");
        CEmulexCommon::SetLastError(0);
    }

    // The fake prints its arguments (they land in the result file) and logs them.
    void SetRpmExit(int code) {
        bin_.Add("rpm", "echo \"rpm $*\"\necho \"$*\" >> '" + rpmLog_ + "'\nexit " + std::to_string(code) + "\n");
    }

    int RunUpdate(const std::vector<ArchiveEntry>& entries) {
        EXPECT_TRUE(qdmtest::MakeZip(module_, entries));
        return driver_.Update("dev", module_, &files_, false);
    }

    std::string Package(const std::string& relative) const { return unzipFolder_ + "/" + relative; }

    CFC_EMULEX_Driver driver_{"dev", "driver", kWwpn};
    std::list<std::string> files_;
    moduletest::FakeBin bin_;
    moduletest::PlacedPaths placed_;
    std::string rpmLog_, depmodLog_, module_, resultFile_, unzipFolder_;
};

TEST_F(DriverUpdateTest, MarkerFilesSkipTheUpdate) {
    struct Case {
        const char* marker;
        const char* trace;
    } cases[] = {
        {"SequentialUpdateFile_FCoE.txt", "Driver update trun is CNA. Driver Update is skipped"},
        {"temp_driver_fc.txt", "Driver update is previously-reported.Driver Update is skipped"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.marker);
        qdmtest::WriteFile(temp_ + "/" + c.marker, "");
        // No update module exists at all: nothing may be touched.
        EXPECT_EQ(0, driver_.Update("dev", root_ + "/missing.zip", &files_, false));
        EXPECT_TRUE(HasDebug(c.trace));
        qdmtest::RemoveTree(temp_ + "/" + c.marker);
    }
    EXPECT_FALSE(qdmtest::Exists(rpmLog_));
    EXPECT_FALSE(qdmtest::Exists(unzipFolder_));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(DriverUpdateTest, ExactlyOnePackageIsRequired) {
    struct Case {
        const char* comment;
        std::vector<ArchiveEntry> entries;
        const char* trace;
    } cases[] = {
        {"none in the FC folder", {{"x64/FC/readme.txt", "r"}, {"x64/lpfc.rpm", "p"}},
         "Failed to find update module.There is not update file."},
        {"two packages", {{"x64/FC/a.rpm", "p"}, {"x64/FC/b.rpm", "p"}},
         "Failed to find update module.There is some update file."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        CTraceUtility::ClearCapture();
        EXPECT_EQ(1, RunUpdate(c.entries));
        EXPECT_EQ(29u, CEmulexCommon::GetLastError());
        EXPECT_EQ(1u, MessageCount(kNoPackage));
        EXPECT_EQ(0u, MessageCount(kUpdateFailed));
        EXPECT_TRUE(HasDebug(c.trace));
    }
    EXPECT_FALSE(qdmtest::Exists(rpmLog_));
}

TEST_F(DriverUpdateTest, UnreadablePackageIsReportedWith0004) {
    // A folder named like a package opens but cannot be read, even as root.
    EXPECT_EQ(1, RunUpdate({{"x64/FC/lpfc.rpm/content", "p"}}));
    EXPECT_EQ(29u, CEmulexCommon::GetLastError());
    EXPECT_EQ(1u, MessageCount(kUpdateFailed));
    EXPECT_EQ(0u, MessageCount(kNoPackage));
    EXPECT_TRUE(HasDebug("No " + Package("x64/FC/lpfc.rpm")));
    EXPECT_FALSE(qdmtest::Exists(rpmLog_));
}

TEST_F(DriverUpdateTest, PackageNameUnfitForTheShellIsRefused) {
    EXPECT_EQ(1, RunUpdate({{"x64/FC/a;touch x.rpm", "p"}}));
    EXPECT_EQ(29u, CEmulexCommon::GetLastError());
    EXPECT_EQ(1u, MessageCount(kUpdateFailed));
    EXPECT_FALSE(qdmtest::Exists(rpmLog_));
}

TEST_F(DriverUpdateTest, ArchitectureSelectsThePackageFolder) {
    struct Case {
        const char* machine;
        const char* package;  // empty: unsupported
    } cases[] = {
        {"i686", "x86/FC/lpfc32.rpm"},
        {"i386", "x86/FC/lpfc32.rpm"},
        {"x86_64", "x64/FC/lpfc64.rpm"},
        {"aarch64", ""},
    };
    const std::vector<ArchiveEntry> entries = {{"x86/FC/lpfc32.rpm", "32"}, {"x64/FC/lpfc64.rpm", "64"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.machine);
        CTraceUtility::ClearCapture();
        qdmtest::RemoveTree(resultFile_);
        qdmtest::RemoveTree(rpmLog_);
        CCommon_Information::SetArchitectureOverride(c.machine);
        const bool supported = *c.package != '\0';
        EXPECT_EQ(supported ? 0 : 1, RunUpdate(entries));
        if (supported) {
            EXPECT_EQ("-Uhv --oldpackage " + Package(c.package) + "\n", qdmtest::ReadFile(rpmLog_));
        } else {
            EXPECT_EQ(32u, CEmulexCommon::GetLastError());
            EXPECT_EQ(1u, MessageCount(kUpdateFailed));
            EXPECT_TRUE(HasDebug("Not supported OS arch aarch64"));
            EXPECT_FALSE(qdmtest::Exists(rpmLog_));
        }
    }
}

TEST_F(DriverUpdateTest, UnusableModuleFailsWithUnzipError) {
    qdmtest::WriteFile(module_, "not a zip archive");
    EXPECT_EQ(1, driver_.Update("dev", module_, &files_, false));
    EXPECT_EQ(26u, CEmulexCommon::GetLastError());
    ASSERT_EQ(1u, Messages().size());
    EXPECT_EQ(kUpdateFailed, Messages()[0].id);
    EXPECT_EQ((std::vector<std::string>{"driv", "1a"}), Messages()[0].inserts);
}

TEST_F(DriverUpdateTest, FailingRpmLeavesFolderAndResultFileWithoutMessage) {
    SetRpmExit(1);
    EXPECT_EQ(1, RunUpdate({{"x64/FC/lpfc.rpm", "p"}}));

    const std::string command = "rpm -Uhv --oldpackage " + Package("x64/FC/lpfc.rpm") + " > " + resultFile_;
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(Messages().empty());
    EXPECT_TRUE(HasDebug("Execute Update by _tsystem method [" + command + "]"));
    EXPECT_TRUE(HasDebug("Return=256"));
    EXPECT_TRUE(HasDebug("Driver update error(" + command + ")."));
    EXPECT_TRUE(qdmtest::Exists(Package("x64/FC/lpfc.rpm")));
    EXPECT_EQ("rpm -Uhv --oldpackage " + Package("x64/FC/lpfc.rpm") + "\n", qdmtest::ReadFile(resultFile_));
    EXPECT_FALSE(qdmtest::Exists(depmodLog_));

    // The next cycle's backup re-arms the update.
    EXPECT_EQ(0, driver_.UpdateBackup("", false));
    EXPECT_FALSE(qdmtest::Exists(resultFile_));
}

TEST_F(DriverUpdateTest, SuccessfulUpdateRunsDepmodAndRemovesTheFolder) {
    EXPECT_EQ(0, RunUpdate({{"x64/FC/lpfc.rpm", "p"}}));

    EXPECT_EQ(1u, LineCount(rpmLog_));
    EXPECT_EQ("-a\n", qdmtest::ReadFile(depmodLog_));
    EXPECT_NE(std::string::npos,
              qdmtest::ReadFile("/etc/depmod.d/elxlpfc.conf").find("override lpfc * weak-updates/elx-lpfc"));
    EXPECT_FALSE(qdmtest::Exists(unzipFolder_));
    EXPECT_TRUE(qdmtest::Exists(resultFile_));
    EXPECT_TRUE(Messages().empty());

    // A second adapter in the same cycle installs nothing.
    EXPECT_EQ(0, driver_.Update("dev", module_, &files_, false));
    EXPECT_EQ(1u, LineCount(rpmLog_));
}

TEST_F(DriverUpdateTest, DepmodFailureDoesNotFailTheUpdate) {
    bin_.Add("depmod", "exit 1\n");
    EXPECT_EQ(0, RunUpdate({{"x64/FC/lpfc.rpm", "p"}}));
    EXPECT_TRUE(HasDebug("depmod -a error.(256)"));
    EXPECT_FALSE(qdmtest::Exists(unzipFolder_));
}

TEST_F(DriverUpdateTest, RestoreDropsAttributeCacheAndResultFile) {
    const std::string cache = cache_ + "/" + moduletest::kAttribCacheName;
    qdmtest::WriteFile(cache, "Driver Version : 11.2.156.27\n");
    qdmtest::WriteFile(resultFile_, "done");
    EXPECT_EQ(0, driver_.UpdateRestore(""));
    EXPECT_FALSE(qdmtest::Exists(cache));
    EXPECT_FALSE(qdmtest::Exists(resultFile_));
}

TEST_F(DriverUpdateTest, ApplyCheckReports0009ForUnreadableAndMismatchedVersions) {
    struct Case {
        const char* comment;
        const char* cached;  // attribute cache content
        const char* update;
        bool failed;
    } cases[] = {
        {"same version", "Driver Version : 11.2.156.27; HBAAPI\n", "11.2.156.27", false},
        {"older installed", "Driver Version : 11.2.156.27; HBAAPI\n", "12.0.193.13", true},
        {"unreadable", "Driver Version : broken\n", "12.0.193.13", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        CTraceUtility::ClearCapture();
        qdmtest::WriteFile(cache_ + "/" + moduletest::kAttribCacheName, c.cached);
        CManageRepositoryInfo info;
        info.version = c.update;
        driver_.CheckRegisterUpdateModule(info);
        EXPECT_EQ(c.failed, driver_.UpdateApplyCheck(""));
        EXPECT_EQ(c.failed ? 1u : 0u, MessageCount(kMismatch));
    }
    EXPECT_TRUE(HasDebug("Operating Version(abnormal) and Update Version(12.0.193.13) are mismatched"));
    EXPECT_EQ((std::vector<std::string>{"driv", "abnormal", "12.0.193.13"}), Messages().back().inserts);
}

}  // namespace
