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
                 std::string linkTarget = "", std::string hardlink = "")
        : name(std::move(entryName)), content(std::move(entryContent)), executable(isExecutable),
          symlinkTarget(std::move(linkTarget)), hardlinkTarget(std::move(hardlink)) {}

    // A hard link to `target`: zip has no such entry, only MakeTar writes it.
    static ArchiveEntry HardLink(std::string entryName, std::string target) {
        return ArchiveEntry(std::move(entryName), "", false, "", std::move(target));
    }

    std::string name;
    std::string content;
    bool executable = false;
    std::string symlinkTarget;   // non-empty: the entry is a symbolic link
    std::string hardlinkTarget;  // non-empty: the entry is a hard link
};

// Writes a zip archive; false when it cannot.
bool MakeZip(const std::string& path, const std::vector<ArchiveEntry>& entries);
// Writes a tar archive, whatever the path's extension: an unpacker that
// detects the format takes it for an update module all the same.
bool MakeTar(const std::string& path, const std::vector<ArchiveEntry>& entries);

}  // namespace qdmtest
