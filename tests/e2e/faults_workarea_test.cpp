// A spoilt work area under a full qdmhost run: a full or read-only file
// system, and cache files that are not files.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "FaultRun.h"

namespace {

using e2e::FaultTest;
using nlohmann::json;

const std::string kWorkArea = e2e::kRoot + "/tmp";
const std::string kCache = kWorkArea + "/EMULEX/cache";

struct SpoiltWorkArea {
    const char* name;
    unsigned long mountFlags;
    bool filled;
    int updateExitCode;
    const char* updateError;  // text of qdmhost's error ("" when it reports results)
};

void PrintTo(const SpoiltWorkArea& row, std::ostream* out) { *out << row.name; }

// Writes zeros until the file system is full.
bool Fill(const std::string& folder) {
    int fd = ::open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const std::string block(4096, '\0');
    while (::write(fd, block.data(), block.size()) > 0) continue;
    bool full = errno == ENOSPC;
    ::close(fd);
    return full;
}

// A small tmpfs over the work area; the sandbox's mount namespace is private.
class SpoiltWorkAreaTest : public FaultTest, public ::testing::WithParamInterface<SpoiltWorkArea> {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        if (IsSkipped()) return;
        BuildDemoRepository();
        std::filesystem::create_directories(kWorkArea);
        ASSERT_EQ(::mount("qdmtest", kWorkArea.c_str(), "tmpfs", GetParam().mountFlags, "size=64k"), 0)
            << std::strerror(errno);
        mounted_ = true;
        if (GetParam().filled) {
            ASSERT_TRUE(Fill(kWorkArea));
        }
    }

    void TearDown() override {
        if (mounted_) ::umount2(kWorkArea.c_str(), MNT_DETACH);
        FaultTest::TearDown();
    }

    bool mounted_ = false;
};

// Inventory: exit 0, no port resolved; update: the row's code, nothing updated or changed, nothing written outside.
TEST_P(SpoiltWorkAreaTest, InventoryAndUpdateFailCleanly) {
    const json server = json::parse(qdmtest::ReadFile(StatePath()));
    TakeBaseline();
    e2e::HostRun inventory = Host({"--json", "inventory"});
    ASSERT_EQ(inventory.exitCode, 0) << inventory.err;
    ExpectNoPortResolved(inventory.Json());

    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, GetParam().updateExitCode) << update.err;
    const json document = update.Json();
    if (*GetParam().updateError) {
        EXPECT_NE(document["error"]["message"].get<std::string>().find(GetParam().updateError), std::string::npos)
            << update.out;
    }
    for (const json& result : document.value("results", json::array()))
        EXPECT_NE(result["outcome"], "updated") << result["deviceId"] << " " << result["kind"];
    EXPECT_EQ(json::parse(qdmtest::ReadFile(StatePath())), server);
    ExpectNothingWrittenOutsideWorkArea();
}

INSTANTIATE_TEST_SUITE_P(Mounts, SpoiltWorkAreaTest,
                         ::testing::Values(SpoiltWorkArea{"full", 0, true, 3, ""},
                                           // The update lock cannot be created: an internal error that names it.
                                           SpoiltWorkArea{"readonly", MS_RDONLY, false, 1,
                                                          "qdmhost.lock: Read-only file system"}),
                         [](const auto& info) { return std::string(info.param.name); });

enum class Blocker { Folder, OutsideLink, Fifo };

void PrintTo(Blocker blocker, std::ostream* out) {
    *out << (blocker == Blocker::Folder ? "folder" : blocker == Blocker::Fifo ? "fifo" : "link");
}

// Where the link blocker points: nothing may be written there.
const char kOutside[] = "/etc/qdmtest-outside";

struct CacheFile {
    const char* name;
    const char* port;  // the one port it concerns, nullptr: all of them
    std::vector<std::string> kinds;
};

void PrintTo(const CacheFile& row, std::ostream* out) { *out << row.name; }

// Something that is not a file where the provider keeps one of its cache files.
class UnreadableCacheTest : public FaultTest, public ::testing::WithParamInterface<std::tuple<Blocker, CacheFile>> {
protected:
    void Block(const std::string& path, Blocker blocker) {
        if (blocker == Blocker::Folder)
            qdmtest::WriteFile(path + "/inside", "");
        else if (blocker == Blocker::Fifo)
            ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0) << std::strerror(errno);
        else
            ASSERT_EQ(::symlink(kOutside, path.c_str()), 0) << std::strerror(errno);
    }

    static bool Concerns(const CacheFile& file, const json& port, const std::string& kind) {
        return (!file.port || e2e::PortAddress(port) == file.port) &&
               std::find(file.kinds.begin(), file.kinds.end(), kind) != file.kinds.end();
    }
};

// Exit 0 without hanging; what the entry concerns is recovered or unreadable, the rest reads; nothing written outside.
TEST_P(UnreadableCacheTest, InventoryRecoversOrFailsCleanly) {
    const auto& [blocker, file] = GetParam();
    std::filesystem::create_directories(kCache);
    Block(kCache + "/" + file.name, blocker);
    TakeBaseline();
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"}, 20);
    ASSERT_FALSE(run.KilledAtTimeLimit()) << "qdmhost hung";
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json inventory = run.Json();
    ASSERT_EQ(inventory["ports"].size(), e2e::kDemoWwpns.size());
    for (const json& port : inventory["ports"])
        for (const char* kind : {"firm", "driver", "util"}) {
            std::string status = e2e::ModuleStatus(port, kind);
            if (Concerns(file, port, kind) && status == "unreadable") continue;
            EXPECT_EQ(status, "no-package") << e2e::PortAddress(port) << " " << kind;
        }
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

const CacheFile kListing = {"Listhbas.txt", nullptr, {"firm", "driver"}};
const CacheFile kAttributes = {"HbaAttrib10-00-00-00-c9-a1-00-01.txt", "0000:03:00.0", {"firm", "driver"}};
const CacheFile kVersion = {"HbaVersion.txt", nullptr, {"util"}};

std::string CacheTestName(const ::testing::TestParamInfo<std::tuple<Blocker, CacheFile>>& info) {
    std::string name = std::get<1>(info.param).name;
    return name.substr(0, name.find_first_of("1.")) + (std::get<1>(info.param).port ? "OfOnePort" : "");
}

INSTANTIATE_TEST_SUITE_P(Folder, UnreadableCacheTest,
                         ::testing::Combine(::testing::Values(Blocker::Folder),
                                            ::testing::Values(kListing, kAttributes, kVersion)),
                         CacheTestName);

INSTANTIATE_TEST_SUITE_P(OutsideLink, UnreadableCacheTest,
                         ::testing::Combine(::testing::Values(Blocker::OutsideLink),
                                            ::testing::Values(kListing, kAttributes, kVersion)),
                         CacheTestName);

INSTANTIATE_TEST_SUITE_P(Fifo, UnreadableCacheTest,
                         ::testing::Combine(::testing::Values(Blocker::Fifo),
                                            ::testing::Values(kListing, kAttributes, kVersion)),
                         CacheTestName);

}  // namespace
