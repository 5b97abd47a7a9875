#pragma once
// Pure parsing for adapter discovery: lspci's machine-readable lines and the
// host's device identifiers. No files, no processes: the caller supplies the
// texts.
#include <optional>
#include <string>
#include <vector>

namespace qdmcli {

// One PCI function as "lspci -Dnm" lists it; all ids lower-case hex.
struct PciFunction {
    std::string address;    // domain:bus:device.function, e.g. 0000:03:00.1
    std::string classCode;  // e.g. 0c04
    std::string vendor;
    std::string device;
    std::string subVendor;
    std::string subDevice;
};

const char kFibreChannelClass[] = "0c04";

// One line of "lspci -Dnm": address, then quoted class, vendor, device,
// subsystem vendor, subsystem device, with "-rXX"/"-pXX" options between.
// Empty when any field is missing or not of its exact hex form.
std::optional<PciFunction> ParseLspciLine(const std::string& line);
// The Fibre Channel functions of a whole listing; other lines are ignored.
std::vector<PciFunction> FibreChannelFunctions(const std::string& listing);

// "PCI\VEN_10DF&DEV_F100&SUBSYS_F10010DF" (subsystem device, then vendor).
std::string HardwareId(const PciFunction& function);
// "<address>-<hardware id>", the identifier the provider is given.
std::string DeviceIdentifier(const PciFunction& function);

}  // namespace qdmcli
