#pragma once
// Whether a repository's catalogue may be believed: a minisign signature by
// one of the install root's trusted keys, the server's channel, an expiry
// not yet passed, and a serial not lower than the highest accepted before on
// that channel (ChannelSerials).
#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "repository/Minisign.h"

namespace qdmcli {

const char kSignatureSuffix[] = ".minisig";
const char kTrustedKeysFolder[] = "trusted-keys";
const std::size_t kMaxCatalogueBytes = 1 << 20;
const std::size_t kMaxSignatureBytes = 4 << 10;
const std::size_t kMaxKeyBytes = 4 << 10;

// Why a repository is not trusted: the stable "reason" word of exit code 11.
namespace untrusted {
const char kUnsigned[] = "unsigned";
const char kMalformedSignature[] = "malformed-signature";
const char kUnknownKey[] = "unknown-key";
const char kBadSignature[] = "bad-signature";
const char kTooLarge[] = "too-large";
const char kArchiveMismatch[] = "archive-mismatch";
const char kArchiveNotRegular[] = "archive-not-regular";
const char kArchiveTooLarge[] = "archive-too-large";
const char kRollback[] = "rollback";
const char kExpired[] = "expired";
const char kWrongChannel[] = "wrong-channel";
const char kState[] = "state";  // the accepted serials cannot be read
}  // namespace untrusted

// Throws HostError (untrusted-repository) carrying the reason word, which the
// message names too.
[[noreturn]] void Untrusted(const char* reason, const std::string& message);
// The reasons that concern the catalogue's signature: what --allow-unsigned lets pass.
bool IsSignatureReason(const std::string& reason);

// Empty when only its owner can change the file or folder, and that owner is
// root or we; else why not.
std::string WhoElseMayChange(const struct stat& info);

std::string TrustedKeysFolder(const std::string& hostFolder);
// The paths of the folder's *.pub files in name order.
std::vector<std::string> TrustedKeyFiles(const std::string& folder);

struct TrustedKey {
    MinisignPublicKey key;
    std::string file;
};

// The keys of <host folder>/trusted-keys/*.pub in name order. A folder or key
// file that others may change, or a file that is no key, is left out with a
// warning: a key that anyone could have put there proves nothing.
std::vector<TrustedKey> LoadTrustedKeys(const std::string& hostFolder);

// Checks <catalogue>.minisig against the catalogue's bytes and answers the
// id (KeyIdText) of the trusted key that made it. Throws HostError
// (untrusted-repository).
std::string VerifyCatalogueSignature(const std::string& cataloguePath, const std::string& catalogueBytes,
                                     const std::vector<TrustedKey>& keys);

// Refuses (expired) a catalogue whose expiry is not after `now`: a frozen
// repository would keep a server on old versions for ever.
void CheckNotExpired(const std::string& cataloguePath, const std::string& expires, std::time_t expiresAt,
                     std::time_t now);
// Refuses (wrong-channel) a catalogue published for another channel than the server follows.
void CheckChannel(const std::string& cataloguePath, const std::string& channel, const std::string& serverChannel);

}  // namespace qdmcli
