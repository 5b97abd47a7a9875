// One update at a time per install root.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "HostRun.h"

namespace {

class LockTest : public e2e::HostE2eTest {};

TEST_F(LockTest, SecondUpdateWaitsThenRefusesWithLockBusy) {
    BuildDemoRepository();
    qdmtest::WriteFile(e2e::kRoot + "/tmp/qdmhost.lock", "");
    int holder = ::open((e2e::kRoot + "/tmp/qdmhost.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);

    // --wait 30 under virtual time: the polls are announced, not waited.
    e2e::HostRun busy = Host({"--json", "--wait", "30", "update"});
    EXPECT_EQ(busy.exitCode, 6) << busy.err;
    EXPECT_EQ(busy.Json()["error"]["name"], "lock-busy");
    EXPECT_NE(busy.err.find("waiting up to 30s"), std::string::npos) << busy.err;
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 0u);

    ::close(holder);
    e2e::HostRun free = Host({"update"});
    EXPECT_EQ(free.exitCode, 0) << free.err;
}

TEST_F(LockTest, ReadOnlyCommandsDoNotTakeTheLock) {
    qdmtest::WriteFile(e2e::kRoot + "/tmp/qdmhost.lock", "");
    int holder = ::open((e2e::kRoot + "/tmp/qdmhost.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(e2e::RunHost({"inventory"}).exitCode, 0);
    ::close(holder);
}

}  // namespace
