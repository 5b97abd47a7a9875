#include "StringUtil.h"

#include <cctype>
#include <climits>

namespace {

bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char ToUpperAscii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

char ToLowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// The four hexadecimal digits after the tag ("VEN_", "DEV_"), searched without case.
bool HexAfterTag(const std::string& upperText, const std::string& tag, std::string& out) {
    size_t at = upperText.find(tag);
    if (at == std::string::npos) return false;
    std::string digits = upperText.substr(at + tag.size(), 4);
    if (digits.size() != 4) return false;
    for (char c : digits)
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    out = digits;
    return true;
}

}  // namespace

std::string CStringUtil::StringToLowerCase(std::string text) {
    for (char& c : text) c = ToLowerAscii(c);
    return text;
}

std::string CStringUtil::StringToUpperCase(std::string text) {
    for (char& c : text) c = ToUpperAscii(c);
    return text;
}

void CStringUtil::strReplace(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty()) return;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

void CStringUtil::strTrimAll(std::string text, std::string& out) {
    size_t first = 0;
    while (first < text.size() && IsBlank(text[first])) ++first;
    size_t last = text.size();
    while (last > first && IsBlank(text[last - 1])) --last;
    out = text.substr(first, last - first);
}

std::vector<std::string> CStringUtil::Split(std::string& text, const std::string& separator) {
    if (separator.empty()) return {text};
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t at = text.find(separator); at != std::string::npos;
         at = text.find(separator, start)) {
        fields.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
    fields.push_back(text.substr(start));
    return fields;
}

bool CStringUtil::IsDigitString(std::string text) {
    if (text.empty()) return false;
    for (char c : text)
        if (!IsAsciiDigit(c)) return false;
    return true;
}

bool CStringUtil::CheckVersion4SegFormat(std::string version) {
    std::vector<std::string> segments = Split(version, ".");
    if (segments.size() != 4) return false;
    for (const auto& segment : segments)
        if (!IsDigitString(segment)) return false;
    return true;
}

std::string CStringUtil::NumberToTString(long number) { return std::to_string(number); }

long CStringUtil::TStringToNumber(std::string text) {
    size_t at = 0;
    while (at < text.size() && IsBlank(text[at])) ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
    // Accumulate towards the sign so LONG_MIN itself is reachable.
    long value = 0;
    for (; at < text.size() && IsAsciiDigit(text[at]); ++at) {
        int digit = text[at] - '0';
        if (negative) {
            if (value < (LONG_MIN + digit) / 10) return LONG_MIN;
            value = value * 10 - digit;
        } else {
            if (value > (LONG_MAX - digit) / 10) return LONG_MAX;
            value = value * 10 + digit;
        }
    }
    return value;
}

std::string CStringUtil::StringToTstring(std::string text) { return text; }

std::string CStringUtil::TstringToString(std::string text) { return text; }

bool CStringUtil::GetVenIdDevIdformDeviceId(std::string deviceId, std::string& vendorId,
                                            std::string& deviceIdOut) {
    std::string upper = StringToUpperCase(deviceId);
    std::string vendor;
    std::string device;
    if (!HexAfterTag(upper, "VEN_", vendor) || !HexAfterTag(upper, "DEV_", device)) return false;
    vendorId = vendor;
    deviceIdOut = device;
    return true;
}
