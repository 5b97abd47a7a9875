// Version texts: normalisation, the two grammars, the two comparisons (their
// sign must be antisymmetric and transitive) and the host's string helpers
// they rest on.
#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

using Compare = int (*)(std::string, std::string);
using Grammar = bool (*)(const std::string&);

// The sign of the order; a malformed argument must give 0 with error 30, a valid pair no error.
int Order(Compare compare, Grammar wellFormed, const std::string& first, const std::string& second) {
    CEmulexCommon::SetLastError(0);
    const int order = compare(first, second);
    const bool valid = wellFormed(first) && wellFormed(second);
    qdmfuzz::Require(valid ? CEmulexCommon::GetLastError() == 0 : order == 0 && CEmulexCommon::GetLastError() == 30,
                     "malformed versions give 0 and error 30, valid ones no error");
    return (order > 0) - (order < 0);
}

void CheckOrder(Compare compare, Grammar wellFormed, const std::string& a, const std::string& b, const std::string& c) {
    const int ab = Order(compare, wellFormed, a, b), bc = Order(compare, wellFormed, b, c);
    qdmfuzz::Require(Order(compare, wellFormed, a, a) == 0, "a version equals itself");
    qdmfuzz::Require(ab == -Order(compare, wellFormed, b, a), "the order is antisymmetric");
    if (ab == bc && ab != 0) qdmfuzz::Require(Order(compare, wellFormed, a, c) == ab, "the order is transitive");
}

bool IsFourSegment(const std::string& version) { return CStringUtil::CheckVersion4SegFormat(version); }
bool IsFirmware(const std::string& version) { return CEmulexCommon::CheckVersionFCFirmwareFormat(version); }

void CheckParts(const std::string& version) {
    long major = -1, minor = -1, build = -1;
    std::string letters;
    if (CEmulexCommon::CheckVersionFCFirmwareFormat(version, major, minor, letters, build)) {
        qdmfuzz::Require(major >= 0 && minor >= 0 && build >= 0 && !letters.empty(), "firmware parts are sane");
        for (char c : letters) qdmfuzz::Require(std::isalpha(static_cast<unsigned char>(c)), "the letter group holds letters");
    }
    std::string cleaned = CEmulexCommon::FormatVersion4SegCleanDust(version);
    std::string trimmed;
    CStringUtil::strTrimAll(version, trimmed);
    const std::string last = CStringUtil::Split(cleaned, ".").back();
    if (IsFourSegment(version) || CStringUtil::Split(trimmed, ".").size() != 4)
        qdmfuzz::Require(cleaned == version, "a clean version, or one of other than four segments, is kept");
    else
        qdmfuzz::Require(last.empty() || CStringUtil::IsDigitString(last), "the fourth segment is cut to its digits");
}

void CheckStringHelpers(const std::string& text, const std::string& separator, long number) {
    std::string copy = text, joined, trimmed, again;
    const std::vector<std::string> fields = CStringUtil::Split(copy, separator);
    for (size_t i = 0; i < fields.size(); ++i) joined += (i ? separator : "") + fields[i];
    qdmfuzz::Require(joined == text, "split fields join back to the text");
    const std::string upper = CStringUtil::StringToUpperCase(text);
    qdmfuzz::Require(CStringUtil::StringToUpperCase(CStringUtil::StringToLowerCase(text)) == upper && upper.size() == text.size(),
                     "case mapping keeps length and round-trips");
    CStringUtil::strTrimAll(text, trimmed);
    CStringUtil::strTrimAll(trimmed, again);
    qdmfuzz::Require(trimmed == again, "trimming is idempotent");
    copy = text;
    CStringUtil::strReplace(copy, separator, separator);
    qdmfuzz::Require(copy == text, "replacing a text by itself changes nothing");
    CStringUtil::strReplace(copy, separator, "");
    qdmfuzz::Require(copy.size() <= text.size(), "deleting never grows the text");
    qdmfuzz::Require(CStringUtil::TStringToNumber(CStringUtil::NumberToTString(number)) == number, "numbers round-trip");
    if (CStringUtil::IsDigitString(text)) qdmfuzz::Require(CStringUtil::TStringToNumber(text) >= 0, "digits are not negative");
    std::string vendor, device;
    if (CStringUtil::GetVenIdDevIdformDeviceId(text, vendor, device))
        qdmfuzz::Require(vendor.size() == 4 && device.size() == 4, "PCI ids have four digits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qdmfuzz::Root();
    FuzzedDataProvider input(data, size);
    const long number = input.ConsumeIntegral<long>();
    const std::string separator = input.ConsumeRandomLengthString(3);
    const std::string a = input.ConsumeRandomLengthString(40);
    const std::string b = input.ConsumeRandomLengthString(40);
    const std::string c = input.ConsumeRemainingBytesAsString();
    CheckOrder(CEmulexCommon::CheckVendorVersion4SegNormal, IsFourSegment, a, b, c);
    CheckOrder(CEmulexCommon::CheckVendorVersionFCFirmware, IsFirmware, a, b, c);
    for (const std::string* version : {&a, &b, &c}) CheckParts(*version);
    CheckStringHelpers(a, separator, number);
    return 0;
}
