#include "adapters/PciSysfs.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "model/HostError.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

namespace fs = std::filesystem;

// More entries than one PCI domain has functions: not a real machine's.
const std::size_t kMaxEntries = 65536;
// The kernel writes at most "0x0c0400\n"; anything longer is refused unread.
const std::size_t kMaxAttributeBytes = 16;

bool IsLowerHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

// "0x" and exactly `digits` lower-case hex digits, then at most "\n"; the digits.
std::string HexValue(const std::string& text, std::size_t digits) {
    std::string body = !text.empty() && text.back() == '\n' ? text.substr(0, text.size() - 1) : text;
    if (body.size() != digits + 2 || body.compare(0, 2, "0x") != 0 ||
        !std::all_of(body.begin() + 2, body.end(), IsLowerHex))
        return "";
    return body.substr(2);
}

std::string ReadAttribute(const std::string& functionFolder, const char* name) {
    LimitedRead read = ReadRegularFile(functionFolder + "/" + name, kMaxAttributeBytes);
    return read.result == ReadResult::kOk ? read.text : "";
}

std::vector<std::string> FunctionNames(const std::string& folder) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) throw HostError(kExitNoDevice, "cannot list " + folder + ": " + error.message());
    std::vector<std::string> names;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        if (error) throw HostError(kExitNoDevice, "cannot list " + folder + ": " + error.message());
        if (names.size() == kMaxEntries) throw HostError(kExitNoDevice, folder + " holds too many entries");
        names.push_back(entries->path().filename().string());
    }
    return names;
}

}  // namespace

std::string ParsePciClass(const std::string& text) { return HexValue(text, 6).substr(0, 4); }

std::optional<PciFunction> ParsePciSysfsFunction(const std::string& name, const PciSysfsTexts& texts) {
    PciFunction function{name,
                         ParsePciClass(texts.classCode),
                         HexValue(texts.vendor, 4),
                         HexValue(texts.device, 4),
                         HexValue(texts.subVendor, 4),
                         HexValue(texts.subDevice, 4)};
    bool lowerName = std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    if (!lowerName || !IsPciAddress(name) || function.classCode.empty() || function.vendor.empty() ||
        function.device.empty() || function.subVendor.empty() || function.subDevice.empty())
        return std::nullopt;
    return function;
}

std::vector<PciFunction> ReadFibreChannelFunctions(const std::string& folder) {
    std::vector<PciFunction> found;
    for (const std::string& name : FunctionNames(folder)) {
        if (!IsPciAddress(name)) continue;
        const std::string functionFolder = folder + "/" + name;
        // The class first: most functions are something else, and need no more reads.
        PciSysfsTexts texts;
        texts.classCode = ReadAttribute(functionFolder, "class");
        if (ParsePciClass(texts.classCode) != kFibreChannelClass) continue;
        texts.vendor = ReadAttribute(functionFolder, "vendor");
        texts.device = ReadAttribute(functionFolder, "device");
        texts.subVendor = ReadAttribute(functionFolder, "subsystem_vendor");
        texts.subDevice = ReadAttribute(functionFolder, "subsystem_device");
        if (std::optional<PciFunction> function = ParsePciSysfsFunction(name, texts)) found.push_back(*function);
    }
    std::sort(found.begin(), found.end(),
              [](const PciFunction& a, const PciFunction& b) { return a.address < b.address; });
    return found;
}

}  // namespace qdmcli
