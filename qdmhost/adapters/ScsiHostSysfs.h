#pragma once
// Which adapter port a SCSI host is: /sys/class/scsi_host/hostN is a link
// into the device tree below the PCI function that carries it, and
// /sys/class/fc_host/hostN/port_name holds the port's WWPN. The parsing is
// pure; ReadScsiHosts is the one place that reads the folders.
#include <string>
#include <vector>

namespace qdmcli {

const char kScsiHostFolder[] = "/sys/class/scsi_host";
const char kFcHostFolder[] = "/sys/class/fc_host";

// "host3" gives 3; -1 unless "host" and a decimal number without sign or
// leading zero.
int ParseScsiHostName(const std::string& name);
// The PCI function (dddd:bb:dd.f) nearest above `hostName` in the link's
// target, e.g. "../../devices/pci0000:00/0000:00:03.0/0000:03:00.0/host3/
// scsi_host/host3" gives "0000:03:00.0" (an NPIV port's host lies below its
// adapter's host: the same function). Empty when the target does not end in
// "<hostName>/scsi_host/<hostName>" or no PCI function lies above it.
std::string ParseScsiHostLink(const std::string& target, const std::string& hostName);
// "0x10000000c9b20002\n" gives "10:00:00:00:c9:b2:00:02"; empty unless the
// kernel's form.
std::string ParseFcPortName(const std::string& text);

struct ScsiHost {
    int number = -1;
    std::string pciAddress;  // the function
    std::string wwpn;        // empty when not a Fibre Channel host
};

// The hosts below `scsiHostFolder` that sit on a PCI function, sorted by
// number, with the WWPN from `fcHostFolder` when there is one. A missing
// folder gives no hosts; odd entries are skipped.
std::vector<ScsiHost> ReadScsiHosts(const std::string& scsiHostFolder, const std::string& fcHostFolder);

}  // namespace qdmcli
