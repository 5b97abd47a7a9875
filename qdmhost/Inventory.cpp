#include <stdlib.h>

#include <filesystem>

#include "Commands.h"
#include "Console.h"
#include "HostError.h"
#include "HostSys.h"
#include "Modules.h"

namespace qdmcli {

namespace {

const char* const kInventoryKinds[] = {"firm", "driver", "util"};

// The boot BIOS version is not part of the host contract; the provider puts
// it into its configuration report, so a report is written into a scratch
// folder and read back. Empty texts when that fails.
std::vector<std::string> BootBiosByPort(std::vector<Port>& ports, const std::string& root) {
    std::vector<std::string> byPort(ports.size());
    std::string scratch = root + "/tmp/qdmhost-inventory.XXXXXX";
    if (!::mkdtemp(&scratch[0])) return byPort;
    qdmhost::SetDurableWrites(false);  // read back and removed below
    try {
        std::vector<const Port*> reported = WriteConfigReport(ports, scratch);
        std::vector<std::string> versions = ReportBootBiosVersions(scratch + "/" + kReportFile);
        for (std::size_t i = 0; i < reported.size() && i < versions.size(); ++i)
            byPort[static_cast<std::size_t>(reported[i] - ports.data())] = versions[i];
    } catch (const HostError& error) {
        Warn(std::string("boot BIOS versions not available: ") + error.what());
    }
    qdmhost::SetDurableWrites(true);
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
    return byPort;
}

}  // namespace

nlohmann::json InventoryPorts(std::vector<Port>& ports, const Repository& repository, const std::string& root) {
    nlohmann::json portList = nlohmann::json::array();
    for (const Port& port : ports) {
        nlohmann::json modules = nlohmann::json::array();
        for (const char* kind : kInventoryKinds) modules.push_back(ModuleJson(ReadModule(port, kind, repository)));
        portList.push_back({{"deviceId", port.deviceId},
                            {"vendorClass", port.vendorClass},
                            {"modelKey", port.vendor->GetModelKey()},
                            {"wwpn", port.wwpn},
                            {"busDevFunc", port.busDevFunc},
                            {"modules", modules}});
    }
    std::vector<std::string> bootBios = BootBiosByPort(ports, root);
    for (std::size_t i = 0; i < ports.size(); ++i) portList[i]["bootBios"] = bootBios[i];
    return portList;
}

CommandResult RunInventory(const Options& options) {
    UseInstallRoot(options);
    Repository repository = OptionalRepository(options);
    Session session(options);
    CommandResult result;
    result.document = {{"repository", repository.empty() ? nlohmann::json(nullptr) : nlohmann::json(repository.folder())},
                       {"repositoryVerified", RepositoryVerifiedJson(repository)},
                       {"ports", InventoryPorts(session.ports(), repository, options.root)}};
    return result;
}

}  // namespace qdmcli
