#include "model/ServerSurvey.h"

#include <list>

#include "adapters/ConfigReport.h"
#include "adapters/PathReader.h"
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

std::vector<ModuleReading> ReadModules(const Port& port, const Repository& repository, const SurveyScope& scope) {
    std::vector<std::string> kinds;
    if (scope.modules == SurveyScope::Modules::kInventory)
        for (const ModuleKind& kind : ModuleKinds()) kinds.push_back(kind.word);
    if (scope.modules == SurveyScope::Modules::kUpdateOrder) kinds = UpdateOrder(port.vendor);
    std::vector<ModuleReading> readings;
    for (const std::string& kind : kinds) {
        readings.push_back(scope.afresh ? ReadModuleAfresh(port, kind, repository)
                                        : ReadModule(port, kind, repository));
        readings.back().plan = UpdatePlan(readings.back().status, readings.back().hasPackage, scope.allowDowngrade);
    }
    return readings;
}

// The firmware module compares boot BIOS versions too: they follow the
// firmware's format on each adapter generation.
void RateBootBios(PortSurvey& port, const Repository& repository) {
    const CatalogueEntry* entry = repository.EntryFor(port.modelKey, kFirmware);
    port.bootBiosRepository = entry ? entry->bootBios : "";
    const std::string operating = port.bootBios.empty() ? "abnormal" : port.bootBios;
    CModuleManager* firmware = port.port.vendor->FindModule(kFirmware);
    const bool hasPackage = !port.bootBiosRepository.empty() && firmware;
    const int comparison =
        hasPackage && operating != "abnormal" ? firmware->CheckVendorVersion(operating, port.bootBiosRepository) : 0;
    port.bootBiosStatus = VersionStatus(operating, hasPackage, comparison);
}

}  // namespace

RepositoryState StateOf(const Repository& repository) {
    const RepositoryTrust& trust = repository.trust();
    return {!repository.folder().empty(),
            repository.folder(),
            trust.verified,
            trust.unsignedAccepted,
            trust.problem,
            trust.message,
            trust.failureCode};
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

// Without the utility's tool no firmware step can run: update installs the
// tool first from the repository's package, or, with none, cannot flash.
void PlanWithoutUtility(const std::vector<Port>& ports, const Repository& repository, ServerSurvey& survey) {
    for (const Port& port : ports)
        if (repository.Find(port.vendor->GetModelKey(), kUtility, &survey.utilityInstall)) return;
    for (PortSurvey& port : survey.ports)
        for (ModuleReading& reading : port.modules)
            if (reading.kind == kFirmware && PlanRuns(reading.plan)) reading.plan = kPlanBlocked;
}

ServerSurvey SurveyServer(std::vector<Port>& ports, const Repository& repository, const SurveyScope& scope,
                          const std::string& root) {
    ServerSurvey survey;
    survey.repository = StateOf(repository);
    if (scope.missingComponents && !ports.empty()) survey.missingComponents = MissingComponents(ports.front());
    for (const Port& port : ports)
        survey.ports.push_back(
            {port, port.vendor->GetModelKey(), ReadModules(port, repository, scope), "", "", "", ""});
    if (!UtilityInstalled()) PlanWithoutUtility(ports, repository, survey);
    if (scope.bootBios) {
        std::vector<std::string> bootBios = BootBiosVersions(ports, root);
        for (std::size_t i = 0; i < ports.size(); ++i) {
            survey.ports[i].bootBios = bootBios[i];
            RateBootBios(survey.ports[i], repository);
        }
    }
    if (scope.utilityCheck)
        for (PortSurvey& port : survey.ports) port.utilityCheck = UtilityCheck(port.port, repository);
    if (scope.paths) survey.paths = SurveyPaths(ports, root);
    return survey;
}

}  // namespace qdmcli
