// Running an update tool, judging its result, and the version texts that
// decide whether an update is due.

#include "CommonFixture.h"
#include "HostSys.h"

namespace {

using namespace commontest;

const char kDefinitions[] = "# update messages\nSuccessMessage=Update completed successfully\r\n"
                            "SuccessMessage=  Nothing to update  \nEndMessage=Update finished\n";
const char kFinishedOk[] = "Flashing...\nUpdate completed successfully\nUpdate finished\n";

TEST_F(CommonTest, EmulexUpdateJudgesEachResultMode) {
    const std::string defs = temp_ + "/update.def", out = temp_ + "/result.log", reports = temp_ + "/reports";
    const std::string report = "printf 'Update completed successfully\\nUpdate finished\\n' > " + reports + "/r1.txt";
    qdmtest::WriteFile(defs, kDefinitions);
    struct Row { std::string command; int mode; std::string output, definitions, outcome, trace; } rows[] = {
        {"exit 0", 1, "", defs, "1 e0", "ExecForeignModule cmd:[exit 0]"},
        {"exit 3", 1, "", defs, "0 e33", "Failed to update(exit 3)(ReturnCode=0x3)."},
        // The tool cannot start.
        {"exit 0", 1, root_ + "/no/such/folder/out.txt", defs, "0 e17",
         "Failed to update execute(exit 0)(11)(Windows Error code:17)."},
        {"printf '0\\n'", 2, out, defs, "1 e0", ""},
        {"printf '0 \\n'", 2, out, defs, "0 e33", "Failed to update(printf '0 \\n')."},  // compared exactly
        {"true", 2, "", defs, "0 e17", "Failed to open file()."},
        {"printf 'Update finished\\nNothing to update\\n'", 3, out, defs, "1 e0", ""},
        {"printf 'Update finished\\nUpdate failed\\n'", 3, out, defs, "0 e33", ""},
        {"true", 3, out, "", "0 e17", ""},
        {report, 4, "", defs, "1 e0", "After to find reports file.There is one update file."},
        // Two reports are deleted before their check, so the check must fail.
        {report + "; cp " + reports + "/r1.txt " + reports + "/r2.txt", 4, "", defs, "0 e33",
         "After to find reports file.There is some update file."},
        {"true", 4, "", defs, "0 e33", "After to find reports file.There is not APInstall update file."},
        {report, 4, "", "", "0 e17", ""},
        {"exit 0", 5, "", defs, "0 e0", "CEmulexCommon::EmulexUpdate() Resultmode = 5 [START]"},  // unknown mode
    };
    for (const Row& row : rows) {
        NextRow();
        qdmtest::RemoveTree(out);
        qdmtest::WriteFile(reports + "/stale.txt", "Update completed successfully\nUpdate finished\n");
        unsigned long returnCode = 12345;  // filled by the host
        EXPECT_EQ(row.outcome, Outcome(CEmulexCommon::EmulexUpdate(row.command, row.output, "", &returnCode, reports,
                                                                   row.definitions, row.mode))) << row.command;
        EXPECT_TRUE(row.trace.empty() || HasDebug(row.trace)) << row.trace;
        // Old reports go before every run, and two reports both go.
        EXPECT_FALSE(qdmtest::Exists(reports + "/stale.txt") || qdmtest::Exists(reports + "/r2.txt"));
    }
}

TEST_F(CommonTest, CheckUpdateResultWaitsForTheEndThenLooksForSuccess) {
    const std::string defs = temp_ + "/update.def", result = temp_ + "/result.log";
    std::string six;
    for (int i = 1; i <= 6; ++i) six += "SuccessMessage=ok" + std::to_string(i) + "\n";
    // The result file at the call (null: none), what the tool writes at poll `at`, and "RESULT eERROR POLLS".
    struct Row { std::string definitions; const char *before, *after; int at; std::string outcome, trace; } rows[] = {
        {kDefinitions, "Flashing...\n", kFinishedOk, 3, "1 e0 3", "Update Result Check OK"},
        {kDefinitions, "Flashing...\nUpdate completed successfully\n", nullptr, 0, "0 e36 5", "No such end message."},
        {kDefinitions, "Update failed\nUpdate finished\n", nullptr, 0, "0 e37 1", "No such success message."},
        {kDefinitions, nullptr, nullptr, 0, "0 e17 1", "File Open Error"},  // looked once, after the first pause
        {"", kFinishedOk, nullptr, 0, "0 e17 0", "File open error " + defs},
        {"SuccessMessage=Update completed successfully\n", kFinishedOk, nullptr, 0, "1 e0 0", "no endMessage"},
        {"EndMessage=Update finished\nSuccessMessage=\n", kFinishedOk, nullptr, 0, "0 e0 0", "no successMessage"},
        {six, "ok6\n", nullptr, 0, "0 e37 0", "successMessage[4]=[ok5]"},  // only the first five count
        {six, "ok5\n", nullptr, 0, "1 e0 0", "Find SuccessMsg[ok5] in [ok5]"},
        // The text is cut at the prefix's length wherever the prefix stands.
        {"xxSuccessMessage=ok\n", "e=ok\n", nullptr, 0, "1 e0 0", "Find SuccessMsg[e=ok] in [e=ok]"},
        // Blanks only make an empty message, which any line holds.
        {"SuccessMessage=   \nEndMessage=Update finished\n", "Update finished\n", nullptr, 0, "1 e0 1",
         "Find SuccessMsg[] in [Update finished]"},
    };
    int polls = 0;
    for (const Row& row : rows) {
        NextRow();
        qdmtest::RemoveTree(defs);
        qdmtest::RemoveTree(result);
        if (!row.definitions.empty()) qdmtest::WriteFile(defs, row.definitions);
        if (row.before) qdmtest::WriteFile(result, row.before);
        polls = 0;
        qdmhost::SetSleepHook([&](unsigned long ms) {
            EXPECT_EQ(30000u, ms);
            if (++polls == row.at) qdmtest::WriteFile(result, row.after);
        });
        const std::string outcome = Outcome(CEmulexCommon::CheckUpdateResult_(result, defs));
        EXPECT_EQ(row.outcome, outcome + " " + std::to_string(polls)) << row.definitions;
        EXPECT_TRUE(HasDebug(row.trace)) << row.trace;
    }
}

// Both comparisons: -1 when the first is newer, 1 when older; a malformed
// side gives 0, error 30 and one 0019 message carrying "1e".
TEST_F(CommonTest, VersionComparisons) {
    const std::string bad = "0 e30 MSGID_EMULEX_FC_0019_F 1e";
    struct Row { bool firmware; const char *version1, *version2; std::string outcome; } rows[] = {
        {false, "1.2.3.4", "1.2.3.5", "1 e0"}, {false, "1.2.3.4", "1.2.3.4", "0 e0"},
        {false, "1.0.10.0", "1.0.9.0", "-1 e0"},  // numeric, not text order
        {false, "2.0.0.0", "1.9.9.9", "-1 e0"},   // the first differing segment decides
        {false, "1.2.3", "1.2.3.4", bad}, {false, "1.2.3.4", "1.2.3.4a", bad}, {false, "1.2.3.4", "1..3.4", bad},
        {true, "2.02a4", "2.02a5", "1 e0"}, {true, "2.02a4", "2.2a4", "0 e0"},  // numbers, not texts
        {true, "2.10a1", "2.02a9", "-1 e0"},  // minor before letters and build
        {true, "3.00a1", "2.99z9", "-1 e0"},  // major first
        {true, "3.00abc07", "3.0abc8", "1 e0"}, {true, "2.10A12", "2.10A9", "-1 e0"},
        // Letters: the raw difference of the first differing bytes, the end counting as 0; upper case first.
        {true, "2.02a9", "2.02c1", "2 e0"}, {true, "2.02A9", "2.02a1", "32 e0"},
        {true, "2.02a9", "2.02ab1", "98 e0"}, {true, "2.02ab9", "2.02a1", "-98 e0"},
        // Malformed: no letter group, then neither digit nor letter, tail not all digits, three parts, no
        // build, no major digits, no minor digits, a dash behind the letters, empty parts, a high byte.
        {true, "2.02", "2.02a4", bad}, {true, "2.02a4", "2.02-4", bad}, {true, "2.02a4", "2.02a4b", bad},
        {true, "2.02a4", "2.0.2a4", bad}, {true, "2.02a4", "2.02a", bad}, {true, "2.02a4", "x.02a4", bad},
        {true, "2.02a4", "2.a4", bad}, {true, "2.02a4", "2.02a-4", bad}, {true, "2.02a4", ".", bad},
        {true, "2.02a4", "2.02\3514", bad},
    };
    for (const Row& row : rows) {
        NextRow();
        const int result = row.firmware ? CEmulexCommon::CheckVendorVersionFCFirmware(row.version1, row.version2)
                                        : CEmulexCommon::CheckVendorVersion4SegNormal(row.version1, row.version2);
        EXPECT_EQ(row.outcome, Outcome(result) + MessagesText()) << row.version1 << " vs " << row.version2;
        const std::string function = row.firmware ? "CheckVendorVersionFCFirmware" : "CheckVendorVersion4SegNormal";
        EXPECT_TRUE(HasDebug("CEmulexCommon::" + function + "() [END] Return=[" + std::to_string(result) + "]"));
    }
    EXPECT_TRUE(HasDebug("CEmulexCommon::CheckVersionFCFirmwareFormat() [2][02][a][4]"));
    // The format check alone reports nothing and leaves the parts untouched when the text is malformed.
    NextRow();
    long major = -7, minor = -7, build = -7;
    std::string letters = "untouched";
    EXPECT_FALSE(CEmulexCommon::CheckVersionFCFirmwareFormat("2.02a", major, minor, letters, build));
    EXPECT_EQ("-7 -7 untouched -7", std::to_string(major) + " " + std::to_string(minor) + " " + letters + " " +
                                        std::to_string(build));
    EXPECT_TRUE(CEmulexCommon::CheckVersionFCFirmwareFormat("2.10A12"));
    EXPECT_FALSE(CEmulexCommon::CheckVersionFCFirmwareFormat("2.02"));
    EXPECT_EQ("0 e0", Outcome(0) + MessagesText());

    // Dust cut from the fourth segment only; other forms are returned unchanged, not even trimmed.
    const std::pair<const char*, const char*> cleaned[] = {
        {" 4.1.334.0a ", "4.1.334.0"}, {"1.2.3.x9", "1.2.3."}, {"1.2a.3.4", "1.2a.3.4"}, {" 1.2.3 ", " 1.2.3 "},
        {"", ""},
    };
    for (const auto& row : cleaned) EXPECT_EQ(row.second, CEmulexCommon::FormatVersion4SegCleanDust(row.first));
}

}  // namespace
