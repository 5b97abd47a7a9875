// Loading a repository: one read of the catalogue, whose bytes are verified
// and then parsed, and the trust checks the command's policy applies.
#include <sys/stat.h>

#include <algorithm>
#include <functional>

#include "cli/Console.h"
#include "model/HostError.h"
#include "repository/Repository.h"
#include "repository/Trust.h"
#include "store/ChannelSerials.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

std::string ReadCatalogue(const std::string& path) {
    LimitedRead read = ReadRegularFile(path, kMaxCatalogueBytes);
    if (read.result == ReadResult::kTooLarge) Untrusted(untrusted::kTooLarge, path + " is larger than 1 MiB");
    if (read.result == ReadResult::kNotRegular)
        throw HostError(kExitRepository, "repository: " + path + " is not a regular file");
    if (read.result != ReadResult::kOk) throw HostError(kExitRepository, "repository: cannot read " + path);
    return read.text;
}

// lstat: a link could lead out of the repository.
void CheckArchiveIsRegularFile(const std::string& archive) {
    struct stat info;
    if (::lstat(archive.c_str(), &info) != 0)
        throw HostError(kExitRepository, "repository: " + archive + " is missing");
    if (!S_ISREG(info.st_mode)) Untrusted(untrusted::kArchiveNotRegular, archive + " is not a regular file");
}

// Runs the trust checks one by one. A refusal ends the command unless the
// policy lets it pass: --allow-unsigned lets signature problems through with
// a loud warning; inventory and check go on with a warning.
class TrustChecks {
public:
    TrustChecks(const TrustPolicy& policy, RepositoryTrust* trust) : policy_(policy), trust_(trust) {}

    void Run(const std::function<void()>& check) {
        try {
            check();
        } catch (const HostError& error) {
            if (error.code() != kExitUntrusted) throw;
            if (policy_.allowUnsigned && IsSignatureReason(error.reason())) {
                Warn(std::string("UNSIGNED REPOSITORY ACCEPTED (--allow-unsigned): ") + error.what() +
                     ". Anyone who can write to the repository decides what runs as root here.");
                trust_->unsignedAccepted = true;
                return;
            }
            if (policy_.refuseUntrusted) throw;
            Warn(std::string(error.what()) + "; its versions are shown as unverified");
            if (trust_->problem.empty()) {
                trust_->problem = error.reason();
                trust_->message = error.what();
            }
        }
    }

private:
    const TrustPolicy& policy_;
    RepositoryTrust* trust_;
};

}  // namespace

Repository Repository::Load(const std::string& folder, const TrustPolicy& policy) {
    const std::string path = folder + "/" + kCatalogueFile;
    const std::string bytes = ReadCatalogue(path);
    RepositoryTrust trust;
    TrustChecks checks(policy, &trust);
    checks.Run([&] { trust.keyId = VerifyCatalogueSignature(path, bytes, LoadTrustedKeys(policy.hostFolder)); });
    Catalogue catalogue = ParseCatalogue(bytes, !policy.allowUnsigned);
    trust.channel = catalogue.channel;
    trust.serial = catalogue.serial;
    trust.expires = catalogue.expires;
    trust.expiresAt = catalogue.expiresAt;
    checks.Run([&] { CheckChannel(path, catalogue.channel, policy.channel); });
    if (catalogue.expiresAt)
        checks.Run([&] { CheckNotExpired(path, catalogue.expires, *catalogue.expiresAt, std::time(nullptr)); });
    if (!trust.keyId.empty() && catalogue.serial)
        checks.Run(
            [&] { ChannelSerials(policy.hostFolder).CheckNotRolledBack(path, catalogue.channel, *catalogue.serial); });
    for (const CatalogueEntry& entry : catalogue.packages)
        checks.Run([&] { CheckArchiveIsRegularFile(folder + "/" + entry.archive); });
    trust.verified = trust.problem.empty() && !trust.unsignedAccepted;
    return Repository(folder, std::move(catalogue.packages), std::move(trust));
}

const CatalogueEntry* Repository::EntryFor(const std::string& modelKey, const std::string& kind) const {
    for (const CatalogueEntry& entry : entries_)
        if (entry.kind == kind &&
            std::find(entry.uniqueNames.begin(), entry.uniqueNames.end(), modelKey) != entry.uniqueNames.end())
            return &entry;
    return nullptr;
}

bool Repository::Find(const std::string& modelKey, const std::string& kind, CManageRepositoryInfo* info) const {
    const CatalogueEntry* entry = EntryFor(modelKey, kind);
    if (!entry) return false;
    auto staged = staged_.find(entry->archive);
    info->uniqueName = modelKey;
    info->moduleKind = kind;
    info->version = entry->version;
    info->archivePath = staged != staged_.end() ? staged->second : folder_ + "/" + entry->archive;
    return true;
}

}  // namespace qdmcli
