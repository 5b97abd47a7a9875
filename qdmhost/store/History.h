#pragma once
// The update history of an install root: one JSON object a line in
// <root>/qdmhost/history.jsonl, each appended with one write and synced, so
// that a killed run or a power loss leaves whole lines. A module's update
// writes a start line before anything changes ("event": "start"), a line
// per step ("step") and an end line ("end") with its outcome; lines without
// an event are an older qdmhost's end lines.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace qdmcli {

const char kHistoryFile[] = "history.jsonl";

const char kEventStart[] = "start";
const char kEventStep[] = "step";
const char kEventEnd[] = "end";

// Appends one record; false (with a warning) when the file cannot be written.
bool AppendHistory(const std::string& hostFolder, const nlohmann::json& record);
// The records of a history text in order, of every event; lines that are not
// records are counted in *skipped and left out.
std::vector<nlohmann::json> ParseHistory(const std::string& text, int* skipped);
// The end records of <host folder>/history.jsonl of the ports the selectors
// (--port) name, all when there are none, in order; an unreadable line is
// skipped with a warning. Records are stored data, read as such: every
// field is checked where it is used.
std::vector<nlohmann::json> ReadHistory(const std::string& hostFolder, const std::vector<std::string>& selectors);
// A module update that started and never ended (the run was killed, or the
// power went) gets its end line now: outcome "interrupted", the step it was
// in, and a warning on standard error. Call only while no update runs; the
// file's own lock keeps two callers from closing one start twice.
void RecoverInterruptedRuns(const std::string& hostFolder);

}  // namespace qdmcli
