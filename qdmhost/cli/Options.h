#pragma once
// The command line as the commands see it.
#include <string>
#include <vector>

namespace qdmcli {

const char kDefaultInstallRoot[] = "/opt/velmora/qdm/provider";

struct Options {
    std::string root = kDefaultInstallRoot;
    std::string repository;          // empty: <root>/repository
    std::string provider;            // empty: found next to the build or in <root>/lib
    std::vector<std::string> ports;  // device id, WWPN or bus/dev/func
    int traceLevel = -1;             // -1 keeps the host's default mask
    bool json = false;
    bool dryRun = false;
    bool allowUnsigned = false;   // a lab's unsigned repository, with a loud warning
    bool allowDowngrade = false;  // update a module whose adapter is newer to the repository's version
    std::string trustAction;      // trust: add, list or remove
    std::string trustArgument;    // trust add: key file; trust remove: key id
    int waitSeconds = 0;
    bool allowPathLoss = false;      // flash an adapter that carries a map's last healthy path, loudly
    unsigned pathWaitSeconds = 300;  // how long a flashed adapter's paths may take to come back
    std::string outFolder;           // report
    std::string textfileFolder;      // metrics

    std::string RepositoryFolder() const { return repository.empty() ? root + "/repository" : repository; }
    std::string HostFolder() const { return root + "/qdmhost"; }
};

// An absolute path of characters that no shell treats specially: the install
// root and the repository end up inside the provider's command lines.
bool IsSafeHostPath(const std::string& path);

// A path given on the command line that is not what its option needs is the
// operator's to fix: these throw HostError(usage) naming the option, the
// path and the reason ("no such folder", "not a folder", "not writable", ...),
// with the reason's word in the error's reason field.
enum class PathNeed { kFolder, kWritableFolder, kFile };
void RequirePath(const char* option, const std::string& path, PathNeed need);

}  // namespace qdmcli
