#pragma once
// Pure parsing for adapter discovery: PCI addresses, the host's device
// identifiers. No files, no processes: the
// caller supplies the texts.
#include <string>
#include <utility>
#include <vector>

namespace qdmcli {

// One PCI function; all ids lower-case hex.
struct PciFunction {
    std::string address;    // domain:bus:device.function, e.g. 0000:03:00.1
    std::string classCode;  // e.g. 0c04
    std::string vendor;
    std::string device;
    std::string subVendor;
    std::string subDevice;
};

const char kFibreChannelClass[] = "0c04";

// dddd:bb:dd.f with hex domain, bus and device, and a function 0..7.
bool IsPciAddress(const std::string& text);

// "PCI\VEN_10DF&DEV_F100&SUBSYS_F10010DF" (subsystem device, then vendor).
std::string HardwareId(const PciFunction& function);
// "<address>-<hardware id>", the identifier the provider is given.
std::string DeviceIdentifier(const PciFunction& function);

}  // namespace qdmcli
