// The utility module: its configuration check, install and upgrade through
// the package's scripts, and the version read through the one-hour cache.

#include "CEMULEX_OCM_Utility.h"
#include "ModuleFakes.h"

namespace {

using namespace moduletest;
using qdmtest::ArchiveEntry;
using qdmtest::ReadFile;

const char kGoodDisc[] =
    "ClientRemoteOperation:disabled\nClientOperationMode:enabled\nClientReadOnlyOperation:disabled\n"
    "TcpSocketPortNumber:23333\n";
const char kGoodRm[] = "ServerRemoteOperation:enabled\nManagementHost:false\nSecureManagement:disabled\n"
                       "MngmtHostIpAddress:0\nExclusiveHostMgmnt:false\n";
const char kDiscCounter[] = "0 < iDiskKeyWordCount ) || ( iRet != true )";
const char kNoJvm[] = "elxocmcore-10.2.370.16-1\n";
// Both scripts share the package's message file.
const char kMessages[] = "EndMessage=finished\nSuccessMessage=succeeded\n";

class UtilityTest : public ModuleTest {
protected:
    // A script that logs its package-relative name and arguments, then prints
    // its end and (when it succeeds) its success message.
    ArchiveEntry Script(const std::string& folder, const std::string& name, bool succeeds = true) const {
        const std::string log = "echo \"" + folder + "/" + name + " $*\" >> '" + root_ + "/scripts.log'\n";
        const std::string end = "echo \"" + name + " finished\"\n";
        return {folder + "/" + name, log + end + (succeeds ? "echo \"" + name + " succeeded\"\n" : ""), true};
    }
    std::vector<ArchiveEntry> Package(const std::string& folder) const {
        return {Script(folder, "uninstall.sh"), Script(folder, "install.sh"), {folder + "/message.txt", kMessages}};
    }

    CEMULEX_OCM_Utility utility_{"dev"};
};

TEST_F(UtilityTest, ConfigurationCheck) {
    const std::string goodRm = kGoodRm, found = "I found elxocmjvm-xxxx.xxxx.rpm. ";
    const std::string commented = "# comment\n\nOther:1\n" + std::string(kGoodDisc);
    const std::string grepResult = temp_ + "/rpm_grep_result.txt";
    const std::string grep =
        "Execute tsystem command:[rpm -qa | grep elxocmjvm-..........rpm;echo $? > " + grepResult + "]";
    // disc null: the file is missing; listing: what "rpm -qa" prints (null: rpm
    // must not run); absent: a text that no debug line may hold
    struct Row { const char* disc; std::string rm; const char* listing; bool ok; std::string debug;
                 const char* absent; };
    const Row rows[] = {
        {kGoodDisc, kGoodRm, kNoJvm, true, grep, "not silent"},
        // Blanks are removed, tabs stay.
        {"ClientRemoteOperation : disabled\n   ClientOperationMode:  enabled \nClientReadOnlyOperation:disabled\n"
         "TcpSocketPortNumber : 23333", kGoodRm, kNoJvm, true,
         "emulexDiscConfig space delete:[ClientRemoteOperation: disabled]", "not silent"},
        {"ClientRemoteOperation:\tdisabled\n", kGoodRm, nullptr, false, "not silent [ClientRemoteOperation:\tdisabled]",
         "emulexRMConfig"},
        {"ClientRemoteOperation:disabled\nClientOperationMode:enabled\n", kGoodRm, nullptr, false, kDiscCounter,
         "emulexRMConfig"},
        // A duplicated line counts twice: zero is reached while the port line is missing.
        {"ClientRemoteOperation:disabled\nClientRemoteOperation:disabled\nClientOperationMode:enabled\n"
         "ClientReadOnlyOperation:disabled\n", kGoodRm, kNoJvm, true, "silent [ClientReadOnlyOperation:disabled]", ""},
        // A wrong value stops the reading at once.
        {"ClientRemoteOperation:disabled\nTcpSocketPortNumber:23334\nClientOperationMode:enabled\n", kGoodRm, nullptr,
         false, "not silent [TcpSocketPortNumber:23334]", "ClientOperationMode"},
        {kGoodDisc, "", nullptr, false, "( 0 < iRmKeyWordCount ) || ( iRet != true )", ""},
        // A longer name containing a key is held to that key.
        {kGoodDisc, "ManagementHostName:srv\n" + goodRm, nullptr, false,
         "find[ManagementHost] in [ManagementHostName:srv]", ""},
        {commented.c_str(), kGoodRm, kNoJvm, true, "emulexDiscConfig:[Other:1]", ""},
        {nullptr, kGoodRm, nullptr, false, "Failed to open file(/etc/emulexDiscConfig).", ""},
        // The package pattern wants exactly ten characters between the name and "rpm".
        {kGoodDisc, kGoodRm, "elxocmcore-10.2.370.16-1\nelxocmjvm-1002.0370.rpm\n", false, found, ""},
        {kGoodDisc, kGoodRm, "elxocmjvm-10.2.370.16-1.x86_64.rpm\n", true, grep, found.c_str()},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.debug);
        Remove({kDiscConfig, rpmLog_, VersionFile(), state_ + "/calls", grepResult});
        if (row.disc) qdmtest::WriteFile(kDiscConfig, row.disc);
        qdmtest::WriteFile(kRmConfig, row.rm);
        qdmtest::WriteFile(root_ + "/rpm-qa.txt", row.listing ? row.listing : "");
        NextRow();
        EXPECT_EQ(row.ok, utility_.OCMInstallCheck());
        EXPECT_TRUE(HasDebug(row.debug));
        EXPECT_FALSE(*row.absent && HasDebugContaining(row.absent));
        // rpm's arguments, then grep's status
        EXPECT_EQ(row.listing ? (row.ok ? "-qa\n1\n" : "-qa\n0\n") : "", ReadFile(rpmLog_) + ReadFile(grepResult));
        EXPECT_EQ(row.disc ? 0u : 17u, CEmulexCommon::GetLastError());
        EXPECT_EQ("[version]\n", ReadFile(state_ + "/calls"));  // the version cache is refreshed first
        for (const auto& line : Debug())  // the check's own lines are information, not function traces
            EXPECT_TRUE(line.text.find("OCMInstallCheck() [") == line.text.npos ||
                        line.level == CTraceUtility::TRACE_INFO);
    }
}

TEST_F(UtilityTest, UpdateRunsUninstallThenQuietInstall) {
    const std::string install = temp_ + "/temp_ocm_install.txt", uninstall = temp_ + "/temp_ocm_uninstall.txt";
    const std::string chmod = "chmod 777 " + temp_ + "/tmp/x64/*";
    std::vector<ArchiveEntry> both = Package("x86");
    for (const auto& entry : Package("x64")) both.push_back(entry);
    const std::vector<ArchiveEntry> failing = {Script("x64", "uninstall.sh", false), Script("x64", "install.sh"),
                                               {"x64/message.txt", kMessages}};
    // entries: empty for a module that is no archive; before: a path in the temp
    // folder made beforehand; outcome: PreUpdate's result and the last error
    // (5 beforehand); scripts: the scripts' log
    struct Row { const char* machine; std::vector<ArchiveEntry> entries; std::string before; bool chmodFails;
                 const char* outcome; std::string debug; std::string scripts; std::string installed; };
    const std::string done = "install.sh finished\ninstall.sh succeeded\n";
    const Row rows[] = {
        {"x86_64", both, "", false, "0 5", "Execute tsystem command:[" + chmod + "]",
         "x64/uninstall.sh \nx64/install.sh -q\n", done},
        // No error and no message of its own: the last error stays as it was.
        {"aarch64", both, "", false, "1 5", "Failed to get os architecture.", "", ""},
        // An install output marks the install done.
        {"x86_64", {}, "temp_ocm_install.txt", false, "0 5", "OCM update is previously-reported.OCM Update is skipped",
         "", ""},
        {"x86_64", {}, "", false, "1 26 MSGID_EMULEX_FC_0004_F ocm 1a", "", "", ""},
        {"x86_64", failing, "", false, "1 17", "Failed to open file(" + uninstall + ").", "x64/uninstall.sh \n", ""},
        // A folder in its place: the uninstall output can be neither written nor deleted.
        {"x86_64", Package("x64"), "temp_ocm_uninstall.txt/keep", false, "1 17",
         "Failed to delete OCM update result File [" + temp_ + "/ocm_update_result.txt]", "", ""},
        {"x86_64", {Script("x64", "uninstall.sh"), {"x64/message.txt", kMessages}}, "", false, "1 29",
         "Failed to find update module.There is not install.sh file.", "x64/uninstall.sh \n", ""},
        {"x86_64", {Script("x64", "install.sh"), {"x64/message.txt", kMessages}}, "", false, "1 29",
         "Failed to find update module.There is not uninstall.sh file.", "", ""},
        // A failing chmod is left to the scripts' own runs to show.
        {"x86_64", Package("x64"), "", true, "0 5", "[" + chmod + "] return [256]",
         "x64/uninstall.sh \nx64/install.sh -q\n", done},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.machine) + " " + row.before + " " + row.debug);
        Remove({temp_ + "/tmp", install, uninstall, root_ + "/scripts.log", root_ + "/bin/chmod"});
        if (!row.before.empty()) qdmtest::WriteFile(temp_ + "/" + row.before, "");
        if (row.chmodFails) Fake("chmod", "exit 1\n");
        CCommon_Information::SetArchitectureOverride(row.machine);
        NextRow(5);
        const size_t polls = clock_->count(30000);
        EXPECT_EQ(row.outcome, StepOutcome(utility_.PreUpdate("dev", MakeModule("u.zip", row.entries), &files_, false)));
        EXPECT_TRUE(row.debug.empty() || HasDebug(row.debug));
        const std::string failed = "Failed to update(ocm)(" + std::to_string(CEmulexCommon::GetLastError()) + ").";
        EXPECT_EQ(row.outcome[0] == '1', HasDebug(failed));
        const std::string scripts = ReadFile(root_ + "/scripts.log");
        EXPECT_EQ(row.scripts, scripts);
        EXPECT_EQ(static_cast<size_t>(std::count(scripts.begin(), scripts.end(), '\n')), clock_->count(30000) - polls);
        EXPECT_EQ(row.before.empty() ? row.installed : "", ReadFile(install));
        EXPECT_EQ(row.before == "temp_ocm_uninstall.txt/keep", qdmtest::Exists(uninstall));
        EXPECT_EQ(row.before != "temp_ocm_install.txt", qdmtest::Exists(temp_ + "/tmp"));  // the unzip folder stays
    }
}

TEST_F(UtilityTest, VersionCacheIsReusedForLessThanAnHour) {
    const std::string old = "Command Line Interface Version: 9.1.2.3 (old)\n";
    // age -1: no file; tool: a body replacing the fake adapter tool, "" to remove it
    struct Row { long age; const char* tool; const char* expected; size_t runs; std::string debug; };
    const Row rows[] = {
        {3599, nullptr, "9.1.2.3", 0,
         "CEMULEX_OCM_Utility::GetOperatingVersion() Hba version file elapse time [3599] sec"},
        {3600, nullptr, "10.2.370.16", 1, "CEMULEX_OCM_Utility::GetOperatingVersion() ExecForeignModule cmd:[\"" +
                                           std::string(kHbacmd) + " version  > \"" + VersionFile() + "\"]"},
        // A stale file is still read when the tool is missing; a failing run gives nothing.
        {7200, "", "9.1.2.3", 0, "CEMULEX_OCM_Utility::GetOperatingVersion Fail OCMPath:"},
        {-1, "", "abnormal", 0, "CEMULEX_OCM_Utility::GetOperatingVersion() file open error:" + VersionFile()},
        {7200, "exit 3\n", "abnormal", 0, "CEMULEX_OCM_Utility::GetOperatingVersion() command error"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.age);
        if (row.tool) qdmtest::RemoveTree(kHbacmd);
        if (row.tool && *row.tool) qdmtest::WriteScript(kHbacmd, row.tool);
        Remove({state_ + "/calls", VersionFile()});
        if (row.age >= 0) qdmtest::WriteFile(VersionFile(), old);
        qdmtest::SetFileAge(VersionFile(), row.age);
        CTraceUtility::ClearCapture();
        EXPECT_EQ(row.expected, utility_.GetOperatingVersion());
        EXPECT_EQ(row.runs, Calls("version").size());
        EXPECT_TRUE(HasDebug(row.debug));
    }
}

TEST_F(UtilityTest, VersionLineRules) {
    const std::pair<const char*, const char*> rows[] = {
        {"\nOne Command Manager\nCLI: x\nCommand Line Interface: 11.0.1.2\n", "11.0.1.2"},  // after the first ":"
        {"Command Line Interface: 1.2.3.4\nCommand Line Interface: 5.6.7.8\n", "1.2.3.4"},  // the first such line
        {"Command Line Interface Version: 10.2.370.16b\n", "10.2.370.16"},  // dust after the last segment
        {"Command Line Interface Version 10.2.370.16\n", "abnormal"},  // no colon
        {"Command Line Interface Version: 10.2.370 (build)\n", "abnormal"},
    };
    for (const auto& row : rows) {
        qdmtest::WriteFile(VersionFile(), row.first);
        EXPECT_EQ(row.second, utility_.GetOperatingVersion()) << row.first;
    }
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() operating version abnormal. []"));
    EXPECT_TRUE(HasDebug("CEMULEX_OCM_Utility::GetOperatingVersion() operating version format error. [10.2.370]"));

    // Backup forgets the install output; restore also the version file.
    qdmtest::WriteFile(temp_ + "/temp_ocm_install.txt", "x");
    EXPECT_EQ(0, utility_.UpdateBackup("", false));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/temp_ocm_install.txt"));
    EXPECT_TRUE(qdmtest::Exists(VersionFile()));
    qdmtest::WriteFile(temp_ + "/temp_ocm_install.txt", "x");
    EXPECT_EQ(0, utility_.UpdateRestore(""));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/temp_ocm_install.txt"));
    EXPECT_FALSE(qdmtest::Exists(VersionFile()));
}

}  // namespace
