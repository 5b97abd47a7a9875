// The utility's configuration check over a fuzzed configuration text, for
// either file and either state of the shared flag.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <sstream>

#include "CEMULEX_OCM_Utility.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The accepted lines of each file, as the check compares them (blanks removed).
    static const std::vector<std::string> kDiscovery = {"ClientRemoteOperation:disabled", "ClientOperationMode:enabled",
                                                        "ClientReadOnlyOperation:disabled",
                                                        "TcpSocketPortNumber:23333"};
    static const std::vector<std::string> kManagement = {"ServerRemoteOperation:enabled", "ManagementHost:false",
                                                         "SecureManagement:disabled", "MngmtHostIpAddress:0",
                                                         "ExclusiveHostMgmnt:false"};
    FuzzedDataProvider input(data, size);
    const bool discovery = input.ConsumeBool();
    const bool flagBefore = input.ConsumeBool();
    const std::string text = input.ConsumeRemainingBytesAsString();
    bool flag = flagBefore;
    std::istringstream in(text);
    const bool passed = CEMULEX_OCM_Utility::CheckConfigText(
        in, discovery ? CEMULEX_OCM_Utility::DISCOVERY_CONFIG : CEMULEX_OCM_Utility::MANAGEMENT_CONFIG, flag);

    const std::vector<std::string>& accepted = discovery ? kDiscovery : kManagement;
    size_t acceptedLines = 0;
    for (std::string line : qdmfuzz::Lines(text)) {
        line.erase(std::remove(line.begin(), line.end(), ' '), line.end());
        acceptedLines += std::count(accepted.begin(), accepted.end(), line);
    }
    // Every setting is counted off by one accepted line; the management file never raises the flag.
    qdmfuzz::Require((!passed || (flag && acceptedLines >= accepted.size())) && (discovery || !flag || flagBefore),
                     "a pass raised the flag and saw an accepted line per setting; only the discovery file raises it");
    return 0;
}
