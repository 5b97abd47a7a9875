#pragma once
// The command table that the CLI loops over.
#include <vector>

#include "cli/Command.h"

namespace qdmcli {

// Every command, in the order of --help.
const std::vector<Command>& CommandTable();

}  // namespace qdmcli
