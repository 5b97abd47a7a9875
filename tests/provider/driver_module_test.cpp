// The FC driver module: depmod overrides, the package update through rpm,
// the version rules and the host's steps around the update; and the apply
// check of all three update modules.

#include "CEMULEX_Driver.h"
#include "CEMULEX_OCM_Utility.h"
#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_Driver.h"
#include "ModuleFakes.h"

namespace {

using namespace moduletest;
using qdmtest::ArchiveEntry;
using qdmtest::ReadFile;

const char kLpfcLines[] = "\noverride lpfc * weak-updates/updates/elx-lpfc\noverride lpfc * weak-updates/elx-lpfc\n";
const char kBe2netLines[] = "\noverride be2net * weak-updates/updates/be2net\noverride be2net * weak-updates/be2net\n";
const char kBe2iscsiLines[] =
    "\noverride be2iscsi * weak-updates/updates/be2iscsi\noverride be2iscsi * weak-updates/be2iscsi\n";

class DriverTest : public ModuleTest {
protected:
    CFC_EMULEX_Driver driver_{"dev", "driver", kWwpn};
};

TEST_F(DriverTest, DepmodOverridesAreAppendedOnceAndDepmodRuns) {
    // lpfcBefore: the lpfc file's text beforehand (null: missing, "/": a folder in its place)
    struct Row { bool net, lpfc, iscsi; const char* lpfcBefore; int depmodExit; const char* outcome;
                 std::string lpfcAfter; const char* debug; };
    const std::string options = "options lpfc lpfc_log_verbose=0";
    const Row rows[] = {
        {false, true, false, options.c_str(), 0, "1 0", options + kLpfcLines, "depmod -a ok."},
        // A line naming the marker anywhere counts as written, even a comment.
        {false, true, false, "x\n# no override lpfc\n", 0, "1 0", "x\n# no override lpfc\n", ""},
        {false, false, false, nullptr, 0, "1 0", "", ""},  // nothing selected: nothing written or run
        {false, true, false, nullptr, 1, "0 0", kLpfcLines, "depmod -a error.(256)"},
        // An unwritable file fails, but the others and depmod still run.
        {false, true, true, "/", 0, "0 17", "", "Failed to open file(/etc/depmod.d/elxlpfc.conf)."},
        {true, true, true, nullptr, 0, "1 0", kLpfcLines, "Execute depmod command by _tsystem method [depmod -a]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.lpfcBefore ? row.lpfcBefore : "missing") + " " + row.debug);
        Remove({kLpfcConf, kBe2netConf, kBe2iscsiConf, depmodLog_});
        if (row.lpfcBefore)
            qdmtest::WriteFile(kLpfcConf + std::string(*row.lpfcBefore == '/' ? "/x" : ""), row.lpfcBefore);
        FakeDepmod(row.depmodExit);
        NextRow();
        EXPECT_EQ(row.outcome, StepOutcome(driver_.DepmodExecute(row.net, row.lpfc, row.iscsi)));
        EXPECT_EQ(row.lpfcAfter, ReadFile(kLpfcConf));
        EXPECT_EQ(row.net ? kBe2netLines : "", ReadFile(kBe2netConf));
        EXPECT_EQ(row.iscsi ? kBe2iscsiLines : "", ReadFile(kBe2iscsiConf));
        EXPECT_EQ(row.net || row.lpfc || row.iscsi ? "-a\n" : "", ReadFile(depmodLog_));
        EXPECT_TRUE(!*row.debug || HasDebug(row.debug));
    }
    EXPECT_TRUE(driver_.DepmodExecute(true, true, true));  // a second call adds nothing
    EXPECT_EQ(kLpfcLines + std::string(kBe2netLines) + kBe2iscsiLines,
              ReadFile(kLpfcConf) + ReadFile(kBe2netConf) + ReadFile(kBe2iscsiConf));
}

TEST_F(DriverTest, UpdateInstallsTheOnePackageOfTheMachine) {
    const std::string unzip = temp_ + "/tmp", result = temp_ + "/temp_driver_fc.txt";
    const std::string x64 = "-Uhv --oldpackage " + unzip + "/x64/FC/lpfc.rpm", x64run = "rpm " + x64 + " > " + result;
    const std::vector<ArchiveEntry> package = {{"x64/FC/lpfc.rpm", "p"}};
    const std::vector<ArchiveEntry> both = {{"x86/FC/lpfc32.rpm", "32"}, {"x64/FC/lpfc.rpm", "64"}};
    const std::string noPackage = "1 29 MSGID_EMULEX_FC_0005_F driv 1d";
    const std::string unusable = "1 29 MSGID_EMULEX_FC_0004_F driv 1d";
    // entries: empty for a module that is no archive; marker: a file in the temp
    // folder beforehand; rpmArgs: "" when rpm must not run
    struct Row { const char* machine; std::vector<ArchiveEntry> entries; const char* marker; int rpmExit, depmodExit;
                 std::string outcome; std::vector<std::string> debug; std::string rpmArgs; };
    const Row rows[] = {
        // On a converged-adapter system that side owns the update; a result file tells it is done.
        {"x86_64", package, "SequentialUpdateFile_FCoE.txt", 0, 0, "0 0",
         {"Driver update trun is CNA. Driver Update is skipped"}, ""},
        {"x86_64", package, "temp_driver_fc.txt", 0, 0, "0 0",
         {"Driver update is previously-reported.Driver Update is skipped"}, ""},
        // Exactly one package in the FC folder.
        {"x86_64", {{"x64/FC/readme.txt", "r"}, {"x64/lpfc.rpm", "p"}}, "", 0, 0, noPackage,
         {"Failed to find update module.There is not update file."}, ""},
        {"x86_64", {{"x64/FC/a.rpm", "p"}, {"x64/FC/b.rpm", "p"}}, "", 0, 0, noPackage,
         {"Failed to find update module.There is some update file."}, ""},
        // A package that cannot be read (a folder) or named on a command line is 0004.
        {"x86_64", {{"x64/FC/lpfc.rpm/content", "p"}}, "", 0, 0, unusable, {"No " + unzip + "/x64/FC/lpfc.rpm"}, ""},
        {"x86_64", {{"x64/FC/a;touch x.rpm", "p"}}, "", 0, 0, unusable, {"No " + unzip + "/x64/FC/a;touch x.rpm"}, ""},
        {"", {}, "", 0, 0, "1 26 MSGID_EMULEX_FC_0004_F driv 1a", {}, ""},
        // The machine picks the folder.
        {"i686", both, "", 0, 0, "0 0", {"depmod -a ok."}, "-Uhv --oldpackage " + unzip + "/x86/FC/lpfc32.rpm"},
        {"i386", both, "", 0, 0, "0 0", {}, "-Uhv --oldpackage " + unzip + "/x86/FC/lpfc32.rpm"},
        {"x86_64", both, "", 0, 0, "0 0", {"Execute Update by _tsystem method [" + x64run + "]"}, x64},
        {"aarch64", both, "", 0, 0, "1 32 MSGID_EMULEX_FC_0004_F driv 20", {"Not supported OS arch aarch64"}, ""},
        // A failed rpm leaves package and output for inspection, without a message.
        {"x86_64", package, "", 1, 0, "1 17",
         {"Execute Update by _tsystem method [" + x64run + "]", "Return=256", "Driver update error(" + x64run + ")."},
         x64},
        // The package is installed whatever depmod says.
        {"x86_64", package, "", 0, 1, "0 0", {"depmod -a error.(256)"}, x64},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.machine) + " " + row.marker + " " + (row.debug.empty() ? "" : row.debug[0]));
        Remove({unzip, result, temp_ + "/SequentialUpdateFile_FCoE.txt", rpmLog_, depmodLog_});
        if (*row.marker) qdmtest::WriteFile(temp_ + "/" + row.marker, "");
        CCommon_Information::SetArchitectureOverride(row.machine);
        FakeRpm(row.rpmExit);
        FakeDepmod(row.depmodExit);
        NextRow();
        EXPECT_EQ(row.outcome, StepOutcome(driver_.Update("dev", MakeModule("d.zip", row.entries), &files_, false)));
        EXPECT_TRUE(HasDebugRun(row.debug));
        // rpm's arguments as logged, then its output in the result file
        EXPECT_EQ(row.rpmArgs.empty() ? "" : row.rpmArgs + "\nrpm " + row.rpmArgs + "\n",
                  ReadFile(rpmLog_) + ReadFile(result));
        EXPECT_EQ(row.outcome == "0 0" && !row.rpmArgs.empty() ? "-a\n" : "", ReadFile(depmodLog_));
        EXPECT_EQ(row.outcome[0] == '1', qdmtest::Exists(unzip));  // kept for inspection on failure
    }
}

TEST_F(DriverTest, ResultFileMarksTheUpdateDoneUntilTheNextBackup) {
    const std::string module = MakeModule("d.zip", {{"x64/FC/lpfc.rpm", "p"}});
    const std::string rpmRun = "-Uhv --oldpackage " + temp_ + "/tmp/x64/FC/lpfc.rpm\n";
    // A second adapter in the same cycle installs nothing; the next cycle (after a backup) installs again.
    EXPECT_EQ(Joined({driver_.Update("dev", module, &files_, false), driver_.Update("dev", module, &files_, false),
                      ReadFile(rpmLog_), driver_.UpdateBackup("", false), qdmtest::Exists(temp_ + "/temp_driver_fc.txt"),
                      driver_.Update("dev", module, &files_, false), ReadFile(rpmLog_)}),
              Joined({0, 0, rpmRun, 0, 0, 0, rpmRun + rpmRun}));
    qdmtest::WriteFile(AttribCache(), "Driver Version : 11.2.156.27\n");
    EXPECT_EQ(Joined({driver_.UpdateRestore(""), qdmtest::Exists(AttribCache()),
                      qdmtest::Exists(temp_ + "/temp_driver_fc.txt")}),
              "0 0 0");
}

TEST_F(DriverTest, VersionRules) {
    struct Row { bool fc; const char* raw; const char* expected; };
    const Row rows[] = {
        {true, "  11.2.156.27  ;x", "11.2.156.27"},  // cut at the ";" before the HBA API details, then trimmed
        {true, "11.2.156.27a", "11.2.156.27"},       // trailing letters of the last segment are dust
        {true, "", "abnormal"},
        {true, "11.2.156", "abnormal"},
        {false, " 11.2.156.27 ", "11.2.156.27"},
        {false, "11.2.156.27; HBAAPI(I) v2.3.d", "abnormal"},  // only the FC rule cuts at ";"
    };
    CEMULEX_Driver base("dev", "driver", kWwpn);
    for (const Row& row : rows)
        EXPECT_EQ(row.expected, (row.fc ? driver_ : base).FormatVersionString(row.raw)) << row.raw;
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version empty []"));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version format error. [11.2.156]"));

    CFC_EMULEX_Driver anonymous("dev", "driver", "");
    EXPECT_EQ("abnormal", anonymous.GetOperatingVersion());
    EXPECT_FALSE(HasDebugContaining("GetHbaAttribData"));
}

TEST_F(DriverTest, OperatingVersionIsReadThroughTheAttributeCache) {
    // cache: the attribute cache's text beforehand (null: none, the tool is asked)
    struct Row { int progress; const char* cache; const char* expected; size_t runs; bool kept; };
    const Row rows[] = {
        {0, "Driver Version : 11.4.142.21; HBAAPI(I) v2.3.d\n", "11.4.142.21", 0, true},
        {0, "FW Version : 2.02a4\n", "abnormal", 0, false},  // a failed read drops the cache
        {0, nullptr, "11.2.156.27", 1, true},
        {50, nullptr, "12.0.0.5", 0, false},  // while updating: the update version
    };
    driver_.SetUpdateVersion("12.0.0.5");
    driver_.SetPrevVendorVersion("10.0.0.1");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.progress);
        qdmtest::RemoveTree(AttribCache());
        if (row.cache) qdmtest::WriteFile(AttribCache(), row.cache);
        const size_t before = Calls("HbaAttributes").size();
        driver_.SetUpdateProgress(row.progress);
        EXPECT_EQ(row.expected, driver_.GetOperatingVersion());
        EXPECT_EQ(row.runs, Calls("HbaAttributes").size() - before);
        EXPECT_EQ(row.kept, qdmtest::Exists(AttribCache()));
    }
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() GetHbaAttribData return:-1"));
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() Update processing [" + std::string(kWwpn) +
                         "] 12.0.0.5 or 10.0.0.1"));
    EXPECT_EQ("[HbaAttributes][" + std::string(kWwpn) + "]", Calls("").front());
}

// Each module compares the version it reads with the registered update. An
// unreadable version is 0008 for firmware and utility, a mismatch (0009) for
// the driver.
TEST_F(DriverTest, ApplyCheckComparesTheReadVersionWithTheUpdate) {
    CFC_EMULEX_16G_Firmware firmware("dev", kWwpn);
    CEMULEX_OCM_Utility utility("dev");
    // text: what the module reads, from the attribute cache or (utility) its version file
    struct Row { CModuleManager* module; const char* text; const char* update; const char* outcome; };
    const Row rows[] = {
        {&firmware, "FW Version : 11.4.1.1", "11.4.1.1", "0 0"},
        {&firmware, "FW Version : 11.2.156.27", "11.4.1.1", "1 0 MSGID_EMULEX_FC_0009_F firm 11.2.156.27 11.4.1.1"},
        {&firmware, "FW Version : garbage", "11.4.1.1", "1 0 MSGID_EMULEX_FC_0008_F firm abnormal 11.4.1.1"},
        {&driver_, "Driver Version : 11.2.156.27; HBAAPI", "11.2.156.27", "0 0"},
        {&driver_, "Driver Version : 11.2.156.27", "12.0.1.1", "1 0 MSGID_EMULEX_FC_0009_F driv 11.2.156.27 12.0.1.1"},
        {&driver_, "Driver Version : broken", "12.0.1.1", "1 0 MSGID_EMULEX_FC_0009_F driv abnormal 12.0.1.1"},
        {&utility, kToolVersionLine, "10.2.370.16", "0 0"},
        {&utility, kToolVersionLine, "11.0.0.1", "1 0 MSGID_EMULEX_FC_0009_F ocm 10.2.370.16 11.0.0.1"},
        {&utility, "garbage", "11.0.0.1", "1 0 MSGID_EMULEX_FC_0008_F ocm abnormal 11.0.0.1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.outcome);
        qdmtest::WriteFile(row.module == &utility ? VersionFile() : AttribCache(), row.text + std::string("\n"));
        NextRow();
        Register(*row.module, "", row.update);
        EXPECT_EQ(row.outcome, StepOutcome(row.module->ExecuteUpdateApplyCheck()));
        for (const auto& message : Messages())
            EXPECT_TRUE(HasDebug("Operating Version(" + message.inserts.at(1) + ") and Update Version(" + row.update +
                                 ") are mismatched"));
    }
}

}  // namespace
