// qdmhost inventory: every port with its module versions against the repository's.
#include "cli/Command.h"
#include "commands/Survey.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"

namespace qdmcli {

namespace {

Outcome<ServerSurvey> RunInventory(const Options& options) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kInventory;
    scope.bootBios = true;
    scope.allowDowngrade = options.allowDowngrade;
    Outcome<ServerSurvey> outcome{SurveyFromOptions(options, scope)};
    outcome.exitCode = outcome.result.repository.failureCode;
    return outcome;
}

}  // namespace

Command InventoryCommand() {
    return MakeCommand<ServerSurvey>("inventory", "list the ports with their versions and the repository's",
                                     {AdapterOptions(), {kExitLockBusy, kExitProvider, kExitRepository, kExitNoDevice}},
                                     nullptr, RunInventory, InventoryJson, InventoryText);
}

}  // namespace qdmcli
