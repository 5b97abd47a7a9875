// qdmhost check: missing components and the utility configuration check of
// every port, with each port's inventory and last update.
#include <map>

#include "cli/Command.h"
#include "commands/Survey.h"
#include "model/Vocabulary.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"
#include "store/History.h"

namespace qdmcli {

namespace {

// Each port's last record in HISTORY (oldest first), null when it has none.
std::vector<nlohmann::json> LastUpdates(const std::vector<PortSurvey>& ports, std::vector<nlohmann::json> history) {
    std::map<std::string, nlohmann::json> last;  // by device id, a text in every record ReadHistory keeps
    for (nlohmann::json& record : history) {
        std::string deviceId = record["deviceId"];
        last[deviceId] = std::move(record);
    }
    std::vector<nlohmann::json> updates;
    for (const PortSurvey& port : ports) {
        auto found = last.find(port.port.deviceId);
        updates.push_back(found == last.end() ? nlohmann::json() : found->second);
    }
    return updates;
}

Outcome<ServerCheck> RunCheck(const Options& options) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kUpdateOrder;  // what an update would do, per module
    scope.allowDowngrade = options.allowDowngrade;
    scope.bootBios = true;
    scope.utilityCheck = true;
    scope.missingComponents = true;
    scope.paths = true;
    Outcome<ServerCheck> outcome{{SurveyFromOptions(options, scope), {}}};
    const ServerSurvey& survey = outcome.result.survey;
    outcome.result.lastUpdates = LastUpdates(survey.ports, ReadHistory(options.HostFolder(), {}));
    for (const PortSurvey& port : survey.ports)
        if (port.utilityCheck == kUtilityRefused) outcome.exitCode = WorseExitCode(outcome.exitCode, kExitRefused);
    if (!survey.missingComponents.empty()) outcome.exitCode = WorseExitCode(outcome.exitCode, kExitMissingComponent);
    outcome.exitCode = WorseExitCode(outcome.exitCode, survey.repository.failureCode);
    return outcome;
}

}  // namespace

Command CheckCommand() {
    return MakeCommand<ServerCheck>(
        "check", "check for missing components and the utility configuration",
        {AdapterOptions(),
         {kExitRefused, kExitMissingComponent, kExitLockBusy, kExitProvider, kExitRepository, kExitNoDevice}},
        nullptr, RunCheck, CheckJson, CheckText);
}

}  // namespace qdmcli
