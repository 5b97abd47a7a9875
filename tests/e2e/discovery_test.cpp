// Discovery parsing: lspci lines, device identifiers, the supported-device table.
#include <gtest/gtest.h>

#include "Discovery.h"
#include "HostError.h"
#include "TestEnv.h"

namespace {

using qdmcli::ParseLspciLine;

TEST(LspciLine, WellFormedLineGivesAllFields) {
    auto function = ParseLspciLine(R"(0000:04:00.1 "0c04" "10DF" "f100" -r03 "10df" "F100")");
    ASSERT_TRUE(function);
    EXPECT_EQ(function->address, "0000:04:00.1");
    EXPECT_EQ(function->classCode, "0c04");
    EXPECT_EQ(qdmcli::DeviceIdentifier(*function), "0000:04:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF");
}

TEST(LspciLine, ProgIfOptionAndMissingRevisionAreAccepted) {
    EXPECT_TRUE(ParseLspciLine(R"(0000:00:1f.2 "0106" "8086" "a102" -r31 -p01 "17aa" "3102")"));
    EXPECT_TRUE(ParseLspciLine(R"(0000:05:00.0 "0c04" "10df" "e200" "10df" "e200")"));
}

// Every row is a line that must not reach a device identifier.
TEST(LspciLine, MalformedOrHostileLinesAreRejected) {
    const char* const rows[] = {
        "",                                                            // empty
        R"(04:00.1 "0c04" "10df" "f100" -r03 "10df" "f100")",          // no domain (-D missing)
        R"(0000:04:00.9 "0c04" "10df" "f100" -r03 "10df" "f100")",     // function beyond 7
        R"(0000:04:00.1 "0c04" "10df" "f100" -r03 "" "")",             // no subsystem ids
        R"(0000:04:00.1 "0c04" "10df" "f1000" -r03 "10df" "f100")",    // five hex digits
        R"(0000:04:00.1 "0c04" "10df" "f1;x" -r03 "10df" "f100")",     // shell metacharacter
        R"(0000:04:00.1 "0c04" "10df" "f100" -r03 "10df" "f100)",      // unbalanced quote
        R"(0000:04:00.1 "0c04" "10df" "f100" "10df" "f100" "0000")",   // one field too many
        R"(0000:0$:00.1 "0c04" "10df" "f100" -r03 "10df" "f100")",     // bad address
    };
    for (const char* row : rows) EXPECT_FALSE(ParseLspciLine(row)) << row;
}

TEST(LspciListing, OnlyFibreChannelFunctionsAreKept) {
    auto functions = qdmcli::FibreChannelFunctions(
        "0000:00:19.0 \"0200\" \"8086\" \"153a\" -r04 \"17aa\" \"2214\"\n"
        "garbage line\n"
        "0000:05:00.0 \"0c04\" \"10df\" \"e200\" -r10 \"10df\" \"e200\"\n");
    ASSERT_EQ(functions.size(), 1u);
    EXPECT_EQ(functions[0].address, "0000:05:00.0");
}

TEST(DeviceTable, LongestPrefixWins) {
    qdmcli::DeviceTable table = qdmcli::ParseDeviceTable(R"({"devices": [
        {"match": "PCI\\VEN_10DF&DEV_F100", "class": "CFC_EMULEX_8G_2P_Vendor"},
        {"match": "pci\\ven_10df&dev_f100&subsys_f11110df", "class": "CFC_EMULEX_8G_1P_Vendor"}]})");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF"), "CFC_EMULEX_8G_1P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF"), "CFC_EMULEX_8G_2P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_1077&DEV_2532&SUBSYS_01331077"), "");
}

TEST(DeviceTable, ShippedTableServesTheDemoAdapters) {
    qdmcli::DeviceTable table =
        qdmcli::ParseDeviceTable(qdmtest::ReadFile(std::string(QDM_SOURCE_DIR) + "/qdmhost/devices.json"));
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF"), "CFC_EMULEX_8G_1P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF"), "CFC_EMULEX_8G_2P_Vendor");
    EXPECT_EQ(qdmcli::LookupVendorClass(table, "PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF"), "CFC_EMULEX_16G_Vendor");
}

TEST(DeviceTable, BrokenTablesAreErrors) {
    const char* const rows[] = {
        "{",                                                                        // not JSON
        R"({"devices": {}})",                                                       // not a list
        R"({"devices": [{"match": "PCI\\VEN_10DF"}]})",                             // no class
        R"({"devices": [{"match": "PCI\\VEN_10DF", "class": "CFC_EMULEX_Vendor"}]})",  // class never built
        R"({"devices": [{"match": "VEN_10DF", "class": "CFC_EMULEX_16G_Vendor"}]})",   // not a PCI id
        R"({"devices": [{"match": "PCI\\VEN_10DF;rm", "class": "CFC_EMULEX_16G_Vendor"}]})",  // metacharacter
    };
    for (const char* row : rows) {
        try {
            qdmcli::ParseDeviceTable(row);
            ADD_FAILURE() << "accepted: " << row;
        } catch (const qdmcli::HostError& error) {
            EXPECT_EQ(error.code(), qdmcli::kExitNoDevice) << row;
        }
    }
}

}  // namespace
