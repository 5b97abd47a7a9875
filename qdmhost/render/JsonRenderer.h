#pragma once
// The --json documents of the commands' results (without the envelope that
// the CLI adds); docs/schema/ describes each.
#include <nlohmann/json.hpp>

#include "model/Results.h"
#include "model/ServerSurvey.h"

namespace qdmcli {

nlohmann::json InventoryJson(const ServerSurvey& survey);
nlohmann::json CheckJson(const ServerCheck& check);
nlohmann::json UpdateJson(const UpdateRun& run);
// One result of an update, as the document and the history hold it.
nlohmann::json ModuleOutcomeJson(const ModuleOutcome& outcome);
nlohmann::json ProvenanceJson(const Provenance& provenance);
// The multipath paths per adapter with each adapter's verdict.
nlohmann::json PathSurveyJson(const PathSurvey& paths);
nlohmann::json ReportJson(const ReportSummary& report);
nlohmann::json MetricsJson(const MetricsSummary& metrics);
nlohmann::json HistoryJson(const HistoryEntries& history);
nlohmann::json TrustJson(const TrustChange& change);

}  // namespace qdmcli
