#pragma once
// The typed results of the commands other than the survey's: what the
// renderers turn into text and JSON.
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/Console.h"
#include "model/ServerSurvey.h"

namespace qdmcli {

// Which key vouched for an update and which catalogue it came from.
struct Provenance {
    std::string keyId;  // empty: none verified
    std::optional<std::uint64_t> serial;
    bool unsignedAccepted = false;  // --allow-unsigned let it through
};

// One module of an update run (or its plan).
struct ModuleOutcome {
    Port port;
    ModuleReading reading;
    std::string outcome;  // a status when nothing was to do, else planned, refused, updated, failed...
    std::string reason;   // why a module was refused outside its condition check (bad-wwpn, last-path)
    bool downgrade = false;
    std::optional<std::vector<OperatorMessage>> messages;  // refused or run: what the provider said
    bool ran = false;                                      // the steps ran: the fields below are set
    std::string now;                                       // the version read after the steps
    std::string failedStep;                                // empty when none failed
    std::string interruptedStep;                           // interrupted: the last step begun, empty when none
    double seconds = 0;
    // The multipath guard's part, for firmware: the maps that would lose (or,
    // with --allow-path-loss, lost) their last healthy path.
    std::vector<std::string> maps;
    bool pathLossAllowed = false;
    std::vector<std::string> pathsNotRestored;  // after the flash, within --path-wait
    // A host-wide module (driver, utility) is one entry for the ports that
    // share it: their device ids, this entry's port first. Empty otherwise.
    std::vector<std::string> sharedBy;
};

// Why an update run stopped before its end.
struct RunStop {
    std::string reason;  // kReasonPathsNotRestored
    std::string adapter;
    std::vector<std::string> paths;
};

struct UpdateRun {
    bool dryRun = false;
    RepositoryState repository;
    Provenance provenance;
    std::vector<ModuleOutcome> results;
    PathSurvey paths;  // as the run found them
    std::optional<RunStop> stopped;
};

struct ReportSummary {
    std::string file;
    std::size_t ports = 0;
};

struct MetricsSummary {
    std::string file;
    int series = 0;
};

// History records are stored data: kept as read, every field checked where used.
struct HistoryEntries {
    std::vector<nlohmann::json> entries;
};

// The check: the survey, and each port's last history record (null when
// none) in the survey's port order, so that one run answers a fleet report.
struct ServerCheck {
    ServerSurvey survey;
    std::vector<nlohmann::json> lastUpdates;
};

struct TrustedKeyRow {
    std::string keyId;
    std::string publicKey;
    std::string comment;
    std::string file;
};

struct TrustChange {
    std::string action;               // add, list or remove
    std::string keyId;                // add, remove
    std::string file;                 // add
    std::vector<TrustedKeyRow> keys;  // list
};

}  // namespace qdmcli
