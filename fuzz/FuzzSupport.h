#pragma once
// Shared set-up of the fuzz targets: a private install root per process,
// silent tracing and pauses that cost nothing.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qdmfuzz {

// The process's install root below $TMPDIR (or /tmp), prepared on first use
// and removed at exit. Every file a target writes lies below it.
const std::string& Root();
// Root() + "/" + relative.
std::string InRoot(const std::string& relative);

// Replaces the file with exactly these bytes; aborts when it cannot, since a
// run that silently tests nothing is worse than a stopped one.
void WriteFile(const std::string& path, const std::string& content);

// A broken invariant is a finding: report it and abort, so libFuzzer keeps
// the input.
void Require(bool condition, const char* what);

// The text split at line feeds (the line feeds dropped).
std::vector<std::string> Lines(const std::string& text);

// Names of the entries of a folder, "." and ".." left out.
std::vector<std::string> FolderEntries(const std::string& folder);

}  // namespace qdmfuzz
