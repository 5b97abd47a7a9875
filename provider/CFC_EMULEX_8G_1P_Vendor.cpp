#include "CFC_EMULEX_8G_1P_Vendor.h"

#include <new>

#include "CFC_EMULEX_8G_Firmware.h"
#include "TraceUtility.h"

const std::string CFC_EMULEX_8G_1P_Vendor::className = "CFC_EMULEX_8G_1P_Vendor";

CFC_EMULEX_8G_1P_Vendor::CFC_EMULEX_8G_1P_Vendor(std::string deviceId) : CFC_EMULEX_Vendor(deviceId) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_1P_Vendor::CFC_EMULEX_8G_1P_Vendor() [START]");
    vendorName = "emulex";
    modelKey = "fcelx_8g1p";
    vendorClassName = className;
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_1P_Vendor::CFC_EMULEX_8G_1P_Vendor() [END]");
}

CFC_EMULEX_8G_1P_Vendor::~CFC_EMULEX_8G_1P_Vendor() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_1P_Vendor::~CFC_EMULEX_8G_1P_Vendor() [START]");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_1P_Vendor::~CFC_EMULEX_8G_1P_Vendor() [END]");
}

void CFC_EMULEX_8G_1P_Vendor::LinkDevice() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_8G_1P_Vendor::LinkDevice() [START]");
    // The failure lines of this model carry the firmware class's prefix; log
    // readers match on that text, so it stays.
    LinkModules([](const std::string& id, const std::string& wwpn) -> CFirmware* {
        return new (std::nothrow) CFC_EMULEX_8G_Firmware(id, wwpn);
    }, "CFC_EMULEX_8G_Firmware", "CFC_EMULEX_8G_Firmware::LinkDevice()");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_8G_1P_Vendor::LinkDevice() [END]");
}
