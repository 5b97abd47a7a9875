#include "adapters/ProviderLibrary.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/HostError.h"

namespace qdmcli {

namespace {

const char kProviderFile[] = "libqdmp_EMULEX_FC.so";

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

}  // namespace

ProviderLibrary::ProviderLibrary(const std::string& path) : handle_(nullptr), factory_(nullptr), release_(nullptr) {
    if (path.empty() || !IsRegularFile(path))
        throw HostError(kExitProvider,
                        "provider library not found" + (path.empty() ? "" : ": " + path) + " (use --provider)");
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

std::string ProviderLibrary::Find(const std::string& option, const std::string& root) {
    if (!option.empty()) return option;
    std::string beside = ExecutableFolder() + "/../provider/" + kProviderFile;
    if (IsRegularFile(beside)) return beside;
    std::string installed = root + "/lib/" + kProviderFile;
    return IsRegularFile(installed) ? installed : "";
}

}  // namespace qdmcli
