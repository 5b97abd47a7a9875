#pragma once
// One run against the adapters: the provider library, the discovered ports
// and their vendor objects, from loading to release.
#include <string>
#include <vector>

#include "cli/Options.h"
#include "Vendor.h"

namespace qdmcli {

// The provider library, opened with dlopen and closed when destroyed.
class ProviderLibrary {
public:
    explicit ProviderLibrary(const std::string& path);  // throws HostError (provider-missing)
    ~ProviderLibrary();
    ProviderLibrary(const ProviderLibrary&) = delete;
    ProviderLibrary& operator=(const ProviderLibrary&) = delete;

    CVendor* Build(const std::string& className, const std::string& deviceId) const;
    void Release(CVendor* vendor) const;

private:
    using Factory = void* (*)(const char*, const char*);
    using Releaser = void (*)(void*);
    void* handle_;
    Factory factory_;
    Releaser release_;
};

// The provider library path: the option, else next to this build, else
// <root>/lib. Empty when none exists.
std::string FindProviderLibrary(const Options& options);

struct Port {
    std::string deviceId;
    std::string vendorClass;
    CVendor* vendor;
    std::string wwpn;        // display form, empty when unknown
    std::string busDevFunc;  // e.g. 3/0/1
};

// True when the --port value names this port (device id, its PCI address,
// WWPN in any case with or without ":", or bus/dev/func).
bool PortMatches(const Port& port, const std::string& selector);

class Session {
public:
    // Sets the install root, loads the provider, discovers the adapters,
    // builds and links one vendor per port and applies --port.
    explicit Session(const Options& options);
    // Gives every vendor back through the provider, then deletes what the
    // provider left alive; no vendor is lost and none destroyed twice.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    std::vector<Port>& ports() { return selected_; }

private:
    void BuildPorts(const Options& options);
    void SelectPorts(const std::vector<std::string>& selectors);
    void ReleaseVendors();

    ProviderLibrary library_;
    std::vector<Port> all_;
    std::vector<Port> selected_;
};

// Prepares the install root (validated, set as the host's, folders made).
void UseInstallRoot(const Options& options);

}  // namespace qdmcli
