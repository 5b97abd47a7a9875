#pragma once
// Value types that the host hands to vendors and modules.
#include <string>

// Opaque management-service handle; providers never use it.
struct IWbemServices;

// One update package of the repository as the host knows it.
class CManageRepositoryInfo {
public:
    std::string uniqueName;   // the model key the package serves
    std::string moduleKind;   // "firm", "driver" or "util"
    std::string version;      // the package's version
    std::string archivePath;  // the update module archive
};

// One module registration of a device.
class CManageModuleInfo {
public:
    std::string moduleKind;
    std::string moduleName;
    std::string uniqueName;
    std::string version;
};

// A dependency between two update modules.
class CDependencyInfo {
public:
    std::string moduleKind;
    std::string requiredVersion;
};

// An application that a vendor links to itself.
class CLinkApplicationInfo {
public:
    std::string applicationName;
    std::string version;
};

// A component that must be installed before a device can be updated.
class CNecessaryComponentInfo {
public:
    std::string componentName;  // display name; the only member providers fill
    std::string version;
    std::string note;
};
