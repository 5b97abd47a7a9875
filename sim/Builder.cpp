// The repository builder: zip archives of firmware images, driver packages
// and utility scripts that the simulated tools understand, and the catalogue
// that lists them with their sizes and hashes.
#include <archive.h>
#include <archive_entry.h>
#include <sodium.h>

#include <cctype>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>

#include "Sim.h"

namespace qdmsim {

namespace {

struct Entry {
    std::string name;     // a trailing "/" makes a folder
    std::string content;
    bool executable = false;
};

using ArchivePtr = std::unique_ptr<struct archive, decltype(&archive_write_free)>;

void WriteEntry(struct archive* zip, const Entry& item) {
    std::unique_ptr<struct archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                               archive_entry_free);
    const bool folder = !item.name.empty() && item.name.back() == '/';
    archive_entry_set_pathname(entry.get(), item.name.c_str());
    archive_entry_set_filetype(entry.get(), folder ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), folder || item.executable ? 0755 : 0644);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(item.content.size()));
    archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
    bool ok = archive_write_header(zip, entry.get()) == ARCHIVE_OK;
    if (ok && !item.content.empty())
        ok = archive_write_data(zip, item.content.data(), item.content.size()) ==
             static_cast<la_ssize_t>(item.content.size());
    if (!ok) throw SimError(std::string("zip: ") + archive_error_string(zip));
}

void WriteZip(const std::string& path, const std::vector<Entry>& entries) {
    ArchivePtr zip(archive_write_new(), archive_write_free);
    if (archive_write_set_format_zip(zip.get()) != ARCHIVE_OK ||
        archive_write_open_filename(zip.get(), path.c_str()) != ARCHIVE_OK)
        throw SimError("cannot create " + path + ": " + archive_error_string(zip.get()));
    for (const Entry& entry : entries) WriteEntry(zip.get(), entry);
    if (archive_write_close(zip.get()) != ARCHIVE_OK)
        throw SimError("cannot finish " + path + ": " + archive_error_string(zip.get()));
}

// ---- firmware -------------------------------------------------------------

struct ImageKind {
    std::string family;        // "8g", "16g" or "cna"
    std::string firmwareExt;   // "all", "grp" or "ufi"
    bool withBootBios;         // 8G modules carry a "*.prg" too
};

ImageKind KindOfUniqueName(const std::string& name) {
    if (name == "fcelx_8g1p" || StartsWith(name, "fcelx_8g2p")) return {"8g", "all", true};
    if (name == "fcelx_16g") return {"16g", "grp", false};
    if (name == "OCe11102" || name == "OCl14104") return {"cna", "ufi", false};
    throw SimError("unknown unique name " + name +
                   " (expected fcelx_8g1p, fcelx_8g2p..., fcelx_16g, OCe11102 or OCl14104)");
}

std::string ImageContent(const std::string& target, const std::string& version,
                         const std::string& family, bool foreign) {
    if (foreign) return "FOREIGN IMAGE " + version + "\n\x01\x02\x03";
    return "QDMSIM-IMAGE " + target + " " + version + " " + family + "\nsimulated image payload\n";
}

// The image files of one kind: none, one, or one plus a copy.
void AddImages(std::vector<Entry>* entries, const std::string& stem, const std::string& ext,
               const std::string& content, const std::string& kind, const Options& options) {
    if (options.Get("--missing") == kind) return;
    entries->push_back({stem + "." + ext, content});
    if (options.Get("--duplicate") == kind) entries->push_back({stem + "_copy." + ext, content});
}

int BuildFirmware(const Options& options) {
    const ImageKind kind = KindOfUniqueName(options.Get("--name"));
    const std::string firmware =
        options.Get("--firmware", kind.family == "8g" ? "2.02a5" : "11.4.204.8");
    const std::string boot = options.Get("--bootbios", "5.12a3");
    const bool foreign = options.Has("--foreign");
    std::vector<Entry> entries;
    AddImages(&entries, "fw_" + firmware, kind.firmwareExt,
              ImageContent("firmware", firmware, kind.family, foreign), "firmware", options);
    if (kind.withBootBios)
        AddImages(&entries, "bios_" + boot, "prg", ImageContent("bootbios", boot, kind.family, foreign),
                  "bootbios", options);
    if (options.Has("--message"))
        entries.push_back({"message.txt",
                           "SuccessMessage=Firmware image applied\nEndMessage=Download session closed\n"});
    WriteZip(options.Get("--out"), entries);
    return 0;
}

// ---- driver ------------------------------------------------------------------

int BuildDriver(const Options& options) {
    const std::string version = options.Get("--version");
    const std::string count = options.Get("--packages", "1");
    if (count != "0" && count != "1" && count != "2") throw SimError("--packages must be 0, 1 or 2");
    const std::string content = options.Has("--foreign")
                                    ? "FOREIGN PACKAGE\n"
                                    : "QDMSIM-PACKAGE lpfc " + version + "\nsimulated driver package\n";
    std::vector<Entry> entries;
    for (const char* arch : {"x86", "x64"}) {
        const std::string folder = std::string(arch) + "/FC/";
        entries.push_back({std::string(arch) + "/", ""});
        entries.push_back({folder, ""});
        if (count != "0") entries.push_back({folder + "lpfc-" + version + ".rpm", content});
        if (count == "2") entries.push_back({folder + "lpfc-" + version + "-extra.rpm", content});
    }
    WriteZip(options.Get("--out"), entries);
    return 0;
}

// ---- utility -------------------------------------------------------------------

std::string ShellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A script that runs `qdmsim utility <action>` and reports in the words that
// message.txt defines; `fail` makes it report failure without acting.
std::string Script(const std::string& action, const std::string& word, bool fail) {
    std::string script = "#!/bin/sh\n# Simulated utility " + action + " script.\n";
    if (!fail)
        script += "if " + ShellQuote(SelfPath()) + " utility " + action + " >/dev/null; then\n"
                  "    echo \"" + word + " completed successfully\"\n"
                  "    echo \"OCM script end\"\n"
                  "    exit 0\n"
                  "fi\n";
    return script + "echo \"" + word + " failed\"\necho \"OCM script end\"\nexit 1\n";
}

int BuildUtility(const Options& options) {
    const std::string version = options.Get("--version");
    std::vector<Entry> entries;
    for (const char* arch : {"x86", "x64"}) {
        const std::string folder = std::string(arch) + "/";
        entries.push_back({folder, ""});
        if (!options.Has("--no-uninstall-script"))
            entries.push_back({folder + "uninstall.sh",
                               Script("uninstall", "Uninstallation", options.Has("--fail-uninstall")),
                               true});
        if (!options.Has("--no-install-script"))
            entries.push_back({folder + "install.sh",
                               Script("install " + version, "Installation", options.Has("--fail-install")),
                               true});
        entries.push_back({folder + "message.txt",
                           "SuccessMessage=completed successfully\nEndMessage=OCM script end\n"});
    }
    WriteZip(options.Get("--out"), entries);
    return 0;
}

// ---- catalogue -------------------------------------------------------------------

struct FileDigest {
    std::string sha256;  // lower-case hex
    std::uint64_t size;
};

FileDigest DigestOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SimError("cannot read " + path);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    unsigned char hash[crypto_hash_sha256_BYTES];
    ::crypto_hash_sha256(hash, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    char hex[sizeof hash * 2 + 1];
    ::sodium_bin2hex(hex, sizeof hex, hash, sizeof hash);
    return {hex, bytes.size()};
}

std::string UtcTimeInDays(int days) {
    std::time_t when = std::time(nullptr) + static_cast<std::time_t>(days) * 86400;
    struct tm utc;
    ::gmtime_r(&when, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

json ReadDraft(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    json draft = json::parse(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()),
                             nullptr, false);
    if (!in || !draft.is_object() || !draft.contains("packages") || !draft["packages"].is_array())
        throw SimError(path + ": expected a JSON object with a \"packages\" list");
    return draft;
}

// The draft's packages with the sha256 and size of each archive of the
// folder; channel, serial and expiry from the options, else the draft's,
// else "default", 1 and thirty days from now.
int BuildCatalogue(const Options& options) {
    const std::string repo = options.Get("--repo");
    const std::string out = repo + "/catalogue.json";
    json catalogue = ReadDraft(options.Get("--from", out));
    for (json& package : catalogue["packages"]) {
        if (!package.is_object() || !package.contains("archive") || !package["archive"].is_string())
            throw SimError("every package needs an \"archive\" name");
        FileDigest digest = DigestOf(repo + "/" + package["archive"].get<std::string>());
        package["sha256"] = digest.sha256;
        package["size"] = digest.size;
    }
    if (options.Has("--channel") || !catalogue.contains("channel"))
        catalogue["channel"] = options.Get("--channel", "default");
    if (options.Has("--serial") || !catalogue.contains("serial"))
        catalogue["serial"] = std::stoull(options.Get("--serial", "1"));
    if (options.Has("--expires") || !catalogue.contains("expires"))
        catalogue["expires"] = options.Get("--expires", UtcTimeInDays(30));
    WriteTextFile(out, catalogue.dump(2) + "\n");
    return 0;
}

void RequireOption(const Options& options, const std::string& name) {
    if (options.Get(name).empty()) throw SimError("missing " + name);
}

// Versions become file names and script words: keep them plain.
void RequireSafeVersion(const Options& options, const std::string& name) {
    for (char c : options.Get(name))
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_')
            throw SimError(name + " may hold only letters, digits, '.', '-' and '_'");
}

void RequireImageKind(const Options& options, const std::string& name) {
    std::string kind = options.Get(name, "firmware");
    if (kind != "firmware" && kind != "bootbios") throw SimError(name + " takes firmware or bootbios");
}

}  // namespace

int RunBuilder(const std::string& command, const Args& args) {
    if (command == "build-catalogue") {
        Options options = ParseOptions(args, {"--repo", "--from", "--channel", "--serial", "--expires"}, {});
        RequireOption(options, "--repo");
        for (char c : options.Get("--serial", "1"))
            if (!std::isdigit(static_cast<unsigned char>(c))) throw SimError("--serial takes a whole number");
        return BuildCatalogue(options);
    }
    if (command == "build-firmware") {
        Options options = ParseOptions(args, {"--out", "--name", "--firmware", "--bootbios",
                                              "--duplicate", "--missing"},
                                       {"--foreign", "--message"});
        RequireOption(options, "--out");
        RequireOption(options, "--name");
        RequireSafeVersion(options, "--firmware");
        RequireSafeVersion(options, "--bootbios");
        RequireImageKind(options, "--duplicate");
        RequireImageKind(options, "--missing");
        return BuildFirmware(options);
    }
    if (command == "build-driver") {
        Options options = ParseOptions(args, {"--out", "--version", "--packages"}, {"--foreign"});
        RequireOption(options, "--out");
        RequireOption(options, "--version");
        RequireSafeVersion(options, "--version");
        return BuildDriver(options);
    }
    Options options = ParseOptions(args, {"--out", "--version"},
                                   {"--fail-install", "--fail-uninstall", "--no-install-script",
                                    "--no-uninstall-script"});
    RequireOption(options, "--out");
    RequireOption(options, "--version");
    RequireSafeVersion(options, "--version");
    return BuildUtility(options);
}

}  // namespace qdmsim
