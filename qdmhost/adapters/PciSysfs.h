#pragma once
// PCI functions as the kernel lists them: one folder per function below
// /sys/bus/pci/devices, its ids in small text files ("0x10df\n"). The
// parsing is pure; ReadFibreChannelFunctions is the one place that reads
// the folder.
#include <optional>
#include <string>
#include <vector>

#include "adapters/Discovery.h"

namespace qdmcli {

const char kPciDevicesFolder[] = "/sys/bus/pci/devices";

// The texts of one function's files class, vendor, device, subsystem_vendor
// and subsystem_device, as read; empty when a file is missing or refused.
struct PciSysfsTexts {
    std::string classCode, vendor, device, subVendor, subDevice;
};

// "0x0c0400\n" gives "0c04"; empty unless "0x", six lower-case hex digits
// and at most a line end.
std::string ParsePciClass(const std::string& text);
// The function named by its folder (dddd:bb:dd.f, lower case) with these
// texts; empty when any is not of the kernel's exact form.
std::optional<PciFunction> ParsePciSysfsFunction(const std::string& name, const PciSysfsTexts& texts);

// The Fibre Channel functions below `folder` (the product passes
// kPciDevicesFolder), sorted by address. Only regular files of a few bytes
// are read, never a link or FIFO; a function with a missing or malformed file
// is skipped. Throws HostError (no-device) when the folder cannot be listed.
std::vector<PciFunction> ReadFibreChannelFunctions(const std::string& folder);

}  // namespace qdmcli
