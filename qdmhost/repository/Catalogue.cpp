#include "repository/Catalogue.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <set>
#include <utility>

#include "model/HostError.h"
#include "model/Vocabulary.h"
#include "util/UtcTime.h"

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
    if (!entry.contains(key) || !entry[key].is_string()) BadCatalogue(where + ": \"" + key + "\" must be a string");
    return entry[key].get<std::string>();
}

bool IsLowerHex(const std::string& text) {
    return AllOf(text, [](unsigned char c) { return std::isdigit(c) || (c >= 'a' && c <= 'f'); });
}

// A present field must be good; an absent one is broken only when required.
bool Present(const nlohmann::json& object, const char* key, const std::string& where, bool required) {
    if (object.contains(key)) return true;
    if (required) BadCatalogue(where + ": \"" + key + "\" is missing");
    return false;
}

std::uint64_t UnsignedField(const nlohmann::json& object, const char* key, const std::string& where) {
    if (!object[key].is_number_unsigned()) BadCatalogue(where + ": \"" + key + "\" must be a whole number");
    return object[key].get<std::uint64_t>();
}

void ParseArchiveDigest(const nlohmann::json& entry, const std::string& where, bool required, CatalogueEntry* parsed) {
    if (Present(entry, "sha256", where, required)) {
        parsed->sha256 = StringField(entry, "sha256", where);
        if (parsed->sha256.size() != 64 || !IsLowerHex(parsed->sha256))
            BadCatalogue(where + ": \"sha256\" must be 64 lower-case hex digits");
    }
    if (Present(entry, "size", where, required)) parsed->size = UnsignedField(entry, "size", where);
}

void ParseCatalogueHead(const nlohmann::json& document, bool required, Catalogue* catalogue) {
    catalogue->channel = StringField(document, "channel", "catalogue");
    if (!IsSafeUniqueName(catalogue->channel))
        BadCatalogue("\"channel\" must be a name of letters, digits, '.', '_', '-'");
    if (Present(document, "serial", "catalogue", required)) {
        catalogue->serial = UnsignedField(document, "serial", "catalogue");
        if (*catalogue->serial == 0) BadCatalogue("\"serial\" must be positive");
    }
    if (Present(document, "expires", "catalogue", required)) {
        catalogue->expires = StringField(document, "expires", "catalogue");
        catalogue->expiresAt = ParseUtcTime(catalogue->expires);
        if (!catalogue->expiresAt) BadCatalogue("\"expires\" must be a UTC time such as 2027-01-01T00:00:00Z");
    }
}

CatalogueEntry ParseEntry(const nlohmann::json& entry, const std::string& where, bool trustFieldsRequired) {
    if (!entry.is_object()) BadCatalogue(where + " is not an object");
    if (!entry.contains("uniqueNames") || !entry["uniqueNames"].is_array() || entry["uniqueNames"].empty())
        BadCatalogue(where + ": \"uniqueNames\" must be a non-empty list");
    CatalogueEntry parsed;
    for (const nlohmann::json& name : entry["uniqueNames"]) {
        if (!name.is_string() || !IsSafeUniqueName(name.get<std::string>())) BadCatalogue(where + ": bad unique name");
        parsed.uniqueNames.push_back(name.get<std::string>());
    }
    parsed.kind = StringField(entry, "kind", where);
    parsed.version = StringField(entry, "version", where);
    parsed.archive = StringField(entry, "archive", where);
    if (!IsModuleKind(parsed.kind)) BadCatalogue(where + ": unknown kind \"" + parsed.kind + "\"");
    if (!IsSafeVersionText(parsed.version)) BadCatalogue(where + ": bad version text");
    if (!IsSafeArchiveName(parsed.archive))
        BadCatalogue(where + ": archive must be a plain file name inside the repository");
    ParseArchiveDigest(entry, where, trustFieldsRequired, &parsed);
    if (parsed.kind == kFirmware && entry.contains("bootBios")) {
        parsed.bootBios = StringField(entry, "bootBios", where);
        if (!IsSafeVersionText(parsed.bootBios)) BadCatalogue(where + ": bad bootBios version text");
    }
    return parsed;
}

}  // namespace

bool IsSafeArchiveName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxText && name[0] != '.' && name[0] != '-' && AllOf(name, IsWordChar);
}

bool IsSafeVersionText(const std::string& version) {
    return !version.empty() && version.size() <= 64 && std::isalnum(static_cast<unsigned char>(version[0])) &&
           AllOf(version, IsWordChar);
}

bool IsSafeUniqueName(const std::string& name) {
    return !name.empty() && name.size() <= kMaxText && AllOf(name, IsWordChar);
}

Catalogue ParseCatalogue(const std::string& jsonText, bool trustFieldsRequired) {
    nlohmann::json document = nlohmann::json::parse(jsonText, nullptr, false);
    if (document.is_discarded()) BadCatalogue("not valid JSON");
    if (!document.is_object() || !document.contains("packages") || !document["packages"].is_array())
        BadCatalogue("no \"packages\" list");
    Catalogue catalogue;
    ParseCatalogueHead(document, trustFieldsRequired, &catalogue);
    std::set<std::pair<std::string, std::string>> served;  // (unique name, kind)
    std::set<std::string> archives;                        // one staged copy per archive, checked against one entry
    for (const nlohmann::json& entry : document["packages"]) {
        std::string where = "package " + std::to_string(catalogue.packages.size());
        CatalogueEntry parsed = ParseEntry(entry, where, trustFieldsRequired);
        if (!archives.insert(parsed.archive).second)
            BadCatalogue(where + ": archive " + parsed.archive + " is named by an earlier package too");
        for (const std::string& name : parsed.uniqueNames)
            if (!served.insert({name, parsed.kind}).second)
                BadCatalogue(where + ": a second " + parsed.kind + " package for " + name);
        catalogue.packages.push_back(std::move(parsed));
    }
    return catalogue;
}

}  // namespace qdmcli
