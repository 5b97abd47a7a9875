#pragma once
// One run against the adapters: the provider library, the discovered ports
// and their vendor objects, from loading to release.
#include <string>
#include <vector>

#include "adapters/Port.h"
#include "adapters/ProviderLibrary.h"
#include "cli/Options.h"

namespace qdmcli {

class Session {
public:
    // Loads the provider, discovers the adapters, builds and links one
    // vendor per port and applies --port. Call UseInstallRoot first.
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

}  // namespace qdmcli
