#include "CFC_EMULEX_16G_Firmware.h"

#include "CEmulexCommon.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";

}  // namespace

CFC_EMULEX_16G_Firmware::CFC_EMULEX_16G_Firmware(std::string deviceId, std::string wwpnText)
    : CFC_EMULEX_Firmware(deviceId, wwpnText) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Firmware::CFC_EMULEX_16G_Firmware() [%s] [%s] [START]", deviceId.c_str(),
                              wwpnText.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Firmware::CFC_EMULEX_16G_Firmware() [%s] [%s] [END]", deviceId.c_str(),
                              wwpnText.c_str());
}

CFC_EMULEX_16G_Firmware::~CFC_EMULEX_16G_Firmware() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Firmware::~CFC_EMULEX_16G_Firmware() [%s] [%s] [START]", deviceName.c_str(),
                              wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Firmware::~CFC_EMULEX_16G_Firmware() [%s] [%s] [END]", deviceName.c_str(),
                              wwpn.c_str());
}

// 16G firmware versions have four numeric segments.
int CFC_EMULEX_16G_Firmware::CheckVendorVersion(std::string version1, std::string version2) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_16G_Firmware::CheckVendorVersion() [%s] [%s] [START]",
                              deviceName.c_str(), wwpn.c_str());
    const int result = CEmulexCommon::CheckVendorVersion4SegNormal(version1, version2);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Firmware::CheckVendorVersion() [%s] [%s] [%d] [END]", deviceName.c_str(),
                              wwpn.c_str(), result);
    return result;
}
