#include "CEMULEX_Firmware.h"

#include <fstream>
#include <utility>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "FirmwareSupport.h"
#include "HostSys.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "UnzipUtility.h"
#include "UpdateModuleUnpack.h"
#include "UpdateWindow.h"
#include "WwpnText.h"

namespace {

const char kTrace[] = "fc";
const char kModuleWord[] = "firm";
const char kWorkFolderName[] = "firm";
const char kMessageFileName[] = "message.txt";
const char kDownloadOutputName[] = "temp_hbacmd_Download.txt";
const char kDownloadComplete[] = "Download Complete";
const int kDownloadAttempts = 4;
const unsigned long kRetryPauseMs = 1000;
const int kResultFileMode = 3;

const CTraceUtility::TRACE_DBG_LEVEL kFunc = CTraceUtility::TRACE_FUNC;
const CTraceUtility::TRACE_DBG_LEVEL kInfo = CTraceUtility::TRACE_INFO;
const CTraceUtility::TRACE_DBG_LEVEL kError = CTraceUtility::TRACE_ERROR;

// <root>/tmp/EMULEX/temp/firm
std::string FirmwareWorkFolder() {
    return CFileUtility::GetInstallPath(0) + "/" + "tmp" + "/" + "EMULEX" + "/" + "temp" + "/" + kWorkFolderName;
}

// ---- Image selection ---------------------------------------------------

// 8G adapters take a boot BIOS image besides the firmware.
bool IsEightGigModule(const std::string& uniqueName) {
    return uniqueName == "fcelx_8g1p" || uniqueName.compare(0, 10, "fcelx_8g2p") == 0;
}

// Firmware pattern of the modules without a boot BIOS image; null when the
// unique name is none of them.
const char* SingleImagePattern(const std::string& uniqueName) {
    if (uniqueName == "OCe11102" || uniqueName == "OCl14104") return "*.ufi";
    if (uniqueName == "fcelx_16g") return "*.grp";
    return nullptr;
}

// Exactly one image of the kind ("bios", "firmware") must have been found;
// the program never chooses among several.
bool TakeOnlyImage(const std::list<std::string>& found, const char* kind, std::string* image) {
    if (found.size() == 1) {
        *image = found.front();
        return true;
    }
    CEmulexCommon::SetLastError(29);
    CTraceUtility::WriteDebug(kTrace, kError, "Failed to find update module.There is %s %s file.",
                              found.empty() ? "not" : "some", kind);
    return false;
}

void SearchImages(const std::string& folder, const char* pattern, std::list<std::string>* found) {
    // The list is reused between searches; a search without a hit leaves it empty.
    if (!CFileUtility::SearchFile(folder, pattern, found, false)) found->clear();
}

void TraceShortExit() { CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::FwUpdate() [END]"); }

// Finds the boot BIOS image (8G only) and the firmware image of the module
// kind. False (last error 29) when one is missing or ambiguous; `exitTraced`
// tells that the short exit line ended the operation's trace already.
bool SelectImages(const std::string& uniqueName, const std::string& folder, std::string* biosImage,
                  std::string* firmwareImage, bool* exitTraced) {
    std::list<std::string> found;
    if (IsEightGigModule(uniqueName)) {
        SearchImages(folder, "*.prg", &found);
        if (!TakeOnlyImage(found, "bios", biosImage)) {
            TraceShortExit();
            *exitTraced = true;
            return false;
        }
        SearchImages(folder, "*.all", &found);
    } else if (const char* pattern = SingleImagePattern(uniqueName)) {
        SearchImages(folder, pattern, &found);
    } else {
        // This exit line and the firmware check's failure after it are both
        // written: operators know the sequence.
        CEmulexCommon::SetLastError(29);
        CTraceUtility::WriteDebug(kTrace, kError, "No such unique name.");
        TraceShortExit();
    }
    return TakeOnlyImage(found, "firmware", firmwareImage);
}

// ---- Running the tool --------------------------------------------------

// The WWPN comes from the adapter list and the image names from the archive;
// all three reach the shell (29 when refused). The WWPN stands bare on the
// command line and must be a WWPN; the images stand inside double quotes,
// so names with blanks or parentheses are fine.
bool IsCommandTextSafe(const std::string& wwpn, const std::string& biosImage, const std::string& firmwareImage) {
    if (emulex_common::IsWwpnText(wwpn) && emulex_update::IsQuotableCommandText(biosImage) &&
        emulex_update::IsQuotableCommandText(firmwareImage))
        return true;
    CEmulexCommon::SetLastError(29);
    CTraceUtility::WriteDebug(kTrace, kError, "Download command refused, unsafe text in [%s] [%s] [%s]", wwpn.c_str(),
                              biosImage.c_str(), firmwareImage.c_str());
    return false;
}

std::string DownloadOutputFile() { return FirmwareWorkFolder() + "/" + kDownloadOutputName; }

// Judged by the messages that the module's message file defines.
bool RunThroughMessageFile(const std::string& command, const std::string& workFolder) {
    unsigned long returnCode = 1;
    return CEmulexCommon::EmulexUpdate(command, DownloadOutputFile(), workFolder, &returnCode, "",
                                       workFolder + "/" + kMessageFileName, kResultFileMode) != 0;
}

// Only the tool's output decides; its exit status is not trusted.
bool DownloadUntilComplete(const std::string& command, const std::string& outputFile) {
    for (int attempt = 1;; ++attempt) {
        CTraceUtility::WriteDebug(kTrace, kInfo, "ExecForeignModule cmd:[%s]", command.c_str());
        unsigned long returnCode = 1;
        const int result =
            CCommon_Information::ExecForeignModule(command, outputFile, "", &returnCode, CCommon_Information::NO_TIMEOUT);
        std::ifstream output(outputFile);
        if (!output) {
            CEmulexCommon::SetLastError(17);
            CTraceUtility::WriteDebug(kTrace, kError, "Failed to open file(%s).", outputFile.c_str());
            return false;
        }
        if (emulex_firmware::ContainsDownloadComplete(output)) return true;
        if (attempt == kDownloadAttempts) {
            CEmulexCommon::SetLastError(16);
            CTraceUtility::WriteDebug(kTrace, kError, "Failed to execute command:%s ,return:%d", command.c_str(), result);
            return false;
        }
        Sleep(kRetryPauseMs);
    }
}

bool UpdateBootBios(const std::string& command, const std::string& workFolder) {
    CTraceUtility::WriteDebug(kTrace, kInfo, "Execute bios update(%s).", command.c_str());
    if (RunThroughMessageFile(command, workFolder)) return true;
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, kError, "Failed to bios update(%s).", command.c_str());
    return false;
}

bool UpdateFirmware(const std::string& command, const std::string& workFolder) {
    const std::string outputFile = DownloadOutputFile();
    if (!CFileUtility::IsFileExist(workFolder + "/" + kMessageFileName))
        return DownloadUntilComplete(command, outputFile);
    if (RunThroughMessageFile(command, workFolder)) return true;
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, kError, "Failed to open file(%s).", outputFile.c_str());
    return false;
}

}  // namespace

namespace emulex_firmware {

std::string DownloadCommandLine(const std::string& ocmPath, const std::string& wwpn, const std::string& workFolder,
                                const std::string& image) {
    return "\"" + ocmPath + "\"" + " Download " + wwpn + " " + "\"" + workFolder + "/" + image + "\"";
}

bool ContainsDownloadComplete(std::istream& output) {
    const std::string needle = kDownloadComplete;
    const size_t blockSize = 4096;
    std::string window;
    char block[blockSize];
    // The needle holds no line end, so a hit in the raw text is a hit in a line.
    while (output.read(block, blockSize) || output.gcount() > 0) {
        window.append(block, static_cast<size_t>(output.gcount()));
        if (window.find(needle) != std::string::npos) return true;
        if (window.size() >= needle.size()) window.erase(0, window.size() - (needle.size() - 1));
    }
    return false;
}

}  // namespace emulex_firmware

CEMULEX_Firmware::CEMULEX_Firmware(std::string deviceId, std::string wwpnText)
    : CFirmware(deviceId), wwpn(std::move(wwpnText)) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::CEMULEX_Firmware() [%s] [%s] [START]", deviceId.c_str(),
                              wwpn.c_str());
    // Two blanks before the first bracket: the line is known by this text.
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::CEMULEX_Firmware()  [%s] [%s] [END]", deviceId.c_str(),
                              wwpn.c_str());
}

CEMULEX_Firmware::~CEMULEX_Firmware() {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::~CEMULEX_Firmware() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::~CEMULEX_Firmware() [%s] [%s] [END]",
                              deviceName.c_str(), wwpn.c_str());
}

void CEMULEX_Firmware::SetWWPNorMac(std::string wwpnOrMac) { wwpn = std::move(wwpnOrMac); }

std::string CEMULEX_Firmware::GetOperatingVersion() {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::GetOperatingVersion() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    std::string version;
    if (wwpn.empty()) {
        version = emulex_firmware::kAbnormal;
    } else if (emulex_update::IsUpdateInProgress(GetUpdateProgress())) {
        CTraceUtility::WriteDebug(kTrace, kInfo, "CEMULEX_Firmware::GetOperatingVersion() Update processing [%s] %s or %s",
                                  wwpn.c_str(), updateVersion.c_str(), GetPrevVendorVersion().c_str());
        version = emulex_update::VersionDuringUpdate(*this);
    } else {
        std::string raw;
        const int result = CEmulexCommon::GetHbaAttribData(wwpn, "FW Version", raw);
        if (result == 0) {
            std::string trimmed;
            CStringUtil::strTrimAll(raw, trimmed);
            version = FormatVersionString(trimmed);
        } else {
            CTraceUtility::WriteDebug(kTrace, kError, "CEMULEX_Firmware::GetOperatingVersion() GetHbaAttribData return:%d",
                                      result);
            CEmulexCommon::DeleteHbaAttribCache(wwpn);
            version = emulex_firmware::kAbnormal;
        }
    }
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::GetOperatingVersion() [%s] [%s] [%s] [END]",
                              deviceName.c_str(), wwpn.c_str(), version.c_str());
    return version;
}

std::string CEMULEX_Firmware::FormatVersionString(std::string version) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::FormatVersionString() [%s][START]", version.c_str());
    std::string trimmed;
    CStringUtil::strTrimAll(version, trimmed);
    std::string result = CEmulexCommon::FormatVersion4SegCleanDust(trimmed);
    if (!CStringUtil::CheckVersion4SegFormat(result)) {
        CTraceUtility::WriteDebug(kTrace, kError, "CEMULEX_Firmware::FormatVersionString() Version format error. [%s]",
                                  result.c_str());
        result = emulex_firmware::kAbnormal;
    }
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::FormatVersionString() [%s][END]", result.c_str());
    return result;
}

int CEMULEX_Firmware::CheckVendorVersion(std::string version1, std::string version2) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::CheckVendorVersion() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    const int result = CEmulexCommon::CheckVendorVersion4SegNormal(version1, version2);
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::CheckVendorVersion() [%s] [%s] [%d] [END]",
                              deviceName.c_str(), wwpn.c_str(), result);
    return result;
}

// Nothing to back up: an adapter's firmware cannot be read back.
int CEMULEX_Firmware::UpdateBackup(std::string, bool) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateBackup() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateBackup() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
    return 0;
}

int CEMULEX_Firmware::PreUpdate(std::string, std::string updateModule, std::list<std::string>* messages, bool flag) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::PreUpdate() [%s] [%s] [%s] [START]", uniqueName.c_str(),
                              deviceName.c_str(), wwpn.c_str());
    std::string ocmPath;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&ocmPath)) {
        if (CEmulexCommon::GetLastError() == 11)
            CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0013_F", kModuleWord, CEmulexCommon::GetLastErrorToChractor(),
                                      "Emulex", "fc", "One Command Manager");
        else
            CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0001_F", kModuleWord, CEmulexCommon::GetLastErrorToChractor());
        CTraceUtility::WriteDebug(kTrace, kError, "Failed to get One Command Manager Install Path");
        // The constructor's exit text: the line is known by it on this path.
        CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::CEMULEX_Firmware() [%s] [%s] [END]",
                                  deviceName.c_str(), wwpn.c_str());
        return 1;
    }
    int result = 0;
    if (!FwUpdate(updateModule, FirmwareWorkFolder(), ocmPath, messages, flag)) {
        CEmulexCommon::SetLastError(33);
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0004_F", kModuleWord, CEmulexCommon::GetLastErrorToChractor());
        CTraceUtility::WriteDebug(kTrace, kError, "Failed to open file(%s).", updateModule.c_str());
        result = 1;
    }
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::PreUpdate() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
    return result;
}

// The firmware is written in PreUpdate.
int CEMULEX_Firmware::Update(std::string, std::string, std::list<std::string>*, bool) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::Update() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::Update() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
    return 0;
}

// Forgets what was read from the adapter; never fails.
int CEMULEX_Firmware::UpdateRestore(std::string) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateRestore() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    if (CEmulexCommon::DeleteHbaAttribCache(wwpn) != 0)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to get delete HbaAttrib cache file.");
    if (!CCommon_Information::RetryDeleteFile(CEmulexCommon::GetDumpCacheFilePath(deviceName)))
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_CLEANUP, "Failed to delete dump File.");
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateRestore() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
    return 0;
}

// True when the update did not take.
bool CEMULEX_Firmware::UpdateApplyCheck(std::string) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateApplyCheck() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    const std::string operating = GetOperatingVersion();
    const std::string updated = GetOperatingModuleInfo().version;
    bool failed = false;
    if (operating == emulex_firmware::kAbnormal) {
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0008_F", kModuleWord, operating, updated);
        failed = true;
    } else if (CheckVendorVersion(operating, updated) != 0) {
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0009_F", kModuleWord, operating, updated);
        failed = true;
    }
    if (failed)
        CTraceUtility::WriteDebug(kTrace, kError, "Operating Version(%s) and Update Version(%s) are mismatched",
                                  operating.c_str(), updated.c_str());
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::UpdateApplyCheck() [%s] [%s] [END]",
                              deviceName.c_str(), wwpn.c_str());
    return failed;
}

bool CEMULEX_Firmware::FwUpdate(std::string updateModule, std::string workFolder, std::string ocmPath,
                                std::list<std::string>* messages, bool) {
    CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::FwUpdate() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    const auto leave = [this](bool result) {
        CTraceUtility::WriteDebug(kTrace, kFunc, "CEMULEX_Firmware::FwUpdate() [%s] [%s] [END]", deviceName.c_str(),
                                  wwpn.c_str());
        return result;
    };

    int bus = 0;
    int device = 0;
    int function = 0;
    if (!CCommon_Information::GetPCIInfo(deviceName, &bus, &device, &function, kTrace)) {
        CEmulexCommon::SetLastError(13);
        CTraceUtility::WriteDebug(kTrace, kError, "PCI Information is invalid");
        return leave(false);
    }
    CTraceUtility::WriteDebug(kTrace, kInfo, "Func Number is [%d]", function);
    // Only 8G adapters are flashed through every PCI function; the others
    // take the image through function 0 alone.
    if (function != 0 && !IsEightGigModule(uniqueName)) {
        CTraceUtility::WriteDebug(kTrace, kInfo, "CheckPCIInfo is false. FwUpdate is skipped");
        return leave(true);
    }
    // The firmware module reports a failed unpack through PreUpdate alone.
    if (!emulex_update::UnpackUpdateModule(updateModule, messages, workFolder)) return leave(false);

    std::string biosImage;
    std::string firmwareImage;
    bool exitTraced = false;
    if (!SelectImages(uniqueName, workFolder, &biosImage, &firmwareImage, &exitTraced))
        return exitTraced ? false : leave(false);

    if (!IsCommandTextSafe(wwpn, biosImage, firmwareImage)) return leave(false);

    CTraceUtility::WriteDebug(kTrace, kInfo, "bios update file name(%s).", biosImage.c_str());
    if (!biosImage.empty() &&
        !UpdateBootBios(emulex_firmware::DownloadCommandLine(ocmPath, wwpn, workFolder, biosImage), workFolder))
        return leave(false);
    if (!UpdateFirmware(emulex_firmware::DownloadCommandLine(ocmPath, wwpn, workFolder, firmwareImage), workFolder))
        return leave(false);

    // A leftover folder fails the step although the adapter was flashed.
    if (!CUnzip_Utility::DeleteFolder(workFolder, kTrace)) {
        CEmulexCommon::SetLastError(28);
        CTraceUtility::WriteDebug(kTrace, kError, "Failed to get delete update module folder(%s)", workFolder.c_str());
        return leave(false);
    }
    return leave(true);
}
