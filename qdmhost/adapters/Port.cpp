#include "adapters/Port.h"

#include <algorithm>

#include "util/Text.h"

namespace qdmcli {

std::string PciAddressOf(const std::string& deviceId) { return deviceId.substr(0, deviceId.find('-')); }

bool PortMatches(const Port& port, const std::string& selector) {
    std::string address = PciAddressOf(port.deviceId);
    std::string wwpn = selector;
    wwpn.erase(std::remove(wwpn.begin(), wwpn.end(), ':'), wwpn.end());
    return selector == port.deviceId || selector == address || (address.size() > 5 && selector == address.substr(5)) ||
           selector == port.busDevFunc || (!port.wwpn.empty() && ToUpper(wwpn) == port.wwpn);
}

}  // namespace qdmcli
