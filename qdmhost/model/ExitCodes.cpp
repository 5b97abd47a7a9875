#include "model/ExitCodes.h"

#include <algorithm>

namespace qdmcli {

// Ordered from the least to the most severe outcome of an update run.
const std::vector<ExitCodeInfo>& ExitCodeTable() {
    static const std::vector<ExitCodeInfo> table = {
        {kExitOk, "ok", "everything current or updated (nothing to do included)"},
        {kExitRefused, "refused", "a condition check refused an update (e.g. utility configuration)"},
        {kExitMissingComponent, "missing-component", "a necessary component is not installed"},
        {kExitApplyCheck, "apply-check-mismatch", "an update ran but the new version is not reported"},
        {kExitUpdateFailed, "update-failed", "an update step failed"},
        {kExitInterrupted, "interrupted",
         "a signal (SIGINT, SIGTERM, SIGHUP) stopped the update after the step in progress; the rest was skipped"},
        {kExitNoDevice, "no-device", "no supported adapter found, or --port matched nothing"},
        {kExitRepository, "bad-repository", "repository missing, empty or broken"},
        {kExitUntrusted, "untrusted-repository",
         "repository not trusted (signature, key, checksum, rollback or expiry)"},
        {kExitProvider, "provider-missing", "provider library missing or unusable"},
        {kExitLockBusy, "lock-busy", "another qdmhost update holds the install root"},
        {kExitUsage, "usage", "bad command line"},
        {kExitInternal, "internal-error", "unexpected failure"},
    };
    return table;
}

namespace {

std::size_t Rank(int code) {
    const auto& table = ExitCodeTable();
    auto found =
        std::find_if(table.begin(), table.end(), [code](const ExitCodeInfo& info) { return info.code == code; });
    return found == table.end() ? table.size() : static_cast<std::size_t>(found - table.begin());
}

}  // namespace

const ExitCodeInfo& DescribeExitCode(int code) {
    const auto& table = ExitCodeTable();
    std::size_t rank = Rank(code);
    return rank < table.size() ? table[rank] : table.back();
}

int WorseExitCode(int first, int second) { return Rank(first) >= Rank(second) ? first : second; }

std::string ExitCodeHelp() {
    std::vector<ExitCodeInfo> byCode = ExitCodeTable();
    std::sort(byCode.begin(), byCode.end(),
              [](const ExitCodeInfo& a, const ExitCodeInfo& b) { return a.code < b.code; });
    std::string text = "Exit codes:\n";
    for (const ExitCodeInfo& info : byCode) {
        std::string code = std::to_string(info.code);
        text += "  " + std::string(3 - std::min<std::size_t>(code.size(), 2), ' ') + code + "  " + info.meaning + "\n";
    }
    return text;
}

}  // namespace qdmcli
