// The binary interface that the host relies on: exact entry-point symbols,
// and the virtual slot order of the vendor and module classes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_16G_Vendor.h"
#include "CFC_EMULEX_8G_1P_Vendor.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "CFC_EMULEX_Driver.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

// A pointer to a virtual member function holds 1 + the vtable byte offset.
// The destructor takes two entries, so the host's slot n (destructor = 1)
// is vtable index n from slot 2 on.
template <class Member>
std::size_t Slot(Member member) {
    static_assert(sizeof(Member) == 2 * sizeof(void*), "Itanium member pointer");
    std::uintptr_t raw = 0;
    std::memcpy(&raw, &member, sizeof raw);
    EXPECT_EQ(raw % sizeof(void*), 1u) << "not a virtual function";
    return (raw - 1) / sizeof(void*);
}

class AbiTest : public VendorTest {};

}  // namespace

TEST_F(AbiTest, VendorSlots) {
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Vendor::GetHardwareVersion), 2u);
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Vendor::LinkDevice), 4u);
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Vendor::GetUpdateOrderModuleKind), 8u);
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Vendor::StartOutputDeviceConfigInfo), 30u);
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Vendor::CheckUpdateConditionByDevicevendor), 34u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_1P_Vendor::GetWWPNOriginal), 36u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_1P_Vendor::GetWWPNEditedforDisplay), 37u);
}

TEST_F(AbiTest, ModuleSlots) {
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_Firmware::GetOperatingVersion), 2u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_Firmware::UpdateApplyCheck), 36u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_Firmware::SetWWPNorMac), 37u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_Firmware::FormatVersionString), 38u);
    EXPECT_EQ(Slot(&CFC_EMULEX_16G_Firmware::GetBootBiosVersion), 39u);
    EXPECT_EQ(Slot(&CFC_EMULEX_8G_Firmware::CheckBootBiosVersionFormat), 40u);
    EXPECT_EQ(Slot(&CFC_EMULEX_Driver::SetWWPNorMac), 37u);
    EXPECT_EQ(Slot(&CFC_EMULEX_Driver::FormatVersionString), 38u);
}

TEST_F(AbiTest, EntryPointsBuildAndTakeBackEveryModel) {
    ProviderEntryPoints entry = LoadProvider();
    ASSERT_NE(entry.factory, nullptr) << "GetVendorFactory not exported under its plain name";
    ASSERT_NE(entry.release, nullptr) << "ReleaseVendor not exported as _Z13ReleaseVendorPv";
    for (const char* model : {"CFC_EMULEX_8G_1P_Vendor", "CFC_EMULEX_8G_2P_Vendor", "CFC_EMULEX_16G_Vendor"}) {
        SCOPED_TRACE(model);
        auto* vendor = static_cast<CVendor*>(entry.factory(model, kDeviceId));
        ASSERT_NE(vendor, nullptr);
        EXPECT_EQ(vendor->GetVendorName(), "emulex");
        entry.release(vendor);
        if (CVendor::IsLive(vendor)) delete vendor;  // what the host does with a live vendor
        EXPECT_FALSE(CVendor::IsLive(vendor));
    }
}
