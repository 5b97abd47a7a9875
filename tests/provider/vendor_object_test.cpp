// The vendor object of one port: WWPN lookup and its adapter-list age rule,
// identity answers, update order and condition, the three models and their
// linking, the configuration report and the operations' trace lines.

#include <functional>
#include <memory>
#include <typeinfo>

#include "CEMULEX_OCM_Utility.h"
#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_16G_Vendor.h"
#include "CFC_EMULEX_8G_1P_Vendor.h"
#include "CFC_EMULEX_8G_2P_Vendor.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "CFC_EMULEX_Driver.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

using Pairs = std::list<std::pair<std::string, std::string>>;
// The inserts of a message about the missing adapter tool.
const std::string kToolMissing = " vendor b Emulex FC One Command Manager";
const std::string kLspciLine = "03:00.0 \"0c04\" \"10DF\" \"F100\" -r03 \"10DF\" \"F100\"";
const char kFullKey[] = "fcelx_8g2p_10df_f100_10df_f100";

// Modules with fixed versions that record the WWPN they are told.
class FakeFirmware : public CFC_EMULEX_Firmware {
public:
    FakeFirmware(const std::string& version = "", const std::string& bootBios = "")
        : CFC_EMULEX_Firmware(kDeviceId, ""), bootBios_(bootBios) { operatingVersionCache = version; }
    std::string GetBootBiosVersion() override { return bootBios_; }
    void SetWWPNorMac(std::string value) override { received = value; }
    std::string received, bootBios_;
};

class FakeDriver : public CFC_EMULEX_Driver {
public:
    FakeDriver(const std::string& version = "") : CFC_EMULEX_Driver(kDeviceId, "", "") { operatingVersionCache = version; }
    void SetWWPNorMac(std::string value) override { received = value; }
    std::string received;
};

class FakeUtility : public CEMULEX_OCM_Utility {
public:
    FakeUtility(const std::string& version) : CEMULEX_OCM_Utility(kDeviceId) { operatingVersionCache = version; }
};

class ObjectTest : public VendorTest {
protected:
    void SetUp() override {
        VendorTest::SetUp();
        if (IsSkipped()) return;
        InstallLspci("echo '" + kLspciLine + "'\n");
        CFC_EMULEX_Vendor::stGenFC.clear();
        CFC_EMULEX_Vendor::stVerFC.clear();
        qdmtest::WriteFile(root_ + "/report/.keep", "");
    }
    // The fake lspci records its arguments, then runs `body`.
    void InstallLspci(const std::string& body) {
        qdmtest::WriteScript(root_ + "/bin/lspci", "echo \"$*\" > '" + root_ + "/lspci_args'\n" + body);
    }
    int LevelOf(const std::string& text) const {
        for (const auto& line : Debug())
            if (line.text == text) return line.level;
        return -1;
    }
    std::string Report() const { return qdmtest::ReadFile(root_ + "/report/Emulex_FcConfigInfo.xml"); }
};

}  // namespace

TEST_F(ObjectTest, AdapterListIsRefreshedOnceAnHourOldAndTheWwpnKept) {
    const long kMissing = 1L << 40;
    const struct { long ageSeconds; size_t runs; const char* wwpn; } rows[] = {
        {3599, 0, "10:00:00:00:c9:00:00:01"},  // just under an hour: the list on disk is reused
        {3600, 1, kWwpn},                      // one hour: refreshed
        {kMissing, 1, kWwpn},
        {-600, 1, kWwpn},  // dated in the future: refreshed
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.ageSeconds);
        qdmtest::RemoveTree(runs_);
        qdmtest::RemoveTree(ListPath());
        InstallHbacmd(Listing(kWwpn));
        if (row.ageSeconds != kMissing) {
            qdmtest::WriteFile(ListPath(), Listing("10:00:00:00:c9:00:00:01"));
            qdmtest::SetFileAge(ListPath(), row.ageSeconds);
        }
        TestVendor vendor(kDeviceId);
        EXPECT_EQ(Joined({vendor.GetWWPNOriginal(), Runs()}), Joined({row.wwpn, row.runs}));
        qdmtest::RemoveTree(ListPath());
        qdmtest::RemoveTree(runs_);
        CTraceUtility::ClearCapture();
        // Cached: no command runs, no file is read, one trace line.
        EXPECT_EQ(Joined({vendor.GetWWPNOriginal(), qdmtest::Exists(runs_) || qdmtest::Exists(ListPath()), Debug().size(),
                          Debug().back().level, Debug().back().text}),
                  Joined({row.wwpn, 0, 1, 4, "CFC_EMULEX_Vendor::GetWWPNOriginal() [END] [" + std::string(kDeviceId) + "] [" +
                                                 row.wwpn + "]"}));
    }
}

TEST_F(ObjectTest, MissingToolIsReportedAndListed) {
    TestVendor vendor(kDeviceId);
    // The last trace line is the constructor's on purpose.
    EXPECT_EQ(Joined({vendor.GetWWPNOriginal(), MessagesText(), HasDebug("Failed to get OCM Path"), Debug().back().text}),
              "  MSGID_EMULEX_FC_0013_F" + kToolMissing + " 1 CFC_EMULEX_Vendor::CFC_EMULEX_Vendor() [END]");
    std::list<CNecessaryComponentInfo> missing(1);
    vendor.GetShortageOfNecessaryApplicationInfo(missing);
    ASSERT_EQ(missing.size(), 2u);  // appended, not replaced
    EXPECT_EQ(missing.back().componentName, "One Command Manager");
    EXPECT_EQ(vendor.StartOutputDeviceConfigInfo("", nullptr), 1);
    EXPECT_EQ(MessagesText(), " MSGID_EMULEX_FC_0013_F" + kToolMissing + " MSGID_EMULEX_FC_0018_F" + kToolMissing);
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo() "
                         "CEmulexCommon::GetOCMManagerInstallPath is return false."));

    InstallHbacmd(Listing(kWwpn));
    vendor.GetShortageOfNecessaryApplicationInfo(missing);
    EXPECT_EQ(Joined({missing.size(), vendor.StartOutputDeviceConfigInfo("", nullptr)}), "2 0");
}

TEST_F(ObjectTest, FoundWwpnGoesToFirmwareAndDriverAndAnUnlistedPortDropsTheList) {
    const struct { std::string listing; const char* wwpn; size_t failures; } rows[] = {
        {Listing(kWwpn), kWwpn, 0},
        {Listing(kWwpn, "4", "0"), "", 1},  // the port is not listed
    };
    for (const auto& row : rows) {
        CTraceUtility::ClearCapture();
        qdmtest::RemoveTree(ListPath());
        InstallHbacmd(row.listing);
        auto* firmware = new FakeFirmware;
        auto* driver = new FakeDriver;
        TestVendor vendor(kDeviceId);
        vendor.Attach(firmware, driver);
        // Resolves the WWPN as a side effect.
        EXPECT_EQ(Joined({vendor.CheckHardwareVersion("x", "y"), firmware->received, driver->received,
                          qdmtest::Exists(ListPath()), MessageCount("MSGID_EMULEX_FC_0001_F"), HasDebug("Failed to get HBA Info")}),
                  Joined({0, row.wwpn, row.wwpn, row.failures == 0, row.failures, row.failures != 0}));
    }
}

TEST_F(ObjectTest, IdentityOrderAndCondition) {
    InstallHbacmd(Listing(kWwpn));
    TestVendor vendor("not-a-pci-address");
    // From the field: no lookup is made.
    EXPECT_EQ(Joined({vendor.GetWWPNEditedforDisplay(), Runs(), vendor.GetHardwareVersion(), vendor.GetBusDevFunc()}),
              " 0  -/-/-");
    EXPECT_TRUE(HasDebug("GetBusDevFunc() Bus/Dev/Func not infomation."));
    Pairs info = {{"old", "1"}};
    vendor.GetExtendedInfo(info, nullptr);
    EXPECT_EQ(info.size(), 1u);
    EXPECT_TRUE(HasDebug("CCNA_EMULEX_Vendor::GetExtendedInfo() Parameter ExtendedInfoList is NULL."));
    vendor.wwpn = "10:00:00:00:c9:ab:cd:ef";
    vendor.deviceId = kDeviceId;  // a failed PCI lookup is retried
    std::string unused;
    info = {{"old", "1"}, {"older", "2"}, {"oldest", "3"}};
    vendor.GetExtendedInfo(info, &unused);
    EXPECT_EQ(info, (Pairs{{"WWPN", "10000000C9ABCDEF"}, {"Bus/Dev/Func", "3/0/1"}}));
    vendor.deviceId = "not-a-pci-address";  // a found location is kept
    EXPECT_EQ(vendor.GetBusDevFunc(), "3/0/1");

    std::string kinds;
    for (int order = CVendor::ORDER_FIRST; order <= CVendor::ORDER_THIRD + 1; ++order)  // and one past the last
        kinds += vendor.GetUpdateOrderModuleKind(static_cast<CVendor::UPDATE_ORDER>(order), order == 1) + ";";
    EXPECT_EQ(kinds, "util;firm;driver;;");

    // Only the utility's update has a condition: without the tool's configuration files it is refused.
    EXPECT_EQ(vendor.CheckUpdateConditionByDevicevendor("util", nullptr), 0);  // no utility linked
    vendor.Attach(nullptr, nullptr, new CEMULEX_OCM_Utility(kDeviceId));
    EXPECT_EQ(Joined({vendor.CheckUpdateConditionByDevicevendor("firm", nullptr),
                      vendor.CheckUpdateConditionByDevicevendor("util", nullptr), MessagesText()}),
              "0 1  MSGID_EMULEX_FC_0010_F vendor 11");
}

TEST_F(ObjectTest, DualPortKeyIsReadThroughLspciOfTheSlot) {
    const std::string good = "echo '" + kLspciLine + "'\n";
    const struct { const char* deviceId; std::string lspci; const char* slot; const char* modelKey; } rows[] = {
        {kDeviceId, good, "0000:03:00.1", kFullKey},  // lower case, no line end
        {"03:00.0", good, "03:00.0", kFullKey},  // no "-": the whole identifier
        {kDeviceId, "echo '03:00.0 \"0c04\" \"10DFF\" \"F100\" -r03 \"10DF\" \"F100\"'\n", "0000:03:00.1",
         "fcelx_8g2p_10dff_f100_10df_f10"},  // cut at 19 characters
        {kDeviceId, "exit 1\n", "0000:03:00.1", "fcelx_8g2p_"},
        {"03:00.0;touch pwned-xyz", good, nullptr, "fcelx_8g2p_"},  // no PCI address: lspci must not run
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.modelKey);
        CTraceUtility::ClearCapture();
        qdmtest::RemoveTree(root_ + "/lspci_args");
        InstallLspci(row.lspci);
        EXPECT_EQ(CFC_EMULEX_8G_2P_Vendor(row.deviceId).GetModelKey(), row.modelKey);
        EXPECT_EQ(qdmtest::Exists(root_ + "/lspci_args"), row.slot != nullptr);
        if (row.slot == nullptr) continue;
        EXPECT_EQ(qdmtest::ReadFile(root_ + "/lspci_args"), std::string("-nms ") + row.slot + "\n");
        EXPECT_TRUE(HasDebug(std::string("ExecForeignModule cmd:[lspci -nms ") + row.slot +
                             " | cut -d \" \" -f3,4,6,7 | sed -e s/'\" \"'/_/g -e s/'\"'//g > "
                             "/opt/velmora/qdm/provider/tmp/EMULEX/temp/4ids]"));
    }
}

// Without the tool the models still link their firmware and driver modules.
TEST_F(ObjectTest, ModelsLinkTheirModules) {
    const struct { std::function<CVendor*()> make; const std::type_info& firmware; const char* failurePrefix; } rows[] = {
        {[] { return new CFC_EMULEX_8G_1P_Vendor(kDeviceId); }, typeid(CFC_EMULEX_8G_Firmware),
         "CFC_EMULEX_8G_Firmware::LinkDevice()"},  // the model's own prefix slip
        {[] { return new CFC_EMULEX_8G_2P_Vendor(kDeviceId); }, typeid(CFC_EMULEX_8G_Firmware),
         "CFC_EMULEX_8G_2P_Vendor::LinkDevice()"},
        {[] { return new CFC_EMULEX_16G_Vendor(kDeviceId); }, typeid(CFC_EMULEX_16G_Firmware),
         "CFC_EMULEX_16G_Vendor::LinkDevice()"},
    };
    for (const auto& row : rows) {
        CTraceUtility::ClearCapture();
        std::unique_ptr<CVendor> vendor(row.make());
        vendor->LinkDevice();
        ASSERT_NE(vendor->GetFirmwareModule(), nullptr);
        EXPECT_EQ(typeid(*vendor->GetFirmwareModule()), row.firmware);
        // Two WWPN lookups (firmware, driver), then the utility.
        EXPECT_EQ(Joined({dynamic_cast<CFC_EMULEX_Driver*>(vendor->GetDriverModule()) != nullptr,
                          vendor->GetUtilityModules().size(), CEmulexCommon::GetLastError(), MessagesText()}),
                  "1 0 11  MSGID_EMULEX_FC_0013_F" + kToolMissing + " MSGID_EMULEX_FC_0013_F" + kToolMissing +
                      " MSGID_EMULEX_FC_0013_F" + kToolMissing);
        EXPECT_TRUE(HasDebug(std::string(row.failurePrefix) + " CEmulexCommon::GetOCMManagerInstallPath is return false."));
    }
}

TEST_F(ObjectTest, ReportListsThePortsInExecOrderOrLosesThem) {
    TestVendor first(kDeviceId);
    first.wwpn = kWwpn;
    first.Attach(new FakeFirmware("2.02a4", "5.12a2"), new FakeDriver("8.3.5.86"), new FakeUtility("6.1.43.0"));
    TestVendor second("0000:04:00.0-PCI\\VEN_10df&DEV_e200&SUBSYS_E20010DF");  // lower-case ids; no utility
    second.wwpn = "10:00:00:90:fa:aa:bb:cc";
    second.Attach(new FakeFirmware("10.2.370.15", "abnormal"), new FakeDriver("10.2.370.16"));
    EXPECT_EQ(Joined({first.ExecOutputDeviceConfigInfo("", nullptr), second.ExecOutputDeviceConfigInfo("", nullptr),
                      second.EndOutputDeviceConfigInfo(root_ + "/report/", nullptr),
                      CFC_EMULEX_Vendor::stGenFC.size() + CFC_EMULEX_Vendor::stVerFC.size()}),
              "0 0 0 0");
    EXPECT_EQ(Report(), qdmtest::ReadFile(Golden("report/two_ports.xml")));
    EXPECT_EQ(second.EndOutputDeviceConfigInfo(root_ + "/report/", nullptr), 0);  // right after another
    EXPECT_EQ(Report(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<data />\n");

    CFC_EMULEX_Vendor::stGenFC.push_back({"3/0/1", "0x10DF", "0xF100", "10000000C9123456"});  // unequal lists
    ASSERT_EQ(first.EndOutputDeviceConfigInfo(root_ + "/report/", nullptr), 0);
    EXPECT_TRUE(HasDebug("Failed to get Versioninfo"));
    EXPECT_NE(Report().find("<attr name=\"WWPN\" value=\"10000000C9123456\" />\n    </general-inf>\n  </port>"),
              std::string::npos) << Report();
    EXPECT_EQ(Report().find("version-inf"), std::string::npos);

    EXPECT_EQ(first.ExecOutputDeviceConfigInfo("", nullptr), 0);  // an unwritable folder loses the records
    qdmtest::WriteFile(root_ + "/plainfile", "");
    // The last trace line names the wrong operation on purpose.
    EXPECT_EQ(Joined({first.EndOutputDeviceConfigInfo(root_ + "/plainfile/", nullptr), CEmulexCommon::GetLastError(),
                      MessagesText(), Debug().back().text,
                      CFC_EMULEX_Vendor::stGenFC.size() + CFC_EMULEX_Vendor::stVerFC.size()}),
              "1 25  MSGID_EMULEX_FC_0012_F vendor 19 CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo() [END] 0");
}

TEST_F(ObjectTest, OperationsTraceStartAndEndAtLevelFour) {
    InstallHbacmd(Listing(kWwpn));
    {
        TestVendor vendor(kDeviceId);
        std::list<CNecessaryComponentInfo> missing;
        Pairs info;
        std::string unused;
        vendor.GetWWPNOriginal(); vendor.GetHardwareVersion(); vendor.CheckHardwareVersion("", "");
        vendor.GetExtendedInfo(info, &unused); vendor.GetUpdateOrderModuleKind(CVendor::ORDER_FIRST, false);
        vendor.GetShortageOfNecessaryApplicationInfo(missing); vendor.CheckUpdateConditionByDevicevendor("util", nullptr);
        vendor.StartOutputDeviceConfigInfo("", nullptr); vendor.ExecOutputDeviceConfigInfo("", nullptr);
        vendor.EndOutputDeviceConfigInfo(root_ + "/report/", nullptr);
        CFC_EMULEX_8G_2P_Vendor dual(kDeviceId);
    }
    const std::string base = "CFC_EMULEX_Vendor::";
    for (const std::string& name :
         {base + "CFC_EMULEX_Vendor", base + "~CFC_EMULEX_Vendor", base + "GetWWPNOriginal", base + "GetWWPNEditedforDisplay",
          base + "GetHardwareVersione" /* spelt so on purpose */, base + "CheckHardwareVersion", base + "GetExtendedInfo",
          base + "GetBusDevFunc", base + "GetUpdateOrderModuleKind", base + "GetShortageOfNecessaryApplicationInfo",
          base + "CheckUpdateConditionByDevicevendor", base + "StartOutputDeviceConfigInfo",
          base + "ExecOutputDeviceConfigInfo", base + "EndOutputDeviceConfigInfo",
          std::string("CFC_EMULEX_8G_2P_Vendor::CFC_EMULEX_8G_2P_Vendor")}) {
        EXPECT_EQ(LevelOf(name + "() [START]"), 4) << name;
        EXPECT_EQ(LevelOf(name + "() [END]"), 4) << name;
    }
}
