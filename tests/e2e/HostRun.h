#pragma once
// qdmhost run as the operator runs it (virtual time, so no poll is waited
// out) on the simulated demo server in the sandbox. Every process a test
// starts carries a marker in its environment, so that whatever outlives a
// run is found and killed; the trees outside the work area are compared
// with a baseline taken once the scene is set.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Sim.h"
#include "TestEnv.h"

namespace e2e {

using nlohmann::json;
using qdmtest::ShellQuote;

// The dual-port model writes its PCI ids below the standard root, so the
// tests use that root; the sandbox makes it private.
const std::string kRoot = "/opt/velmora/qdm/provider";
const std::map<std::string, std::string> kDemoWwpns = {
    {"0000:03:00.0", "10000000C9A10001"}, {"0000:04:00.0", "10000000C9B20001"}, {"0000:04:00.1", "10000000C9B20002"},
    {"0000:05:00.0", "10000090FAC30001"}, {"0000:05:00.1", "10000090FAC30002"}};

struct HostRun {
    int exitCode = -1;  // 137: killed at the time limit
    std::string out;    // standard output only
    std::string err;
    json Json() const { return json::parse(out); }
};

// A hanging run is killed after 60 s, so that no qdmhost outlives its test.
inline std::string HostCommandLine(const std::vector<std::string>& args) {
    std::string line = "QDMHOST_VIRTUAL_TIME=1 timeout -s KILL 60 " + ShellQuote(QDM_HOST_BINARY);
    for (const std::string& arg : args) line += " " + ShellQuote(arg);
    return line;
}

// The publisher's side of a signed repository, with the real minisign: a key
// pair made without a password (-W) and signatures made with it.
struct PublisherKey {
    std::string publicKey;  // <folder>/minisign.pub
    std::string secretKey;  // <folder>/minisign.key
};

// Standard input closed: minisign must never wait for a password.
inline bool Minisign(const std::string& arguments) {
    std::string output;
    const int status = qdmtest::RunShell("minisign " + arguments + " </dev/null", &output);
    EXPECT_EQ(status, 0) << "minisign " << arguments << ": " << output;
    return status == 0;
}

inline PublisherKey MakePublisherKey(const std::string& folder) {
    std::filesystem::create_directories(folder);
    const PublisherKey key{folder + "/minisign.pub", folder + "/minisign.key"};
    Minisign("-G -W -p " + ShellQuote(key.publicKey) + " -s " + ShellQuote(key.secretKey));
    return key;
}

// Writes file + ".minisig"; `options` such as "-l" (legacy signature) go before the file.
inline bool SignFile(const PublisherKey& key, const std::string& file, const std::string& options = "") {
    return Minisign("-S " + options + " -s " + ShellQuote(key.secretKey) + " -m " + ShellQuote(file));
}

inline size_t Occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++count;
    return count;
}

inline std::string PortAddress(const json& port) { return port["deviceId"].get<std::string>().substr(0, 12); }

// A port's WWPN and the statuses of its firmware, driver and utility, as one line.
inline std::string PortStatuses(const json& port) {
    std::string line = port["wwpn"].get<std::string>();
    for (const char* kind : {"firm", "driver", "util"})
        for (const json& module : port["modules"])
            if (module["kind"] == kind) line += " " + module["status"].get<std::string>();
    return line;
}

// The results of an update document for one module kind, keyed by port address.
inline std::map<std::string, std::string> Outcomes(const json& update, const std::string& kind) {
    std::map<std::string, std::string> outcomes;
    for (const json& result : update.value("results", json::array()))
        if (result["kind"] == kind) outcomes[PortAddress(result)] = result["outcome"];
    return outcomes;
}

// A fresh standard root with the supported-device lists and table, a
// publisher key that it trusts, and the demo server installed (a copy of its
// state: tools write to it).
class E2eTest : public ::testing::Test {
public:
    void SetUp() override {
        if (!qdmtest::InSandbox()) GTEST_SKIP() << "needs the fixed system paths: run under sandbox/run";
        ::setenv("QDMTEST_RUN", std::to_string(::getpid()).c_str(), 1);
        qdmtest::RemoveTree(kRoot);
        const std::string source = QDM_SOURCE_DIR;
        for (const char* ini : {"/FcVCFac.ini", "/CnaVCFac.ini"})
            qdmtest::WriteFile(kRoot + ini, qdmtest::ReadFile(source + "/provider/data" + ini));
        qdmtest::WriteFile(kRoot + "/qdmhost/devices.json", qdmtest::ReadFile(source + "/qdmhost/adapters/devices.json"));
        folder_ = qdmtest::MakeTempDir("e2e");
        repo_ = folder_ + "/repo";
        std::filesystem::create_directories(folder_ + "/out");  // the runs' outputs
        std::filesystem::create_directories(repo_);
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState()).empty());
        publisher_ = MakePublisherKey(folder_ + "/publisher");
        ASSERT_EQ(Run({"trust", "add", publisher_.publicKey}).exitCode, 0);
    }

    void TearDown() override {
        KillStartedProcesses();
        if (!folder_.empty()) qdmtest::RemoveTree(folder_);
    }

    HostRun Run(const std::vector<std::string>& args) const {
        HostRun run;
        run.exitCode = qdmtest::RunShell(HostCommandLine(args) + " 2>" + ShellQuote(folder_ + "/out/stderr"), &run.out);
        run.err = qdmtest::ReadFile(folder_ + "/out/stderr");
        // Every --json document goes to the folder that the schema check reads after the e2e tests.
        static int documents = 0;
        if (std::find(args.begin(), args.end(), "--json") != args.end())
            qdmtest::WriteFile(std::string(QDM_BINARY_DIR) + "/json-documents/" + std::to_string(::getpid()) + "-" +
                                   std::to_string(++documents) + ".json", run.out);
        return run;
    }

    HostRun Host(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--repo", repo_});
        return Run(args);
    }

    std::string StatePath() const { return folder_ + "/qdmsim-state.json"; }

    // Kills the live processes started by this test (qdmhost and whatever it ran); their command lines, a line each.
    std::string KillStartedProcesses() const {
        const std::string marker = std::string(1, '\0') + "QDMTEST_RUN=" + std::to_string(::getpid()) + '\0';
        std::string killed;
        std::error_code error;
        for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
            const std::string proc = it->path().string(), name = it->path().filename().string();
            if (name.find_first_not_of("0123456789") != std::string::npos || std::stoi(name) == ::getpid() ||
                ('\0' + qdmtest::ReadFile(proc + "/environ")).find(marker) == std::string::npos)
                continue;
            std::string line = qdmtest::ReadFile(proc + "/cmdline");
            std::replace(line.begin(), line.end(), '\0', ' ');
            killed += line + "\n";
            ::kill(std::stoi(name), SIGKILL);
        }
        return killed;
    }

    // Every entry below the fixed system paths and this test's folder but
    // `excluded_`: files by type, size and change time (a writer cannot set it
    // back), links by target (an update may put the same link again).
    std::map<std::string, std::string> SnapshotOutsideWorkArea() const {
        std::map<std::string, std::string> entries;
        for (const std::string& root : {std::string("/etc"), std::string("/usr/sbin"), std::string("/opt"), folder_}) {
            std::error_code error, ignored;
            for (std::filesystem::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
                const std::string path = it->path().string();
                struct stat info;
                if (std::find(excluded_.begin(), excluded_.end(), path) != excluded_.end())
                    it.disable_recursion_pending();
                else if (::lstat(path.c_str(), &info) == 0)  // a folder's entries are recorded one by one
                    entries[path] = S_ISDIR(info.st_mode) ? "folder"
                                    : S_ISLNK(info.st_mode) ? "link to " + std::filesystem::read_symlink(path, ignored).string()
                                    : std::to_string(info.st_mode) + " size " + std::to_string(info.st_size) + " changed " +
                                          std::to_string(info.st_ctim.tv_sec) + "." + std::to_string(info.st_ctim.tv_nsec);
            }
        }
        return entries;
    }

    // A run may write the work area, the host's logs, the runs' outputs and the
    // simulator's call log; with `update` also the simulated server, the history,
    // the accepted serials and the driver's depmod override.
    void TakeBaseline(bool update = false) {
        excluded_ = {kRoot + "/tmp", kRoot + "/log", folder_ + "/out", StatePath() + ".lock", StatePath() + ".calls",
                     StatePath() + ".tools"};
        if (update)
            excluded_.insert(excluded_.end(), {StatePath(), kRoot + "/qdmhost/history.jsonl",
                                               kRoot + "/qdmhost/accepted-serials.json", "/etc/depmod.d/elxlpfc.conf"});
        baseline_ = SnapshotOutsideWorkArea();
        ASSERT_GT(baseline_.size(), 100u) << "the snapshot missed the system folders";
    }

    // No process of this test lives on, nothing outside the work area changed since the baseline.
    void ExpectNothingLeftBehind() const {
        EXPECT_EQ(KillStartedProcesses(), "") << "processes outlived the run";
        std::map<std::string, std::string> now = SnapshotOutsideWorkArea(), before = baseline_;
        std::string changes;
        for (const auto& entry : before)
            if (now[entry.first] != entry.second) changes += entry.first + ": " + entry.second + " => " + now[entry.first] + "\n";
        for (const auto& entry : now)
            if (!before.count(entry.first)) changes += "added " + entry.first + "\n";
        EXPECT_EQ(changes, "");
    }

    // Updates for the single-port 8G firmware and the 16G firmware, the
    // driver and the utility, published with `options`; the dual-port 8G
    // firmware is already current.
    void BuildDemoRepository(const std::vector<std::string>& options = {}) const {
        const std::string dualPort = "fcelx_8g2p_10df_f100_10df_f100";
        ASSERT_TRUE(qdmtest::BuildFirmwareModule(repo_ + "/fw-8g.zip", "fcelx_8g1p",
                                                 {"--firmware", "2.02a5", "--bootbios", "5.12a3", "--message"}));
        ASSERT_TRUE(qdmtest::BuildFirmwareModule(repo_ + "/fw-16g.zip", "fcelx_16g", {"--firmware", "11.4.204.8", "--message"}));
        ASSERT_TRUE(qdmtest::BuildDriverModule(repo_ + "/lpfc.zip", "11.4.204.8"));
        ASSERT_TRUE(qdmtest::BuildUtilityModule(repo_ + "/ocm.zip", "11.4.204.8"));
        const json all = {"fcelx_8g1p", dualPort, "fcelx_16g"};
        const json packages = {
            {{"uniqueNames", {"fcelx_8g1p", dualPort}}, {"kind", "firm"}, {"version", "2.02a5"}, {"archive", "fw-8g.zip"},
             {"bootBios", "5.12a3"}},
            {{"uniqueNames", {"fcelx_16g"}}, {"kind", "firm"}, {"version", "11.4.204.8"}, {"archive", "fw-16g.zip"}},
            {{"uniqueNames", all}, {"kind", "driver"}, {"version", "11.4.204.8"}, {"archive", "lpfc.zip"}},
            {{"uniqueNames", all}, {"kind", "util"}, {"version", "11.4.204.8"}, {"archive", "ocm.zip"}}};
        qdmtest::WriteFile(repo_ + "/catalogue.json", json({{"packages", packages}}).dump(2));
        PublishCatalogue(options);
    }

    // As a publisher does: the sizes and hashes of the archives into the
    // catalogue as written, its serial and expiry (`options`, else the
    // catalogue's, else 1 and thirty days on), then minisign's signature with
    // the key the root trusts.
    void PublishCatalogue(const std::vector<std::string>& options = {}) const {
        ASSERT_TRUE(qdmtest::BuildCatalogue(repo_, options));
        ASSERT_TRUE(SignFile(publisher_, repo_ + "/catalogue.json"));
    }

    std::string folder_;
    std::string repo_;
    PublisherKey publisher_;
    std::vector<std::string> excluded_;
    std::map<std::string, std::string> baseline_;
};

// With --json, standard output holds one document naming the command and its exit code.
inline json Document(const e2e::HostRun& run, const std::string& command, int exitCode) {
    EXPECT_EQ(run.exitCode, exitCode) << command << " " << run.err;
    json document = json::parse(run.out, nullptr, false);
    EXPECT_EQ(document.value("command", "") + " " + document["exitCode"].dump(), command + " " + std::to_string(exitCode))
        << run.out;
    return document;
}

// A table of scenes, one test a row.
template <class Row>
class E2eTable : public E2eTest, public ::testing::WithParamInterface<Row> {};

}  // namespace e2e
