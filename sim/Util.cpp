// Option parsing and small text, file and PCI helpers.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <tuple>

#include "Sim.h"

namespace qdmsim {

std::string Options::Get(const std::string& name, const std::string& fallback) const {
    auto found = values.find(name);
    return found == values.end() ? fallback : found->second;
}

bool Options::Has(const std::string& name) const {
    return flags.count(name) > 0 || values.count(name) > 0;
}

Options ParseOptions(const Args& args, const std::set<std::string>& valued,
                     const std::set<std::string>& flags) {
    Options options;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (!StartsWith(arg, "--")) {
            options.positional.push_back(arg);
        } else if (flags.count(arg)) {
            options.flags.insert(arg);
        } else if (valued.count(arg)) {
            if (i + 1 >= args.size()) throw SimError("option " + arg + " needs a value");
            options.values[arg] = args[++i];
        } else {
            throw SimError("unknown option " + arg);
        }
    }
    return options;
}

bool InSandbox() {
    const char* flag = std::getenv("QDM_SANDBOX");
    return flag && std::string(flag) == "1";
}

std::string SelfPath() {
    char buffer[PATH_MAX];
    ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) throw SimError("cannot find my own executable (/proc/self/exe)");
    return std::string(buffer, static_cast<size_t>(length));
}

std::string ToLower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string ToUpper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string ReadFirstLine(const std::string& path, bool* readable) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    *readable = static_cast<bool>(in) && std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

std::vector<std::string> SplitWords(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

void WriteTextFile(const std::string& path, const std::string& content, unsigned mode) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out) throw SimError("cannot write " + path + ": " + std::strerror(errno));
    ::chmod(path.c_str(), mode);
}

bool PciAddress::operator<(const PciAddress& other) const {
    return std::tie(domain, bus, device, function) <
           std::tie(other.domain, other.bus, other.device, other.function);
}

std::string PciAddress::Text(bool withDomain) const {
    char text[32];
    if (withDomain)
        std::snprintf(text, sizeof text, "%04x:%02x:%02x.%d", domain, bus, device, function);
    else
        std::snprintf(text, sizeof text, "%02x:%02x.%d", bus, device, function);
    return text;
}

namespace {
// Parses a hexadecimal field no larger than `limit`.
bool ParseHexField(const std::string& text, int limit, int* value) {
    if (text.empty() || text.size() > 4) return false;
    for (char c : text)
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    *value = static_cast<int>(std::strtol(text.c_str(), nullptr, 16));
    return *value <= limit;
}
}  // namespace

bool ParsePciAddress(const std::string& text, PciAddress* address) {
    std::string slot = text;
    std::string function = "0";
    auto dot = text.find('.');
    if (dot != std::string::npos) {
        slot = text.substr(0, dot);
        function = text.substr(dot + 1);
    }
    std::vector<std::string> parts;
    std::stringstream in(slot);
    for (std::string part; std::getline(in, part, ':');) parts.push_back(part);
    if (parts.size() == 2) parts.insert(parts.begin(), "0");
    if (parts.size() != 3) return false;
    PciAddress parsed;
    if (!ParseHexField(parts[0], 0xffff, &parsed.domain) ||
        !ParseHexField(parts[1], 0xff, &parsed.bus) ||
        !ParseHexField(parts[2], 0x1f, &parsed.device) ||
        !ParseHexField(function, 7, &parsed.function))
        return false;
    *address = parsed;
    return true;
}

}  // namespace qdmsim
