#pragma once
// The supported-device table (devices.json): the one list of the adapter
// models qdmhost drives, hardware-identifier prefixes mapped to the
// provider's model vendor classes.
#include <string>
#include <utility>
#include <vector>

namespace qdmcli {

const char kDeviceTableFile[] = "devices.json";

// Hardware-identifier prefixes mapped to provider vendor classes.
struct DeviceTable {
    std::vector<std::pair<std::string, std::string>> entries;  // (prefix, class)
};

// Parses the JSON table {"devices": [{"match": prefix, "class": name}, ...]}.
// Throws HostError (no-device) naming the first bad entry.
DeviceTable ParseDeviceTable(const std::string& jsonText);
// The class of the longest matching prefix; empty when none matches.
std::string LookupVendorClass(const DeviceTable& table, const std::string& hardwareId);

}  // namespace qdmcli
