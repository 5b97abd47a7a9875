// qdmhost check: missing components and the utility configuration check of
// every port, with each port's inventory.
#include "cli/Command.h"
#include "commands/Survey.h"
#include "model/Vocabulary.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"

namespace qdmcli {

namespace {

Outcome<ServerSurvey> RunCheck(const Options& options) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kUpdateOrder;  // what an update would do, per module
    scope.allowDowngrade = options.allowDowngrade;
    scope.bootBios = true;
    scope.utilityCheck = true;
    scope.missingComponents = true;
    scope.paths = true;
    Outcome<ServerSurvey> outcome{SurveyFromOptions(options, scope)};
    for (const PortSurvey& port : outcome.result.ports)
        if (port.utilityCheck == kUtilityRefused) outcome.exitCode = WorseExitCode(outcome.exitCode, kExitRefused);
    if (!outcome.result.missingComponents.empty())
        outcome.exitCode = WorseExitCode(outcome.exitCode, kExitMissingComponent);
    outcome.exitCode = WorseExitCode(outcome.exitCode, outcome.result.repository.failureCode);
    return outcome;
}

}  // namespace

Command CheckCommand() {
    return MakeCommand<ServerSurvey>(
        "check", "check for missing components and the utility configuration",
        {AdapterOptions(),
         {kExitRefused, kExitMissingComponent, kExitLockBusy, kExitProvider, kExitRepository, kExitNoDevice}},
        nullptr, RunCheck, CheckJson, CheckText);
}

}  // namespace qdmcli
