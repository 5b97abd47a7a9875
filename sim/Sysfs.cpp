// The server's PCI functions as the kernel lists them below
// /sys/bus/pci/devices. The sandbox lays an empty tmpfs over that folder
// (and names it in QDM_SANDBOX_SYSFS); install fills it, so qdmhost reads
// the simulated server where it reads a real one, with no switch of its own.
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "Sim.h"

namespace qdmsim {

namespace fs = std::filesystem;

namespace {

const char* const kPciDevices = "/sys/bus/pci/devices";

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

void WriteFunction(const PciFunction& function) {
    const std::string folder = std::string(kPciDevices) + "/" + function.address.Text(true);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw SimError("cannot create " + folder + ": " + error.message());
    WriteTextFile(folder + "/class", "0x" + ToLower(function.classId) + "00\n");
    WriteTextFile(folder + "/vendor", "0x" + ToLower(function.vendor) + "\n");
    WriteTextFile(folder + "/device", "0x" + ToLower(function.device) + "\n");
    WriteTextFile(folder + "/subsystem_vendor", "0x" + ToLower(function.subVendor) + "\n");
    WriteTextFile(folder + "/subsystem_device", "0x" + ToLower(function.subDevice) + "\n");
}

}  // namespace

void WritePciSysfs(const json& state) {
    if (!SandboxSimulates(kPciDevices))
        throw SimError(std::string("the sandbox lays no simulated tree over ") + kPciDevices +
                       " (QDM_SANDBOX_SYSFS): use the current sandbox/run");
    EmptyFolder(kPciDevices);
    for (const PciFunction& function : AllFunctions(state)) WriteFunction(function);
}

}  // namespace qdmsim
