// The adapter tool's listing and the key/value reader under it: the verdict
// on each "listhbas" line, key/value and tag lookups with fuzzed keys, tags,
// separator and index, the one-pass adapter records (checked against lookups
// by key and index) and the record of one PCI device. Strings come from the
// front of the input, the numbers from its last bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

using Common = CEmulexCommon;
using Record = std::map<std::string, std::string>;
using Result = std::pair<std::string, std::string>;

// A found pair names one of the keys searched; its value is not empty and has
// no outer blanks or line end.
void CheckResult(const Result& result, const std::vector<std::string>& keys) {
    const std::string& value = result.second;
    qdmfuzz::Require(result.first.empty() || (std::count(keys.begin(), keys.end(), result.first) > 0 &&
                                              !value.empty() && value.front() != ' ' && value.back() != ' ' &&
                                              value.find_first_of("\r\n") == std::string::npos),
                     "the pair names a key searched, its value is neither empty nor padded and has no line end");
}

// The records as separate lookups by key and index find them, one file read
// per lookup: slow, but obviously what a record means.
std::list<Record> RecordsByLookups(const std::string& file) {
    static const char* const keys[] = {"Port WWN|Permanent MAC", "Port Number", "PCI Bus Number",
                                       "PCI Function",           "Port Type",   "Serial No."};
    std::list<Record> records;
    for (unsigned int index = 0; index < 256; ++index) {
        Record record;
        for (const char* key : keys) {
            Result found;
            Common::GetKeyValueFromFile_(file, key, ":", found, index);
            if (found.first.empty()) break;
            record[found.first] = found.second;
        }
        if (record.empty()) break;
        records.push_back(record);
    }
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string file = qdmfuzz::Root() + "/tmp/EMULEX/cache/Listhbas.txt";
    FuzzedDataProvider input(data, size);
    const int bus = input.ConsumeIntegral<uint8_t>() % 16;
    const int device = input.ConsumeIntegralInRange(0, 31), function = input.ConsumeIntegralInRange(0, 7);
    const unsigned int index = input.ConsumeIntegral<uint8_t>();
    std::string keys = input.ConsumeRandomLengthString(64);
    const std::string tags = input.ConsumeRandomLengthString(64);
    const std::string separator = input.ConsumeRandomLengthString(4);
    const std::string listing = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(file, listing);

    const std::vector<std::string> alternatives = CStringUtil::Split(keys, "|");
    for (const std::string& line : qdmfuzz::Lines(listing)) {
        const Common::ListhbasLine verdict = Common::ClassifyListhbasLine(line);
        const bool error = line.find("ERROR") != std::string::npos;
        const bool serial = line.find("Serial No.") != std::string::npos;
        qdmfuzz::Require(verdict == Common::LISTHBAS_SUCCESS ? !error && serial
                                                             : error || (verdict != Common::LISTHBAS_RETRY_ERROR &&
                                                                         verdict != Common::LISTHBAS_FATAL_ERROR),
                         "success only on a serial number line, an error verdict only on an ERROR line");
        Result result;
        if (Common::MatchKeyValueLine(line, alternatives, separator, result) == Common::KEYLINE_VALUE)
            CheckResult(result, alternatives);
    }
    Result byKey, byTag;
    qdmfuzz::Require(Common::GetKeyValueFromFile_(file, keys, separator, byKey, index) == 1 &&
                         Common::GetTagKeyValueFromFile_(file, tags, keys, separator, byTag, index) == 1,
                     "a readable file gives 1");
    CheckResult(byKey, alternatives);
    CheckResult(byTag, alternatives);

    // Equal to the lookups, which never make an empty record.
    std::list<Record> adapters;
    qdmfuzz::Require(Common::GetHBAInfoList(&adapters) == !adapters.empty() && adapters == RecordsByLookups(file),
                     "the result tells whether adapters were listed; one pass finds what lookups by index find");

    char id[64];
    std::snprintf(id, sizeof id, "0000:%02x:%02x.%x-PCI\\VEN_10DF&DEV_F100", bus, device, function);
    Record adapter;
    qdmfuzz::Require(
        Common::GetHBAInfo(id, &adapter) ? adapter["PCI Bus Number"] == std::to_string(bus) : adapter.empty(),
        "the record found lies on the device's bus; none on failure");
    std::istringstream in(listing);
    const int multiplier = Common::ListingFunctionMultiplier(in, bus);
    qdmfuzz::Require(multiplier == 2 || multiplier == 8, "function numbering is by 2 or by 8");
    return 0;
}
