#include "Catalogue.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include "HostError.h"

namespace qdmcli {

namespace {

const std::size_t kMaxText = 128;

bool AllOf(const std::string& text, bool (*allowed)(unsigned char)) {
    return std::all_of(text.begin(), text.end(), [allowed](unsigned char c) { return allowed(c); });
}

bool IsWordChar(unsigned char c) { return std::isalnum(c) || c == '_' || c == '-' || c == '.'; }

[[noreturn]] void BadCatalogue(const std::string& why) {
    throw HostError(kExitRepository, std::string("repository catalogue: ") + why);
}

std::string StringField(const nlohmann::json& entry, const char* key, const std::string& where) {
    if (!entry.contains(key) || !entry[key].is_string())
        BadCatalogue(where + ": \"" + key + "\" must be a string");
    return entry[key].get<std::string>();
}

CatalogueEntry ParseEntry(const nlohmann::json& entry, const std::string& where) {
    if (!entry.is_object()) BadCatalogue(where + " is not an object");
    if (!entry.contains("uniqueNames") || !entry["uniqueNames"].is_array() || entry["uniqueNames"].empty())
        BadCatalogue(where + ": \"uniqueNames\" must be a non-empty list");
    CatalogueEntry parsed;
    for (const nlohmann::json& name : entry["uniqueNames"]) {
        if (!name.is_string() || !IsSafeUniqueName(name.get<std::string>()))
            BadCatalogue(where + ": bad unique name");
        parsed.uniqueNames.push_back(name.get<std::string>());
    }
    parsed.kind = StringField(entry, "kind", where);
    parsed.version = StringField(entry, "version", where);
    parsed.archive = StringField(entry, "archive", where);
    if (!IsModuleKind(parsed.kind)) BadCatalogue(where + ": unknown kind \"" + parsed.kind + "\"");
    if (!IsSafeVersionText(parsed.version)) BadCatalogue(where + ": bad version text");
    if (!IsSafeArchiveName(parsed.archive))
        BadCatalogue(where + ": archive must be a plain file name inside the repository");
    return parsed;
}

}  // namespace

bool IsSafeArchiveName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxText && name[0] != '.' && name[0] != '-' &&
           AllOf(name, IsWordChar);
}

bool IsSafeVersionText(const std::string& version) {
    return !version.empty() && version.size() <= 64 && std::isalnum(static_cast<unsigned char>(version[0])) &&
           AllOf(version, IsWordChar);
}

bool IsSafeUniqueName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxText && AllOf(name, IsWordChar);
}

bool IsModuleKind(const std::string& kind) { return kind == "firm" || kind == "driver" || kind == "util"; }

std::vector<CatalogueEntry> ParseCatalogue(const std::string& jsonText) {
    nlohmann::json document = nlohmann::json::parse(jsonText, nullptr, false);
    if (document.is_discarded()) BadCatalogue("not valid JSON");
    if (!document.is_object() || !document.contains("packages") || !document["packages"].is_array())
        BadCatalogue("no \"packages\" list");
    std::vector<CatalogueEntry> entries;
    std::set<std::pair<std::string, std::string>> served;  // (unique name, kind)
    for (const nlohmann::json& entry : document["packages"]) {
        std::string where = "package " + std::to_string(entries.size());
        CatalogueEntry parsed = ParseEntry(entry, where);
        for (const std::string& name : parsed.uniqueNames)
            if (!served.insert({name, parsed.kind}).second)
                BadCatalogue(where + ": a second " + parsed.kind + " package for " + name);
        entries.push_back(std::move(parsed));
    }
    return entries;
}

Repository Repository::Load(const std::string& folder) {
    std::string path = folder + "/" + kCatalogueFile;
    std::ifstream in(path);
    if (!in) throw HostError(kExitRepository, "repository: cannot read " + path);
    std::ostringstream text;
    text << in.rdbuf();
    std::vector<CatalogueEntry> entries = ParseCatalogue(text.str());
    for (const CatalogueEntry& entry : entries) {
        // lstat: a link could lead out of the repository.
        struct stat info;
        std::string archive = folder + "/" + entry.archive;
        if (::lstat(archive.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
            throw HostError(kExitRepository, "repository: " + archive + " is not a regular file");
    }
    return Repository(folder, std::move(entries));
}

bool Repository::Find(const std::string& modelKey, const std::string& kind, CManageRepositoryInfo* info) const {
    for (const CatalogueEntry& entry : entries_) {
        if (entry.kind != kind ||
            std::find(entry.uniqueNames.begin(), entry.uniqueNames.end(), modelKey) == entry.uniqueNames.end())
            continue;
        info->uniqueName = modelKey;
        info->moduleKind = kind;
        info->version = entry.version;
        info->archivePath = folder_ + "/" + entry.archive;
        return true;
    }
    return false;
}

}  // namespace qdmcli
