#pragma once
// One discovered adapter port and the vendor object the provider built for it.
#include <string>

#include "Vendor.h"

namespace qdmcli {

struct Port {
    std::string deviceId;
    std::string vendorClass;
    CVendor* vendor;
    std::string wwpn;        // display form, empty when unknown
    std::string busDevFunc;  // e.g. 3/0/1
    bool badWwpn = false;    // the adapter listing's WWPN is no WWPN: never updated
};

// "0000:03:00.0" of "0000:03:00.0-PCI\VEN_...".
std::string PciAddressOf(const std::string& deviceId);
// True when the --port value names this port (device id, its PCI address,
// WWPN in any case with or without ":", or bus/dev/func).
bool PortMatches(const Port& port, const std::string& selector);

}  // namespace qdmcli
