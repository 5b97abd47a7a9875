// Adapter listing: the verdict on each line of "listhbas" output, the
// adapter records read from "Listhbas.txt" (checked against lookups by key
// and index), and the search for the record of one PCI device (its address
// taken from the first input bytes).
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <sstream>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

struct PciAddress {
    int bus;
    int device;
    int function;
};

std::string DeviceIdOf(const PciAddress& address) {
    char text[64];
    std::snprintf(text, sizeof text, "0000:%02x:%02x.%x-PCI\\VEN_10DF&DEV_F100", address.bus,
                  address.device, address.function);
    return text;
}

void FuzzLineVerdicts(const std::string& listing) {
    for (const std::string& line : qdmfuzz::Lines(listing)) {
        CEmulexCommon::ListhbasLine verdict = CEmulexCommon::ClassifyListhbasLine(line);
        bool error = line.find("ERROR") != std::string::npos;
        if (verdict == CEmulexCommon::LISTHBAS_SUCCESS)
            qdmfuzz::Require(!error && line.find("Serial No.") != std::string::npos,
                             "success only on a serial number line without ERROR");
        if (verdict == CEmulexCommon::LISTHBAS_RETRY_ERROR || verdict == CEmulexCommon::LISTHBAS_FATAL_ERROR)
            qdmfuzz::Require(error, "an error verdict needs ERROR in the line");
    }
}

using Records = std::list<std::map<std::string, std::string>>;

// The records as separate lookups by key and index find them, one file read
// per lookup: slow, but obviously what a record means.
Records RecordsByLookups(const std::string& file) {
    static const char* const keys[] = {"Port WWN|Permanent MAC", "Port Number", "PCI Bus Number",
                                       "PCI Function",           "Port Type",   "Serial No."};
    Records records;
    for (unsigned int index = 0; index < 256; ++index) {
        std::map<std::string, std::string> record;
        for (const char* key : keys) {
            std::pair<std::string, std::string> found;
            CEmulexCommon::GetKeyValueFromFile_(file, key, ":", found, index);
            if (found.first.empty()) break;
            record[found.first] = found.second;
        }
        if (record.empty()) break;
        records.push_back(record);
    }
    return records;
}

void FuzzAdapterList(const std::string& file) {
    Records adapters;
    bool listed = CEmulexCommon::GetHBAInfoList(&adapters);
    qdmfuzz::Require(listed == !adapters.empty(), "the result tells whether adapters were listed");
    for (const auto& record : adapters) qdmfuzz::Require(!record.empty(), "no empty adapter record");
    qdmfuzz::Require(adapters == RecordsByLookups(file), "one pass finds what lookups by index find");
}

void FuzzDeviceLookup(const PciAddress& address) {
    std::map<std::string, std::string> adapter;
    if (!CEmulexCommon::GetHBAInfo(DeviceIdOf(address), &adapter)) {
        qdmfuzz::Require(adapter.empty(), "no record on failure");
        return;
    }
    qdmfuzz::Require(adapter["PCI Bus Number"] == CStringUtil::NumberToTString(address.bus),
                     "the record found lies on the device's bus");
}

void FuzzFunctionNumbering(const std::string& listing, int bus) {
    std::istringstream in(listing);
    int multiplier = CEmulexCommon::ListingFunctionMultiplier(in, bus);
    qdmfuzz::Require(multiplier == 2 || multiplier == 8, "function numbering is by 2 or by 8");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string file = qdmfuzz::InRoot("tmp/EMULEX/cache/Listhbas.txt");
    FuzzedDataProvider input(data, size);
    PciAddress address;
    address.bus = input.ConsumeIntegral<uint8_t>() % 16;
    address.device = input.ConsumeIntegralInRange(0, 31);
    address.function = input.ConsumeIntegralInRange(0, 7);
    const std::string listing = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(file, listing);

    FuzzLineVerdicts(listing);
    FuzzAdapterList(file);
    FuzzDeviceLookup(address);
    FuzzFunctionNumbering(listing, address.bus);
    return 0;
}
