#include "Modules.h"

#include <sys/stat.h>

#include "ChannelConfig.h"
#include "Console.h"
#include "HostError.h"

namespace qdmcli {

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

std::vector<std::string> UpdateOrder(CVendor* vendor) {
    std::vector<std::string> kinds;
    for (int place = CVendor::ORDER_FIRST; place <= CVendor::ORDER_THIRD; ++place) {
        std::string kind = vendor->GetUpdateOrderModuleKind(static_cast<CVendor::UPDATE_ORDER>(place), false);
        if (IsModuleKind(kind)) kinds.push_back(kind);
    }
    return kinds;
}

ModuleReading ReadModule(const Port& port, const std::string& kind, const Repository& repository) {
    ModuleReading reading;
    reading.kind = kind;
    reading.module = port.vendor->FindModule(kind);
    reading.hasPackage = repository.Find(port.vendor->GetModelKey(), kind, &reading.package);
    reading.repositoryVerified = repository.trust().verified;
    if (!reading.module) {
        reading.status = kStatusNotInstalled;
        return reading;
    }
    reading.operating = reading.module->RefreshOperatingVersionCache();
    int comparison = reading.hasPackage && reading.operating != "abnormal"
                         ? reading.module->CheckVendorVersion(reading.operating, reading.package.version)
                         : 0;
    reading.status = VersionStatus(reading.operating, reading.hasPackage, comparison);
    return reading;
}

nlohmann::json RepositoryVerifiedJson(const Repository& repository) {
    return repository.folder().empty() ? nlohmann::json(nullptr) : nlohmann::json(repository.trust().verified);
}

nlohmann::json RepositoryProblemJson(const Repository& repository) {
    const RepositoryTrust& trust = repository.trust();
    if (trust.problem.empty()) return nullptr;
    return {{"reason", trust.problem}, {"message", trust.message}};
}

nlohmann::json ModuleJson(const ModuleReading& reading, bool allowDowngrade) {
    nlohmann::json module = {{"kind", reading.kind}, {"status", reading.status},
                             {"plan", UpdatePlan(reading.status, reading.hasPackage, allowDowngrade)}};
    module["operating"] = reading.module ? nlohmann::json(reading.operating) : nlohmann::json(nullptr);
    module["repository"] = reading.hasPackage ? nlohmann::json(reading.package.version) : nlohmann::json(nullptr);
    // Marks only what is doubtful, as the table does.
    if (reading.hasPackage && !reading.repositoryVerified) module["repositoryVerified"] = false;
    return module;
}

Repository OptionalRepository(const Options& options) {
    struct stat info;
    if (options.repository.empty() && ::stat(options.RepositoryFolder().c_str(), &info) != 0) return Repository();
    try {
        return Repository::Load(options.RepositoryFolder(), TrustPolicy{options.HostFolder(), ReadChannel(options.HostFolder()),
                                                                        options.allowUnsigned, false});
    } catch (const HostError& error) {
        if (error.code() != kExitRepository && error.code() != kExitUntrusted) throw;
        Warn(std::string(error.what()) + "; the adapters are read without the repository");
        RepositoryTrust trust;
        trust.problem = error.reason().empty() ? DescribeExitCode(error.code()).name : error.reason();
        trust.message = error.what();
        trust.failureCode = error.code();
        return Repository(options.RepositoryFolder(), {}, trust);
    }
}

}  // namespace qdmcli
