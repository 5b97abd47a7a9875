#pragma once
// What qdmhost knows about the server after one look at it: every selected
// port with its identity, module readings against the repository, boot BIOS
// and utility check, the host-wide missing components and the repository's
// state. Built once per command by SurveyServer; the renderers (text, JSON,
// Prometheus) and the update plan read it, never a rendered document.
#include <string>
#include <vector>

#include "adapters/Session.h"
#include "model/PathGuard.h"
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
    std::string plan;                 // what an update would do (model/Vocabulary.h UpdatePlan)
};

struct PortSurvey {
    Port port;  // the vendor lives as long as the command's session
    std::string modelKey;
    std::vector<ModuleReading> modules;  // in the order the survey's scope asks
    std::string bootBios;
    // The boot BIOS against the one the repository's firmware package carries:
    // a status as for a module; hasPackage false when the package declares none.
    std::string bootBiosRepository;
    std::string bootBiosStatus;
    std::string utilityCheck;  // empty when not asked for
};

struct RepositoryState {
    bool present = false;  // false: no repository (inventory, check and metrics go on)
    std::string folder;
    bool verified = false;
    bool unsignedAccepted = false;
    std::string problem;  // the reason word of what is wrong with it; empty when nothing
    std::string message;
    int failureCode = 0;  // the exit code when it could not be loaded at all
};

struct ServerSurvey {
    RepositoryState repository;
    std::vector<PortSurvey> ports;
    std::vector<std::string> missingComponents;  // host-wide; asked of the first port
    PathSurvey paths;
    // The repository's utility package that update installs first when the
    // utility is missing; no archive path when none serves these ports.
    CManageRepositoryInfo utilityInstall;
};

// What a command needs to know; each part costs tool runs.
struct SurveyScope {
    enum class Modules { kNone, kInventory, kUpdateOrder };
    Modules modules = Modules::kNone;  // inventory: firm, driver, util; update order: the vendor's
    bool afresh = false;               // the modules' cached readings dropped first (an update's plan)
    bool allowDowngrade = false;       // --allow-downgrade, for the modules' plans
    bool bootBios = false;
    bool utilityCheck = false;
    bool missingComponents = false;
    bool paths = false;  // multipath paths per adapter (runs multipathd)
};

ServerSurvey SurveyServer(std::vector<Port>& ports, const Repository& repository, const SurveyScope& scope,
                          const std::string& root);

// What the survey keeps of a loaded repository.
RepositoryState StateOf(const Repository& repository);
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
