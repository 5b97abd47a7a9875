#pragma once
// The management utility installed from the repository's utility package
// when it is missing, as an update manager installs a missing necessary
// component: without it the provider links no utility module and every
// firmware step fails.
#include <string>

namespace qdmcli {

// The utility's tool is installed at its fixed path.
bool UtilityInstalled();
// Unpacks the (staged, checked) archive into the provider's unpack folder
// and runs the package's install script for this machine, quietly. False,
// with *why, when it did not install the tool.
bool InstallUtility(const std::string& root, const std::string& archive, std::string* why);

}  // namespace qdmcli
