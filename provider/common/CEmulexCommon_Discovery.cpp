// Supported-device lists from the provider's ini files and the mapping of a
// PCI device to its record in the adapter listing.
#include <cerrno>
#include <fstream>
#include <istream>
#include <iterator>
#include <mutex>
#include <optional>
#include <sstream>
#include <vector>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "Profile.h"
#include "StringUtil.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";
const char kSection[] = "SuportDevice";
const char kFcIni[] = "FcVCFac.ini";
const char kCnaIni[] = "CnaVCFac.ini";
const char kListingName[] = "Listhbas.txt";
const char kBusKey[] = "PCI Bus Number";
const char kFunctionKey[] = "PCI Function";

const unsigned long kProfileBuffer = 256;
// Bounds on what a damaged ini file or listing can make us walk through.
const int kMaxSupportedDevices = 1024;
const unsigned int kMaxAdapters = 256;

// The listing aligns its values at this column; reads are made in chunks of
// this many characters, as the tool's lines are short.
const std::string::size_type kValueColumn = 17;
const size_t kLineChunk = 127;

const char* const kRecordKeys[] = {"Port WWN|Permanent MAC", "Port Number", kBusKey,
                                   kFunctionKey,             "Port Type",   "Serial No."};

std::string IniPath(const char* name) { return CFileUtility::GetInstallPath(0) + "/" + name; }

std::string ReadProfileString(const std::string& iniPath, const std::string& key) {
    char buffer[kProfileBuffer] = "";
    GetPrivateProfileStringA(kSection, key.c_str(), "", buffer, kProfileBuffer, iniPath.c_str());
    return buffer;
}

int SupportedDeviceCount(const std::string& iniPath) {
    const int count = static_cast<int>(GetPrivateProfileIntA(kSection, "SuportDeviceNum", 0, iniPath.c_str()));
    if (count <= 0) return 0;
    return count > kMaxSupportedDevices ? kMaxSupportedDevices : count;
}

// The text behind the first `count` characters (all of it dropped when shorter).
std::string WithoutPrefix(const std::string& text, std::string::size_type count) {
    return text.substr(count < text.size() ? count : text.size());
}

std::string EntryVendor(const std::string& iniPath, int entry) {
    return ReadProfileString(iniPath, "Vendor" + std::to_string(entry));
}

std::string EntryDevice(const std::string& iniPath, int entry) {
    return ReadProfileString(iniPath, "Device" + std::to_string(entry));
}

bool IsConvergedVendor(const std::string& vendorId) { return vendorId == "10DF" || vendorId == "19A2"; }

// Converged entries are listed only for devices whose id ends in a single 0
// behind "DEV_xxx" (the adapters' first function), deliberately.
bool IsListedConvergedDevice(const std::string& device) { return WithoutPrefix(device, 7) == "0"; }

void AppendSupportedIds(const char* iniName, bool converged, std::list<std::string>& ids) {
    const std::string iniPath = IniPath(iniName);
    const int count = SupportedDeviceCount(iniPath);
    for (int entry = 1; entry <= count; ++entry) {
        const std::string vendor = EntryVendor(iniPath, entry);
        const std::string vendorId = WithoutPrefix(vendor, 4);
        if (converged ? !IsConvergedVendor(vendorId) : vendorId != "10DF") continue;
        const std::string device = EntryDevice(iniPath, entry);
        if (converged && !IsListedConvergedDevice(device)) continue;
        ids.push_back("PCI\\" + vendor + "&" + device);
    }
}

// Like fgets with a 128-byte buffer read as a C string: a line, or the next
// 127 characters of a longer one, cut at a NUL byte.
bool ReadLineChunk(std::istream& in, std::string& chunk) {
    chunk.clear();
    char c;
    bool read = false;
    while (chunk.size() < kLineChunk && in.get(c)) {
        read = true;
        chunk.push_back(c);
        if (c == '\n') break;
    }
    const std::string::size_type nul = chunk.find('\0');
    if (nul != std::string::npos) chunk.erase(nul);
    return read;
}

// The lines of the listing that name one key, in order. Entry k is what a
// lookup of the key with index k finds: the value of the k-th such line or,
// when it has none, of the next one that has.
class KeyLookups {
public:
    explicit KeyLookups(std::string keys) : alternatives_(CStringUtil::Split(keys, "|")) {}

    void Scan(const std::string& line) {
        std::pair<std::string, std::string> candidate;
        const CEmulexCommon::KeyLineMatch match = CEmulexCommon::MatchKeyValueLine(line, alternatives_, ":", candidate);
        if (match != CEmulexCommon::KEYLINE_NO_KEY) found_.push_back(candidate);  // empty without a value
    }

    // Fills the lines without a value from the next line that has one.
    void Resolve() {
        for (size_t i = found_.size(); i-- > 1;)
            if (found_[i - 1].first.empty()) found_[i - 1] = found_[i];
    }

    const std::pair<std::string, std::string>* At(size_t index) const {
        if (index >= found_.size() || found_[index].first.empty()) return nullptr;
        return &found_[index];
    }

private:
    std::vector<std::string> alternatives_;
    std::vector<std::pair<std::string, std::string>> found_;
};

// The decimal number at the value column, at most `width` digits; -1 when
// the line is too short or holds no digit there.
int NumberAtValueColumn(const std::string& line, std::string::size_type width) {
    if (line.size() <= kValueColumn) return -1;
    int number = -1;
    for (std::string::size_type i = kValueColumn; i < line.size() && i < kValueColumn + width; ++i) {
        if (line[i] < '0' || line[i] > '9') break;
        number = (number < 0 ? 0 : number * 10) + (line[i] - '0');
    }
    return number;
}

bool HasValue(const std::map<std::string, std::string>& record, const char* key, const std::string& value) {
    auto it = record.find(key);
    return it != record.end() && it->second == value;
}

const std::map<std::string, std::string>* FindRecordAt(const std::list<std::map<std::string, std::string>>& adapters,
                                                        int bus, long function) {
    const std::string busText = CStringUtil::NumberToTString(bus);
    const std::string functionText = CStringUtil::NumberToTString(function);
    for (const auto& record : adapters) {
        auto recordBus = record.find(kBusKey);
        auto recordFunction = record.find(kFunctionKey);
        CTraceUtility::WriteDebug(
            kTrace, CTraceUtility::TRACE_INFO,
            "CEmulexCommon::GetHBAInfo() EMULEX_CMN_HBAKEY_PCIBUSNUM[%s] bus[%s] EMULEX_CMN_HBAKEY_PCIFUNC[%s] func[%s]",
            recordBus == record.end() ? "" : recordBus->second.c_str(), busText.c_str(),
            recordFunction == record.end() ? "" : recordFunction->second.c_str(), functionText.c_str());
        if (HasValue(record, kBusKey, busText) && HasValue(record, kFunctionKey, functionText)) return &record;
    }
    return nullptr;
}

bool OpenListing(const std::string& path, std::ifstream& in) {
    errno = 0;
    in.open(path);
    if (in) return true;
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "File Open Error. file(%s) errcode(%d)", path.c_str(),
                              errno);
    return false;
}

// The listing's text, whole; false (with the open error) when it cannot be read.
bool ReadListing(std::string* text) {
    std::ifstream in;
    if (!OpenListing(CEmulexCommon::CacheFilePath(kListingName), in)) return false;
    std::ostringstream whole;
    whole << in.rdbuf();  // in blocks, not character by character
    *text = whole.str();
    return true;
}

// Every port's discovery reads the listing twice (its records, its function
// numbering), which parsed afresh each time costs more at 64 ports than all
// the tool runs of an inventory. Both answers are kept with the text they
// came from and given again while the listing holds the same text.
class ParsedListing {
public:
    std::list<std::map<std::string, std::string>> Adapters(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        Use(text);
        if (!adapters_) {
            std::istringstream listing(text_);
            adapters_ = CEmulexCommon::ParseHBAListing(listing);
        }
        return *adapters_;
    }

    int FunctionMultiplier(const std::string& text, int bus) {
        std::lock_guard<std::mutex> lock(mutex_);
        Use(text);
        auto known = multipliers_.find(bus);
        if (known != multipliers_.end()) return known->second;
        std::istringstream listing(text_);
        return multipliers_[bus] = CEmulexCommon::ListingFunctionMultiplier(listing, bus);
    }

private:
    void Use(const std::string& text) {
        if (text == text_) return;
        text_ = text;
        adapters_.reset();
        multipliers_.clear();
    }

    std::mutex mutex_;
    std::string text_;
    std::optional<std::list<std::map<std::string, std::string>>> adapters_;
    std::map<int, int> multipliers_;
};

ParsedListing& Listing() {
    static ParsedListing listing;
    return listing;
}

bool FailHBAInfo(unsigned long error, const char* trace) {
    if (error != 0) CEmulexCommon::SetLastError(error);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "%s", trace);
    return false;
}

}  // namespace

// The two middle lists belong to other adapter kinds; this provider leaves them alone.
bool CEmulexCommon::GetVenDevIdList(std::string iniName, std::list<std::string>* cnaIds, std::list<std::string>*,
                                    std::list<std::string>*, std::list<std::string>* fcIds) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetVenDevIdList() [START]");
    bool result = true;
    const bool converged = iniName.find(kCnaIni) != std::string::npos;
    if (converged || iniName.find(kFcIni) != std::string::npos) {
        std::list<std::string>* ids = converged ? cnaIds : fcIds;
        if (ids == nullptr) {
            SetLastError(1);
            result = false;
        } else {
            AppendSupportedIds(converged ? kCnaIni : kFcIni, converged, *ids);
        }
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetVenDevIdList() [END]");
    return result;
}

bool CEmulexCommon::GetVenderIdList(std::list<std::string>* ids) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetVenderIdList() [START]");
    if (ids == nullptr) {
        SetLastError(1);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetVenderIdList() [END]");
        return false;
    }
    const std::string iniPath = IniPath(kCnaIni);
    const int count = SupportedDeviceCount(iniPath);
    for (int entry = 1; entry <= count; ++entry) {
        const std::string vendorId = WithoutPrefix(EntryVendor(iniPath, entry), 4);
        if (IsConvergedVendor(vendorId)) ids->push_back(vendorId);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetVenderIdList() [END]");
    return true;
}

bool CEmulexCommon::GetHBAInfoList(std::list<std::map<std::string, std::string>>* adapters) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfoList() [START]");
    if (adapters == nullptr) {
        SetLastError(1);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfoList(%s) [END]", "NG");
        return false;
    }
    adapters->clear();
    std::string text;
    // An unreadable listing keeps its own error (17), not "no adapters".
    const bool readable = ReadListing(&text);
    if (readable) *adapters = Listing().Adapters(text);
    if (readable && adapters->empty()) SetLastError(15);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfoList(%s) [END]",
                              adapters->empty() ? "NG" : "OK");
    return !adapters->empty();
}

int CEmulexCommon::ListingFunctionMultiplier(std::istream& listing, int bus) {
    std::string line;
    while (ReadLineChunk(listing, line)) {
        if (line.find(kBusKey) == std::string::npos) continue;
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "[%s] is found", kBusKey);
        // One character only: a bus of 10 or more never matches, deliberately.
        if (NumberAtValueColumn(line, 1) != bus || !ReadLineChunk(listing, line)) continue;
        if (line.find(kFunctionKey) != std::string::npos && NumberAtValueColumn(line, 2) >= 8) return 8;
    }
    return 2;
}

std::list<std::map<std::string, std::string>> CEmulexCommon::ParseHBAListing(std::istream& listing) {
    std::vector<KeyLookups> lookups(std::begin(kRecordKeys), std::end(kRecordKeys));
    std::string line;
    while (ReadLineChunk(listing, line))
        for (KeyLookups& key : lookups) key.Scan(line);
    for (KeyLookups& key : lookups) key.Resolve();

    std::list<std::map<std::string, std::string>> adapters;
    for (size_t index = 0; index < kMaxAdapters; ++index) {
        std::map<std::string, std::string> record;
        for (const KeyLookups& key : lookups) {
            const std::pair<std::string, std::string>* found = key.At(index);
            if (found == nullptr) break;
            record[found->first] = found->second;
        }
        if (record.empty()) break;
        adapters.push_back(record);
    }
    return adapters;
}

bool CEmulexCommon::GetHBAInfo(std::string deviceId, std::map<std::string, std::string>* adapter) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfo() [START]");
    if (adapter == nullptr) return FailHBAInfo(1, "CEmulexCommon::GetHBAInfo() param error [END]");
    adapter->clear();

    std::list<std::map<std::string, std::string>> adapters;
    if (!GetHBAInfoList(&adapters))
        return FailHBAInfo(0, "CEmulexCommon::GetHBAInfo() GetHBAInfoList result error [END]");

    int bus = 0, device = 0, function = 0;
    if (!CCommon_Information::GetPCIInfo(deviceId, &bus, &device, &function, kTrace))
        return FailHBAInfo(13, "CEmulexCommon::GetHBAInfo() CCommon_Information::GetPCIInfo result error [END]");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::GetHBAInfo() PCIinfo deviceID[%s] bus[%d] dev[%d] func[%d]",
                              deviceId.c_str(), bus, device, function);

    std::string text;
    if (!ReadListing(&text)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfo(%s) [END]", "NG");
        return false;
    }
    const long expectedFunction = static_cast<long>(Listing().FunctionMultiplier(text, bus)) * device + function;

    const std::map<std::string, std::string>* match = FindRecordAt(adapters, bus, expectedFunction);
    if (match != nullptr) *adapter = *match;
    else SetLastError(14);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHBAInfo(%s) [END]", match ? "OK" : "NG");
    return match != nullptr;
}
