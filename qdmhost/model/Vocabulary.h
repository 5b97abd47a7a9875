#pragma once
// The words of qdmhost's documents, each defined once: module kinds, a
// module's status against the repository and the utility check's result.
// Scripts and the schemas rely on them.
#include <string>
#include <vector>

namespace qdmcli {

struct ModuleKind {
    const char* word;   // the host contract's module kind
    const char* label;  // the tables' column text
};

// firm, driver, util: the order of the inventory and the report.
const std::vector<ModuleKind>& ModuleKinds();
bool IsModuleKind(const std::string& word);
// "firmware", "driver", "utility"; the word itself when unknown (a hostile history line).
std::string ModuleKindLabel(const std::string& word);

const char kFirmware[] = "firm";
const char kDriver[] = "driver";
const char kUtility[] = "util";

const char kStatusCurrent[] = "current";
const char kStatusOlder[] = "older";  // the repository is newer
const char kStatusNewer[] = "newer";  // the adapter is newer than the repository
const char kStatusUnreadable[] = "unreadable";
const char kStatusNoPackage[] = "no-package";
const char kStatusNotInstalled[] = "not-installed";
// Every status, in the order of the metrics.
const std::vector<std::string>& ModuleStatuses();

// The verdict for an operating version. `comparison` is the module's own
// CheckVendorVersion(operating, repository): positive when the repository
// is newer. It answers 0 for malformed texts too, so "abnormal" (the
// provider's unreadable sentinel) and an empty text are decided first.
std::string VersionStatus(const std::string& operating, bool hasPackage, int comparison);
// What an update would do with a module of this status: "update" (older or
// unreadable), "downgrade" (newer, only when allowed), "keep-newer" (newer:
// left alone) or "none" (current, or nothing to update from); the survey
// makes a firmware's "update" kPlanBlocked when the utility's tool is
// missing and the repository cannot install it.
std::string UpdatePlan(const std::string& status, bool hasPackage, bool allowDowngrade);
const char kPlanBlocked[] = "blocked";
bool PlanRuns(const std::string& plan);

const char kUtilityPassed[] = "passed";
const char kUtilityRefused[] = "refused";
const char kNoUtility[] = "no-utility";
// Every result of the utility configuration check, in the order of the metrics.
const std::vector<std::string>& UtilityCheckResults();

}  // namespace qdmcli
