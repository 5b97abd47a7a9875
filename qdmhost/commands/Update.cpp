// qdmhost update [--dry-run]: every selected port's modules, in the vendor's
// update order, brought to the repository's versions.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <set>

#include "adapters/InstallRoot.h"
#include "adapters/PathReader.h"
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
#include "util/UtcTime.h"

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
        std::string activity = PciAddressOf(port_.deviceId) + " " + reading_.kind + " " + step;
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

// What the plan says for one module read afresh: its status when there is
// nothing to do, refused when the provider's condition check says no, else
// planned, unless the multipath guard refuses a firmware. The same decision
// for --dry-run and for the update.
ModuleOutcome Plan(const Port& port, const ModuleReading& reading, FirmwareGuard& guard) {
    ModuleOutcome result{port, reading, reading.status, "", false, std::nullopt, false, "", "", 0, {}, false, {}, {}};
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

ModuleOutcome UpdateModule(const Port& port, const ModuleReading& reading, FirmwareGuard& guard) {
    ModuleOutcome result = Plan(port, reading, guard);
    if (result.outcome != kPlanned) return result;
    auto start = std::chrono::steady_clock::now();
    result.outcome = ModuleUpdate(port, result.reading).Run(&result.failedStep);
    result.ran = true;
    result.now = result.reading.module->RefreshOperatingVersionCache();
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.messages = TakeOperatorMessages();
    return result;
}

Provenance ProvenanceOf(const RepositoryTrust& trust) { return {trust.keyId, trust.serial, trust.unsignedAccepted}; }

void RecordHistory(const Options& options, const ModuleOutcome& result, const Provenance& provenance) {
    nlohmann::json record = ModuleOutcomeJson(result);
    record.erase("seconds");
    record["time"] = UtcTimestamp();
    record.update(ProvenanceJson(provenance));
    AppendHistory(options.HostFolder(), record);
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
// because EARLIER updated it. Refusals and runs stay per port.
bool Repeats(const ModuleOutcome& earlier, const ModuleOutcome& later) {
    static const std::set<std::string> perPort = {kUpdated, kRefused, kFailed, kMismatch};
    if (earlier.reading.kind != later.reading.kind) return false;
    if (earlier.outcome == kUpdated) return later.outcome == kStatusCurrent;
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

// The dry run's plan: the survey in update order, each module decided.
std::vector<ModuleOutcome> PlanAll(std::vector<Port>& ports, const Repository& repository, const Options& options,
                                   FirmwareGuard& guard) {
    SurveyScope scope;
    scope.modules = SurveyScope::Modules::kUpdateOrder;
    scope.afresh = true;
    scope.allowDowngrade = options.allowDowngrade;
    std::vector<ModuleOutcome> plan;
    for (const PortSurvey& port : SurveyServer(ports, repository, scope, options.root).ports)
        for (const ModuleReading& reading : port.modules) plan.push_back(Plan(port.port, reading, guard));
    return plan;
}

// Each module is read afresh just before its turn: an earlier update (a
// host-wide driver or utility, a sibling function's firmware) may have changed it.
// After a flash the adapter's paths must come back before anything else runs:
// else the run stops, so that a bad image cannot take the next adapter's paths too.
void UpdateAll(std::vector<Port>& ports, const Repository& repository, const Options& options, FirmwareGuard& guard,
               UpdateRun& run) {
    for (const Port& port : ports)
        for (const std::string& kind : UpdateOrder(port.vendor)) {
            ModuleReading reading = ReadModuleAfresh(port, kind, repository);
            reading.plan = UpdatePlan(reading.status, reading.hasPackage, options.allowDowngrade);
            run.results.push_back(UpdateModule(port, reading, guard));
            ModuleOutcome& result = run.results.back();
            if (result.ran && kind == kFirmware) result.pathsNotRestored = guard.AwaitPaths(port);
            if (result.outcome == kUpdated || ExitCodeOf(result.outcome) != kExitOk)
                RecordHistory(options, result, run.provenance);
            if (!result.pathsNotRestored.empty()) {
                run.stopped =
                    RunStop{kReasonPathsNotRestored, AdapterOf(PciAddressOf(port.deviceId)), result.pathsNotRestored};
                Warn("stopped: the paths of " + run.stopped->adapter + " did not come back within " +
                     std::to_string(options.pathWaitSeconds) + "s");
                return;
            }
        }
}

Outcome<UpdateRun> RunUpdate(const Options& options) {
    UseInstallRoot(options);
    Repository repository = Repository::Load(
        options.RepositoryFolder(),
        TrustPolicy{options.HostFolder(), ReadChannel(options.HostFolder()), options.allowUnsigned, true});
    if (repository.empty()) throw HostError(kExitRepository, "the repository holds no update package");
    UpdateLock lock(options.root, options.waitSeconds);
    Session session(options);
    StagingArea staging(options.root);
    StageArchives(session.ports(), repository, staging);
    RecheckUnderLock(options, repository);
    Outcome<UpdateRun> outcome;
    UpdateRun& run = outcome.result;
    run.dryRun = options.dryRun;
    run.repository = StateOf(repository);
    run.provenance = ProvenanceOf(repository.trust());
    FirmwareGuard guard(options, SurveyPaths(session.ports(), options.root));
    run.paths = guard.firstLook();
    if (options.dryRun)
        run.results = PlanAll(session.ports(), repository, options, guard);
    else
        UpdateAll(session.ports(), repository, options, guard, run);
    for (const ModuleOutcome& result : run.results)
        outcome.exitCode = WorseExitCode(outcome.exitCode, ExitCodeOf(result.outcome));
    if (run.stopped) outcome.exitCode = WorseExitCode(outcome.exitCode, kExitUpdateFailed);
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
    std::vector<std::string> globals = AdapterOptions();
    globals.push_back("--wait");
    return MakeCommand<UpdateRun>("update", "bring every module to the repository version",
                                  {globals,
                                   {kExitUpdateFailed, kExitApplyCheck, kExitRefused, kExitLockBusy, kExitProvider,
                                    kExitRepository, kExitNoDevice, kExitUntrusted}},
                                  AddUpdateOptions, RunUpdate, UpdateJson, UpdateText);
}

}  // namespace qdmcli
