// qdmhost's own parsing in process: the repository catalogue, lspci lines,
// the supported-device table, exit codes, version verdicts and metric labels.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

#include "repository/Repository.h"
#include "adapters/DeviceTable.h"
#include "adapters/Discovery.h"
#include "model/ExitCodes.h"
#include "model/HostError.h"
#include "render/Exposition.h"
#include "model/Vocabulary.h"

namespace {

using nlohmann::json;

const json kGoodEntry = {{"uniqueNames", {"fcelx_16g", "fcelx_8g2p_10df_f100_10df_f100"}},
                         {"kind", "firm"}, {"version", "11.4.204.8"}, {"archive", "fw-16g.zip"},
                         {"sha256", std::string(64, 'a')}, {"size", 3}};

std::string CatalogueText(const std::vector<json>& packages, const json& serial = 1,
                          const json& expires = "2099-01-01T00:00:00Z") {
    return json{{"serial", serial}, {"expires", expires}, {"packages", packages}}.dump();
}

qdmcli::Catalogue Parse(const std::string& text) { return qdmcli::ParseCatalogue(text); }

// The exit code a parser throws, 0 when it accepts the text.
template <class Parse>
int ErrorCode(Parse parse, const std::string& text) {
    try {
        parse(text);
    } catch (const qdmcli::HostError& error) {
        return error.code();
    }
    return 0;
}

TEST(Catalogue, EntriesAreCheckedAndFoundByModelKeyAndKind) {
    qdmcli::Repository repository("/srv/repo", Parse(CatalogueText({kGoodEntry})).packages);
    CManageRepositoryInfo info;
    ASSERT_TRUE(repository.Find("fcelx_8g2p_10df_f100_10df_f100", "firm", &info));
    EXPECT_EQ(info.uniqueName + " " + info.moduleKind + " " + info.version + " " + info.archivePath,
              "fcelx_8g2p_10df_f100_10df_f100 firm 11.4.204.8 /srv/repo/fw-16g.zip");
    EXPECT_FALSE(repository.Find("fcelx_16g", "driver", &info) || repository.Find("fcelx_8g2p_", "firm", &info));
    // Each row changes one field of the good entry into something refused.
    const std::pair<const char*, json> rows[] = {
        {"archive", "../etc/passwd"},     {"archive", "sub/fw.zip"},      {"archive", "-rf.zip"},  // option-like
        {"archive", ""},                  {"version", "1.0 && reboot"},   {"version", "`id`"},     // not alnum first
        {"version", 11},                  {"kind", "bios"},               {"uniqueNames", json::array()},
        {"uniqueNames", {"fcelx_16g;x"}}, {"sha256", std::string(64, 'A')}, {"sha256", "abc"},  // upper-case, short
        {"size", -1},                     {"size", "3"},
    };
    for (const auto& row : rows) {
        json entry = kGoodEntry;
        entry[row.first] = row.second;
        EXPECT_EQ(ErrorCode(Parse, CatalogueText({entry})), qdmcli::kExitRepository) << row.first << " = " << row.second;
    }
    // Not JSON, no list, an entry not an object, two firmware packages for one key (an arbitrary choice), serial
    // 0, no expiry, 30 February.
    for (const std::string& text : {std::string("{\"packages\": ["), json::array().dump(), CatalogueText({42}),
                                   CatalogueText({kGoodEntry, kGoodEntry}), CatalogueText({kGoodEntry}, 0),
                                   CatalogueText({kGoodEntry}, 1, nullptr), CatalogueText({kGoodEntry}, 1, "2099-02-30T00:00:00Z")})
        EXPECT_EQ(ErrorCode(Parse, text), qdmcli::kExitRepository) << text;
    // A lab's unsigned catalogue may leave out serial, expiry, hashes and sizes.
    json bare = kGoodEntry;
    bare.erase("sha256");
    bare.erase("size");
    EXPECT_EQ(qdmcli::ParseCatalogue(json{{"packages", {bare}}}.dump(), false).packages.size(), 1u);
}

TEST(Discovery, LspciLinesAndDeviceTable) {
    auto function = qdmcli::ParseLspciLine(R"(0000:04:00.1 "0c04" "10DF" "f100" -r03 "10df" "F100")");
    ASSERT_TRUE(function);
    EXPECT_EQ(qdmcli::DeviceIdentifier(*function), "0000:04:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF");
    EXPECT_TRUE(qdmcli::ParseLspciLine(R"(0000:05:00.0 "0c04" "10df" "e200" "10df" "e200")"));  // no revision
    for (const char* line : {
             R"(04:00.1 "0c04" "10df" "f100" -r03 "10df" "f100")",          // no domain (-D missing)
             R"(0000:04:00.9 "0c04" "10df" "f100" -r03 "10df" "f100")",     // function beyond 7
             R"(0000:04:00.1 "0c04" "10df" "f1;x" -r03 "10df" "f100")",     // shell metacharacter
             R"(0000:04:00.1 "0c04" "10df" "f100" -r03 "10df" "f100)",      // unbalanced quote
             R"(0000:04:00.1 "0c04" "10df" "f100" "10df" "f100" "0000")"})  // one field too many
        EXPECT_FALSE(qdmcli::ParseLspciLine(line)) << line;
    qdmcli::DeviceTable table = qdmcli::ParseDeviceTable(R"({"devices": [
        {"match": "PCI\\VEN_10DF&DEV_F100", "class": "CFC_EMULEX_8G_2P_Vendor"},
        {"match": "pci\\ven_10df&dev_f100&subsys_f11110df", "class": "CFC_EMULEX_8G_1P_Vendor"}]})");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF"), "CFC_EMULEX_8G_1P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF"), "CFC_EMULEX_8G_2P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_1077&DEV_2532&SUBSYS_01331077"), "");
    for (const char* broken : {
             R"({"devices": {}})",                                                         // not a list
             R"({"devices": [{"match": "PCI\\VEN_10DF"}]})",                               // no class
             R"({"devices": [{"match": "PCI\\VEN_10DF", "class": "CFC_EMULEX_Vendor"}]})", // class never built
             R"({"devices": [{"match": "PCI\\VEN_10DF;rm", "class": "CFC_EMULEX_16G_Vendor"}]})"})  // metacharacter
        EXPECT_EQ(ErrorCode(qdmcli::ParseDeviceTable, broken), qdmcli::kExitNoDevice) << broken;
}

TEST(ExitCodes, DistinctDocumentedAndTheWorseOutcomeWins) {
    using namespace qdmcli;
    std::set<int> codes;
    std::set<std::string> names;
    for (const auto& info : ExitCodeTable()) {
        EXPECT_TRUE(codes.insert(info.code).second && names.insert(info.name).second) << info.name;
        EXPECT_NE(ExitCodeHelp().find(info.meaning), std::string::npos) << info.name;
    }
    EXPECT_EQ(codes.size(), 13u);
    EXPECT_STREQ(DescribeExitCode(99).name, "internal-error");
    const int rows[][3] = {{kExitOk, kExitRefused, kExitRefused},
                           {kExitRefused, kExitApplyCheck, kExitApplyCheck},
                           {kExitApplyCheck, kExitUpdateFailed, kExitUpdateFailed},
                           {kExitUpdateFailed, kExitRefused, kExitUpdateFailed},
                           {kExitMissingComponent, kExitRefused, kExitMissingComponent},
                           {kExitUpdateFailed, kExitInterrupted, kExitInterrupted}};  // a stop outranks a failure
    for (const auto& row : rows) EXPECT_EQ(WorseExitCode(row[0], row[1]), row[2]) << row[0] << " " << row[1];
}

// Older, current, no package and unreadable show end to end; these verdicts do not.
TEST(VersionStatus, NewerAndMalformedVersionsAreUpdated) {
    EXPECT_EQ(qdmcli::VersionStatus("2.02a6", true, -1), "newer");  // brought back to the repository's version
    EXPECT_EQ(qdmcli::VersionStatus("abnormal", true, 0), "unreadable");  // 0 from a malformed text is not current
    EXPECT_TRUE(qdmcli::StatusNeedsUpdate("newer") && qdmcli::StatusNeedsUpdate("unreadable"));
    EXPECT_FALSE(qdmcli::StatusNeedsUpdate("current") || qdmcli::StatusNeedsUpdate("no-package"));
}

// Label values as the exposition format quotes them; every other byte passes as it is.
TEST(Metrics, LabelValuesAreEscaped) {
    const std::pair<std::string, std::string> rows[] = {
        {"10000000C9A10001", "10000000C9A10001"},
        {R"(10:00:"q)", R"(10:00:\"q)"},                 // double quote
        {R"(5.12\a3)", R"(5.12\\a3)"},                  // backslash
        {"2.02\na5", R"(2.02\na5)"},                      // line feed
        {"\\\"\n", R"(\\\"\n)"},                       // all three in a row
        {"tab\t cr\r \xc3\xa9 \\n", "tab\t cr\r \xc3\xa9 \\\\n"},  // other controls, UTF-8, a backslash before n
        {"5.12\xff\xc3" "a3", "5.12\xef\xbf\xbd\xef\xbf\xbd" "a3"},  // not UTF-8: a stray byte, a cut sequence
        {"", ""},
    };
    for (const auto& [value, escaped] : rows) EXPECT_EQ(qdmcli::EscapeLabelValue(value), escaped) << value;
}

}  // namespace
