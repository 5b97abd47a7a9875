#include "CEMULEX_OCM_Utility.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <istream>
#include <utility>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FcTrace.h"
#include "FileUtility.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "UpdateModuleUnpack.h"

namespace {

const char kTrace[] = "fc";
const char kModuleWord[] = "ocm";
const char kAbnormal[] = "abnormal";
const char kVersionFile[] = "HbaVersion.txt";
const char kInstallOutput[] = "temp_ocm_install.txt";
const char kUninstallOutput[] = "temp_ocm_uninstall.txt";
const char kUnzipFolder[] = "tmp";
const long kVersionCacheSeconds = 3600;
const int kResultFileMode = 3;

// ---- Operating version -------------------------------------------------

bool IsVersionCacheFresh(const std::string& path) {
    long age = 0;
    if (!CEmulexCommon::FileAgeSeconds(path, &age)) return false;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEMULEX_OCM_Utility::GetOperatingVersion() Hba version file elapse time [%d] sec",
                              static_cast<int>(age));
    return age < kVersionCacheSeconds;
}

// Runs "version" into the cache file. A missing tool is not fatal: whatever
// file is there is read all the same. False only when the run failed.
bool RefreshVersionCache(const std::string& path) {
    std::string hbacmd;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&hbacmd)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEMULEX_OCM_Utility::GetOperatingVersion Fail OCMPath:%s",
                                  hbacmd.c_str());
        return true;
    }
    const std::string command = "\"" + hbacmd + " version " + " > " + "\"" + path + "\"";
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEMULEX_OCM_Utility::GetOperatingVersion() ExecForeignModule cmd:[%s]", command.c_str());
    if (CEmulexCommon::ExecCommand_(command) == 0) return true;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEMULEX_OCM_Utility::GetOperatingVersion() command error");
    return false;
}

// Text after the first ":" of the first line naming the command-line
// interface (empty without a ":"); false when no line names it.
bool VersionFromVersionOutput(std::istream& in, std::string* version) {
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line.find("Command Line Interface") == std::string::npos) continue;
        const std::string::size_type colon = line.find(':');
        *version = colon == std::string::npos ? std::string() : line.substr(colon + 1);
        return true;
    }
    return false;
}

std::string ReadVersionFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEMULEX_OCM_Utility::GetOperatingVersion() file open error:%s",
                                  path.c_str());
        return std::string();
    }
    std::string version;
    if (VersionFromVersionOutput(in, &version))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEMULEX_OCM_Utility::GetOperatingVersion() strRetVal:%s",
                                  version.c_str());
    return version;
}

// Four-part form of a raw version such as " 10.2.370.16 (build)", or "abnormal".
std::string NormaliseVersion(const std::string& raw) {
    if (raw.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CEMULEX_OCM_Utility::GetOperatingVersion() operating version abnormal. [%s]", raw.c_str());
        return kAbnormal;
    }
    std::string trimmed;
    CStringUtil::strTrimAll(raw.substr(0, raw.find('(')), trimmed);
    const std::string cleaned = CEmulexCommon::FormatVersion4SegCleanDust(trimmed);
    if (CStringUtil::CheckVersion4SegFormat(cleaned)) return cleaned;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                              "CEMULEX_OCM_Utility::GetOperatingVersion() operating version format error. [%s]",
                              cleaned.c_str());
    return kAbnormal;
}

void DeleteInstallOutput() {
    const std::string path = CEmulexCommon::TempFilePath(kInstallOutput);
    if (!CCommon_Information::RetryDeleteFile(path))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to delete OCM update result File [%s]",
                                  path.c_str());
}

// ---- Install and upgrade -----------------------------------------------

bool IsInstallDone() {
    struct stat st;
    if (::stat(CEmulexCommon::TempFilePath(kInstallOutput).c_str(), &st) != 0) return false;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "OCM update is previously-reported.OCM Update is skipped");
    return true;
}

bool HasPackageScript(const std::string& packageFolder, const char* script) {
    if (CFileUtility::IsFileExist(packageFolder + "/" + script)) return true;
    CEmulexCommon::SetLastError(29);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to find update module.There is not %s file.", script);
    return false;
}

// Archives do not always keep the execute bits; a failure here is left to
// the scripts' own runs to show.
void MakeScriptsExecutable(const std::string& packageFolder) {
    const std::string command = "chmod 777 " + packageFolder + "/*";
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Execute tsystem command:[%s]", command.c_str());
    const int status = std::system(command.c_str());
    if (status != 0)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "[%s] return [%d]", command.c_str(), status);
}

// Runs one package script, judged by the messages of the package's message file.
bool RunPackageScript(const std::string& command, const char* outputName, const std::string& packageFolder,
                      unsigned long* returnCode) {
    const std::string output = CEmulexCommon::TempFilePath(outputName);
    if (CEmulexCommon::EmulexUpdate(command, output, "", returnCode, "", packageFolder + "/" + "message.txt",
                                    kResultFileMode))
        return true;
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to open file(%s).", output.c_str());
    return false;
}

bool UninstallUtility(const std::string& packageFolder, unsigned long* returnCode) {
    const bool uninstalled = RunPackageScript(packageFolder + "/" + "uninstall.sh", kUninstallOutput, packageFolder, returnCode);
    // The log names "ocm_update_result.txt", not the file it failed to
    // delete; the text is kept as operators know it.
    if (!CCommon_Information::RetryDeleteFile(CEmulexCommon::TempFilePath(kUninstallOutput)))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to delete OCM update result File [%s]",
                                  CEmulexCommon::TempFilePath("ocm_update_result.txt").c_str());
    return uninstalled;
}

// Package folder of this machine in the unzip folder, or empty.
std::string ArchitecturePackageFolder(const std::string& unzipFolder) {
    const std::string architecture =
        emulex_update::PackageArchitectureFolder(CCommon_Information::GetArchitectureInfo(kTrace));
    if (!architecture.empty()) return unzipFolder + "/" + architecture;
    // No last error and no operator message of its own: PreUpdate's failure
    // line with the unchanged last error is all this case reports.
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get os architecture.");
    return std::string();
}

// The old utility goes first; a package without "install.sh" therefore
// leaves the machine without the utility until the next cycle.
bool ReplaceUtility(const std::string& packageFolder) {
    if (!HasPackageScript(packageFolder, "uninstall.sh")) return false;
    MakeScriptsExecutable(packageFolder);
    unsigned long returnCode = 1;
    if (!UninstallUtility(packageFolder, &returnCode)) return false;
    if (!HasPackageScript(packageFolder, "install.sh")) return false;
    return RunPackageScript(packageFolder + "/" + "install.sh" + " -q", kInstallOutput, packageFolder, &returnCode);
}

bool InstallFromModule(const std::string& updateModule, std::list<std::string>* files) {
    const std::string unzipFolder = CEmulexCommon::TempFilePath(kUnzipFolder);
    if (!emulex_update::UnpackUpdateModule(updateModule, files, unzipFolder)) {
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0004_F", kModuleWord, CEmulexCommon::GetLastErrorToChractor());
        return false;
    }
    const std::string packageFolder = ArchitecturePackageFolder(unzipFolder);
    return !packageFolder.empty() && ReplaceUtility(packageFolder);
}

// ---- Configuration check -----------------------------------------------

struct RequiredSetting {
    const char* key;
    const char* line;
};

const RequiredSetting kDiscoverySettings[] = {
    {"ClientRemoteOperation", "ClientRemoteOperation:disabled"},
    {"ClientOperationMode", "ClientOperationMode:enabled"},
    {"ClientReadOnlyOperation", "ClientReadOnlyOperation:disabled"},
    {"TcpSocketPortNumber", "TcpSocketPortNumber:23333"},
};

const RequiredSetting kManagementSettings[] = {
    {"ServerRemoteOperation", "ServerRemoteOperation:enabled"},
    {"ManagementHost", "ManagementHost:false"},
    {"SecureManagement", "SecureManagement:disabled"},
    {"MngmtHostIpAddress", "MngmtHostIpAddress:0"},
    {"ExclusiveHostMgmnt", "ExclusiveHostMgmnt:false"},
};

// One configuration file to check and the texts its log lines use.
struct ConfigCheck {
    const char* name;
    const RequiredSetting* settings;
    int settingCount;
    bool setsFlag;            // only the discovery file raises the shared flag
    const char* counterTrace;
};

// The discovery text lacks its opening parenthesis; operators know it so.
const ConfigCheck kDiscoveryCheck = {"emulexDiscConfig", kDiscoverySettings, 4, true,
                                     "0 < iDiskKeyWordCount ) || ( iRet != true )"};
const ConfigCheck kManagementCheck = {"emulexRMConfig", kManagementSettings, 5, false,
                                      "( 0 < iRmKeyWordCount ) || ( iRet != true )"};

std::string WithoutBlanks(std::string line, const char* name) {
    for (std::string::size_type blank = line.find(' '); blank != std::string::npos; blank = line.find(' ', blank)) {
        line.erase(blank, 1);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "%s space delete:[%s]", name, line.c_str());
    }
    return line;
}

// Tests one line against every key in table order; false on a key line with
// another value. Each matching line counts one setting off.
bool MatchSettingLine(const std::string& line, const ConfigCheck& check, int& remaining) {
    for (int i = 0; i < check.settingCount; ++i) {
        const RequiredSetting& setting = check.settings[i];
        if (line.find(setting.key) == std::string::npos) continue;
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "find[%s] in [%s]", setting.key, line.c_str());
        if (line != setting.line) {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "not silent [%s]", line.c_str());
            return false;
        }
        --remaining;
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "silent [%s]", line.c_str());
    }
    return true;
}

// Reads the settings until all are counted off, the end, or a wrong value.
void ScanSettings(std::istream& in, const ConfigCheck& check, int& remaining, bool& flag) {
    std::string line;
    while (std::getline(in, line)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "%s:[%s]", check.name, line.c_str());
        if (!MatchSettingLine(WithoutBlanks(line, check.name), check, remaining)) {
            flag = false;
            return;
        }
        if (remaining == 0 || in.peek() == std::char_traits<char>::eof()) {
            if (check.setsFlag) flag = true;
            return;
        }
    }
}

bool CheckConfigStream(std::istream& in, const ConfigCheck& check, bool& flag) {
    int remaining = check.settingCount;
    ScanSettings(in, check, remaining, flag);
    if (remaining == 0 && flag) return true;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "%s", check.counterTrace);
    return false;
}

bool CheckConfigFile(const ConfigCheck& check, bool& flag) {
    const std::string path = std::string("/") + "etc" + "/" + check.name;
    std::ifstream in(path);
    if (!in) {
        CEmulexCommon::SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to open file(%s).", path.c_str());
        return false;
    }
    return CheckConfigStream(in, check, flag);
}

// True when no elxocmjvm package is installed. The pattern wants exactly ten
// characters between "elxocmjvm-" and "rpm".
bool IsJvmPackageAbsent() {
    const std::string resultFile = CEmulexCommon::TempFilePath("rpm_grep_result.txt");
    const std::string command = "rpm -qa | grep elxocmjvm-..........rpm;echo $? > " + resultFile;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Execute tsystem command:[%s]", command.c_str());
    const int status = std::system(command.c_str());
    if (status != 0) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "_tsystem error (rpm grep). (%d)", status);
        return false;
    }
    std::ifstream in(resultFile);
    if (!in) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to open file(%s).", resultFile.c_str());
        return false;
    }
    std::string grepStatus;
    std::getline(in, grepStatus);
    if (grepStatus != "0") return true;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "I found elxocmjvm-xxxx.xxxx.rpm. ");
    return false;
}

}  // namespace

CEMULEX_OCM_Utility::CEMULEX_OCM_Utility(std::string name) : CUtility(std::move(name), kModuleWord) {
    TraceFunc("CEMULEX_OCM_Utility::CEMULEX_OCM_Utility() [START]");
    TraceFunc("CEMULEX_OCM_Utility::CEMULEX_OCM_Utility() [END]");
}

CEMULEX_OCM_Utility::~CEMULEX_OCM_Utility() {
    TraceFunc("CEMULEX_OCM_Utility::~CEMULEX_OCM_Utility() [START]");
    TraceFunc("CEMULEX_OCM_Utility::~CEMULEX_OCM_Utility() [END]");
}

std::string CEMULEX_OCM_Utility::GetOperatingVersion() {
    TraceFunc("CEMULEX_OCM_Utility::GetOperatingVersion() [START]");
    const std::string outputFile = CStringUtil::TstringToString(CEmulexCommon::CacheFilePath(kVersionFile));
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEMULEX_OCM_Utility::GetOperatingVersion() strOutputFile:%s",
                              outputFile.c_str());
    std::string raw;
    if (IsVersionCacheFresh(outputFile) || RefreshVersionCache(outputFile)) raw = ReadVersionFile(outputFile);
    const std::string result = NormaliseVersion(raw);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEMULEX_OCM_Utility::GetOperatingVersion() FixVersion:(%s) [END]",
                              result.c_str());
    return result;
}

int CEMULEX_OCM_Utility::CheckVendorVersion(std::string operating, std::string update) {
    TraceFunc("CEMULEX_OCM_Utility::CheckVendorVersion() [START]");
    const int result = CEmulexCommon::CheckVendorVersion4SegNormal(operating, update);
    TraceFunc("CEMULEX_OCM_Utility::CheckVendorVersion() [END]");
    return result;
}

int CEMULEX_OCM_Utility::UpdateBackup(std::string, bool) {
    TraceFunc("CEMULEX_OCM_Utility::UpdateBackup() [START]");
    DeleteInstallOutput();
    TraceFunc("CEMULEX_OCM_Utility::UpdateBackup() [END]");
    return 0;
}

int CEMULEX_OCM_Utility::PreUpdate(std::string a, std::string b, std::list<std::string>* files, bool flag) {
    TraceFunc("CEMULEX_OCM_Utility::PreUpdate() [START]");
    int result = 0;
    if (!OCMUpdate(std::move(a), std::move(b), files, flag)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to update(%s)(%d).", kModuleWord,
                                  static_cast<int>(CEmulexCommon::GetLastError()));
        result = 1;
    }
    TraceFunc("CEMULEX_OCM_Utility::PreUpdate() [END]");
    return result;
}

// The install runs in PreUpdate; this step is deliberately empty.
int CEMULEX_OCM_Utility::Update(std::string, std::string, std::list<std::string>*, bool) {
    TraceFunc("CEMULEX_OCM_Utility::Update() [START]");
    TraceFunc("CEMULEX_OCM_Utility::Update() [END]");
    return 0;
}

int CEMULEX_OCM_Utility::UpdateRestore(std::string) {
    TraceFunc("CEMULEX_OCM_Utility::UpdateRestore() [START]");
    DeleteInstallOutput();
    // The next reading must ask the tool again.
    if (!CCommon_Information::RetryDeleteFile(CEmulexCommon::CacheFilePath(kVersionFile)))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to delete OCM operating version File.");
    TraceFunc("CEMULEX_OCM_Utility::UpdateRestore() [END]");
    return 0;
}

bool CEMULEX_OCM_Utility::UpdateApplyCheck(std::string) {
    TraceFunc("CEMULEX_OCM_Utility::UpdateApplyCheck() [START]");
    const std::string operating = GetOperatingVersion();
    const std::string update = GetOperatingModuleInfo().version;
    // 0008 for an unreadable installed version, 0009 for a true mismatch.
    const char* messageId = nullptr;
    if (operating == kAbnormal)
        messageId = "MSGID_EMULEX_FC_0008_F";
    else if (CheckVendorVersion(operating, update) != 0)
        messageId = "MSGID_EMULEX_FC_0009_F";
    if (messageId != nullptr) {
        CTraceUtility::WriteTrace(kTrace, messageId, kModuleWord, operating, update);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "Operating Version(%s) and Update Version(%s) are mismatched", operating.c_str(),
                                  update.c_str());
    }
    TraceFunc("CEMULEX_OCM_Utility::UpdateApplyCheck() [END]");
    return messageId != nullptr;
}

bool CEMULEX_OCM_Utility::OCMUpdate(std::string, std::string b, std::list<std::string>* files, bool) {
    TraceFunc("CEMULEX_OCM_Utility::OCMUpdate() [START]");
    const bool result = IsInstallDone() || InstallFromModule(b, files);
    TraceFunc("CEMULEX_OCM_Utility::OCMUpdate() [END]");
    return result;
}

bool CEMULEX_OCM_Utility::CheckConfigText(std::istream& in, ConfigFile file, bool& flag) {
    return CheckConfigStream(in, file == DISCOVERY_CONFIG ? kDiscoveryCheck : kManagementCheck, flag);
}

bool CEMULEX_OCM_Utility::OCMInstallCheck() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEMULEX_OCM_Utility::OCMInstallCheck() [START]");
    GetOperatingVersion();  // refreshes the version cache before the check
    bool flag = false;
    const bool result =
        CheckConfigFile(kDiscoveryCheck, flag) && CheckConfigFile(kManagementCheck, flag) && IsJvmPackageAbsent();
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEMULEX_OCM_Utility::OCMInstallCheck() [END]");
    return result;
}
