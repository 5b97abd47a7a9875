// Last-error text, digit scan, command execution, the adapter listing and the
// work-area paths.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
const char kListingFailed[] = "MSGID_EMULEXCOMMON_0001_F";

using qdmtest::HostTest;

size_t CountLines(const std::string& text) {
    size_t lines = 0;
    for (char c : text) lines += c == '\n';
    return lines;
}

TEST(LastError, TextIsHexBelow39) {
    struct Row {
        unsigned long code;
        const char* text;
    } rows[] = {
        {0, "0"},
        {17, "11"},
        {30, "1e"},
        {38, "26"},          // last code with a text
        {39, "no errcode"},  // first code without
        {~0UL, "no errcode"},
    };
    for (const Row& row : rows) {
        CEmulexCommon::SetLastError(row.code);
        EXPECT_EQ(CEmulexCommon::GetLastError(), row.code);
        EXPECT_EQ(CEmulexCommon::GetLastErrorToChractor(), row.text) << row.code;
    }
}

TEST(FindNotDisitChar, FirstNonDigitAtOrAfterStart) {
    const unsigned long npos = std::string::npos;
    struct Row {
        const char* text;
        unsigned long start;
        unsigned long expected;
    } rows[] = {
        {"123abc", 0, 3},
        {"abc", 0, 0},  // the start itself is returned
        {"12a4", 3, npos},
        {"123", 0, npos},  // all digits
        {"", 0, npos},
        {"12", 5, npos},  // start past the end
        {"12", 2, npos},
        {"1.2", 1, 1},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CEmulexCommon::FindNotDisitChar(row.text, row.start), row.expected)
            << row.text << " from " << row.start;
}

TEST(OutArguments, NullPointersGiveError1) {
    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(CEmulexCommon::GetProgramFilesFolder_(nullptr), 0);
    EXPECT_EQ(CEmulexCommon::GetLastError(), 1u);
    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(CEmulexCommon::GetOCMManagerInstallPath(nullptr), 0);
    EXPECT_EQ(CEmulexCommon::GetLastError(), 1u);

    std::string untouched = "keep";
    EXPECT_EQ(CEmulexCommon::GetProgramFilesFolder_(&untouched), 1);
    EXPECT_EQ(untouched, "keep");
}

class CommonExecTest : public HostTest {};

TEST_F(CommonExecTest, OCMManagerInstallPathNeedsTheTool) {
    QDM_REQUIRE_SANDBOX();
    std::string path;
    ::unlink(kHbacmd);
    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(CEmulexCommon::GetOCMManagerInstallPath(&path), 0);
    EXPECT_EQ(CEmulexCommon::GetLastError(), 11u);
    EXPECT_TRUE(path.empty());

    qdmtest::WriteScript(kHbacmd, "exit 0\n");
    EXPECT_EQ(CEmulexCommon::GetOCMManagerInstallPath(&path), 1);
    EXPECT_EQ(path, kHbacmd);
}

TEST_F(CommonExecTest, WorkAreaPaths) {
    EXPECT_EQ(CEmulexCommon::CacheFolderPath(), cache_);
    EXPECT_EQ(CEmulexCommon::TempFolderPath(), temp_);
    EXPECT_EQ(CEmulexCommon::CacheFilePath("Listhbas.txt"), cache_ + "/Listhbas.txt");
    EXPECT_EQ(CEmulexCommon::TempFilePath("a.txt"), temp_ + "/a.txt");
}

TEST_F(CommonExecTest, FileAgeInWholeSeconds) {
    const std::string file = temp_ + "/aged.txt";
    qdmtest::WriteFile(file, "x");
    long age = 0;
    qdmtest::SetFileAge(file, 3600);
    ASSERT_TRUE(CEmulexCommon::FileAgeSeconds(file, &age));
    EXPECT_GE(age, 3600);
    EXPECT_LE(age, 3601);
    qdmtest::SetFileAge(file, -50);  // in the future
    ASSERT_TRUE(CEmulexCommon::FileAgeSeconds(file, &age));
    EXPECT_LT(age, 0);
    EXPECT_FALSE(CEmulexCommon::FileAgeSeconds(temp_ + "/missing", &age));
}

TEST_F(CommonExecTest, CacheEntriesThatAreNoFileAreNeverFresh) {
    const std::string target = root_ + "/outside.txt";
    qdmtest::WriteFile(target, "kept");
    ASSERT_EQ(0, ::symlink(target.c_str(), (temp_ + "/link").c_str()));
    ASSERT_EQ(0, ::mkfifo((temp_ + "/fifo").c_str(), 0644));
    qdmtest::WriteFile(temp_ + "/folder/inside", "");
    const struct {
        const char* name;
        bool removed;  // links and FIFOs give way to the tool's output
    } rows[] = {{"link", true}, {"fifo", true}, {"folder", false}};
    for (const auto& row : rows) {
        long age = 0;
        const std::string path = temp_ + "/" + row.name;
        EXPECT_FALSE(CEmulexCommon::FileAgeSeconds(path, &age)) << row.name;
        struct stat st;
        EXPECT_EQ(row.removed, ::lstat(path.c_str(), &st) != 0) << row.name;
    }
    EXPECT_EQ("kept", qdmtest::ReadFile(target));
}

TEST_F(CommonExecTest, QuotesAreStrippedBeforeTheShellRuns) {
    const std::string out = temp_ + "/echo.txt";
    // Single quotes would keep the double quotes; they are gone before the shell sees them.
    EXPECT_EQ(CEmulexCommon::ExecCommand_("echo 'say \"hi\"' > \"" + out + "\""), 0);
    EXPECT_EQ(qdmtest::ReadFile(out), "say hi\n");
    EXPECT_EQ(clock_->sleeps().size(), 0u);
    EXPECT_TRUE(HasDebug("[LEAVE] static int CEmulexCommon::ExecCommand_(std::string), rc=0"));
}

TEST_F(CommonExecTest, ResultAndPollsPerCommand) {
    const std::string out = temp_ + "/out.txt";
    struct Row {
        std::string command;
        int result;
        size_t sleeps;
    } rows[] = {
        {"true", 0, 0},                          // no redirection: raw status
        {"exit 3", -1, 0},                       // non-zero exit status
        {"true > " + out, -1, 10},               // output stays empty
        {"echo x > " + out + "; true", -1, 10},  // trailing text is part of the name
    };
    for (const Row& row : rows) {
        ::unlink(out.c_str());
        const size_t before = clock_->sleeps().size();
        EXPECT_EQ(CEmulexCommon::ExecCommand_(row.command), row.result) << row.command;
        EXPECT_EQ(clock_->sleeps().size() - before, row.sleeps) << row.command;
    }
    EXPECT_EQ(clock_->count(1000), 20u);  // every pause is one second
    EXPECT_TRUE(
        HasDebugContaining("static int CEmulexCommon::ExecCommand_(std::string) [exit 3] command failed! ("));
}

TEST(ListhbasLine, Classification) {
    struct Row {
        const char* line;
        CEmulexCommon::ListhbasLine verdict;
    } rows[] = {
        {"ERROR: <64>: busy", CEmulexCommon::LISTHBAS_RETRY_ERROR},
        {"<64> ERROR", CEmulexCommon::LISTHBAS_RETRY_ERROR},
        {"ERROR: <251>", CEmulexCommon::LISTHBAS_FATAL_ERROR},
        {"ERROR Serial No.", CEmulexCommon::LISTHBAS_FATAL_ERROR},  // an error line wins
        {"Serial No. : VM1", CEmulexCommon::LISTHBAS_SUCCESS},
        {"error <64>", CEmulexCommon::LISTHBAS_UNDECIDED},  // case matters
        {"Serial No : VM1", CEmulexCommon::LISTHBAS_UNDECIDED},
        {"", CEmulexCommon::LISTHBAS_UNDECIDED},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CEmulexCommon::ClassifyListhbasLine(row.line), row.verdict) << row.line;
}

class ListhbasTest : public HostTest {
protected:
    // A fake tool that counts its runs and then does `action`.
    void InstallTool(const std::string& action) {
        qdmtest::WriteScript(kHbacmd, "echo run >> " + runs_ + "\n" + action + "\n");
    }
    size_t Runs() const { return CountLines(qdmtest::ReadFile(runs_)); }
    size_t Attempts() const {
        size_t attempts = 0;
        for (const auto& line : Debug())
            attempts +=
                line.text.rfind("CEmulexCommon::ExecListhbasCommand() ExecForeignModule cmd:[", 0) == 0;
        return attempts;
    }
    void SetUp() override {
        HostTest::SetUp();
        runs_ = root_ + "/runs.txt";
    }

    std::string runs_;
};

TEST_F(ListhbasTest, AttemptsPerRecordedOutput) {
    QDM_REQUIRE_SANDBOX();
    struct Row {
        const char* golden;
        size_t runs;
        size_t failures;
    } rows[] = {
        {"good.txt", 1, 0},
        {"error64.txt", 5, 1},    // busy adapter: retried
        {"error.txt", 1, 1},      // other errors are final
        {"truncated.txt", 5, 1},  // no deciding line
        {"garbled.txt", 5, 1},
        {"binary.txt", 5, 1},
    };
    for (const Row& row : rows) {
        ::unlink(runs_.c_str());
        CTraceUtility::ClearCapture();
        const std::string golden = std::string(QDM_GOLDEN_DIR) + "/listhbas/" + row.golden;
        InstallTool("cat " + golden);
        CEmulexCommon::ExecListhbasCommand(kHbacmd);
        EXPECT_EQ(Runs(), row.runs) << row.golden;
        EXPECT_EQ(MessageCount(kListingFailed), row.failures) << row.golden;
        EXPECT_EQ(qdmtest::ReadFile(cache_ + "/Listhbas.txt"), qdmtest::ReadFile(golden)) << row.golden;
    }
    EXPECT_TRUE(HasDebug(std::string("CEmulexCommon::ExecListhbasCommand() ExecForeignModule cmd:[") +
                         kHbacmd + " listhbas ]"));
}

TEST_F(ListhbasTest, TimeOutStopsAtOnce) {
    QDM_REQUIRE_SANDBOX();
    InstallTool("sleep 5");  // the scaled 600 ms time-out ends it
    CEmulexCommon::ExecListhbasCommand(kHbacmd);
    EXPECT_EQ(Runs(), 1u);
    EXPECT_EQ(MessageCount(kListingFailed), 1u);
    EXPECT_TRUE(HasDebug("CEmulexCommon::ExecListhbasCommand() Timeout [TimeoutInterval = 60000 (ms)]"));
}

TEST_F(ListhbasTest, StartFailureStopsAtOnce) {
    QDM_REQUIRE_SANDBOX();
    InstallTool("echo 'Serial No. : VM1'");
    // The output file cannot be created while a folder holds its name.
    ASSERT_EQ(::mkdir((cache_ + "/Listhbas.txt").c_str(), 0755), 0);
    CEmulexCommon::ExecListhbasCommand(kHbacmd);
    EXPECT_EQ(Attempts(), 1u);
    EXPECT_EQ(MessageCount(kListingFailed), 1u);
    EXPECT_TRUE(HasDebug("CEmulexCommon::ExecListhbasCommand() command error"));
}

TEST_F(ListhbasTest, SuccessAfterABusyRun) {
    QDM_REQUIRE_SANDBOX();
    // Busy on the first run only.
    InstallTool("if [ $(wc -l < " + runs_ +
                ") -eq 1 ]; then echo 'ERROR: <64>'; else echo 'Serial No. : VM1'; fi");
    CEmulexCommon::ExecListhbasCommand(kHbacmd);
    EXPECT_EQ(Runs(), 2u);
    EXPECT_EQ(MessageCount(kListingFailed), 0u);
    EXPECT_TRUE(HasDebug("CEmulexCommon::ExecListhbasCommand() command success"));
}

}  // namespace
