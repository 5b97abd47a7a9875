// Driver version: the FC format rule, the update-progress window and the
// reading through the adapter attribute cache.
#include <string>

#include "CEMULEX_Driver.h"
#include "CFC_EMULEX_Driver.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

using moduletest::kWwpn;
using moduletest::LineCount;

class DriverVersionTest : public qdmtest::HostTest {
protected:
    CFC_EMULEX_Driver driver_{"dev", "driver", kWwpn};
};

struct FormatCase {
    const char* comment;
    const char* raw;
    const char* expected;
};

TEST_F(DriverVersionTest, FcFormatCutsAtSemicolonTrimsAndChecksFourSegments) {
    const FormatCase cases[] = {
        {"tool form with the HBA API details", "11.2.156.27; HBAAPI(I) v2.3.d, 07-12-10", "11.2.156.27"},
        {"blanks around the version", "  11.2.156.27  ;x", "11.2.156.27"},
        {"trailing letters of the last segment are dust", "11.2.156.27a", "11.2.156.27"},
        {"empty", "", "abnormal"},
        {"only the suffix", "; HBAAPI", "abnormal"},
        {"three segments", "11.2.156", "abnormal"},
        {"five segments", "11.2.156.27.1", "abnormal"},
        {"letters inside", "11.x.156.27", "abnormal"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        EXPECT_EQ(c.expected, driver_.FormatVersionString(c.raw));
    }
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version empty []"));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Driver::FormatVersionString() Version format error. [11.2.156]"));
}

TEST_F(DriverVersionTest, BaseFormatDoesNotCutAtSemicolon) {
    CEMULEX_Driver base("dev", "driver", kWwpn);
    EXPECT_EQ("11.2.156.27", base.FormatVersionString(" 11.2.156.27 "));
    // Only the FC rule cuts at ";": the dots after it spoil the four segments.
    EXPECT_EQ("abnormal", base.FormatVersionString("11.2.156.27; HBAAPI(I) v2.3.d"));
    EXPECT_EQ("11.2.156.27", driver_.FormatVersionString("11.2.156.27; HBAAPI(I) v2.3.d"));
}

TEST_F(DriverVersionTest, EmptyWwpnIsAbnormalWithoutReading) {
    CFC_EMULEX_Driver driver("dev", "driver", "");
    EXPECT_EQ("abnormal", driver.GetOperatingVersion());
    EXPECT_FALSE(HasDebugContaining("GetHbaAttribData"));
}

TEST_F(DriverVersionTest, VersionComesFromTheFreshAttributeCache) {
    qdmtest::WriteFile(cache_ + "/" + moduletest::kAttribCacheName,
                       "Port WWN : 10:00:00:00:c9:12:34:56\nDriver Version : 11.4.142.21; HBAAPI(I) v2.3.d\n");
    EXPECT_EQ("11.4.142.21", driver_.GetOperatingVersion());
}

TEST_F(DriverVersionTest, FailedReadDeletesTheCache) {
    const std::string cache = cache_ + "/" + moduletest::kAttribCacheName;
    qdmtest::WriteFile(cache, "Port WWN : 10:00:00:00:c9:12:34:56\nFW Version : 2.02a4\n");
    EXPECT_EQ("abnormal", driver_.GetOperatingVersion());
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() GetHbaAttribData return:-1"));
    EXPECT_FALSE(qdmtest::Exists(cache));
}

class DriverProgressTest : public DriverVersionTest {
protected:
    void SetUp() override {
        DriverVersionTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        runLog_ = root_ + "/hbacmd.log";
        moduletest::InstallFakeHbacmd(placed_, runLog_, "Driver Version : 11.2.156.27; HBAAPI(I) v2.3.d",
                                      "Command Line Interface Version: 10.2.370.16 (build)");
    }
    moduletest::PlacedPaths placed_;
    std::string runLog_;
};

struct ProgressCase {
    int progress;
    const char* updateVersion;
    const char* expected;
    bool asksAdapter;
};

TEST_F(DriverProgressTest, WindowFrom25To84ReportsTheUpdateOrPreviousVersion) {
    driver_.SetPrevVendorVersion("10.0.0.1");
    const ProgressCase cases[] = {
        {24, "12.0.0.5", "11.2.156.27", true},   // before the window: the adapter
        {25, "12.0.0.5", "12.0.0.5", false},     // first value inside
        {84, "12.0.0.5", "12.0.0.5", false},     // last value inside
        {84, "", "10.0.0.1", false},             // no update version: the previous one
        {85, "12.0.0.5", "11.2.156.27", true},   // after the window: the adapter again
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.progress);
        qdmtest::RemoveTree(cache_ + "/" + moduletest::kAttribCacheName);
        const size_t runsBefore = LineCount(runLog_);
        driver_.SetUpdateProgress(c.progress);
        driver_.SetUpdateVersion(c.updateVersion);
        EXPECT_EQ(c.expected, driver_.GetOperatingVersion());
        EXPECT_EQ(c.asksAdapter ? 1u : 0u, LineCount(runLog_) - runsBefore);
    }
    EXPECT_TRUE(HasDebug("CEMULEX_Driver::GetOperatingVersion() Update processing [10:00:00:00:c9:12:34:56] "
                         "12.0.0.5 or 10.0.0.1"));
    EXPECT_EQ(0u, qdmtest::ReadFile(runLog_).rfind("HbaAttributes 10:00:00:00:c9:12:34:56\n", 0));
}

}  // namespace
