// Vendor base: live registry, ownership of linked modules, module dispatch.
#include "TestEnv.h"
#include "Vendor.h"

namespace {

int g_destroyed = 0;

template <typename Base>
class CountedModule : public Base {
public:
    template <typename... Args>
    explicit CountedModule(Args... args) : Base(args...) {}
    ~CountedModule() override { ++g_destroyed; }
    std::string GetOperatingVersion() override { return "1"; }
    int CheckVendorVersion(std::string, std::string) override { return 0; }
    bool UpdateApplyCheck(std::string) override { return failCheck; }
    bool failCheck = false;
};

class TestVendor : public CVendorEx {
public:
    explicit TestVendor(bool withModules) : CVendorEx("0000:03:00.0-PCI\\VEN_10DF") {
        if (withModules) LinkDevice();
    }
    void LinkDevice() override {
        firmwareModule = firmware = new CountedModule<CFirmware>(deviceId);
        driverModule = new CountedModule<CDriver>(deviceId);
        utilityModules.push_back(new CountedModule<CUtility>(deviceId, std::string("ocm")));
    }
    CountedModule<CFirmware>* firmware = nullptr;
};

TEST(VendorTest, RegistryTracksLifetime) {
    TestVendor* vendor = new TestVendor(false);
    const CVendor* address = vendor;
    EXPECT_TRUE(CVendor::IsLive(address));
    delete vendor;
    EXPECT_FALSE(CVendor::IsLive(address));
    EXPECT_FALSE(CVendor::IsLive(nullptr));
}

TEST(VendorTest, DestructorDeletesLinkedModules) {
    g_destroyed = 0;
    delete new TestVendor(true);
    EXPECT_EQ(3, g_destroyed);
    delete new TestVendor(false);
    EXPECT_EQ(3, g_destroyed) << "nothing linked, nothing deleted";
}

TEST(VendorTest, DispatchesByModuleKind) {
    TestVendor vendor(true);
    EXPECT_EQ("0000:03:00.0-PCI\\VEN_10DF", vendor.GetDeviceInfo());
    EXPECT_EQ(vendor.GetFirmwareModule(), vendor.FindModule("firm"));
    EXPECT_EQ(vendor.GetDriverModule(), vendor.FindModule("driver"));
    EXPECT_EQ(vendor.GetUtilityModules().front(), vendor.FindModule("util"));
    EXPECT_EQ(nullptr, vendor.FindModule("bios"));
    EXPECT_EQ(1, vendor.ExecutePreUpdate("bios", false)) << "no such module";
    EXPECT_EQ(0, vendor.ExecutePreUpdate("firm", false));
    EXPECT_EQ(CModuleManager::PROGRESS_PREUPDATE, vendor.FindModule("firm")->GetUpdateProgress());
    EXPECT_EQ(0, vendor.ExecuteUpdateApplyCheck("driver"));
    EXPECT_FALSE(vendor.IsUpdateFailure());
    vendor.firmware->failCheck = true;
    EXPECT_EQ(1, vendor.ExecuteUpdateApplyCheck("firm"));
    EXPECT_TRUE(vendor.IsUpdateFailure());
    vendor.SetPrevVendorVersion("util", "9.9");
    EXPECT_EQ("9.9", vendor.GetPrevVendorVersion("util"));
    EXPECT_EQ("", vendor.GetLatestUpdateDate("bios"));
}

}  // namespace
