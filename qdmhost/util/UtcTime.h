#pragma once
// UTC times as qdmhost writes and reads them: "2027-01-01T00:00:00Z".
#include <ctime>
#include <optional>
#include <string>

namespace qdmcli {

// Now, in that form.
std::string UtcTimestamp();
// Seconds since the epoch; empty when not of that exact form or out of range.
std::optional<std::time_t> ParseUtcTime(const std::string& text);

}  // namespace qdmcli
