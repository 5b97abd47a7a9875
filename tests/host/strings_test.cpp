// String helpers and device identifier parsing on edge inputs.
#include <climits>

#include "CommonInformation.h"
#include "StringUtil.h"
#include "TestEnv.h"

namespace {

using S = CStringUtil;

TEST(StringUtilTest, Trim) {
    std::pair<std::string, std::string> rows[] = {
        {"  a b \t\r\n", "a b"}, {"\n\n", ""}, {"", ""}, {"x", "x"}, {"\t x\ty \r", "x\ty"}};
    for (const auto& row : rows) {
        std::string out = "stale";
        S::strTrimAll(row.first, out);
        EXPECT_EQ(row.second, out) << "[" << row.first << "]";
    }
}

TEST(StringUtilTest, Split) {
    struct Row {
        std::string text;
        std::string separator;
        std::vector<std::string> fields;
    } rows[] = {
        {"a.b.c", ".", {"a", "b", "c"}},
        {"abc", ".", {"abc"}},             // separator absent: whole text
        {"a..b.", ".", {"a", "", "b", ""}},  // empty fields kept
        {"", ".", {""}},
        {"a::b", "::", {"a", "b"}},        // multi-character separator
        {"a.b", "", {"a.b"}},              // empty separator: whole text
    };
    for (auto& row : rows) EXPECT_EQ(row.fields, S::Split(row.text, row.separator)) << row.text;
}

TEST(StringUtilTest, DigitsAndVersionFormat) {
    EXPECT_TRUE(S::IsDigitString("0123"));
    EXPECT_FALSE(S::IsDigitString(""));
    EXPECT_FALSE(S::IsDigitString("12a"));
    EXPECT_FALSE(S::IsDigitString("-1"));
    struct Row {
        const char* version;
        bool ok;
    } rows[] = {
        {"11.2.156.27", true}, {"1.2.3", false},    {"1.2.3.4.5", false}, {"1..3.4", false},
        {"1.2.3.", false},     {"1.2.3.x", false},  {"", false},          {" 1.2.3.4", false},
        {"1.2.3.+4", false},
    };
    for (const auto& row : rows) EXPECT_EQ(row.ok, S::CheckVersion4SegFormat(row.version)) << row.version;
}

TEST(StringUtilTest, Numbers) {
    struct Row {
        const char* text;
        long value;
    } rows[] = {
        {"42", 42},
        {"-17abc", -17},                    // leading number only
        {"+8", 8},
        {"abc", 0},                          // garbage
        {"", 0},
        {"-", 0},
        {"99999999999999999999999", LONG_MAX},  // clamped
        {"-99999999999999999999999", LONG_MIN},
        {"-9223372036854775808", LONG_MIN},
        {"9223372036854775807", LONG_MAX},
    };
    for (const auto& row : rows) EXPECT_EQ(row.value, S::TStringToNumber(row.text)) << row.text;
    EXPECT_EQ("-12", S::NumberToTString(-12));
    EXPECT_EQ(std::to_string(LONG_MIN), S::NumberToTString(LONG_MIN));
}

TEST(StringUtilTest, CaseAndReplace) {
    EXPECT_EQ("abc-Ä", S::StringToLowerCase("ABC-Ä"));
    EXPECT_EQ("ABC", S::StringToUpperCase("aBc"));
    std::string text = "a:b::c";
    S::strReplace(text, ":", "::");  // replacement contains the pattern: no endless loop
    EXPECT_EQ("a::b::::c", text);
    S::strReplace(text, "", "x");
    EXPECT_EQ("a::b::::c", text);
    S::strReplace(text, "::", "");
    EXPECT_EQ("abc", text);
}

TEST(StringUtilTest, VendorAndDeviceIds) {
    struct Row {
        const char* id;
        bool ok;
        const char* vendor;
        const char* device;
    } rows[] = {
        {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", true, "10DF", "F100"},
        {"03:00.1-pci\\ven_10df&dev_e200", true, "10DF", "E200"},  // case-insensitive, upper result
        {"PCI\\VEN_10DF", false, "", ""},                            // no device
        {"PCI\\VEN_10&DEV_F100", false, "", ""},                     // short vendor
        {"PCI\\VEN_XYZW&DEV_F100", false, "", ""},                   // not hex
        {"", false, "", ""},
    };
    for (const auto& row : rows) {
        std::string vendor;
        std::string device;
        EXPECT_EQ(row.ok, S::GetVenIdDevIdformDeviceId(row.id, vendor, device)) << row.id;
        EXPECT_EQ(row.vendor, vendor) << row.id;
        EXPECT_EQ(row.device, device) << row.id;
    }
}

// Failures trace, so these run with an install root of their own.
class SystemInfoTest : public qdmtest::HostTest {};

TEST_F(SystemInfoTest, PciDeviceIdentifiers) {
    struct Row {
        const char* id;
        bool ok;
        int bus, device, function;
    } rows[] = {
        {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100", true, 3, 0, 0},
        {"0000:af:1f.7-PCI\\VEN_10DF", true, 0xaf, 31, 7},  // fields are hexadecimal
        {"82:00.1-PCI\\VEN_10DF", true, 0x82, 0, 1},          // without domain
        {"0000:03:20.0-PCI", false, 0, 0, 0},                 // device beyond 31
        {"0000:03:00.8-PCI", false, 0, 0, 0},                 // function beyond 7
        {"0000:0g:00.0-PCI", false, 0, 0, 0},                 // not hex
        {"0000:03:00-PCI", false, 0, 0, 0},                   // no function
        {"0000:03:.0-PCI", false, 0, 0, 0},                   // empty device
        {"03.00:0-PCI", false, 0, 0, 0},                      // parts swapped
        {"0000:123:00.0-PCI", false, 0, 0, 0},                // bus too long
        {"1:2:03:00.0-PCI", false, 0, 0, 0},                  // too many parts
        {"-PCI\\VEN_10DF", false, 0, 0, 0},
        {"", false, 0, 0, 0},
    };
    for (const auto& row : rows) {
        int bus = -1, device = -1, function = -1;
        bool ok = CCommon_Information::GetPCIInfo(row.id, &bus, &device, &function, "fc");
        EXPECT_EQ(row.ok, ok) << row.id;
        if (ok && row.ok) {
            EXPECT_EQ(row.bus, bus) << row.id;
            EXPECT_EQ(row.device, device) << row.id;
            EXPECT_EQ(row.function, function) << row.id;
        }
    }
}

TEST_F(SystemInfoTest, ArchitectureOverrideAndRestore) {
    std::string real = CCommon_Information::GetArchitectureInfo("fc");
    EXPECT_FALSE(real.empty());
    CCommon_Information::SetArchitectureOverride("ppc64le");
    EXPECT_EQ("ppc64le", CCommon_Information::GetArchitectureInfo("fc"));
    CCommon_Information::SetArchitectureOverride("");
    EXPECT_EQ(real, CCommon_Information::GetArchitectureInfo("fc"));
}

}  // namespace
