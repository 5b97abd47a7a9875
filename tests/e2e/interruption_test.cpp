// An update stopped at each of its steps, once by SIGINT (Ctrl-C: the whole
// foreground group) and once by SIGKILL (qdmhost alone, its tools orphaned),
// then run again; and the readers while an update runs.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <sstream>
#include <thread>

#include "HostRun.h"

namespace {

using e2e::E2eTest;
using e2e::json;

// qdmhost started in its own process group, standard error read as it comes.
class LiveRun {
public:
    LiveRun(const std::vector<std::string>& args, const std::string& outFile) {
        int pipeFds[2];
        EXPECT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setpgid(0, 0);
            ::dup2(pipeFds[1], STDERR_FILENO);
            int out = ::open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(out, STDOUT_FILENO);
            ::setenv("QDMHOST_VIRTUAL_TIME", "1", 1);
            std::vector<char*> argv{const_cast<char*>(QDM_HOST_BINARY)};
            for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
            argv.push_back(nullptr);
            ::execv(QDM_HOST_BINARY, argv.data());
            ::_exit(127);
        }
        ::close(pipeFds[1]);
        fd_ = pipeFds[0];
    }
    ~LiveRun() {
        if (fd_ >= 0) ::close(fd_);
    }

    // Reads standard error until `text` shows (true) or it ends. With
    // `repeat`, sends that signal again every 200 ms meanwhile, as an
    // operator presses Ctrl-C again when nothing is said.
    bool WaitFor(const std::string& text, int repeat = 0) {
        while (err_.find(text) == std::string::npos) {
            struct pollfd entry = {fd_, POLLIN, 0};
            if (::poll(&entry, 1, 200) == 0) {
                if (repeat) Signal(repeat, true);
                continue;
            }
            if (!ReadSome()) return false;
        }
        return true;
    }
    void Signal(int signal, bool group) { ::kill(group ? -pid_ : pid_, signal); }
    // Exit code (128 + signal when killed); all of standard error read.
    int Finish() {
        while (ReadSome()) {
        }
        int status = 0;
        ::waitpid(pid_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    const std::string& err() const { return err_; }

private:
    bool ReadSome() {
        char buffer[4096];
        ssize_t got = ::read(fd_, buffer, sizeof buffer);
        if (got > 0) err_.append(buffer, static_cast<std::size_t>(got));
        return got > 0;
    }

    pid_t pid_ = -1;
    int fd_ = -1;
    std::string err_;
};

// Every port's modules at the repository's versions, by an inventory's document.
void ExpectEveryPortCurrent(const e2e::HostRun& inventory) {
    const json document = inventory.Json();  // kept: the loop must not outlive it
    for (const json& port : document["ports"])
        EXPECT_EQ(e2e::PortStatuses(port), port["wwpn"].get<std::string>() + " current current current");
}

struct Row {
    const char* name;
    const char* trigger;  // the progress line at which the signal is sent
    const char* slow;     // the simulator verb made slow so that the signal lands inside it; "" none
    int signal;
};

std::string RowName(const ::testing::TestParamInfo<Row>& info) {
    return std::string(info.param.name) + (info.param.signal == SIGINT ? "_Sigint" : "_Sigkill");
}

class InterruptionTest : public e2e::E2eTable<Row> {
protected:
    std::string ToolLog() const { return qdmtest::ReadFile(StatePath() + ".tools"); }

    // The orphans a killed run left behind have ended.
    void WaitForTools() const {
        for (int tries = 0; tries < 200; ++tries) {
            const std::string log = ToolLog();
            if (e2e::Occurrences(log, "begin ") == e2e::Occurrences(log, "end ")) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "tools still running: " << ToolLog();
    }

    // No second writer ever began on a target while another ran there.
    void ExpectNoOverlap() const {
        std::map<std::string, int> running;
        std::istringstream lines(ToolLog());
        for (std::string event, pid, target, what; lines >> event >> pid >> target >> what;) {
            running[target] += event == "begin" ? 1 : -1;
            EXPECT_LE(running[target], 1) << "two writers on " << target << ":\n" << ToolLog();
        }
    }

    json Versions() const {
        const json state = json::parse(qdmtest::ReadFile(StatePath()));
        return {{"fw8g", state["adapters"][0]["firmware"]}, {"bios8g", state["adapters"][0]["bootBios"]},
                {"fw16g", state["adapters"][2]["firmware"]}, {"driver", state["driverVersion"]},
                {"utility", state.value("utilityVersion", json("absent"))}};
    }

    // Each (port, kind) counted per outcome over the whole history.
    std::map<std::string, int> HistoryCounts() const {
        std::map<std::string, int> counts;
        json history = Run({"--json", "history"}).Json();
        for (const json& entry : history["entries"])
            ++counts[entry["deviceId"].get<std::string>().substr(0, 12) + " " + entry["kind"].get<std::string>() + " " +
                     entry["outcome"].get<std::string>()];
        return counts;
    }

    void ExpectFilesWhole() const {
        std::istringstream lines(qdmtest::ReadFile(e2e::kRoot + "/qdmhost/history.jsonl"));
        for (std::string line; std::getline(lines, line);) EXPECT_TRUE(json::accept(line)) << line;
        EXPECT_TRUE(json::accept(qdmtest::ReadFile(e2e::kRoot + "/qdmhost/accepted-serials.json")));
    }

    void ExpectWorkAreaClean() const {
        std::error_code error;
        for (std::filesystem::directory_iterator it(e2e::kRoot + "/tmp", error), end; !error && it != end; ++it)
            EXPECT_EQ(it->path().filename().string().rfind("qdmhost-staging.", 0), std::string::npos) << it->path();
        for (const char* unpack : {"/tmp/EMULEX/temp/tmp", "/tmp/EMULEX/temp/firm"})
            EXPECT_FALSE(std::filesystem::exists(e2e::kRoot + unpack)) << unpack;
    }
};

TEST_P(InterruptionTest, StoppedThenPickedUp) {
    const Row& row = GetParam();
    const bool sigint = row.signal == SIGINT;
    BuildDemoRepository();
    const json before = Versions();
    if (*row.slow) {
        ASSERT_TRUE(qdmtest::SimFault(row.slow, "slow"));
    }
    LiveRun first({"--repo", repo_, "--json", "update"}, folder_ + "/out/first.json");
    ASSERT_TRUE(first.WaitFor(row.trigger)) << first.err();
    first.Signal(row.signal, sigint);
    if (sigint) {  // a second Ctrl-C only repeats the message
        EXPECT_TRUE(first.WaitFor("SIGINT received", SIGINT)) << first.err();
        first.Signal(SIGINT, true);
    }
    EXPECT_EQ(first.Finish(), sigint ? 12 : 128 + SIGKILL) << first.err();
    if (*row.slow) {
        ASSERT_TRUE(qdmtest::SimFault(row.slow, "off"));
    }
    WaitForTools();
    const json after = Versions();
    const json wanted = {{"fw8g", "2.02a5"}, {"bios8g", "5.12a3"}, {"fw16g", "11.4.204.8"}, {"driver", "11.4.204.8"},
                         {"utility", "11.4.204.8"}};
    for (const auto& item : after.items())
        EXPECT_TRUE(item.value() == before[item.key()] || item.value() == wanted[item.key()] ||
                    (item.key() == "utility" && item.value() == "absent"))
            << item.key() << " " << item.value();
    if (sigint && *row.slow) {
        EXPECT_GE(e2e::Occurrences(first.err(), "SIGINT received: finishing"), 2u) << first.err();
        json results = json::parse(qdmtest::ReadFile(folder_ + "/out/first.json"))["results"];
        EXPECT_NE(results.dump().find("\"outcome\":\"interrupted\""), std::string::npos);
    }

    e2e::HostRun second = Host({"--wait", "30", "--json", "update"});
    EXPECT_EQ(second.exitCode, 0) << second.err;
    // A killed run's unfinished module is reported once, by the next run;
    // a stopped run leaves none.
    if (sigint || *row.slow) {
        EXPECT_EQ(second.err.find("was interrupted") != std::string::npos, !sigint) << second.err;
    }
    ExpectNoOverlap();
    ExpectEveryPortCurrent(Host({"--json", "inventory"}));
    int interrupted = 0;
    for (const auto& count : HistoryCounts()) {
        EXPECT_EQ(count.second, 1) << count.first;
        interrupted += count.first.find(" interrupted") != std::string::npos;
    }
    EXPECT_GE(interrupted, sigint || *row.slow ? 1 : 0);
    EXPECT_EQ(Run({"history"}).err.find("was interrupted"), std::string::npos) << "reported twice";
    ExpectFilesWhole();
    ExpectWorkAreaClean();
}

// Each step of a full update on the demo server: the utility, then the
// single-port 8G adapter's firmware (boot BIOS, then firmware, a wait
// between) and the driver, all through port 03:00.0.
const Row kSteps[] = {
    {"UtilityBackup", "0000:03:00.0 util backup", "", 0},
    {"UtilityUninstall", "0000:03:00.0 util pre-update", "utility", 0},
    {"UtilityWaitThenInstall", "waiting 30s for 0000:03:00.0 util pre-update", "utility", 0},
    {"UtilityUpdate", "0000:03:00.0 util update", "", 0},
    {"UtilityRestore", "0000:03:00.0 util restore", "", 0},
    {"UtilityApplyCheck", "0000:03:00.0 util apply-check", "", 0},
    {"FirmwareBackup", "0000:03:00.0 firm backup", "", 0},
    {"FirmwareBootBiosDownload", "0000:03:00.0 firm pre-update", "Download", 0},
    {"FirmwareWaitThenDownload", "waiting 30s for 0000:03:00.0 firm pre-update", "Download", 0},
    {"FirmwareUpdate", "0000:03:00.0 firm update", "", 0},
    {"FirmwareRestore", "0000:03:00.0 firm restore", "", 0},
    {"FirmwareApplyCheck", "0000:03:00.0 firm apply-check", "", 0},
    {"DriverBackup", "0000:03:00.0 driver backup", "", 0},
    {"DriverPreUpdate", "0000:03:00.0 driver pre-update", "", 0},
    {"DriverRpm", "0000:03:00.0 driver update", "rpm", 0},
    {"DriverRestore", "0000:03:00.0 driver restore", "", 0},
    {"DriverApplyCheck", "0000:03:00.0 driver apply-check", "", 0},
};

std::vector<Row> WithSignals() {
    std::vector<Row> rows;
    for (int signal : {SIGINT, SIGKILL})
        for (Row row : kSteps) {
            row.signal = signal;
            rows.push_back(row);
        }
    return rows;
}

INSTANTIATE_TEST_SUITE_P(EachStep, InterruptionTest, ::testing::ValuesIn(WithSignals()), RowName);

// While an update downloads, readers do not touch the adapters: inventory
// answers lock-busy naming the update, metrics writes only the in-progress
// marker, and with --wait both wait and then read.
TEST_F(E2eTest, ReadersWaitForAnUpdate) {
    BuildDemoRepository();
    ASSERT_TRUE(qdmtest::SimFault("Download", "slow"));
    LiveRun update({"--repo", repo_, "update"}, folder_ + "/out/update.txt");
    ASSERT_TRUE(update.WaitFor("0000:03:00.0 firm pre-update")) << update.err();
    e2e::HostRun busy = Host({"inventory"});
    EXPECT_EQ(busy.exitCode, 6) << busy.err;
    EXPECT_NE(busy.err.find("(qdmhost)"), std::string::npos) << busy.err;
    EXPECT_EQ(Host({"metrics", "--textfile", folder_ + "/out"}).exitCode, 6);
    const std::string metrics = qdmtest::ReadFile(folder_ + "/out/qdmhost.prom");
    EXPECT_NE(metrics.find("qdmhost_update_in_progress 1"), std::string::npos) << metrics;
    EXPECT_EQ(metrics.find("qdmhost_module_status{"), std::string::npos) << metrics;
    e2e::HostRun waited = Host({"--wait", "30", "inventory"});
    EXPECT_EQ(waited.exitCode, 0) << waited.err;
    EXPECT_EQ(update.Finish(), 0) << update.err();
    EXPECT_EQ(waited.out.find("older"), std::string::npos) << "read before the update ended:\n" << waited.out;
}

// Without the management utility the provider links no utility module and
// no firmware step can run: check and the plan name the install from the
// repository's package, update does it first and goes on; without a
// package the firmware steps are blocked, never tried.
TEST_F(E2eTest, MissingUtilityIsInstalledFirst) {
    BuildDemoRepository();
    ASSERT_EQ(qdmtest::RunSim({"utility", "uninstall"}), 0);
    EXPECT_EQ(Host({"--json", "check"}).Json()["utilityInstall"]["version"], "11.4.204.8");
    const json planned = Host({"--json", "update", "--dry-run"}).Json()["results"][0];
    EXPECT_EQ(planned["kind"].get<std::string>() + " " + planned["outcome"].get<std::string>(), "util planned");
    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, 0) << update.err;
    const json installed = update.Json()["results"][0];
    EXPECT_EQ(installed["kind"].get<std::string>() + " " + installed["outcome"].get<std::string>(), "util installed");
    ExpectEveryPortCurrent(Host({"--json", "inventory"}));

    ASSERT_EQ(qdmtest::RunSim({"utility", "uninstall"}), 0);
    json catalogue = json::parse(qdmtest::ReadFile(repo_ + "/catalogue.json"));
    catalogue["packages"].erase(3);  // the utility's
    qdmtest::WriteFile(repo_ + "/catalogue.json", catalogue.dump());
    PublishCatalogue({"--serial", "2"});
    e2e::HostRun blocked = Host({"--json", "update", "--dry-run"});
    EXPECT_EQ(blocked.exitCode, 10) << blocked.err;
    EXPECT_EQ(e2e::Outcomes(blocked.Json(), "firm")["0000:03:00.0"], "blocked");
    const json check = Host({"--json", "check"}).Json();
    EXPECT_EQ(check["utilityInstall"].dump() + " " + check["ports"][0]["plans"]["firm"].dump(), "null \"blocked\"");
}

}  // namespace
