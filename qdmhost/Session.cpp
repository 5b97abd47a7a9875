#include "Session.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <list>
#include <sstream>
#include <utility>

#include "Console.h"
#include "Discovery.h"
#include "FileUtility.h"
#include "HostError.h"
#include "PciSysfs.h"
#include "TraceUtility.h"

namespace qdmcli {

namespace {

const char kProviderFile[] = "libqdmp_EMULEX_FC.so";
const char kDeviceTableFile[] = "devices.json";

bool IsRegularFile(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string ExecutableFolder() {
    char path[4096];
    ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return "";
    std::string text(path, static_cast<std::size_t>(length));
    return text.substr(0, text.rfind('/'));
}

std::string ReadWholeFile(const std::string& path, ExitCode code, const std::string& what) {
    std::ifstream in(path);
    if (!in) throw HostError(code, what + " " + path + " cannot be read");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::pair<std::string, std::string> ExtendedInfo(CVendor* vendor) {
    std::list<std::pair<std::string, std::string>> info;
    std::string unused;
    vendor->GetExtendedInfo(info, &unused);
    std::pair<std::string, std::string> found;
    for (const auto& entry : info) {
        if (entry.first == "WWPN") found.first = entry.second;
        if (entry.first == "Bus/Dev/Func") found.second = entry.second;
    }
    return found;
}

std::string WithoutColonsUpper(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

}  // namespace

bool IsSafeHostPath(const std::string& path) {
    return !path.empty() && path[0] == '/' && path.size() < 1024 && path.find("..") == std::string::npos &&
           std::all_of(path.begin(), path.end(), [](unsigned char c) {
               return std::isalnum(c) || c == '/' || c == '_' || c == '-' || c == '.';
           });
}

void UseInstallRoot(const Options& options) {
    if (!IsSafeHostPath(options.root))
        throw HostError(kExitUsage, "--root must be an absolute path of letters, digits, '/', '_', '-', '.'");
    CFileUtility::SetInstallPath(options.root);
    if (options.traceLevel >= 0) CTraceUtility::SetLevelMask(static_cast<unsigned>(options.traceLevel));
    if (!CFileUtility::CreateFolder(options.root + "/tmp"))
        throw HostError(kExitInternal, "cannot create " + options.root + "/tmp");
}

ProviderLibrary::ProviderLibrary(const std::string& path) : handle_(nullptr), factory_(nullptr), release_(nullptr) {
    if (path.empty() || !IsRegularFile(path))
        throw HostError(kExitProvider, "provider library not found" + (path.empty() ? "" : ": " + path) +
                                           " (use --provider)");
    // A path without "/" would make dlopen search the library path instead.
    std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    handle_ = ::dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        const char* why = ::dlerror();
        throw HostError(kExitProvider, "provider library " + path + " cannot be loaded: " + (why ? why : "?"));
    }
    factory_ = reinterpret_cast<Factory>(::dlsym(handle_, "GetVendorFactory"));
    release_ = reinterpret_cast<Releaser>(::dlsym(handle_, "_Z13ReleaseVendorPv"));
    if (!factory_ || !release_) {
        ::dlclose(handle_);
        throw HostError(kExitProvider, "provider library " + path + " lacks its entry points");
    }
}

ProviderLibrary::~ProviderLibrary() { ::dlclose(handle_); }

CVendor* ProviderLibrary::Build(const std::string& className, const std::string& deviceId) const {
    return static_cast<CVendor*>(factory_(className.c_str(), deviceId.c_str()));
}

void ProviderLibrary::Release(CVendor* vendor) const { release_(vendor); }

std::string FindProviderLibrary(const Options& options) {
    if (!options.provider.empty()) return options.provider;
    std::string beside = ExecutableFolder() + "/../provider/" + kProviderFile;
    if (IsRegularFile(beside)) return beside;
    std::string installed = options.root + "/lib/" + kProviderFile;
    return IsRegularFile(installed) ? installed : "";
}

bool PortMatches(const Port& port, const std::string& selector) {
    std::string address = port.deviceId.substr(0, port.deviceId.find('-'));
    return selector == port.deviceId || selector == address ||
           (address.size() > 5 && selector == address.substr(5)) || selector == port.busDevFunc ||
           (!port.wwpn.empty() && WithoutColonsUpper(selector) == port.wwpn);
}

Session::Session(const Options& options) : library_(FindProviderLibrary(options)) {
    try {
        BuildPorts(options);
        SelectPorts(options.ports);
    } catch (...) {
        ReleaseVendors();
        throw;
    }
}

Session::~Session() { ReleaseVendors(); }

void Session::ReleaseVendors() {
    for (Port& port : all_) {
        library_.Release(port.vendor);
        // The provider releases only what it recognises; the rest is ours.
        if (CVendor::IsLive(port.vendor)) delete port.vendor;
    }
    all_.clear();
    selected_.clear();
}

void Session::BuildPorts(const Options& options) {
    std::string tablePath = options.HostFolder() + "/" + kDeviceTableFile;
    DeviceTable table = ParseDeviceTable(ReadWholeFile(tablePath, kExitNoDevice, "supported-device table"));
    for (const PciFunction& function : ReadFibreChannelFunctions(kPciDevicesFolder)) {
        std::string deviceId = DeviceIdentifier(function);
        std::string vendorClass = LookupVendorClass(table, HardwareId(function));
        if (vendorClass.empty()) {
            Warn("unsupported Fibre Channel function " + deviceId + " skipped");
            continue;
        }
        CVendor* vendor = library_.Build(vendorClass, deviceId);
        if (!vendor) {
            Warn("the provider built no " + vendorClass + " for " + deviceId);
            continue;
        }
        all_.push_back({deviceId, vendorClass, vendor, "", ""});
        vendor->LinkDevice();
        std::tie(all_.back().wwpn, all_.back().busDevFunc) = ExtendedInfo(vendor);
    }
    if (all_.empty()) throw HostError(kExitNoDevice, "no supported Fibre Channel adapter found");
}

void Session::SelectPorts(const std::vector<std::string>& selectors) {
    for (const std::string& selector : selectors)
        if (std::none_of(all_.begin(), all_.end(), [&](const Port& port) { return PortMatches(port, selector); }))
            throw HostError(kExitNoDevice, "no port matches --port " + selector);
    for (const Port& port : all_)
        if (selectors.empty() || std::any_of(selectors.begin(), selectors.end(), [&](const std::string& selector) {
                return PortMatches(port, selector);
            }))
            selected_.push_back(port);
}

}  // namespace qdmcli
