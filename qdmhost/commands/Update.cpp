// qdmhost update [--dry-run]: every selected port's modules, in the vendor's
// update order, brought to the repository's versions. A signal stops the run
// after the step in progress; a missing management utility is installed
// first; the history records each module before anything changes.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <set>

#include "adapters/InstallRoot.h"
#include "adapters/PathReader.h"
#include "adapters/ShutdownInhibitor.h"
#include "adapters/UpdateLeftovers.h"
#include "adapters/UtilityInstall.h"
#include "cli/Cli.h"
#include "cli/Command.h"
#include "cli/Console.h"
#include "commands/FirmwareGuard.h"
#include "model/HostError.h"
#include "model/Vocabulary.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"
#include "repository/ChannelConfig.h"
#include "repository/Staging.h"
#include "repository/Trust.h"
#include "store/ChannelSerials.h"
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

// A module's entry with the outcome given and nothing run.
ModuleOutcome OutcomeOf(const Port& port, const ModuleReading& reading, const std::string& outcome) {
    return {port, reading, outcome, "", false, std::nullopt, false, "", "", "", 0, {}, false, {}, {}};
}

// What the plan says for one module read afresh: its status when there is
// nothing to do, refused when the provider's condition check says no, else
// planned, unless the multipath guard refuses a firmware. The same decision
// for --dry-run and for the update.
ModuleOutcome Plan(const Port& port, const ModuleReading& reading, FirmwareGuard& guard) {
    ModuleOutcome result = OutcomeOf(port, reading, reading.plan == kPlanBlocked ? kBlocked : reading.status);
    if (!PlanRuns(reading.plan)) return result;
    if (port.badWwpn) {
        result.outcome = kRefused;
        result.reason = "bad-wwpn";
        return result;
    }
    TakeOperatorMessages();  // what came before belongs to no update
    CManageRepositoryInfo package = reading.package;
    if (port.vendor->CheckUpdateConditionByDevicevendor(reading.kind, &package) != 0) {
        result.outcome = kRefused;
        result.messages = TakeOperatorMessages();
        return result;
    }
    result.outcome = kPlanned;
    result.downgrade = reading.plan == "downgrade";
    if (reading.kind == kFirmware) guard.Judge(port, result);
    return result;
}

// A module the run did not reach: skipped unread.
ModuleOutcome Skipped(const Port& port, const std::string& kind) {
    ModuleOutcome result = OutcomeOf(port, {}, kInterrupted);
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

// Checked again under the lock, just before the first module runs: the
// catalogue may have expired while this run waited, the server's channel
// changed, or another run accepted a newer catalogue since loading.
void RecheckUnderLock(const Options& options, const Repository& repository) {
    const RepositoryTrust& trust = repository.trust();
    const std::string path = repository.folder() + "/" + kCatalogueFile;
    if (trust.expiresAt) CheckNotExpired(path, trust.expires, *trust.expiresAt, std::time(nullptr));
    CheckChannel(path, trust.channel, ReadChannel(options.HostFolder()));
    if (trust.keyId.empty() || !trust.serial) return;
    ChannelSerials serials(options.HostFolder());
    serials.CheckNotRolledBack(path, trust.channel, *trust.serial);
    if (!options.dryRun) serials.Accept(trust.channel, *trust.serial);
}

bool IsHostWide(const std::string& kind) { return kind == kDriver || kind == kUtility; }

// Whether LATER, a host-wide module's entry for another port, says nothing
// that EARLIER does not: the same decision from the same version, or current
// because EARLIER updated or installed it. Refusals, runs and interruptions
// stay per port.
bool Repeats(const ModuleOutcome& earlier, const ModuleOutcome& later) {
    static const std::set<std::string> perPort = {kUpdated, kRefused, kFailed, kMismatch, kInterrupted, kInstalled};
    if (earlier.reading.kind != later.reading.kind) return false;
    if (earlier.outcome == kUpdated || earlier.outcome == kInstalled) return later.outcome == kStatusCurrent;
    return earlier.outcome == later.outcome && !perPort.count(later.outcome) &&
           earlier.reading.operating == later.reading.operating;
}

// A host-wide module is installed once: its entries for further ports are
// folded into the first, which lists every port that shares it.
std::vector<ModuleOutcome> FoldHostWide(std::vector<ModuleOutcome> results) {
    std::vector<ModuleOutcome> folded;
    for (ModuleOutcome& result : results) {
        if (!IsHostWide(result.reading.kind)) {
            folded.push_back(std::move(result));
            continue;
        }
        auto first = std::find_if(folded.begin(), folded.end(), [&](const ModuleOutcome& earlier) {
            return !earlier.sharedBy.empty() && Repeats(earlier, result);
        });
        if (first != folded.end()) {
            first->sharedBy.push_back(result.port.deviceId);
            continue;
        }
        result.sharedBy = {result.port.deviceId};
        folded.push_back(std::move(result));
    }
    return folded;
}

// The utility's package for the first port that has one; empty when none.
std::optional<ModuleOutcome> UtilityPackage(const std::vector<Port>& ports, const Repository& repository) {
    for (const Port& port : ports) {
        ModuleOutcome install = OutcomeOf(port, {}, kPlanned);
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
// missing utility shows as its install (or, the survey says, blocks the
// firmware steps).
std::vector<ModuleOutcome> PlanAll(std::vector<Port>& ports, const Repository& repository, const Options& options,
                                   FirmwareGuard& guard) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kUpdateOrder;
    scope.afresh = true;
    scope.allowDowngrade = options.allowDowngrade;
    std::vector<ModuleOutcome> plan;
    std::optional<ModuleOutcome> install = UtilityInstalled() ? std::nullopt : UtilityPackage(ports, repository);
    if (install) plan.push_back(*install);
    for (const PortSurvey& port : SurveyServer(ports, repository, scope, options.root).ports)
        for (const ModuleReading& reading : port.modules) plan.push_back(Plan(port.port, reading, guard));
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
    install.interruptedStep.clear();
    install.now = installed ? install.reading.package.version : "";
    install.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    record.End(install);
    return installed;
}

// The run itself: modules read afresh just before their turn (an earlier
// update of a host-wide driver or utility, or a sibling function's firmware,
// may have changed them), stopped between modules by a signal. After a flash
// the adapter's paths must come back before anything else runs: else the run
// stops, so that a bad image cannot take the next adapter's paths too.
class Updater {
public:
    Updater(const Options& options, const Repository& repository, FirmwareGuard& guard, UpdateRun& run)
        : options_(options), repository_(repository), guard_(guard), run_(run), record_(options, run.provenance) {}

    void Run(std::optional<Session>& session) {
        if (!UtilityInstalled() && !InterruptWatch::Requested()) InstallUtilityFirst(session);
        const bool blocked = !UtilityInstalled();
        for (const Port& port : session->ports())
            for (const std::string& kind : UpdateOrder(port.vendor))
                if (!UpdateOne(port, kind, blocked)) return;
    }

private:
    void InstallUtilityFirst(std::optional<Session>& session) {
        std::optional<ModuleOutcome> install = UtilityPackage(session->ports(), repository_);
        if (!install) return;
        inhibitor_.Hold();
        run_.results.push_back(*install);
        // The provider links the utility module to each port when it finds the tool.
        if (InstallMissingUtility(run_.results.back(), options_, record_)) session.emplace(options_);
    }

    // False when the run must stop: the adapter's paths did not come back.
    bool UpdateOne(const Port& port, const std::string& kind, bool blocked) {
        if (InterruptWatch::Requested()) {
            run_.results.push_back(Skipped(port, kind));
            record_.End(run_.results.back());
            return true;
        }
        ModuleReading reading = ReadModuleAfresh(port, kind, repository_);
        reading.plan = UpdatePlan(reading.status, reading.hasPackage, options_.allowDowngrade);
        run_.results.push_back(Plan(port, reading, guard_));
        ModuleOutcome& result = run_.results.back();
        if (blocked) BlockWithoutUtility(result);
        if (result.outcome != kPlanned) {
            if (ExitCodeOf(result.outcome) != kExitOk) record_.End(result);
            return true;
        }
        Apply(result);
        if (kind == kFirmware && result.ran) result.pathsNotRestored = guard_.AwaitPaths(port);
        record_.End(result);
        if (result.pathsNotRestored.empty()) return true;
        run_.stopped =
            RunStop{kReasonPathsNotRestored, AdapterOf(PciAddressOf(port.deviceId)), result.pathsNotRestored};
        Warn("stopped: the paths of " + run_.stopped->adapter + " did not come back within " +
             std::to_string(options_.pathWaitSeconds) + "s");
        return false;
    }

    void Apply(ModuleOutcome& result) {
        inhibitor_.Hold();
        auto start = std::chrono::steady_clock::now();
        record_.Start(result);
        ModuleUpdate(result, record_).Run();
        result.ran = result.outcome != kInterrupted;
        if (result.ran) result.interruptedStep.clear();
        result.now = result.reading.module->RefreshOperatingVersionCache();
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        result.messages = TakeOperatorMessages();
    }

    const Options& options_;
    const Repository& repository_;
    FirmwareGuard& guard_;
    UpdateRun& run_;
    RunRecord record_;
    ShutdownInhibitor inhibitor_;
};

// The provider's unpack folders and result files go when the run ends, on
// an interruption or a failure too.
struct LeftoversCleared {
    explicit LeftoversCleared(const std::string& root) : root(root) { ClearUpdateLeftovers(root); }
    ~LeftoversCleared() { ClearUpdateLeftovers(root); }
    LeftoversCleared(const LeftoversCleared&) = delete;
    LeftoversCleared& operator=(const LeftoversCleared&) = delete;
    std::string root;
};

Outcome<UpdateRun> RunUpdate(const Options& options) {
    UseInstallRoot(options);
    Repository repository = Repository::Load(
        options.RepositoryFolder(),
        TrustPolicy{options.HostFolder(), ReadChannel(options.HostFolder()), options.allowUnsigned, true});
    if (repository.empty()) throw HostError(kExitRepository, "the repository holds no update package");
    UpdateLock lock(options.root, options.waitSeconds, UpdateLock::Mode::kUpdate);
    std::optional<InterruptWatch> watch;
    if (!options.dryRun) watch.emplace();
    RecoverInterruptedRuns(options.HostFolder());
    LeftoversCleared leftovers(options.root);
    std::optional<Session> session(std::in_place, options);
    StagingArea staging(options.root);
    StageArchives(session->ports(), repository, staging);
    RecheckUnderLock(options, repository);
    Outcome<UpdateRun> outcome;
    UpdateRun& run = outcome.result;
    run.dryRun = options.dryRun;
    run.repository = StateOf(repository);
    run.provenance = ProvenanceOf(repository.trust());
    FirmwareGuard guard(options, SurveyPaths(session->ports(), options.root));
    run.paths = guard.firstLook();
    if (options.dryRun)
        run.results = PlanAll(session->ports(), repository, options, guard);
    else
        Updater(options, repository, guard, run).Run(session);
    for (const ModuleOutcome& result : run.results)
        outcome.exitCode = WorseExitCode(outcome.exitCode, ExitCodeOf(result.outcome));
    if (run.stopped) outcome.exitCode = WorseExitCode(outcome.exitCode, kExitUpdateFailed);
    if (InterruptWatch::Requested()) {
        outcome.exitCode = kExitInterrupted;
        Warn("interrupted by " + InterruptWatch::SignalName() + ": the step in progress was finished; " +
             "run `qdmhost update` again to do the rest");
    }
    run.results = FoldHostWide(std::move(run.results));
    return outcome;
}

void AddUpdateOptions(CLI::App& command, Options& options) {
    command.add_flag("--dry-run", options.dryRun, "show the plan only");
    command.add_flag("--allow-path-loss", options.allowPathLoss,
                     "flash an adapter even when it carries the last active and ready path of a multipath map "
                     "(warned about and recorded in the history)");
    command
        .add_option("--path-wait", options.pathWaitSeconds,
                    "after flashing an adapter, how long to wait for its active paths to be active and ready again "
                    "before the next adapter; else the run stops (exit 3, paths-not-restored)")
        ->type_name("SECONDS")
        ->default_val(300)
        ->check(WholeNumber("a whole number of seconds", 0, 86400));
}

}  // namespace

Command UpdateCommand() {
    return MakeCommand<UpdateRun>(
        "update", "bring every module to the repository version",
        {AdapterOptions(),
         {kExitUpdateFailed, kExitApplyCheck, kExitRefused, kExitLockBusy, kExitProvider, kExitRepository,
          kExitNoDevice, kExitMissingComponent, kExitUntrusted, kExitInterrupted}},
        AddUpdateOptions, RunUpdate, UpdateJson, UpdateText);
}

}  // namespace qdmcli
