#pragma once
// The commands of qdmhost. Each returns its result as one JSON document
// (what --json prints) and the exit code; the text form is rendered from it.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "repository/Catalogue.h"
#include "cli/Options.h"
#include "adapters/Session.h"

namespace qdmcli {

struct CommandResult {
    int exitCode = 0;
    nlohmann::json document;
};

CommandResult RunInventory(const Options& options);
CommandResult RunUpdate(const Options& options);
CommandResult RunReport(const Options& options);
CommandResult RunCheck(const Options& options);
CommandResult RunHistory(const Options& options);
CommandResult RunTrust(const Options& options);
CommandResult RunMetrics(const Options& options);

// The inventory's port list: per port its identity, boot BIOS and modules
// with operating and repository versions and their status.
nlohmann::json InventoryPorts(std::vector<Port>& ports, const Repository& repository, const std::string& root);
// The utility configuration check, as an update of the utility would run it:
// "passed", "refused" or "no-utility".
std::string UtilityCheck(const Port& port, const Repository& repository);

// The readable table of a command's document.
std::string RenderText(const nlohmann::json& document);

// Runs the provider's three report phases over the ports into
// <folder>/Emulex_FcConfigInfo.xml, after filling the version caches.
// Returns the ports reported, in document order. Throws HostError.
std::vector<const Port*> WriteConfigReport(std::vector<Port>& ports, const std::string& folder);
// "BootBios Version" of every port element of a written report, in order.
std::vector<std::string> ReportBootBiosVersions(const std::string& reportPath);

const char kReportFile[] = "Emulex_FcConfigInfo.xml";

}  // namespace qdmcli
