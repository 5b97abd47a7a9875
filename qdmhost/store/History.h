#pragma once
// The update history of an install root: one JSON object a line in
// <root>/qdmhost/history.jsonl, appended with one write so that a killed run
// never leaves half a line.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace qdmcli {

const char kHistoryFile[] = "history.jsonl";

// Appends one record; false (with a warning) when the file cannot be written.
bool AppendHistory(const std::string& hostFolder, const nlohmann::json& record);
// The records of a history text in order; lines that are not JSON objects
// are counted in *skipped and left out.
std::vector<nlohmann::json> ParseHistory(const std::string& text, int* skipped);
// The records of <host folder>/history.jsonl of the ports the selectors
// (--port) name, all when there are none, in order; an unreadable line is
// skipped with a warning. Records are stored data, read as such: every
// field is checked where it is used.
std::vector<nlohmann::json> ReadHistory(const std::string& hostFolder, const std::vector<std::string>& selectors);

}  // namespace qdmcli
