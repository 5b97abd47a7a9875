// The attribute lookup over a fuzzed "HbaAttributes" cache file. The file is
// written just before the lookup, so it is fresh and no tool is ever run.
#include <fuzzer/FuzzedDataProvider.h>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"
#include "WwpnText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // WWPNs as the listing gives them (hexadecimal pairs separated by ':'),
    // or any text of the characters a cache file name may hold.
    static const char kHex[] = "0123456789abcdefABCDEF";
    static const char kAlphabet[] = "0123456789abcdefABCDEF:-_.";
    qdmfuzz::Root();
    FuzzedDataProvider input(data, size);
    std::string wwpn;
    if (input.ConsumeBool()) {
        for (size_t pairs = input.ConsumeIntegralInRange<size_t>(1, 8), i = 0; i < pairs; ++i) {
            if (i > 0) wwpn += ':';
            for (int digit = 0; digit < 2; ++digit)
                wwpn += kHex[input.ConsumeIntegralInRange<size_t>(0, sizeof kHex - 2)];
        }
    } else {
        wwpn.assign(input.ConsumeIntegralInRange<size_t>(1, 32), '0');
        for (char& c : wwpn) c = kAlphabet[input.ConsumeIntegralInRange<size_t>(0, sizeof kAlphabet - 2)];
    }
    const std::string key = input.ConsumeRandomLengthString(32);
    const std::string attributes = input.ConsumeRemainingBytesAsString();
    // Text that is no WWPN is refused before any file is named after it.
    if (!emulex_common::IsWwpnText(wwpn)) {
        std::string value = "unchanged";
        qdmfuzz::Require(CEmulexCommon::GetHbaAttribData(wwpn, key, value) == -1 && value == "unchanged" &&
                             CEmulexCommon::DeleteHbaAttribCache(wwpn) == -1,
                         "text that is no WWPN is refused");
        return 0;
    }
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
