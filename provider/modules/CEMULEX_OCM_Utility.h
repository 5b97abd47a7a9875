#pragma once
// Management utility module: the utility's version, install and configuration check.
#include <istream>
#include <list>
#include <string>

#include "ModuleManager.h"

class CEMULEX_OCM_Utility : public CUtility {
public:
    explicit CEMULEX_OCM_Utility(std::string name);
    ~CEMULEX_OCM_Utility() override;

    std::string GetOperatingVersion() override;
    int CheckVendorVersion(std::string operating, std::string update) override;
    int UpdateBackup(std::string backupFolder, bool flag) override;
    int PreUpdate(std::string a, std::string b, std::list<std::string>* files, bool flag) override;
    int Update(std::string a, std::string b, std::list<std::string>* files, bool flag) override;
    int UpdateRestore(std::string backupFolder) override;
    bool UpdateApplyCheck(std::string backupFolder) override;

    bool OCMUpdate(std::string a, std::string b, std::list<std::string>* files, bool flag);
    bool OCMInstallCheck();

    // The two configuration files are checked alike, but only the discovery
    // file raises the flag that both checks share.
    enum ConfigFile { DISCOVERY_CONFIG, MANAGEMENT_CONFIG };
    // Scans one configuration text: true when every required setting is
    // counted off with its expected value and the flag is raised.
    static bool CheckConfigText(std::istream& in, ConfigFile file, bool& flag);
};
