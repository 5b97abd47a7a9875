#include "Vendor.h"

#include <mutex>
#include <set>

namespace {

struct LiveRegistry {
    std::mutex mutex;
    std::set<const CVendor*> vendors;
};

LiveRegistry& Registry() {
    static LiveRegistry registry;
    return registry;
}

}  // namespace

CVendor::CVendor() : driverModule(nullptr), firmwareModule(nullptr), lastUpdateResult(0) {
    std::lock_guard<std::mutex> lock(Registry().mutex);
    Registry().vendors.insert(this);
}

// The modules linked at this moment belong to the vendor (see Vendor.h).
CVendor::~CVendor() {
    delete firmwareModule;
    delete driverModule;
    for (CUtility* utility : utilityModules) delete utility;
    std::lock_guard<std::mutex> lock(Registry().mutex);
    Registry().vendors.erase(this);
}

bool CVendor::IsLive(const CVendor* vendor) {
    std::lock_guard<std::mutex> lock(Registry().mutex);
    return Registry().vendors.count(vendor) != 0;
}

CModuleManager* CVendor::FindModule(const std::string& moduleKind) const {
    if (moduleKind == "firm") return firmwareModule;
    if (moduleKind == "driver") return driverModule;
    if (moduleKind == "util") return utilityModules.empty() ? nullptr : utilityModules.front();
    return nullptr;
}

std::string CVendor::GetHardwareVersion() { return ""; }

int CVendor::CheckHardwareVersion(std::string, std::string) { return 0; }

// No vendor methods exist in this host.
int CVendor::ExecVendorMethod(std::string, ...) { return 1; }

void CVendor::GetExtendedInfo(std::list<std::pair<std::string, std::string>>& list, std::string* info) {
    if (info) list.clear();
}

int CVendor::GetLinkApplicationInfo(std::list<CLinkApplicationInfo*>&) { return 0; }

std::string CVendor::GetUpdateOrderModuleKind(UPDATE_ORDER, bool) { return ""; }

int CVendor::CheckUpdateModuleRegistration(CManageModuleInfo) { return 0; }

int CVendor::ConfirmUpdateModuleRegistration(std::string, std::string, std::string) { return 0; }

int CVendor::ExecuteUpdateBackup(std::string moduleKind, std::string backupFolder, bool flag) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->ExecuteUpdateBackup(backupFolder, flag) : 1;
}

int CVendor::ExecutePreUpdate(std::string moduleKind, bool flag) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->ExecutePreUpdate(flag) : 1;
}

int CVendor::ExecuteUpdate(std::string moduleKind, bool flag) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->ExecuteUpdate(flag) : 1;
}

int CVendor::ExecuteUpdateRestore(std::string moduleKind, std::string backupFolder) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->ExecuteUpdateRestore(backupFolder) : 1;
}

int CVendor::ExecuteUpdateApplyCheck(std::string moduleKind) {
    CModuleManager* module = FindModule(moduleKind);
    if (!module) return 1;
    lastUpdateResult = module->ExecuteUpdateApplyCheck() ? 1 : 0;
    return lastUpdateResult;
}

int CVendor::CheckDependentInfo(CDependencyInfo, bool, bool) { return 0; }

int CVendor::CheckUpdateCondition(std::string, bool, bool) { return 0; }

std::string CVendor::GetDeviceInfo() { return deviceId; }

void CVendor::SetUpdatePriority(int priority, std::string moduleKind) {
    if (CModuleManager* module = FindModule(moduleKind)) module->SetUpdatePriority(priority);
}

void CVendor::SetOwnerProvider(std::string providerName, std::string) { ownerProvider = providerName; }

void CVendor::SetIWbemServices(IWbemServices*) {}

std::string CVendor::GetHardwareVersionCache() { return GetHardwareVersion(); }

bool CVendor::IsUpdateFailure() {
    std::list<CModuleManager*> modules(utilityModules.begin(), utilityModules.end());
    modules.push_back(firmwareModule);
    modules.push_back(driverModule);
    for (CModuleManager* module : modules)
        if (module && module->GetUpdateStatus() == CModuleManager::STATUS_FAILURE) return true;
    return false;
}

std::string CVendor::GetLatestUpdateDate(std::string moduleKind) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->GetLatestUpdateDate() : "";
}

std::string CVendor::GetPrevVendorVersion(std::string moduleKind) {
    CModuleManager* module = FindModule(moduleKind);
    return module ? module->GetPrevVendorVersion() : "";
}

void CVendor::SetDependencyInfo(CManageModuleInfo) {}

void CVendor::SetLatestUpdateDate(std::string moduleKind, std::string date) {
    if (CModuleManager* module = FindModule(moduleKind)) module->SetLatestUpdateDate(date);
}

void CVendor::SetPrevVendorVersion(std::string moduleKind, std::string version) {
    if (CModuleManager* module = FindModule(moduleKind)) module->SetPrevVendorVersion(version);
}

void CVendor::ClearUpdateStatus(std::string moduleKind, bool) {
    if (CModuleManager* module = FindModule(moduleKind)) {
        module->SetUpdateStatus(CModuleManager::STATUS_NONE);
        module->SetUpdateProgress(CModuleManager::PROGRESS_IDLE);
    }
}

int CVendor::StartOutputDeviceConfigInfo(std::string, void*) { return 0; }

int CVendor::ExecOutputDeviceConfigInfo(std::string, void*) { return 0; }

int CVendor::EndOutputDeviceConfigInfo(std::string, void*) { return 0; }

void CVendor::GetShortageOfNecessaryApplicationInfo(std::list<CNecessaryComponentInfo>&) {}

int CVendor::CheckUpdateConditionByDevicevendor(std::string, CManageRepositoryInfo*) { return 0; }

int CVendor::CheckUpdateConditionByModule(std::string, CModuleManager*, std::string, bool, bool) {
    return 0;
}

CVendorEx::CVendorEx() = default;

CVendorEx::CVendorEx(std::string id) { deviceId = std::move(id); }

CVendorEx::~CVendorEx() = default;
