#pragma once
// The multipath guard in an update run: before an adapter's firmware is
// flashed, every map through it must keep an active and ready path through
// another adapter; after the flash, the paths that were active come back
// before the run goes on to the next adapter.
#include <string>
#include <vector>

#include "adapters/Port.h"
#include "cli/Options.h"
#include "model/PathGuard.h"
#include "model/Results.h"

namespace qdmcli {

class FirmwareGuard {
public:
    // `paths` is the run's first look; a dry run judges by it alone.
    FirmwareGuard(const Options& options, PathSurvey paths);

    // Before flashing the port's adapter: refuses `outcome` (reason, maps)
    // when a map would lose its last healthy path, unless --allow-path-loss,
    // which is said loudly and marked on the outcome. Remembers the adapter's
    // active paths for AwaitPaths.
    void Judge(const Port& port, ModuleOutcome& outcome);
    // After a flash: polls until the remembered paths are active and ready
    // again, at most --path-wait seconds; the names of those still missing.
    std::vector<std::string> AwaitPaths(const Port& port);

    const PathSurvey& firstLook() const { return paths_; }

private:
    AdapterPaths CurrentView(const std::string& adapter) const;

    const Options& options_;
    PathSurvey paths_;
    std::vector<RoutedPath> expected_;
};

}  // namespace qdmcli
