// The exported factory and release entry points, reached as the host reaches
// them: through the loaded provider library.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HostSys.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

using FactoryTest = ProviderTest;

}  // namespace

TEST_F(FactoryTest, ClassNamesMatchExactly) {
    struct Row {
        const char* className;
        const char* deviceId;
        const char* builtClass;  // null: no vendor
        std::vector<std::string> shown;
    } rows[] = {
        {"CFC_EMULEX_16G_Vendor", kDeviceId, "CFC_EMULEX_16G_Vendor",
         {std::string("WINAPI GetVendorFactory CFC_EMULEX_16G_Vendor"),
          std::string("new CFC_EMULEX_16G_Vendor ") + kDeviceId}},
        {"CFC_EMULEX_8G_2P_Vendor", kDeviceId, "CFC_EMULEX_8G_2P_Vendor",
         {std::string("WINAPI GetVendorFactory CFC_EMULEX_8G_2P_Vendor"),
          std::string("new CFC_EMULEX_8G_2P_Vendor ") + kDeviceId}},
        // Case, trailing blanks and the abstract base are not accepted, silently.
        {"cfc_emulex_16g_vendor", kDeviceId, nullptr, {"WINAPI GetVendorFactory cfc_emulex_16g_vendor"}},
        {"CFC_EMULEX_16G_Vendor ", kDeviceId, nullptr, {"WINAPI GetVendorFactory CFC_EMULEX_16G_Vendor "}},
        {"CFC_EMULEX_Vendor", kDeviceId, nullptr, {"WINAPI GetVendorFactory CFC_EMULEX_Vendor"}},
        // Missing arguments are announced.
        {nullptr, kDeviceId, nullptr, {"WINAPI GetVendorFactory", "GetFactory NULL"}},
        {"CFC_EMULEX_16G_Vendor", nullptr, nullptr,
         {"WINAPI GetVendorFactory CFC_EMULEX_16G_Vendor", "GetFactory NULL"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.className ? row.className : "(null)");
        shown_.clear();
        auto* vendor = static_cast<CVendor*>(entry_.factory(row.className, row.deviceId));
        EXPECT_EQ(shown_, row.shown);
        if (row.builtClass == nullptr) {
            EXPECT_EQ(vendor, nullptr);
            continue;
        }
        ASSERT_NE(vendor, nullptr);
        EXPECT_EQ(vendor->GetVendorClassName(), row.builtClass);
        EXPECT_EQ(vendor->GetDeviceId(), kDeviceId);
        delete vendor;
    }
}

TEST_F(FactoryTest, ReleaseIgnoresNull) {
    entry_.release(nullptr);
    EXPECT_TRUE(shown_.empty());
}

TEST_F(FactoryTest, ReleaseLeavesModelVendorsAlive) {
    // The release compares with the base class's name, which no model
    // vendor answers; the host deletes what stays live.
    auto* vendor = static_cast<CVendor*>(entry_.factory("CFC_EMULEX_16G_Vendor", kDeviceId));
    ASSERT_NE(vendor, nullptr);
    entry_.release(vendor);
    ASSERT_TRUE(CVendor::IsLive(vendor));
    delete vendor;
    EXPECT_FALSE(CVendor::IsLive(vendor));
}

TEST_F(FactoryTest, ReleaseDestroysAnObjectNamedAsTheBase) {
    auto* vendor = new TestVendor(kDeviceId);
    vendor->SetClassName("CFC_EMULEX_Vendor");
    entry_.release(vendor);
    EXPECT_FALSE(CVendor::IsLive(vendor));
}
