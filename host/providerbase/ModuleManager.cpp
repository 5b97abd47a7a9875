#include "ModuleManager.h"

#include <ctime>

namespace {

std::string NowIsoText() {
    std::time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

std::string OrDefault(const std::string& text, const char* fallback) {
    return text.empty() ? fallback : text;
}

}  // namespace

CModuleManager::CModuleManager(std::string name) : CModuleManager(std::move(name), "") {}

CModuleManager::CModuleManager(std::string name, std::string moduleName)
    : deviceName(std::move(name)),
      moduleName(std::move(moduleName)),
      updatePriority(0),
      updateStatus(STATUS_NONE),
      updateProgress(PROGRESS_IDLE) {}

CModuleManager::~CModuleManager() = default;

// The repository record's version is the update version the apply check
// compares against.
int CModuleManager::CheckRegisterUpdateModule(CManageRepositoryInfo info) {
    uniqueName = info.uniqueName;
    updateModulePath = info.archivePath;
    operatingModuleInfo = info;
    return 0;
}

int CModuleManager::RegistUpdateModule(std::string name, std::string archivePath) {
    uniqueName = std::move(name);
    updateModulePath = std::move(archivePath);
    return 0;
}

CManageModuleInfo CModuleManager::GetManageModuleInfo() {
    CManageModuleInfo info;
    info.moduleKind = operatingModuleInfo.moduleKind;
    info.moduleName = moduleName;
    info.uniqueName = uniqueName;
    info.version = operatingModuleInfo.version;
    return info;
}

CManageRepositoryInfo CModuleManager::GetOldOperatingModuleInfo() { return oldOperatingModuleInfo; }

CManageRepositoryInfo CModuleManager::GetOperatingModuleInfo() { return operatingModuleInfo; }

CManageRepositoryInfo CModuleManager::GetUpdateModuleInfo() { return operatingModuleInfo; }

int CModuleManager::GetUpdatePriority() { return updatePriority; }

void CModuleManager::SetUpdatePriority(int priority) { updatePriority = priority; }

void CModuleManager::InitializeOperatingModuleInfo(std::string version) {
    oldOperatingModuleInfo.version = version;
    prevVendorVersion = version;
}

int CModuleManager::CheckDependentInfo(CDependencyInfo, bool, bool) { return 0; }

int CModuleManager::ApplyUpdatesRepository() { return 0; }

int CModuleManager::RollbackRepository() { return 0; }

int CModuleManager::GetUpdateStatus() { return updateStatus; }

int CModuleManager::GetUpdateProgress() { return updateProgress; }

std::string CModuleManager::GetLatestUpdateDate() { return latestUpdateDate; }

std::string CModuleManager::GetPrevVendorVersion() { return prevVendorVersion; }

int CModuleManager::ExecuteUpdateBackup(std::string backupFolder, bool flag) {
    updateStatus = STATUS_RUNNING;
    updateProgress = PROGRESS_BACKUP;
    return UpdateBackup(backupFolder, flag);
}

int CModuleManager::ExecutePreUpdate(bool flag) {
    updateProgress = PROGRESS_PREUPDATE;
    return PreUpdate(deviceName, updateModulePath, &updateFiles, flag);
}

// Progress stays inside 25..84 exactly while PreUpdate or Update runs.
int CModuleManager::ExecuteUpdate(bool flag) {
    updateProgress = PROGRESS_UPDATE;
    int result = Update(deviceName, updateModulePath, &updateFiles, flag);
    updateProgress = PROGRESS_UPDATED;
    return result;
}

int CModuleManager::ExecuteUpdateRestore(std::string backupFolder) {
    updateProgress = PROGRESS_UPDATED;
    return UpdateRestore(backupFolder);
}

bool CModuleManager::ExecuteUpdateApplyCheck() {
    updateProgress = PROGRESS_APPLYCHECK;
    bool failed = UpdateApplyCheck("");
    updateStatus = failed ? STATUS_FAILURE : STATUS_SUCCESS;
    updateProgress = PROGRESS_DONE;
    if (!failed) latestUpdateDate = NowIsoText();
    return failed;
}

void CModuleManager::SetUpdateStatus(int status) { updateStatus = status; }

void CModuleManager::SetUpdateProgress(int progress) { updateProgress = progress; }

void CModuleManager::SetLatestUpdateDate(std::string date) { latestUpdateDate = std::move(date); }

void CModuleManager::SetPrevVendorVersion(std::string version) { prevVendorVersion = std::move(version); }

int CModuleManager::LoadRepository(std::string archivePath) {
    updateModulePath = std::move(archivePath);
    return 0;
}

std::string CModuleManager::GetOperatingVersionCache() { return operatingVersionCache; }

void CModuleManager::SetDependencyInfo(CManageRepositoryInfo info) { dependencyInfo = std::move(info); }

int CModuleManager::UpdateBackup(std::string, bool) { return 0; }

int CModuleManager::PreUpdate(std::string, std::string, std::list<std::string>*, bool) { return 0; }

int CModuleManager::Update(std::string, std::string, std::list<std::string>*, bool) { return 0; }

int CModuleManager::UpdateRestore(std::string) { return 0; }

bool CModuleManager::UpdateApplyCheck(std::string) { return false; }

std::string CModuleManager::RefreshOperatingVersionCache() {
    operatingVersionCache = GetOperatingVersion();
    return operatingVersionCache;
}

CFirmware::CFirmware(std::string name) : CModuleManager(std::move(name), "firm") {}

CFirmware::~CFirmware() = default;

CDriver::CDriver(std::string name) : CModuleManager(std::move(name), "driver") {}

CDriver::CDriver(std::string name, std::string moduleName)
    : CModuleManager(std::move(name), OrDefault(moduleName, "driver")) {}

CDriver::~CDriver() = default;

CUtility::CUtility(std::string name, std::string moduleName)
    : CModuleManager(std::move(name), OrDefault(moduleName, "util")) {}

CUtility::~CUtility() = default;
