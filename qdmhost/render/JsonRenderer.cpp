#include "render/JsonRenderer.h"

namespace qdmcli {

namespace {

using Json = nlohmann::json;

Json OrNull(const std::string& text, bool present) { return present ? Json(text) : Json(nullptr); }

// Whether the repository passed the trust checks; null without a repository.
Json VerifiedJson(const RepositoryState& repository) {
    return repository.present ? Json(repository.verified) : Json(nullptr);
}

// What is wrong with the repository ({"reason", "message"}); null when nothing.
Json ProblemJson(const RepositoryState& repository) {
    if (repository.problem.empty()) return nullptr;
    return {{"reason", repository.problem}, {"message", repository.message}};
}

Json ModuleJson(const ModuleReading& reading) {
    Json module = {{"kind", reading.kind},
                   {"status", reading.status},
                   {"plan", reading.plan},
                   {"operating", OrNull(reading.operating, reading.module != nullptr)},
                   {"repository", OrNull(reading.package.version, reading.hasPackage)}};
    // Marks only what is doubtful, as the table does.
    if (reading.hasPackage && !reading.repositoryVerified) module["repositoryVerified"] = false;
    return module;
}

Json MessagesJson(const std::vector<OperatorMessage>& messages) {
    Json list = Json::array();
    for (const OperatorMessage& message : messages) list.push_back({{"id", message.id}, {"text", message.text}});
    return list;
}

// A port as the inventory lists it: its identity, modules and boot BIOS.
Json InventoryPortJson(const PortSurvey& port) {
    Json modules = Json::array();
    for (const ModuleReading& reading : port.modules) modules.push_back(ModuleJson(reading));
    return {{"deviceId", port.port.deviceId},
            {"vendorClass", port.port.vendorClass},
            {"modelKey", port.modelKey},
            {"wwpn", port.port.wwpn},
            {"busDevFunc", port.port.busDevFunc},
            {"modules", modules},
            {"bootBios", port.bootBios},
            {"bootBiosRepository", OrNull(port.bootBiosRepository, !port.bootBiosRepository.empty())},
            {"bootBiosStatus", port.bootBiosStatus}};
}

// What a fleet report shows of a port's last update. The record is stored
// data: a field that is not a text is null.
Json LastUpdateJson(const Json& record) {
    if (!record.is_object()) return nullptr;
    Json json = Json::object();
    for (const char* key : {"time", "kind", "outcome", "failedStep", "from", "to"}) {
        auto field = record.find(key);
        json[key] = field != record.end() && field->is_string() ? *field : Json(nullptr);
    }
    return json;
}

}  // namespace

Json InventoryJson(const ServerSurvey& survey) {
    Json ports = Json::array();
    for (const PortSurvey& port : survey.ports) ports.push_back(InventoryPortJson(port));
    return {{"repository", OrNull(survey.repository.folder, survey.repository.present)},
            {"repositoryVerified", VerifiedJson(survey.repository)},
            {"repositoryProblem", ProblemJson(survey.repository)},
            {"ports", ports}};
}

Json CheckJson(const ServerCheck& check) {
    const ServerSurvey& survey = check.survey;
    Json ports = Json::array();
    for (std::size_t i = 0; i < survey.ports.size(); ++i) {
        const PortSurvey& port = survey.ports[i];
        // The inventory's fields and the last update too, so that one run answers a fleet report.
        Json json = InventoryPortJson(port);
        json["plans"] = Json::object();
        for (const ModuleReading& reading : port.modules) json["plans"][reading.kind] = reading.plan;
        json["utilityCheck"] = port.utilityCheck;
        json["lastUpdate"] = LastUpdateJson(check.lastUpdates.at(i));
        ports.push_back(json);
    }
    const CManageRepositoryInfo& install = survey.utilityInstall;
    return {{"missingComponents", survey.missingComponents},
            {"utilityInstall", install.archivePath.empty()
                                   ? Json(nullptr)
                                   : Json({{"archive", install.archivePath}, {"version", install.version}})},
            {"repositoryVerified", VerifiedJson(survey.repository)},
            {"repositoryProblem", ProblemJson(survey.repository)},
            {"ports", ports},
            {"paths", PathSurveyJson(survey.paths)}};
}

namespace {

Json PathsJson(const std::vector<RoutedPath>& paths) {
    Json list = Json::array();
    for (const RoutedPath& routed : paths)
        list.push_back({{"device", routed.path.device},
                        {"hctl", routed.path.hctl},
                        {"port", OrNull(routed.function, !routed.function.empty())},
                        {"wwpn", OrNull(routed.wwpn, !routed.wwpn.empty())},
                        {"dmState", routed.path.dmState},
                        {"checker", routed.path.checker}});
    return list;
}

Json AdapterPathsJson(const AdapterPaths& adapter) {
    Json maps = Json::array();
    for (const MapThroughAdapter& map : adapter.maps)
        maps.push_back({{"map", map.map},
                        {"wwid", map.wwid},
                        {"paths", PathsJson(map.paths)},
                        {"otherHealthyPaths", PathsJson(map.otherHealthy)},
                        {"soleHealthyHere", map.soleHealthyHere}});
    return {{"adapter", adapter.adapter},
            {"ports", adapter.functions},
            {"verdict", adapter.verdict},
            {"solePathMaps", adapter.SolePathMaps()},
            {"maps", maps}};
}

}  // namespace

Json PathSurveyJson(const PathSurvey& paths) {
    Json adapters = Json::array();
    for (const AdapterPaths& adapter : paths.adapters) adapters.push_back(AdapterPathsJson(adapter));
    return {{"multipath", paths.multipath}, {"note", OrNull(paths.note, !paths.note.empty())}, {"adapters", adapters}};
}

Json ModuleOutcomeJson(const ModuleOutcome& result) {
    const ModuleReading& reading = result.reading;
    Json json = {{"deviceId", result.port.deviceId},
                 {"wwpn", result.port.wwpn},
                 {"busDevFunc", result.port.busDevFunc},
                 {"kind", reading.kind},
                 {"outcome", result.outcome},
                 {"from", reading.operating},
                 {"to", OrNull(reading.package.version, reading.hasPackage)}};
    if (!result.reason.empty()) json["reason"] = result.reason;
    if (result.downgrade) json["downgrade"] = true;
    if (result.messages) json["messages"] = MessagesJson(*result.messages);
    if (!result.sharedBy.empty()) json["ports"] = result.sharedBy;
    if (result.outcome == "interrupted")
        json["interruptedStep"] = OrNull(result.interruptedStep, !result.interruptedStep.empty());
    if (result.ran) {
        json["now"] = result.now;
        json["failedStep"] = OrNull(result.failedStep, !result.failedStep.empty());
        json["seconds"] = result.seconds;
    }
    if (!result.maps.empty()) json["maps"] = result.maps;
    if (result.pathLossAllowed) json["pathLossAllowed"] = true;
    if (!result.pathsNotRestored.empty()) json["pathsNotRestored"] = result.pathsNotRestored;
    return json;
}

Json ProvenanceJson(const Provenance& provenance) {
    Json json = {{"keyId", OrNull(provenance.keyId, !provenance.keyId.empty())},
                 {"catalogueSerial", provenance.serial ? Json(*provenance.serial) : Json(nullptr)}};
    if (provenance.unsignedAccepted) json["unsigned"] = true;
    return json;
}

Json UpdateJson(const UpdateRun& run) {
    Json results = Json::array();
    for (const ModuleOutcome& result : run.results) results.push_back(ModuleOutcomeJson(result));
    Json json = {{"dryRun", run.dryRun}, {"repositoryVerified", VerifiedJson(run.repository)}, {"results", results}};
    json.update(ProvenanceJson(run.provenance));
    json["paths"] = PathSurveyJson(run.paths);
    json["stopped"] =
        run.stopped
            ? Json{{"reason", run.stopped->reason}, {"adapter", run.stopped->adapter}, {"paths", run.stopped->paths}}
            : Json(nullptr);
    return json;
}

Json ReportJson(const ReportSummary& report) { return {{"file", report.file}, {"ports", report.ports}}; }

Json MetricsJson(const MetricsSummary& metrics) { return {{"file", metrics.file}, {"series", metrics.series}}; }

Json HistoryJson(const HistoryEntries& history) { return {{"entries", history.entries}}; }

Json TrustJson(const TrustChange& change) {
    if (change.action == "add") return {{"action", "add"}, {"keyId", change.keyId}, {"file", change.file}};
    if (change.action == "remove") return {{"action", "remove"}, {"keyId", change.keyId}};
    Json keys = Json::array();
    for (const TrustedKeyRow& key : change.keys)
        keys.push_back(
            {{"keyId", key.keyId}, {"publicKey", key.publicKey}, {"comment", key.comment}, {"file", key.file}});
    return {{"action", "list"}, {"keys", keys}};
}

}  // namespace qdmcli
