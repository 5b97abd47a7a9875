#pragma once
// End-to-end helpers: a demo server in the sandbox, a repository built with
// the simulator's package builder, and qdmhost run as the operator runs it
// (with virtual time, so no poll is waited out).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <string>
#include <vector>

#include "Sim.h"
#include "TestEnv.h"
#include "TreeSnapshot.h"

namespace e2e {

// The dual-port model writes its PCI ids below the standard root, so the
// tests use that root; the sandbox makes it private.
const std::string kRoot = "/opt/velmora/qdm/provider";
const std::string kDualPortKey = "fcelx_8g2p_10df_f100_10df_f100";
// A run still going after this long hangs: it is killed, so that no test
// waits for ever and no qdmhost outlives its test.
const int kHostTimeLimitSeconds = 60;

struct HostRun {
    int exitCode = -1;
    std::string out;  // standard output only
    std::string err;
    nlohmann::json Json() const { return nlohmann::json::parse(out); }
    bool KilledAtTimeLimit() const { return exitCode == 128 + SIGKILL; }
};

inline std::string Quote(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// The shell command line that runs qdmhost with virtual time and a time limit.
inline std::string HostCommandLine(const std::vector<std::string>& args,
                                   int timeLimitSeconds = kHostTimeLimitSeconds) {
    std::string line = "QDMHOST_VIRTUAL_TIME=1 timeout -s KILL " + std::to_string(timeLimitSeconds) + " " +
                       Quote(QDM_HOST_BINARY);
    for (const std::string& arg : args) line += " " + Quote(arg);
    return line;
}

inline HostRun RunHost(const std::vector<std::string>& args, int timeLimitSeconds = kHostTimeLimitSeconds) {
    std::string errFile = qdmtest::MakeTempDir("qdmhost-err") + "/stderr";
    HostRun run;
    run.exitCode = qdmtest::RunShell(HostCommandLine(args, timeLimitSeconds) + " 2>" + Quote(errFile), &run.out);
    run.err = qdmtest::ReadFile(errFile);
    qdmtest::RemoveTree(errFile.substr(0, errFile.rfind('/')));
    return run;
}

// A fresh standard root with the supported-device lists and table, and the
// demo server installed (a copy of its state: tools write to it).
class HostE2eTest : public ::testing::Test {
protected:
    void SetUp() override { Prepare({}); }

    void Prepare(const qdmtest::SimOptions& simOptions) {
        if (!qdmtest::InSandbox()) GTEST_SKIP() << "needs the fixed system paths: run under sandbox/run";
        qdmtest::RemoveTree(kRoot);
        for (const char* ini : {"FcVCFac.ini", "CnaVCFac.ini"})
            qdmtest::WriteFile(kRoot + "/" + ini, qdmtest::ReadFile(std::string(QDM_SOURCE_DIR) + "/sim/data/" + ini));
        qdmtest::WriteFile(kRoot + "/qdmhost/devices.json",
                           qdmtest::ReadFile(std::string(QDM_SOURCE_DIR) + "/qdmhost/devices.json"));
        folder_ = qdmtest::MakeTempDir("e2e");
        repo_ = folder_ + "/repo";
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState(), simOptions).empty());
    }

    void TearDown() override {
        if (!folder_.empty()) qdmtest::RemoveTree(folder_);
    }

    // What a run may write outside the work area (kRoot + "/tmp"): the
    // host's trace logs and update history, and the simulator's state.
    std::vector<std::string> RunWrites() const {
        const std::string state = StatePath();
        return {kRoot + "/tmp", kRoot + "/log", kRoot + "/qdmhost/history.jsonl", state, state + ".calls",
                state + ".lock"};
    }

    // The simulated server's state file (qdmtest::InstallSimulator's).
    std::string StatePath() const { return folder_ + "/qdmsim-state.json"; }

    // The fixed system paths and this test's folder (repository included),
    // less RunWrites() and `alsoWritten`.
    qdmtest::TreeSnapshot SnapshotOutsideWorkArea(const std::vector<std::string>& alsoWritten = {}) const {
        std::vector<std::string> excluded = RunWrites();
        excluded.insert(excluded.end(), alsoWritten.begin(), alsoWritten.end());
        return qdmtest::TreeSnapshot::Take({"/etc", "/usr/sbin", "/opt", folder_}, excluded);
    }

    // Updates for the single-port 8G firmware and the 16G firmware, the
    // driver and the utility; the dual-port 8G firmware is already current.
    void BuildDemoRepository(const std::vector<std::string>& extraFirmwareOptions = {}) {
        qdmtest::WriteFile(repo_ + "/README", "demo repository\n");
        std::vector<std::string> fw8 = {"--firmware", "2.02a5", "--bootbios", "5.12a3", "--message"};
        std::vector<std::string> fw16 = {"--firmware", "11.4.204.8", "--message"};
        fw8.insert(fw8.end(), extraFirmwareOptions.begin(), extraFirmwareOptions.end());
        fw16.insert(fw16.end(), extraFirmwareOptions.begin(), extraFirmwareOptions.end());
        ASSERT_TRUE(qdmtest::BuildFirmwareModule(repo_ + "/fw-8g.zip", "fcelx_8g1p", fw8));
        ASSERT_TRUE(qdmtest::BuildFirmwareModule(repo_ + "/fw-16g.zip", "fcelx_16g", fw16));
        ASSERT_TRUE(qdmtest::BuildDriverModule(repo_ + "/lpfc.zip", "11.4.204.8"));
        ASSERT_TRUE(qdmtest::BuildUtilityModule(repo_ + "/ocm.zip", "11.4.204.8"));
        std::vector<std::string> all = {"fcelx_8g1p", kDualPortKey, "fcelx_16g"};
        WriteCatalogue({{"packages",
                         {{{"uniqueNames", {"fcelx_8g1p", kDualPortKey}}, {"kind", "firm"}, {"version", "2.02a5"},
                           {"archive", "fw-8g.zip"}},
                          {{"uniqueNames", {"fcelx_16g"}}, {"kind", "firm"}, {"version", "11.4.204.8"},
                           {"archive", "fw-16g.zip"}},
                          {{"uniqueNames", all}, {"kind", "driver"}, {"version", "11.4.204.8"}, {"archive", "lpfc.zip"}},
                          {{"uniqueNames", all}, {"kind", "util"}, {"version", "11.4.204.8"}, {"archive", "ocm.zip"}}}}});
    }

    void WriteCatalogue(const nlohmann::json& catalogue) {
        qdmtest::WriteFile(repo_ + "/catalogue.json", catalogue.dump(2));
    }

    HostRun Host(std::vector<std::string> args, int timeLimitSeconds = kHostTimeLimitSeconds) {
        args.insert(args.begin(), {"--repo", repo_});
        return RunHost(args, timeLimitSeconds);
    }

    // The results of an update document for one module kind, keyed by port address.
    static std::map<std::string, std::string> Outcomes(const nlohmann::json& update, const std::string& kind) {
        std::map<std::string, std::string> outcomes;
        for (const auto& result : update["results"])
            if (result["kind"] == kind)
                outcomes[result["deviceId"].get<std::string>().substr(0, 12)] = result["outcome"];
        return outcomes;
    }

    std::string folder_;
    std::string repo_;
};

}  // namespace e2e
