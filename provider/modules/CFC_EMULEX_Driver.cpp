#include "CFC_EMULEX_Driver.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FcTrace.h"
#include "FileUtility.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "UnzipUtility.h"
#include "UpdateModuleUnpack.h"

namespace {

const char kTrace[] = "fc";
const char kModuleWord[] = "driv";
const char kAbnormal[] = "abnormal";
const char kUpdateFailedId[] = "MSGID_EMULEX_FC_0004_F";
const char kNoPackageId[] = "MSGID_EMULEX_FC_0005_F";
const char kMismatchId[] = "MSGID_EMULEX_FC_0009_F";
const char kCnaMarkerFile[] = "SequentialUpdateFile_FCoE.txt";
const char kResultFile[] = "temp_driver_fc.txt";
const char kUnzipFolder[] = "tmp";

// Operator message of a failed step; the last error is already set.
int ReportFailure(const char* messageId) {
    CTraceUtility::WriteTrace(kTrace, messageId, kModuleWord, CEmulexCommon::GetLastErrorToChractor());
    return 1;
}

bool IsDriverUpdateSkipped() {
    if (CFileUtility::IsFileExist(CEmulexCommon::TempFilePath(kCnaMarkerFile))) {
        // On a converged-adapter system that side owns the driver update.
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Driver update trun is CNA. Driver Update is skipped");
        return true;
    }
    if (CFileUtility::IsFileExist(CEmulexCommon::TempFilePath(kResultFile))) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                                  "Driver update is previously-reported.Driver Update is skipped");
        return true;
    }
    return false;
}

void DeleteResultFile() {
    const std::string path = CEmulexCommon::TempFilePath(kResultFile);
    if (!CCommon_Information::RetryDeleteFile(path))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to delete Driver update result File [%s]",
                                  path.c_str());
}

// A directory opens for reading but fails on the first read, so one byte is read.
bool IsReadableFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    std::fgetc(file);
    const bool readable = std::ferror(file) == 0;
    std::fclose(file);
    return readable;
}

// Finds the one driver package of this machine's architecture below the
// unzip folder. Returns the message of the failure, or nullptr.
const char* FindDriverPackage(const std::string& unzipFolder, std::string& package) {
    const std::string machine = CCommon_Information::GetArchitectureInfo(kTrace);
    const std::string architecture = emulex_update::PackageArchitectureFolder(machine);
    if (architecture.empty()) {
        CEmulexCommon::SetLastError(32);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Not supported OS arch %s", machine.c_str());
        return kUpdateFailedId;
    }
    const std::string folder = unzipFolder + "/" + architecture + "/" + "FC";
    std::string programFiles;
    if (!CEmulexCommon::GetProgramFilesFolder_(&programFiles)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "No %s", folder.c_str());
        return kUpdateFailedId;
    }
    std::list<std::string> found;
    CFileUtility::SearchFile(folder, "*.rpm", &found, false);
    if (found.size() != 1) {
        // Exactly one package: the module never chooses among several.
        CEmulexCommon::SetLastError(29);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to find update module.There is %s update file.",
                                  found.empty() ? "not" : "some");
        return kNoPackageId;
    }
    package = folder + "/" + found.front();
    if (!emulex_update::IsPlainCommandText(found.front()) || !IsReadableFile(package)) {
        CEmulexCommon::SetLastError(29);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "No %s", package.c_str());
        return kUpdateFailedId;  // 0004, not 0005: the package exists but cannot be used
    }
    return nullptr;
}

bool InstallPackage(const std::string& package) {
    const std::string command = "rpm -Uhv --oldpackage " + package + " > " + CEmulexCommon::TempFilePath(kResultFile);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Execute Update by _tsystem method [%s]", command.c_str());
    const int status = std::system(command.c_str());
    if (status == 0) return true;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Return=%d", status);
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Driver update error(%s).", command.c_str());
    return false;
}

}  // namespace

CFC_EMULEX_Driver::CFC_EMULEX_Driver(std::string first, std::string second, std::string wwpn)
    : CEMULEX_Driver(std::move(first), std::move(second), std::move(wwpn)) {
    TraceFunc("CFC_EMULEX_Driver::CFC_EMULEX_Driver() [START]");
    TraceFunc("CFC_EMULEX_Driver::CFC_EMULEX_Driver() [END]");
}

CFC_EMULEX_Driver::~CFC_EMULEX_Driver() {
    TraceFunc("CFC_EMULEX_Driver::~CFC_EMULEX_Driver() [START]");
    TraceFunc("CFC_EMULEX_Driver::~CFC_EMULEX_Driver() [END]");
}

int CFC_EMULEX_Driver::UpdateBackup(std::string, bool) {
    TraceFunc("CFC_EMULEX_Driver::UpdateBackup() [START]");
    DeleteResultFile();
    TraceFunc("CFC_EMULEX_Driver::UpdateBackup() [END]");
    return 0;
}

int CFC_EMULEX_Driver::PreUpdate(std::string, std::string, std::list<std::string>*, bool) {
    TraceFunc("CFC_EMULEX_Driver::PreUpdate() [START]");
    TraceFunc("CFC_EMULEX_Driver::PreUpdate() [END]");
    return 0;
}

int CFC_EMULEX_Driver::Update(std::string, std::string updateModule, std::list<std::string>* files, bool) {
    TraceFunc("CFC_EMULEX_Driver::Update() [START]");
    int result = 0;
    const std::string unzipFolder = CEmulexCommon::TempFilePath(kUnzipFolder);
    std::string package;
    if (IsDriverUpdateSkipped()) {
        result = 0;
    } else if (!emulex_update::UnpackUpdateModule(updateModule, files, unzipFolder)) {
        result = ReportFailure(kUpdateFailedId);
    } else if (const char* failure = FindDriverPackage(unzipFolder, package)) {
        result = ReportFailure(failure);
    } else if (!InstallPackage(package)) {
        // No message, and the unpacked package stays: rpm's output in the
        // result file and the package itself are what is looked at next.
        result = 1;
    } else {
        DepmodExecute(false, true, false);  // the package is installed whatever depmod says
        if (!CUnzip_Utility::DeleteFolder(unzipFolder, kTrace)) {
            CEmulexCommon::SetLastError(28);
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get delete update module folder");
            result = ReportFailure(kUpdateFailedId);
        }
    }
    TraceFunc("CFC_EMULEX_Driver::Update() [END]");
    return result;
}

int CFC_EMULEX_Driver::UpdateRestore(std::string) {
    TraceFunc("CFC_EMULEX_Driver::UpdateRestore() [START]");
    if (CEmulexCommon::DeleteHbaAttribCache(wwpn) != 0)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to get delete HbaAttrib cache file.");
    DeleteResultFile();
    TraceFunc("CFC_EMULEX_Driver::UpdateRestore() [END]");
    return 0;
}

bool CFC_EMULEX_Driver::UpdateApplyCheck(std::string) {
    TraceFunc("CFC_EMULEX_Driver::UpdateApplyCheck() [START]");
    const std::string operating = GetOperatingVersion();
    const std::string update = GetOperatingModuleInfo().version;
    // An unreadable version is a mismatch too; the driver reports both alike.
    const bool mismatched = operating == kAbnormal || CheckVendorVersion(operating, update) != 0;
    if (mismatched) {
        CTraceUtility::WriteTrace(kTrace, kMismatchId, kModuleWord, operating, update);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "Operating Version(%s) and Update Version(%s) are mismatched", operating.c_str(),
                                  update.c_str());
    }
    TraceFunc("CFC_EMULEX_Driver::UpdateApplyCheck() [END]");
    return mismatched;
}

std::string CFC_EMULEX_Driver::FormatVersionString(std::string version) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Driver::FormatVersionString() [%s][START]",
                              version.c_str());
    std::string result = kAbnormal;
    if (version.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CFC_EMULEX_Driver::FormatVersionString() Version empty [%s]",
                                  version.c_str());
    } else {
        // The tool appends the HBA API details after a ";".
        std::string trimmed;
        CStringUtil::strTrimAll(version.substr(0, version.find(';')), trimmed);
        const std::string cleaned = CEmulexCommon::FormatVersion4SegCleanDust(trimmed);
        if (CStringUtil::CheckVersion4SegFormat(cleaned))
            result = cleaned;
        else
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                      "CFC_EMULEX_Driver::FormatVersionString() Version format error. [%s]", cleaned.c_str());
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Driver::FormatVersionString() [%s][END]",
                              result.c_str());
    return result;
}
