// The repository catalogue: valid, broken and hostile entries.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "Catalogue.h"
#include "HostError.h"
#include "TestEnv.h"

namespace {

using nlohmann::json;

std::string Catalogue(const json& entry) { return json{{"packages", json::array({entry})}}.dump(); }

json GoodEntry() {
    return {{"uniqueNames", {"fcelx_16g", "fcelx_8g2p_10df_f100_10df_f100"}},
            {"kind", "firm"},
            {"version", "11.4.204.8"},
            {"archive", "fw-16g.zip"}};
}

int ErrorCode(const std::string& text) {
    try {
        qdmcli::ParseCatalogue(text);
    } catch (const qdmcli::HostError& error) {
        return error.code();
    }
    return 0;
}

TEST(Catalogue, ValidEntryIsMatchedByModelKeyAndKind) {
    qdmcli::Repository repository("/srv/repo", qdmcli::ParseCatalogue(Catalogue(GoodEntry())));
    CManageRepositoryInfo info;
    ASSERT_TRUE(repository.Find("fcelx_8g2p_10df_f100_10df_f100", "firm", &info));
    EXPECT_EQ(info.uniqueName, "fcelx_8g2p_10df_f100_10df_f100");
    EXPECT_EQ(info.moduleKind, "firm");
    EXPECT_EQ(info.version, "11.4.204.8");
    EXPECT_EQ(info.archivePath, "/srv/repo/fw-16g.zip");
    EXPECT_FALSE(repository.Find("fcelx_16g", "driver", &info));
    EXPECT_FALSE(repository.Find("fcelx_8g2p_", "firm", &info));
}

// Each row changes one field of a good entry into something that must be refused.
TEST(Catalogue, HostileOrBrokenEntriesAreRefused) {
    const std::pair<const char*, json> rows[] = {
        {"archive", "../etc/passwd"},          // leaves the repository
        {"archive", "sub/fw.zip"},             // not a plain name
        {"archive", "fw.zip; rm -rf /"},       // shell metacharacters
        {"archive", "$(reboot).zip"},          // command substitution
        {"archive", ".hidden.zip"},            // dot file
        {"archive", "-rf.zip"},                // option-like
        {"archive", ""},                       // empty
        {"version", "1.0 && reboot"},          // unsafe version
        {"version", "`id`"},                   // command substitution
        {"version", 11},                       // not a string
        {"kind", "bios"},                      // unknown kind
        {"uniqueNames", json::array()},        // serves nothing
        {"uniqueNames", {"fcelx_16g;x"}},      // unsafe unique name
        {"uniqueNames", "fcelx_16g"},          // not a list
    };
    for (const auto& row : rows) {
        json entry = GoodEntry();
        entry[row.first] = row.second;
        EXPECT_EQ(ErrorCode(Catalogue(entry)), qdmcli::kExitRepository) << row.first << " = " << row.second;
    }
}

TEST(Catalogue, BrokenDocumentsAreRefused) {
    EXPECT_EQ(ErrorCode("{\"packages\": ["), qdmcli::kExitRepository);
    EXPECT_EQ(ErrorCode("[]"), qdmcli::kExitRepository);
    EXPECT_EQ(ErrorCode("{\"packages\": [42]}"), qdmcli::kExitRepository);
    // Two firmware packages for one model key would make the choice arbitrary.
    json twice = {{"packages", {GoodEntry(), GoodEntry()}}};
    EXPECT_EQ(ErrorCode(twice.dump()), qdmcli::kExitRepository);
    EXPECT_EQ(ErrorCode("{\"packages\": []}"), 0);
}

TEST(Catalogue, LoadChecksArchivesAreRegularFilesOfTheFolder) {
    std::string folder = qdmtest::MakeTempDir("catalogue");
    qdmtest::WriteFile(folder + "/catalogue.json", Catalogue(GoodEntry()));
    EXPECT_THROW(qdmcli::Repository::Load(folder), qdmcli::HostError);  // archive missing
    ASSERT_EQ(::symlink("/etc/hostname", (folder + "/fw-16g.zip").c_str()), 0);
    EXPECT_THROW(qdmcli::Repository::Load(folder), qdmcli::HostError);  // a link may lead anywhere
    ::unlink((folder + "/fw-16g.zip").c_str());
    qdmtest::WriteFile(folder + "/fw-16g.zip", "zip");
    EXPECT_FALSE(qdmcli::Repository::Load(folder).empty());
    qdmtest::RemoveTree(folder);
}

}  // namespace
