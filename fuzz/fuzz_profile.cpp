// The INI readers over a fuzzed file, with fuzzed names and buffer sizes, and
// the supported-device lists read through them.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "Profile.h"

namespace {

// Exactly `size` bytes, so that AddressSanitizer sees a write one past them.
void CheckStringRead(const std::string& section, const std::string& key, unsigned long size, const std::string& file) {
    std::unique_ptr<char[]> buffer(new char[size]);
    std::memset(buffer.get(), 'x', size);
    const unsigned long copied =
        GetPrivateProfileStringA(section.c_str(), key.c_str(), "default", buffer.get(), size, file.c_str());
    qdmfuzz::Require(
        size == 0 ? copied == 0 : copied < size && buffer[copied] == '\0' && std::strlen(buffer.get()) == copied,
        "the copy fits the buffer with its terminator");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string fcIni = qdmfuzz::Root() + "/FcVCFac.ini", cnaIni = qdmfuzz::Root() + "/CnaVCFac.ini";
    FuzzedDataProvider input(data, size);
    const std::string section = input.ConsumeRandomLengthString(24);
    const std::string key = input.ConsumeRandomLengthString(24);
    const unsigned long bufferSize = input.ConsumeIntegralInRange<unsigned long>(0, 300);
    const std::string content = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(fcIni, content);
    qdmfuzz::WriteFile(cnaIni, content);
    CheckStringRead(section, key, bufferSize, fcIni);
    CheckStringRead("SuportDevice", "Vendor1", bufferSize, fcIni);
    GetPrivateProfileIntA(section.c_str(), key.c_str(), -1, fcIni.c_str());

    std::list<std::string> cna, second, third, fc, vendors;
    qdmfuzz::Require(CEmulexCommon::GetVenDevIdList("FcVCFac.ini", &cna, &second, &third, &fc) &&
                         CEmulexCommon::GetVenDevIdList("CnaVCFac.ini", &cna, &second, &third, &fc) &&
                         CEmulexCommon::GetVenderIdList(&vendors),
                     "FC, CNA and vendor lists read");
    qdmfuzz::Require(second.empty() && third.empty(), "the middle lists stay untouched");
    for (const std::list<std::string>* ids : {&cna, &fc})
        for (const std::string& id : *ids) qdmfuzz::Require(id.compare(0, 4, "PCI\\") == 0, "ids are PCI ids");
    for (const std::string& vendor : vendors)
        qdmfuzz::Require(vendor == "10DF" || vendor == "19A2", "only the two vendor ids");
    return 0;
}
