#include "Discovery.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

#include "HostError.h"

namespace qdmcli {

namespace {

bool IsHexOfLength(const std::string& text, std::size_t length) {
    return text.size() == length &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

}  // namespace

bool IsPciAddress(const std::string& text) {
    return text.size() == 12 && IsHexOfLength(text.substr(0, 4), 4) && text[4] == ':' &&
           IsHexOfLength(text.substr(5, 2), 2) && text[7] == ':' && IsHexOfLength(text.substr(8, 2), 2) &&
           text[10] == '.' && text[11] >= '0' && text[11] <= '7';
}

std::string HardwareId(const PciFunction& function) {
    return "PCI\\VEN_" + Upper(function.vendor) + "&DEV_" + Upper(function.device) + "&SUBSYS_" +
           Upper(function.subDevice) + Upper(function.subVendor);
}

std::string DeviceIdentifier(const PciFunction& function) {
    return function.address + "-" + HardwareId(function);
}

bool IsProviderVendorClass(const std::string& name) {
    return name == "CFC_EMULEX_8G_1P_Vendor" || name == "CFC_EMULEX_8G_2P_Vendor" ||
           name == "CFC_EMULEX_16G_Vendor";
}

namespace {

bool IsHardwareIdPrefix(const std::string& text) {
    const std::string head = "PCI\\VEN_";
    return text.size() > head.size() && text.size() <= 64 && text.compare(0, head.size(), head) == 0 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isupper(c) || std::isdigit(c) || c == '_' || c == '&' || c == '\\';
           });
}

[[noreturn]] void BadTable(const std::string& why) {
    throw HostError(kExitNoDevice, "supported-device table: " + why);
}

}  // namespace

DeviceTable ParseDeviceTable(const std::string& jsonText) {
    nlohmann::json document = nlohmann::json::parse(jsonText, nullptr, false);
    if (document.is_discarded()) BadTable("not valid JSON");
    if (!document.is_object() || !document.contains("devices") || !document["devices"].is_array())
        BadTable("no \"devices\" list");
    DeviceTable table;
    std::size_t index = 0;
    for (const nlohmann::json& entry : document["devices"]) {
        std::string where = "entry " + std::to_string(index++);
        if (!entry.is_object() || !entry.contains("match") || !entry["match"].is_string() ||
            !entry.contains("class") || !entry["class"].is_string())
            BadTable(where + " needs string fields \"match\" and \"class\"");
        std::string prefix = Upper(entry["match"].get<std::string>());
        std::string className = entry["class"].get<std::string>();
        if (!IsHardwareIdPrefix(prefix)) BadTable(where + ": bad hardware identifier prefix");
        if (!IsProviderVendorClass(className)) BadTable(where + ": unknown vendor class " + className);
        table.entries.emplace_back(prefix, className);
    }
    return table;
}

std::string LookupVendorClass(const DeviceTable& table, const std::string& hardwareId) {
    const std::pair<std::string, std::string>* best = nullptr;
    for (const auto& entry : table.entries)
        if (hardwareId.compare(0, entry.first.size(), entry.first) == 0 &&
            (!best || entry.first.size() > best->first.size()))
            best = &entry;
    return best ? best->second : "";
}

}  // namespace qdmcli
