#include "commands/FirmwareGuard.h"

#include "HostSys.h"
#include "adapters/PathReader.h"
#include "cli/Console.h"

namespace qdmcli {

namespace {

const unsigned kPollSeconds = 5;

std::string Names(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace

FirmwareGuard::FirmwareGuard(const Options& options, PathSurvey paths) : options_(options), paths_(std::move(paths)) {
    if (!paths_.note.empty()) Warn(paths_.note);
}

AdapterPaths FirmwareGuard::CurrentView(const std::string& adapter) const {
    // A dry run changes nothing: its first look stays true. A run looks again,
    // since a flash before may have moved the paths.
    if (options_.dryRun || !paths_.multipath) {
        for (const AdapterPaths& judged : paths_.adapters)
            if (judged.adapter == adapter) return judged;
        return {adapter, {}, {}, kVerdictNoMultipath};
    }
    return JudgeAdapter(adapter, ReadPathSnapshot(options_.root));
}

void FirmwareGuard::Judge(const Port& port, ModuleOutcome& outcome) {
    const AdapterPaths view = CurrentView(AdapterOf(PciAddressOf(port.deviceId)));
    expected_ = view.ActivePaths();
    if (view.verdict != kVerdictLastPath) return;
    outcome.maps = view.LastPathMaps();
    if (options_.allowPathLoss) {
        Warn("--allow-path-loss: flashing " + view.adapter + " takes down the last healthy path of " +
             Names(outcome.maps) + "; their I/O stops until the paths come back");
        outcome.pathLossAllowed = true;
        return;
    }
    outcome.outcome = "refused";
    outcome.reason = kReasonLastPath;
    Warn("firmware of " + view.adapter + " refused: it carries the last healthy path of " + Names(outcome.maps) +
         " (--allow-path-loss overrides)");
}

std::vector<std::string> FirmwareGuard::AwaitPaths(const Port& port) {
    const std::string adapter = AdapterOf(PciAddressOf(port.deviceId));
    for (unsigned waited = 0;; waited += kPollSeconds) {
        std::vector<std::string> missing = PathsNotRestored(expected_, ReadPathSnapshot(options_.root));
        if (missing.empty() || waited >= options_.pathWaitSeconds) return missing;
        // The pause announces itself with the activity: "waiting 5s for the paths of ...".
        SetActivity("the paths of " + adapter + ": " + Names(missing));
        Sleep(kPollSeconds * 1000);
        SetActivity("");
    }
}

}  // namespace qdmcli
