#pragma once
// Steps that the firmware, driver and utility modules share when they unpack
// an update module into a work folder and take names out of it.
#include <cctype>
#include <cstring>
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

// Image and package names come from the archive and WWPNs from tool output;
// both end up in shell command lines, so only letters, digits and the marks
// that such names use are let through.
inline bool IsPlainCommandText(const std::string& text) {
    for (unsigned char c : text)
        if (!std::isalnum(c) && (c == '\0' || std::strchr("._-+:", c) == nullptr)) return false;
    return true;
}

// Text placed inside a double-quoted shell word: blanks and parentheses are
// harmless there; refused is only what ends the quotes, expands inside them
// or ends the command line (the NUL counts too).
inline bool IsQuotableCommandText(const std::string& text) {
    static const char kUnquotable[] = "\"`$\\\r\n";
    return text.find_first_of(kUnquotable, 0, sizeof kUnquotable) == std::string::npos;
}

// Empties `folder` and unpacks the archive into it. On failure the last error
// tells the step (28 removing, 19 creating, 26 unpacking) and false is
// returned; the operator message, if any, is the caller's.
inline bool UnpackUpdateModule(const std::string& archive, std::list<std::string>* files,
                               const std::string& folder) {
    if (!CUnzip_Utility::DeleteFolder(folder, "fc")) {
        CEmulexCommon::SetLastError(28);
        return false;
    }
    if (!CFileUtility::CreateFolder(folder)) {
        CEmulexCommon::SetLastError(19);
        CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "Failed to get create unzip folder");
        return false;
    }
    std::string unzipOutput;
    if (!CUnzip_Utility::UpdateModuleUnzip(archive, files, folder, &unzipOutput, "fc")) {
        CEmulexCommon::SetLastError(26);
        return false;
    }
    return true;
}

}  // namespace emulex_update
