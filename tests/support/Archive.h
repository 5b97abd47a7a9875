#pragma once
// Builds zip archives for update-module tests.
#include <string>
#include <utility>
#include <vector>

namespace qdmtest {

struct ArchiveEntry {
    std::string name;
    std::string content;
    bool executable = false;
    std::string symlinkTarget;  // non-empty: the entry is a symbolic link
};

// Writes a zip archive; false when it cannot.
bool MakeZip(const std::string& path, const std::vector<ArchiveEntry>& entries);

}  // namespace qdmtest
