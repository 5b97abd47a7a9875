#pragma once
// A port's update modules as the commands see them: operating version,
// matching repository package and the verdict between the two.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "Catalogue.h"
#include "Session.h"

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
// What an update would do with a module of this status: "update" (older or
// unreadable), "downgrade" (newer, only when allowed), "keep-newer" (newer:
// left alone) or "none" (current, or nothing to update from).
std::string UpdatePlan(const std::string& status, bool hasPackage, bool allowDowngrade);
bool PlanRuns(const std::string& plan);

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
nlohmann::json ModuleJson(const ModuleReading& reading, bool allowDowngrade);
// Whether the repository passed the trust checks; null without a repository.
nlohmann::json RepositoryVerifiedJson(const Repository& repository);
// What is wrong with the repository ({"reason", "message"}); null when nothing.
nlohmann::json RepositoryProblemJson(const Repository& repository);

// Loads the repository for a command that reads the adapters whatever the
// repository's state: a missing default repository is no repository; one
// that is not trusted is loaded with a warning, its versions unverified; one
// that cannot be loaded (missing, broken, hostile) is left out with a warning
// and its failure kept in trust().failureCode for the exit code.
Repository OptionalRepository(const Options& options);

}  // namespace qdmcli
