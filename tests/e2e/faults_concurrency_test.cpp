// Updates that meet: two started at once, and one killed in the middle of a
// firmware download followed by the next.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>

#include "FaultRun.h"

namespace {

using e2e::FaultTest;
using nlohmann::json;

// One qdmhost run in the background of a shell line: its output, errors and
// exit status go to files of `folder`.
class BackgroundRun {
public:
    BackgroundRun(const std::string& folder, const std::string& name) : path_(folder + "/" + name) {}

    // The run as a shell command that holds none of the caller's streams, to
    // be put in the background with "&".
    std::string Detached(const std::vector<std::string>& args) const {
        return "{ " + e2e::HostCommandLine(args) + " >" + e2e::Quote(path_ + ".out") + " 2>" +
               e2e::Quote(path_ + ".err") + "; echo $? >" + e2e::Quote(path_ + ".status") +
               "; } </dev/null >/dev/null 2>&1";
    }

    e2e::HostRun Result() const {
        e2e::HostRun run;
        run.exitCode = std::stoi("0" + qdmtest::ReadFile(path_ + ".status"));
        run.out = qdmtest::ReadFile(path_ + ".out");
        run.err = qdmtest::ReadFile(path_ + ".err");
        return run;
    }

private:
    std::string path_;
};

class ConcurrentUpdateTest : public FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        if (IsSkipped()) return;
        outputs_ = qdmtest::MakeTempDir("concurrent");
        BuildDemoRepository();
    }

    void TearDown() override {
        if (!outputs_.empty()) qdmtest::RemoveTree(outputs_);
        FaultTest::TearDown();
    }

    std::vector<std::string> UpdateArgs() const { return {"--json", "--repo", repo_, "update"}; }

    void ExpectDemoUpdated() const {
        EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware"), "\"2.02a5\"");
        EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), "\"11.4.204.8\"");
        EXPECT_EQ(qdmtest::SimGet("driverVersion"), "\"11.4.204.8\"");
        EXPECT_EQ(qdmtest::SimGet("utilityVersion"), "\"11.4.204.8\"");
    }

    // A started process whose command line begins with `start` (so not the
    // shell or the time limit that only name the program); 0 when none.
    pid_t StartedProcess(const std::string& start) const {
        for (const qdmtest::ProcessInfo& process : StartedProcesses())
            if (process.commandLine.rfind(start, 0) == 0) return process.pid;
        return 0;
    }

    bool IsRunning(pid_t pid) const {
        const std::vector<qdmtest::ProcessInfo> processes = StartedProcesses();
        return std::any_of(processes.begin(), processes.end(),
                           [pid](const qdmtest::ProcessInfo& process) { return process.pid == pid; });
    }

    static bool LockIsFree() {
        int fd = ::open((e2e::kRoot + "/tmp/qdmhost.lock").c_str(), O_RDWR | O_CLOEXEC);
        bool free = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (fd >= 0) ::close(fd);
        return free;
    }

    std::string outputs_;
};

// A run that ended well and changed something.
bool Updated(const e2e::HostRun& run) {
    if (run.exitCode != 0) return false;
    const json results = run.Json()["results"];
    return std::any_of(results.begin(), results.end(),
                       [](const json& result) { return result["outcome"] == "updated"; });
}

// One run updates, the other meets the lock (6) or nothing to do; each of the 3 images is downloaded once.
TEST_F(ConcurrentUpdateTest, TwoUpdatesAtOnceUpdateOnce) {
    TakeBaseline({e2e::kDepmodOverride});
    BackgroundRun first(outputs_, "first"), second(outputs_, "second");
    ASSERT_EQ(qdmtest::RunShell(first.Detached(UpdateArgs()) + " & " + second.Detached(UpdateArgs()) + " & wait"), 0);
    e2e::HostRun runs[] = {first.Result(), second.Result()};
    if (!Updated(runs[0])) std::swap(runs[0], runs[1]);
    ASSERT_TRUE(Updated(runs[0])) << runs[0].err << runs[1].err;
    const e2e::HostRun& other = runs[1];
    if (other.exitCode == 6) {
        EXPECT_EQ(other.Json()["error"]["name"], "lock-busy");
    } else {
        ASSERT_EQ(other.exitCode, 0) << other.err;
        EXPECT_FALSE(Updated(other)) << other.out;
    }
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 3u);
    EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 1u);
    ExpectDemoUpdated();
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

// Killed mid-download: the lock dies with qdmhost (its tool still hanging); the next update completes despite
// leftovers.
TEST_F(ConcurrentUpdateTest, UpdateKilledDuringDownloadIsRecoveredByTheNextRun) {
    ASSERT_TRUE(qdmtest::SimFault("Download", "hang"));
    TakeBaseline({e2e::kDepmodOverride});
    BackgroundRun killed(outputs_, "killed");
    ASSERT_EQ(qdmtest::RunShell(killed.Detached(UpdateArgs()) + " & true"), 0);
    ASSERT_TRUE(e2e::WaitUntil([] { return qdmtest::SimCallCount("Download") > 0; })) << "no download started";
    const pid_t host = StartedProcess(QDM_HOST_BINARY);
    ASSERT_GT(host, 0);
    ASSERT_EQ(::kill(host, SIGKILL), 0);
    ASSERT_TRUE(e2e::WaitUntil([&] { return !IsRunning(host); }));
    ASSERT_GT(StartedProcess("/usr/sbin/ocmanager/hbacmd Download"), 0) << "the tool should still hang";
    // The kernel drops the lock as the process ends; a held lock would stay held.
    EXPECT_TRUE(e2e::WaitUntil(LockIsFree, 5));
    for (const qdmtest::ProcessInfo& process : StartedProcesses()) ::kill(process.pid, SIGKILL);
    ASSERT_TRUE(e2e::WaitUntil([&] { return StartedProcesses().empty(); }));
    ASSERT_TRUE(qdmtest::SimFault("Download", "off"));

    e2e::HostRun next = Host({"--json", "update"});
    EXPECT_EQ(next.exitCode, 0) << next.err;
    ExpectDemoUpdated();
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

}  // namespace
