#pragma once
// The server's own settings, <root>/qdmhost/qdmhost.conf (INI):
//     channel = NAME
// the channel whose catalogues the server follows ("default" without the
// file or the key).
#include <string>

namespace qdmcli {

const char kHostConfigFile[] = "qdmhost.conf";
const char kDefaultChannel[] = "default";

// Throws HostError (internal) for a file that others may change, that does
// not parse or names no valid channel.
std::string ReadChannel(const std::string& hostFolder);

}  // namespace qdmcli
