#pragma once
// Shared set-up of the fuzz targets: a private install root per process,
// silent tracing and pauses that cost nothing.
#include <string>
#include <vector>

namespace qdmfuzz {

// The process's install root below $TMPDIR (or /tmp), prepared on first use
// and removed at exit. Every file a target writes lies below it.
const std::string& Root();
// Replaces the file with exactly these bytes; aborts when it cannot.
void WriteFile(const std::string& path, const std::string& content);
// A broken invariant is a finding: report it and abort, so libFuzzer keeps the input.
void Require(bool condition, const char* what);
// The text split at line feeds, as std::getline reads it.
std::vector<std::string> Lines(const std::string& text);

}  // namespace qdmfuzz
