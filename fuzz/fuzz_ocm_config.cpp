// The utility's configuration check over a fuzzed configuration text, for
// either file and either state of the shared flag.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "CEMULEX_OCM_Utility.h"
#include "FuzzSupport.h"

namespace {

// The accepted lines of each file, as the check compares them (blanks removed).
const std::vector<std::string> kDiscoveryLines = {
    "ClientRemoteOperation:disabled", "ClientOperationMode:enabled", "ClientReadOnlyOperation:disabled",
    "TcpSocketPortNumber:23333"};
const std::vector<std::string> kManagementLines = {"ServerRemoteOperation:enabled", "ManagementHost:false",
                                                   "SecureManagement:disabled", "MngmtHostIpAddress:0",
                                                   "ExclusiveHostMgmnt:false"};

std::string WithoutBlanks(std::string line) {
    line.erase(std::remove(line.begin(), line.end(), ' '), line.end());
    return line;
}

size_t AcceptedLineCount(const std::string& text, const std::vector<std::string>& accepted) {
    size_t count = 0;
    for (const std::string& line : qdmfuzz::Lines(text))
        count += std::count(accepted.begin(), accepted.end(), WithoutBlanks(line));
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const bool discovery = input.ConsumeBool();
    const bool flagBefore = input.ConsumeBool();
    const std::string text = input.ConsumeRemainingBytesAsString();

    bool flag = flagBefore;
    std::istringstream in(text);
    const bool passed = CEMULEX_OCM_Utility::CheckConfigText(
        in, discovery ? CEMULEX_OCM_Utility::DISCOVERY_CONFIG : CEMULEX_OCM_Utility::MANAGEMENT_CONFIG, flag);

    const std::vector<std::string>& accepted = discovery ? kDiscoveryLines : kManagementLines;
    qdmfuzz::Require(!passed || flag, "a passed check leaves the flag raised");
    qdmfuzz::Require(discovery || !flag || flagBefore, "only the discovery file raises the flag");
    // Every setting is counted off by one accepted line.
    qdmfuzz::Require(!passed || AcceptedLineCount(text, accepted) >= accepted.size(),
                     "a passed check saw an accepted line per setting");
    return 0;
}
