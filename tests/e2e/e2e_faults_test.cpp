// Faults under full qdmhost runs: a misbehaving adapter tool, a large
// server, hostile update modules, a spoilt work area or cache, updates that
// meet or are killed. Whatever happens, no tool is left running and nothing
// outside the work area changes.
#include <fcntl.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <tuple>

#include "Archive.h"
#include "HostRun.h"

namespace {

using e2e::E2eTest;
using e2e::json;
using e2e::Outcomes;
using qdmtest::ArchiveEntry;

// Listing mode and tool runs per failed listing: 5 for an answer that is
// retried, 1 for an error and for a hang (the 60 s time-out, 600 ms under
// virtual time, kills it); 0: the tool crashes half-way, what it printed counts.
using ListingFault = e2e::E2eTable<std::pair<const char*, size_t>>;

TEST_P(ListingFault, InventoryEndsWithUnresolvedPorts) {
    const auto [mode, runs] = GetParam();
    ASSERT_TRUE(qdmtest::SimFault("listhbas", mode));
    TakeBaseline();
    e2e::HostRun run = Run({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json ports = run.Json()["ports"];
    ASSERT_EQ(ports.size(), e2e::kDemoWwpns.size());
    size_t resolved = 0;
    for (const json& port : ports) {
        // Resolved: its WWPN and no package; else no WWPN, firmware and driver unreadable.
        const std::string wwpn = e2e::kDemoWwpns.at(e2e::PortAddress(port));
        const bool known = port["wwpn"] == wwpn;
        const std::string status = known ? " no-package" : " unreadable";
        resolved += known;
        EXPECT_EQ(e2e::PortStatuses(port), (known ? wwpn : "") + status + status + " no-package");
    }
    const size_t failed = e2e::Occurrences(run.err, "message MSGID_EMULEXCOMMON_0001_F");
    EXPECT_EQ(std::to_string(failed > 0) + std::to_string(resolved == 0), runs > 0 ? "11" : "00") << run.err;
    EXPECT_LT(resolved, ports.size());
    EXPECT_EQ(runs ? qdmtest::SimCallCount("listhbas") : 0u, runs * failed);
    ExpectNothingLeftBehind();
}

INSTANTIATE_TEST_SUITE_P(Modes, ListingFault,
                         ::testing::Values(std::make_pair("hang", 1u), std::make_pair("error", 1u),
                                           std::make_pair("error64", 5u), std::make_pair("empty", 5u),
                                           std::make_pair("garbage", 5u), std::make_pair("garbage10m", 5u),
                                           std::make_pair("crash", 0u)),
                         [](const auto& info) { return std::string(info.param.first); });

// 32 dual-port 16G adapters: 64 ports from one listing, one attribute query a port and one version query.
TEST_F(E2eTest, SixtyFourPortsTakeOneListingAndOneQueryPerPort) {
    json server = json::parse(qdmtest::DemoState()), adapter = server["adapters"][2];
    server["adapters"] = json::array();
    char text[64];
    for (int a = 0; a < 32; ++a) {
        std::snprintf(text, sizeof text, "0000:%02x:00", 3 + a);
        adapter["slot"] = text;
        adapter["serial"] = "FC16" + std::to_string(100000 + a);
        for (int p = 0; p < 2; ++p) {
            std::snprintf(text, sizeof text, "10:00:00:90:fa:00:%02x:%02x", a, p);
            adapter["ports"][p]["wwpn"] = text;
        }
        server["adapters"].push_back(adapter);
    }
    ASSERT_FALSE(qdmtest::InstallSimulator(folder_, server.dump()).empty());
    qdmtest::SimResetCalls();
    TakeBaseline();
    e2e::HostRun run = Run({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json ports = run.Json()["ports"];
    ASSERT_EQ(ports.size(), 64u);
    for (size_t i = 0; i < 64; ++i) {
        std::snprintf(text, sizeof text, "10000090FA00%02zX%02zX", i / 2, i % 2);
        EXPECT_EQ(e2e::PortStatuses(ports[i]), text + std::string(" no-package no-package no-package"));
    }
    EXPECT_EQ(std::to_string(qdmtest::SimCallCount("listhbas")) + " " + std::to_string(qdmtest::SimCallCount("version")) +
                  " " + std::to_string(qdmtest::SimCallCount("HbaAttributes")), "1 1 64");
    ExpectNothingLeftBehind();
}

struct HostileModule {
    const char* name;
    bool tar;                          // written as a tar archive under the module's zip name
    std::vector<ArchiveEntry> extras;  // put before the module's own entries
    bool updated;                      // the 16G firmware update still succeeds
};

void PrintTo(const HostileModule& row, std::ostream* out) { *out << row.name; }

using HostileModuleTest = e2e::E2eTable<HostileModule>;

// The 16G firmware fails (or not), nothing lands outside; utility, driver and 8G firmware update as usual.
TEST_P(HostileModuleTest, OnlyThisModuleIsAffected) {
    BuildDemoRepository();
    const std::string module = repo_ + "/fw-16g.zip", unpacked = folder_ + "/out/module";
    std::vector<ArchiveEntry> entries = GetParam().extras;
    ASSERT_TRUE(qdmtest::UnpackModule(module, unpacked));
    for (const auto& item : std::filesystem::recursive_directory_iterator(unpacked))
        if (item.is_regular_file())
            entries.emplace_back(item.path().lexically_relative(unpacked).string(),
                                 qdmtest::ReadFile(item.path().string()), ::access(item.path().c_str(), X_OK) == 0);
    ASSERT_TRUE(GetParam().tar ? qdmtest::MakeTar(module, entries) : qdmtest::MakeZip(module, entries));
    PublishCatalogue();  // a hostile module signed all the same: what the provider must withstand
    TakeBaseline(true);
    const json document = Host({"--json", "update"}).Json();
    EXPECT_EQ(document["exitCode"].dump() + " " + Outcomes(document, "firm")["0000:05:00.0"] + " " +
                  qdmtest::SimGet("/adapters/2/firmware"),
              GetParam().updated ? "0 updated \"11.4.204.8\"" : "3 failed \"10.2.370.15\"");
    for (const char* kind : {"firm", "driver", "util"})
        EXPECT_EQ(Outcomes(document, kind)["0000:03:00.0"], "updated") << kind;
    EXPECT_FALSE(qdmtest::Exists("/etc/evil"));
    ExpectNothingLeftBehind();
}

// The firmware unpacks into <root>/tmp/EMULEX/temp/firm.
const std::string kClimbToRoot = "../../../../../../../../../..";

INSTANTIATE_TEST_SUITE_P(
    Entries, HostileModuleTest,
    ::testing::Values(HostileModule{"traversal", false, {{kClimbToRoot + "/etc/evil", "evil\n"}}, false},
                      HostileModule{"absolute", false, {{"/etc/evil", "evil\n"}}, false},
                      // A link to /etc, then a file through it.
                      HostileModule{"symlink", false, {{"up", "", false, "/etc"}, {"up/evil", "evil\n"}}, false},
                      HostileModule{"relativeSymlink", false,
                                    {{"up", "", false, kClimbToRoot + "/etc"}, {"up/evil", "evil\n"}}, false},
                      // A hard link to a file of the install root, then a file written over it.
                      HostileModule{"hardlink", true,
                                    {ArchiveEntry::HardLink("hard", e2e::kRoot + "/FcVCFac.ini"), {"hard", "x"}}, false},
                      // The same tar without links is unpacked: the hard link is what is refused.
                      HostileModule{"tarWithoutLinks", true, {}, true}),
    [](const auto& info) { return std::string(info.param.name); });

// A small tmpfs over the work area (the sandbox's mount namespace is
// private), filled up or read-only. Inventory: exit 0, no port resolved;
// update: nothing updated, an internal error (1): no lock file, or no room
// to stage the archives.
using SpoiltWorkArea = e2e::E2eTable<bool>;

TEST_P(SpoiltWorkArea, InventoryAndUpdateFailCleanly) {
    const bool readOnly = GetParam();
    const std::string workArea = e2e::kRoot + "/tmp";
    BuildDemoRepository();
    std::filesystem::create_directories(workArea);
    ASSERT_EQ(::mount("qdmtest", workArea.c_str(), "tmpfs", readOnly ? MS_RDONLY : 0, "size=64k,mode=0700"), 0)
        << std::strerror(errno);
    const int filler = readOnly ? -1 : ::open((workArea + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    while (filler >= 0 && ::write(filler, std::string(4096, '\0').data(), 4096) > 0) continue;
    ASSERT_TRUE(readOnly || (errno == ENOSPC && ::close(filler) == 0));
    TakeBaseline();
    const json inventory = Host({"--json", "inventory"}).Json();
    EXPECT_EQ(inventory["exitCode"], 0);
    ASSERT_EQ(inventory["ports"].size(), e2e::kDemoWwpns.size());
    for (const json& port : inventory["ports"])
        EXPECT_EQ(e2e::PortStatuses(port), " unreadable unreadable unreadable") << e2e::PortAddress(port);
    const json update = Host({"--json", "update"}).Json();
    EXPECT_EQ(update["exitCode"], 1) << update;
    EXPECT_NE(update.dump().find(readOnly ? "qdmhost.lock: Read-only file system" : "No space left on device"),
              std::string::npos) << update;
    for (const json& result : update.value("results", json::array())) EXPECT_NE(result["outcome"], "updated");
    ExpectNothingLeftBehind();
    ::umount2(workArea.c_str(), MNT_DETACH);
}

INSTANTIATE_TEST_SUITE_P(Mounts, SpoiltWorkArea, ::testing::Values(false, true),
                         [](const auto& info) { return std::string(info.param ? "readonly" : "full"); });

// Something that is not a file (a folder, a FIFO, a link out of the work
// area) where the provider keeps a cache file: the inventory ends without
// hanging, what the entry concerns is read again or unreadable, the rest reads.
using CacheBlocker = e2e::E2eTable<std::tuple<char, const char*>>;

TEST_P(CacheBlocker, InventoryRecoversOrFailsCleanly) {
    const auto [blocker, file] = GetParam();
    const std::string path = e2e::kRoot + "/tmp/EMULEX/cache/" + file;
    qdmtest::WriteFile(path + (blocker == 'd' ? "/inside" : ""), "");
    if (blocker != 'd') ::unlink(path.c_str());
    const int made = blocker == 'p'   ? ::mkfifo(path.c_str(), 0644)
                     : blocker == 'l' ? ::symlink("/etc/qdmtest-outside", path.c_str())
                                      : 0;
    ASSERT_EQ(made, 0) << std::strerror(errno);
    TakeBaseline();
    e2e::HostRun run = Run({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json ports = run.Json()["ports"];
    ASSERT_EQ(ports.size(), e2e::kDemoWwpns.size());
    // A folder leaves what it concerns unreadable; a FIFO or a link is replaced and read again. The listing (its
    // WWPN) and the attributes (one port's) give firmware and driver, the version query the utility.
    const std::string name = file;
    for (const json& port : ports) {
        const std::string address = e2e::PortAddress(port);
        const bool lost = blocker == 'd' && (name == "Listhbas.txt" ||
                                             (name != "HbaVersion.txt" && address == "0000:03:00.0"));
        const std::string firmware = lost ? " unreadable" : " no-package";
        const std::string utility = blocker == 'd' && name == "HbaVersion.txt" ? " unreadable" : " no-package";
        EXPECT_EQ(e2e::PortStatuses(port),
                  (lost && name == "Listhbas.txt" ? "" : e2e::kDemoWwpns.at(address)) + firmware + firmware + utility);
    }
    ExpectNothingLeftBehind();
}

INSTANTIATE_TEST_SUITE_P(Files, CacheBlocker,
                         ::testing::Combine(::testing::Values('d', 'p', 'l'),
                                            ::testing::Values("Listhbas.txt", "HbaAttrib10-00-00-00-c9-a1-00-01.txt",
                                                              "HbaVersion.txt")));

class ConcurrentUpdate : public E2eTest {
protected:
    // Every module updated once, whatever met it.
    void ExpectDemoUpdated() {
        EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware") + qdmtest::SimGet("/adapters/2/firmware") +
                      qdmtest::SimGet("driverVersion") + qdmtest::SimGet("utilityVersion"),
                  "\"2.02a5\"\"11.4.204.8\"\"11.4.204.8\"\"11.4.204.8\"");
        EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 1u);
        ExpectNothingLeftBehind();
    }
};

// One run updates, the other meets the lock (6) or finds nothing to do; each of the 3 images is downloaded once.
TEST_F(ConcurrentUpdate, TwoUpdatesAtOnceUpdateOnce) {
    BuildDemoRepository();
    TakeBaseline(true);
    const std::string run =
        e2e::HostCommandLine({"--json", "--repo", repo_, "update"}) + " </dev/null 2>/dev/null >" + folder_ + "/out/";
    ASSERT_EQ(qdmtest::RunShell(run + "1 & " + run + "2 & wait"), 0);
    std::map<std::string, int> seen;  // per exit code and error, and per outcome: its count over both runs
    for (const char* name : {"1", "2"}) {
        const json document = json::parse(qdmtest::ReadFile(folder_ + "/out/" + name));
        ++seen[std::to_string(document["exitCode"].get<int>()) +
               document.value("error", json::object()).value("name", "")];
        for (const json& result : document.value("results", json::array())) ++seen[result["outcome"]];
    }
    // At least one run succeeds; 4 updated: utility, driver, two firmware images.
    EXPECT_EQ(std::to_string(seen["0"] >= 1) + " " + std::to_string(seen["0"] + seen["6lock-busy"]) + " " +
                  std::to_string(seen["updated"]), "1 2 4") << json(seen);
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 3u);
    ExpectDemoUpdated();
}

// Killed mid-download: the lock lives on with the orphaned tool (no second update may flash that adapter
// meanwhile); once the tool is gone the next update completes despite the leftovers.
TEST_F(ConcurrentUpdate, UpdateKilledDuringDownloadIsRecoveredByTheNextRun) {
    BuildDemoRepository();
    ASSERT_TRUE(qdmtest::SimFault("Download", "hang"));
    TakeBaseline(true);
    ASSERT_EQ(qdmtest::RunShell("QDMHOST_VIRTUAL_TIME=1 " + qdmtest::ShellQuote(QDM_HOST_BINARY) + " --repo " + repo_ +
                                " update </dev/null >/dev/null 2>&1 & for i in $(seq 1000); do [ \"$(" QDM_SIM_BINARY
                                " calls Download)\" = 0 ] || break; sleep 0.02; done; kill -9 $!; wait $!; ! flock -n " +
                                e2e::kRoot + "/tmp/qdmhost.lock true"),
              0);
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 1u);
    const std::string left = "\n" + KillStartedProcesses();
    EXPECT_NE(left.find("\n/usr/sbin/ocmanager/hbacmd Download"), std::string::npos) << left;
    for (int i = 0; i < 500 && !KillStartedProcesses().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(qdmtest::SimFault("Download", "off"));
    EXPECT_EQ(Host({"--json", "update"}).Json()["exitCode"], 0);
    ExpectDemoUpdated();
}

}  // namespace
