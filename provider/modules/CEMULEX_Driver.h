#pragma once
// Driver module of one port: version from the attribute cache, depmod overrides.
#include <list>
#include <string>

#include "CDriverWithUpDrv.h"

class CEMULEX_Driver : public CDriverWithUpDrv {
public:
    CEMULEX_Driver(std::string first, std::string second, std::string wwpn);
    ~CEMULEX_Driver() override;

    std::string GetOperatingVersion() override;
    int CheckVendorVersion(std::string first, std::string second) override;
    int UpdateBackup(std::string backupFolder, bool flag) override;
    int PreUpdate(std::string deviceId, std::string updateModule, std::list<std::string>* files,
                  bool flag) override;
    int Update(std::string deviceId, std::string updateModule, std::list<std::string>* files,
               bool flag) override;
    int UpdateRestore(std::string backupFolder) override;
    bool UpdateApplyCheck(std::string backupFolder) override;
    virtual void SetWWPNorMac(std::string value);
    virtual std::string FormatVersionString(std::string version);

    bool DepmodExecute(bool be2net, bool lpfc, bool be2iscsi);

protected:
    std::string wwpn;
};
