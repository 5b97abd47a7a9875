#include "adapters/Session.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <list>
#include <sstream>
#include <tuple>
#include <utility>

#include "adapters/DeviceTable.h"
#include "adapters/Discovery.h"
#include "adapters/PciSysfs.h"
#include "cli/Console.h"
#include "model/HostError.h"

namespace qdmcli {

namespace {

std::string ReadWholeFile(const std::string& path, ExitCode code, const std::string& what) {
    std::ifstream in(path);
    if (!in) throw HostError(code, what + " " + path + " cannot be read");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::pair<std::string, std::string> ExtendedInfo(CVendor* vendor) {
    std::list<std::pair<std::string, std::string>> info;
    std::string unused;
    vendor->GetExtendedInfo(info, &unused);
    std::pair<std::string, std::string> found;
    for (const auto& entry : info) {
        if (entry.first == "WWPN") found.first = entry.second;
        if (entry.first == "Bus/Dev/Func") found.second = entry.second;
    }
    return found;
}

// The display form of a WWPN: hexadecimal pairs without their ':'.
bool IsWwpnDisplayText(const std::string& text) {
    return !text.empty() && text.size() % 2 == 0 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c); });
}

// The WWPN comes from the adapter tool's listing; one that is not a WWPN is
// neither shown, matched nor updated (the provider refuses it too, so the
// port reads as unreadable).
void RefuseBadWwpn(Port& port) {
    if (port.wwpn.empty() || IsWwpnDisplayText(port.wwpn)) return;
    Warn("port " + PciAddressOf(port.deviceId) +
         ": the adapter listing's WWPN is not hexadecimal pairs separated by ':'; the port is unreadable and "
         "is not updated");
    port.wwpn.clear();
    port.badWwpn = true;
}

}  // namespace

Session::Session(const Options& options) : library_(ProviderLibrary::Find(options.provider, options.root)) {
    try {
        BuildPorts(options);
        SelectPorts(options.ports);
    } catch (...) {
        ReleaseVendors();
        throw;
    }
}

Session::~Session() { ReleaseVendors(); }

void Session::ReleaseVendors() {
    for (Port& port : all_) {
        library_.Release(port.vendor);
        // The provider releases only what it recognises; the rest is ours.
        if (CVendor::IsLive(port.vendor)) delete port.vendor;
    }
    all_.clear();
    selected_.clear();
}

void Session::BuildPorts(const Options& options) {
    std::string tablePath = options.HostFolder() + "/" + kDeviceTableFile;
    DeviceTable table = ParseDeviceTable(ReadWholeFile(tablePath, kExitNoDevice, "supported-device table"));
    for (const PciFunction& function : ReadFibreChannelFunctions(kPciDevicesFolder)) {
        std::string deviceId = DeviceIdentifier(function);
        std::string vendorClass = LookupVendorClass(table, HardwareId(function));
        if (vendorClass.empty()) {
            Warn("unsupported Fibre Channel function " + deviceId + " skipped");
            continue;
        }
        CVendor* vendor = library_.Build(vendorClass, deviceId);
        if (!vendor) {
            Warn("the provider built no " + vendorClass + " for " + deviceId);
            continue;
        }
        all_.push_back({deviceId, vendorClass, vendor, "", ""});
        vendor->LinkDevice();
        std::tie(all_.back().wwpn, all_.back().busDevFunc) = ExtendedInfo(vendor);
        RefuseBadWwpn(all_.back());
    }
    if (all_.empty()) throw HostError(kExitNoDevice, "no supported Fibre Channel adapter found");
}

void Session::SelectPorts(const std::vector<std::string>& selectors) {
    for (const std::string& selector : selectors)
        if (std::none_of(all_.begin(), all_.end(), [&](const Port& port) { return PortMatches(port, selector); }))
            throw HostError(kExitNoDevice, "no port matches --port " + selector);
    for (const Port& port : all_)
        if (selectors.empty() || std::any_of(selectors.begin(), selectors.end(),
                                             [&](const std::string& selector) { return PortMatches(port, selector); }))
            selected_.push_back(port);
}

}  // namespace qdmcli
