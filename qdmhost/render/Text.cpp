// The readable forms of the commands' documents.
#include <algorithm>
#include <sstream>

#include "commands/Commands.h"
#include "model/ExitCodes.h"

namespace qdmcli {

namespace {

using Json = nlohmann::json;
using Row = std::vector<std::string>;

std::string Text(const Json& value) {
    if (value.is_null()) return "-";
    if (value.is_string()) return value.get<std::string>().empty() ? "-" : value.get<std::string>();
    return value.dump();
}

// Columns padded to their widest cell, two blanks apart.
std::string Table(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (widths.size() <= i) widths.push_back(0);
            widths[i] = std::max(widths[i], row[i].size());
        }
    std::ostringstream out;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += i + 1 < row.size() ? row[i] + std::string(widths[i] - row[i].size() + 2, ' ') : row[i];
        out << line << "\n";
    }
    return out.str();
}

const char* KindLabel(const std::string& kind) {
    if (kind == "firm") return "firmware";
    if (kind == "driver") return "driver";
    return "utility";
}

// The repository version, marked when its catalogue failed the trust checks.
std::string RepositoryVersion(const Json& module) {
    bool unverified = module.value("repositoryVerified", Json()) == Json(false);
    return Text(module["repository"]) + (unverified ? " (unverified)" : "");
}

std::string RenderInventory(const Json& document) {
    std::ostringstream out;
    for (const Json& port : document["ports"]) {
        out << port["deviceId"].get<std::string>() << "\n"
            << "  " << port["vendorClass"].get<std::string>() << "  model key " << Text(port["modelKey"])
            << "  WWPN " << Text(port["wwpn"]) << "  bus/dev/func " << Text(port["busDevFunc"]) << "\n";
        std::vector<Row> rows = {{"", "MODULE", "OPERATING", "REPOSITORY", "STATUS"}};
        for (const Json& module : port["modules"]) {
            rows.push_back({"", KindLabel(module["kind"]), Text(module["operating"]), RepositoryVersion(module),
                            module["status"]});
            if (module["kind"] == "firm") rows.push_back({"", "boot BIOS", Text(port["bootBios"]), "", ""});
        }
        out << Table(rows) << "\n";
    }
    return out.str();
}

std::string RenderUpdate(const Json& document) {
    std::vector<Row> rows = {{"PORT", "MODULE", "FROM", "TO", "OUTCOME"}};
    for (const Json& result : document["results"]) {
        std::string outcome = result["outcome"];
        if (result.contains("failedStep") && !result["failedStep"].is_null())
            outcome += " (" + result["failedStep"].get<std::string>() + ")";
        if (result.contains("now") && result["outcome"] != "updated")
            outcome += ", reports " + Text(result["now"]);
        rows.push_back({result["deviceId"].get<std::string>().substr(0, 12), KindLabel(result["kind"]),
                        Text(result["from"]), Text(result["to"]), outcome});
    }
    std::string heading = document["dryRun"].get<bool>() ? "Update plan (dry run, nothing changed):\n" : "";
    return heading + Table(rows);
}

std::string RenderCheck(const Json& document) {
    std::ostringstream out;
    out << "Missing components: "
        << (document["missingComponents"].empty() ? std::string("none") : document["missingComponents"].dump())
        << "\n";
    std::vector<Row> rows = {{"PORT", "WWPN", "UTILITY CONFIGURATION"}};
    for (const Json& port : document["ports"])
        rows.push_back({port["deviceId"], Text(port["wwpn"]), port["utilityCheck"]});
    return out.str() + Table(rows);
}

// The key and catalogue serial an update came from: "482665D5CC7C0CE8 #3".
std::string Provenance(const Json& entry) {
    if (entry.contains("unsigned") && entry["unsigned"] == true) return "unsigned";
    Json keyId = entry.value("keyId", Json());
    Json serial = entry.value("catalogueSerial", Json());
    if (!keyId.is_string()) return "-";
    return keyId.get<std::string>() + (serial.is_number_unsigned() ? " #" + serial.dump() : "");
}

std::string RenderHistory(const Json& document) {
    if (document["entries"].empty()) return "No update recorded.\n";
    std::vector<Row> rows = {{"TIME", "PORT", "MODULE", "FROM", "TO", "OUTCOME", "MESSAGES", "CATALOGUE"}};
    for (const Json& entry : document["entries"]) {
        std::string ids;
        for (const Json& message : entry.value("messages", Json::array()))
            if (message.is_object() && message.contains("id") && message["id"].is_string())
                ids += (ids.empty() ? "" : ",") + message["id"].get<std::string>();
        rows.push_back({Text(entry.value("time", Json())), Text(entry.value("deviceId", Json())).substr(0, 12),
                        KindLabel(entry.value("kind", "")), Text(entry.value("from", Json())),
                        Text(entry.value("to", Json())), Text(entry.value("outcome", Json())), ids.empty() ? "-" : ids,
                        Provenance(entry)});
    }
    return Table(rows);
}

std::string RenderTrust(const Json& document) {
    if (document["action"] == "add") return "Trusted key " + document["keyId"].get<std::string>() + " added\n";
    if (document["action"] == "remove") return "Trusted key " + document["keyId"].get<std::string>() + " removed\n";
    if (document["keys"].empty()) return "No trusted key.\n";
    std::vector<Row> rows = {{"KEY ID", "COMMENT"}};
    for (const Json& key : document["keys"]) rows.push_back({key["keyId"], Text(key["comment"])});
    return Table(rows);
}

}  // namespace

std::string RenderText(const Json& document) {
    const std::string command = document.value("command", "");
    if (command == "inventory") return RenderInventory(document);
    if (command == "update") return RenderUpdate(document);
    if (command == "check") return RenderCheck(document);
    if (command == "history") return RenderHistory(document);
    if (command == "trust") return RenderTrust(document);
    if (command == "metrics")
        return std::to_string(document["series"].get<int>()) + " series written to " +
               document["file"].get<std::string>() + "\n";
    if (command == "report")
        return "Configuration report of " + document["ports"].dump() + " port(s) written to " +
               document["file"].get<std::string>() + "\n";
    return document.dump(2) + "\n";
}

}  // namespace qdmcli
