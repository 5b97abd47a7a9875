#pragma once
// The server's multipath paths as they are now: multipathd's listing with
// each SCSI host placed on its adapter port through sysfs.
#include <string>

#include <vector>

#include "adapters/Port.h"
#include "model/PathGuard.h"

namespace qdmcli {

// Runs multipathd (its output in a scratch file below <root>/tmp, read
// within a size limit and removed). A server without multipathd, or whose
// daemon does not answer, gives a snapshot without multipath and a note.
PathSnapshot ReadPathSnapshot(const std::string& root);
// The snapshot judged for each adapter of the ports.
PathSurvey SurveyPaths(const std::vector<Port>& ports, const std::string& root);

}  // namespace qdmcli
