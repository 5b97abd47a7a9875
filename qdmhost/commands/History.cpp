// qdmhost history: the results of past updates, as recorded.
#include "store/History.h"
#include "adapters/InstallRoot.h"
#include "cli/Command.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"

namespace qdmcli {

namespace {

Outcome<HistoryEntries> RunHistory(const Options& options) {
    UseInstallRoot(options);
    return {{ReadHistory(options.HostFolder(), options.ports)}};
}

}  // namespace

Command HistoryCommand() {
    return MakeCommand<HistoryEntries>("history", "show the results of past updates",
                                       {{"--root", "--port", "--json"}, {}}, nullptr, RunHistory, HistoryJson,
                                       HistoryText);
}

}  // namespace qdmcli
