#include "repository/Trust.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "cli/Console.h"
#include "model/HostError.h"
#include "util/Files.h"

namespace qdmcli {

void Untrusted(const char* reason, const std::string& message) {
    throw HostError(kExitUntrusted, std::string("repository not trusted (") + reason + "): " + message, reason);
}

bool IsSignatureReason(const std::string& reason) {
    return reason == untrusted::kUnsigned || reason == untrusted::kMalformedSignature ||
           reason == untrusted::kUnknownKey || reason == untrusted::kBadSignature;
}

std::string WhoElseMayChange(const struct stat& info) {
    if (info.st_mode & (S_IWGRP | S_IWOTH)) return "writable by group or others";
    if (info.st_uid != 0 && info.st_uid != ::geteuid())
        return "owned by user " + std::to_string(info.st_uid) + ", not root" + (::geteuid() == 0 ? "" : " or us");
    return "";
}

std::string TrustedKeysFolder(const std::string& hostFolder) { return hostFolder + "/" + kTrustedKeysFolder; }

std::vector<std::string> TrustedKeyFiles(const std::string& folder) {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        std::string name = entry.path().filename().string();
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".pub") == 0) paths.push_back(folder + "/" + name);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

namespace {

// The key of one file, or why it is left out.
std::string ReadTrustedKey(const std::string& path, TrustedKey* key) {
    LimitedRead read = ReadRegularFile(path, kMaxKeyBytes);
    if (read.result != ReadResult::kOk) return "not a regular file of at most 4 KiB";
    std::string others = WhoElseMayChange(read.info);
    if (!others.empty()) return others;
    try {
        key->key = ParseMinisignPublicKey(read.text);
        key->file = path;
    } catch (const MinisignFormatError& error) {
        return std::string("not a minisign public key: ") + error.what();
    }
    return "";
}

}  // namespace

std::vector<TrustedKey> LoadTrustedKeys(const std::string& hostFolder) {
    const std::string folder = TrustedKeysFolder(hostFolder);
    struct stat info;
    if (::lstat(folder.c_str(), &info) != 0) return {};
    std::string others = S_ISDIR(info.st_mode) ? WhoElseMayChange(info) : "not a folder";
    if (!others.empty()) {
        Warn("the trusted keys in " + folder + " are ignored: the folder is " + others);
        return {};
    }
    std::vector<TrustedKey> keys;
    for (const std::string& path : TrustedKeyFiles(folder)) {
        TrustedKey key;
        std::string why = ReadTrustedKey(path, &key);
        if (why.empty())
            keys.push_back(std::move(key));
        else
            Warn("trusted key " + path + " ignored: " + why);
    }
    return keys;
}

std::string VerifyCatalogueSignature(const std::string& cataloguePath, const std::string& catalogueBytes,
                                     const std::vector<TrustedKey>& keys) {
    const std::string path = cataloguePath + kSignatureSuffix;
    LimitedRead read = ReadRegularFile(path, kMaxSignatureBytes);
    if (read.result == ReadResult::kMissing)
        Untrusted(untrusted::kUnsigned, path + " is missing: the catalogue is not signed");
    if (read.result == ReadResult::kTooLarge) Untrusted(untrusted::kTooLarge, path + " is larger than 4 KiB");
    if (read.result != ReadResult::kOk)
        Untrusted(untrusted::kMalformedSignature, path + " is not a readable regular file");
    MinisignSignature signature;
    try {
        signature = ParseMinisignSignature(read.text);
    } catch (const MinisignFormatError& error) {
        Untrusted(untrusted::kMalformedSignature, path + " is not a minisign signature: " + error.what());
    }
    const std::string keyId = KeyIdText(signature.keyId);
    auto key = std::find_if(keys.begin(), keys.end(),
                            [&](const TrustedKey& trusted) { return trusted.key.keyId == signature.keyId; });
    if (key == keys.end())
        Untrusted(untrusted::kUnknownKey, path + " was made with key " + keyId + ", which is not trusted (" +
                                              std::to_string(keys.size()) + " trusted key(s); qdmhost trust list)");
    if (!VerifyMinisign(key->key, signature, catalogueBytes))
        Untrusted(untrusted::kBadSignature, path + " does not verify with trusted key " + keyId + ": " + cataloguePath +
                                                " or the trusted comment changed after signing");
    return keyId;
}

void CheckNotExpired(const std::string& cataloguePath, const std::string& expires, std::time_t expiresAt,
                     std::time_t now) {
    if (expiresAt <= now)
        Untrusted(untrusted::kExpired, cataloguePath + " expired at " + expires +
                                           ": the publisher must sign a new catalogue (a frozen repository)");
}

void CheckChannel(const std::string& cataloguePath, const std::string& channel, const std::string& serverChannel) {
    if (channel != serverChannel)
        Untrusted(untrusted::kWrongChannel, cataloguePath + " is published for channel \"" + channel +
                                                "\"; this server follows channel \"" + serverChannel +
                                                "\" (qdmhost.conf)");
}

}  // namespace qdmcli
