#include "render/PrometheusRenderer.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <string>

#include "model/Vocabulary.h"
#include "util/Text.h"
#include "util/UtcTime.h"

namespace qdmcli {

namespace {

using Json = nlohmann::json;

// Label names in alphabetical order, as node_exporter serves them.
Labels PortLabels(const PortSurvey& port) {
    return {{"model", port.modelKey}, {"pci_address", PciAddressOf(port.port.deviceId)}, {"port", port.port.wwpn}};
}

Labels With(Labels labels, const Labels& more) {
    labels.insert(labels.end(), more.begin(), more.end());
    std::sort(labels.begin(), labels.end());
    return labels;
}

void PortFamilies(Exposition& out, const std::vector<PortSurvey>& ports) {
    out.Family("qdmhost_port_info", "A port of a supported Fibre Channel adapter (always 1).");
    for (const PortSurvey& port : ports)
        out.Sample("qdmhost_port_info",
                   With(PortLabels(port), {{"boot_bios_version", port.bootBios},
                                           {"bus_dev_func", port.port.busDevFunc},
                                           {"device_id", port.port.deviceId},
                                           {"vendor_class", port.port.vendorClass}}),
                   1);
    out.Family("qdmhost_module_info", "Operating and repository version of a module (always 1).");
    for (const PortSurvey& port : ports)
        for (const ModuleReading& module : port.modules)
            out.Sample(
                "qdmhost_module_info",
                With(PortLabels(port), {{"kind", module.kind},
                                        {"operating_version", module.operating},
                                        {"repository_version", module.hasPackage ? module.package.version : ""}}),
                1);
    out.Family("qdmhost_module_status",
               "1 for the module's status against the repository (current, older: the repository is newer, newer, "
               "unreadable, no-package, not-installed), 0 for the others.");
    for (const PortSurvey& port : ports)
        for (const ModuleReading& module : port.modules)
            for (const std::string& status : ModuleStatuses())
                out.Sample("qdmhost_module_status", With(PortLabels(port), {{"kind", module.kind}, {"status", status}}),
                           module.status == status);
    out.Family("qdmhost_utility_check",
               "1 for the result of the utility configuration check that an update would run (passed, refused, "
               "no-utility), 0 for the others.");
    for (const PortSurvey& port : ports)
        for (const std::string& result : UtilityCheckResults())
            out.Sample("qdmhost_utility_check", With(PortLabels(port), {{"result", result}}),
                       port.utilityCheck == result);
}

// Only when multipathd answered: elsewhere there is nothing to count.
void PathFamilies(Exposition& out, const PathSurvey& paths) {
    if (!paths.multipath) return;
    out.Family("qdmhost_adapter_sole_path_maps",
               "Multipath maps whose only active and ready paths run through this adapter: a single point of "
               "failure, and what the update guard refuses to flash.");
    for (const AdapterPaths& adapter : paths.adapters)
        out.Sample("qdmhost_adapter_sole_path_maps", {{"adapter", adapter.adapter}}, adapter.SolePathMaps());
}

// The last recorded update of each port and module kind.
void HistoryFamilies(Exposition& out, const std::vector<Json>& history) {
    // Keyed by the labels, so that no two samples of a family share them.
    std::map<Labels, std::pair<std::time_t, std::string>> last;
    for (const Json& record : history)
        if (std::optional<std::time_t> time = ParseUtcTime(StringOr(record["time"], "")))
            last[{{"kind", StringOr(record["kind"], "")},
                  {"pci_address", PciAddressOf(StringOr(record["deviceId"], ""))},
                  {"port", StringOr(record.value("wwpn", Json()), "")}}] = {*time, StringOr(record["outcome"], "")};
    out.Family("qdmhost_last_update_timestamp_seconds", "When the last update of the module ended (Unix time).");
    for (const auto& entry : last)
        out.Sample("qdmhost_last_update_timestamp_seconds", entry.first, static_cast<double>(entry.second.first));
    out.Family("qdmhost_last_update_success",
               "1 when the last update of the module succeeded; the outcome label says how it ended.");
    for (const auto& entry : last)
        out.Sample("qdmhost_last_update_success", With(entry.first, {{"outcome", entry.second.second}}),
                   entry.second.second == "updated" || entry.second.second == "installed");
}

// "ok", "none" (no repository), "unsigned" (let through by --allow-unsigned)
// or the reason word of what is wrong with it.
void RepositoryFamily(Exposition& out, const RepositoryState& repository) {
    const std::string reason = !repository.present           ? "none"
                               : !repository.problem.empty() ? repository.problem
                               : repository.unsignedAccepted ? "unsigned"
                                                             : "ok";
    out.Family(
        "qdmhost_repository_status",
        "1, labelled with the repository's state: ok, none, unsigned, or the reason it is broken or not trusted.");
    out.Sample("qdmhost_repository_status", {{"reason", reason}}, 1);
}

void RunFamilies(Exposition& out, const std::optional<HostError>& failure, double seconds) {
    if (failure) {
        out.Family("qdmhost_metrics_error_info",
                   "Why the last metrics run failed: qdmhost's exit code name (always 1).");
        out.Sample("qdmhost_metrics_error_info",
                   {{"exit_code", std::to_string(failure->code())}, {"name", DescribeExitCode(failure->code()).name}},
                   1);
    }
    out.Family("qdmhost_metrics_duration_seconds", "How long the metrics run took.");
    out.Sample("qdmhost_metrics_duration_seconds", {}, seconds);
    out.Family("qdmhost_metrics_success", "1 when the metrics run read the adapters, 0 when it failed.");
    out.Sample("qdmhost_metrics_success", {}, failure ? 0 : 1);
    out.Family("qdmhost_update_in_progress",
               "1 when an update held the adapters, so that no module was read (no alert on mid-update readings).");
    out.Sample("qdmhost_update_in_progress", {}, failure && failure->code() == kExitLockBusy ? 1 : 0);
}

}  // namespace

Exposition MetricsExposition(const ServerSurvey& survey, const std::vector<Json>& history,
                             const std::optional<HostError>& failure, double seconds) {
    Exposition out;
    PortFamilies(out, survey.ports);
    PathFamilies(out, survey.paths);
    RepositoryFamily(out, survey.repository);
    if (!failure || failure->code() != kExitLockBusy) HistoryFamilies(out, history);
    RunFamilies(out, failure, seconds);
    return out;
}

}  // namespace qdmcli
