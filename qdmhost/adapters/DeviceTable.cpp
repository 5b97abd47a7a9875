#include "adapters/DeviceTable.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

#include "model/HostError.h"
#include "util/Text.h"

namespace qdmcli {

namespace {

// The table is the one list of models: any class of the providers' model
// form "CFC_EMULEX_<model>_Vendor" is passed on, and the factory answers null
// for one it does not build. The base vendor is no model.
bool IsModelVendorClass(const std::string& name) {
    const std::string head = "CFC_EMULEX_", tail = "_Vendor";
    return name.size() > head.size() + tail.size() && name.size() <= 64 && name.compare(0, head.size(), head) == 0 &&
           name.compare(name.size() - tail.size(), tail.size(), tail) == 0 &&
           std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) || c == '_'; });
}

bool IsHardwareIdPrefix(const std::string& text) {
    const std::string head = "PCI\\VEN_";
    return text.size() > head.size() && text.size() <= 64 && text.compare(0, head.size(), head) == 0 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isupper(c) || std::isdigit(c) || c == '_' || c == '&' || c == '\\';
           });
}

[[noreturn]] void BadTable(const std::string& why) { throw HostError(kExitNoDevice, "supported-device table: " + why); }

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
        if (!entry.is_object() || !entry.contains("match") || !entry["match"].is_string() || !entry.contains("class") ||
            !entry["class"].is_string())
            BadTable(where + " needs string fields \"match\" and \"class\"");
        std::string prefix = ToUpper(entry["match"].get<std::string>());
        std::string className = entry["class"].get<std::string>();
        if (!IsHardwareIdPrefix(prefix)) BadTable(where + ": bad hardware identifier prefix");
        if (!IsModelVendorClass(className)) BadTable(where + ": unknown vendor class " + className);
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
