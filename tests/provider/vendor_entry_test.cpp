// The library's entry points as the host reaches them, and the binary
// interface it relies on: the virtual slot order of vendors and modules.

#include <atomic>
#include <cstring>
#include <new>
#include <type_traits>

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

// The next allocation of exactly this many bytes fails, as on an exhausted heap (0: none).
std::atomic<std::size_t> failSize{0};

}  // namespace

void* operator new(std::size_t size) {
    std::size_t armed = size;
    if (size != 0 && failSize.compare_exchange_strong(armed, 0)) throw std::bad_alloc();
    static const auto next = reinterpret_cast<void* (*)(std::size_t)>(::dlsym(RTLD_NEXT, "_Znwm"));
    return next(size);
}

namespace {

using EntryTest = VendorTest;
using Lines = std::vector<std::string>;

TEST_F(EntryTest, FactoryBuildsExactlyTheModelNamed) {
    const std::string id = kDeviceId, asks = "WINAPI GetVendorFactory ";
    const struct { const char* className; const char* deviceId; Lines shown; } rows[] = {
        {"CFC_EMULEX_8G_1P_Vendor", kDeviceId, {asks + "CFC_EMULEX_8G_1P_Vendor", "new CFC_EMULEX_8G_1P_Vendor " + id}},
        {"CFC_EMULEX_8G_2P_Vendor", kDeviceId, {asks + "CFC_EMULEX_8G_2P_Vendor", "new CFC_EMULEX_8G_2P_Vendor " + id}},
        {"CFC_EMULEX_16G_Vendor", kDeviceId, {asks + "CFC_EMULEX_16G_Vendor", "new CFC_EMULEX_16G_Vendor " + id}},
        // Case, trailing blanks and the abstract base are refused silently.
        {"cfc_emulex_16g_vendor", kDeviceId, {asks + "cfc_emulex_16g_vendor"}},
        {"CFC_EMULEX_16G_Vendor ", kDeviceId, {asks + "CFC_EMULEX_16G_Vendor "}},
        {"CFC_EMULEX_Vendor", kDeviceId, {asks + "CFC_EMULEX_Vendor"}},
        // Missing arguments are announced.
        {nullptr, kDeviceId, {"WINAPI GetVendorFactory", "GetFactory NULL"}},
        {"CFC_EMULEX_16G_Vendor", nullptr, {asks + "CFC_EMULEX_16G_Vendor", "GetFactory NULL"}},
    };
    for (const auto& row : rows) {
        shown_.clear();
        auto* vendor = static_cast<CVendor*>(factory_(row.className, row.deviceId));
        EXPECT_EQ(shown_, row.shown);
        const bool built = row.shown.back().rfind("new ", 0) == 0;  // the last line announces a built vendor
        ASSERT_EQ(vendor != nullptr, built) << row.shown.back();
        if (!built) continue;
        EXPECT_EQ(vendor->GetVendorClassName() + " " + vendor->GetDeviceId() + " " + vendor->GetVendorName(),
                  std::string(row.className) + " " + id + " emulex");
        release_(vendor);  // a model's name: left for the host to delete
        ASSERT_TRUE(CVendor::IsLive(vendor));
        delete vendor;
    }
}

TEST_F(EntryTest, ReleaseDestroysOnlyWhatAnswersTheBaseClassName) {
    release_(nullptr);
    const std::pair<const char*, bool> rows[] = {
        {"CFC_EMULEX_Vendor", true}, {"CFC_EMULEX_16G_Vendor", false},
        {"cfc_emulex_vendor", false}, {"CFC_EMULEX_Vendor ", false},
    };
    for (const auto& [className, destroyed] : rows) {
        auto* vendor = new TestVendor(kDeviceId);
        vendor->vendorClassName = className;
        release_(vendor);
        EXPECT_EQ(!CVendor::IsLive(vendor), destroyed) << className;
        if (CVendor::IsLive(vendor)) delete vendor;
    }
    EXPECT_TRUE(shown_.empty());
}

// A failed allocation leaves the factory; release swallows a throwing class-name accessor.
TEST_F(EntryTest, AllocationFailures) {
    qdmhost::SetShowMessageSink({});  // the factory's lines go to the console, as in a host without a sink
    failSize = sizeof(CFC_EMULEX_16G_Vendor);
    EXPECT_THROW(factory_("CFC_EMULEX_16G_Vendor", kDeviceId), std::bad_alloc);
    EXPECT_EQ(failSize, 0u);
    auto* vendor = new TestVendor(kDeviceId);
    vendor->vendorClassName = "CFC_EMULEX_Vendor";
    failSize = vendor->GetVendorClassName().size() + 1;  // the accessor answers a copy of the name
    EXPECT_NO_THROW(release_(vendor));
    EXPECT_EQ(failSize, 0u);
    EXPECT_TRUE(CVendor::IsLive(vendor));
    delete vendor;
}

// A pointer to a virtual member holds 1 + its vtable byte offset. The
// destructor takes two entries, so the host's slot n is vtable index n from 2 on.
template <class Member>
std::size_t Slot(Member member) {
    static_assert(sizeof(Member) == 2 * sizeof(void*), "Itanium member pointer");
    std::uintptr_t raw = 0;
    std::memcpy(&raw, &member, sizeof raw);
    return raw % sizeof(void*) == 1 ? (raw - 1) / sizeof(void*) : 0;  // 0: not virtual
}

// Slots 2..37 of a vendor, in the host's order.
#define S(operation) Slot(&V::operation)
template <class V>
std::vector<std::size_t> VendorSlots() {
    return {S(GetHardwareVersion), S(CheckHardwareVersion), S(LinkDevice), S(ExecVendorMethod), S(GetExtendedInfo),
            S(GetLinkApplicationInfo), S(GetUpdateOrderModuleKind), S(CheckUpdateModuleRegistration),
            S(ConfirmUpdateModuleRegistration), S(ExecuteUpdateBackup), S(ExecutePreUpdate), S(ExecuteUpdate),
            S(ExecuteUpdateRestore), S(ExecuteUpdateApplyCheck), S(CheckDependentInfo), S(CheckUpdateCondition),
            S(GetDeviceInfo), S(SetUpdatePriority), S(SetOwnerProvider), S(SetIWbemServices), S(GetHardwareVersionCache),
            S(IsUpdateFailure), S(GetLatestUpdateDate), S(GetPrevVendorVersion), S(SetDependencyInfo),
            S(SetLatestUpdateDate), S(SetPrevVendorVersion), S(ClearUpdateStatus), S(StartOutputDeviceConfigInfo),
            S(ExecOutputDeviceConfigInfo), S(EndOutputDeviceConfigInfo), S(GetShortageOfNecessaryApplicationInfo),
            S(CheckUpdateConditionByDevicevendor), S(CheckUpdateConditionByModule), S(GetWWPNOriginal),
            S(GetWWPNEditedforDisplay)};
}
#undef S

// Slots 2..36 of a module in the host's order, then the provider's own:
// 37, 38 for firmware and driver, 39, 40 for the FC firmware.
#define S(operation) Slot(&M::operation)
template <class M>
std::vector<std::size_t> ModuleSlots() {
    std::vector<std::size_t> slots = {
        S(GetOperatingVersion), S(CheckVendorVersion), S(CheckRegisterUpdateModule), S(RegistUpdateModule),
        S(GetManageModuleInfo), S(GetOldOperatingModuleInfo), S(GetOperatingModuleInfo), S(GetUpdateModuleInfo),
        S(GetUpdatePriority), S(SetUpdatePriority), S(InitializeOperatingModuleInfo), S(CheckDependentInfo),
        S(ApplyUpdatesRepository), S(RollbackRepository), S(GetUpdateStatus), S(GetUpdateProgress),
        S(GetLatestUpdateDate), S(GetPrevVendorVersion), S(ExecuteUpdateBackup), S(ExecutePreUpdate), S(ExecuteUpdate),
        S(ExecuteUpdateRestore), S(ExecuteUpdateApplyCheck), S(SetUpdateStatus), S(SetUpdateProgress),
        S(SetLatestUpdateDate), S(SetPrevVendorVersion), S(LoadRepository), S(GetOperatingVersionCache),
        S(SetDependencyInfo), S(UpdateBackup), S(PreUpdate), S(Update), S(UpdateRestore), S(UpdateApplyCheck)};
    if constexpr (!std::is_same_v<M, CEMULEX_OCM_Utility>) slots.insert(slots.end(), {S(SetWWPNorMac), S(FormatVersionString)});
    if constexpr (std::is_base_of_v<CFC_EMULEX_Firmware, M>)
        slots.insert(slots.end(), {S(GetBootBiosVersion), S(CheckBootBiosVersionFormat)});
    return slots;
}
#undef S

TEST(AbiTest, EverySlotIsWhereTheHostCallsIt) {
    const struct { const char* className; std::vector<std::size_t> slots; std::size_t last; } rows[] = {
        {"CFC_EMULEX_8G_1P_Vendor", VendorSlots<CFC_EMULEX_8G_1P_Vendor>(), 37},
        {"CFC_EMULEX_8G_2P_Vendor", VendorSlots<CFC_EMULEX_8G_2P_Vendor>(), 37},
        {"CFC_EMULEX_16G_Vendor", VendorSlots<CFC_EMULEX_16G_Vendor>(), 37},
        {"CEMULEX_OCM_Utility", ModuleSlots<CEMULEX_OCM_Utility>(), 36},
        {"CFC_EMULEX_Driver", ModuleSlots<CFC_EMULEX_Driver>(), 38},
        {"CFC_EMULEX_8G_Firmware", ModuleSlots<CFC_EMULEX_8G_Firmware>(), 40},
        {"CFC_EMULEX_16G_Firmware", ModuleSlots<CFC_EMULEX_16G_Firmware>(), 40},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.slots.size() + 1, row.last) << row.className;
        for (std::size_t at = 0; at < row.slots.size(); ++at)
            EXPECT_EQ(row.slots[at], at + 2) << row.className << ", operation " << at + 2 << " of the host's list";
    }
}

}  // namespace
