#include "model/Modules.h"

#include <sys/stat.h>

#include "cli/Console.h"

namespace qdmcli {

std::string VersionStatus(const std::string& operating, bool hasPackage, int comparison) {
    if (operating.empty() || operating == "abnormal") return kStatusUnreadable;
    if (!hasPackage) return kStatusNoPackage;
    if (comparison > 0) return kStatusOlder;
    if (comparison < 0) return kStatusNewer;
    return kStatusCurrent;
}

bool StatusNeedsUpdate(const std::string& status) {
    return status == kStatusOlder || status == kStatusNewer || status == kStatusUnreadable;
}

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
    return repository.empty() ? nlohmann::json(nullptr) : nlohmann::json(repository.trust().verified);
}

nlohmann::json ModuleJson(const ModuleReading& reading) {
    nlohmann::json module = {{"kind", reading.kind}, {"status", reading.status}};
    module["operating"] = reading.module ? nlohmann::json(reading.operating) : nlohmann::json(nullptr);
    module["repository"] = reading.hasPackage ? nlohmann::json(reading.package.version) : nlohmann::json(nullptr);
    // Marks only what is doubtful, as the table does.
    if (reading.hasPackage && !reading.repositoryVerified) module["repositoryVerified"] = false;
    return module;
}

Repository OptionalRepository(const Options& options) {
    struct stat info;
    if (options.repository.empty() && ::stat(options.RepositoryFolder().c_str(), &info) != 0) return Repository();
    return Repository::Load(options.RepositoryFolder(),
                            TrustPolicy{options.HostFolder(), options.allowUnsigned, false});
}

}  // namespace qdmcli
