#pragma once
// Pieces of the firmware modules that the version readers and the download
// share, and the pure parts of the download that tests reach directly.
#include <istream>
#include <string>

#include "ModuleManager.h"

namespace emulex_firmware {

const char kAbnormal[] = "abnormal";

// While the host runs this module's update (progress 25..84) the adapter is
// busy being flashed and must not be asked for its versions.
inline bool IsUpdateInProgress(int progress) { return progress >= 25 && progress <= 84; }

// The version being installed, or the one before it when the host gave none.
inline std::string VersionDuringUpdate(CModuleManager& module) {
    const std::string updating = module.GetUpdateVersion();
    return updating.empty() ? module.GetPrevVendorVersion() : updating;
}

// "<tool>" Download <wwpn> "<folder>/<image>"
std::string DownloadCommandLine(const std::string& ocmPath, const std::string& wwpn,
                                const std::string& workFolder, const std::string& image);

// True when some line of the tool's output contains "Download Complete".
// Reads in blocks, so an output without line ends cannot exhaust memory.
bool ContainsDownloadComplete(std::istream& output);

}  // namespace emulex_firmware
