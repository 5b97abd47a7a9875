#pragma once
// Steps that the driver and utility modules share when they unpack an update
// module into the common work folder "tmp".
#include <list>
#include <string>

#include "CEmulexCommon.h"
#include "FileUtility.h"
#include "TraceUtility.h"
#include "UnzipUtility.h"

namespace emulex_update {

// Package folder of the machine: "x86" for 32-bit, "x64" for 64-bit, empty
// when unsupported. Substring tests, 32-bit names first.
inline std::string PackageArchitectureFolder(const std::string& machine) {
    if (machine.find("i386") != std::string::npos || machine.find("i686") != std::string::npos)
        return "x86";
    if (machine.find("x86_64") != std::string::npos) return "x64";
    return "";
}

// Empties `folder` and unpacks the archive into it. On failure the last error
// is set, the operator is told under `moduleWord`, and false is returned.
inline bool UnpackUpdateModule(const std::string& archive, std::list<std::string>* files,
                               const std::string& folder, const char* moduleWord) {
    unsigned long error = 0;
    std::string unzipOutput;
    if (!CUnzip_Utility::DeleteFolder(folder, "fc")) {
        error = 28;
    } else if (!CFileUtility::CreateFolder(folder)) {
        error = 19;
        CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "Failed to get create unzip folder");
    } else if (!CUnzip_Utility::UpdateModuleUnzip(archive, files, folder, &unzipOutput, "fc")) {
        error = 26;
    }
    if (error == 0) return true;
    CEmulexCommon::SetLastError(error);
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0004_F", moduleWord, CEmulexCommon::GetLastErrorToChractor());
    return false;
}

}  // namespace emulex_update
