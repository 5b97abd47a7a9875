#include "model/ExitCodes.h"

#include <algorithm>
#include <cstdio>

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
         "repository not trusted (signature, key, checksum, channel, rollback or expiry)"},
        {kExitProvider, "provider-missing", "provider library missing or unusable"},
        {kExitLockBusy, "lock-busy", "another qdmhost update, or a tool it started, holds the install root"},
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

std::string ExitCodeHelp(std::vector<int> codes) {
    if (codes.empty())
        for (const ExitCodeInfo& info : ExitCodeTable()) codes.push_back(info.code);
    std::sort(codes.begin(), codes.end());
    codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
    std::string text = "Exit codes:\n";
    for (int code : codes) {
        const ExitCodeInfo& info = DescribeExitCode(code);
        char line[160];
        std::snprintf(line, sizeof line, "  %3d  %-21s %s\n", info.code, info.name, info.meaning);
        text += line;
    }
    return text;
}

}  // namespace qdmcli
