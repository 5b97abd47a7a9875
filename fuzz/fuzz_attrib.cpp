// The attribute lookup over a fuzzed "HbaAttributes" cache file. The file is
// written just before the lookup, so it is fresh and no tool is ever run.
#include <fuzzer/FuzzedDataProvider.h>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

// WWPNs as the listing gives them, plus the few other characters a cache
// file name may hold.
std::string ConsumeWwpn(FuzzedDataProvider& input) {
    static const char kAlphabet[] = "0123456789abcdefABCDEF:-_.";
    std::string wwpn;
    size_t length = input.ConsumeIntegralInRange<size_t>(1, 32);
    for (size_t i = 0; i < length; ++i)
        wwpn += kAlphabet[input.ConsumeIntegralInRange<size_t>(0, sizeof kAlphabet - 2)];
    return wwpn;
}

std::string CacheFileOf(std::string wwpn) {
    CStringUtil::strReplace(wwpn, ":", "-");
    return CEmulexCommon::CacheFilePath("HbaAttrib" + wwpn + ".txt");
}

bool IsTrimmed(const std::string& value) {
    static const char kOuter[] = " \t\r\n";
    return value.empty() || (std::string(kOuter).find(value.front()) == std::string::npos &&
                             std::string(kOuter).find(value.back()) == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qdmfuzz::Root();
    FuzzedDataProvider input(data, size);
    const std::string wwpn = ConsumeWwpn(input);
    const std::string key = input.ConsumeRandomLengthString(32);
    const std::string attributes = input.ConsumeRemainingBytesAsString();
    const std::string file = CacheFileOf(wwpn);
    qdmfuzz::WriteFile(file, attributes);

    std::string value = "unchanged";
    int found = CEmulexCommon::GetHbaAttribData(wwpn, key, value);
    qdmfuzz::Require(found == 0 || found == -1, "0 or -1");
    if (found == 0) {
        qdmfuzz::Require(attributes.find(key) != std::string::npos, "a found key is in the file");
        qdmfuzz::Require(IsTrimmed(value), "the value is trimmed");
    }
    qdmfuzz::Require(CEmulexCommon::DeleteHbaAttribCache(wwpn) == 0, "the cache file is deleted");
    return 0;
}
