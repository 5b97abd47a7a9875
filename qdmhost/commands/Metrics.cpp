// qdmhost metrics --textfile DIR: the inventory, the utility configuration
// check, the last update of each module and the run's own outcome as gauges
// in DIR/qdmhost.prom, replaced atomically so node_exporter never reads half
// a file. A failed inventory still writes the file (success 0, the error's
// name) so that an alert fires, then exits with the error's code.
#include "render/Exposition.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>

#include "commands/Commands.h"
#include "util/Files.h"
#include "store/History.h"
#include "model/HostError.h"
#include "model/Modules.h"

namespace qdmcli {

std::string EscapeLabelValue(const std::string& value) {
    // The format is UTF-8 only, and one bad byte makes node_exporter drop the
    // whole file: the JSON round trip turns bytes that are not UTF-8 into U+FFFD.
    const std::string text =
        nlohmann::json::parse(nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace))
            .get<std::string>();
    std::string escaped;
    for (char c : text) {
        if (c == '\\') escaped += "\\\\";
        else if (c == '"') escaped += "\\\"";
        else if (c == '\n') escaped += "\\n";
        else escaped += c;
    }
    return escaped;
}

void Exposition::Family(const std::string& name, const std::string& help) {
    text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

void Exposition::Sample(const std::string& name, const Labels& labels, double value) {
    std::string line = name;
    for (std::size_t i = 0; i < labels.size(); ++i)
        line += (i == 0 ? "{" : ",") + labels[i].first + "=\"" + EscapeLabelValue(labels[i].second) + "\"";
    char number[32];
    std::snprintf(number, sizeof number, "%.17g", value);
    text_ += line + (labels.empty() ? " " : "} ") + number + "\n";
    ++series_;
}

namespace {

using Json = nlohmann::json;

const char* const kStatuses[] = {kStatusCurrent, kStatusOlder, kStatusNewer, kStatusUnreadable, kStatusNoPackage,
                                 kStatusNotInstalled};
const char* const kUtilityChecks[] = {"passed", "refused", "no-utility"};

std::string Text(const Json& value) { return value.is_string() ? value.get<std::string>() : ""; }

// "0000:03:00.0" of "0000:03:00.0-PCI\VEN_...".
std::string PciAddress(const Json& deviceId) {
    std::string text = Text(deviceId);
    return text.substr(0, text.find('-'));
}

// Label names in alphabetical order, as node_exporter serves them.
Labels PortLabels(const Json& port) {
    return {{"model", Text(port["modelKey"])}, {"pci_address", PciAddress(port["deviceId"])}, {"port", Text(port["wwpn"])}};
}

Labels With(Labels labels, const Labels& more) {
    labels.insert(labels.end(), more.begin(), more.end());
    std::sort(labels.begin(), labels.end());
    return labels;
}

void PortFamilies(Exposition& out, const Json& ports) {
    out.Family("qdmhost_port_info", "A port of a supported Fibre Channel adapter (always 1).");
    for (const Json& port : ports)
        out.Sample("qdmhost_port_info",
                   With(PortLabels(port), {{"boot_bios_version", Text(port["bootBios"])},
                                           {"bus_dev_func", Text(port["busDevFunc"])},
                                           {"device_id", Text(port["deviceId"])},
                                           {"vendor_class", Text(port["vendorClass"])}}),
                   1);
    out.Family("qdmhost_module_info", "Operating and repository version of a module (always 1).");
    for (const Json& port : ports)
        for (const Json& module : port["modules"])
            out.Sample("qdmhost_module_info",
                       With(PortLabels(port), {{"kind", Text(module["kind"])},
                                               {"operating_version", Text(module["operating"])},
                                               {"repository_version", Text(module["repository"])}}),
                       1);
    out.Family("qdmhost_module_status",
               "1 for the module's status against the repository (current, older: the repository is newer, newer, "
               "unreadable, no-package, not-installed), 0 for the others.");
    for (const Json& port : ports)
        for (const Json& module : port["modules"])
            for (const char* status : kStatuses)
                out.Sample("qdmhost_module_status", With(PortLabels(port), {{"kind", Text(module["kind"])}, {"status", status}}),
                           Text(module["status"]) == status);
    out.Family("qdmhost_utility_check",
               "1 for the result of the utility configuration check that an update would run (passed, refused, "
               "no-utility), 0 for the others.");
    for (const Json& port : ports)
        for (const char* result : kUtilityChecks)
            out.Sample("qdmhost_utility_check", With(PortLabels(port), {{"result", result}}),
                       Text(port["utilityCheck"]) == result);
}

// The last recorded update of each port and module kind.
void HistoryFamilies(Exposition& out, const std::vector<Json>& history) {
    // Keyed by the labels, so that no two samples of a family share them.
    std::map<Labels, std::pair<std::time_t, std::string>> last;
    for (const Json& record : history)
        if (std::optional<std::time_t> time = ParseUtcTime(Text(record["time"])))
            last[{{"kind", Text(record["kind"])}, {"pci_address", PciAddress(record["deviceId"])},
                  {"port", Text(record.value("wwpn", Json()))}}] = {*time, Text(record["outcome"])};
    out.Family("qdmhost_last_update_timestamp_seconds", "When the last update of the module ended (Unix time).");
    for (const auto& entry : last)
        out.Sample("qdmhost_last_update_timestamp_seconds", entry.first, static_cast<double>(entry.second.first));
    out.Family("qdmhost_last_update_success",
               "1 when the last update of the module succeeded; the outcome label says how it ended.");
    for (const auto& entry : last)
        out.Sample("qdmhost_last_update_success", With(entry.first, {{"outcome", entry.second.second}}),
                   entry.second.second == "updated");
}

// The ports with their modules and utility check; throws HostError.
Json Survey(const Options& options) {
    UseInstallRoot(options);
    Repository repository = OptionalRepository(options);
    Session session(options);
    Json ports = InventoryPorts(session.ports(), repository, options.root);
    for (std::size_t i = 0; i < session.ports().size(); ++i)
        ports[i]["utilityCheck"] = UtilityCheck(session.ports()[i], repository);
    return ports;
}

void RunFamilies(Exposition& out, const std::optional<HostError>& failure, double seconds) {
    if (failure) {
        out.Family("qdmhost_metrics_error_info", "Why the last metrics run failed: qdmhost's exit code name (always 1).");
        out.Sample("qdmhost_metrics_error_info",
                   {{"exit_code", std::to_string(failure->code())}, {"name", DescribeExitCode(failure->code()).name}}, 1);
    }
    out.Family("qdmhost_metrics_duration_seconds", "How long the metrics run took.");
    out.Sample("qdmhost_metrics_duration_seconds", {}, seconds);
    out.Family("qdmhost_metrics_success", "1 when the metrics run read the adapters, 0 when it failed.");
    out.Sample("qdmhost_metrics_success", {}, failure ? 0 : 1);
}

}  // namespace

CommandResult RunMetrics(const Options& options) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<HostError> failure;
    Json ports = Json::array();
    try {
        ports = Survey(options);
    } catch (const HostError& error) {
        failure = error;
    } catch (const std::exception& error) {
        failure = HostError(kExitInternal, std::string("unexpected failure: ") + error.what());
    }
    Exposition out;
    PortFamilies(out, ports);
    HistoryFamilies(out, ReadHistory(options));
    RunFamilies(out, failure, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    const std::string path = options.textfileFolder + "/" + kMetricsFile;
    if (!WriteFileAtomically(path, out.text(), 0644)) throw HostError(kExitInternal, "cannot write " + path);
    if (failure) throw *failure;
    CommandResult result;
    result.document = {{"file", path}, {"series", out.series()}};
    return result;
}

}  // namespace qdmcli
