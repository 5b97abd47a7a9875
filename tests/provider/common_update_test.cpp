// Update tool execution and the four ways of judging its result.
#include <gtest/gtest.h>

#include "CEmulexCommon.h"
#include "HostSys.h"
#include "TestEnv.h"

namespace {

const char kDefinitions[] =
    "# update messages\n"
    "SuccessMessage=Update completed successfully\r\n"
    "SuccessMessage=  Nothing to update  \n"
    "EndMessage=Update finished\n";

const char kFinishedOk[] = "Flashing...\nUpdate completed successfully\nUpdate finished\n";

class UpdateTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        qdmtest::HostTest::SetUp();
        definitions_ = temp_ + "/update.def";
        result_ = temp_ + "/result.log";
        reports_ = temp_ + "/reports";
        qdmtest::WriteFile(definitions_, kDefinitions);
        qdmtest::WriteFile(reports_ + "/stale.txt", "Update completed successfully\nUpdate finished\n");
        CEmulexCommon::SetLastError(0);
    }

    int Run(const std::string& command, int mode, const std::string& output = "") {
        returnCode_ = 12345;
        return CEmulexCommon::EmulexUpdate(command, output, "", &returnCode_, reports_, definitions_, mode);
    }

    std::string definitions_, result_, reports_;
    unsigned long returnCode_ = 0;
};

TEST_F(UpdateTest, ReturnCodeMode) {
    EXPECT_EQ(1, Run("exit 0", 1));
    EXPECT_EQ(0u, returnCode_);
    EXPECT_EQ(0, Run("exit 3", 1));
    EXPECT_EQ(3u, returnCode_);
    EXPECT_EQ(33u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to update(exit 3)(ReturnCode=0x3)."));
    // The reports folder is emptied of "txt" files before every run.
    EXPECT_FALSE(qdmtest::Exists(reports_ + "/stale.txt"));
}

TEST_F(UpdateTest, ToolThatCannotStartFailsWith17) {
    EXPECT_EQ(0, Run("exit 0", 1, root_ + "/no/such/folder/out.txt"));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebugContaining("Failed to update execute(exit 0)(11)(Windows Error code:17)."));
}

TEST_F(UpdateTest, OutputZeroModeComparesTheFirstLineExactly) {
    struct Row {
        const char* command;
        int result;
    } rows[] = {
        {"printf '0\\n'", 1},
        {"printf '0'", 1},            // no line end at all
        {"printf '0 \\n'", 0},        // trailing blank
        {"printf '00\\n'", 0},
        {"printf 'done\\n0\\n'", 0},  // only the first line counts
        {"true", 0},                  // empty output
    };
    for (const Row& row : rows) {
        CEmulexCommon::SetLastError(0);
        EXPECT_EQ(row.result, Run(row.command, 2, result_)) << row.command;
        EXPECT_EQ(row.result ? 0u : 33u, CEmulexCommon::GetLastError()) << row.command;
    }
    EXPECT_EQ(0, Run("printf '0\\n' >/dev/null", 2));  // no output file to read
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
}

TEST_F(UpdateTest, ResultFileMode) {
    EXPECT_EQ(1, Run(std::string("printf '") + "Update finished\\nNothing to update\\n'", 3, result_));
    EXPECT_EQ(0, Run("printf 'Update finished\\nUpdate failed\\n'", 3, result_));
    EXPECT_EQ(33u, CEmulexCommon::GetLastError());

    definitions_.clear();
    EXPECT_EQ(0, Run("true", 3, result_));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
}

TEST_F(UpdateTest, ReportFileModeNeedsExactlyOnePassingReport) {
    const std::string report = "printf 'Update completed successfully\\nUpdate finished\\n' > " + reports_;
    EXPECT_EQ(1, Run(report + "/r1.txt", 4));

    // Two reports: deleted before their check, so the check must fail.
    EXPECT_EQ(0, Run(report + "/r1.txt; cp " + reports_ + "/r1.txt " + reports_ + "/r2.txt", 4));
    EXPECT_EQ(33u, CEmulexCommon::GetLastError());
    EXPECT_FALSE(qdmtest::Exists(reports_ + "/r1.txt"));
    EXPECT_FALSE(qdmtest::Exists(reports_ + "/r2.txt"));
    EXPECT_TRUE(HasDebug("After to find reports file.There is some update file."));

    EXPECT_EQ(0, Run("true", 4));  // no report at all (the stale one was removed)
    EXPECT_EQ(33u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("After to find reports file.There is not APInstall update file."));

    definitions_.clear();
    EXPECT_EQ(0, Run(report + "/r1.txt", 4));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
}

TEST_F(UpdateTest, UnknownModeFails) { EXPECT_EQ(0, Run("exit 0", 5)); }

TEST_F(UpdateTest, DefinitionLineParsing) {
    struct Row {
        const char* line;
        const char* prefix;
        bool found;
        const char* text;
    } rows[] = {
        {"SuccessMessage=Done", "SuccessMessage=", true, "Done"},
        {"SuccessMessage=  Done ok \r", "SuccessMessage=", true, "Done ok"},
        {"EndMessage=Finished\n", "EndMessage=", true, "Finished"},
        // The text is cut at the prefix's length, wherever the prefix stands.
        {"xxSuccessMessage=Done", "SuccessMessage=", true, "e=Done"},
        {"SuccessMessage=", "SuccessMessage=", false, ""},
        {"SuccessMessage=  \r", "SuccessMessage=", false, ""},  // blank text would match any line
        {"EndMessage=Finished", "SuccessMessage=", false, ""},
        {"", "EndMessage=", false, ""},
    };
    for (const Row& row : rows) {
        std::string text;
        EXPECT_EQ(row.found, CEmulexCommon::ParseUpdateMessageLine(row.line, row.prefix, text)) << row.line;
        EXPECT_EQ(row.text, text) << row.line;
    }
}

TEST_F(UpdateTest, CheckWaitsUntilTheEndMessageAppears) {
    qdmtest::WriteFile(result_, "Flashing...\n");
    int polls = 0;
    qdmhost::SetSleepHook([&](unsigned long ms) {
        EXPECT_EQ(30000u, ms);
        if (++polls == 3) qdmtest::WriteFile(result_, kFinishedOk);
    });
    EXPECT_EQ(1, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_EQ(3, polls);
}

TEST_F(UpdateTest, CheckGivesUpAfterFiveWaitsWithoutEndMessage) {
    qdmtest::WriteFile(result_, "Flashing...\nUpdate completed successfully\n");
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_EQ(36u, CEmulexCommon::GetLastError());
    EXPECT_EQ(5u, clock_->count(30000));
    EXPECT_EQ(5u, clock_->sleeps().size());
    EXPECT_TRUE(HasDebug("No such end message."));
}

TEST_F(UpdateTest, CheckFailsWith37WhenTheEndShowsNoSuccess) {
    qdmtest::WriteFile(result_, "Update failed: image rejected\nUpdate finished\n");
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_EQ(37u, CEmulexCommon::GetLastError());
}

TEST_F(UpdateTest, CheckWithoutEndMessagesDoesNotWait) {
    qdmtest::WriteFile(definitions_, "SuccessMessage=Update completed successfully\n");
    qdmtest::WriteFile(result_, kFinishedOk);
    EXPECT_EQ(1, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_TRUE(clock_->sleeps().empty());
    EXPECT_TRUE(HasDebug("no endMessage"));
}

TEST_F(UpdateTest, CheckWithoutSuccessMessagesFailsAtOnce) {
    qdmtest::WriteFile(definitions_, "EndMessage=Update finished\nSuccessMessage=\n");
    qdmtest::WriteFile(result_, kFinishedOk);
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_TRUE(clock_->sleeps().empty());
    EXPECT_TRUE(HasDebug("no successMessage"));
}

TEST_F(UpdateTest, OnlyTheFirstFiveSuccessMessagesCount) {
    std::string definitions;
    for (int i = 1; i <= 6; ++i) definitions += "SuccessMessage=ok" + std::to_string(i) + "\n";
    qdmtest::WriteFile(definitions_, definitions);
    qdmtest::WriteFile(result_, "ok6\n");
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
    EXPECT_EQ(37u, CEmulexCommon::GetLastError());
    qdmtest::WriteFile(result_, "ok5\n");
    EXPECT_EQ(1, CEmulexCommon::CheckUpdateResult_(result_, definitions_));
}

TEST_F(UpdateTest, CheckFailsWith17OnMissingFiles) {
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(result_, temp_ + "/missing.def"));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(clock_->sleeps().empty());

    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(0, CEmulexCommon::CheckUpdateResult_(temp_ + "/missing.log", definitions_));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_EQ(1u, clock_->count(30000));  // looked once, after the first pause
}

}  // namespace
