#include <chrono>
#include <functional>
#include <set>

#include "commands/Commands.h"
#include "cli/Console.h"
#include "model/HostError.h"
#include "store/History.h"
#include "model/Modules.h"
#include "repository/Staging.h"
#include "repository/Trust.h"
#include "store/UpdateLock.h"

namespace qdmcli {

namespace {

// Outcomes of one module in an update run.
const char kUpdated[] = "updated";
const char kPlanned[] = "planned";
const char kRefused[] = "refused";
const char kFailed[] = "failed";
const char kMismatch[] = "apply-check-mismatch";

int ExitCodeOf(const std::string& outcome) {
    if (outcome == kRefused) return kExitRefused;
    if (outcome == kFailed) return kExitUpdateFailed;
    if (outcome == kMismatch) return kExitApplyCheck;
    return kExitOk;
}

// The restore step drops the module's result files and cached readings; run
// before deciding, it makes the decision read the adapter afresh, so that a
// host-wide component (driver, utility) updated through an earlier port, or
// firmware flashed through a sibling function, is seen as it now is.
void DropCachedReadings(CVendor* vendor, const std::string& kind) {
    if (vendor->FindModule(kind)) vendor->ExecuteUpdateRestore(kind, "");
}

nlohmann::json MessagesJson(const std::vector<OperatorMessage>& messages) {
    nlohmann::json list = nlohmann::json::array();
    for (const OperatorMessage& message : messages) list.push_back({{"id", message.id}, {"text", message.text}});
    return list;
}

class ModuleUpdate {
public:
    ModuleUpdate(const Port& port, const ModuleReading& reading) : port_(port), reading_(reading) {}

    // Runs the host steps; answers the outcome, *failedStep names a failed step.
    std::string Run(std::string* failedStep) {
        CVendor* vendor = port_.vendor;
        const std::string& kind = reading_.kind;
        Register();
        const std::vector<std::pair<const char*, std::function<int()>>> steps = {
            {"backup", [&] { return vendor->ExecuteUpdateBackup(kind, "", false); }},
            {"pre-update", [&] { return vendor->ExecutePreUpdate(kind, false); }},
            {"update", [&] { return vendor->ExecuteUpdate(kind, false); }},
        };
        for (const auto& step : steps) {
            if (RunStep(step.first, step.second) != 0) {
                *failedStep = step.first;
                // Leave no cached reading and no progress inside 25..84 behind.
                vendor->ExecuteUpdateRestore(kind, "");
                reading_.module->SetUpdateStatus(CModuleManager::STATUS_FAILURE);
                return kFailed;
            }
        }
        if (RunStep("restore", [&] { return vendor->ExecuteUpdateRestore(kind, ""); }) != 0)
            Warn(port_.deviceId + " " + kind + ": the restore step failed; the check may read old values");
        if (RunStep("apply-check", [&] { return vendor->ExecuteUpdateApplyCheck(kind); }) != 0) {
            *failedStep = "apply-check";
            return kMismatch;
        }
        return kUpdated;
    }

private:
    void Register() {
        CModuleManager* module = reading_.module;
        module->InitializeOperatingModuleInfo(reading_.operating);
        module->SetPrevVendorVersion(reading_.operating);
        module->SetUpdateVersion(reading_.package.version);
        // The registered record's version is what the apply check expects.
        module->CheckRegisterUpdateModule(reading_.package);
        module->SetUniqueName(reading_.package.uniqueName);
    }

    int RunStep(const char* step, const std::function<int()>& action) {
        std::string activity = port_.deviceId.substr(0, port_.deviceId.find('-')) + " " + reading_.kind + " " + step;
        SetActivity(activity);
        auto start = std::chrono::steady_clock::now();
        Progress(activity);
        int result = action();
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        char took[32];
        std::snprintf(took, sizeof took, "%.1fs", seconds);
        Progress(activity + (result == 0 ? " done in " : " FAILED after ") + took);
        SetActivity("");
        return result;
    }

    const Port& port_;
    const ModuleReading& reading_;
};

nlohmann::json ResultJson(const Port& port, const ModuleReading& reading, const std::string& outcome) {
    return {{"deviceId", port.deviceId},   {"wwpn", port.wwpn},       {"busDevFunc", port.busDevFunc},
            {"kind", reading.kind},        {"outcome", outcome},      {"from", reading.operating},
            {"to", reading.hasPackage ? nlohmann::json(reading.package.version) : nlohmann::json(nullptr)}};
}

nlohmann::json UpdatePortModule(const Port& port, const std::string& kind, const Repository& repository,
                                 const Options& options) {
    DropCachedReadings(port.vendor, kind);
    ModuleReading reading = ReadModule(port, kind, repository);
    if (!StatusNeedsUpdate(reading.status) || !reading.hasPackage) return ResultJson(port, reading, reading.status);
    TakeOperatorMessages();  // what came before belongs to no update
    CManageRepositoryInfo package = reading.package;
    if (port.vendor->CheckUpdateConditionByDevicevendor(kind, &package) != 0) {
        nlohmann::json result = ResultJson(port, reading, kRefused);
        result["messages"] = MessagesJson(TakeOperatorMessages());
        return result;
    }
    if (options.dryRun) return ResultJson(port, reading, kPlanned);
    auto start = std::chrono::steady_clock::now();
    std::string failedStep;
    std::string outcome = ModuleUpdate(port, reading).Run(&failedStep);
    nlohmann::json result = ResultJson(port, reading, outcome);
    result["now"] = reading.module->RefreshOperatingVersionCache();
    result["failedStep"] = failedStep.empty() ? nlohmann::json(nullptr) : nlohmann::json(failedStep);
    result["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result["messages"] = MessagesJson(TakeOperatorMessages());
    return result;
}

// Which key vouched for the update and which catalogue it came from.
nlohmann::json Provenance(const RepositoryTrust& trust) {
    nlohmann::json provenance = {
        {"keyId", trust.keyId.empty() ? nlohmann::json(nullptr) : nlohmann::json(trust.keyId)},
        {"catalogueSerial", trust.serial ? nlohmann::json(*trust.serial) : nlohmann::json(nullptr)}};
    if (trust.unsignedAccepted) provenance["unsigned"] = true;
    return provenance;
}

void RecordHistory(const Options& options, nlohmann::json result, const RepositoryTrust& trust) {
    result.erase("seconds");
    result["time"] = UtcTimestamp();
    result.update(Provenance(trust));
    AppendHistory(options.HostFolder(), result);
}

// Every archive the selected ports could be updated from is staged and
// checked before the first module runs, so a mismatch refuses the whole
// update with nothing done.
void StageArchives(const std::vector<Port>& ports, Repository& repository, StagingArea& staging) {
    std::set<const CatalogueEntry*> entries;
    for (const Port& port : ports)
        for (const std::string& kind : UpdateOrder(port.vendor))
            if (const CatalogueEntry* entry = repository.EntryFor(port.vendor->GetModelKey(), kind))
                entries.insert(entry);
    for (const CatalogueEntry* entry : entries)
        repository.UseStagedCopy(entry->archive, staging.Stage(repository.folder(), *entry));
}

// Checked again under the lock: another run may have accepted a newer catalogue since loading.
void AcceptSerial(const Options& options, const Repository& repository) {
    const RepositoryTrust& trust = repository.trust();
    if (trust.keyId.empty() || !trust.serial) return;
    AcceptedSerials serials(options.HostFolder());
    serials.CheckNotRolledBack(repository.folder() + "/" + kCatalogueFile, trust.keyId, trust.realPath, *trust.serial);
    serials.Accept(trust.keyId, trust.realPath, *trust.serial);
}

}  // namespace

CommandResult RunUpdate(const Options& options) {
    UseInstallRoot(options);
    Repository repository =
        Repository::Load(options.RepositoryFolder(), TrustPolicy{options.HostFolder(), options.allowUnsigned, true});
    if (repository.empty()) throw HostError(kExitRepository, "the repository holds no update package");
    UpdateLock lock(options.root, options.waitSeconds);
    Session session(options);
    StagingArea staging(options.root);
    StageArchives(session.ports(), repository, staging);
    if (!options.dryRun) AcceptSerial(options, repository);
    CommandResult result;
    nlohmann::json results = nlohmann::json::array();
    for (const Port& port : session.ports()) {
        for (const std::string& kind : UpdateOrder(port.vendor)) {
            nlohmann::json moduleResult = UpdatePortModule(port, kind, repository, options);
            std::string outcome = moduleResult["outcome"];
            result.exitCode = WorseExitCode(result.exitCode, ExitCodeOf(outcome));
            if (!options.dryRun && (outcome == kUpdated || ExitCodeOf(outcome) != kExitOk))
                RecordHistory(options, moduleResult, repository.trust());
            results.push_back(std::move(moduleResult));
        }
    }
    result.document = {{"dryRun", options.dryRun},
                       {"repositoryVerified", RepositoryVerifiedJson(repository)},
                       {"results", results}};
    result.document.update(Provenance(repository.trust()));
    return result;
}

}  // namespace qdmcli
