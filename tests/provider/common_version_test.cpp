// Version formatting, FC firmware parsing and both comparisons.
#include <string>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace {

const char kMalformed[] = "MSGID_EMULEX_FC_0019_F";

int Sign(int value) { return (value > 0) - (value < 0); }

class CommonVersionTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        CEmulexCommon::SetLastError(0);
    }
    // One 0019 message carrying the error text of code 30.
    void ExpectOneMalformedReport() {
        EXPECT_EQ(CEmulexCommon::GetLastError(), 30u);
        ASSERT_EQ(MessageCount(kMalformed), 1u);
        EXPECT_EQ(Messages().back().inserts, std::vector<std::string>{"1e"});
    }
};

TEST(FormatVersion4SegCleanDust, CutsTheFourthSegmentOnly) {
    struct Row {
        const char* version;
        const char* formatted;
    } rows[] = {
        {" 4.1.334.0a ", "4.1.334.0"},
        {"10.2.370.15", "10.2.370.15"},
        {"1.2.3.x9", "1.2.3."},    // nothing but dust
        {"1.2a.3.4", "1.2a.3.4"},  // only the fourth segment is cleaned
        {"2.02a4", "2.02a4"},      // not four segments: unchanged
        {" 1.2.3 ", " 1.2.3 "},    // ... and not even trimmed
        {"abc", "abc"},
        {"", ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CEmulexCommon::FormatVersion4SegCleanDust(row.version), row.formatted) << row.version;
}

TEST_F(CommonVersionTest, FourSegmentComparison) {
    struct Row {
        const char* version1;
        const char* version2;
        int expected;
    } rows[] = {
        {"1.2.3.4", "1.2.3.5", 1},
        {"1.2.3.5", "1.2.3.4", -1},
        {"1.2.3.4", "1.2.3.4", 0},
        {"1.0.10.0", "1.0.9.0", -1},  // numeric, not text order
        {"01.2.3.4", "1.2.3.4", 0},
        {"2.0.0.0", "1.9.9.9", -1},  // the first differing segment decides
    };
    for (const Row& row : rows)
        EXPECT_EQ(CEmulexCommon::CheckVendorVersion4SegNormal(row.version1, row.version2), row.expected)
            << row.version1 << " vs " << row.version2;
    EXPECT_EQ(CEmulexCommon::GetLastError(), 0u);
    EXPECT_EQ(MessageCount(kMalformed), 0u);
    EXPECT_TRUE(HasDebug("CEmulexCommon::CheckVendorVersion4SegNormal() [END] Return=[-1]"));
}

TEST_F(CommonVersionTest, FourSegmentMalformed) {
    for (const char* bad : {"1.2.3", "1.2.3.4a", "", "1..3.4", "abnormal"}) {
        CTraceUtility::ClearCapture();
        CEmulexCommon::SetLastError(0);
        EXPECT_EQ(CEmulexCommon::CheckVendorVersion4SegNormal(bad, "1.2.3.4"), 0) << bad;
        ExpectOneMalformedReport();
        CTraceUtility::ClearCapture();
        EXPECT_EQ(CEmulexCommon::CheckVendorVersion4SegNormal("1.2.3.4", bad), 0) << bad;
        ExpectOneMalformedReport();
    }
}

TEST(FirmwareFormat, Parsing) {
    struct Row {
        const char* version;
        bool valid;
        long major, minor;
        const char* letters;
        long build;
    } rows[] = {
        {"2.02a4", true, 2, 2, "a", 4},
        {"1.11x15", true, 1, 11, "x", 15},
        {"2.10A12", true, 2, 10, "A", 12},
        {"3.00abc07", true, 3, 0, "abc", 7},
        {"2.02-4", false, 0, 0, "", 0},   // neither digit nor letter
        {"2.02a4b", false, 0, 0, "", 0},  // tail is not all digits
        {"2.0.2a4", false, 0, 0, "", 0},  // three parts
        {"2.02", false, 0, 0, "", 0},     // no letter group
        {"2.02a", false, 0, 0, "", 0},    // no build
        {"x.02a4", false, 0, 0, "", 0},
        {"2.a4", false, 0, 0, "", 0},  // no minor digits
        {"2.02a-4", false, 0, 0, "", 0},
        {"", false, 0, 0, "", 0},
        {".", false, 0, 0, "", 0},
        {"2.02\3514", false, 0, 0, "", 0},  // a high byte is no letter
    };
    for (const Row& row : rows) {
        long major = -7, minor = -7, build = -7;
        std::string letters = "untouched";
        ASSERT_EQ(CEmulexCommon::CheckVersionFCFirmwareFormat(row.version, major, minor, letters, build),
                  row.valid)
            << row.version;
        EXPECT_EQ(CEmulexCommon::CheckVersionFCFirmwareFormat(row.version), row.valid) << row.version;
        if (row.valid) {
            EXPECT_EQ(major, row.major) << row.version;
            EXPECT_EQ(minor, row.minor) << row.version;
            EXPECT_EQ(letters, row.letters) << row.version;
            EXPECT_EQ(build, row.build) << row.version;
        } else {
            EXPECT_EQ(major, -7) << row.version;  // out-arguments untouched
            EXPECT_EQ(letters, "untouched") << row.version;
        }
    }
}

TEST_F(CommonVersionTest, FormatTestAloneReportsNothing) {
    EXPECT_FALSE(CEmulexCommon::CheckVersionFCFirmwareFormat("2.02"));
    EXPECT_EQ(CEmulexCommon::GetLastError(), 0u);
    EXPECT_TRUE(Messages().empty());
    EXPECT_TRUE(CEmulexCommon::CheckVersionFCFirmwareFormat("2.02a4"));
    EXPECT_TRUE(HasDebug("CEmulexCommon::CheckVersionFCFirmwareFormat() [2][02][a][4]"));
}

TEST_F(CommonVersionTest, FirmwareComparison) {
    struct Row {
        const char* version1;
        const char* version2;
        int sign;
    } rows[] = {
        {"2.02a4", "2.02a5", 1},
        {"2.10a1", "2.02a9", -1},  // minor before letters and build
        {"3.00a1", "2.99z9", -1},  // major first
        {"2.02a4", "2.02b1", 1},   // letters before build
        {"2.02b1", "2.02a4", -1},
        {"2.02A9", "2.02a1", 1},   // upper case sorts first
        {"2.02a9", "2.02ab1", 1},  // a prefix sorts first
        {"2.02a4", "2.2a4", 0},    // numbers, not texts
        {"2.02a4", "2.02a4", 0},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Sign(CEmulexCommon::CheckVendorVersionFCFirmware(row.version1, row.version2)), row.sign)
            << row.version1 << " vs " << row.version2;
    EXPECT_EQ(CEmulexCommon::GetLastError(), 0u);
    EXPECT_EQ(MessageCount(kMalformed), 0u);
}

TEST_F(CommonVersionTest, LetterComparisonIsNotReduced) {
    // The difference of the first differing letters, or of a letter and the end.
    EXPECT_EQ(CEmulexCommon::CheckVendorVersionFCFirmware("2.02a9", "2.02c1"), 'c' - 'a');
    EXPECT_EQ(CEmulexCommon::CheckVendorVersionFCFirmware("2.02c1", "2.02a9"), 'a' - 'c');
    EXPECT_EQ(CEmulexCommon::CheckVendorVersionFCFirmware("2.02ab9", "2.02a1"), -'b');
}

TEST_F(CommonVersionTest, FirmwareMalformed) {
    for (const char* bad : {"2.02", "abnormal", "2.02a4b", "99999999999999999999999.1"}) {
        CTraceUtility::ClearCapture();
        CEmulexCommon::SetLastError(0);
        EXPECT_EQ(CEmulexCommon::CheckVendorVersionFCFirmware("2.02a4", bad), 0) << bad;
        ExpectOneMalformedReport();
    }
    EXPECT_TRUE(HasDebug("CEmulexCommon::CheckVendorVersionFCFirmware() [END] Return=[0]"));
}

}  // namespace
