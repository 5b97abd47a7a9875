#include "BenchSupport.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CEmulexCommon.h"
#include "FileUtility.h"
#include "TraceUtility.h"

namespace qdmbench {
namespace {

[[noreturn]] void Die(const std::string& reason) {
    std::fprintf(stderr, "bench: %s\n", reason.c_str());
    std::exit(2);
}

std::string MakeTempRoot() {
    std::string pattern = "/tmp/qdmbench.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) Die("cannot create a temporary install root");
    return pattern;
}

std::string Hex2(int value) {
    char text[3];
    std::snprintf(text, sizeof text, "%02x", value & 0xff);
    return text;
}

// Names padded to 15 characters, so that values start at column 17.
void AppendField(std::ostringstream& out, const std::string& name, const std::string& value) {
    std::string padded = name;
    padded.resize(15, ' ');
    out << padded << ": " << value << "\n";
}

void AppendPort(std::ostringstream& out, int port) {
    const int adapter = port / 2;
    const std::string wwpn = "10:00:00:90:fa:" + Hex2(adapter >> 8) + ":" + Hex2(adapter) + ":" + Hex2(port % 2);
    AppendField(out, "Port WWN", wwpn);
    AppendField(out, "Node WWN", "20" + wwpn.substr(2));
    AppendField(out, "Fabric Name", "10:00:00:05:1e:0e:4c:71");
    AppendField(out, "Flags", "8000e300");
    AppendField(out, "Host Name", "bench01");
    AppendField(out, "Mfg", "Emulex Corporation");
    AppendField(out, "Serial No.", "FC16" + std::to_string(100000 + adapter));
    AppendField(out, "Port Number", std::to_string(port % 2));
    AppendField(out, "Mode", "Initiator");
    AppendField(out, "PCI Bus Number", std::to_string(3 + adapter));
    AppendField(out, "PCI Function", std::to_string(port % 2));
    AppendField(out, "Port Type", "FC");
    AppendField(out, "Model", "LPe16002");
    out << "\n";
}

}  // namespace

QuietHost::QuietHost() : root_(MakeTempRoot()) {
    CTraceUtility::SetLevelMask(0);
    CFileUtility::SetInstallPath(root_);
    if (!CEmulexCommon::CreateLocalDirectory()) Die("cannot create the work area below " + root_);
}

QuietHost::~QuietHost() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string ListingText(int ports) {
    std::ostringstream out;
    out << "Manageable HBA List\n\n";
    for (int port = 0; port < ports; ++port) AppendPort(out, port);
    return out.str();
}

void WriteFileOrDie(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) Die("cannot write " + path);
}

}  // namespace qdmbench
