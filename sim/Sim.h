#pragma once
// Shared declarations of the adapter simulator (see README.md).
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace qdmsim {

using json = nlohmann::json;
using Args = std::vector<std::string>;

// A user-facing failure: printed as "qdmsim: <what>", exit status 2.
struct SimError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---- command-line options -------------------------------------------------
struct Options {
    std::map<std::string, std::string> values;
    std::set<std::string> flags;
    Args positional;

    std::string Get(const std::string& name, const std::string& fallback = "") const;
    bool Has(const std::string& name) const;
};
// "--name value" for names in `valued`, "--name" for names in `flags`.
Options ParseOptions(const Args& args, const std::set<std::string>& valued,
                     const std::set<std::string>& flags);

// ---- state file -------------------------------------------------------------
const char* const kDefaultStatePath = "/etc/qdmsim/state.json";
const char* const kToolPath = "/usr/sbin/ocmanager/hbacmd";

// $QDMSIM_STATE or the default, with symbolic links resolved.
std::string StatePath();
json LoadState();
json LoadStateAt(const std::string& path);
// Locks, loads, lets `change` edit the state and saves it when `change`
// returns true. Returns the state as left.
json UpdateState(const std::function<bool(json&)>& change);
// Throws SimError naming the first field that is missing or of the wrong type.
void ValidateState(const json& state);
// Appends "<tool> <verb>" to the call log; never fails the caller.
void LogCall(const std::string& tool, const std::string& verb);
std::string CallLogPath();

// One run of a tool that writes to `target` (an adapter's serial, or "system"
// for packages and the utility), logged to <state>.tools as "begin <pid>
// <target> <what>" and, when it ends, "end ...": tests read it to prove that
// no two writers ever overlapped on one target.
class ToolRun {
public:
    ToolRun(const std::string& target, const std::string& what);
    ~ToolRun();
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;

private:
    std::string target_;
    std::string what_;
};
std::string ToolLogPath();
// Under the fault "slow" the tool's work takes a second.
void PauseIfSlow(const std::string& fault);

// ---- small helpers ------------------------------------------------------------
bool InSandbox();
std::string SelfPath();
std::string ToLower(std::string text);
std::string ToUpper(std::string text);
bool StartsWith(const std::string& text, const std::string& prefix);
std::string ReadFirstLine(const std::string& path, bool* readable);
std::vector<std::string> SplitWords(const std::string& line);
void WriteTextFile(const std::string& path, const std::string& content, unsigned mode = 0644);

// PCI address of one function.
struct PciAddress {
    int domain = 0, bus = 0, device = 0, function = 0;
    bool operator<(const PciAddress& other) const;
    std::string Text(bool withDomain) const;
};
// Parses "[dddd:]bb:dd[.f]"; false when malformed.
bool ParsePciAddress(const std::string& text, PciAddress* address);

// One PCI function of the server: each adapter port and each other device.
struct PciFunction {
    PciAddress address;
    std::string classId, vendor, device, revision, subVendor, subDevice;
};
// Sorted by address.
std::vector<PciFunction> AllFunctions(const json& state);

// ---- faults -------------------------------------------------------------------
// The fault mode for `verb` (or the `fallback` key), consuming one of its
// "times"; empty when none.
std::string TakeFault(const std::string& verb, const std::string& fallback);
// Modes accepted per verb key; used to validate `qdmsim fault`.
bool IsKnownFault(const std::string& verb, const std::string& mode);
[[noreturn]] void HangForever();
// Prints `normal` (and returns `normalStatus`) or what the output fault
// `mode` makes of it.
int EmitToolOutput(const std::string& mode, const std::string& normal, int normalStatus);

// ---- the tools ------------------------------------------------------------------
// Formatters of the tools' output.
std::string FormatListing(const json& state, bool manyPorts);
std::string FormatAttributes(const json& state, const json& adapter, const json& port,
                             const std::string& fault);
std::string FormatVersion(const std::string& utilityVersion);
// False when `selector` is not "[[domain:]bus:]device[.function]".
bool FormatLspci(const json& state, bool withDomain, const std::string& selector, std::string* text);
// Lays the server's PCI functions and SCSI hosts into the sandbox's simulated sysfs.
void WriteSysfs(const json& state);
void WriteScsiHosts(const json& state, const std::string& scsiHostFolder, const std::string& fcHostFolder);
void MakeFolderAt(const std::string& folder);
void MakeLink(const std::string& link, const std::string& target);
// A flashed adapter's paths fail for a while (nothing without multipath in the state).
void BouncePaths(json& state, json& adapter);

int RunHbacmd(const Args& args);
int RunLspci(const Args& args);
int RunRpm(const Args& args);
int RunDepmod(const Args& args);
int RunMultipathd(const Args& args);

// ---- commands of qdmsim itself ----------------------------------------------------
int RunBuilder(const std::string& command, const Args& args);
int RunInstall(const Args& args);
int RunUtility(const Args& args);
// Prints the text `install` writes to /etc/emulexDiscConfig or /etc/emulexRMConfig.
int RunConfig(const Args& args);
int RunStateCommand(const Args& args);
int RunFaultCommand(const Args& args);
int RunCallsCommand(const Args& args);

}  // namespace qdmsim
