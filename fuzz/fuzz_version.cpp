// Version texts: normalisation, the two grammars and the two comparisons
// (their sign must be antisymmetric and transitive).
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

using Compare = int (*)(std::string, std::string);
using Grammar = bool (*)(std::string);

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
    qdmfuzz::Require(ab != bc || ab == 0 || Order(compare, wellFormed, a, c) == ab, "the order is transitive");
}

void CheckParts(const std::string& version) {
    long major = -1, minor = -1, build = -1;
    std::string letters, cleaned = CEmulexCommon::FormatVersion4SegCleanDust(version), trimmed;
    if (CEmulexCommon::CheckVersionFCFirmwareFormat(version, major, minor, letters, build))
        qdmfuzz::Require(major >= 0 && minor >= 0 && build >= 0 && !letters.empty() &&
                             std::all_of(letters.begin(), letters.end(), [](char c) { return std::isalpha(c & 0xff); }),
                         "firmware parts are sane, the letter group holds letters");
    CStringUtil::strTrimAll(version, trimmed);
    const std::string last = CStringUtil::Split(cleaned, ".").back();
    if (CStringUtil::CheckVersion4SegFormat(version) || CStringUtil::Split(trimmed, ".").size() != 4)
        qdmfuzz::Require(cleaned == version, "a clean version, or one of other than four segments, is kept");
    else
        qdmfuzz::Require(last.empty() || CStringUtil::IsDigitString(last), "the fourth segment is cut to its digits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qdmfuzz::Root();
    FuzzedDataProvider input(data, size);
    const std::string a = input.ConsumeRandomLengthString(40);
    const std::string b = input.ConsumeRandomLengthString(40);
    const std::string c = input.ConsumeRemainingBytesAsString();
    CheckOrder(CEmulexCommon::CheckVendorVersion4SegNormal, CStringUtil::CheckVersion4SegFormat, a, b, c);
    CheckOrder(
        CEmulexCommon::CheckVendorVersionFCFirmware,
        [](std::string version) { return CEmulexCommon::CheckVersionFCFirmwareFormat(version); }, a, b, c);
    for (const std::string* version : {&a, &b, &c}) CheckParts(*version);
    return 0;
}
