#pragma once
// Base classes of update modules. The virtual operations are declared in the
// host's slot order; a provider built against this header matches a host
// built against it.
#include <list>
#include <string>

#include "HostTypes.h"

class CModuleManager {
public:
    // Update progress values that the host's Execute... steps set. The window
    // 25..84 means "this module is being updated".
    enum {
        PROGRESS_IDLE = 0,
        PROGRESS_BACKUP = 10,
        PROGRESS_PREUPDATE = 25,
        PROGRESS_UPDATE = 50,
        PROGRESS_UPDATED = 85,
        PROGRESS_APPLYCHECK = 90,
        PROGRESS_DONE = 100
    };
    enum { STATUS_NONE = 0, STATUS_RUNNING = 1, STATUS_SUCCESS = 2, STATUS_FAILURE = 3 };

    explicit CModuleManager(std::string name);
    CModuleManager(std::string name, std::string moduleName);

    // Slots 1..36.
    virtual ~CModuleManager();                                                   // 1
    virtual std::string GetOperatingVersion() = 0;                               // 2
    virtual int CheckVendorVersion(std::string version1, std::string version2) = 0;  // 3
    virtual int CheckRegisterUpdateModule(CManageRepositoryInfo info);           // 4
    virtual int RegistUpdateModule(std::string uniqueName, std::string archivePath);  // 5
    virtual CManageModuleInfo GetManageModuleInfo();                             // 6
    virtual CManageRepositoryInfo GetOldOperatingModuleInfo();                   // 7
    virtual CManageRepositoryInfo GetOperatingModuleInfo();                      // 8
    virtual CManageRepositoryInfo GetUpdateModuleInfo();                         // 9
    virtual int GetUpdatePriority();                                             // 10
    virtual void SetUpdatePriority(int priority);                                // 11
    virtual void InitializeOperatingModuleInfo(std::string version);             // 12
    virtual int CheckDependentInfo(CDependencyInfo info, bool a, bool b);        // 13
    virtual int ApplyUpdatesRepository();                                        // 14
    virtual int RollbackRepository();                                            // 15
    virtual int GetUpdateStatus();                                               // 16
    virtual int GetUpdateProgress();                                             // 17
    virtual std::string GetLatestUpdateDate();                                   // 18
    virtual std::string GetPrevVendorVersion();                                  // 19
    virtual int ExecuteUpdateBackup(std::string backupFolder, bool flag);        // 20
    virtual int ExecutePreUpdate(bool flag);                                     // 21
    virtual int ExecuteUpdate(bool flag);                                        // 22
    virtual int ExecuteUpdateRestore(std::string backupFolder);                  // 23
    virtual bool ExecuteUpdateApplyCheck();                                      // 24
    virtual void SetUpdateStatus(int status);                                    // 25
    virtual void SetUpdateProgress(int progress);                                // 26
    virtual void SetLatestUpdateDate(std::string date);                          // 27
    virtual void SetPrevVendorVersion(std::string version);                      // 28
    virtual int LoadRepository(std::string archivePath);                         // 29
    virtual std::string GetOperatingVersionCache();                              // 30
    virtual void SetDependencyInfo(CManageRepositoryInfo info);                  // 31
    virtual int UpdateBackup(std::string backupFolder, bool flag);               // 32
    virtual int PreUpdate(std::string deviceId, std::string updateModule,
                          std::list<std::string>* files, bool flag);             // 33
    virtual int Update(std::string deviceId, std::string updateModule,
                       std::list<std::string>* files, bool flag);                // 34
    virtual int UpdateRestore(std::string backupFolder);                         // 35
    virtual bool UpdateApplyCheck(std::string backupFolder);                     // 36

    // Non-virtual host accessors.
    std::string GetModuleName() const { return moduleName; }
    std::string GetDeviceName() const { return deviceName; }
    std::string GetUniqueName() const { return uniqueName; }
    void SetUniqueName(const std::string& name) { uniqueName = name; }
    std::string GetUpdateVersion() const { return updateVersion; }
    void SetUpdateVersion(const std::string& version) { updateVersion = version; }
    // Reads the operating version afresh into the cache and returns it.
    std::string RefreshOperatingVersionCache();

protected:
    std::string deviceName;       // the first constructor argument (the device identifier)
    std::string moduleName;       // "ocm" for the utility module
    std::string uniqueName;       // model key of the update package the host matched
    std::string updateVersion;    // the version being installed while an update runs
    std::string updateModulePath; // the update module archive (LoadRepository)
    std::list<std::string> updateFiles;  // what the unzip service wrote
    std::string prevVendorVersion;
    std::string latestUpdateDate;
    std::string operatingVersionCache;
    CManageRepositoryInfo operatingModuleInfo;  // its version is the update version
    CManageRepositoryInfo oldOperatingModuleInfo;
    CManageRepositoryInfo dependencyInfo;
    int updatePriority;
    int updateStatus;
    int updateProgress;
};

class CFirmware : public CModuleManager {
public:
    explicit CFirmware(std::string name);
    ~CFirmware() override;
};

class CDriver : public CModuleManager {
public:
    explicit CDriver(std::string name);
    CDriver(std::string name, std::string moduleName);
    ~CDriver() override;
};

class CUtility : public CModuleManager {
public:
    CUtility(std::string name, std::string moduleName);
    ~CUtility() override;
};
