#pragma once
// The metrics command's gauges in the Prometheus text exposition format, for
// node_exporter's textfile collector.
#include <nlohmann/json.hpp>

#include <optional>
#include <vector>

#include "model/HostError.h"
#include "model/ServerSurvey.h"
#include "render/Exposition.h"

namespace qdmcli {

// The survey's ports and modules, the last update of each port and module
// from the history records, and the run's own duration and outcome (`failure`
// when the survey failed: its ports are then empty). While an update runs
// (lock-busy) only the run's own families are written, with the marker
// qdmhost_update_in_progress 1.
Exposition MetricsExposition(const ServerSurvey& survey, const std::vector<nlohmann::json>& history,
                             const std::optional<HostError>& failure, double seconds);

}  // namespace qdmcli
