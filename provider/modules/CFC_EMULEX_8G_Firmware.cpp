#include "CFC_EMULEX_8G_Firmware.h"

#include "CEmulexCommon.h"
#include "FirmwareSupport.h"
#include "StringUtil.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";

}  // namespace

CFC_EMULEX_8G_Firmware::CFC_EMULEX_8G_Firmware(std::string deviceId, std::string wwpnText)
    : CFC_EMULEX_Firmware(deviceId, wwpnText) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::CFC_EMULEX_8G_Firmware() [%s] [%s] [START]", deviceId.c_str(),
                              wwpnText.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::CFC_EMULEX_8G_Firmware() [%s] [%s] [END]", deviceId.c_str(),
                              wwpnText.c_str());
}

CFC_EMULEX_8G_Firmware::~CFC_EMULEX_8G_Firmware() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::~CFC_EMULEX_8G_Firmware() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::~CFC_EMULEX_8G_Firmware() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
}

// 8G firmware versions have the form "2.02a4".
int CFC_EMULEX_8G_Firmware::CheckVendorVersion(std::string version1, std::string version2) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_8G_Firmware::CheckVendorVersion() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    const int result = CEmulexCommon::CheckVendorVersionFCFirmware(version1, version2);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::CheckVendorVersion() [%s] [%s] [%d] [END]", deviceName.c_str(),
                              wwpn.c_str(), result);
    return result;
}

// The tool may follow the version with a note in parentheses; it is dropped.
// No four-segment cleaning: 8G versions keep their own form.
std::string CFC_EMULEX_8G_Firmware::FormatVersionString(std::string version) {
    if (version.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CFC_EMULEX_8G_Firmware::FormatVersionString() Version empty [%s]", version.c_str());
        return emulex_firmware::kAbnormal;
    }
    std::string trimmed;
    CStringUtil::strTrimAll(version.substr(0, version.find('(')), trimmed);
    if (CEmulexCommon::CheckVersionFCFirmwareFormat(trimmed)) return trimmed;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                              "CFC_EMULEX_8G_Firmware::FormatVersionString() Version format error. [%s]", trimmed.c_str());
    return emulex_firmware::kAbnormal;
}

std::string CFC_EMULEX_8G_Firmware::CheckBootBiosVersionFormat(std::string version) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::CheckBootBiosVersionFormat() [%s][START]", version.c_str());
    const std::string result = CEmulexCommon::CheckVersionFCFirmwareFormat(version) ? version : emulex_firmware::kAbnormal;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_Firmware::CheckBootBiosVersionFormat() [%s][END]", result.c_str());
    return result;
}
