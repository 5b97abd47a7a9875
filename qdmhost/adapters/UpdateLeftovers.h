#pragma once
// The provider's work area below <root>/tmp/EMULEX, as an update leaves it
// behind: unpack folders, result files that mark a step as done, and the
// caches of adapter readings.
#include <string>

namespace qdmcli {

// Removes the unpack folders ("temp/tmp", "temp/firm"), the result files of
// the driver and utility steps and the attribute and utility version caches,
// so that the next step starts clean and the next reading asks the adapters.
// The adapter list and markers written by others stay. Call under the update
// lock.
void ClearUpdateLeftovers(const std::string& root);

}  // namespace qdmcli
