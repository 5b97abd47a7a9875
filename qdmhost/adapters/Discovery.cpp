#include "adapters/Discovery.h"

#include <algorithm>
#include <cctype>

#include "util/Text.h"

namespace qdmcli {

namespace {

bool IsHexOfLength(const std::string& text, std::size_t length) {
    return text.size() == length &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

}  // namespace

bool IsPciAddress(const std::string& text) {
    return text.size() == 12 && IsHexOfLength(text.substr(0, 4), 4) && text[4] == ':' &&
           IsHexOfLength(text.substr(5, 2), 2) && text[7] == ':' && IsHexOfLength(text.substr(8, 2), 2) &&
           text[10] == '.' && text[11] >= '0' && text[11] <= '7';
}

std::string HardwareId(const PciFunction& function) {
    return "PCI\\VEN_" + ToUpper(function.vendor) + "&DEV_" + ToUpper(function.device) + "&SUBSYS_" +
           ToUpper(function.subDevice) + ToUpper(function.subVendor);
}

std::string DeviceIdentifier(const PciFunction& function) { return function.address + "-" + HardwareId(function); }

}  // namespace qdmcli
