#pragma once
// Builds zip archives for update-module tests.
#include <string>
#include <utility>
#include <vector>

namespace qdmtest {

struct ArchiveEntry {
    // A constructor rather than an aggregate, so that {"name", "content"}
    // compiles cleanly with the missing-initializer warning on.
    ArchiveEntry(std::string entryName, std::string entryContent = "", bool isExecutable = false,
                 std::string linkTarget = "")
        : name(std::move(entryName)),
          content(std::move(entryContent)),
          executable(isExecutable),
          symlinkTarget(std::move(linkTarget)) {}

    std::string name;
    std::string content;
    bool executable = false;
    std::string symlinkTarget;  // non-empty: the entry is a symbolic link
};

// Writes a zip archive; false when it cannot.
bool MakeZip(const std::string& path, const std::vector<ArchiveEntry>& entries);

}  // namespace qdmtest
