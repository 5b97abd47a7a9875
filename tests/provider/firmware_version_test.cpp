// Firmware and boot BIOS versions, their per-model rules, the apply check and
// the restore step of the firmware modules.
#include <gtest/gtest.h>

#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "FirmwareFakes.h"

namespace {

using firmwaretest::kFunction0;
using firmwaretest::kWwpn;

class FirmwareVersionTest : public firmwaretest::FirmwareTest {
protected:
    size_t AttributeRuns() const { return Calls("HbaAttributes").size(); }
};

TEST_F(FirmwareVersionTest, EightGigRuleCutsTheNoteAndChecksTheFcForm) {
    struct Row {
        const char* raw;
        const char* expected;
        const char* complaint;  // debug line, or null
    };
    const Row rows[] = {
        {"2.02a4", "2.02a4", nullptr},
        {" 2.02a4 (U3D2.02A4)", "2.02a4", nullptr},  // note dropped, then trimmed
        {"2.02a4(x(y))", "2.02a4", nullptr},         // cut at the first "("
        {"", "abnormal", "CFC_EMULEX_8G_Firmware::FormatVersionString() Version empty []"},
        // Empty only after the cut: judged by the format check, not as empty.
        {"(U3D2.02A4)", "abnormal", "CFC_EMULEX_8G_Firmware::FormatVersionString() Version format error. []"},
        {"11.2.156.27", "abnormal", "CFC_EMULEX_8G_Firmware::FormatVersionString() Version format error. [11.2.156.27]"},
        {"2.02", "abnormal", "CFC_EMULEX_8G_Firmware::FormatVersionString() Version format error. [2.02]"},
    };
    CFC_EMULEX_8G_Firmware module(kFunction0, kWwpn);
    for (const Row& row : rows) {
        CTraceUtility::ClearCapture();
        EXPECT_EQ(row.expected, module.FormatVersionString(row.raw)) << row.raw;
        EXPECT_TRUE(!row.complaint || HasDebug(row.complaint)) << row.raw;
    }
}

TEST_F(FirmwareVersionTest, SixteenGigRuleCleansTheFourthSegment) {
    const std::pair<const char*, const char*> rows[] = {
        {"11.2.156.27", "11.2.156.27"},
        {"  11.2.156.27 ", "11.2.156.27"},
        {"4.1.334.0a", "4.1.334.0"},
        {"11.2.156.27 (build 12)", "11.2.156.27"},  // the note falls into the fourth segment's dust
        {"2.02a4", "abnormal"},
        {"", "abnormal"},
    };
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    for (const auto& row : rows) EXPECT_EQ(row.second, module.FormatVersionString(row.first)) << row.first;
    EXPECT_TRUE(HasDebug("CEMULEX_Firmware::FormatVersionString() Version format error. [2.02a4]"));
}

TEST_F(FirmwareVersionTest, EachModelComparesByItsOwnRule) {
    CFC_EMULEX_8G_Firmware eight(kFunction0, kWwpn);
    CFC_EMULEX_16G_Firmware sixteen(kFunction0, kWwpn);
    EXPECT_GT(eight.CheckVendorVersion("2.02a4", "2.02a5"), 0);
    EXPECT_LT(sixteen.CheckVendorVersion("11.4.1.1", "11.2.156.27"), 0);
    EXPECT_TRUE(HasDebug("CFC_EMULEX_8G_Firmware::CheckVendorVersion() [" + std::string(kFunction0) + "] [" + kWwpn +
                         "] [1] [END]"));
    EXPECT_EQ(0, eight.CheckVendorVersion("11.2.156.27", "11.4.1.1"));
    EXPECT_EQ(0, sixteen.CheckVendorVersion("2.02a4", "2.02a5"));
    EXPECT_EQ(30u, CEmulexCommon::GetLastError());
}

TEST_F(FirmwareVersionTest, VersionsAreReadFromTheAdapterAndTrimmed) {
    SetAdapterVersions(kWwpn, "2.02a4 (U3D2.02A4)", "5.12a2");
    CFC_EMULEX_8G_Firmware eight(kFunction0, kWwpn);
    EXPECT_EQ("2.02a4", eight.GetOperatingVersion());
    EXPECT_EQ("5.12a2", eight.GetBootBiosVersion());
    EXPECT_EQ(1u, AttributeRuns());  // the second reading comes from the cache

    const std::pair<const char*, const char*> bootRows[] = {{"5.12a2", "5.12a2"}, {"5.12", "abnormal"}, {"", "abnormal"}};
    CFC_EMULEX_16G_Firmware sixteen(kFunction0, kWwpn);
    for (const auto& row : bootRows) EXPECT_EQ(row.second, eight.CheckBootBiosVersionFormat(row.first)) << row.first;
    EXPECT_EQ("", sixteen.CheckBootBiosVersionFormat(""));  // 16G takes any form
    EXPECT_EQ("odd 1", sixteen.CheckBootBiosVersionFormat("odd 1"));
}

TEST_F(FirmwareVersionTest, UpdateWindowAnswersWithoutAskingTheAdapter) {
    struct Row {
        int progress;
        bool asksAdapter;
    };
    const Row rows[] = {{24, true}, {25, false}, {84, false}, {85, true}};
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    module.SetUpdateVersion("11.4.204.20");
    for (const Row& row : rows) {
        module.SetUpdateProgress(row.progress);
        for (int reader = 0; reader < 2; ++reader) {
            CEmulexCommon::DeleteHbaAttribCache(kWwpn);
            const size_t before = AttributeRuns();
            const std::string version = reader == 0 ? module.GetOperatingVersion() : module.GetBootBiosVersion();
            EXPECT_EQ(row.asksAdapter ? 1u : 0u, AttributeRuns() - before) << row.progress << " reader " << reader;
            const char* adapterVersion = reader == 0 ? "11.2.156.27" : "5.12a2";
            EXPECT_EQ(row.asksAdapter ? adapterVersion : "11.4.204.20", version) << row.progress;
        }
    }
}

TEST_F(FirmwareVersionTest, EmptyUpdateVersionFallsBackToThePreviousOne) {
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    module.SetPrevVendorVersion("11.0.0.1");
    module.SetUpdateProgress(50);
    EXPECT_EQ("11.0.0.1", module.GetOperatingVersion());
    EXPECT_EQ("11.0.0.1", module.GetBootBiosVersion());
    EXPECT_EQ(0u, AttributeRuns());
}

TEST_F(FirmwareVersionTest, FailedReadDropsTheCacheForFirmwareButNotForBootBios) {
    qdmtest::WriteFile(AttribCache(kWwpn), "HBA Attributes for x\nModel : LPe16002\n");
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ("abnormal", module.GetBootBiosVersion());
    EXPECT_TRUE(qdmtest::Exists(AttribCache(kWwpn)));
    EXPECT_EQ("abnormal", module.GetOperatingVersion());
    EXPECT_FALSE(qdmtest::Exists(AttribCache(kWwpn)));
    EXPECT_TRUE(HasDebug("CEMULEX_Firmware::GetOperatingVersion() GetHbaAttribData return:-1"));

    // Without a WWPN the firmware reader does not even try; the boot BIOS one does.
    CTraceUtility::ClearCapture();
    CFC_EMULEX_16G_Firmware anonymous(kFunction0, "");
    EXPECT_EQ("abnormal", anonymous.GetOperatingVersion());
    EXPECT_EQ("abnormal", anonymous.GetBootBiosVersion());
    EXPECT_FALSE(HasDebugContaining("GetOperatingVersion() GetHbaAttribData return"));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Firmware::GetBootBiosVersion() GetHbaAttribData return:-1"));
}

TEST_F(FirmwareVersionTest, ApplyCheckComparesWithTheUpdateVersion) {
    struct Row {
        const char* adapterFirmware;
        bool failed;
        const char* message;  // or null
        const char* operating;
    };
    const Row rows[] = {
        {"11.4.204.20", false, nullptr, "11.4.204.20"},
        {"11.2.156.27", true, "MSGID_EMULEX_FC_0009_F", "11.2.156.27"},
        {"garbage", true, "MSGID_EMULEX_FC_0008_F", "abnormal"},
    };
    for (const Row& row : rows) {
        SetAdapterVersions(kWwpn, row.adapterFirmware, "");
        CEmulexCommon::DeleteHbaAttribCache(kWwpn);
        CTraceUtility::ClearCapture();
        CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
        Register(module, firmwaretest::k16GName, "11.4.204.20", "");
        EXPECT_EQ(row.failed, module.ExecuteUpdateApplyCheck()) << row.adapterFirmware;
        ASSERT_EQ(row.message ? 1u : 0u, Messages().size()) << row.adapterFirmware;
        if (!row.message) continue;
        EXPECT_EQ(row.message, Messages()[0].id);
        EXPECT_EQ((std::vector<std::string>{"firm", row.operating, "11.4.204.20"}), Messages()[0].inserts);
        EXPECT_TRUE(HasDebug("Operating Version(" + std::string(row.operating) +
                             ") and Update Version(11.4.204.20) are mismatched"));
    }
}

TEST_F(FirmwareVersionTest, RestoreForgetsCachesAndNeverFails) {
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(0, module.ExecuteUpdateRestore(""));  // nothing to delete
    const std::string dump = CEmulexCommon::GetDumpCacheFilePath(kFunction0);
    qdmtest::WriteFile(dump, "Port WWN: x\n");
    qdmtest::WriteFile(AttribCache(kWwpn), "FW Version : 11.2.156.27\n");
    EXPECT_EQ(0, module.ExecuteUpdateRestore(""));
    EXPECT_FALSE(qdmtest::Exists(dump));
    EXPECT_FALSE(qdmtest::Exists(AttribCache(kWwpn)));

    CFC_EMULEX_16G_Firmware anonymous(kFunction0, "");
    EXPECT_EQ(0, anonymous.ExecuteUpdateRestore(""));
    EXPECT_TRUE(HasDebug("Failed to get delete HbaAttrib cache file."));
}

TEST_F(FirmwareVersionTest, BackupAndUpdateOnlyTrace) {
    CFC_EMULEX_8G_Firmware module(kFunction0, kWwpn);
    Register(module, "fcelx_8g1p", "2.10a7", root_ + "/missing.zip");
    EXPECT_EQ(0, module.ExecuteUpdateBackup("", false));
    EXPECT_EQ(0, module.ExecuteUpdate(false));
    EXPECT_TRUE(Calls("").empty());
    EXPECT_FALSE(qdmtest::Exists(WorkFolder()));
    EXPECT_TRUE(HasDebug("CEMULEX_Firmware::CEMULEX_Firmware()  [" + std::string(kFunction0) + "] [" + kWwpn + "] [END]"));
}

}  // namespace
