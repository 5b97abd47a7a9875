#include "CFC_EMULEX_Vendor.h"

#include <map>
#include <new>

#include "CEMULEX_OCM_Utility.h"
#include "CEmulexCommon.h"
#include "CFC_EMULEX_Driver.h"
#include "CFC_EMULEX_Firmware.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "QdmXml.h"
#include "StringUtil.h"
#include "TraceUtility.h"

const std::string CFC_EMULEX_Vendor::className = "CFC_EMULEX_Vendor";
std::list<CFC_EMULEX_Vendor::GeneralInfo> CFC_EMULEX_Vendor::stGenFC;
std::list<CFC_EMULEX_Vendor::VersionInfo> CFC_EMULEX_Vendor::stVerFC;

namespace {

const char kTrace[] = "fc";
const char kModuleWord[] = "vendor";
const long kListhbasMaxAgeSeconds = 3600;

// Whole hours since the adapter list was written. A missing list counts as
// one hour old; a time stamp in the future gives a negative age that is kept
// undivided on purpose, so that such a list is refreshed too.
long ListhbasAgeHours(const std::string& path) {
    long age = 0;
    if (!CEmulexCommon::FileAgeSeconds(path, &age)) return 1;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "listhbas file elapse time [%d] sec",
                              static_cast<int>(age));
    return age >= 0 ? age / kListhbasMaxAgeSeconds : age;
}

// The first linked utility module named "ocm", or null.
CUtility* FindOcmUtility(const std::list<CUtility*>& modules) {
    for (CUtility* module : modules) {
        if (module != nullptr && module->GetModuleName() == "ocm") return module;
    }
    return nullptr;
}

std::string CachedVersionOf(CModuleManager* module) {
    return module != nullptr ? module->GetOperatingVersionCache() : std::string();
}

// Sets the reused "attr" element to one name/value pair and adds it.
void AddAttr(CQdmXmlNode& parent, CQdmXmlNode& attr, const std::string& name,
             const std::string& value) {
    attr.addAttribute("name", name);
    attr.addAttribute("value", value);
    parent.addChildNode(attr);
}

CQdmXmlNode GeneralInfoNode(const CFC_EMULEX_Vendor::GeneralInfo& info, CQdmXmlNode& attr) {
    CQdmXmlNode general("general-inf");
    AddAttr(general, attr, "PCI Bus/Dev/Func", info.busDevFunc);
    AddAttr(general, attr, "Vendor ID", info.vendorId);
    AddAttr(general, attr, "Device ID", info.deviceId);
    AddAttr(general, attr, "WWPN", info.wwpn);
    attr.clearAttribute();
    return general;
}

CQdmXmlNode VersionInfoNode(const CFC_EMULEX_Vendor::VersionInfo& info, CQdmXmlNode& attr) {
    CQdmXmlNode version("version-inf");
    AddAttr(version, attr, "Firmware Version", info.firmwareVersion);
    AddAttr(version, attr, "BootBios Version", info.bootBiosVersion);
    AddAttr(version, attr, "Driver Version", info.driverVersion);
    attr.clearAttribute();
    CQdmXmlNode utility("utility");
    AddAttr(utility, attr, "Utility Name", info.utilityName);
    attr.clearAttribute();
    AddAttr(utility, attr, "Utility Version", info.utilityVersion);
    version.addChildNode(utility);
    return version;
}

// One "port" element from the heads of the two report lists, which it consumes.
CQdmXmlNode TakePortNode(CQdmXmlNode& attr) {
    CQdmXmlNode port("port");
    auto& general = CFC_EMULEX_Vendor::stGenFC;
    auto& versions = CFC_EMULEX_Vendor::stVerFC;
    if (general.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get Generalinfo");
    } else {
        port.addChildNode(GeneralInfoNode(general.front(), attr));
        general.pop_front();
    }
    if (versions.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get Versioninfo");
    } else {
        port.addChildNode(VersionInfoNode(versions.front(), attr));
        versions.pop_front();
    }
    return port;
}

}  // namespace

CFC_EMULEX_Vendor::CFC_EMULEX_Vendor(std::string deviceId) : CVendorEx(deviceId) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CFC_EMULEX_Vendor() [START]");
    wwpn.clear();
    bus.clear();
    device.clear();
    function.clear();
    vendorName = "emulex";
    if (!CEmulexCommon::CreateLocalDirectory())
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to create directory");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CFC_EMULEX_Vendor() [END]");
}

CFC_EMULEX_Vendor::~CFC_EMULEX_Vendor() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::~CFC_EMULEX_Vendor() [START]");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::~CFC_EMULEX_Vendor() [END]");
}

void CFC_EMULEX_Vendor::ReportOCMManagerMissing(const char* notInstalledId, const char* otherId) {
    if (CEmulexCommon::GetLastError() == 11) {
        CTraceUtility::WriteTrace(kTrace, notInstalledId, kModuleWord,
                                  CEmulexCommon::GetLastErrorToChractor(), "Emulex", "FC",
                                  "One Command Manager");
    } else {
        CTraceUtility::WriteTrace(kTrace, otherId, kModuleWord,
                                  CEmulexCommon::GetLastErrorToChractor());
    }
}

std::string CFC_EMULEX_Vendor::GetHardwareVersion() {
    // The trace text's spelling is the one the log readers know.
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetHardwareVersione() [START]");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetHardwareVersione() [END]");
    return "";
}

int CFC_EMULEX_Vendor::CheckHardwareVersion(std::string, std::string) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CheckHardwareVersion() [START]");
    // Called for its side effect: the WWPN is resolved, cached and handed to the modules.
    GetWWPNOriginal();
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CheckHardwareVersion() [END]");
    return 0;
}

std::string CFC_EMULEX_Vendor::GetWWPNOriginal() {
    if (!wwpn.empty()) {
        // The one line of a cached answer names the port and its WWPN.
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                                  "CFC_EMULEX_Vendor::GetWWPNOriginal() [END] [%s] [%s]",
                                  deviceId.c_str(), wwpn.c_str());
        return wwpn;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Vendor::GetWWPNOriginal() [START]");
    const std::string listPath = CFileUtility::GetInstallPath(0) + "/" + "tmp" + "/" + "EMULEX" +
                                 "/" + "cache" + "/" + "Listhbas.txt";
    if (ListhbasAgeHours(listPath) == 0) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Skip update listHbas File %s",
                                  deviceId.c_str());
    } else {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Update listHbas File %s",
                                  deviceId.c_str());
        std::string ocmPath;
        if (!CEmulexCommon::GetOCMManagerInstallPath(&ocmPath)) {
            ReportOCMManagerMissing("MSGID_EMULEX_FC_0013_F", "MSGID_EMULEX_FC_0001_F");
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get OCM Path");
            // This path closes with the constructor's line; log readers match on it.
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                                      "CFC_EMULEX_Vendor::CFC_EMULEX_Vendor() [END]");
            return "";
        }
        CEmulexCommon::ExecListhbasCommand(ocmPath);
    }

    std::map<std::string, std::string> attributes;
    if (CEmulexCommon::GetHBAInfo(deviceId, &attributes)) {
        auto found = attributes.find("Port WWN");
        wwpn = found != attributes.end() ? found->second : std::string();
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CFC_EMULEX_Vendor WWNP[%s]",
                                  wwpn.c_str());
    } else {
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0001_F", kModuleWord,
                                  CEmulexCommon::GetLastErrorToChractor());
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to get HBA Info");
    }

    if (wwpn.empty()) {
        // A list without this port is stale: the next lookup refreshes it.
        CCommon_Information::RetryDeleteFile(listPath);
    } else {
        if (auto* firmware = dynamic_cast<CEMULEX_Firmware*>(firmwareModule)) firmware->SetWWPNorMac(wwpn);
        if (auto* driver = dynamic_cast<CEMULEX_Driver*>(driverModule)) driver->SetWWPNorMac(wwpn);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Vendor::GetWWPNOriginal() [END]");
    return wwpn;
}

std::string CFC_EMULEX_Vendor::GetWWPNEditedforDisplay() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetWWPNEditedforDisplay() [START]");
    std::string display = CStringUtil::StringToUpperCase(wwpn);
    CStringUtil::strReplace(display, ":", "");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetWWPNEditedforDisplay() [END]");
    return display;
}

std::string CFC_EMULEX_Vendor::GetBusDevFunc() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Vendor::GetBusDevFunc() [START]");
    if (bus.empty()) {
        int busNumber = 0;
        int deviceNumber = 0;
        int functionNumber = 0;
        if (CCommon_Information::GetPCIInfo(deviceId, &busNumber, &deviceNumber, &functionNumber, kTrace)) {
            bus = CStringUtil::NumberToTString(busNumber);
            device = CStringUtil::NumberToTString(deviceNumber);
            function = CStringUtil::NumberToTString(functionNumber);
        } else {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                      "GetBusDevFunc() Bus/Dev/Func not infomation.");
        }
    }
    const std::string result = bus.empty() ? "-/-/-" : bus + "/" + device + "/" + function;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "GetBusDevFunc() Bus/Dev/Func[%s]",
                              result.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Vendor::GetBusDevFunc() [END]");
    return result;
}

void CFC_EMULEX_Vendor::GetExtendedInfo(std::list<std::pair<std::string, std::string>>& list,
                                        std::string* info) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetExtendedInfo() [START]");
    if (info == nullptr) {
        // The class name in this line is the one the log readers know; kept as it is.
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CCNA_EMULEX_Vendor::GetExtendedInfo() Parameter ExtendedInfoList is NULL.");
    } else {
        list.clear();
        list.emplace_back("WWPN", GetWWPNEditedforDisplay());
        list.emplace_back("Bus/Dev/Func", GetBusDevFunc());
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CFC_EMULEX_Vendor::GetExtendedInfo() [END]");
}

std::string CFC_EMULEX_Vendor::GetUpdateOrderModuleKind(UPDATE_ORDER order, bool) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetUpdateOrderModuleKind() [START]");
    std::string kind;
    switch (order) {
        case ORDER_FIRST: kind = "util"; break;
        case ORDER_SECOND: kind = "firm"; break;
        case ORDER_THIRD: kind = "driver"; break;
        default: break;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetUpdateOrderModuleKind() [END]");
    return kind;
}

void CFC_EMULEX_Vendor::GetShortageOfNecessaryApplicationInfo(std::list<CNecessaryComponentInfo>& missing) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetShortageOfNecessaryApplicationInfo() [START]");
    std::string ocmPath;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&ocmPath)) {
        CNecessaryComponentInfo component;
        component.componentName = "One Command Manager";
        missing.push_back(component);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::GetShortageOfNecessaryApplicationInfo() [END]");
}

int CFC_EMULEX_Vendor::CheckUpdateConditionByDevicevendor(std::string moduleKind, CManageRepositoryInfo*) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CheckUpdateConditionByDevicevendor() [START]");
    int result = 0;
    auto* utility = moduleKind == "util" ? dynamic_cast<CEMULEX_OCM_Utility*>(FindOcmUtility(utilityModules))
                                         : nullptr;
    if (utility != nullptr && !utility->OCMInstallCheck()) {
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0010_F", kModuleWord,
                                  CEmulexCommon::GetLastErrorToChractor());
        result = 1;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::CheckUpdateConditionByDevicevendor() [END]");
    return result;
}

void CFC_EMULEX_Vendor::LinkModules(FirmwareFactory makeFirmware, const std::string& firmwareClass,
                                    const std::string& failurePrefix) {
    firmwareModule = makeFirmware(deviceId, GetWWPNOriginal());
    if (firmwareModule == nullptr)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "%s %s instance is NULL.",
                                  failurePrefix.c_str(), firmwareClass.c_str());

    // Cleared first so that the lookup below cannot reach a module of an earlier link.
    driverModule = nullptr;
    driverModule = new (std::nothrow) CFC_EMULEX_Driver(deviceId, "", GetWWPNOriginal());
    if (driverModule == nullptr)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "%s CFC_EMULEX_Driver instance is NULL.", failurePrefix.c_str());

    utilityModules.clear();
    std::string ocmPath;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&ocmPath)) {
        ReportOCMManagerMissing("MSGID_EMULEX_FC_0013_F", "MSGID_EMULEX_FC_0001_F");
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "%s CEmulexCommon::GetOCMManagerInstallPath is return false.",
                                  failurePrefix.c_str());
        return;
    }
    CUtility* utility = new (std::nothrow) CEMULEX_OCM_Utility(deviceId);
    if (utility == nullptr)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "%s CEMULEX_OCM_Utility instance is NULL.", failurePrefix.c_str());
    else
        utilityModules.push_back(utility);
}

int CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo(std::string, void*) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo() [START]");
    int result = 0;
    std::string ocmPath;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&ocmPath)) {
        ReportOCMManagerMissing("MSGID_EMULEX_FC_0018_F", "MSGID_EMULEX_FC_0016_F");
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo() "
                                  "CEmulexCommon::GetOCMManagerInstallPath is return false.");
        result = 1;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::StartOutputDeviceConfigInfo() [END]");
    return result;
}

int CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo(std::string, void*) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo() [START]");
    auto* firmware = dynamic_cast<CFC_EMULEX_Firmware*>(firmwareModule);
    VersionInfo version;
    version.firmwareVersion = CachedVersionOf(firmwareModule);
    version.bootBiosVersion = firmware != nullptr ? firmware->GetBootBiosVersion() : std::string();
    version.driverVersion = CachedVersionOf(driverModule);
    version.utilityName = "OCM";
    version.utilityVersion = CachedVersionOf(FindOcmUtility(utilityModules));

    std::string vendorIdText;
    std::string deviceIdText;
    CStringUtil::GetVenIdDevIdformDeviceId(deviceId, vendorIdText, deviceIdText);
    GeneralInfo general;
    general.busDevFunc = GetBusDevFunc();
    general.vendorId = "0x" + CStringUtil::StringToUpperCase(vendorIdText);
    general.deviceId = "0x" + CStringUtil::StringToUpperCase(deviceIdText);
    general.wwpn = GetWWPNEditedforDisplay();

    stGenFC.push_back(general);
    stVerFC.push_back(version);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo() [END]");
    return 0;
}

int CFC_EMULEX_Vendor::EndOutputDeviceConfigInfo(std::string folder, void*) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::EndOutputDeviceConfigInfo() [START]");
    CQdmXmlNode data("data");
    CQdmXmlNode attr("attr");  // one element object, reused for every pair
    while (!stGenFC.empty() || !stVerFC.empty()) data.addChildNode(TakePortNode(attr));

    CQdmXmlWrite writer;
    if (!writer.writeXML(folder + "Emulex_FcConfigInfo.xml", data)) {
        CEmulexCommon::SetLastError(25);
        CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0012_F", kModuleWord,
                                  CEmulexCommon::GetLastErrorToChractor());
        // This path closes with the exec phase's line; log readers match on it.
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                                  "CFC_EMULEX_Vendor::ExecOutputDeviceConfigInfo() [END]");
        return 1;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CFC_EMULEX_Vendor::EndOutputDeviceConfigInfo() [END]");
    return 0;
}
