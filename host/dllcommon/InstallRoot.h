#pragma once
// The install root lives in the lowest host library, so that tracing (here)
// and the file services (ComLib, above) agree on it.
#include <string>

namespace qdmhost {

std::string InstallRoot();
void SetInstallRoot(const std::string& root);

}  // namespace qdmhost
