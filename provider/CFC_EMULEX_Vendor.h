#pragma once
// Abstract vendor object of one Emulex Fibre Channel adapter port.
#include <list>
#include <string>
#include <utility>

#include "Vendor.h"

class CFC_EMULEX_Vendor : public CVendorEx {
public:
    static const std::string className;

    // One port's general information in the configuration report.
    struct GeneralInfo {
        std::string busDevFunc;
        std::string vendorId;
        std::string deviceId;
        std::string wwpn;
    };
    // One port's version information in the configuration report.
    struct VersionInfo {
        std::string firmwareVersion;
        std::string bootBiosVersion;
        std::string driverVersion;
        std::string utilityName;
        std::string utilityVersion;
    };
    static std::list<GeneralInfo> stGenFC;
    static std::list<VersionInfo> stVerFC;

    explicit CFC_EMULEX_Vendor(std::string deviceId);
    ~CFC_EMULEX_Vendor() override;

    std::string GetHardwareVersion() override;
    int CheckHardwareVersion(std::string current, std::string wanted) override;
    void GetExtendedInfo(std::list<std::pair<std::string, std::string>>& list,
                         std::string* info) override;
    std::string GetUpdateOrderModuleKind(UPDATE_ORDER order, bool flag) override;
    int StartOutputDeviceConfigInfo(std::string folder, void* context) override;
    int ExecOutputDeviceConfigInfo(std::string folder, void* context) override;
    int EndOutputDeviceConfigInfo(std::string folder, void* context) override;
    void GetShortageOfNecessaryApplicationInfo(std::list<CNecessaryComponentInfo>& missing) override;
    int CheckUpdateConditionByDevicevendor(std::string moduleKind,
                                           CManageRepositoryInfo* repository) override;
    virtual std::string GetWWPNOriginal();
    virtual std::string GetWWPNEditedforDisplay();

    std::string GetBusDevFunc();

protected:
    // Links the port's modules; each model supplies its firmware class and
    // the prefix of its failure lines.
    using FirmwareFactory = CFirmware* (*)(const std::string& deviceId, const std::string& wwpn);
    void LinkModules(FirmwareFactory makeFirmware, const std::string& firmwareClass,
                     const std::string& failurePrefix);
    // Reports a missing management tool: the first message when the tool is
    // not installed (error 11), the second for any other failure.
    static void ReportOCMManagerMissing(const char* notInstalledId, const char* otherId);

    std::string wwpn;
    std::string bus;
    std::string device;
    std::string function;
};
