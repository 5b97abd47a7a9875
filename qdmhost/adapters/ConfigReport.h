#pragma once
// The provider's device configuration report (XML), written for the report
// command and read back for the boot BIOS versions, which the host contract
// has no call for.
#include <string>
#include <vector>

#include "adapters/Port.h"

namespace qdmcli {

const char kReportFile[] = "Emulex_FcConfigInfo.xml";

// Runs the provider's three report phases over the ports into
// <folder>/Emulex_FcConfigInfo.xml, after filling the version caches.
// Returns the ports reported, in document order. Throws HostError.
std::vector<const Port*> WriteConfigReport(std::vector<Port>& ports, const std::string& folder);
// "BootBios Version" of every port element of a written report, in order.
std::vector<std::string> ReportBootBiosVersions(const std::string& reportPath);
// The boot BIOS version of each port, from a report written into a scratch
// folder below <root>/tmp; empty texts (with a warning) when that fails.
std::vector<std::string> BootBiosVersions(std::vector<Port>& ports, const std::string& root);

}  // namespace qdmcli
