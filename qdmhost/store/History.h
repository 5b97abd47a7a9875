#pragma once
// The update history of an install root: one JSON object a line in
// <root>/qdmhost/history.jsonl, appended with one write so that a killed run
// never leaves half a line.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "cli/Options.h"

namespace qdmcli {

const char kHistoryFile[] = "history.jsonl";

// Appends one record; false (with a warning) when the file cannot be written.
bool AppendHistory(const std::string& hostFolder, const nlohmann::json& record);
// The records of a history text in order; lines that are not JSON objects
// are counted in *skipped and left out.
std::vector<nlohmann::json> ParseHistory(const std::string& text, int* skipped);
// The records of <root>/qdmhost/history.jsonl for the ports of --port, in order.
std::vector<nlohmann::json> ReadHistory(const Options& options);
// The current time as 2024-05-01T12:00:00Z.
std::string UtcTimestamp();

}  // namespace qdmcli
