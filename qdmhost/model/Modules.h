#pragma once
// A port's update modules as the commands see them: operating version,
// matching repository package and the verdict between the two.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "repository/Catalogue.h"
#include "adapters/Session.h"

namespace qdmcli {

const char kStatusCurrent[] = "current";
const char kStatusOlder[] = "older";          // the repository is newer
const char kStatusNewer[] = "newer";          // the adapter is newer than the repository
const char kStatusUnreadable[] = "unreadable";
const char kStatusNoPackage[] = "no-package";
const char kStatusNotInstalled[] = "not-installed";

// The verdict for an operating version. `comparison` is the module's own
// CheckVendorVersion(operating, repository): positive when the repository
// is newer. It answers 0 for malformed texts too, so "abnormal" (the
// provider's unreadable sentinel) and an empty text are decided first.
std::string VersionStatus(const std::string& operating, bool hasPackage, int comparison);
// Whether an update brings the module to the repository version.
bool StatusNeedsUpdate(const std::string& status);

// Module kinds in the vendor's update order.
std::vector<std::string> UpdateOrder(CVendor* vendor);

struct ModuleReading {
    std::string kind;
    CModuleManager* module = nullptr;  // null: not linked (e.g. utility not installed)
    std::string operating;
    bool hasPackage = false;
    CManageRepositoryInfo package;
    bool repositoryVerified = false;  // the package's catalogue passed the trust checks
    std::string status;
};

// Reads the module's operating version afresh (into its version cache) and
// compares it with the repository's package for the port, if any.
ModuleReading ReadModule(const Port& port, const std::string& kind, const Repository& repository);
nlohmann::json ModuleJson(const ModuleReading& reading);
// Whether the repository passed the trust checks; null without a repository.
nlohmann::json RepositoryVerifiedJson(const Repository& repository);

// Loads the repository for a command that can do without one: a missing
// default repository is no repository, an explicitly named one must load.
// One that is not trusted is loaded with a warning, its versions unverified.
Repository OptionalRepository(const Options& options);

}  // namespace qdmcli
