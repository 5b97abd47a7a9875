// A repository that can be trusted, end to end against the simulated demo
// server: every attack on a signed repository is refused with exit 11, its
// reason word and nothing changed; the staged copy of an archive is what is
// used; keys and signatures of the real minisign verify; the parsers refuse
// malformed keys and signatures.
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <tuple>

#include "Archive.h"
#include "HostRun.h"
#include "repository/Minisign.h"

namespace {

using nlohmann::json;
using qdmtest::ReadFile;
using qdmtest::WriteFile;

class TrustTest : public e2e::E2eTest {
public:
    void SetUp() override {
        E2eTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        BuildDemoRepository({"--serial", "2"});
    }

    std::string Repo(const std::string& name) const { return repo_ + "/" + name; }
    std::string KeyId() const {
        return qdmcli::KeyIdText(qdmcli::ParseMinisignPublicKey(ReadFile(publisher_.publicKey)).keyId);
    }

    static std::string StagingFolders() {
        std::string found;
        for (const auto& entry : std::filesystem::directory_iterator(e2e::kRoot + "/tmp"))
            if (entry.path().filename().string().rfind("qdmhost-staging.", 0) == 0) found += entry.path().string();
        return found;
    }
};

void FlipByte(const std::string& path) {
    std::string bytes = ReadFile(path);
    bytes[bytes.size() / 2] ^= 1;
    WriteFile(path, bytes);
}

// An update through `folder` (a copy of the repository unless it is the
// repository) accepts serial `serial`, signed by `key`, of a catalogue that
// changes nothing; the folder's full catalogue is then written back unsigned.
void AcceptNewer(TrustTest& t, const std::string& folder, const char* serial, const e2e::PublisherKey& key) {
    if (folder != t.repo_) std::filesystem::copy(t.repo_, folder, std::filesystem::copy_options::recursive);
    const std::string full = ReadFile(folder + "/catalogue.json");
    WriteFile(folder + "/catalogue.json", json({{"packages", {{{"uniqueNames", {"fcelx_8g2p_10df_f100_10df_f100"}},
                                                               {"kind", "firm"}, {"version", "2.02a5"},
                                                               {"archive", "fw-8g.zip"}}}}}).dump());
    ASSERT_TRUE(qdmtest::BuildCatalogue(folder, {"--serial", serial}));
    ASSERT_TRUE(e2e::SignFile(key, folder + "/catalogue.json"));
    ASSERT_EQ(t.Run({"--repo", folder, "update"}).exitCode, 0);
    WriteFile(folder + "/catalogue.json", full);
}

// The repository becomes a link to `target`.
void LinkRepository(TrustTest& t, const std::string& target) {
    std::filesystem::remove(t.repo_);
    std::filesystem::create_directory_symlink(target, t.repo_);
}

struct Attack {
    const char* name;
    const char* reason;
    void (*tamper)(TrustTest&);
};

const Attack kAttacks[] = {
    // One byte of an archive changed.
    {"ArchiveByteChanged", "archive-mismatch", [](TrustTest& t) { FlipByte(t.Repo("fw-16g.zip")); }},
    // An archive swapped for another valid archive of the repository (a smaller one).
    {"ArchiveSwapped", "archive-mismatch", [](TrustTest& t) { WriteFile(t.Repo("fw-8g.zip"), ReadFile(t.Repo("fw-16g.zip"))); }},
    // An archive longer than declared: refused while copying.
    {"ArchiveLonger", "archive-too-large", [](TrustTest& t) { WriteFile(t.Repo("lpfc.zip"), ReadFile(t.Repo("lpfc.zip")) + "trailer"); }},
    // The catalogue edited after signing: a raised version.
    {"CatalogueEdited", "bad-signature", [](TrustTest& t) {
         std::string text = ReadFile(t.Repo("catalogue.json"));
         WriteFile(t.Repo("catalogue.json"), text.replace(text.find("\"11.4.204.8\""), 12, "\"11.4.204.9\"")); }},
    // Signed with a key the server does not trust.
    {"KeyNotTrusted", "unknown-key", [](TrustTest& t) {
         ASSERT_TRUE(e2e::SignFile(e2e::MakePublisherKey(t.folder_ + "/stranger"), t.Repo("catalogue.json"))); }},
    // No signature at all.
    {"NoSignature", "unsigned", [](TrustTest& t) { ::unlink(t.Repo("catalogue.json.minisig").c_str()); }},
    // Something else where the signature should be.
    {"SignatureGarbage", "malformed-signature",
     [](TrustTest& t) { WriteFile(t.Repo("catalogue.json.minisig"), "untrusted comment: x\nnot base64\n"); }},
    // A catalogue past 1 MiB: not even parsed.
    {"CatalogueTooLarge", "too-large",
     [](TrustTest& t) { WriteFile(t.Repo("catalogue.json"), ReadFile(t.Repo("catalogue.json")) + std::string(1 << 20, ' ')); }},
    // An older serial after a newer one was accepted (by an update that changed nothing).
    {"OlderSerial", "rollback", [](TrustTest& t) {
         AcceptNewer(t, t.repo_, "5", t.publisher_);
         t.PublishCatalogue({"--serial", "4"}); }},
    // The same older catalogue in a new folder: serials are the channel's, not the path's.
    {"OlderSerialNewFolder", "rollback", [](TrustTest& t) {
         AcceptNewer(t, t.folder_ + "/rel10", "10", t.publisher_);
         t.PublishCatalogue({"--serial", "5"}); }},
    // A link the repository is reached through, repointed from the accepted release to an older one.
    {"LinkRepointedToOlder", "rollback", [](TrustTest& t) {
         std::filesystem::rename(t.repo_, t.folder_ + "/rel10");
         LinkRepository(t, t.folder_ + "/rel10");
         AcceptNewer(t, t.repo_, "10", t.publisher_);
         std::filesystem::copy(t.folder_ + "/rel10", t.folder_ + "/rel5", std::filesystem::copy_options::recursive);
         LinkRepository(t, t.folder_ + "/rel5");
         t.PublishCatalogue({"--serial", "5"}); }},
    // During a key rotation: the newer serial from key B, then an older one from key A, both trusted.
    {"OlderSerialOtherKey", "rollback", [](TrustTest& t) {
         const e2e::PublisherKey rotated = e2e::MakePublisherKey(t.folder_ + "/rotated");
         ASSERT_EQ(t.Run({"trust", "add", rotated.publicKey}).exitCode, 0);
         AcceptNewer(t, t.folder_ + "/b", "10", rotated);
         t.PublishCatalogue({"--serial", "5"}); }},
    // Signed by the same key for another channel, with a higher serial (its images would be older).
    {"OtherChannel", "wrong-channel", [](TrustTest& t) { t.PublishCatalogue({"--channel", "lab", "--serial", "9"}); }},
    // The accepted serials damaged: not read as "none yet".
    {"StateDamaged", "state", [](TrustTest&) { WriteFile(e2e::kRoot + "/qdmhost/accepted-serials.json", "{\"channels\": ["); }},
    // A catalogue past its expiry (a frozen repository).
    {"Expired", "expired", [](TrustTest& t) { t.PublishCatalogue({"--expires", "2000-01-01T00:00:00Z"}); }},
    // An archive replaced by a link, even to an identical copy.
    {"ArchiveLink", "archive-not-regular", [](TrustTest& t) {
         std::filesystem::rename(t.Repo("fw-16g.zip"), t.folder_ + "/fw-16g.zip");
         std::filesystem::create_symlink(t.folder_ + "/fw-16g.zip", t.Repo("fw-16g.zip")); }},
};

// Test names carry the row's name, not its bytes.
void PrintTo(const Attack& attack, std::ostream* out) { *out << attack.name; }

class AttackTest : public TrustTest, public ::testing::WithParamInterface<Attack> {};

TEST_P(AttackTest, RefusedWithNothingChanged) {
    GetParam().tamper(*this);
    ASSERT_FALSE(HasFatalFailure());
    TakeBaseline();
    qdmtest::SimResetCalls();
    e2e::HostRun run = Host({"--json", "update"});
    const json error = run.Json()["error"];
    EXPECT_EQ(std::to_string(run.exitCode) + " " + error["reason"].get<std::string>(),
              std::string("11 ") + GetParam().reason) << run.out;
    EXPECT_NE(error["message"].get<std::string>().find(repo_), std::string::npos) << run.out;
    ExpectNothingLeftBehind();  // the simulated server, the history and the accepted serials included
    // Nothing flashed, installed or run: depmod -a, the utility's scripts.
    for (const char* verb : {"Download", "-Uhv", "-a", "install", "uninstall"})
        EXPECT_EQ(qdmtest::SimCallCount(verb), 0u) << verb;
    EXPECT_EQ(StagingFolders(), "");
}

INSTANTIATE_TEST_SUITE_P(Attacks, AttackTest, ::testing::ValuesIn(kAttacks),
                         [](const ::testing::TestParamInfo<Attack>& info) { return info.param.name; });

// A signed repository of the channel the server follows updates. A utility whose install script swaps the
// repository's 16G firmware archive for another valid one, after staging,
// before the 16G port is updated: the staged copy is what is flashed.
TEST_F(TrustTest, SignedRepositoryUpdatesWithTheStagedArchives) {
    const std::string other = folder_ + "/other-16g.zip";
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(other, "fcelx_16g", {"--firmware", "11.4.999.1"}));
    ASSERT_TRUE(qdmtest::UnpackModule(Repo("ocm.zip"), folder_ + "/ocm"));
    std::vector<qdmtest::ArchiveEntry> entries;
    for (std::string file : {"x86/install.sh", "x64/install.sh", "x86/uninstall.sh", "x64/uninstall.sh",
                             "x86/message.txt", "x64/message.txt"}) {
        std::string content = ReadFile(folder_ + "/ocm/" + file);
        if (file.find("/install.sh") != std::string::npos)
            content.insert(content.find('\n') + 1, "cp '" + other + "' '" + Repo("fw-16g.zip") + "'\n");
        entries.emplace_back(file, content, file.find(".sh") != std::string::npos);
    }
    ASSERT_TRUE(qdmtest::MakeZip(Repo("ocm.zip"), entries));
    WriteFile(e2e::kRoot + "/qdmhost/qdmhost.conf", "; the lab's server\nchannel = lab\n");
    PublishCatalogue({"--channel", "lab"});
    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, 0) << update.err;
    EXPECT_EQ(update.Json()["repositoryVerified"], true);
    EXPECT_EQ(ReadFile(Repo("fw-16g.zip")), ReadFile(other));       // the swap happened
    EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), "\"11.4.204.8\"");  // the signed image was flashed
    EXPECT_EQ(StagingFolders(), "");
    // The history names the key and the serial; the serial is accepted.
    const json history = Host({"--json", "history"}).Json()["entries"];
    ASSERT_EQ(history.size(), 4u);
    for (const json& entry : history)
        EXPECT_EQ(entry["keyId"].dump() + entry["catalogueSerial"].dump() + entry.value("unsigned", "-"),
                  "\"" + KeyId() + "\"2-");
    EXPECT_EQ(json::parse(ReadFile(e2e::kRoot + "/qdmhost/accepted-serials.json"))["channels"]["lab"], 2);
}

// Unsigned: inventory and check warn and mark the versions unverified; an
// update under --allow-unsigned still checks the archives, warns loudly and
// is recorded as unsigned.
TEST_F(TrustTest, UnsignedRepositoryIsMarkedAndOnlyAllowedLoudly) {
    ::unlink(Repo("catalogue.json.minisig").c_str());
    e2e::HostRun inventory = Host({"--json", "inventory"});
    EXPECT_NE(inventory.err.find("repository not trusted (unsigned)"), std::string::npos) << inventory.err;
    EXPECT_EQ(inventory.Json()["repositoryVerified"].dump() + inventory.Json()["ports"][0]["modules"][0].dump(),
              R"(false{"kind":"firm","operating":"2.01a12","plan":"update","repository":"2.02a5","repositoryVerified":false,"status":"older"})");
    EXPECT_NE(Host({"inventory"}).out.find("2.02a5 (unverified)"), std::string::npos);
    EXPECT_EQ(Host({"--json", "check"}).Json()["repositoryVerified"], false);
    const std::string archive = ReadFile(Repo("fw-16g.zip"));
    FlipByte(Repo("fw-16g.zip"));
    EXPECT_EQ(Host({"--json", "--allow-unsigned", "update"}).Json()["error"]["reason"], "archive-mismatch");
    WriteFile(Repo("fw-16g.zip"), archive);
    e2e::HostRun update = Host({"--allow-unsigned", "update"});
    EXPECT_EQ(update.exitCode, 0) << update.err;
    EXPECT_NE(update.err.find("UNSIGNED REPOSITORY ACCEPTED"), std::string::npos) << update.err;
    const json history = Host({"--json", "history"}).Json()["entries"];
    ASSERT_EQ(history.size(), 4u);
    for (const json& entry : history) EXPECT_EQ(entry["unsigned"], true);
}

TEST_F(TrustTest, TrustCommandsRefuseBadKeysAndUnsafeFolders) {
    const std::string folder = e2e::kRoot + "/qdmhost/trusted-keys";
    EXPECT_EQ(Run({"--json", "trust", "list"}).Json()["keys"][0]["keyId"], KeyId());
    EXPECT_EQ(Run({"trust", "add", Repo("catalogue.json")}).exitCode, 2);  // not a key
    EXPECT_EQ(Run({"trust", "remove", "0123456789ABCDEF"}).exitCode, 2);   // not trusted
    std::filesystem::permissions(folder, std::filesystem::perms::group_write, std::filesystem::perm_options::add);
    EXPECT_EQ(Run({"trust", "list"}).exitCode, 1);
    e2e::HostRun ignored = Host({"--json", "update", "--dry-run"});  // a key anyone could have put there
    EXPECT_EQ(ignored.Json()["error"]["reason"], "unknown-key") << ignored.err;
    std::filesystem::permissions(folder, std::filesystem::perms::group_write, std::filesystem::perm_options::remove);
    EXPECT_EQ(Run({"trust", "remove", KeyId()}).exitCode, 0);
    EXPECT_EQ(Run({"--json", "trust", "list"}).Json()["keys"], json::array());
}

// The result of one port and module kind in an update document.
json ResultFor(const json& update, const std::string& address, const std::string& kind) {
    for (const json& result : update["results"])
        if (e2e::PortAddress(result) == address && result["kind"] == kind) return result;
    return nullptr;
}

// A repository older than the adapter: left alone (plan and result "newer",
// nothing runs) unless --allow-downgrade, which downgrades and records it.
TEST_F(TrustTest, NewerAdapterIsDowngradedOnlyWhenAllowed) {
    ASSERT_TRUE(qdmtest::BuildFirmwareModule(Repo("fw-16g.zip"), "fcelx_16g", {"--firmware", "10.2.300.1"}));
    WriteFile(Repo("catalogue.json"), json({{"packages", {{{"uniqueNames", {"fcelx_16g"}}, {"kind", "firm"},
                                                           {"version", "10.2.300.1"}, {"archive", "fw-16g.zip"}}}}}).dump());
    PublishCatalogue({"--serial", "3"});
    TakeBaseline(true);
    qdmtest::SimResetCalls();
    const json kept = Host({"--json", "update"}).Json(), plan = Host({"--json", "--allow-downgrade", "update", "--dry-run"}).Json();
    EXPECT_EQ(kept["exitCode"].dump() + ResultFor(kept, "0000:05:00.0", "firm")["outcome"].get<std::string>(), "0newer");
    EXPECT_EQ(Host({"--json", "inventory"}).Json()["ports"][3]["modules"][0]["plan"].get<std::string>() +
                  Host({"--json", "check"}).Json()["ports"][3]["plans"]["firm"].get<std::string>(), "keep-newerkeep-newer");
    EXPECT_EQ(ResultFor(plan, "0000:05:00.0", "firm")["outcome"].get<std::string>() +
                  ResultFor(plan, "0000:05:00.0", "firm")["downgrade"].dump(), "plannedtrue");
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 0u);
    ExpectNothingLeftBehind();  // no history either
    const json downgraded = Host({"--json", "--allow-downgrade", "update"}).Json();
    EXPECT_EQ(ResultFor(downgraded, "0000:05:00.0", "firm")["outcome"], "updated") << downgraded;
    EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), "\"10.2.300.1\"");
    const json history = Host({"--json", "history"}).Json()["entries"];
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0]["downgrade"], true);
}

// A key forged to carry the trusted key's id: refused, both whole keys shown,
// the genuine key file unchanged; trust list shows the whole key.
TEST_F(TrustTest, ForgedKeyWithTrustedIdIsRefused) {
    const std::string genuine = e2e::kRoot + "/qdmhost/trusted-keys/" + KeyId() + ".pub", before = ReadFile(genuine);
    const std::string trustedKey = qdmcli::PublicKeyText(qdmcli::ParseMinisignPublicKey(before));
    qdmcli::MinisignPublicKey forged =
        qdmcli::ParseMinisignPublicKey(ReadFile(e2e::MakePublisherKey(folder_ + "/forger").publicKey));
    forged.keyId = qdmcli::ParseMinisignPublicKey(before).keyId;
    WriteFile(folder_ + "/forged.pub", "untrusted comment: minisign public key " + KeyId() + "\n" +
                                           qdmcli::PublicKeyText(forged) + "\n");
    TakeBaseline();
    const e2e::HostRun add = Run({"--json", "trust", "add", folder_ + "/forged.pub"});
    const std::string message = add.Json()["error"]["message"];
    EXPECT_EQ(std::to_string(add.exitCode) + add.Json()["error"]["name"].get<std::string>(), "2usage");
    EXPECT_TRUE(message.find(trustedKey) != std::string::npos &&
                message.find(qdmcli::PublicKeyText(forged)) != std::string::npos) << message;
    EXPECT_NE(before.find("\n" + trustedKey + "\n"), std::string::npos);  // the line minisign wrote
    EXPECT_EQ(Run({"--json", "trust", "list"}).Json()["keys"][0]["publicKey"], trustedKey);
    ExpectNothingLeftBehind();
}

// An unprivileged user rewrites the unpacked install.sh in a loop during a
// utility update: the work area is closed to them, nothing of theirs runs as
// root. Install root folders that others may change are refused.
TEST_F(TrustTest, WorkAreaIsRootsAlone) {
    const std::string marker = folder_ + "/out/hostile-ran", nobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    ASSERT_EQ(qdmtest::RunShell(nobody + "sh -c 'while :; do for f in " + e2e::kRoot + "/tmp/EMULEX/temp/tmp/*/install.sh; " +
                                "do printf \"#!/bin/sh\\ntouch " + marker + "\\n\" >\"$f\"; done; done' </dev/null >/dev/null 2>&1 & true"), 0);
    const e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(std::to_string(update.exitCode) + e2e::Outcomes(update.Json(), "util")["0000:03:00.0"], "0updated") << update.err;
    EXPECT_FALSE(qdmtest::Exists(marker));
    EXPECT_NE(qdmtest::RunShell(nobody + "ls " + e2e::kRoot + "/tmp"), 0);
    KillStartedProcesses();
    // Whoever may change the channel may bring back an older catalogue.
    const std::string conf = e2e::kRoot + "/qdmhost/qdmhost.conf";
    WriteFile(conf, "channel = default\n");
    ASSERT_EQ(::chmod(conf.c_str(), 0666), 0);
    EXPECT_NE(Host({"--json", "update"}).out.find(conf + ": refused: writable by group or others"), std::string::npos);
    ASSERT_EQ(::chmod(conf.c_str(), 0644), 0);
    TakeBaseline();
    for (const std::string& path : {e2e::kRoot, e2e::kRoot + "/tmp", e2e::kRoot + "/qdmhost"}) {
        ASSERT_EQ(::chmod(path.c_str(), 0775), 0);
        const json refused = Host({"--json", "inventory"}).Json()["error"];
        EXPECT_EQ(refused["exitCode"].dump() + " " + refused["message"].get<std::string>(),
                  "1 refusing to run: " + path + " is writable by group or others (mode 0775, owner 0); only root may change it: chmod go-w, chown root");
        ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    }
    ASSERT_EQ(::chown((e2e::kRoot + "/qdmhost").c_str(), 65534, 0), 0);
    EXPECT_EQ(Host({"inventory"}).exitCode, 1);
    ExpectNothingLeftBehind();
}

// A listing whose WWPN holds shell text: the port reads as unreadable, no
// command carries the text, and its update is refused with nothing run.
TEST_F(TrustTest, HostileWwpnNeverReachesTheShell) {
    const std::string marker = folder_ + "/out/wwpn-ran";
    json state = json::parse(ReadFile(StatePath()));
    state["adapters"][0]["ports"][0]["wwpn"] = "10:00:00:00:c9:a1:00:01$(touch${IFS}" + marker + ")";
    WriteFile(StatePath(), state.dump());
    TakeBaseline(true);
    qdmtest::SimResetCalls();
    const e2e::HostRun inventory = Host({"--json", "inventory"});
    EXPECT_EQ(e2e::PortStatuses(inventory.Json()["ports"][0]), " unreadable unreadable older");
    EXPECT_NE(inventory.err.find("WWPN is not hexadecimal pairs separated by ':'"), std::string::npos) << inventory.err;
    const json update = Host({"--json", "update", "--port", "0000:03:00.0"}).Json();
    EXPECT_EQ(update["exitCode"], 5);
    for (const char* kind : {"firm", "driver", "util"})
        EXPECT_EQ(ResultFor(update, "0000:03:00.0", kind)["reason"], "bad-wwpn") << kind;
    for (const char* verb : {"Download", "-Uhv", "-a", "install", "uninstall"})
        EXPECT_EQ(qdmtest::SimCallCount(verb), 0u) << verb;
    EXPECT_FALSE(qdmtest::Exists(marker));
    ExpectNothingLeftBehind();
}

// A broken catalogue: metrics and inventory still show the adapters, name the
// repository's problem and exit with its code.
TEST_F(TrustTest, BrokenCatalogueLeavesTheAdaptersMonitored) {
    WriteFile(Repo("catalogue.json"), "{\"packages\": [");
    TakeBaseline();
    EXPECT_EQ(Host({"metrics", "--textfile", folder_ + "/out"}).exitCode, 8);
    const std::string prom = ReadFile(folder_ + "/out/qdmhost.prom");
    EXPECT_EQ(e2e::Occurrences(prom, "qdmhost_port_info{"), 5u);
    EXPECT_NE(prom.find("qdmhost_repository_status{reason=\"bad-repository\"} 1"), std::string::npos) << prom;
    EXPECT_NE(prom.find("operating_version=\"2.01a12\",pci_address=\"0000:03:00.0\",port=\"10000000C9A10001\","
                        "repository_version=\"\"} 1"), std::string::npos) << prom;
    const json inventory = Host({"--json", "inventory"}).Json();
    EXPECT_EQ(inventory["exitCode"].dump() + inventory["repositoryProblem"]["reason"].get<std::string>() +
                  std::to_string(inventory["ports"].size()), "8bad-repository5");
    ExpectNothingLeftBehind();
}

// A catalogue valid when loaded that expires while the update waits for the
// lock (a real wait of a few seconds): refused once the lock is taken.
TEST_F(TrustTest, CatalogueExpiringWhileWaitingForTheLockIsRefused) {
    const std::time_t at = std::time(nullptr) + 6;
    char expires[32];
    std::strftime(expires, sizeof expires, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&at));
    PublishCatalogue({"--expires", expires});
    TakeBaseline(true);
    qdmtest::SimResetCalls();
    const std::string lock = e2e::kRoot + "/tmp/qdmhost.lock";
    std::string line = e2e::HostCommandLine({"--json", "--repo", repo_, "--wait", "30", "update"}), out;
    line.replace(0, 22, "QDMHOST_VIRTUAL_TIME=0");
    const int status = qdmtest::RunShell(
        "flock " + lock + " sh -c 'while [ $(date +%s) -le " + std::to_string(at) + " ]; do sleep 0.2; done' </dev/null "
        ">/dev/null 2>&1 & until ! flock -n " + lock + " true; do sleep 0.05; done; " + line + " 2>" + folder_ + "/out/err", &out);
    EXPECT_EQ(std::to_string(status) + json::parse(out)["error"]["reason"].get<std::string>(), "11expired") << out;
    EXPECT_NE(ReadFile(folder_ + "/out/err").find("waiting up to 30s"), std::string::npos);
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 0u);
    ExpectNothingLeftBehind();
}

// Keys and signatures made by the real minisign, prehashed (its default) and legacy.
TEST_F(TrustTest, RealMinisignSignaturesVerifyOnlyWithTheirKeyAndMessage) {
    const e2e::PublisherKey other = e2e::MakePublisherKey(folder_ + "/other");
    const std::string file = folder_ + "/signed.json", message = "{\"packages\": []}\n";
    WriteFile(file, message);
    const qdmcli::MinisignPublicKey trusted = qdmcli::ParseMinisignPublicKey(ReadFile(publisher_.publicKey));
    // minisign writes the key id into the comment without its leading zeros.
    EXPECT_EQ(trusted.comment, "minisign public key " + KeyId().substr(KeyId().find_first_not_of('0')));
    // Signer, minisign's options, trusted comment forged: verifies. (Another message: the attack rows.)
    const std::tuple<const e2e::PublisherKey*, const char*, bool, bool> rows[] = {
        {&publisher_, "", false, true},   // prehashed ("ED")
        {&publisher_, "-l", false, true},  // legacy ("Ed")
        {&other, "", false, false},       // another key
        {&publisher_, "", true, false},   // trusted comment changed
    };
    for (const auto& [signer, options, forgeComment, verifies] : rows) {
        ASSERT_TRUE(e2e::SignFile(*signer, file, options));
        qdmcli::MinisignSignature signature = qdmcli::ParseMinisignSignature(ReadFile(file + ".minisig"));
        if (forgeComment) signature.trustedComment += " forged";
        EXPECT_EQ(qdmcli::VerifyMinisign(trusted, signature, message), verifies) << options;
    }
}

TEST(MinisignParsers, MalformedKeysAndSignaturesAreRefused) {
    const std::string head = "untrusted comment: c\n";
    const std::string key = "RWToDHzM1WUmSJvjqzNE7y2CFboCfWB6TrxVlMbJBstjgNflTKpn/ty+\n";
    const std::string signature =
        "RUToDHzM1WUmSKjpvbAHH4PBl377ny/f3HiFwCbGTypO1KSmvpjRQpoUKmg3InL8B12IS2MP8QKGjcVKMqGH9IZIrWlKiC+kPQ8=\n"
        "trusted comment: timestamp:1795435619\tfile:c.json\thashed\n"
        "ROLF6GrWmViXFOxL74x7F+17PneOAf5R3dSuDYtLwx4BDxVBkbeZZt/RUUAjimabXO4q1vcOha3G1g6qCORLAQ==\n";
    // minisign 0.11's own key and signature of {"a":1}: the known answer.
    EXPECT_TRUE(qdmcli::VerifyMinisign(qdmcli::ParseMinisignPublicKey(head + key),
                                       qdmcli::ParseMinisignSignature(head + signature), "{\"a\":1}\n"));
    EXPECT_EQ(qdmcli::KeyIdText(qdmcli::ParseMinisignPublicKey("untrusted comment: c\r\n" + key).keyId), "482665D5CC7C0CE8");
    const std::string badKeys[] = {
        head,                                          // no key line
        "comment: c\n" + key,                          // wrong head
        head + "RWToDHzM1WUmSJvjqzNE7y2CFboCfWB6TrxVlMbJBstjgNflTKpn/ty\n",  // one character short
        head + "RWToDHzM1WUmSJvjqzNE7y2CFboCfWB6TrxVlMbJBstjgNflTKpn/ty+AAAA\n",  // three bytes long
        head + "RXToDHzM1WUmSJvjqzNE7y2CFboCfWB6TrxVlMbJBstjgNflTKpn/ty+\n",  // not "Ed"
        head + "RWToDHzM1WUmSJvjqzNE7y2CFboCfWB6TrxVlMbJBstjgNflTKpn/ty*\n",  // not base64
        head + key + "extra\n",                        // a third line
        "untrusted comment: \x1b[2J\n" + key,          // a control character in the comment
        "untrusted comment: " + std::string(1025, 'c') + "\n" + key,  // a comment too long
    };
    for (const std::string& text : badKeys)
        EXPECT_THROW(qdmcli::ParseMinisignPublicKey(text), qdmcli::MinisignFormatError) << text;
    const std::string badSignatures[] = {
        head + key,                                                  // a key, not a signature
        head + "RV" + signature.substr(2),                           // unknown algorithm
        head + signature.substr(0, 101) + "comment: x\n" + signature.substr(signature.rfind("ROLF")),  // wrong head
        head + signature + "extra\n",                                // a fifth line
        head + signature.substr(0, signature.size() - 3) + "=\n",    // global signature not base64 of 64 bytes
    };
    for (const std::string& text : badSignatures)
        EXPECT_THROW(qdmcli::ParseMinisignSignature(text), qdmcli::MinisignFormatError) << text;
}

}  // namespace
