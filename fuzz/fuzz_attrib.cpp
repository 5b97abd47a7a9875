// The attribute lookup over a fuzzed "HbaAttributes" cache file. The file is
// written just before the lookup, so it is fresh and no tool is ever run.
#include <fuzzer/FuzzedDataProvider.h>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // WWPNs as the listing gives them, plus the few other characters a cache file name may hold.
    static const char kAlphabet[] = "0123456789abcdefABCDEF:-_.";
    qdmfuzz::Root();
    FuzzedDataProvider input(data, size);
    std::string wwpn(input.ConsumeIntegralInRange<size_t>(1, 32), '0');
    for (char& c : wwpn) c = kAlphabet[input.ConsumeIntegralInRange<size_t>(0, sizeof kAlphabet - 2)];
    const std::string key = input.ConsumeRandomLengthString(32);
    const std::string attributes = input.ConsumeRemainingBytesAsString();
    std::string name = wwpn;
    CStringUtil::strReplace(name, ":", "-");
    qdmfuzz::WriteFile(CEmulexCommon::CacheFilePath("HbaAttrib" + name + ".txt"), attributes);

    std::string value = "unchanged";
    const int found = CEmulexCommon::GetHbaAttribData(wwpn, key, value);
    static const std::string kOuter = " \t\r\n";
    qdmfuzz::Require(found == -1 || (found == 0 && attributes.find(key) != std::string::npos &&
                                     (value.empty() || (kOuter.find(value.front()) == std::string::npos &&
                                                        kOuter.find(value.back()) == std::string::npos))),
                     "0 or -1; a found key is in the file and its value is trimmed");
    qdmfuzz::Require(CEmulexCommon::DeleteHbaAttribCache(wwpn) == 0, "the cache file is deleted");
    return 0;
}
