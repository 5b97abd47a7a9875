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
    return {SurveyFromOptions(options, scope)};
}

}  // namespace

Command InventoryCommand() {
    return MakeCommand<ServerSurvey>("inventory", "list the ports with their versions and the repository's",
                                     {AdapterOptions(), {kExitProvider, kExitRepository, kExitNoDevice}}, nullptr,
                                     RunInventory, InventoryJson, InventoryText);
}

}  // namespace qdmcli
