#pragma once
// Exit codes of qdmhost: part of its interface, scripts rely on them.
#include <string>
#include <vector>

namespace qdmcli {

enum ExitCode {
    kExitOk = 0,                 // everything current or updated, nothing to do included
    kExitInternal = 1,           // an unexpected failure inside qdmhost
    kExitUsage = 2,              // bad command line
    kExitUpdateFailed = 3,       // an update step failed
    kExitApplyCheck = 4,         // an update ran but the adapter does not report the new version
    kExitRefused = 5,            // a condition check refused an update
    kExitLockBusy = 6,           // another update holds the install root
    kExitProvider = 7,           // the provider library is missing or unusable
    kExitRepository = 8,         // the repository is missing, empty or broken
    kExitNoDevice = 9,           // no supported adapter, or --port matched nothing
    kExitMissingComponent = 10,  // a component the update needs is not installed
    kExitUntrusted = 11,         // the repository is not trusted: signature, key, checksum, channel, rollback or expiry
    kExitInterrupted = 12        // a signal stopped the update after the step in progress
};

struct ExitCodeInfo {
    int code;
    const char* name;     // stable word for JSON output
    const char* meaning;  // one line for --help
};

const std::vector<ExitCodeInfo>& ExitCodeTable();
// The table entry of a code; the internal-error entry for unknown codes.
const ExitCodeInfo& DescribeExitCode(int code);
// Of two outcomes of one run, the one a script must see: an update failure
// outranks an apply-check mismatch, which outranks a refusal.
int WorseExitCode(int first, int second);
// The "Exit codes:" block of --help: number, name and meaning of each code in
// CODES (all codes when empty), by number.
std::string ExitCodeHelp(std::vector<int> codes = {});

}  // namespace qdmcli
