#pragma once
// Helpers for tests that run the adapter simulator (sim/README.md): install it
// into the sandbox's system paths, flip its fault switches, count tool runs
// and build update modules it understands.
#include <string>
#include <vector>

namespace qdmtest {

struct SimOptions {
    bool utility = true;          // place /usr/sbin/ocmanager/hbacmd
    std::string config = "good";  // good | broken-port | commented | missing | none
};

// The word quoted for the shell.
std::string ShellQuote(const std::string& word);

// Runs `qdmsim args...` and returns its exit status; standard output and
// error go to *output when given.
int RunSim(const std::vector<std::string>& args, std::string* output = nullptr);

// Runs a shell command line; returns its exit status (-1 when killed),
// standard output and error in *output when given.
int RunShell(const std::string& commandLine, std::string* output = nullptr);

// Unpacks a zip update module into folder (created); false when it cannot.
bool UnpackModule(const std::string& zip, const std::string& folder);

// Writes stateJson to folder/qdmsim-state.json, points QDMSIM_STATE at it,
// runs `qdmsim install` (needs the sandbox) and puts its tool folder first
// on PATH. Returns the state path, or "" after recording a test failure.
std::string InstallSimulator(const std::string& folder, const std::string& stateJson, const SimOptions& options = {});

// The demo server (sim/demo/server.json) as text.
std::string DemoState();

// Runs of a tool verb logged since the last reset.
size_t SimCallCount(const std::string& verb);
void SimResetCalls();

// Sets a fault switch (times 0: until switched off; mode "off" clears it).
bool SimFault(const std::string& verb, const std::string& mode, int times = 0);
// One state value as JSON text ("" when absent).
std::string SimGet(const std::string& key);

// Update-module builders; `extra` holds further builder options.
bool BuildFirmwareModule(const std::string& out, const std::string& uniqueName, const std::vector<std::string>& extra = {});
bool BuildDriverModule(const std::string& out, const std::string& version, const std::vector<std::string>& extra = {});
bool BuildUtilityModule(const std::string& out, const std::string& version, const std::vector<std::string>& extra = {});
// Fills in the sizes and hashes of repo/catalogue.json's archives, its
// serial and expiry (`extra`: --serial N, --expires TIME).
bool BuildCatalogue(const std::string& repo, const std::vector<std::string>& extra = {});

}  // namespace qdmtest
