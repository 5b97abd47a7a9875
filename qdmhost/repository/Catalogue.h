#pragma once
// The repository's catalogue, "catalogue.json": the packages it offers, with
// the checks of every text in it.
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace qdmcli {

const char kCatalogueFile[] = "catalogue.json";

struct CatalogueEntry {
    std::vector<std::string> uniqueNames;  // model keys the package serves
    std::string kind;                      // "firm", "driver" or "util"
    std::string version;
    std::string archive;                // plain file name inside the repository
    std::string sha256;                 // 64 lower-case hex digits; empty when absent (unsigned lab use)
    std::optional<std::uint64_t> size;  // bytes of the archive
    std::string bootBios;               // firm: the boot BIOS the package carries; empty when not declared
};

struct Catalogue {
    std::string channel;                  // what the catalogue is for: a server follows one channel
    std::optional<std::uint64_t> serial;  // raised by the publisher with every new catalogue
    std::string expires;                  // RFC 3339 UTC, e.g. 2027-01-01T00:00:00Z
    std::optional<std::time_t> expiresAt;
    std::vector<CatalogueEntry> packages;
};

// Parses {"channel": NAME, "serial": N, "expires": T, "packages": [{"uniqueNames": [...],
// "kind", "version", "archive", "sha256", "size"}]}. Every text is checked
// before it can reach a path or a shell: channel, names and versions of safe
// characters, archives plain file names. Two entries serving the same unique
// name and kind are ambiguous. Without `trustFieldsRequired` serial,
// expires, sha256 and size may be absent (checked when present). Throws
// HostError (bad-repository) naming the first bad entry.
Catalogue ParseCatalogue(const std::string& jsonText, bool trustFieldsRequired = true);

bool IsSafeArchiveName(const std::string& name);
bool IsSafeVersionText(const std::string& version);
bool IsSafeUniqueName(const std::string& name);

}  // namespace qdmcli
