#include <list>

#include "Commands.h"
#include "Console.h"
#include "HostError.h"
#include "Modules.h"

namespace qdmcli {

namespace {

// Components are host-wide: the first port answers for all.
nlohmann::json MissingComponents(const Port& port) {
    std::list<CNecessaryComponentInfo> missing;
    port.vendor->GetShortageOfNecessaryApplicationInfo(missing);
    nlohmann::json names = nlohmann::json::array();
    for (const CNecessaryComponentInfo& component : missing) names.push_back(component.componentName);
    return names;
}

// What an update would do with each module of the port, in update order.
nlohmann::json Plans(const Port& port, const Repository& repository, bool allowDowngrade) {
    nlohmann::json plans = nlohmann::json::object();
    for (const std::string& kind : UpdateOrder(port.vendor)) {
        const ModuleReading reading = ReadModule(port, kind, repository);
        plans[kind] = UpdatePlan(reading.status, reading.hasPackage, allowDowngrade);
    }
    return plans;
}

}  // namespace

std::string UtilityCheck(const Port& port, const Repository& repository) {
    if (!port.vendor->FindModule("util")) return "no-utility";
    CManageRepositoryInfo package;
    repository.Find(port.vendor->GetModelKey(), "util", &package);
    return port.vendor->CheckUpdateConditionByDevicevendor("util", &package) == 0 ? "passed" : "refused";
}

CommandResult RunCheck(const Options& options) {
    UseInstallRoot(options);
    Repository repository = OptionalRepository(options);
    Session session(options);
    CommandResult result;
    nlohmann::json missing = MissingComponents(session.ports().front());
    nlohmann::json ports = nlohmann::json::array();
    for (const Port& port : session.ports()) {
        std::string verdict = UtilityCheck(port, repository);
        if (verdict == "refused") result.exitCode = WorseExitCode(result.exitCode, kExitRefused);
        ports.push_back({{"deviceId", port.deviceId}, {"wwpn", port.wwpn}, {"utilityCheck", verdict},
                         {"plans", Plans(port, repository, options.allowDowngrade)}});
    }
    if (!missing.empty()) result.exitCode = WorseExitCode(result.exitCode, kExitMissingComponent);
    result.exitCode = WorseExitCode(result.exitCode, repository.trust().failureCode);
    result.document = {{"missingComponents", missing},
                       {"repositoryVerified", RepositoryVerifiedJson(repository)},
                       {"repositoryProblem", RepositoryProblemJson(repository)},
                       {"ports", ports}};
    return result;
}

}  // namespace qdmcli
