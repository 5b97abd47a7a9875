#include <list>

#include "commands/Commands.h"
#include "cli/Console.h"
#include "model/HostError.h"
#include "model/Modules.h"

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
        ports.push_back({{"deviceId", port.deviceId}, {"wwpn", port.wwpn}, {"utilityCheck", verdict}});
    }
    if (!missing.empty()) result.exitCode = WorseExitCode(result.exitCode, kExitMissingComponent);
    result.document = {{"missingComponents", missing},
                       {"repositoryVerified", RepositoryVerifiedJson(repository)},
                       {"ports", ports}};
    return result;
}

}  // namespace qdmcli
