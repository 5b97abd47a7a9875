// Supported-device lists and the mapping of PCI devices to listing records.
#include <gtest/gtest.h>

#include <list>
#include <map>
#include <sstream>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace {

using Record = std::map<std::string, std::string>;

std::string Golden(const std::string& name) { return qdmtest::ReadFile(std::string(QDM_GOLDEN_DIR) + "/" + name); }

class DiscoveryTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        qdmtest::HostTest::SetUp();
        CEmulexCommon::SetLastError(0);
    }
    void UseListing(const std::string& golden) { qdmtest::WriteFile(cache_ + "/Listhbas.txt", Golden(golden)); }
    void UseIni(const std::string& name) { qdmtest::WriteFile(root_ + "/" + name, Golden("ini/" + name)); }
};

TEST_F(DiscoveryTest, TwoPortsGiveTwoRecordsInFileOrder) {
    UseListing("listhbas/two_ports.txt");
    std::list<Record> adapters = {{{"stale", "entry"}}};
    ASSERT_TRUE(CEmulexCommon::GetHBAInfoList(&adapters));
    ASSERT_EQ(2u, adapters.size());
    const Record first = {{"Port WWN", "10:00:00:00:c9:12:34:56"}, {"Port Number", "0"},
                          {"PCI Bus Number", "3"},                 {"PCI Function", "0"},
                          {"Port Type", "FC"},                     {"Serial No.", "FC10000001"}};
    EXPECT_EQ(first, adapters.front());
    EXPECT_EQ("10:00:00:00:c9:12:34:57", adapters.back().at("Port WWN"));
    EXPECT_EQ("1", adapters.back().at("PCI Function"));
}

TEST_F(DiscoveryTest, PermanentMacStandsInForAMissingWwn) {
    qdmtest::WriteFile(cache_ + "/Listhbas.txt",
                       "Permanent MAC  : 00-00-c9-12-34-56\nPort Number    : 0\nPCI Bus Number : 7\n");
    std::list<Record> adapters;
    ASSERT_TRUE(CEmulexCommon::GetHBAInfoList(&adapters));
    ASSERT_EQ(1u, adapters.size());
    // Keys stop at the first one missing: three of six here.
    const Record expected = {{"Permanent MAC", "00-00-c9-12-34-56"}, {"Port Number", "0"}, {"PCI Bus Number", "7"}};
    EXPECT_EQ(expected, adapters.front());
}

TEST_F(DiscoveryTest, ListFailures) {
    std::list<Record> adapters = {{{"stale", "entry"}}};
    EXPECT_FALSE(CEmulexCommon::GetHBAInfoList(&adapters));  // no listing file: the open error stays
    EXPECT_TRUE(adapters.empty());
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());

    qdmtest::WriteFile(cache_ + "/Listhbas.txt", "\nNo HBAs found\n");
    EXPECT_FALSE(CEmulexCommon::GetHBAInfoList(&adapters));
    EXPECT_EQ(15u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("CEmulexCommon::GetHBAInfoList(NG) [END]"));

    EXPECT_FALSE(CEmulexCommon::GetHBAInfoList(nullptr));
    EXPECT_EQ(1u, CEmulexCommon::GetLastError());
}

TEST_F(DiscoveryTest, DeviceIsMatchedByBusAndListingNumbering) {
    struct Row {
        const char* listing;
        const char* deviceId;
        const char* wwpn;
    } rows[] = {
        {"listhbas/two_ports.txt", "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "10:00:00:00:c9:12:34:56"},
        {"listhbas/two_ports.txt", "0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "10:00:00:00:c9:12:34:57"},
        // Functions below 8 on the bus: numbered device * 2 + function.
        {"listhbas/low_functions.txt", "0000:05:01.0-PCI\\VEN_10DF&DEV_F100", "10:00:00:00:c9:50:01:00"},
        {"listhbas/low_functions.txt", "0000:05:01.1-PCI\\VEN_10DF&DEV_F100", "10:00:00:00:c9:50:01:01"},
        // A function of 8 or more on the bus: numbered device * 8 + function.
        {"listhbas/high_functions.txt", "0000:04:01.0-PCI\\VEN_10DF&DEV_E200", "10:00:00:90:fa:40:01:00"},
        {"listhbas/high_functions.txt", "0000:04:00.1-PCI\\VEN_10DF&DEV_E200", "10:00:00:90:fa:40:00:01"},
        // Bus 12 shows function 8, but only one bus digit is read: the multiplier stays 2.
        {"listhbas/bus_twelve.txt", "0000:0c:01.0-PCI\\VEN_10DF&DEV_F100", "10:00:00:00:c9:c0:00:02"},
    };
    for (const Row& row : rows) {
        UseListing(row.listing);
        Record adapter = {{"stale", "entry"}};
        ASSERT_TRUE(CEmulexCommon::GetHBAInfo(row.deviceId, &adapter)) << row.deviceId;
        EXPECT_EQ(row.wwpn, adapter["Port WWN"]) << row.deviceId;
        EXPECT_EQ(0u, adapter.count("stale"));
    }
}

TEST_F(DiscoveryTest, DeviceLookupFailures) {
    struct Row {
        const char* listing;  // null: no listing file
        const char* deviceId;
        unsigned long error;
    } rows[] = {
        {"listhbas/two_ports.txt", "0000:03:00.2-PCI\\VEN_10DF&DEV_F100", 14},  // no such function
        {"listhbas/two_ports.txt", "0000:06:00.0-PCI\\VEN_10DF&DEV_F100", 14},  // no such bus
        {"listhbas/two_ports.txt", "PCI\\VEN_10DF&DEV_F100", 13},               // no PCI address
        {"listhbas/two_ports.txt", "0000:zz:00.0-PCI\\VEN_10DF&DEV_F100", 13},
        {nullptr, "0000:03:00.0-PCI\\VEN_10DF&DEV_F100", 17},               // no listing
    };
    for (const Row& row : rows) {
        qdmtest::RemoveTree(cache_ + "/Listhbas.txt");
        if (row.listing) UseListing(row.listing);
        CEmulexCommon::SetLastError(0);
        Record adapter = {{"stale", "entry"}};
        EXPECT_FALSE(CEmulexCommon::GetHBAInfo(row.deviceId, &adapter)) << row.deviceId;
        EXPECT_EQ(row.error, CEmulexCommon::GetLastError()) << row.deviceId;
        EXPECT_TRUE(adapter.empty()) << row.deviceId;
    }
    EXPECT_FALSE(CEmulexCommon::GetHBAInfo("0000:03:00.0-PCI\\VEN_10DF&DEV_F100", nullptr));
    EXPECT_EQ(1u, CEmulexCommon::GetLastError());
}

TEST(ParseHBAListing, RecordKIsTheKthKeyLineOrTheNextWithAValue) {
    const std::string pad(120, 'x');
    struct Row {
        std::string listing;
        std::list<Record> records;
    } rows[] = {
        // A key line without a value takes the next line's value; both indexes see it.
        {"Port WWN :\nPort WWN : A\n", {{{"Port WWN", "A"}}, {{"Port WWN", "A"}}}},
        // The last key line has no value: no record for it.
        {"Port WWN : A\nPort WWN :\n", {{{"Port WWN", "A"}}}},
        // A NUL ends the line as the tool's C reader sees it.
        {std::string("x") + '\0' + "Port WWN : A\nPort WWN : B\n", {{{"Port WWN", "B"}}}},
        // A key cut by the 127-character piece boundary is not seen.
        {pad + "Port WWN : A\nPort WWN : B\n", {{{"Port WWN", "B"}}}},
        // Keys stop at the first one missing for that index.
        {"Port WWN : A\nPort Number : 0\nPort WWN : B\n",
         {{{"Port WWN", "A"}, {"Port Number", "0"}}, {{"Port WWN", "B"}}}},
        {"", {}},
    };
    for (const Row& row : rows) {
        std::istringstream listing(row.listing);
        EXPECT_EQ(row.records, CEmulexCommon::ParseHBAListing(listing)) << row.listing;
    }
}

TEST(ParseHBAListing, StopsAt256Records) {
    std::string listing;
    for (int port = 0; port < 300; ++port) listing += "Port WWN       : " + std::to_string(port) + "\n";
    std::istringstream in(listing);
    const std::list<Record> records = CEmulexCommon::ParseHBAListing(in);
    ASSERT_EQ(256u, records.size());
    EXPECT_EQ("255", records.back().at("Port WWN"));
}

TEST(ListingFunctionMultiplier, ReadsOnlyWhatTheLinesHold) {
    const std::string longLine(200, 'x');
    struct Row {
        std::string listing;
        int bus;
        int multiplier;
    } rows[] = {
        {"PCI Bus Number : 4\nPCI Function   : 9\n", 4, 8},
        {"PCI Bus Number : 4\nPCI Function   : 10\n", 4, 8},   // two digits read
        {"PCI Bus Number : 4\nPCI Function   : 7\n", 4, 2},
        {"PCI Bus Number : 4\nPCI Function   : 9\n", 3, 2},    // another bus
        {"PCI Bus Number : 14\nPCI Function   : 9\n", 1, 8},   // "14" reads as bus 1, deliberately
        {"PCI Bus Number : 4\nPort Type      : FC\nPCI Function   : 9\n", 4, 2},  // only the next line
        {"PCI Bus Number : 4\nPCI Function   :\n", 4, 2},      // short function line
        {"PCI Bus Number :\nPCI Function   : 9\n", 0, 2},      // short bus line
        {"PCI Bus Number : x\nPCI Function   : 9\n", 0, 2},    // garbage bus
        {"PCI Bus Number : 4\nPCI Function   : x9\n", 4, 2},   // garbage function
        {"PCI Bus Number : 4", 4, 2},                          // ends after the bus line
        // A long line is read in 127-character pieces: its tail is a line of its own...
        {longLine.substr(0, 127) + "PCI Bus Number : 4\nPCI Function   : 9\n", 4, 8},
        // ...and a key cut by a piece boundary is not seen.
        {longLine.substr(0, 120) + "PCI Bus Number : 4\nPCI Function   : 9\n", 4, 2},
        {std::string("PCI Bus Number : 4\n") + '\0' + "\nPCI Function   : 9\n", 4, 2},
        {"", 0, 2},
    };
    for (const Row& row : rows) {
        std::istringstream listing(row.listing);
        EXPECT_EQ(row.multiplier, CEmulexCommon::ListingFunctionMultiplier(listing, row.bus)) << row.listing;
    }
}

TEST_F(DiscoveryTest, FcListTakesOnlyEmulexVendors) {
    UseIni("FcVCFac.ini");
    std::list<std::string> cna, second = {"kept"}, third, fc = {"earlier"};
    ASSERT_TRUE(CEmulexCommon::GetVenDevIdList("/any/where/FcVCFac.ini", &cna, &second, &third, &fc));
    const std::list<std::string> expected = {"earlier", "PCI\\VEN_10DF&DEV_F100", "PCI\\VEN_10DF&DEV_E200"};
    EXPECT_EQ(expected, fc);
    EXPECT_TRUE(cna.empty());
    EXPECT_EQ(std::list<std::string>{"kept"}, second);
    EXPECT_TRUE(third.empty());
}

TEST_F(DiscoveryTest, ConvergedListTakesBothVendorsButOnlyDevicesEndingInASingleZero) {
    UseIni("CnaVCFac.ini");
    std::list<std::string> cna, second, third, fc;
    ASSERT_TRUE(CEmulexCommon::GetVenDevIdList("CnaVCFac.ini", &cna, &second, &third, &fc));
    const std::list<std::string> expected = {"PCI\\VEN_19A2&DEV_0710", "PCI\\VEN_10DF&DEV_E220"};
    EXPECT_EQ(expected, cna);
    EXPECT_TRUE(fc.empty());

    std::list<std::string> vendors;
    ASSERT_TRUE(CEmulexCommon::GetVenderIdList(&vendors));
    const std::list<std::string> expectedVendors = {"19A2", "10DF", "19A2", "10DF"};
    EXPECT_EQ(expectedVendors, vendors);
}

TEST_F(DiscoveryTest, EmptyOrOddIniFilesGiveNoEntries) {
    struct Row {
        const char* content;
    } rows[] = {
        {"[SuportDevice]\nSuportDeviceNum=0\nVendor1=VEN_10DF\nDevice1=DEV_F100\n"},
        {"[SuportDevice]\nVendor1=VEN_10DF\nDevice1=DEV_F100\n"},  // no count
        {"[SuportDevice]\nSuportDeviceNum=-3\nVendor1=VEN_10DF\n"},
        // More entries announced than present; short values are dropped whole.
        {"[SuportDevice]\nSuportDeviceNum=100000000\nVendor1=VEN\nVendor2=10DF\nDevice2=DEV_0\n"},
    };
    for (const Row& row : rows) {
        qdmtest::WriteFile(root_ + "/FcVCFac.ini", row.content);
        qdmtest::WriteFile(root_ + "/CnaVCFac.ini", row.content);
        std::list<std::string> cna, second, third, fc, vendors;
        EXPECT_TRUE(CEmulexCommon::GetVenDevIdList("FcVCFac.ini", &cna, &second, &third, &fc)) << row.content;
        EXPECT_TRUE(CEmulexCommon::GetVenDevIdList("CnaVCFac.ini", &cna, &second, &third, &fc)) << row.content;
        EXPECT_TRUE(CEmulexCommon::GetVenderIdList(&vendors)) << row.content;
        EXPECT_TRUE(cna.empty() && fc.empty() && vendors.empty()) << row.content;
    }
    EXPECT_EQ(0u, CEmulexCommon::GetLastError());
}

TEST_F(DiscoveryTest, OtherIniNamesAndNullListsFillNothing) {
    UseIni("FcVCFac.ini");
    std::list<std::string> cna, second, third, fc;
    EXPECT_TRUE(CEmulexCommon::GetVenDevIdList("Other.ini", &cna, &second, &third, &fc));
    EXPECT_TRUE(fc.empty());
    EXPECT_FALSE(CEmulexCommon::GetVenDevIdList("FcVCFac.ini", &cna, &second, &third, nullptr));
    EXPECT_FALSE(CEmulexCommon::GetVenderIdList(nullptr));
    EXPECT_EQ(1u, CEmulexCommon::GetLastError());
}

}  // namespace
