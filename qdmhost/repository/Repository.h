#pragma once
// The update repository: a folder with "catalogue.json", its minisign
// signature "catalogue.json.minisig" and the update module archives it names.
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HostTypes.h"
#include "repository/Catalogue.h"

namespace qdmcli {

// How a command treats a repository that cannot be trusted.
struct TrustPolicy {
    std::string hostFolder;       // <root>/qdmhost: trusted keys and accepted serials
    std::string channel;          // the channel the server follows (qdmhost.conf)
    bool allowUnsigned = false;   // --allow-unsigned: signature problems are a loud warning
    bool refuseUntrusted = true;  // false (inventory, check): a warning and unverified versions
};

// What the checks established about a loaded repository.
struct RepositoryTrust {
    bool verified = false;          // signed by a trusted key, current, no rollback
    bool unsignedAccepted = false;  // let through by --allow-unsigned
    std::string problem;            // the reason word when not verified
    std::string message;            // what the first problem was
    int failureCode = 0;            // the exit code when the repository could not be loaded at all
    std::string keyId;              // of the verified signature
    std::string channel;
    std::optional<std::uint64_t> serial;
    std::string expires;
    std::optional<std::time_t> expiresAt;
};

class Repository {
public:
    Repository() = default;
    Repository(std::string folder, std::vector<CatalogueEntry> entries, RepositoryTrust trust = {})
        : folder_(std::move(folder)), entries_(std::move(entries)), trust_(std::move(trust)) {}

    // Reads the catalogue (at most 1 MiB) once, verifies its signature over
    // those bytes, parses them, and checks expiry, rollback and that every
    // archive is a regular file of the folder. Throws HostError
    // (bad-repository, untrusted-repository as the policy says).
    static Repository Load(const std::string& folder, const TrustPolicy& policy);

    bool empty() const { return entries_.empty(); }
    const std::string& folder() const { return folder_; }
    const RepositoryTrust& trust() const { return trust_; }
    // The package for a port's model key and a module kind, as the host
    // registers it with the module (the staged copy's path once staged);
    // false when there is none.
    bool Find(const std::string& modelKey, const std::string& kind, CManageRepositoryInfo* info) const;
    const CatalogueEntry* EntryFor(const std::string& modelKey, const std::string& kind) const;
    // From now on the provider is given this copy of the archive.
    void UseStagedCopy(const std::string& archive, const std::string& path) { staged_[archive] = path; }

private:
    std::string folder_;
    std::vector<CatalogueEntry> entries_;
    RepositoryTrust trust_;
    std::map<std::string, std::string> staged_;  // archive name -> staged copy
};

}  // namespace qdmcli
