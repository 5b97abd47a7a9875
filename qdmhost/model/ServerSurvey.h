#pragma once
// What qdmhost knows about the server after one look at it: every selected
// port with its identity, module readings against the repository, boot BIOS
// and utility check, the host-wide missing components and the repository's
// state. Built once per command by SurveyServer; the renderers (text, JSON,
// Prometheus) and the update plan read it, never a rendered document.
#include <string>
#include <vector>

#include "adapters/Session.h"
#include "repository/Repository.h"

namespace qdmcli {

struct ModuleReading {
    std::string kind;
    CModuleManager* module = nullptr;  // null: not linked (e.g. utility not installed)
    std::string operating;
    bool hasPackage = false;
    CManageRepositoryInfo package;
    bool repositoryVerified = false;  // the package's catalogue passed the trust checks
    std::string status;               // model/Vocabulary.h
};

struct PortSurvey {
    Port port;  // the vendor lives as long as the command's session
    std::string modelKey;
    std::vector<ModuleReading> modules;  // in the order the survey's scope asks
    std::string bootBios;
    std::string utilityCheck;  // empty when not asked for
};

struct RepositoryState {
    bool present = false;  // false: no repository (inventory, check and metrics go on)
    std::string folder;
    bool verified = false;
};

struct ServerSurvey {
    RepositoryState repository;
    std::vector<PortSurvey> ports;
    std::vector<std::string> missingComponents;  // host-wide; asked of the first port
    // The repository's utility package that update installs first when the
    // utility is missing; no archive path when none serves these ports.
    CManageRepositoryInfo utilityInstall;
};

// What a command needs to know; each part costs tool runs.
struct SurveyScope {
    enum class Modules { kNone, kInventory, kUpdateOrder };
    Modules modules = Modules::kNone;  // inventory: firm, driver, util; update order: the vendor's, read afresh
    bool bootBios = false;
    bool utilityCheck = false;
    bool missingComponents = false;
};

ServerSurvey SurveyServer(std::vector<Port>& ports, const Repository& repository, const SurveyScope& scope,
                          const std::string& root);

// Module kinds in the vendor's update order.
std::vector<std::string> UpdateOrder(CVendor* vendor);
// Reads the module's operating version afresh (into its version cache) and
// compares it with the repository's package for the port, if any.
ModuleReading ReadModule(const Port& port, const std::string& kind, const Repository& repository);
// The same after dropping the module's cached readings, so that a host-wide
// component updated through an earlier port is seen as it now is.
ModuleReading ReadModuleAfresh(const Port& port, const std::string& kind, const Repository& repository);
// The utility configuration check, as an update of the utility would run it.
std::string UtilityCheck(const Port& port, const Repository& repository);

}  // namespace qdmcli
