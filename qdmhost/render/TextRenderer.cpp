#include "render/TextRenderer.h"

#include <algorithm>
#include <sstream>

#include "model/Vocabulary.h"
#include "util/Text.h"

namespace qdmcli {

namespace {

using Json = nlohmann::json;
using Row = std::vector<std::string>;

// An empty cell reads "-".
std::string Cell(const std::string& text) { return text.empty() ? "-" : text; }

// A field of a stored record: its text, a number as written, "-" when missing.
std::string Cell(const Json& value) {
    return value.is_string() || value.is_null() ? Cell(StringOr(value, "")) : value.dump();
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

// The repository version, marked when its catalogue failed the trust checks.
std::string RepositoryVersion(const ModuleReading& reading) {
    if (!reading.hasPackage) return "-";
    return Cell(reading.package.version) + (reading.repositoryVerified ? "" : " (unverified)");
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string OutcomeCell(const ModuleOutcome& result) {
    std::string outcome = result.outcome;
    if (!result.reason.empty()) outcome += " (" + result.reason + ": " + Joined(result.maps) + ")";
    if (result.pathLossAllowed) outcome += " (path loss allowed: " + Joined(result.maps) + ")";
    if (!result.failedStep.empty()) outcome += " (" + result.failedStep + ")";
    if (!result.interruptedStep.empty()) outcome += " (after " + result.interruptedStep + ")";
    if (result.ran && result.outcome != "updated") outcome += ", reports " + Cell(result.now);
    return outcome;
}

// The key and catalogue serial an update came from: "482665D5CC7C0CE8 #3".
std::string ProvenanceCell(const Json& entry) {
    if (entry.contains("unsigned") && entry["unsigned"] == true) return "unsigned";
    Json keyId = entry.value("keyId", Json());
    Json serial = entry.value("catalogueSerial", Json());
    if (!keyId.is_string()) return "-";
    return keyId.get<std::string>() + (serial.is_number_unsigned() ? " #" + serial.dump() : "");
}

std::string MessageIds(const Json& entry) {
    std::string ids;
    for (const Json& message : entry.value("messages", Json::array()))
        if (message.is_object() && message.contains("id") && message["id"].is_string())
            ids += (ids.empty() ? "" : ",") + message["id"].get<std::string>();
    return ids.empty() ? "-" : ids;
}

std::string PathNames(const std::vector<RoutedPath>& paths, bool withAdapter) {
    std::vector<std::string> names;
    for (const RoutedPath& routed : paths)
        names.push_back(routed.Name() + " " + routed.path.dmState + "/" + routed.path.checker +
                        (withAdapter ? " via " + routed.adapter : ""));
    return names.empty() ? "none" : Joined(names);
}

// Per adapter, the maps it carries, its paths, the other healthy paths and the verdict.
std::string PathsText(const PathSurvey& paths) {
    if (!paths.surveyed) return "";
    std::string text = "\nMultipath paths per adapter" + (paths.note.empty() ? "" : " (" + paths.note + ")") + ":\n";
    std::vector<Row> rows = {{"ADAPTER", "VERDICT", "MAP", "PATHS THROUGH IT", "OTHER HEALTHY PATHS"}};
    for (const AdapterPaths& adapter : paths.adapters) {
        if (adapter.maps.empty()) rows.push_back({adapter.adapter, adapter.verdict, "-", "-", "-"});
        for (const MapThroughAdapter& map : adapter.maps)
            rows.push_back({adapter.adapter, adapter.verdict, map.map, PathNames(map.paths, false),
                            PathNames(map.otherHealthy, true)});
    }
    return text + Table(rows);
}

}  // namespace

std::string InventoryText(const ServerSurvey& survey) {
    std::ostringstream out;
    for (const PortSurvey& port : survey.ports) {
        out << port.port.deviceId << "\n"
            << "  " << port.port.vendorClass << "  model key " << Cell(port.modelKey) << "  WWPN "
            << Cell(port.port.wwpn) << "  bus/dev/func " << Cell(port.port.busDevFunc) << "\n";
        std::vector<Row> rows = {{"", "MODULE", "OPERATING", "REPOSITORY", "STATUS"}};
        for (const ModuleReading& reading : port.modules) {
            rows.push_back({"", ModuleKindLabel(reading.kind), Cell(reading.operating), RepositoryVersion(reading),
                            reading.status});
            if (reading.kind == kFirmware)
                rows.push_back({"", "boot BIOS", Cell(port.bootBios),
                                port.bootBiosRepository.empty() ? "-" : Cell(port.bootBiosRepository),
                                port.bootBiosStatus});
        }
        out << Table(rows) << "\n";
    }
    return out.str();
}

std::string CheckText(const ServerCheck& check) {
    const ServerSurvey& survey = check.survey;
    std::string missing = survey.missingComponents.empty() ? "none" : Json(survey.missingComponents).dump();
    std::vector<Row> rows = {{"PORT", "WWPN", "UTILITY CONFIGURATION"}};
    for (const PortSurvey& port : survey.ports)
        rows.push_back({port.port.deviceId, Cell(port.port.wwpn), port.utilityCheck});
    const CManageRepositoryInfo& install = survey.utilityInstall;
    std::string plan = install.archivePath.empty() ? ""
                                                   : "update installs the utility first from " + install.archivePath +
                                                         " (" + install.version + ")\n";
    return "Missing components: " + missing + "\n" + plan + Table(rows) + PathsText(survey.paths);
}

std::string UpdateText(const UpdateRun& run) {
    std::vector<Row> rows = {{"PORT", "MODULE", "FROM", "TO", "OUTCOME"}};
    for (const ModuleOutcome& result : run.results)
        rows.push_back({result.sharedBy.size() > 1 ? "all " + std::to_string(result.sharedBy.size()) + " ports"
                                                   : result.port.deviceId.substr(0, 12),
                        ModuleKindLabel(result.reading.kind), Cell(result.reading.operating),
                        result.reading.hasPackage ? Cell(result.reading.package.version) : "-", OutcomeCell(result)});
    std::string stopped;
    if (run.stopped)
        stopped = "\nStopped (" + run.stopped->reason + "): the paths of " + run.stopped->adapter +
                  " did not come back: " + Joined(run.stopped->paths) + "\n";
    return (run.dryRun ? "Update plan (dry run, nothing changed):\n" : "") + Table(rows) + stopped +
           (run.dryRun ? PathsText(run.paths) : "");
}

std::string ReportText(const ReportSummary& report) {
    return "Configuration report of " + std::to_string(report.ports) + " port(s) written to " + report.file + "\n";
}

std::string MetricsText(const MetricsSummary& metrics) {
    return std::to_string(metrics.series) + " series written to " + metrics.file + "\n";
}

std::string HistoryText(const HistoryEntries& history) {
    if (history.entries.empty()) return "No update recorded.\n";
    std::vector<Row> rows = {{"TIME", "PORT", "MODULE", "FROM", "TO", "OUTCOME", "MESSAGES", "CATALOGUE"}};
    for (const Json& entry : history.entries)
        rows.push_back({Cell(entry.value("time", Json())), Cell(entry.value("deviceId", Json())).substr(0, 12),
                        ModuleKindLabel(StringOr(entry.value("kind", Json()), "")), Cell(entry.value("from", Json())),
                        Cell(entry.value("to", Json())), Cell(entry.value("outcome", Json())), MessageIds(entry),
                        ProvenanceCell(entry)});
    return Table(rows);
}

std::string TrustText(const TrustChange& change) {
    if (change.action == "add") return "Trusted key " + change.keyId + " added\n";
    if (change.action == "remove") return "Trusted key " + change.keyId + " removed\n";
    if (change.keys.empty()) return "No trusted key.\n";
    std::vector<Row> rows = {{"KEY ID", "PUBLIC KEY", "COMMENT"}};
    for (const TrustedKeyRow& key : change.keys) rows.push_back({key.keyId, key.publicKey, Cell(key.comment)});
    return Table(rows);
}

}  // namespace qdmcli
