#pragma once
// Firmware update module of one adapter port.
#include <list>
#include <string>

#include "ModuleManager.h"

class CEMULEX_Firmware : public CFirmware {
public:
    CEMULEX_Firmware(std::string deviceId, std::string wwpn);
    ~CEMULEX_Firmware() override;

    std::string GetOperatingVersion() override;
    int CheckVendorVersion(std::string version1, std::string version2) override;
    int UpdateBackup(std::string backupFolder, bool flag) override;
    int PreUpdate(std::string deviceId, std::string updateModule, std::list<std::string>* messages,
                  bool flag) override;
    int Update(std::string deviceId, std::string updateModule, std::list<std::string>* messages,
               bool flag) override;
    int UpdateRestore(std::string backupFolder) override;
    bool UpdateApplyCheck(std::string backupFolder) override;
    virtual void SetWWPNorMac(std::string wwpnOrMac);
    virtual std::string FormatVersionString(std::string version);

    bool FwUpdate(std::string updateModule, std::string workFolder, std::string ocmPath,
                  std::list<std::string>* messages, bool flag);

protected:
    std::string wwpn;
};
