// Version texts: four-segment and FC firmware forms, and their comparison.
#include <cctype>
#include <vector>

#include "CEmulexCommon.h"
#include "FcTrace.h"
#include "StringUtil.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";
const unsigned long kMalformedVersion = 30;

bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }

bool IsLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// -1 when the first is greater (newer), 1 when smaller, 0 when equal.
int CompareNumbers(long first, long second) {
    if (first > second) return -1;
    if (first < second) return 1;
    return 0;
}

// Byte-wise text order as the C library defines it: the difference of the
// first differing bytes, the end of the shorter text counting as zero.
int TextOrder(const std::string& first, const std::string& second) {
    for (std::string::size_type i = 0;; ++i) {
        int a = i < first.size() ? static_cast<unsigned char>(first[i]) : 0;
        int b = i < second.size() ? static_cast<unsigned char>(second[i]) : 0;
        if (a != b || a == 0) return a - b;
    }
}

int ReportMalformedVersion() {
    CEmulexCommon::SetLastError(kMalformedVersion);
    CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEX_FC_0019_F", CEmulexCommon::GetLastErrorToChractor());
    return 0;
}

struct FirmwareParts {
    std::string minor;
    std::string letters;
    std::string tail;
};

// Splits "02a4" into minor digits, letter group and tail. The minor text
// being empty is the scan's state, so a leading letter leaves it empty.
bool SplitFirmwareMinor(const std::string& text, FirmwareParts& parts) {
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (parts.minor.empty()) {
            if (IsLetter(c))
                parts.minor = text.substr(0, i);
            else if (!IsAsciiDigit(c))
                return false;
        } else if (IsAsciiDigit(c)) {
            parts.letters = text.substr(parts.minor.size(), i - parts.minor.size());
            parts.tail = text.substr(i);
            return true;
        } else if (!IsLetter(c)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string CEmulexCommon::FormatVersion4SegCleanDust(std::string version) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::FormatVersion4SegCleanDust() [START]");
    std::string trimmed;
    CStringUtil::strTrimAll(version, trimmed);
    std::vector<std::string> segments = CStringUtil::Split(trimmed, ".");
    std::string result = version;
    if (segments.size() == 4) {
        std::string::size_type dust = FindNotDisitChar(segments[3], 0);
        if (dust != std::string::npos) segments[3].erase(dust);
        result = segments[0] + "." + segments[1] + "." + segments[2] + "." + segments[3];
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::FormatVersion4SegCleanDust() [END]");
    return result;
}

int CEmulexCommon::CheckVendorVersion4SegNormal(std::string version1, std::string version2) {
    CTraceUtility::WriteDebug(
        kTrace, CTraceUtility::TRACE_FUNC,
        "CEmulexCommon::CheckVendorVersion4SegNormal() [Start] Version1=[%s],Version2=[%s]", version1.c_str(),
        version2.c_str());
    int result = 0;
    if (!CStringUtil::CheckVersion4SegFormat(version1) || !CStringUtil::CheckVersion4SegFormat(version2)) {
        result = ReportMalformedVersion();
    } else {
        std::vector<std::string> segments1 = CStringUtil::Split(version1, ".");
        std::vector<std::string> segments2 = CStringUtil::Split(version2, ".");
        for (size_t i = 0; i < segments1.size() && i < segments2.size() && result == 0; ++i)
            result = CompareNumbers(CStringUtil::TStringToNumber(segments1[i]),
                                    CStringUtil::TStringToNumber(segments2[i]));
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::CheckVendorVersion4SegNormal() [END] Return=[%d]", result);
    return result;
}

bool CEmulexCommon::CheckVersionFCFirmwareFormat(std::string version, long& major, long& minor,
                                                 std::string& letters, long& build) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::CheckVersionFCFirmwareFormat() [START]");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEmulexCommon::CheckVersionFCFirmwareFormat() version=[%s]", version.c_str());
    std::vector<std::string> parts = CStringUtil::Split(version, ".");
    FirmwareParts firmware;
    bool valid = parts.size() == 2 && CStringUtil::IsDigitString(parts[0]) &&
                 SplitFirmwareMinor(parts[1], firmware) && CStringUtil::IsDigitString(firmware.tail);
    if (valid) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                                  "CEmulexCommon::CheckVersionFCFirmwareFormat() [%s][%s][%s][%s]",
                                  parts[0].c_str(), firmware.minor.c_str(), firmware.letters.c_str(),
                                  firmware.tail.c_str());
        major = CStringUtil::TStringToNumber(parts[0]);
        minor = CStringUtil::TStringToNumber(firmware.minor);
        letters = firmware.letters;
        build = CStringUtil::TStringToNumber(firmware.tail);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::CheckVersionFCFirmwareFormat() [END]");
    return valid;
}

bool CEmulexCommon::CheckVersionFCFirmwareFormat(std::string version) {
    TraceFunc("CEmulexCommon::CheckVersionFCFirmwareFormat() [START]");
    long major = 0;
    long minor = 0;
    std::string letters;
    long build = 0;
    const bool valid = CheckVersionFCFirmwareFormat(version, major, minor, letters, build);
    TraceFunc("CEmulexCommon::CheckVersionFCFirmwareFormat() [END]");
    return valid;
}

int CEmulexCommon::CheckVendorVersionFCFirmware(std::string version1, std::string version2) {
    CTraceUtility::WriteDebug(
        kTrace, CTraceUtility::TRACE_FUNC,
        "CEmulexCommon::CheckVendorVersionFCFirmware() [Start] Version1=[%s],Version2=[%s]", version1.c_str(),
        version2.c_str());
    long major1 = 0, minor1 = 0, build1 = 0;
    long major2 = 0, minor2 = 0, build2 = 0;
    std::string letters1, letters2;
    int result = 0;
    // Both are parsed (and traced) even when the first is malformed.
    const bool valid1 = CheckVersionFCFirmwareFormat(version1, major1, minor1, letters1, build1);
    const bool valid2 = CheckVersionFCFirmwareFormat(version2, major2, minor2, letters2, build2);
    if (!valid1 || !valid2) {
        result = ReportMalformedVersion();
    } else {
        result = CompareNumbers(major1, major2);
        if (result == 0) result = CompareNumbers(minor1, minor2);
        // The raw comparison value is returned on purpose; callers test the sign only.
        if (result == 0) result = TextOrder(letters2, letters1);
        if (result == 0) result = CompareNumbers(build1, build2);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::CheckVendorVersionFCFirmware() [END] Return=[%d]", result);
    return result;
}
