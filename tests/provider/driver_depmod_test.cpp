// depmod override files and the "depmod -a" run of the driver module.
#include <string>

#include "CEMULEX_Driver.h"
#include "CEmulexCommon.h"
#include "ModuleFakes.h"
#include "TestEnv.h"

namespace {

using moduletest::LineCount;

const char kLpfcFile[] = "/etc/depmod.d/elxlpfc.conf";
const char kBe2netFile[] = "/etc/depmod.d/elxbe2net.conf";
const char kBe2iscsiFile[] = "/etc/depmod.d/elxbe2iscsi.conf";
const char kLpfcLines[] =
    "\noverride lpfc * weak-updates/updates/elx-lpfc\noverride lpfc * weak-updates/elx-lpfc\n";

class DepmodTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        depmodLog_ = root_ + "/depmod.log";
        SetDepmodExit(0);
        placed_.Folder("/etc/depmod.d");
    }

    void SetDepmodExit(int code) {
        bin_.Add("depmod", "echo \"$*\" >> '" + depmodLog_ + "'\nexit " + std::to_string(code) + "\n");
    }

    CEMULEX_Driver driver_{"dev", "driver", moduletest::kWwpn};
    moduletest::FakeBin bin_;
    moduletest::PlacedPaths placed_;
    std::string depmodLog_;
};

struct MarkerCase {
    const char* comment;
    bool fileExists;
    std::string before;
    std::string after;
};

TEST_F(DepmodTest, AppendsLpfcLinesUnlessAMarkerLineExists) {
    const MarkerCase cases[] = {
        {"missing file gets the lines after an empty line", false, "", kLpfcLines},
        {"unmarked file keeps its text and gets the lines", true, "options lpfc lpfc_log_verbose=0",
         std::string("options lpfc lpfc_log_verbose=0") + kLpfcLines},
        {"a comment naming the marker counts as marked", true, "# override lpfc handled elsewhere\n",
         "# override lpfc handled elsewhere\n"},
        {"marker in the middle of a later line", true, "x\nkeep: override lpfc * extra/lpfc\n",
         "x\nkeep: override lpfc * extra/lpfc\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.comment);
        qdmtest::RemoveTree(kLpfcFile);
        if (c.fileExists) qdmtest::WriteFile(kLpfcFile, c.before);
        EXPECT_TRUE(driver_.DepmodExecute(false, true, false));
        EXPECT_EQ(c.after, qdmtest::ReadFile(kLpfcFile));
    }
    EXPECT_EQ(4u, LineCount(depmodLog_));
    EXPECT_EQ("-a\n", qdmtest::ReadFile(depmodLog_).substr(0, 3));
}

TEST_F(DepmodTest, SecondCallAddsNothing) {
    ASSERT_TRUE(driver_.DepmodExecute(true, true, true));
    const std::string lpfc = qdmtest::ReadFile(kLpfcFile);
    const std::string be2net = qdmtest::ReadFile(kBe2netFile);
    const std::string be2iscsi = qdmtest::ReadFile(kBe2iscsiFile);

    EXPECT_TRUE(driver_.DepmodExecute(true, true, true));

    EXPECT_EQ(lpfc, qdmtest::ReadFile(kLpfcFile));
    EXPECT_EQ("\noverride be2net * weak-updates/updates/be2net\noverride be2net * weak-updates/be2net\n", be2net);
    EXPECT_EQ(be2net, qdmtest::ReadFile(kBe2netFile));
    EXPECT_EQ(
        "\noverride be2iscsi * weak-updates/updates/be2iscsi\noverride be2iscsi * weak-updates/be2iscsi\n",
        qdmtest::ReadFile(kBe2iscsiFile));
    EXPECT_EQ(be2iscsi, qdmtest::ReadFile(kBe2iscsiFile));
    EXPECT_EQ(2u, LineCount(depmodLog_));
}

TEST_F(DepmodTest, NoSelectionWritesAndRunsNothing) {
    EXPECT_TRUE(driver_.DepmodExecute(false, false, false));
    EXPECT_FALSE(qdmtest::Exists(kLpfcFile));
    EXPECT_FALSE(qdmtest::Exists(kBe2netFile));
    EXPECT_FALSE(qdmtest::Exists(kBe2iscsiFile));
    EXPECT_FALSE(qdmtest::Exists(depmodLog_));
}

TEST_F(DepmodTest, OnlySelectedModulesAreWritten) {
    EXPECT_TRUE(driver_.DepmodExecute(false, true, false));
    EXPECT_TRUE(qdmtest::Exists(kLpfcFile));
    EXPECT_FALSE(qdmtest::Exists(kBe2netFile));
    EXPECT_FALSE(qdmtest::Exists(kBe2iscsiFile));
    EXPECT_TRUE(HasDebug("Execute depmod command by _tsystem method [depmod -a]"));
    EXPECT_TRUE(HasDebug("depmod -a ok."));
}

TEST_F(DepmodTest, DepmodFailureMakesTheResultFalse) {
    SetDepmodExit(1);
    EXPECT_FALSE(driver_.DepmodExecute(false, true, false));
    EXPECT_EQ(kLpfcLines, qdmtest::ReadFile(kLpfcFile));
    EXPECT_TRUE(HasDebug("depmod -a error.(256)"));
}

TEST_F(DepmodTest, UnwritableFileFailsButTheOthersAndDepmodStillRun) {
    placed_.Folder(kLpfcFile);  // a folder cannot be opened for appending
    CEmulexCommon::SetLastError(0);

    EXPECT_FALSE(driver_.DepmodExecute(false, true, true));

    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("Failed to open file(/etc/depmod.d/elxlpfc.conf)."));
    EXPECT_TRUE(qdmtest::Exists(kBe2iscsiFile));
    EXPECT_EQ(1u, LineCount(depmodLog_));
}

}  // namespace
