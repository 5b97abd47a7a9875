#pragma once
// The readable tables of the commands' results: what qdmhost prints without --json.
#include <string>

#include "model/Results.h"
#include "model/ServerSurvey.h"

namespace qdmcli {

std::string InventoryText(const ServerSurvey& survey);
std::string CheckText(const ServerCheck& check);
std::string UpdateText(const UpdateRun& run);
std::string ReportText(const ReportSummary& report);
std::string MetricsText(const MetricsSummary& metrics);
std::string HistoryText(const HistoryEntries& history);
std::string TrustText(const TrustChange& change);

}  // namespace qdmcli
