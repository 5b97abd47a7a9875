#pragma once
// Pieces of the firmware modules that the version readers and the download
// share, and the pure parts of the download that tests reach directly.
#include <istream>
#include <string>

#include "ModuleManager.h"

namespace emulex_firmware {

const char kAbnormal[] = "abnormal";

// "<tool>" Download <wwpn> "<folder>/<image>"
std::string DownloadCommandLine(const std::string& ocmPath, const std::string& wwpn,
                                const std::string& workFolder, const std::string& image);

// True when some line of the tool's output contains "Download Complete".
// Reads in blocks, so an output without line ends cannot exhaust memory.
bool ContainsDownloadComplete(std::istream& output);

}  // namespace emulex_firmware
