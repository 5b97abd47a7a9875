#include "model/Vocabulary.h"

#include <algorithm>

namespace qdmcli {

const std::vector<ModuleKind>& ModuleKinds() {
    static const std::vector<ModuleKind> kinds = {{kFirmware, "firmware"}, {kDriver, "driver"}, {kUtility, "utility"}};
    return kinds;
}

bool IsModuleKind(const std::string& word) {
    return std::any_of(ModuleKinds().begin(), ModuleKinds().end(),
                       [&](const ModuleKind& kind) { return word == kind.word; });
}

std::string ModuleKindLabel(const std::string& word) {
    for (const ModuleKind& kind : ModuleKinds())
        if (word == kind.word) return kind.label;
    return word;
}

const std::vector<std::string>& ModuleStatuses() {
    static const std::vector<std::string> statuses = {kStatusCurrent,    kStatusOlder,     kStatusNewer,
                                                      kStatusUnreadable, kStatusNoPackage, kStatusNotInstalled};
    return statuses;
}

std::string VersionStatus(const std::string& operating, bool hasPackage, int comparison) {
    if (operating.empty() || operating == "abnormal") return kStatusUnreadable;
    if (!hasPackage) return kStatusNoPackage;
    if (comparison > 0) return kStatusOlder;
    if (comparison < 0) return kStatusNewer;
    return kStatusCurrent;
}

std::string UpdatePlan(const std::string& status, bool hasPackage, bool allowDowngrade) {
    if (!hasPackage) return "none";
    if (status == kStatusOlder || status == kStatusUnreadable) return "update";
    // An older image is wrong software unless the operator asks for it.
    if (status == kStatusNewer) return allowDowngrade ? "downgrade" : "keep-newer";
    return "none";
}

bool PlanRuns(const std::string& plan) { return plan == "update" || plan == "downgrade"; }

const std::vector<std::string>& UtilityCheckResults() {
    static const std::vector<std::string> results = {kUtilityPassed, kUtilityRefused, kNoUtility};
    return results;
}

}  // namespace qdmcli
