#include "adapters/ConfigReport.h"

#include <stdlib.h>

#include <pugixml.hpp>

#include <filesystem>

#include "HostSys.h"
#include "cli/Console.h"
#include "model/HostError.h"
#include "model/Vocabulary.h"

namespace qdmcli {

std::vector<const Port*> WriteConfigReport(std::vector<Port>& ports, const std::string& folder) {
    std::vector<const Port*> reported;
    for (Port& port : ports) {
        // The exec phase reads these modules without testing them.
        if (!port.vendor->GetFirmwareModule() || !port.vendor->GetDriverModule()) {
            Warn(port.deviceId + " has no firmware or driver module; left out of the report");
            continue;
        }
        for (const ModuleKind& kind : ModuleKinds())
            if (CModuleManager* module = port.vendor->FindModule(kind.word)) module->RefreshOperatingVersionCache();
        reported.push_back(&port);
    }
    if (reported.empty()) throw HostError(kExitNoDevice, "no port can be reported");
    CVendor* first = reported.front()->vendor;
    if (first->StartOutputDeviceConfigInfo("", nullptr) != 0)
        Warn("the management utility is not installed; its version is left empty");
    for (const Port* port : reported) port->vendor->ExecOutputDeviceConfigInfo("", nullptr);
    if (first->EndOutputDeviceConfigInfo(folder + "/", nullptr) != 0)
        throw HostError(kExitInternal, "the configuration report could not be written to " + folder);
    return reported;
}

std::vector<std::string> ReportBootBiosVersions(const std::string& reportPath) {
    std::vector<std::string> versions;
    pugi::xml_document document;
    if (!document.load_file(reportPath.c_str())) return versions;
    for (pugi::xml_node port : document.child("data").children("port")) {
        pugi::xml_node attr = port.child("version-inf").find_child_by_attribute("attr", "name", "BootBios Version");
        versions.push_back(attr.attribute("value").value());
    }
    return versions;
}

std::vector<std::string> BootBiosVersions(std::vector<Port>& ports, const std::string& root) {
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

}  // namespace qdmcli
