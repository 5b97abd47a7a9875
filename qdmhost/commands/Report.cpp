#include <pugixml.hpp>

#include "commands/Commands.h"
#include "cli/Console.h"
#include "FileUtility.h"
#include "model/HostError.h"

namespace qdmcli {

std::vector<const Port*> WriteConfigReport(std::vector<Port>& ports, const std::string& folder) {
    std::vector<const Port*> reported;
    for (Port& port : ports) {
        // The exec phase reads these modules without testing them.
        if (!port.vendor->GetFirmwareModule() || !port.vendor->GetDriverModule()) {
            Warn(port.deviceId + " has no firmware or driver module; left out of the report");
            continue;
        }
        for (const char* kind : {"firm", "driver", "util"})
            if (CModuleManager* module = port.vendor->FindModule(kind)) module->RefreshOperatingVersionCache();
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
        pugi::xml_node attr =
            port.child("version-inf").find_child_by_attribute("attr", "name", "BootBios Version");
        versions.push_back(attr.attribute("value").value());
    }
    return versions;
}

CommandResult RunReport(const Options& options) {
    UseInstallRoot(options);
    if (!IsSafeHostPath(options.outFolder))
        throw HostError(kExitUsage, "--out must be an absolute path of letters, digits, '/', '_', '-', '.'");
    if (!CFileUtility::CreateFolder(options.outFolder))
        throw HostError(kExitInternal, "cannot create " + options.outFolder);
    Session session(options);
    std::vector<const Port*> reported = WriteConfigReport(session.ports(), options.outFolder);
    CommandResult result;
    result.document = {{"file", options.outFolder + "/" + kReportFile}, {"ports", reported.size()}};
    return result;
}

}  // namespace qdmcli
