// Running foreign commands: exit codes, output capture, time-outs that kill
// the whole process tree, and no leaked descriptors.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "CommonInformation.h"
#include "HostSys.h"
#include "TestEnv.h"

namespace {

using Exec = CCommon_Information;

class ExecTest : public qdmtest::HostTest {};

size_t OpenDescriptorCount() {
    size_t count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (::readdir(dir)) ++count;
        ::closedir(dir);
    }
    return count;
}

// Gone, or a zombie waiting for its new parent: either way no longer running.
bool ProcessEnded(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    if (!stat) return true;
    std::string line;
    std::getline(stat, line);
    size_t close = line.rfind(')');
    return close != std::string::npos && close + 2 < line.size() &&
           (line[close + 2] == 'Z' || line[close + 2] == 'X');
}

bool EndsWithin(pid_t pid, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!ProcessEnded(pid)) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

TEST_F(ExecTest, CapturesOutputAndExitCode) {
    std::string out = temp_ + "/out.txt";
    qdmtest::WriteFile(out, "old content that must be truncated\n");
    unsigned long code = 99;
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("echo hello; exit 3", out, "", &code, 60000));
    EXPECT_EQ(3UL, code);
    EXPECT_EQ("hello\n", qdmtest::ReadFile(out));
}

TEST_F(ExecTest, SignalledChildReports128PlusSignal) {
    unsigned long code = 0;
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("kill -9 $$", "", "", &code, Exec::NO_TIMEOUT));
    EXPECT_EQ(128UL + SIGKILL, code);
}

TEST_F(ExecTest, RunsInWorkFolderWithEmptyStdin) {
    std::string out = root_ + "/pwd.txt";
    unsigned long code = 1;
    // cat would block on an inherited terminal; /dev/null ends it at once.
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("cat; pwd -P", out, temp_, &code, 60000));
    EXPECT_EQ(0UL, code);
    char* real = ::realpath(temp_.c_str(), nullptr);
    ASSERT_NE(nullptr, real);
    EXPECT_EQ(std::string(real) + "\n", qdmtest::ReadFile(out));
    std::free(real);
}

TEST_F(ExecTest, NullReturnCodeIsAllowed) {
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("exit 4", "", "", nullptr, Exec::NO_TIMEOUT));
}

TEST_F(ExecTest, CannotStartLeavesReturnCodeAlone) {
    const std::string outside = root_ + "/outside.txt";
    qdmtest::WriteFile(outside, "kept\n");
    ASSERT_EQ(0, ::symlink(outside.c_str(), (temp_ + "/symlink.txt").c_str()));
    ASSERT_EQ(0, ::link(outside.c_str(), (temp_ + "/hardlink.txt").c_str()));
    ASSERT_EQ(0, ::mkfifo((temp_ + "/fifo.txt").c_str(), 0644));
    struct Row {
        const char* why;
        std::string output;
        std::string folder;
    } rows[] = {
        {"output file in a missing folder", root_ + "/missing/out.txt", ""},
        {"missing work folder", "", root_ + "/missing"},
        {"output is a symbolic link", temp_ + "/symlink.txt", ""},
        {"output is a hard link", temp_ + "/hardlink.txt", ""},
        {"output is a FIFO (must not block)", temp_ + "/fifo.txt", ""},
        {"output is a folder", temp_, ""},
    };
    for (const auto& row : rows) {
        unsigned long code = 42;
        EXPECT_EQ(Exec::EXEC_NOT_STARTED,
                  Exec::ExecForeignModule("echo clobbered", row.output, row.folder, &code, 60000))
            << row.why;
        EXPECT_EQ(42UL, code) << row.why;
    }
    EXPECT_EQ("kept\n", qdmtest::ReadFile(outside));
}

TEST_F(ExecTest, TimeoutKillsChildAndGrandchild) {
    std::string pidFile = temp_ + "/grandchild.pid";
    std::string command = "sleep 30 & echo $! > " + pidFile + "; wait";
    auto started = std::chrono::steady_clock::now();
    unsigned long code = 7;
    // 200 s scaled by the test clock to 200 ms.
    EXPECT_EQ(Exec::EXEC_TIMEOUT, Exec::ExecForeignModule(command, "", "", &code, 200000));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    pid_t grandchild = static_cast<pid_t>(std::atol(qdmtest::ReadFile(pidFile).c_str()));
    ASSERT_GT(grandchild, 0);
    EXPECT_TRUE(EndsWithin(grandchild, std::chrono::seconds(3)));
}

TEST_F(ExecTest, TimeoutIsScaled) {
    unsigned long code = 0;
    qdmhost::SetTimeoutScale(1.0);
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("exit 0", "", "", &code, 60000));
    qdmhost::SetTimeoutScale(0.001);
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(Exec::EXEC_TIMEOUT, Exec::ExecForeignModule("sleep 10", "", "", &code, 60000));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
}

TEST_F(ExecTest, NoDescriptorLeaks) {
    size_t before = OpenDescriptorCount();
    unsigned long code = 0;
    std::string out = temp_ + "/o.txt";
    Exec::ExecForeignModule("echo x", out, "", &code, 60000);
    Exec::ExecForeignModule("sleep 10", out, "", &code, 50000);
    Exec::ExecForeignModule("true", root_ + "/missing/o.txt", "", &code, 60000);
    Exec::ExecForeignModule("true", "", root_ + "/missing", &code, 60000);
    EXPECT_EQ(before, OpenDescriptorCount());
}

}  // namespace
