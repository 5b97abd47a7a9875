#pragma once
// The update repository: a folder with "catalogue.json" and the update
// module archives it names.
#include <string>
#include <vector>

#include "HostTypes.h"

namespace qdmcli {

const char kCatalogueFile[] = "catalogue.json";

struct CatalogueEntry {
    std::vector<std::string> uniqueNames;  // model keys the package serves
    std::string kind;                      // "firm", "driver" or "util"
    std::string version;
    std::string archive;                   // plain file name inside the repository
};

// Parses {"packages": [{"uniqueNames": [...], "kind", "version", "archive"}]}.
// Every text is checked before it can reach a path or a shell: names and
// versions of safe characters, archives plain file names. Two entries serving
// the same unique name and kind are ambiguous. Throws HostError
// (bad-repository) naming the first bad entry.
std::vector<CatalogueEntry> ParseCatalogue(const std::string& jsonText);

bool IsSafeArchiveName(const std::string& name);
bool IsSafeVersionText(const std::string& version);
bool IsSafeUniqueName(const std::string& name);
bool IsModuleKind(const std::string& kind);

class Repository {
public:
    Repository() = default;
    Repository(std::string folder, std::vector<CatalogueEntry> entries)
        : folder_(std::move(folder)), entries_(std::move(entries)) {}

    // Reads and checks the catalogue and that every archive is a regular
    // file of the folder. Throws HostError (bad-repository).
    static Repository Load(const std::string& folder);

    bool empty() const { return entries_.empty(); }
    const std::string& folder() const { return folder_; }
    // The package for a port's model key and a module kind, as the host
    // registers it with the module; false when there is none.
    bool Find(const std::string& modelKey, const std::string& kind, CManageRepositoryInfo* info) const;

private:
    std::string folder_;
    std::vector<CatalogueEntry> entries_;
};

}  // namespace qdmcli
