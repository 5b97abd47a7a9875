#pragma once
// Base classes of vendor objects. The virtual operations are declared in the
// host's slot order.
#include <list>
#include <string>
#include <utility>

#include "HostTypes.h"
#include "ModuleManager.h"

class CVendor {
public:
    enum UPDATE_ORDER { ORDER_FIRST = 0, ORDER_SECOND = 1, ORDER_THIRD = 2 };

    CVendor();

    // Slots 1..35.
    // The destructor deletes the modules linked at that moment (firmwareModule,
    // driverModule, every utilityModules entry): providers never delete them.
    // A module replaced by a second LinkDevice is not tracked.
    virtual ~CVendor();                                                          // 1
    virtual std::string GetHardwareVersion();                                    // 2
    virtual int CheckHardwareVersion(std::string current, std::string wanted);   // 3
    virtual void LinkDevice() = 0;                                               // 4
    virtual int ExecVendorMethod(std::string method, ...);                       // 5
    virtual void GetExtendedInfo(std::list<std::pair<std::string, std::string>>& list,
                                 std::string* info);                             // 6
    virtual int GetLinkApplicationInfo(std::list<CLinkApplicationInfo*>& list);  // 7
    virtual std::string GetUpdateOrderModuleKind(UPDATE_ORDER order, bool flag); // 8
    virtual int CheckUpdateModuleRegistration(CManageModuleInfo info);           // 9
    virtual int ConfirmUpdateModuleRegistration(std::string moduleKind, std::string uniqueName,
                                                std::string version);            // 10
    virtual int ExecuteUpdateBackup(std::string moduleKind, std::string backupFolder,
                                    bool flag);                                  // 11
    virtual int ExecutePreUpdate(std::string moduleKind, bool flag);             // 12
    virtual int ExecuteUpdate(std::string moduleKind, bool flag);                // 13
    virtual int ExecuteUpdateRestore(std::string moduleKind, std::string backupFolder);  // 14
    virtual int ExecuteUpdateApplyCheck(std::string moduleKind);                 // 15
    virtual int CheckDependentInfo(CDependencyInfo info, bool a, bool b);        // 16
    virtual int CheckUpdateCondition(std::string moduleKind, bool a, bool b);    // 17
    virtual std::string GetDeviceInfo();                                         // 18
    virtual void SetUpdatePriority(int priority, std::string moduleKind);        // 19
    virtual void SetOwnerProvider(std::string providerName, std::string libraryPath);  // 20
    virtual void SetIWbemServices(IWbemServices* services);                      // 21
    virtual std::string GetHardwareVersionCache();                               // 22
    virtual bool IsUpdateFailure();                                              // 23
    virtual std::string GetLatestUpdateDate(std::string moduleKind);             // 24
    virtual std::string GetPrevVendorVersion(std::string moduleKind);            // 25
    virtual void SetDependencyInfo(CManageModuleInfo info);                      // 26
    virtual void SetLatestUpdateDate(std::string moduleKind, std::string date);  // 27
    virtual void SetPrevVendorVersion(std::string moduleKind, std::string version);  // 28
    virtual void ClearUpdateStatus(std::string moduleKind, bool flag);           // 29
    virtual int StartOutputDeviceConfigInfo(std::string folder, void* context);  // 30
    virtual int ExecOutputDeviceConfigInfo(std::string folder, void* context);   // 31
    virtual int EndOutputDeviceConfigInfo(std::string folder, void* context);    // 32
    virtual void GetShortageOfNecessaryApplicationInfo(
        std::list<CNecessaryComponentInfo>& missing);                            // 33
    virtual int CheckUpdateConditionByDevicevendor(std::string moduleKind,
                                                   CManageRepositoryInfo* repository);  // 34
    virtual int CheckUpdateConditionByModule(std::string moduleKind, CModuleManager* module,
                                             std::string version, bool a, bool b);  // 35

    // Non-virtual host accessors.
    std::string GetVendorClassName() const { return vendorClassName; }
    std::string GetDeviceId() const { return deviceId; }
    std::string GetModelKey() const { return modelKey; }
    std::string GetVendorName() const { return vendorName; }
    CFirmware* GetFirmwareModule() const { return firmwareModule; }
    CDriver* GetDriverModule() const { return driverModule; }
    const std::list<CUtility*>& GetUtilityModules() const { return utilityModules; }
    // The module that serves a kind ("firm", "driver", "util"), or null.
    CModuleManager* FindModule(const std::string& moduleKind) const;

    // Every vendor object registers itself while it lives, so that a host can
    // tell whether a provider's release call destroyed it.
    static bool IsLive(const CVendor* vendor);

protected:
    CDriver* driverModule;
    CFirmware* firmwareModule;
    std::string deviceId;
    std::string modelKey;
    std::string vendorName;
    std::string vendorClassName;
    std::list<CUtility*> utilityModules;
    std::string ownerProvider;
    int lastUpdateResult;
};

class CVendorEx : public CVendor {
public:
    CVendorEx();
    explicit CVendorEx(std::string deviceId);
    ~CVendorEx() override;
};
