// Hostile update modules under a full qdmhost update: entries that climb out
// of the unpack folder, absolute names, and links to the outside.
#include <filesystem>

#include "Archive.h"
#include "FaultRun.h"

namespace {

using e2e::FaultTest;
using nlohmann::json;
using qdmtest::ArchiveEntry;

struct HostileModule {
    const char* name;
    bool tar;                          // written as a tar archive under the module's zip name
    std::vector<ArchiveEntry> extras;  // put before the module's own entries
    std::vector<std::string> targets;  // where they would land: must not exist afterwards
    const char* outcome;               // of the 16G firmware update
};

void PrintTo(const HostileModule& row, std::ostream* out) { *out << row.name; }

// The files of a built module as archive entries, named relative to its top.
std::vector<ArchiveEntry> ModuleEntries(const std::string& zip) {
    const std::string folder = qdmtest::MakeTempDir("module");
    std::vector<ArchiveEntry> entries;
    if (!qdmtest::UnpackModule(zip, folder)) return entries;
    for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
        if (!item.is_regular_file()) continue;
        bool executable =
            (item.status().permissions() & std::filesystem::perms::owner_exec) != std::filesystem::perms::none;
        entries.emplace_back(item.path().lexically_relative(folder).string(), qdmtest::ReadFile(item.path().string()),
                             executable);
    }
    qdmtest::RemoveTree(folder);
    return entries;
}

class HostileModuleTest : public FaultTest, public ::testing::WithParamInterface<HostileModule> {};

// The 16G firmware ends as the row says, nothing lands outside; utility, driver and 8G firmware update as usual.
TEST_P(HostileModuleTest, OnlyThisModuleIsAffected) {
    BuildDemoRepository();
    const std::string module = repo_ + "/fw-16g.zip";
    std::vector<ArchiveEntry> entries = GetParam().extras;
    for (ArchiveEntry& entry : ModuleEntries(module)) entries.push_back(std::move(entry));
    ASSERT_GT(entries.size(), GetParam().extras.size());
    ASSERT_TRUE(GetParam().tar ? qdmtest::MakeTar(module, entries) : qdmtest::MakeZip(module, entries));
    TakeBaseline({e2e::kDepmodOverride});

    e2e::HostRun update = Host({"--json", "update"});
    const bool updated = std::string(GetParam().outcome) == "updated";
    EXPECT_EQ(update.exitCode, updated ? 0 : 3) << update.err;
    const json document = update.Json();
    EXPECT_EQ(Outcomes(document, "firm")["0000:05:00.0"], GetParam().outcome);
    EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), updated ? "\"11.4.204.8\"" : "\"10.2.370.15\"");
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "driver")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "util")["0000:03:00.0"], "updated");
    for (const std::string& target : GetParam().targets) EXPECT_FALSE(qdmtest::Exists(target)) << target;
    ExpectNothingWrittenOutsideWorkArea();
}

// The firmware unpacks into <root>/tmp/EMULEX/temp/firm.
const std::string kClimbToRoot = "../../../../../../../../../..";

INSTANTIATE_TEST_SUITE_P(
    Entries, HostileModuleTest,
    ::testing::Values(
        HostileModule{
            "traversal", false, {{"../../etc/evil", "evil\n"}}, {e2e::kRoot + "/tmp/EMULEX/etc/evil"}, "failed"},
        HostileModule{"traversalToRoot", false, {{kClimbToRoot + "/etc/evil", "evil\n"}}, {"/etc/evil"}, "failed"},
        HostileModule{"absolute", false, {{"/etc/evil", "evil\n"}}, {"/etc/evil"}, "failed"},
        // A link to /etc, then a file through it.
        HostileModule{"symlink", false, {{"up", "", false, "/etc"}, {"up/evil", "evil\n"}}, {"/etc/evil"}, "failed"},
        HostileModule{"relativeSymlink",
                      false,
                      {{"up", "", false, kClimbToRoot + "/etc"}, {"up/evil", "evil\n"}},
                      {"/etc/evil"},
                      "failed"},
        // A hard link to a file of the install root, then a file written over it.
        HostileModule{"hardlink",
                      true,
                      {ArchiveEntry::HardLink("hard", e2e::kRoot + "/FcVCFac.ini"), {"hard", "evil\n"}},
                      {},
                      "failed"},
        // The same tar without links is unpacked: the hard link is what is refused.
        HostileModule{"tarWithoutLinks", true, {}, {}, "updated"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
