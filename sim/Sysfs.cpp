// The server as the kernel shows it in sysfs: its PCI functions below
// /sys/bus/pci/devices, its SCSI hosts below /sys/class/scsi_host and
// /sys/class/fc_host. The sandbox lays an empty tmpfs over each folder (and
// names them in QDM_SANDBOX_SYSFS); install fills them, so qdmhost reads the
// simulated server where it reads a real one, with no switch of its own.
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "Sim.h"

namespace qdmsim {

namespace fs = std::filesystem;

namespace {

const char* const kPciDevices = "/sys/bus/pci/devices";
const char* const kScsiHosts = "/sys/class/scsi_host";
const char* const kFcHosts = "/sys/class/fc_host";

bool SandboxSimulates(const std::string& folder) {
    const char* list = std::getenv("QDM_SANDBOX_SYSFS");
    std::istringstream folders(list ? list : "");
    for (std::string simulated; folders >> simulated;)
        if (simulated == folder) return true;
    return false;
}

void EmptyFolder(const fs::path& folder) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        fs::remove_all(entry.path(), error);
        if (error) break;
    }
    if (error) throw SimError("cannot empty " + folder.string() + ": " + error.message());
}

void RequireSimulated(const std::string& folder) {
    if (!SandboxSimulates(folder))
        throw SimError("the sandbox lays no simulated tree over " + folder +
                       " (QDM_SANDBOX_SYSFS): use the current sandbox/run");
}

void WriteFunction(const PciFunction& function) {
    const std::string folder = std::string(kPciDevices) + "/" + function.address.Text(true);
    MakeFolderAt(folder);
    WriteTextFile(folder + "/class", "0x" + ToLower(function.classId) + "00\n");
    WriteTextFile(folder + "/vendor", "0x" + ToLower(function.vendor) + "\n");
    WriteTextFile(folder + "/device", "0x" + ToLower(function.device) + "\n");
    WriteTextFile(folder + "/subsystem_vendor", "0x" + ToLower(function.subVendor) + "\n");
    WriteTextFile(folder + "/subsystem_device", "0x" + ToLower(function.subDevice) + "\n");
}

}  // namespace

void MakeFolderAt(const std::string& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw SimError("cannot create " + folder + ": " + error.message());
}

void MakeLink(const std::string& link, const std::string& target) {
    std::error_code error;
    fs::create_symlink(target, link, error);
    if (error) throw SimError("cannot link " + link + ": " + error.message());
}

void WriteSysfs(const json& state) {
    for (const char* folder : {kPciDevices, kScsiHosts, kFcHosts}) {
        RequireSimulated(folder);
        EmptyFolder(folder);
    }
    for (const PciFunction& function : AllFunctions(state)) WriteFunction(function);
    WriteScsiHosts(state, kScsiHosts, kFcHosts);
}

}  // namespace qdmsim
