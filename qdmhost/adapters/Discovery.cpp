#include "adapters/Discovery.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "util/Text.h"

namespace qdmcli {

namespace {

bool IsHexOfLength(const std::string& text, std::size_t length) {
    return text.size() == length &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

// dddd:bb:dd.f with hex domain, bus and device, and a function 0..7.
bool IsPciAddress(const std::string& text) {
    return text.size() == 12 && IsHexOfLength(text.substr(0, 4), 4) && text[4] == ':' &&
           IsHexOfLength(text.substr(5, 2), 2) && text[7] == ':' && IsHexOfLength(text.substr(8, 2), 2) &&
           text[10] == '.' && text[11] >= '0' && text[11] <= '7';
}

// The quoted fields of one line, in order; false when a quote is unbalanced.
bool QuotedFields(const std::string& line, std::size_t from, std::vector<std::string>* fields) {
    for (std::size_t at = line.find('"', from); at != std::string::npos; at = line.find('"', at + 1)) {
        std::size_t close = line.find('"', at + 1);
        if (close == std::string::npos) return false;
        fields->push_back(line.substr(at + 1, close - at - 1));
        at = close;
    }
    return true;
}

}  // namespace

std::optional<PciFunction> ParseLspciLine(const std::string& line) {
    std::size_t blank = line.find(' ');
    if (blank == std::string::npos) return std::nullopt;
    std::string address = ToLower(line.substr(0, blank));
    std::vector<std::string> fields;
    if (!IsPciAddress(address) || !QuotedFields(line, blank, &fields) || fields.size() != 5)
        return std::nullopt;
    for (const std::string& field : fields)
        if (!IsHexOfLength(field, 4)) return std::nullopt;
    return PciFunction{address,          ToLower(fields[0]), ToLower(fields[1]), ToLower(fields[2]),
                       ToLower(fields[3]), ToLower(fields[4])};
}

std::vector<PciFunction> FibreChannelFunctions(const std::string& listing) {
    std::vector<PciFunction> found;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        std::optional<PciFunction> function = ParseLspciLine(line);
        if (function && function->classCode == kFibreChannelClass) found.push_back(*function);
    }
    return found;
}

std::string HardwareId(const PciFunction& function) {
    return "PCI\\VEN_" + ToUpper(function.vendor) + "&DEV_" + ToUpper(function.device) + "&SUBSYS_" +
           ToUpper(function.subDevice) + ToUpper(function.subVendor);
}

std::string DeviceIdentifier(const PciFunction& function) {
    return function.address + "-" + HardwareId(function);
}

}  // namespace qdmcli
