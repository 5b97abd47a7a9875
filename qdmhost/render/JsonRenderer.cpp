#include "render/JsonRenderer.h"

namespace qdmcli {

namespace {

using Json = nlohmann::json;

Json OrNull(const std::string& text, bool present) { return present ? Json(text) : Json(nullptr); }

// Whether the repository passed the trust checks; null without a repository.
Json VerifiedJson(const RepositoryState& repository) {
    return repository.present ? Json(repository.verified) : Json(nullptr);
}

Json ModuleJson(const ModuleReading& reading) {
    Json module = {{"kind", reading.kind},
                   {"status", reading.status},
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

}  // namespace

Json InventoryJson(const ServerSurvey& survey) {
    Json ports = Json::array();
    for (const PortSurvey& port : survey.ports) {
        Json modules = Json::array();
        for (const ModuleReading& reading : port.modules) modules.push_back(ModuleJson(reading));
        ports.push_back({{"deviceId", port.port.deviceId},
                         {"vendorClass", port.port.vendorClass},
                         {"modelKey", port.modelKey},
                         {"wwpn", port.port.wwpn},
                         {"busDevFunc", port.port.busDevFunc},
                         {"modules", modules},
                         {"bootBios", port.bootBios}});
    }
    return {{"repository", OrNull(survey.repository.folder, survey.repository.present)},
            {"repositoryVerified", VerifiedJson(survey.repository)},
            {"ports", ports}};
}

Json CheckJson(const ServerSurvey& survey) {
    Json ports = Json::array();
    for (const PortSurvey& port : survey.ports)
        ports.push_back(
            {{"deviceId", port.port.deviceId}, {"wwpn", port.port.wwpn}, {"utilityCheck", port.utilityCheck}});
    const CManageRepositoryInfo& install = survey.utilityInstall;
    return {{"missingComponents", survey.missingComponents},
            {"utilityInstall", install.archivePath.empty()
                                   ? Json(nullptr)
                                   : Json({{"archive", install.archivePath}, {"version", install.version}})},
            {"repositoryVerified", VerifiedJson(survey.repository)},
            {"ports", ports}};
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
    if (result.messages) json["messages"] = MessagesJson(*result.messages);
    if (result.outcome == "interrupted")
        json["interruptedStep"] = OrNull(result.interruptedStep, !result.interruptedStep.empty());
    if (result.ran) {
        json["now"] = result.now;
        json["failedStep"] = OrNull(result.failedStep, !result.failedStep.empty());
        json["seconds"] = result.seconds;
    }
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
        keys.push_back({{"keyId", key.keyId}, {"comment", key.comment}, {"file", key.file}});
    return {{"action", "list"}, {"keys", keys}};
}

}  // namespace qdmcli
