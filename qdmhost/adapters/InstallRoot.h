#pragma once
// The install root a command works below.
#include "cli/Options.h"

namespace qdmcli {

// Validates the root, makes it the host's, sets the trace mask and creates
// the work area (0700); records an update that a dead run left unfinished (while no
// update runs). Throws HostError.
void UseInstallRoot(const Options& options);

}  // namespace qdmcli
