#include "adapters/ScsiHostSysfs.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "adapters/Discovery.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

namespace fs = std::filesystem;

// A real tree has a few dozen hosts; more is not a machine's.
const std::size_t kMaxHosts = 4096;
const std::size_t kMaxLinkBytes = 4096;

std::vector<std::string> Components(const std::string& path) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t slash; (slash = path.find('/', start)) != std::string::npos; start = slash + 1)
        parts.push_back(path.substr(start, slash - start));
    parts.push_back(path.substr(start));
    return parts;
}

bool IsLowerPciAddress(const std::string& text) {
    return IsPciAddress(text) && std::none_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'F'; });
}

bool LooksLikePciFunction(const std::string& name) {
    return name.size() > 8 && name[4] == ':' && name[7] == ':' &&
           std::all_of(name.begin(), name.begin() + 4,
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

std::string LinkTarget(const std::string& path) {
    char buffer[kMaxLinkBytes];
    ssize_t size = ::readlink(path.c_str(), buffer, sizeof buffer);
    return size > 0 && static_cast<std::size_t>(size) < sizeof buffer ? std::string(buffer, size) : "";
}

std::string PortNameOf(const std::string& fcHostFolder, const std::string& hostName) {
    LimitedRead read = ReadRegularFile(fcHostFolder + "/" + hostName + "/port_name", 64);
    return read.result == ReadResult::kOk ? ParseFcPortName(read.text) : "";
}

}  // namespace

int ParseScsiHostName(const std::string& name) {
    const std::string digits = name.compare(0, 4, "host") == 0 ? name.substr(4) : "";
    if (digits.empty() || digits.size() > 7 || (digits.size() > 1 && digits[0] == '0') ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return -1;
    return std::stoi(digits);
}

std::string ParseScsiHostLink(const std::string& target, const std::string& hostName) {
    std::vector<std::string> parts = Components(target);
    const std::size_t count = parts.size();
    if (target.size() >= kMaxLinkBytes || count < 4 || parts[count - 1] != hostName ||
        parts[count - 2] != "scsi_host" || parts[count - 3] != hostName)
        return "";
    // The nearest folder named like a PCI function decides: a malformed one gives nothing, never a bridge above it.
    for (std::size_t index = count - 3; index-- > 0;)
        if (LooksLikePciFunction(parts[index])) return IsLowerPciAddress(parts[index]) ? parts[index] : "";
    return "";
}

std::string ParseFcPortName(const std::string& text) {
    std::string body = !text.empty() && text.back() == '\n' ? text.substr(0, text.size() - 1) : text;
    if (body.size() < 3 || body.size() > 18 || body.compare(0, 2, "0x") != 0 ||
        !std::all_of(body.begin() + 2, body.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }))
        return "";
    // The kernel prints the number without leading zeros ("0x%llx").
    const std::string digits = std::string(18 - body.size(), '0') + body.substr(2);
    std::string wwpn;
    for (std::size_t at = 0; at < digits.size(); at += 2) wwpn += (at ? ":" : "") + digits.substr(at, 2);
    return wwpn;
}

std::vector<ScsiHost> ReadScsiHosts(const std::string& scsiHostFolder, const std::string& fcHostFolder) {
    std::vector<ScsiHost> hosts;
    std::error_code error;
    fs::directory_iterator entries(scsiHostFolder, error);
    for (; !error && entries != fs::directory_iterator() && hosts.size() < kMaxHosts; entries.increment(error)) {
        const std::string name = entries->path().filename().string();
        ScsiHost host{ParseScsiHostName(name), ParseScsiHostLink(LinkTarget(entries->path().string()), name), ""};
        if (host.number < 0 || host.pciAddress.empty()) continue;
        host.wwpn = PortNameOf(fcHostFolder, name);
        hosts.push_back(host);
    }
    std::sort(hosts.begin(), hosts.end(), [](const ScsiHost& a, const ScsiHost& b) { return a.number < b.number; });
    return hosts;
}

}  // namespace qdmcli
