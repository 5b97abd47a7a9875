// qdmhost update [--dry-run]: every selected port's modules, in the vendor's
// update order, brought to the repository's versions. A signal stops the run
// after the step in progress; a missing management utility is installed
// first; the history records each module before anything changes.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <chrono>
#include <functional>
#include <optional>
#include <set>

#include "adapters/InstallRoot.h"
#include "adapters/ShutdownInhibitor.h"
#include "adapters/UtilityInstall.h"
#include "adapters/WorkArea.h"
#include "cli/Command.h"
#include "cli/Console.h"
#include "model/HostError.h"
#include "model/Vocabulary.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"
#include "repository/Staging.h"
#include "repository/Trust.h"
#include "store/AcceptedSerials.h"
#include "store/History.h"
#include "store/UpdateLock.h"
#include "util/InterruptWatch.h"
#include "util/UtcTime.h"

namespace qdmcli {

namespace {

// Outcomes of one module in an update run.
const char kUpdated[] = "updated";
const char kPlanned[] = "planned";
const char kRefused[] = "refused";
const char kFailed[] = "failed";
const char kMismatch[] = "apply-check-mismatch";
const char kInterrupted[] = "interrupted";
const char kInstalled[] = "installed";  // the missing utility, from the repository's package
const char kBlocked[] = "blocked";      // cannot run without the missing utility

int ExitCodeOf(const std::string& outcome) {
    if (outcome == kRefused) return kExitRefused;
    if (outcome == kFailed) return kExitUpdateFailed;
    if (outcome == kMismatch) return kExitApplyCheck;
    if (outcome == kInterrupted) return kExitInterrupted;
    if (outcome == kBlocked) return kExitMissingComponent;
    return kExitOk;
}

// One run's lines in the history: a start before anything changes, a line
// per step, an end with the outcome, all carrying the run's id.
class RunRecord {
public:
    RunRecord(const Options& options, const Provenance& provenance)
        : hostFolder_(options.HostFolder()),
          run_(UtcTimestamp() + "-" + std::to_string(::getpid())),
          provenance_(ProvenanceJson(provenance)) {}

    void Start(const ModuleOutcome& module) const {
        nlohmann::json record = Identity(module, kEventStart);
        record.update(
            {{"time", UtcTimestamp()}, {"from", module.reading.operating}, {"to", module.reading.package.version}});
        record.update(provenance_);
        AppendHistory(hostFolder_, record);
    }

    void Step(const ModuleOutcome& module, const std::string& step) const {
        nlohmann::json record = Identity(module, kEventStep);
        record["step"] = step;
        AppendHistory(hostFolder_, record);
    }

    void End(const ModuleOutcome& module) const {
        nlohmann::json record = ModuleOutcomeJson(module);
        record.erase("seconds");
        record.update(Identity(module, kEventEnd));
        record["time"] = UtcTimestamp();
        record.update(provenance_);
        AppendHistory(hostFolder_, record);
    }

private:
    nlohmann::json Identity(const ModuleOutcome& module, const char* event) const {
        return {{"event", event},
                {"run", run_},
                {"deviceId", module.port.deviceId},
                {"wwpn", module.port.wwpn},
                {"busDevFunc", module.port.busDevFunc},
                {"kind", module.reading.kind}};
    }

    std::string hostFolder_;
    std::string run_;
    nlohmann::json provenance_;
};

std::string TookText(std::chrono::steady_clock::time_point start) {
    char took[32];
    std::snprintf(took, sizeof took, "%.1fs",
                  std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return took;
}

// The host's steps for one module. From pre-update on they run as one: a
// signal that comes later waits for the apply check, so that what was
// written is checked and recorded.
class ModuleUpdate {
public:
    ModuleUpdate(ModuleOutcome& result, const RunRecord& record) : result_(result), record_(record) {}

    void Run() {
        CVendor* vendor = result_.port.vendor;
        const std::string& kind = result_.reading.kind;
        Register();
        const std::vector<std::pair<const char*, std::function<int()>>> steps = {
            {"backup", [&] { return vendor->ExecuteUpdateBackup(kind, "", false); }},
            {"pre-update", [&] { return vendor->ExecutePreUpdate(kind, false); }},
            {"update", [&] { return vendor->ExecuteUpdate(kind, false); }},
        };
        for (const auto& step : steps) {
            if (step.first != std::string("update") && InterruptWatch::Requested()) {
                result_.outcome = kInterrupted;
                return;
            }
            if (RunStep(step.first, step.second) != 0) {
                result_.failedStep = step.first;
                // Leave no cached reading and no progress inside 25..84 behind.
                vendor->ExecuteUpdateRestore(kind, "");
                result_.reading.module->SetUpdateStatus(CModuleManager::STATUS_FAILURE);
                result_.outcome = kFailed;
                return;
            }
        }
        if (RunStep("restore", [&] { return vendor->ExecuteUpdateRestore(kind, ""); }) != 0)
            Warn(result_.port.deviceId + " " + kind + ": the restore step failed; the check may read old values");
        if (RunStep("apply-check", [&] { return vendor->ExecuteUpdateApplyCheck(kind); }) != 0) {
            result_.failedStep = "apply-check";
            result_.outcome = kMismatch;
            return;
        }
        result_.outcome = kUpdated;
    }

private:
    void Register() {
        const ModuleReading& reading = result_.reading;
        CModuleManager* module = reading.module;
        module->InitializeOperatingModuleInfo(reading.operating);
        module->SetPrevVendorVersion(reading.operating);
        module->SetUpdateVersion(reading.package.version);
        // The registered record's version is what the apply check expects.
        module->CheckRegisterUpdateModule(reading.package);
        module->SetUniqueName(reading.package.uniqueName);
    }

    int RunStep(const char* step, const std::function<int()>& action) {
        record_.Step(result_, step);
        result_.interruptedStep = step;
        std::string activity = PciAddressOf(result_.port.deviceId) + " " + result_.reading.kind + " " + step;
        SetActivity(activity);
        auto start = std::chrono::steady_clock::now();
        Progress(activity);
        int status = action();
        Progress(activity + (status == 0 ? " done in " : " FAILED after ") + TookText(start));
        SetActivity("");
        return status;
    }

    ModuleOutcome& result_;
    const RunRecord& record_;
};

// What the plan says for one module read afresh: its status when there is
// nothing to do, refused when the provider's condition check says no, else
// planned. The same decision for --dry-run and for the update.
ModuleOutcome Plan(const Port& port, const ModuleReading& reading) {
    ModuleOutcome result{port, reading, reading.status, std::nullopt, false, "", "", "", 0};
    if (!StatusNeedsUpdate(reading.status) || !reading.hasPackage) return result;
    TakeOperatorMessages();  // what came before belongs to no update
    CManageRepositoryInfo package = reading.package;
    if (port.vendor->CheckUpdateConditionByDevicevendor(reading.kind, &package) != 0) {
        result.outcome = kRefused;
        result.messages = TakeOperatorMessages();
        return result;
    }
    result.outcome = kPlanned;
    return result;
}

// A module the run did not reach: skipped unread.
ModuleOutcome Skipped(const Port& port, const std::string& kind) {
    ModuleOutcome result{port, {}, kInterrupted, std::nullopt, false, "", "", "", 0};
    result.reading.kind = kind;
    return result;
}

Provenance ProvenanceOf(const RepositoryTrust& trust) { return {trust.keyId, trust.serial, trust.unsignedAccepted}; }

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
    CheckNotRolledBack(repository.folder() + "/" + kCatalogueFile, trust.keyId, *trust.serial,
                       serials.Highest(trust.keyId, trust.realPath));
    serials.Accept(trust.keyId, trust.realPath, *trust.serial);
}

// The utility's package for the first port that has one; empty when none.
std::optional<ModuleOutcome> UtilityPackage(const std::vector<Port>& ports, const Repository& repository) {
    for (const Port& port : ports) {
        ModuleOutcome install{port, {}, kPlanned, std::nullopt, false, "", "", "", 0};
        install.reading.kind = kUtility;
        install.reading.status = kStatusNotInstalled;
        install.reading.hasPackage = repository.Find(port.vendor->GetModelKey(), kUtility, &install.reading.package);
        if (install.reading.hasPackage) return install;
    }
    return std::nullopt;
}

// Firmware needs the utility's tool; without it the step cannot run.
void BlockWithoutUtility(ModuleOutcome& result) {
    if (result.reading.kind == kFirmware && result.outcome == kPlanned) result.outcome = kBlocked;
}

// The dry run's plan: the survey in update order, each module decided; a
// missing utility shows as its install, or blocks the firmware steps.
std::vector<ModuleOutcome> PlanAll(std::vector<Port>& ports, const Repository& repository, const Options& options) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kUpdateOrder;
    std::vector<ModuleOutcome> plan;
    const bool missing = !UtilityInstalled();
    std::optional<ModuleOutcome> install = missing ? UtilityPackage(ports, repository) : std::nullopt;
    if (install) plan.push_back(*install);
    for (const PortSurvey& port : SurveyServer(ports, repository, scope, options.root).ports)
        for (const ModuleReading& reading : port.modules) {
            plan.push_back(Plan(port.port, reading));
            if (missing && !install) BlockWithoutUtility(plan.back());
        }
    return plan;
}

// Installs the missing utility from the repository, recorded like a module
// update; answers whether the tool is there now.
bool InstallMissingUtility(ModuleOutcome& install, const Options& options, const RunRecord& record) {
    record.Start(install);
    record.Step(install, "install");
    install.interruptedStep = "install";
    const std::string activity = PciAddressOf(install.port.deviceId) + " util install (missing)";
    SetActivity(activity);
    Progress(activity + " from " + install.reading.package.archivePath);
    std::string why;
    auto start = std::chrono::steady_clock::now();
    const bool installed = InstallUtility(options.root, install.reading.package.archivePath, &why);
    Progress(activity + (installed ? " done in " : " FAILED after ") + TookText(start) + (installed ? "" : ": " + why));
    SetActivity("");
    install.ran = true;
    install.outcome = installed ? kInstalled : kFailed;
    install.failedStep = installed ? "" : "install";
    install.now = installed ? install.reading.package.version : "";
    install.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    record.End(install);
    return installed;
}

// The run itself: modules read afresh just before their turn (an earlier
// update of a host-wide driver or utility, or a sibling function's firmware,
// may have changed them), stopped between modules by a signal.
class Updater {
public:
    Updater(const Options& options, const Repository& repository, const Provenance& provenance)
        : options_(options), repository_(repository), record_(options, provenance) {}

    std::vector<ModuleOutcome> Run(std::optional<Session>& session) {
        if (!UtilityInstalled() && !InterruptWatch::Requested()) {
            std::optional<ModuleOutcome> install = UtilityPackage(session->ports(), repository_);
            if (install) {
                inhibitor_.Hold();
                results_.push_back(*install);
                if (InstallMissingUtility(results_.back(), options_, record_)) session.emplace(options_);  // relink
            }
        }
        const bool blocked = !UtilityInstalled();
        for (const Port& port : session->ports())
            for (const std::string& kind : UpdateOrder(port.vendor)) UpdateOne(port, kind, blocked);
        return results_;
    }

private:
    void UpdateOne(const Port& port, const std::string& kind, bool blocked) {
        if (InterruptWatch::Requested()) {
            results_.push_back(Skipped(port, kind));
            record_.End(results_.back());
            return;
        }
        results_.push_back(Plan(port, ReadModuleAfresh(port, kind, repository_)));
        ModuleOutcome& result = results_.back();
        if (blocked) BlockWithoutUtility(result);
        if (result.outcome != kPlanned) {
            if (ExitCodeOf(result.outcome) != kExitOk) record_.End(result);
            return;
        }
        inhibitor_.Hold();
        auto start = std::chrono::steady_clock::now();
        record_.Start(result);
        ModuleUpdate(result, record_).Run();
        result.ran = result.outcome != kInterrupted;
        if (result.ran) result.interruptedStep.clear();
        result.now = result.reading.module->RefreshOperatingVersionCache();
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        result.messages = TakeOperatorMessages();
        record_.End(result);
    }

    const Options& options_;
    const Repository& repository_;
    RunRecord record_;
    ShutdownInhibitor inhibitor_;
    std::vector<ModuleOutcome> results_;
};

// The provider's unpack folders and result files go when the run ends, on
// an interruption or a failure too.
struct LeftoversCleared {
    explicit LeftoversCleared(const std::string& root) : root(root) { ClearUpdateLeftovers(root); }
    ~LeftoversCleared() { ClearUpdateLeftovers(root); }
    std::string root;
};

Outcome<UpdateRun> RunUpdate(const Options& options) {
    UseInstallRoot(options);
    Repository repository =
        Repository::Load(options.RepositoryFolder(), TrustPolicy{options.HostFolder(), options.allowUnsigned, true});
    if (repository.empty()) throw HostError(kExitRepository, "the repository holds no update package");
    UpdateLock lock(options.root, options.waitSeconds, UpdateLock::Mode::kUpdate);
    std::optional<InterruptWatch> watch;
    if (!options.dryRun) watch.emplace();
    RecoverInterruptedRuns(options.HostFolder());
    LeftoversCleared leftovers(options.root);
    std::optional<Session> session(std::in_place, options);
    StagingArea staging(options.root);
    StageArchives(session->ports(), repository, staging);
    if (!options.dryRun) AcceptSerial(options, repository);
    Outcome<UpdateRun> outcome;
    UpdateRun& run = outcome.result;
    run.dryRun = options.dryRun;
    run.repository = {true, repository.folder(), repository.trust().verified};
    run.provenance = ProvenanceOf(repository.trust());
    run.results = options.dryRun ? PlanAll(session->ports(), repository, options)
                                 : Updater(options, repository, run.provenance).Run(session);
    for (const ModuleOutcome& result : run.results)
        outcome.exitCode = WorseExitCode(outcome.exitCode, ExitCodeOf(result.outcome));
    if (InterruptWatch::Requested()) {
        outcome.exitCode = kExitInterrupted;
        Warn("interrupted by " + InterruptWatch::SignalName() + ": the step in progress was finished; " +
             "run `qdmhost update` again to do the rest");
    }
    return outcome;
}

void AddUpdateOptions(CLI::App& command, Options& options) {
    command.add_flag("--dry-run", options.dryRun, "show the plan only");
}

}  // namespace

Command UpdateCommand() {
    return MakeCommand<UpdateRun>("update", "bring every module to the repository version", AddUpdateOptions, RunUpdate,
                                  UpdateJson, UpdateText);
}

}  // namespace qdmcli
