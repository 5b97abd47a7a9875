// The FC vendor base: WWPN lookup and its adapter-list age rule, identity
// answers, update order and the vendor-level update condition.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "CEMULEX_OCM_Utility.h"
#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_Driver.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

const char kOldWwpn[] = "10:00:00:00:c9:00:00:01";  // in the list already on disk
const char kNewWwpn[] = "10:00:00:00:c9:00:00:02";  // what the tool prints

class SpyFirmware : public CFC_EMULEX_16G_Firmware {
public:
    using CFC_EMULEX_16G_Firmware::CFC_EMULEX_16G_Firmware;
    void SetWWPNorMac(std::string value) override { received = value; }
    std::string received;
};

class SpyDriver : public CFC_EMULEX_Driver {
public:
    SpyDriver(const std::string& id) : CFC_EMULEX_Driver(id, "", "") {}
    void SetWWPNorMac(std::string value) override { received = value; }
    std::string received;
};

class VendorBaseTest : public VendorTest {};

}  // namespace

TEST_F(VendorBaseTest, AdapterListIsRefreshedOnceAnHourOld) {
    const long kMissing = 1L << 40;
    struct Row {
        const char* what;
        long ageSeconds;
        int expectedRuns;
        const char* expectedWwpn;
    } rows[] = {
        {"just under an hour: reused", 3599, 0, kOldWwpn},
        {"one hour: refreshed", 3600, 1, kNewWwpn},
        {"missing: refreshed", kMissing, 1, kNewWwpn},
        {"dated in the future: refreshed", -600, 1, kNewWwpn},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        qdmtest::RemoveTree(runs_);
        qdmtest::RemoveTree(ListPath());
        InstallHbacmd(Listing(kNewWwpn));
        if (row.ageSeconds != kMissing) {
            qdmtest::WriteFile(ListPath(), Listing(kOldWwpn));
            qdmtest::SetFileAge(ListPath(), row.ageSeconds);
        }
        TestVendor vendor(kDeviceId);
        EXPECT_EQ(vendor.GetWWPNOriginal(), row.expectedWwpn);
        EXPECT_EQ(HbacmdRuns("listhbas"), row.expectedRuns);
    }
}

TEST_F(VendorBaseTest, CachedWwpnRunsNoCommandAndReadsNoFile) {
    InstallHbacmd(Listing(kWwpn));
    TestVendor vendor(kDeviceId);
    ASSERT_EQ(vendor.GetWWPNOriginal(), kWwpn);
    qdmtest::RemoveTree(ListPath());
    qdmtest::RemoveTree(runs_);
    CTraceUtility::ClearCapture();

    EXPECT_EQ(vendor.GetWWPNOriginal(), kWwpn);
    EXPECT_FALSE(qdmtest::Exists(runs_));
    EXPECT_FALSE(qdmtest::Exists(ListPath()));
    EXPECT_EQ(Debug().size(), 1u);  // the one line naming device and WWPN
}

TEST_F(VendorBaseTest, MissingToolGivesUpWithMessage0013) {
    TestVendor vendor(kDeviceId);
    EXPECT_EQ(vendor.GetWWPNOriginal(), "");
    ASSERT_EQ(MessageCount("MSGID_EMULEX_FC_0013_F"), 1u);
    const auto message = Messages().back();
    EXPECT_EQ(message.inserts,
              (std::vector<std::string>{"vendor", "b", "Emulex", "FC", "One Command Manager"}));
    EXPECT_TRUE(HasDebug("Failed to get OCM Path"));
    EXPECT_EQ(Debug().back().text, "CFC_EMULEX_Vendor::CFC_EMULEX_Vendor() [END]");
}

TEST_F(VendorBaseTest, PortMissingFromListDeletesListAndTellsNoModule) {
    InstallHbacmd("Manageable HBA List\n\n" + ListingBlock(kWwpn, "4", "0"));
    auto* firmware = new SpyFirmware(kDeviceId, "");
    auto* driver = new SpyDriver(kDeviceId);
    TestVendor vendor(kDeviceId);
    vendor.Attach(firmware, driver);

    EXPECT_EQ(vendor.GetWWPNOriginal(), "");
    EXPECT_FALSE(qdmtest::Exists(ListPath()));
    EXPECT_EQ(MessageCount("MSGID_EMULEX_FC_0001_F"), 1u);
    EXPECT_TRUE(HasDebug("Failed to get HBA Info"));
    EXPECT_EQ(firmware->received, "");
    EXPECT_EQ(driver->received, "");
}

TEST_F(VendorBaseTest, FoundWwpnIsHandedToFirmwareAndDriver) {
    InstallHbacmd(Listing(kWwpn));
    auto* firmware = new SpyFirmware(kDeviceId, "");
    auto* driver = new SpyDriver(kDeviceId);
    TestVendor vendor(kDeviceId);
    vendor.Attach(firmware, driver);

    EXPECT_EQ(vendor.CheckHardwareVersion("x", "y"), 0);  // resolves the WWPN as a side effect
    EXPECT_EQ(firmware->received, kWwpn);
    EXPECT_EQ(driver->received, kWwpn);
    EXPECT_TRUE(qdmtest::Exists(ListPath()));
}

TEST_F(VendorBaseTest, DisplayWwpnComesFromTheFieldOnly) {
    InstallHbacmd(Listing(kWwpn));
    TestVendor vendor(kDeviceId);
    EXPECT_EQ(vendor.GetWWPNEditedforDisplay(), "");  // no lookup is made
    EXPECT_EQ(HbacmdRuns("listhbas"), 0);
    vendor.SetWwpn("10:00:00:00:c9:ab:cd:ef");
    EXPECT_EQ(vendor.GetWWPNEditedforDisplay(), "10000000C9ABCDEF");
}

TEST_F(VendorBaseTest, ExtendedInfoReplacesEarlierEntries) {
    TestVendor vendor(kDeviceId);
    vendor.SetWwpn(kWwpn);
    std::list<std::pair<std::string, std::string>> info = {{"old", "1"}, {"older", "2"}, {"oldest", "3"}};
    std::string unused;
    vendor.GetExtendedInfo(info, &unused);
    EXPECT_EQ(info, (std::list<std::pair<std::string, std::string>>{{"WWPN", "10000000C9123456"},
                                                                     {"Bus/Dev/Func", "3/0/1"}}));
}

TEST_F(VendorBaseTest, ExtendedInfoWithoutInfoPointerLeavesListAlone) {
    TestVendor vendor(kDeviceId);
    std::list<std::pair<std::string, std::string>> info = {{"old", "1"}};
    vendor.GetExtendedInfo(info, nullptr);
    EXPECT_EQ(info.size(), 1u);
    EXPECT_TRUE(HasDebug("CCNA_EMULEX_Vendor::GetExtendedInfo() Parameter ExtendedInfoList is NULL."));
}

TEST_F(VendorBaseTest, BusDevFuncFailureIsRetriedOnTheNextCall) {
    TestVendor vendor("not-a-pci-address");
    EXPECT_EQ(vendor.GetBusDevFunc(), "-/-/-");
    EXPECT_TRUE(HasDebug("GetBusDevFunc() Bus/Dev/Func not infomation."));

    vendor.SetDeviceId(kDeviceId);
    EXPECT_EQ(vendor.GetBusDevFunc(), "3/0/1");
    vendor.SetDeviceId("not-a-pci-address");  // a found location is kept
    EXPECT_EQ(vendor.GetBusDevFunc(), "3/0/1");
}

TEST_F(VendorBaseTest, UpdateOrderIsUtilityFirmwareDriver) {
    TestVendor vendor(kDeviceId);
    EXPECT_EQ(vendor.GetUpdateOrderModuleKind(CVendor::ORDER_FIRST, false), "util");
    EXPECT_EQ(vendor.GetUpdateOrderModuleKind(CVendor::ORDER_SECOND, true), "firm");
    EXPECT_EQ(vendor.GetUpdateOrderModuleKind(CVendor::ORDER_THIRD, false), "driver");
    EXPECT_EQ(vendor.GetUpdateOrderModuleKind(static_cast<CVendor::UPDATE_ORDER>(3), false), "");
    EXPECT_EQ(vendor.GetHardwareVersion(), "");
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Vendor::GetHardwareVersione() [START]"));
}

TEST_F(VendorBaseTest, MissingToolIsAppendedToTheShortageList) {
    TestVendor vendor(kDeviceId);
    std::list<CNecessaryComponentInfo> missing(1);
    vendor.GetShortageOfNecessaryApplicationInfo(missing);
    ASSERT_EQ(missing.size(), 2u);  // appended, not replaced
    EXPECT_EQ(missing.back().componentName, "One Command Manager");

    InstallHbacmd(Listing(kWwpn));
    vendor.GetShortageOfNecessaryApplicationInfo(missing);
    EXPECT_EQ(missing.size(), 2u);
}

TEST_F(VendorBaseTest, UpdateConditionConcernsOnlyTheUtility) {
    TestVendor vendor(kDeviceId);
    EXPECT_EQ(vendor.CheckUpdateConditionByDevicevendor("firm", nullptr), 0);
    EXPECT_EQ(vendor.CheckUpdateConditionByDevicevendor("util", nullptr), 0);  // no utility linked

    // Without the tool's configuration files the installed utility is refused.
    InstallHbacmd(Listing(kWwpn));
    vendor.AttachUtility(new CEMULEX_OCM_Utility(kDeviceId));
    EXPECT_EQ(vendor.CheckUpdateConditionByDevicevendor("util", nullptr), 1);
    ASSERT_EQ(MessageCount("MSGID_EMULEX_FC_0010_F"), 1u);
    EXPECT_EQ(Messages().back().inserts.front(), "vendor");
    EXPECT_EQ(vendor.CheckUpdateConditionByDevicevendor("firm", nullptr), 0);
}
