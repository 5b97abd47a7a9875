#pragma once
// FC driver package module: installs the lpfc RPM of an update module.
#include <list>
#include <string>

#include "CEMULEX_Driver.h"

class CFC_EMULEX_Driver : public CEMULEX_Driver {
public:
    CFC_EMULEX_Driver(std::string first, std::string second, std::string wwpn);
    ~CFC_EMULEX_Driver() override;

    int UpdateBackup(std::string backupFolder, bool flag) override;
    int PreUpdate(std::string deviceId, std::string updateModule, std::list<std::string>* files,
                  bool flag) override;
    int Update(std::string deviceId, std::string updateModule, std::list<std::string>* files,
               bool flag) override;
    int UpdateRestore(std::string backupFolder) override;
    bool UpdateApplyCheck(std::string backupFolder) override;
    std::string FormatVersionString(std::string version) override;
};
