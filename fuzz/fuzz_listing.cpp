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

using Record = std::map<std::string, std::string>;
using Result = std::pair<std::string, std::string>;

// A found pair names one of the keys searched; its value is not empty and has
// no outer blanks or line end.
void CheckResult(const Result& result, std::string keys) {
    if (result.first.empty()) return;
    const std::vector<std::string> alternatives = CStringUtil::Split(keys, "|");
    const std::string& value = result.second;
    qdmfuzz::Require(std::count(alternatives.begin(), alternatives.end(), result.first) > 0, "the pair names a key searched");
    qdmfuzz::Require(!value.empty() && value.front() != ' ' && value.back() != ' ', "a value is not empty nor padded");
    qdmfuzz::Require(value.find_first_of("\r\n") == std::string::npos, "a value has no line end");
}

// The records as separate lookups by key and index find them, one file read
// per lookup: slow, but obviously what a record means.
std::list<Record> RecordsByLookups(const std::string& file) {
    static const char* const keys[] = {"Port WWN|Permanent MAC", "Port Number", "PCI Bus Number",
                                       "PCI Function", "Port Type", "Serial No."};
    std::list<Record> records;
    for (unsigned int index = 0; index < 256; ++index) {
        Record record;
        for (const char* key : keys) {
            Result found;
            CEmulexCommon::GetKeyValueFromFile_(file, key, ":", found, index);
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
    static const std::string file = qdmfuzz::InRoot("tmp/EMULEX/cache/Listhbas.txt");
    FuzzedDataProvider input(data, size);
    const int bus = input.ConsumeIntegral<uint8_t>() % 16;
    const int device = input.ConsumeIntegralInRange(0, 31), function = input.ConsumeIntegralInRange(0, 7);
    const unsigned int index = input.ConsumeIntegral<uint8_t>();
    const std::string keys = input.ConsumeRandomLengthString(64);
    const std::string tags = input.ConsumeRandomLengthString(64);
    const std::string separator = input.ConsumeRandomLengthString(4);
    const std::string listing = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(file, listing);

    std::string list = keys;
    const std::vector<std::string> alternatives = CStringUtil::Split(list, "|");
    for (const std::string& line : qdmfuzz::Lines(listing)) {
        const CEmulexCommon::ListhbasLine verdict = CEmulexCommon::ClassifyListhbasLine(line);
        const bool error = line.find("ERROR") != std::string::npos;
        if (verdict == CEmulexCommon::LISTHBAS_SUCCESS)
            qdmfuzz::Require(!error && line.find("Serial No.") != std::string::npos, "success only on a serial number line");
        if (verdict == CEmulexCommon::LISTHBAS_RETRY_ERROR || verdict == CEmulexCommon::LISTHBAS_FATAL_ERROR)
            qdmfuzz::Require(error, "an error verdict needs ERROR in the line");
        Result result;
        if (CEmulexCommon::MatchKeyValueLine(line, alternatives, separator, result) == CEmulexCommon::KEYLINE_VALUE)
            CheckResult(result, keys);
    }
    Result result;
    qdmfuzz::Require(CEmulexCommon::GetKeyValueFromFile_(file, keys, separator, result, index) == 1, "a readable file gives 1");
    CheckResult(result, keys);
    qdmfuzz::Require(CEmulexCommon::GetTagKeyValueFromFile_(file, tags, keys, separator, result, index) == 1,
                     "a readable file gives 1 (tags)");
    CheckResult(result, keys);

    std::list<Record> adapters;
    qdmfuzz::Require(CEmulexCommon::GetHBAInfoList(&adapters) == !adapters.empty(), "the result tells whether adapters were listed");
    for (const Record& record : adapters) qdmfuzz::Require(!record.empty(), "no empty adapter record");
    qdmfuzz::Require(adapters == RecordsByLookups(file), "one pass finds what lookups by index find");

    char id[64];
    std::snprintf(id, sizeof id, "0000:%02x:%02x.%x-PCI\\VEN_10DF&DEV_F100", bus, device, function);
    Record adapter;
    if (CEmulexCommon::GetHBAInfo(id, &adapter))
        qdmfuzz::Require(adapter["PCI Bus Number"] == std::to_string(bus), "the record found lies on the device's bus");
    else
        qdmfuzz::Require(adapter.empty(), "no record on failure");
    std::istringstream in(listing);
    const int multiplier = CEmulexCommon::ListingFunctionMultiplier(in, bus);
    qdmfuzz::Require(multiplier == 2 || multiplier == 8, "function numbering is by 2 or by 8");
    return 0;
}
