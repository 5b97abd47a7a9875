#include "model/ServerSurvey.h"

#include <list>

#include "adapters/ConfigReport.h"
#include "adapters/UtilityInstall.h"
#include "model/Vocabulary.h"

namespace qdmcli {

namespace {

std::vector<std::string> MissingComponents(const Port& port) {
    std::list<CNecessaryComponentInfo> missing;
    port.vendor->GetShortageOfNecessaryApplicationInfo(missing);
    std::vector<std::string> names;
    for (const CNecessaryComponentInfo& component : missing) names.push_back(component.componentName);
    return names;
}

std::vector<ModuleReading> ReadModules(const Port& port, const Repository& repository, SurveyScope::Modules which) {
    std::vector<ModuleReading> readings;
    if (which == SurveyScope::Modules::kInventory)
        for (const ModuleKind& kind : ModuleKinds()) readings.push_back(ReadModule(port, kind.word, repository));
    if (which == SurveyScope::Modules::kUpdateOrder)
        for (const std::string& kind : UpdateOrder(port.vendor))
            readings.push_back(ReadModuleAfresh(port, kind, repository));
    return readings;
}

}  // namespace

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

// The restore step drops the module's result files and cached readings.
ModuleReading ReadModuleAfresh(const Port& port, const std::string& kind, const Repository& repository) {
    if (port.vendor->FindModule(kind)) port.vendor->ExecuteUpdateRestore(kind, "");
    return ReadModule(port, kind, repository);
}

std::string UtilityCheck(const Port& port, const Repository& repository) {
    if (!port.vendor->FindModule(kUtility)) return kNoUtility;
    CManageRepositoryInfo package;
    repository.Find(port.vendor->GetModelKey(), kUtility, &package);
    return port.vendor->CheckUpdateConditionByDevicevendor(kUtility, &package) == 0 ? kUtilityPassed : kUtilityRefused;
}

ServerSurvey SurveyServer(std::vector<Port>& ports, const Repository& repository, const SurveyScope& scope,
                          const std::string& root) {
    ServerSurvey survey;
    survey.repository = {!repository.empty(), repository.folder(), repository.trust().verified};
    if (scope.missingComponents && !ports.empty()) survey.missingComponents = MissingComponents(ports.front());
    if (scope.missingComponents && !UtilityInstalled())
        for (const Port& port : ports)
            if (repository.Find(port.vendor->GetModelKey(), kUtility, &survey.utilityInstall)) break;
    for (const Port& port : ports)
        survey.ports.push_back(
            {port, port.vendor->GetModelKey(), ReadModules(port, repository, scope.modules), "", ""});
    if (scope.bootBios) {
        std::vector<std::string> bootBios = BootBiosVersions(ports, root);
        for (std::size_t i = 0; i < ports.size(); ++i) survey.ports[i].bootBios = bootBios[i];
    }
    if (scope.utilityCheck)
        for (PortSurvey& port : survey.ports) port.utilityCheck = UtilityCheck(port.port, repository);
    return survey;
}

}  // namespace qdmcli
