#include "CFC_EMULEX_16G_Vendor.h"

#include <new>

#include "CFC_EMULEX_16G_Firmware.h"
#include "TraceUtility.h"

const std::string CFC_EMULEX_16G_Vendor::className = "CFC_EMULEX_16G_Vendor";

CFC_EMULEX_16G_Vendor::CFC_EMULEX_16G_Vendor(std::string deviceId) : CFC_EMULEX_Vendor(deviceId) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Vendor::CFC_EMULEX_16G_Vendor() [START]");
    vendorName = "emulex";
    modelKey = "fcelx_16g";
    vendorClassName = className;
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Vendor::CFC_EMULEX_16G_Vendor() [END]");
}

CFC_EMULEX_16G_Vendor::~CFC_EMULEX_16G_Vendor() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Vendor::~CFC_EMULEX_16G_Vendor() [START]");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_16G_Vendor::~CFC_EMULEX_16G_Vendor() [END]");
}

void CFC_EMULEX_16G_Vendor::LinkDevice() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_16G_Vendor::LinkDevice() [START]");
    LinkModules([](const std::string& id, const std::string& wwpn) -> CFirmware* {
        return new (std::nothrow) CFC_EMULEX_16G_Firmware(id, wwpn);
    }, "CFC_EMULEX_16G_Firmware", "CFC_EMULEX_16G_Vendor::LinkDevice()");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_16G_Vendor::LinkDevice() [END]");
}
