// The FC driver module: depmod overrides, the package update through rpm,
// the version rules and the host's steps around the update.
#include <gtest/gtest.h>

#include "CEMULEX_Driver.h"
#include "CFC_EMULEX_Driver.h"
#include "ModuleFakes.h"

namespace {

using moduletest::kWwpn;
using qdmtest::ArchiveEntry;
using qdmtest::ReadFile;

const char kLpfcLines[] = "\noverride lpfc * weak-updates/updates/elx-lpfc\noverride lpfc * weak-updates/elx-lpfc\n";
const char kBe2netLines[] = "\noverride be2net * weak-updates/updates/be2net\noverride be2net * weak-updates/be2net\n";
const char kBe2iscsiLines[] =
    "\noverride be2iscsi * weak-updates/updates/be2iscsi\noverride be2iscsi * weak-updates/be2iscsi\n";

class DriverTest : public moduletest::ModuleTest {
protected:
    CFC_EMULEX_Driver driver_{"dev", "driver", kWwpn};
};

TEST_F(DriverTest, DepmodOverridesAreAppendedOnceAndDepmodRuns) {
    // lpfcBefore: the lpfc file's text beforehand (null: missing, "/": a folder in its place)
    struct Row { bool net, lpfc, iscsi; const char* lpfcBefore; int depmodExit; bool ok; std::string lpfcAfter;
                 const char* debug; };
    const std::string options = "options lpfc lpfc_log_verbose=0";
    const Row rows[] = {
        {false, true, false, nullptr, 0, true, kLpfcLines, "Execute depmod command by _tsystem method [depmod -a]"},
        {false, true, false, options.c_str(), 0, true, options + kLpfcLines, "depmod -a ok."},
        // A line naming the marker anywhere counts as written, even a comment.
        {false, true, false, "# override lpfc handled elsewhere\n", 0, true, "# override lpfc handled elsewhere\n", ""},
        {false, true, false, "x\nkeep: override lpfc * extra/lpfc\n", 0, true, "x\nkeep: override lpfc * extra/lpfc\n", ""},
        {false, false, false, nullptr, 0, true, "", ""},  // nothing selected: nothing written or run
        {false, true, false, nullptr, 1, false, kLpfcLines, "depmod -a error.(256)"},
        // An unwritable file fails, but the others and depmod still run.
        {false, true, true, "/", 0, false, "", "Failed to open file(/etc/depmod.d/elxlpfc.conf)."},
        {true, true, true, nullptr, 0, true, kLpfcLines, "depmod -a ok."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.lpfcBefore ? row.lpfcBefore : "missing") + " " + row.debug);
        Remove({moduletest::kLpfcConf, moduletest::kBe2netConf, moduletest::kBe2iscsiConf, depmodLog_});
        const bool folder = row.lpfcBefore && *row.lpfcBefore == '/';
        if (folder) ::mkdir(moduletest::kLpfcConf, 0755);
        if (row.lpfcBefore && !folder) qdmtest::WriteFile(moduletest::kLpfcConf, row.lpfcBefore);
        FakeDepmod(row.depmodExit);
        Fresh();
        EXPECT_EQ(row.ok, driver_.DepmodExecute(row.net, row.lpfc, row.iscsi));
        EXPECT_EQ(row.lpfcAfter, ReadFile(moduletest::kLpfcConf));
        EXPECT_EQ(row.net ? kBe2netLines : "", ReadFile(moduletest::kBe2netConf));
        EXPECT_EQ(row.iscsi ? kBe2iscsiLines : "", ReadFile(moduletest::kBe2iscsiConf));
        EXPECT_EQ(row.net || row.lpfc || row.iscsi ? "-a\n" : "", ReadFile(depmodLog_));
        EXPECT_EQ(folder ? 17u : 0u, CEmulexCommon::GetLastError());
        EXPECT_TRUE(!*row.debug || HasDebug(row.debug));
    }
    EXPECT_TRUE(driver_.DepmodExecute(true, true, true));  // a second call adds nothing
    EXPECT_EQ(kLpfcLines, ReadFile(moduletest::kLpfcConf));
    EXPECT_EQ(kBe2netLines, ReadFile(moduletest::kBe2netConf));
    EXPECT_EQ(kBe2iscsiLines, ReadFile(moduletest::kBe2iscsiConf));
}

TEST_F(DriverTest, UpdateInstallsTheOnePackageOfTheMachine) {
    const std::string unzip = temp_ + "/tmp", result = temp_ + "/temp_driver_fc.txt";
    const std::string x64 = "-Uhv --oldpackage " + unzip + "/x64/FC/lpfc.rpm";
    const std::string x64run = "rpm " + x64 + " > " + result;
    const std::vector<ArchiveEntry> package = {{"x64/FC/lpfc.rpm", "p"}};
    const std::vector<ArchiveEntry> both = {{"x86/FC/lpfc32.rpm", "32"}, {"x64/FC/lpfc.rpm", "64"}};
    // entries: empty for a module that is no archive; marker: a file in the temp
    // folder beforehand; message: "" for none; rpmArgs: "" when rpm must not run
    struct Row { const char* machine; std::vector<ArchiveEntry> entries; const char* marker; int rpmExit, depmodExit;
                 int result; unsigned long error; const char* message; std::vector<std::string> debug;
                 std::string rpmArgs; };
    const Row rows[] = {
        // On a converged-adapter system that side owns the update; a result file tells it is done.
        {"x86_64", package, "SequentialUpdateFile_FCoE.txt", 0, 0, 0, 0, "",
         {"Driver update trun is CNA. Driver Update is skipped"}, ""},
        {"x86_64", package, "temp_driver_fc.txt", 0, 0, 0, 0, "",
         {"Driver update is previously-reported.Driver Update is skipped"}, ""},
        // Exactly one package in the FC folder.
        {"x86_64", {{"x64/FC/readme.txt", "r"}, {"x64/lpfc.rpm", "p"}}, "", 0, 0, 1, 29, "MSGID_EMULEX_FC_0005_F",
         {"Failed to find update module.There is not update file."}, ""},
        {"x86_64", {{"x64/FC/a.rpm", "p"}, {"x64/FC/b.rpm", "p"}}, "", 0, 0, 1, 29, "MSGID_EMULEX_FC_0005_F",
         {"Failed to find update module.There is some update file."}, ""},
        // A package that cannot be read (a folder) or named on a command line is 0004.
        {"x86_64", {{"x64/FC/lpfc.rpm/content", "p"}}, "", 0, 0, 1, 29, "MSGID_EMULEX_FC_0004_F",
         {"No " + unzip + "/x64/FC/lpfc.rpm"}, ""},
        {"x86_64", {{"x64/FC/a;touch x.rpm", "p"}}, "", 0, 0, 1, 29, "MSGID_EMULEX_FC_0004_F",
         {"No " + unzip + "/x64/FC/a;touch x.rpm"}, ""},
        {"", {}, "", 0, 0, 1, 26, "MSGID_EMULEX_FC_0004_F", {}, ""},
        // The machine picks the folder.
        {"i686", both, "", 0, 0, 0, 0, "", {"depmod -a ok."}, "-Uhv --oldpackage " + unzip + "/x86/FC/lpfc32.rpm"},
        {"i386", both, "", 0, 0, 0, 0, "", {}, "-Uhv --oldpackage " + unzip + "/x86/FC/lpfc32.rpm"},
        {"x86_64", both, "", 0, 0, 0, 0, "", {"Execute Update by _tsystem method [" + x64run + "]"}, x64},
        {"aarch64", both, "", 0, 0, 1, 32, "MSGID_EMULEX_FC_0004_F", {"Not supported OS arch aarch64"}, ""},
        // A failed rpm leaves package and output for inspection, without a message.
        {"x86_64", package, "", 1, 0, 1, 17, "",
         {"Execute Update by _tsystem method [" + x64run + "]", "Return=256", "Driver update error(" + x64run + ")."}, x64},
        // The package is installed whatever depmod says.
        {"x86_64", package, "", 0, 1, 0, 0, "", {"depmod -a error.(256)"}, x64},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.machine) + " " + row.marker + " " + (row.debug.empty() ? "" : row.debug[0]));
        Remove({unzip, result, temp_ + "/SequentialUpdateFile_FCoE.txt", rpmLog_, depmodLog_});
        if (*row.marker) qdmtest::WriteFile(temp_ + "/" + row.marker, "");
        CCommon_Information::SetArchitectureOverride(row.machine);
        FakeRpm(row.rpmExit);
        FakeDepmod(row.depmodExit);
        Fresh();
        EXPECT_EQ(row.result, driver_.Update("dev", MakeModule("d.zip", row.entries), &files_, false));
        EXPECT_EQ(row.error, CEmulexCommon::GetLastError());
        EXPECT_TRUE(HasDebugRun(row.debug));
        ASSERT_EQ(*row.message ? 1u : 0u, Messages().size());
        for (const auto& message : Messages()) {
            EXPECT_EQ(row.message, message.id);
            EXPECT_EQ((std::vector<std::string>{"driv", Hex(row.error)}), message.inserts);
        }
        EXPECT_EQ(row.rpmArgs.empty() ? "" : row.rpmArgs + "\n", ReadFile(rpmLog_));
        EXPECT_EQ(row.rpmArgs.empty() ? "" : "rpm " + row.rpmArgs + "\n", ReadFile(result));  // rpm's output
        EXPECT_EQ(row.result == 0 && !row.rpmArgs.empty() ? "-a\n" : "", ReadFile(depmodLog_));
        EXPECT_EQ(row.result != 0, qdmtest::Exists(unzip));  // kept for inspection on failure
    }
}

TEST_F(DriverTest, ResultFileMarksTheUpdateDoneUntilTheNextBackup) {
    const std::string module = MakeModule("d.zip", {{"x64/FC/lpfc.rpm", "p"}});
    EXPECT_EQ(0, driver_.Update("dev", module, &files_, false));
    EXPECT_EQ(0, driver_.Update("dev", module, &files_, false));  // a second adapter in the same cycle
    const std::string once = ReadFile(rpmLog_);
    EXPECT_EQ(1, std::count(once.begin(), once.end(), '\n'));
    EXPECT_EQ(0, driver_.UpdateBackup("", false));  // the next cycle installs again
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/temp_driver_fc.txt"));
    EXPECT_EQ(0, driver_.Update("dev", module, &files_, false));
    EXPECT_EQ(once + once, ReadFile(rpmLog_));
    EXPECT_NE(std::string::npos, ReadFile(moduletest::kLpfcConf).find("override lpfc * weak-updates/elx-lpfc"));

    qdmtest::WriteFile(AttribCache(kWwpn), "Driver Version : 11.2.156.27\n");
    EXPECT_EQ(0, driver_.UpdateRestore(""));
    EXPECT_FALSE(qdmtest::Exists(AttribCache(kWwpn)));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/temp_driver_fc.txt"));
}

TEST_F(DriverTest, VersionRules) {
    struct Row { bool fc; const char* raw; const char* expected; };
    const Row rows[] = {
        {true, "11.2.156.27; HBAAPI(I) v2.3.d, 07-12-10", "11.2.156.27"},  // the tool appends the HBA API details
        {true, "  11.2.156.27  ;x", "11.2.156.27"},
        {true, "11.2.156.27a", "11.2.156.27"},  // trailing letters of the last segment are dust
        {true, "", "abnormal"},
        {true, "11.2.156", "abnormal"},
        {true, "; HBAAPI", "abnormal"},
        {true, "11.2.156.27.1", "abnormal"},
        {true, "11.x.156.27", "abnormal"},
        {false, " 11.2.156.27 ", "11.2.156.27"},
        {false, "11.2.156.27; HBAAPI(I) v2.3.d", "abnormal"},  // only the FC rule cuts at ";"
    };
    CEMULEX_Driver base("dev", "driver", kWwpn);
    for (const Row& row : rows)
        EXPECT_EQ(row.expected, row.fc ? driver_.FormatVersionString(row.raw) : base.FormatVersionString(row.raw)) << row.raw;
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version empty []"));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version format error. [11.2.156]"));

    CFC_EMULEX_Driver anonymous("dev", "driver", "");
    EXPECT_EQ("abnormal", anonymous.GetOperatingVersion());
    EXPECT_FALSE(HasDebugContaining("GetHbaAttribData"));
}

TEST_F(DriverTest, OperatingVersionAndApplyCheck) {
    // cache: the attribute cache's text beforehand (null: none, the tool is asked)
    struct Row { int progress; const char* update; const char* cache; const char* expected; size_t runs; bool kept; };
    const Row rows[] = {
        {0, "", "Driver Version : 11.4.142.21; HBAAPI(I) v2.3.d\n", "11.4.142.21", 0, true},
        {0, "", "FW Version : 2.02a4\n", "abnormal", 0, false},  // a failed read drops the cache
        {24, "12.0.0.5", nullptr, "11.2.156.27", 1, true},      // before the window: the adapter
        {25, "12.0.0.5", nullptr, "12.0.0.5", 0, false},
        {84, "12.0.0.5", nullptr, "12.0.0.5", 0, false},
        {84, "", nullptr, "10.0.0.1", 0, false},  // no update version: the previous one
        {85, "12.0.0.5", nullptr, "11.2.156.27", 1, true},
    };
    driver_.SetPrevVendorVersion("10.0.0.1");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.progress);
        qdmtest::RemoveTree(AttribCache(kWwpn));
        if (row.cache) qdmtest::WriteFile(AttribCache(kWwpn), row.cache);
        const size_t before = Calls("HbaAttributes").size();
        driver_.SetUpdateProgress(row.progress);
        driver_.SetUpdateVersion(row.update);
        EXPECT_EQ(row.expected, driver_.GetOperatingVersion());
        EXPECT_EQ(row.runs, Calls("HbaAttributes").size() - before);
        EXPECT_EQ(row.kept, qdmtest::Exists(AttribCache(kWwpn)));
    }
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() GetHbaAttribData return:-1"));
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() Update processing [" + std::string(kWwpn) +
                         "] 12.0.0.5 or 10.0.0.1"));
    EXPECT_EQ("[HbaAttributes][" + std::string(kWwpn) + "]", Calls("").front());

    // An unreadable version is a mismatch too: both are 0009.
    driver_.SetUpdateProgress(0);
    struct Check { const char* cache; const char* update; bool failed; };
    const Check checks[] = {{"Driver Version : 11.2.156.27; HBAAPI\n", "11.2.156.27", false},
                            {"Driver Version : 11.2.156.27; HBAAPI\n", "12.0.193.13", true},
                            {"Driver Version : broken\n", "12.0.193.13", true}};
    for (const Check& row : checks) {
        CTraceUtility::ClearCapture();
        qdmtest::WriteFile(AttribCache(kWwpn), row.cache);
        Register(driver_, "", row.update);
        EXPECT_EQ(row.failed, driver_.UpdateApplyCheck(""));
        EXPECT_EQ(row.failed ? 1u : 0u, MessageCount("MSGID_EMULEX_FC_0009_F"));
    }
    EXPECT_TRUE(HasDebug("Operating Version(abnormal) and Update Version(12.0.193.13) are mismatched"));
    EXPECT_EQ((std::vector<std::string>{"driv", "abnormal", "12.0.193.13"}), Messages().back().inserts);
}

}  // namespace
