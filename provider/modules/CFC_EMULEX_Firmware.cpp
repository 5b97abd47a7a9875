#include "CFC_EMULEX_Firmware.h"

#include "CEmulexCommon.h"
#include "FirmwareSupport.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "UpdateWindow.h"

namespace {

const char kTrace[] = "fc";

}  // namespace

CFC_EMULEX_Firmware::CFC_EMULEX_Firmware(std::string deviceId, std::string wwpnText)
    : CEMULEX_Firmware(deviceId, wwpnText) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::CFC_EMULEX_Firmware() [%s] [%s] [START]",
                              deviceId.c_str(), wwpnText.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::CFC_EMULEX_Firmware() [%s] [%s] [END]",
                              deviceId.c_str(), wwpnText.c_str());
}

CFC_EMULEX_Firmware::~CFC_EMULEX_Firmware() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::~CFC_EMULEX_Firmware() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::~CFC_EMULEX_Firmware() [%s] [%s] [END]",
                              deviceName.c_str(), wwpn.c_str());
}

// Unlike the firmware version, an empty WWPN is not tested first and a failed
// read keeps the attribute cache: both as the adapter tooling expects.
std::string CFC_EMULEX_Firmware::GetBootBiosVersion() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::GetBootBiosVersion() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    std::string version = emulex_firmware::kAbnormal;
    if (emulex_update::IsUpdateInProgress(GetUpdateProgress())) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                                  "CFC_EMULEX_Firmware::GetBootBiosVersion() Update processing [%s] %s or %s", wwpn.c_str(),
                                  updateVersion.c_str(), GetPrevVendorVersion().c_str());
        version = emulex_update::VersionDuringUpdate(*this);
    } else {
        std::string raw;
        const int result = CEmulexCommon::GetHbaAttribData(wwpn, "Boot Version", raw);
        if (result == 0) {
            std::string trimmed;
            CStringUtil::strTrimAll(raw, trimmed);
            version = CheckBootBiosVersionFormat(trimmed);
        } else {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                      "CFC_EMULEX_Firmware::GetBootBiosVersion() GetHbaAttribData return:%d", result);
        }
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::GetBootBiosVersion() [%s] [%s] [%s] [END]",
                              deviceName.c_str(), wwpn.c_str(), version.c_str());
    return version;
}

std::string CFC_EMULEX_Firmware::CheckBootBiosVersionFormat(std::string version) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::CheckBootBiosVersionFormat() [%s][START]",
                              version.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Firmware::CheckBootBiosVersionFormat() [%s][END]",
                              version.c_str());
    return version;
}
