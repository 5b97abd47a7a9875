#pragma once
// The install root as only root may change it and the work area below it as
// only root may enter it: the provider unpacks update packages there (the
// utility's with mode 777) and runs their scripts as root.
#include <string>

namespace qdmcli {

// Creates <root>/tmp with mode 0700 (an existing one of ours is narrowed to
// it) and refuses (HostError internal, the path and its mode or owner) when
// the root, <root>/tmp or <root>/qdmhost is writable by group or others or
// owned by another user.
void PrepareWorkArea(const std::string& root);

}  // namespace qdmcli
