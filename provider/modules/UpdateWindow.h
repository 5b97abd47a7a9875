#pragma once
// What a module reports while the host is updating it.
#include <string>

#include "ModuleManager.h"

namespace emulex_update {

// While the host runs a module's update (progress 25..84) the adapter is busy
// and must not be asked for its versions.
inline bool IsUpdateInProgress(int progress) { return progress >= 25 && progress <= 84; }

// The version being installed, or the one before it when the host gave none.
inline std::string VersionDuringUpdate(CModuleManager& module) {
    const std::string updating = module.GetUpdateVersion();
    return updating.empty() ? module.GetPrevVendorVersion() : updating;
}

}  // namespace emulex_update
