// qdmhost trust add|list|remove: the keys in <root>/qdmhost/trusted-keys
// that repositories must be signed with.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <map>

#include "FileUtility.h"
#include "adapters/InstallRoot.h"
#include "cli/Command.h"
#include "model/HostError.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"
#include "repository/Trust.h"
#include "util/Files.h"
#include "util/Text.h"

namespace qdmcli {

namespace {

void RefuseIfOthersMayChange(const std::string& path, const struct stat& info, bool rightType) {
    std::string others = rightType ? WhoElseMayChange(info) : "of the wrong file type";
    if (!others.empty())
        throw HostError(kExitInternal, "the trusted keys are refused: " + path + " is " + others +
                                           " (only root may change the trusted keys: chmod go-w, chown root)");
}

// The folder and every key file in it: a key that others could have put
// there would trust their repository.
void CheckTrustStore(const std::string& folder) {
    struct stat info;
    if (::lstat(folder.c_str(), &info) != 0) return;
    RefuseIfOthersMayChange(folder, info, S_ISDIR(info.st_mode));
    for (const std::string& path : TrustedKeyFiles(folder))
        if (::lstat(path.c_str(), &info) == 0) RefuseIfOthersMayChange(path, info, S_ISREG(info.st_mode));
}

// Made mode 0755 whatever the umask, so that the checks accept it.
std::string CreateTrustStore(const Options& options) {
    const std::string folder = TrustedKeysFolder(options.HostFolder());
    if (!CFileUtility::CreateFolder(options.HostFolder()))
        throw HostError(kExitInternal, "cannot create " + options.HostFolder());
    if (::mkdir(folder.c_str(), 0755) == 0)
        ::chmod(folder.c_str(), 0755);
    else if (errno != EEXIST)
        throw HostError(kExitInternal, "cannot create " + folder + ": " + std::strerror(errno));
    return folder;
}

// The key's text as read, which is the text that was checked.
MinisignPublicKey ReadKeyFile(const std::string& path, std::string* text) {
    LimitedRead read = ReadRegularFile(path, kMaxKeyBytes);
    static const std::map<ReadResult, std::pair<const char*, const char*>> kWhy = {
        {ReadResult::kMissing, {"no such file", "missing"}},
        {ReadResult::kNotRegular, {"not a regular file", "not-a-file"}},
        {ReadResult::kTooLarge, {"larger than 4 KiB, no public key", "too-large"}},
        {ReadResult::kUnreadable, {"unreadable", "unreadable"}}};
    if (read.result != ReadResult::kOk) {
        const auto& why = kWhy.at(read.result);
        throw HostError(kExitUsage, "trust add " + path + ": " + why.first, why.second);
    }
    *text = read.text;
    try {
        return ParseMinisignPublicKey(read.text);
    } catch (const MinisignFormatError& error) {
        throw HostError(kExitUsage, path + " is not a minisign public key: " + error.what());
    }
}

// Stored as minisign wrote it, so that `minisign -V -p` takes the file too.
// Any key can be made to carry a trusted key's id: a key is the same key
// only when all its bytes are.
void RefuseKeyWithTrustedId(const Options& options, const MinisignPublicKey& key) {
    for (const TrustedKey& trusted : LoadTrustedKeys(options.HostFolder()))
        if (trusted.key.keyId == key.keyId && trusted.key.key != key.key)
            throw HostError(kExitUsage, "key id " + KeyIdText(key.keyId) +
                                            " is already trusted with another key:\n  trusted " +
                                            PublicKeyText(trusted.key) + " (" + trusted.file + ")\n  offered " +
                                            PublicKeyText(key) + " (" + options.trustArgument +
                                            ")\nCompare the whole public key with the publisher's; to replace the "
                                            "key, remove the trusted one first");
}

TrustChange AddKey(const Options& options) {
    std::string text;
    MinisignPublicKey key = ReadKeyFile(options.trustArgument, &text);
    const std::string folder = CreateTrustStore(options);
    CheckTrustStore(folder);
    RefuseKeyWithTrustedId(options, key);
    const std::string keyId = KeyIdText(key.keyId);
    const std::string path = folder + "/" + keyId + ".pub";
    if (!WriteFileAtomically(path, text, 0644)) throw HostError(kExitInternal, "cannot write " + path);
    return {"add", keyId, path, {}};
}

TrustChange ListKeys(const Options& options) {
    CheckTrustStore(TrustedKeysFolder(options.HostFolder()));
    TrustChange change{"list", "", "", {}};
    for (const TrustedKey& key : LoadTrustedKeys(options.HostFolder()))
        change.keys.push_back({KeyIdText(key.key.keyId), PublicKeyText(key.key), key.key.comment, key.file});
    return change;
}

TrustChange RemoveKey(const Options& options) {
    if (!IsKeyIdText(options.trustArgument))
        throw HostError(kExitUsage, "a key id is 16 hex digits, as qdmhost trust list shows it");
    const std::string keyId = ToUpper(options.trustArgument);
    CheckTrustStore(TrustedKeysFolder(options.HostFolder()));
    bool removed = false;
    for (const TrustedKey& key : LoadTrustedKeys(options.HostFolder()))
        if (KeyIdText(key.key.keyId) == keyId) {
            if (::unlink(key.file.c_str()) != 0)
                throw HostError(kExitInternal, "cannot remove " + key.file + ": " + std::strerror(errno));
            removed = true;
        }
    if (!removed) throw HostError(kExitUsage, "no trusted key " + keyId + " (qdmhost trust list)");
    return {"remove", keyId, "", {}};
}

Outcome<TrustChange> RunTrust(const Options& options) {
    UseInstallRoot(options);
    if (options.trustAction == "add") return {AddKey(options)};
    if (options.trustAction == "remove") return {RemoveKey(options)};
    return {ListKeys(options)};
}

// trust add FILE.pub | trust list | trust remove KEYID: the action is noted
// when its subcommand is parsed.
void AddTrustActions(CLI::App& trust, Options& options) {
    trust.require_subcommand(1);
    CLI::App* add = trust.add_subcommand("add", "trust the minisign public key in FILE");
    add->add_option("file", options.trustArgument, "the publisher's minisign public key file (.pub)")
        ->type_name("FILE")
        ->required();
    CLI::App* list = trust.add_subcommand("list", "show the trusted keys");
    CLI::App* remove = trust.add_subcommand("remove", "stop trusting a key");
    remove->add_option("keyid", options.trustArgument, "the key's id: 16 hex digits, as trust list shows it")
        ->type_name("KEYID")
        ->required();
    for (CLI::App* action : {add, list, remove}) {
        action->fallthrough();
        action->parse_complete_callback([&options, action] { options.trustAction = action->get_name(); });
    }
}

}  // namespace

Command TrustCommand() {
    return MakeCommand<TrustChange>("trust", "manage the keys that repositories must be signed with",
                                    {{"--root", "--json"}, {}}, AddTrustActions, RunTrust, TrustJson, TrustText);
}

}  // namespace qdmcli
