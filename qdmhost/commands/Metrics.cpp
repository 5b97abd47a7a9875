// qdmhost metrics --textfile DIR: the inventory, the utility configuration
// check, the last update of each module and the run's own outcome as gauges
// in DIR/qdmhost.prom, replaced atomically so node_exporter never reads half
// a file. A failed survey still writes the file (success 0, the error's
// name) so that an alert fires, then exits with the error's code; while an
// update runs (lock-busy) it holds qdmhost_update_in_progress 1 and no
// module series, so that no alert fires on readings taken mid-update.
#include <CLI/CLI.hpp>

#include <chrono>

#include "cli/Command.h"
#include "commands/Survey.h"
#include "render/JsonRenderer.h"
#include "render/PrometheusRenderer.h"
#include "render/TextRenderer.h"
#include "store/History.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

const char kMetricsFile[] = "qdmhost.prom";

Outcome<MetricsSummary> RunMetrics(const Options& options) {
    // Checked first: a run that cannot write its file must not look like a failed inventory.
    RequirePath("--textfile", options.textfileFolder, PathNeed::kWritableFolder);
    const auto start = std::chrono::steady_clock::now();
    std::optional<HostError> failure;
    ServerSurvey survey;
    try {
        SurveyScope scope;
        scope.modules = SurveyScope::Modules::kInventory;
        scope.bootBios = true;
        scope.utilityCheck = true;
        scope.paths = true;
        scope.allowDowngrade = options.allowDowngrade;
        survey = SurveyFromOptions(options, scope);
        // The adapters are served all the same; the repository's failure decides the exit code.
        const RepositoryState& repository = survey.repository;
        if (repository.failureCode)
            failure = HostError(static_cast<ExitCode>(repository.failureCode), repository.message, repository.problem);
    } catch (const HostError& error) {
        failure = error;
    } catch (const std::exception& error) {
        failure = HostError(kExitInternal, std::string("unexpected failure: ") + error.what());
    }
    const Exposition out =
        MetricsExposition(survey, ReadHistory(options.HostFolder(), options.ports), failure,
                          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    const std::string path = options.textfileFolder + "/" + kMetricsFile;
    if (!WriteFileAtomically(path, out.text(), 0644)) throw HostError(kExitInternal, "cannot write " + path);
    if (failure) throw *failure;
    return {{path, out.series()}};
}

void AddMetricsOptions(CLI::App& command, Options& options) {
    command
        .add_option("--textfile", options.textfileFolder,
                    "folder of node_exporter's textfile collector (e.g. /var/lib/prometheus/node-exporter): "
                    "DIR/qdmhost.prom is replaced atomically, on a failure too (success 0 and the error's name; "
                    "the exit code is the error's)")
        ->type_name("DIR")
        ->required();
}

}  // namespace

Command MetricsCommand() {
    return MakeCommand<MetricsSummary>(
        "metrics",
        "write Prometheus metrics for node_exporter: status and versions of every port "
        "and module, last updates, utility check, this run's success",
        {AdapterOptions(), {kExitLockBusy, kExitProvider, kExitRepository, kExitNoDevice}}, AddMetricsOptions,
        RunMetrics, MetricsJson, MetricsText);
}

}  // namespace qdmcli
