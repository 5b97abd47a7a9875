#include "adapters/UtilityInstall.h"

#include <list>

#include "CommonInformation.h"
#include "FileUtility.h"
#include "UnzipUtility.h"

namespace qdmcli {

namespace {

const char kUtilityTool[] = "/usr/sbin/ocmanager/hbacmd";

// The package's folder for this machine, as the provider picks it.
std::string PackageFolderName() {
    const std::string machine = CCommon_Information::GetArchitectureInfo("qdmhost");
    if (machine.find("i386") != std::string::npos || machine.find("i686") != std::string::npos) return "x86";
    return machine.find("x86_64") != std::string::npos ? "x64" : "";
}

}  // namespace

bool UtilityInstalled() { return CFileUtility::IsFileExist(kUtilityTool); }

bool InstallUtility(const std::string& root, const std::string& archive, std::string* why) {
    const std::string unpack = root + "/tmp/EMULEX/temp/tmp";
    std::string unused;
    if (!CUnzip_Utility::DeleteFolder(unpack, "qdmhost") || !CFileUtility::CreateFolder(unpack) ||
        !CUnzip_Utility::UpdateModuleUnzip(archive, nullptr, unpack, &unused, "qdmhost")) {
        *why = "the utility package cannot be unpacked";
        return false;
    }
    const std::string folder = PackageFolderName();
    const std::string script = unpack + "/" + folder + "/install.sh";
    if (folder.empty() || !CFileUtility::IsFileExist(script)) {
        *why = "the utility package has no install script for this machine";
        return false;
    }
    // The unpack folder lies below the validated root: a plain path, no quoting needed.
    unsigned long status = 1;
    int started =
        CCommon_Information::ExecForeignModule("/bin/sh " + script + " -q", unpack + "/install-output.txt",
                                               unpack + "/" + folder, &status, CCommon_Information::NO_TIMEOUT);
    if (started != CCommon_Information::EXEC_OK || status != 0) {
        *why = "the utility's install script failed (exit status " + std::to_string(status) + ")";
        return false;
    }
    if (!UtilityInstalled()) *why = "the utility's install script ran but the tool is not installed";
    return UtilityInstalled();
}

}  // namespace qdmcli
