// The utility configuration check: the two configuration files in /etc and
// the elxocmjvm package query.
#include <string>

#include "CEMULEX_OCM_Utility.h"
#include "CEmulexCommon.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

const char kDiscFile[] = "/etc/emulexDiscConfig";
const char kRmFile[] = "/etc/emulexRMConfig";
const char kDiscCounterTrace[] = "0 < iDiskKeyWordCount ) || ( iRet != true )";
const char kRmCounterTrace[] = "( 0 < iRmKeyWordCount ) || ( iRet != true )";

const char kGoodDisc[] =
    "ClientRemoteOperation:disabled\n"
    "ClientOperationMode:enabled\n"
    "ClientReadOnlyOperation:disabled\n"
    "TcpSocketPortNumber:23333\n";
const char kGoodRm[] =
    "ServerRemoteOperation:enabled\n"
    "ManagementHost:false\n"
    "SecureManagement:disabled\n"
    "MngmtHostIpAddress:0\n"
    "ExclusiveHostMgmnt:false\n";
const char kNoJvm[] = "elxocmcore-10.2.370.16-1\n";

class UtilityCheckTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        rpmLog_ = root_ + "/rpm.log";
        SetInstalledPackages(kNoJvm);
    }

    void SetInstalledPackages(const std::string& listing) {
        qdmtest::WriteFile(root_ + "/rpm-qa.txt", listing);
        bin_.Add("rpm", "echo \"$*\" >> '" + rpmLog_ + "'\ncat '" + root_ + "/rpm-qa.txt'\n");
    }

    bool Check(const std::string& disc, const std::string& rm) {
        placed_.File(kDiscFile, disc);
        placed_.File(kRmFile, rm);
        return utility_.OCMInstallCheck();
    }

    CEMULEX_OCM_Utility utility_{"dev"};
    moduletest::FakeBin bin_;
    moduletest::PlacedPaths placed_;
    std::string rpmLog_;
};

TEST_F(UtilityCheckTest, AllSettingsAndNoJvmPackagePass) {
    moduletest::InstallFakeHbacmd(placed_, root_ + "/hbacmd.log", "", "Command Line Interface Version: 10.2.370.16");
    EXPECT_TRUE(Check(kGoodDisc, kGoodRm));
    // The version cache is refreshed first.
    EXPECT_EQ("version\n", qdmtest::ReadFile(root_ + "/hbacmd.log"));
    EXPECT_EQ("-qa\n", qdmtest::ReadFile(rpmLog_));
    EXPECT_EQ("1\n", qdmtest::ReadFile(temp_ + "/rpm_grep_result.txt"));
    EXPECT_TRUE(HasDebug("Execute tsystem command:[rpm -qa | grep elxocmjvm-..........rpm;echo $? > " + temp_ +
                         "/rpm_grep_result.txt]"));
    EXPECT_EQ(qdmtest::ReadFile(kDiscFile), kGoodDisc);  // read only
    EXPECT_EQ(qdmtest::ReadFile(kRmFile), kGoodRm);
    for (const auto& line : Debug()) {
        if (line.text.find("OCMInstallCheck() [") != std::string::npos) {
            EXPECT_EQ(CTraceUtility::TRACE_INFO, line.level);
        }
    }
}

TEST_F(UtilityCheckTest, BlanksAreRemovedButTabsStay) {
    EXPECT_TRUE(Check(std::string("ClientRemoteOperation : disabled\n   ClientOperationMode:  enabled \n") +
                          "ClientReadOnlyOperation:disabled\nTcpSocketPortNumber : 23333",
                      kGoodRm));
    EXPECT_TRUE(HasDebug("emulexDiscConfig space delete:[ClientRemoteOperation: disabled]"));
    EXPECT_TRUE(HasDebug("silent [ClientRemoteOperation:disabled]"));

    EXPECT_FALSE(Check(std::string("ClientRemoteOperation:\tdisabled\n") + kGoodDisc, kGoodRm));
}

struct ConfigCase {
    const char* comment;
    std::string disc;
    std::string rm;
    bool expected;
    const char* trace;  // must be written
};

TEST_F(UtilityCheckTest, KeyRules) {
    const ConfigCase cases[] = {
        {"commented-out setting", std::string("#ClientOperationMode:enabled\n") + kGoodDisc, kGoodRm, false,
         "not silent [#ClientOperationMode:enabled]"},
        {"missing discovery key", "ClientRemoteOperation:disabled\nClientOperationMode:enabled\n", kGoodRm, false,
         kDiscCounterTrace},
        {"duplicated line reaches zero while the port line is missing",
         "ClientRemoteOperation:disabled\nClientRemoteOperation:disabled\nClientOperationMode:enabled\n"
         "ClientReadOnlyOperation:disabled\n",
         kGoodRm, true, "silent [ClientReadOnlyOperation:disabled]"},
        {"empty management file", kGoodDisc, "", false, kRmCounterTrace},
        {"management value wrong", kGoodDisc,
         "ServerRemoteOperation:enabled\nManagementHost:true\nSecureManagement:disabled\n", false,
         "not silent [ManagementHost:true]"},
        {"longer name containing a key is held to that key", kGoodDisc,
         std::string("ManagementHostName:srv\n") + kGoodRm, false, "find[ManagementHost] in [ManagementHostName:srv]"},
        {"lines without keys are ignored", std::string("# comment\n\nOther:1\n") + kGoodDisc, kGoodRm, true,
         "emulexDiscConfig:[Other:1]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        CTraceUtility::ClearCapture();
        EXPECT_EQ(c.expected, Check(c.disc, c.rm));
        EXPECT_TRUE(HasDebug(c.trace));
    }
}

TEST_F(UtilityCheckTest, WrongPortStopsBeforeTheManagementFile) {
    EXPECT_FALSE(Check("ClientRemoteOperation:disabled\nTcpSocketPortNumber:23334\nClientOperationMode:enabled\n",
                       kGoodRm));
    EXPECT_TRUE(HasDebug("not silent [TcpSocketPortNumber:23334]"));
    EXPECT_TRUE(HasDebug(kDiscCounterTrace));
    EXPECT_FALSE(HasDebugContaining("ClientOperationMode"));  // reading stopped at once
    EXPECT_FALSE(HasDebugContaining("emulexRMConfig"));
    EXPECT_FALSE(qdmtest::Exists(rpmLog_));
}

TEST_F(UtilityCheckTest, MissingConfigurationFileFails) {
    placed_.File(kRmFile, kGoodRm);
    CEmulexCommon::SetLastError(0);
    EXPECT_FALSE(utility_.OCMInstallCheck());
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to open file(/etc/emulexDiscConfig)."));
}

TEST_F(UtilityCheckTest, InstalledJvmPackageFailsTheCheck) {
    struct Case {
        const char* listing;
        bool expected;
    } cases[] = {
        // The pattern wants exactly ten characters between the name and "rpm".
        {"elxocmcore-10.2.370.16-1\nelxocmjvm-1002.0370.rpm\n", false},
        {"elxocmjvm-10.2.370.16-1.x86_64.rpm\n", true},
        {kNoJvm, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.listing);
        CTraceUtility::ClearCapture();
        SetInstalledPackages(c.listing);
        EXPECT_EQ(c.expected, Check(kGoodDisc, kGoodRm));
        EXPECT_EQ(!c.expected, HasDebug("I found elxocmjvm-xxxx.xxxx.rpm. "));
    }
}

}  // namespace
