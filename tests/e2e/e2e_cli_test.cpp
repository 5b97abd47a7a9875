// qdmhost's own parsing in process: the repository catalogue, the PCI
// functions in sysfs, the supported-device table, exit codes, version verdicts and metric labels.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "repository/Repository.h"
#include "adapters/DeviceTable.h"
#include "adapters/Discovery.h"
#include "model/ExitCodes.h"
#include "model/HostError.h"
#include "render/Exposition.h"
#include "model/Vocabulary.h"
#include "adapters/PciSysfs.h"
#include "TestEnv.h"

namespace {

using nlohmann::json;

const json kGoodEntry = {{"uniqueNames", {"fcelx_16g", "fcelx_8g2p_10df_f100_10df_f100"}},
                         {"kind", "firm"}, {"version", "11.4.204.8"}, {"archive", "fw-16g.zip"},
                         {"sha256", std::string(64, 'a')}, {"size", 3}};

std::string CatalogueText(const std::vector<json>& packages, const json& serial = 1,
                          const json& expires = "2099-01-01T00:00:00Z") {
    return json{{"channel", "default"}, {"serial", serial}, {"expires", expires}, {"packages", packages}}.dump();
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
    // 0, no expiry, 30 February, no channel, a channel that is no name.
    for (const std::string& text : {std::string("{\"packages\": ["), json::array().dump(), CatalogueText({42}),
                                   json{{"packages", json::array()}}.dump(), json{{"channel", "a b"}, {"packages", json::array()}}.dump(),
                                   CatalogueText({kGoodEntry, kGoodEntry}), CatalogueText({kGoodEntry}, 0),
                                   CatalogueText({kGoodEntry}, 1, nullptr), CatalogueText({kGoodEntry}, 1, "2099-02-30T00:00:00Z")})
        EXPECT_EQ(ErrorCode(Parse, text), qdmcli::kExitRepository) << text;
    // A lab's unsigned catalogue may leave out serial, expiry, hashes and sizes.
    json bare = kGoodEntry;
    bare.erase("sha256");
    bare.erase("size");
    EXPECT_EQ(qdmcli::ParseCatalogue(json{{"channel", "lab"}, {"packages", {bare}}}.dump(), false).packages.size(), 1u);
}

// A function folder below `folder`: class, then vendor, device, subsystem vendor and device files (an empty text
// leaves the file out).
void WriteFunction(const std::string& folder, const std::vector<std::string>& texts) {
    const char* names[] = {"class", "vendor", "device", "subsystem_vendor", "subsystem_device"};
    for (std::size_t i = 0; i < texts.size(); ++i)
        if (!texts[i].empty()) qdmtest::WriteFile(folder + "/" + names[i], texts[i]);
}

TEST(Discovery, SysfsFunctionsAndDeviceTable) {
    namespace fs = std::filesystem;
    const std::string devices = qdmtest::MakeTempDir("sysfs") + "/devices";
    const std::vector<std::string> good = {"0x0c0400\n", "0x10df\n", "0xf100\n", "0x10df\n", "0xf100\n"};
    auto with = [&](std::size_t field, const std::string& text) {
        std::vector<std::string> texts = good;
        texts[field] = text;
        return texts;
    };
    // Found, out of order: a folder, a link to a folder elsewhere (as the kernel lists them), no line ends.
    WriteFunction(devices + "/0000:05:00.1", good);
    WriteFunction(devices + "/../elsewhere/0000:04:00.0", good);
    fs::create_directory_symlink("../elsewhere/0000:04:00.0", devices + "/0000:04:00.0");
    WriteFunction(devices + "/0000:04:00.1", {"0x0c0400", "0x10df", "0xe200", "0x10df", "0xe200"});
    // Skipped: another class, a file missing, garbage, huge values, upper case, a file of 1 MiB.
    WriteFunction(devices + "/0000:00:19.0", with(0, "0x020000\n"));
    WriteFunction(devices + "/0000:06:00.0", with(4, ""));
    WriteFunction(devices + "/0000:06:00.1", with(1, "0xzz;f\n"));
    WriteFunction(devices + "/0000:06:00.2", with(2, "0x10df00000000\n"));
    WriteFunction(devices + "/0000:06:00.3", with(0, "0x0c04000\n"));
    WriteFunction(devices + "/0000:06:00.4", with(3, "0x10DF\n"));
    WriteFunction(devices + "/0000:06:00.5", with(2, std::string(1 << 20, '0')));
    // Skipped: a file that is a link, a FIFO (must not block), a folder; names that are no address; a dangling
    // link and a link loop.
    WriteFunction(devices + "/0000:07:00.0", with(1, ""));
    fs::create_symlink(devices + "/0000:05:00.1/vendor", devices + "/0000:07:00.0/vendor");
    WriteFunction(devices + "/0000:07:00.1", with(2, ""));
    ASSERT_EQ(::mkfifo((devices + "/0000:07:00.1/device").c_str(), 0644), 0);
    WriteFunction(devices + "/0000:07:00.2", with(3, ""));
    fs::create_directories(devices + "/0000:07:00.2/subsystem_vendor");
    WriteFunction(devices + "/0000:07:00.8", good);
    WriteFunction(devices + "/0000:07:00.0x", good);
    WriteFunction(devices + "/0000:0A:00.0", good);
    fs::create_directory_symlink(devices + "/absent", devices + "/0000:08:00.0");
    fs::create_directory_symlink(devices + "/0000:09:00.0", devices + "/0000:09:00.0");
    std::string found;
    for (const qdmcli::PciFunction& function : qdmcli::ReadFibreChannelFunctions(devices))
        found += qdmcli::DeviceIdentifier(function) + " ";
    EXPECT_EQ(found, "0000:04:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF 0000:04:00.1-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF "
                     "0000:05:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF ");
    EXPECT_EQ(ErrorCode(qdmcli::ReadFibreChannelFunctions, devices + "/absent"), qdmcli::kExitNoDevice);
    qdmtest::RemoveTree(fs::path(devices).parent_path());
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

// Malformed versions are updated; a newer adapter only when a downgrade is allowed.
TEST(VersionStatus, PlansFollowTheStatus) {
    EXPECT_EQ(qdmcli::VersionStatus("abnormal", true, 0), "unreadable");  // 0 from a malformed text is not current
    const char* const rows[][3] = {{"unreadable", "update", "update"}, {"newer", "keep-newer", "downgrade"},
                                   {"current", "none", "none"}};
    for (const auto& row : rows)
        EXPECT_EQ(qdmcli::UpdatePlan(row[0], true, false) + qdmcli::UpdatePlan(row[0], true, true), std::string(row[1]) + row[2]);
    EXPECT_EQ(qdmcli::UpdatePlan("older", false, true), "none");  // nothing to update from
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
