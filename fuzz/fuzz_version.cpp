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

int Sign(int value) { return (value > 0) - (value < 0); }

// Compares, and checks that a malformed argument gives 0 with error 30.
int CheckedCompare(Compare compare, bool (*wellFormed)(const std::string&), const std::string& first,
                   const std::string& second) {
    CEmulexCommon::SetLastError(0);
    int order = compare(first, second);
    bool valid = wellFormed(first) && wellFormed(second);
    qdmfuzz::Require(valid ? CEmulexCommon::GetLastError() == 0 : order == 0 && CEmulexCommon::GetLastError() == 30,
                     "malformed versions give 0 and error 30, valid ones no error");
    return order;
}

void CheckOrder(Compare compare, bool (*wellFormed)(const std::string&), const std::string& a, const std::string& b,
                const std::string& c) {
    int ab = Sign(CheckedCompare(compare, wellFormed, a, b));
    int ba = Sign(CheckedCompare(compare, wellFormed, b, a));
    int bc = Sign(CheckedCompare(compare, wellFormed, b, c));
    int ac = Sign(CheckedCompare(compare, wellFormed, a, c));
    qdmfuzz::Require(CheckedCompare(compare, wellFormed, a, a) == 0, "a version equals itself");
    qdmfuzz::Require(ab == -ba, "the order is antisymmetric");
    if (ab == bc && ab != 0) qdmfuzz::Require(ac == ab, "the order is transitive");
}

bool IsFourSegment(const std::string& version) { return CStringUtil::CheckVersion4SegFormat(version); }

bool IsFirmware(const std::string& version) { return CEmulexCommon::CheckVersionFCFirmwareFormat(version); }

bool AllLetters(const std::string& text) {
    for (char c : text)
        if (!std::isalpha(static_cast<unsigned char>(c))) return false;
    return !text.empty();
}

void CheckFirmwareParse(const std::string& version) {
    long major = -1, minor = -1, build = -1;
    std::string letters;
    if (!CEmulexCommon::CheckVersionFCFirmwareFormat(version, major, minor, letters, build)) return;
    qdmfuzz::Require(major >= 0 && minor >= 0 && build >= 0, "firmware numbers are not negative");
    qdmfuzz::Require(AllLetters(letters), "the letter group holds letters only");
}

void CheckCleanDust(const std::string& version) {
    std::string cleaned = CEmulexCommon::FormatVersion4SegCleanDust(version);
    if (IsFourSegment(version)) qdmfuzz::Require(cleaned == version, "a clean version is kept");
    std::string trimmed;
    CStringUtil::strTrimAll(version, trimmed);
    if (CStringUtil::Split(trimmed, ".").size() != 4) {
        qdmfuzz::Require(cleaned == version, "a version of other than four segments is kept as it is");
        return;
    }
    std::string last = CStringUtil::Split(cleaned, ".").back();
    qdmfuzz::Require(last.empty() || CStringUtil::IsDigitString(last), "the fourth segment is cut to its digits");
}

void CheckStringHelpers(const std::string& text, const std::string& separator, long number) {
    std::string copy = text;
    std::vector<std::string> fields = CStringUtil::Split(copy, separator);
    std::string joined;
    for (size_t i = 0; i < fields.size(); ++i) joined += (i ? separator : "") + fields[i];
    qdmfuzz::Require(joined == text, "split fields join back to the text");

    std::string upper = CStringUtil::StringToUpperCase(text);
    qdmfuzz::Require(upper.size() == text.size() && CStringUtil::StringToUpperCase(CStringUtil::StringToLowerCase(text)) == upper,
                     "case mapping keeps length and round-trips");

    std::string trimmed, again;
    CStringUtil::strTrimAll(text, trimmed);
    CStringUtil::strTrimAll(trimmed, again);
    qdmfuzz::Require(trimmed == again, "trimming is idempotent");

    std::string replaced = text;
    CStringUtil::strReplace(replaced, separator, separator);
    qdmfuzz::Require(replaced == text, "replacing a text by itself changes nothing");
    CStringUtil::strReplace(replaced, separator, "");
    qdmfuzz::Require(replaced.size() <= text.size(), "deleting never grows the text");

    qdmfuzz::Require(CStringUtil::TStringToNumber(CStringUtil::NumberToTString(number)) == number,
                     "numbers round-trip through text");
    if (CStringUtil::IsDigitString(text)) qdmfuzz::Require(CStringUtil::TStringToNumber(text) >= 0, "digits are not negative");

    std::string vendor = "-", device = "-";
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
    for (const std::string* version : {&a, &b, &c}) {
        CheckFirmwareParse(*version);
        CheckCleanDust(*version);
    }
    CheckStringHelpers(a, separator, number);
    return 0;
}
