#pragma once
// String helpers of the host.
#include <string>
#include <vector>

class CStringUtil {
public:
    static std::string StringToLowerCase(std::string text);
    static std::string StringToUpperCase(std::string text);
    // Replaces every occurrence in place; an empty "from" changes nothing.
    static void strReplace(std::string& text, const std::string& from, const std::string& to);
    // Trims blanks, tabs, carriage returns and line feeds at both ends.
    static void strTrimAll(std::string text, std::string& out);
    // The whole text when the separator is absent; empty fields are kept.
    static std::vector<std::string> Split(std::string& text, const std::string& separator);
    // True for a non-empty text of ASCII digits only.
    static bool IsDigitString(std::string text);
    // True for exactly four non-empty digit segments joined by ".".
    static bool CheckVersion4SegFormat(std::string version);
    static std::string NumberToTString(long number);
    // Leading decimal number; 0 for garbage, clamped on overflow.
    static long TStringToNumber(std::string text);
    static std::string StringToTstring(std::string text);
    static std::string TstringToString(std::string text);
    // "0000:03:00.0-PCI\VEN_10DF&DEV_F100&..." gives "10DF" and "F100".
    static bool GetVenIdDevIdformDeviceId(std::string deviceId, std::string& vendorId,
                                          std::string& deviceIdOut);
};
