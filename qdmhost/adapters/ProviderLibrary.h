#pragma once
// The provider library, opened with dlopen and closed when destroyed.
#include <string>

#include "Vendor.h"

namespace qdmcli {

class ProviderLibrary {
public:
    explicit ProviderLibrary(const std::string& path);  // throws HostError (provider-missing)
    ~ProviderLibrary();
    ProviderLibrary(const ProviderLibrary&) = delete;
    ProviderLibrary& operator=(const ProviderLibrary&) = delete;

    CVendor* Build(const std::string& className, const std::string& deviceId) const;
    void Release(CVendor* vendor) const;

    // The library's path: `option` when given, else next to this build,
    // else <root>/lib. Empty when none exists.
    static std::string Find(const std::string& option, const std::string& root);

private:
    using Factory = void* (*)(const char*, const char*);
    using Releaser = void (*)(void*);
    void* handle_;
    Factory factory_;
    Releaser release_;
};

}  // namespace qdmcli
