#include "CFC_EMULEX_8G_2P_Vendor.h"

#include <cctype>
#include <cstring>
#include <fstream>
#include <new>

#include "CFC_EMULEX_8G_Firmware.h"
#include "CommonInformation.h"
#include "StringUtil.h"
#include "TraceUtility.h"

const std::string CFC_EMULEX_8G_2P_Vendor::className = "CFC_EMULEX_8G_2P_Vendor";

namespace {

// Fixed location, not below the install root: the host's standard install tree.
const char kIdsFile[] = "/opt/velmora/qdm/provider/tmp/EMULEX/temp/4ids";
const std::size_t kIdsReadBytes = 24;
// Four four-digit identifiers and three separators; cuts off the line end.
const std::size_t kIdsLength = 19;

// The PCI slot address: the device identifier up to its first "-".
std::string SlotOfDeviceId(const std::string& deviceId) { return deviceId.substr(0, deviceId.find('-')); }

// The slot goes to the shell unquoted: only a PCI address ([domain:]bus:dev.fn
// in hexadecimal) is let through.
bool IsPciSlotAddress(const std::string& slot) {
    if (slot.empty()) return false;
    for (unsigned char c : slot)
        if (!std::isxdigit(c) && c != ':' && c != '.') return false;
    return true;
}

// The identifier text of the file's first bytes: up to the first NUL, at most
// kIdsLength characters, lower case.
std::string IdsFromBytes(const char* bytes, std::size_t count) {
    std::string text(bytes, ::strnlen(bytes, count));
    return CStringUtil::StringToLowerCase(text.substr(0, kIdsLength));
}

std::string ReadIdsFile() {
    std::ifstream in(kIdsFile, std::ios::binary);
    if (!in) return "";
    char bytes[kIdsReadBytes] = {};
    in.read(bytes, sizeof bytes);
    return IdsFromBytes(bytes, static_cast<std::size_t>(in.gcount()));
}

// Vendor, device, subsystem vendor and subsystem device of the slot's
// adapter, e.g. 10df_f100_10df_f100; empty when lspci fails.
std::string ReadPciIds(const std::string& deviceId) {
    const std::string slot = SlotOfDeviceId(deviceId);
    if (!IsPciSlotAddress(slot)) {
        CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "Not a PCI slot address [%s]", slot.c_str());
        return std::string();
    }
    const std::string command = std::string("lspci -nms ") + slot + " " +
                                "| cut -d \" \" -f3,4,6,7 | sed -e s/'\" \"'/_/g -e s/'\"'//g" + " > " +
                                kIdsFile;
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "ExecForeignModule cmd:[%s]", command.c_str());
    unsigned long exitCode = 1;
    const int status =
        CCommon_Information::ExecForeignModule(command, "", "", &exitCode, CCommon_Information::NO_TIMEOUT);
    return status == 0 && exitCode == 0 ? ReadIdsFile() : std::string();
}

}  // namespace

CFC_EMULEX_8G_2P_Vendor::CFC_EMULEX_8G_2P_Vendor(std::string deviceId) : CFC_EMULEX_Vendor(deviceId) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_2P_Vendor::CFC_EMULEX_8G_2P_Vendor() [START]");
    vendorName = "emulex";
    modelKey = "fcelx_8g2p_" + ReadPciIds(deviceId);
    vendorClassName = className;
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_2P_Vendor::CFC_EMULEX_8G_2P_Vendor() [END]");
}

CFC_EMULEX_8G_2P_Vendor::~CFC_EMULEX_8G_2P_Vendor() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_2P_Vendor::~CFC_EMULEX_8G_2P_Vendor() [START]");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_8G_2P_Vendor::~CFC_EMULEX_8G_2P_Vendor() [END]");
}

void CFC_EMULEX_8G_2P_Vendor::LinkDevice() {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_8G_2P_Vendor::LinkDevice() [START]");
    LinkModules([](const std::string& id, const std::string& wwpn) -> CFirmware* {
        return new (std::nothrow) CFC_EMULEX_8G_Firmware(id, wwpn);
    }, "CFC_EMULEX_8G_Firmware", "CFC_EMULEX_8G_2P_Vendor::LinkDevice()");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "CFC_EMULEX_8G_2P_Vendor::LinkDevice() [END]");
}
