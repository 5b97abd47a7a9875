// Supported-device lists and the mapping of PCI devices to listing records.
#include <list>
#include <map>
#include <sstream>

#include "CommonFixture.h"

namespace {

using namespace commontest;
using Record = std::map<std::string, std::string>;
using Ids = std::list<std::string>;

TEST_F(CommonTest, ListingRecordsAndDeviceLookup) {
    std::list<Record> adapters = {{{"stale", "entry"}}};
    // No listing: the open error stays; a listing without adapters; no list.
    EXPECT_EQ(Joined({Outcome(CEmulexCommon::GetHBAInfoList(&adapters)), adapters.size()}), "0 e17 0");
    qdmtest::WriteFile(cache_ + "/Listhbas.txt", "\nNo HBAs found\n");
    EXPECT_EQ(Joined({Outcome(CEmulexCommon::GetHBAInfoList(&adapters)), HasDebug("CEmulexCommon::GetHBAInfoList(NG) [END]"),
                      Outcome(CEmulexCommon::GetHBAInfoList(nullptr))}),
              "0 e15 1 0 e1");

    UseListing("two_ports.txt");
    adapters = {{{"stale", "entry"}}};
    EXPECT_EQ("1 e0", Outcome(CEmulexCommon::GetHBAInfoList(&adapters)));
    const Record first = {{"Port WWN", "10:00:00:00:c9:12:34:56"}, {"Port Number", "0"}, {"PCI Bus Number", "3"},
                          {"PCI Function", "0"}, {"Port Type", "FC"}, {"Serial No.", "FC10000001"}};
    Record second = first;
    second["Port WWN"] = "10:00:00:00:c9:12:34:57", second["Port Number"] = "1", second["PCI Function"] = "1";
    EXPECT_EQ((std::list<Record>{first, second}), adapters);

    // A device is matched by bus and the listing's function numbering.
    // "RESULT eERROR WWPN" of the matched record; the stale entry always goes. A null listing: no listing file.
    struct Row { const char *listing, *deviceId, *outcome; } rows[] = {
        {"two_ports.txt", "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "1 e0 10:00:00:00:c9:12:34:56"},
        // Functions below 8 on the bus: numbered device * 2 + function.
        {"low_functions.txt", "0000:05:01.0-PCI\\VEN_10DF&DEV_F100", "1 e0 10:00:00:00:c9:50:01:00"},
        {"low_functions.txt", "0000:05:01.1-PCI\\VEN_10DF&DEV_F100", "1 e0 10:00:00:00:c9:50:01:01"},
        // A function of 8 or more on the bus: numbered device * 8 + function.
        {"high_functions.txt", "0000:04:01.0-PCI\\VEN_10DF&DEV_E200", "1 e0 10:00:00:90:fa:40:01:00"},
        // Bus 12 shows function 8, but only one bus digit is read: the multiplier stays 2.
        {"bus_twelve.txt", "0000:0c:01.0-PCI\\VEN_10DF&DEV_F100", "1 e0 10:00:00:00:c9:c0:00:02"},
        {"two_ports.txt", "0000:03:00.2-PCI\\VEN_10DF&DEV_F100", "0 e14 "},  // no such function
        {"two_ports.txt", "0000:06:00.0-PCI\\VEN_10DF&DEV_F100", "0 e14 "},  // no such bus
        {"two_ports.txt", "PCI\\VEN_10DF&DEV_F100", "0 e13 "},               // no PCI address
        {"two_ports.txt", "0000:zz:00.0-PCI\\VEN_10DF&DEV_F100", "0 e13 "},
        {nullptr, "0000:03:00.0-PCI\\VEN_10DF&DEV_F100", "0 e17 "},
    };
    for (const Row& row : rows) {
        qdmtest::RemoveTree(cache_ + "/Listhbas.txt");
        if (row.listing) UseListing(row.listing);
        Record adapter = {{"stale", "entry"}};
        const std::string outcome = Outcome(CEmulexCommon::GetHBAInfo(row.deviceId, &adapter));
        EXPECT_EQ(row.outcome, outcome + " " + adapter["Port WWN"] + adapter["stale"]) << row.deviceId;
    }
    EXPECT_EQ("0 e1", Outcome(CEmulexCommon::GetHBAInfo("0000:03:00.0-PCI\\VEN_10DF&DEV_F100", nullptr)));
}

TEST(ListingParsers, RecordsAndFunctionNumbering) {
    struct Row { std::string listing; std::list<Record> records; } rows[] = {
        // A key line without a value takes the next line's value; both indexes see it.
        {"Port WWN :\nPort WWN : A\n", {{{"Port WWN", "A"}}, {{"Port WWN", "A"}}}},
        // The last key line has no value: no record for it.
        {"Port WWN : A\nPort WWN :\n", {{{"Port WWN", "A"}}}},
        // A NUL ends the line as the tool's C reader sees it.
        {std::string("x") + '\0' + "Port WWN : A\nPort WWN : B\n", {{{"Port WWN", "B"}}}},
        // A key cut by the 127-character piece boundary is not seen.
        {std::string(120, 'x') + "Port WWN : A\nPort WWN : B\n", {{{"Port WWN", "B"}}}},
        // Keys stop at the first one missing for that index.
        {"Port WWN : A\nPort Number : 0\nPort WWN : B\n", {{{"Port WWN", "A"}, {"Port Number", "0"}}, {{"Port WWN", "B"}}}},
        // The permanent MAC stands in for a missing WWN.
        {"Permanent MAC  : 00-00-c9\nPort Number    : 0\n", {{{"Permanent MAC", "00-00-c9"}, {"Port Number", "0"}}}},
    };
    for (const Row& row : rows) {
        std::istringstream listing(row.listing);
        EXPECT_EQ(row.records, CEmulexCommon::ParseHBAListing(listing)) << row.listing;
    }
    std::string many;
    for (int port = 0; port < 300; ++port) many += "Port WWN       : " + std::to_string(port) + "\n";
    std::istringstream ports(many);
    const std::list<Record> records = CEmulexCommon::ParseHBAListing(ports);
    EXPECT_EQ("256 255", std::to_string(records.size()) + " " + records.back().at("Port WWN"));  // records stop at 256

    const std::string bus4 = "PCI Bus Number : 4\n", nine = "PCI Function   : 9\n";
    // The function numbering of a bus: 8 when it shows a function of 8 or more, else 2.
    struct Numbering { std::string listing; int bus, multiplier; } numberings[] = {
        // Two function digits are read; 8 or more counts; another bus does not.
        {bus4 + "PCI Function   : 10\n", 4, 8}, {bus4 + "PCI Function   : 7\n", 4, 2}, {bus4 + nine, 3, 2},
        {"PCI Bus Number : 14\n" + nine, 1, 8},           // "14" reads as bus 1, deliberately
        {bus4 + "Port Type      : FC\n" + nine, 4, 2},    // only the next line
        // A short function line, a short bus line, a garbage function, a listing ending after the bus line.
        {bus4 + "PCI Function   :\n", 4, 2}, {"PCI Bus Number :\n" + nine, 0, 2}, {bus4 + "PCI Function   : x9\n", 4, 2},
        {"PCI Bus Number : 4", 4, 2},
        // A long line is read in 127-character pieces: its tail is a line of its own...
        {std::string(127, 'x') + bus4 + nine, 4, 8},
        // ...and a key cut by a piece boundary is not seen.
        {std::string(120, 'x') + bus4 + nine, 4, 2},
    };
    for (const Numbering& row : numberings) {
        std::istringstream listing(row.listing);
        EXPECT_EQ(row.multiplier, CEmulexCommon::ListingFunctionMultiplier(listing, row.bus)) << row.listing;
    }
}

TEST_F(CommonTest, SupportedDeviceLists) {
    qdmtest::WriteFile(root_ + "/FcVCFac.ini", qdmtest::ReadFile(Golden("ini/FcVCFac.ini")));
    qdmtest::WriteFile(root_ + "/CnaVCFac.ini", qdmtest::ReadFile(Golden("ini/CnaVCFac.ini")));
    Ids cna, second = {"kept"}, third, fc = {"earlier"}, vendors;
    // Fibre Channel: only the Emulex vendor, appended; the middle lists belong to others.
    EXPECT_EQ("1 e0", Outcome(CEmulexCommon::GetVenDevIdList("/any/where/FcVCFac.ini", &cna, &second, &third, &fc)));
    EXPECT_EQ((Ids{"earlier", "PCI\\VEN_10DF&DEV_F100", "PCI\\VEN_10DF&DEV_E200"}), fc);
    EXPECT_TRUE(cna.empty() && third.empty() && second == Ids{"kept"});
    // Converged: both vendors, but only devices ending in a single zero.
    fc.clear();
    EXPECT_EQ("1 e0", Outcome(CEmulexCommon::GetVenDevIdList("CnaVCFac.ini", &cna, &second, &third, &fc)));
    EXPECT_EQ((Ids{"PCI\\VEN_19A2&DEV_0710", "PCI\\VEN_10DF&DEV_E220"}), cna);
    EXPECT_EQ("1 e0", Outcome(CEmulexCommon::GetVenderIdList(&vendors)));
    EXPECT_EQ((Ids{"19A2", "10DF", "19A2", "10DF"}), vendors);
    // Other names fill nothing; a missing list is error 1.
    EXPECT_EQ(Joined({Outcome(CEmulexCommon::GetVenDevIdList("Other.ini", &cna, &second, &third, &fc)), fc.size(),
                      Outcome(CEmulexCommon::GetVenDevIdList("FcVCFac.ini", &cna, &second, &third, nullptr)),
                      Outcome(CEmulexCommon::GetVenderIdList(nullptr))}),
              "1 e0 0 0 e1 0 e1");

    for (const char* content : {
             "[SuportDevice]\nSuportDeviceNum=0\nVendor1=VEN_10DF\nDevice1=DEV_F100\n",
             "[SuportDevice]\nVendor1=VEN_10DF\nDevice1=DEV_F100\n",  // no count
             "[SuportDevice]\nSuportDeviceNum=-3\nVendor1=VEN_10DF\n",
             // More entries announced than present; short values are dropped whole.
             "[SuportDevice]\nSuportDeviceNum=100000000\nVendor1=VEN\nVendor2=10DF\nDevice2=DEV_0\n",
         }) {
        qdmtest::WriteFile(root_ + "/FcVCFac.ini", content);
        qdmtest::WriteFile(root_ + "/CnaVCFac.ini", content);
        cna.clear(), fc.clear(), vendors.clear();
        EXPECT_TRUE(CEmulexCommon::GetVenDevIdList("FcVCFac.ini", &cna, &second, &third, &fc) &&
                    CEmulexCommon::GetVenDevIdList("CnaVCFac.ini", &cna, &second, &third, &fc) &&
                    CEmulexCommon::GetVenderIdList(&vendors)) << content;
        EXPECT_TRUE(cna.empty() && fc.empty() && vendors.empty()) << content;
    }
    EXPECT_EQ(0u, CEmulexCommon::GetLastError());
}

}  // namespace
