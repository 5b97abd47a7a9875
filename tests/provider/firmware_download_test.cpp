// Firmware and boot BIOS download, driven through the host's PreUpdate step
// against a fake adapter tool.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "FirmwareFakes.h"
#include "FirmwareSupport.h"

namespace {

using firmwaretest::kFunction0;
using firmwaretest::kFunction1;
using firmwaretest::kWwpn;
using qdmtest::ArchiveEntry;

const char k16GImage[] = "fw=11.4.204.20\n";
const char k8GImage[] = "fw=2.10a7\n";
const char kBiosImage[] = "boot=5.30a1\n";

class FirmwareDownloadTest : public firmwaretest::FirmwareTest {
protected:
    int PreUpdate(CModuleManager& module, const std::string& uniqueName, const std::vector<ArchiveEntry>& entries) {
        Register(module, uniqueName, "0.0.0.0", MakeModule("module.zip", entries));
        return module.ExecutePreUpdate(false);
    }
    std::string Command(const std::string& image) const {
        return "ExecForeignModule cmd:[\"/usr/sbin/ocmanager/hbacmd\" Download " + std::string(kWwpn) + " \"" +
               WorkFolder() + "/" + image + "\"]";
    }
};

TEST_F(FirmwareDownloadTest, ImageSelectionNeedsExactlyOneImageOfEachKind) {
    struct Row {
        const char* uniqueName;
        std::vector<ArchiveEntry> entries;
        const char* failure;  // debug line, or null for success
        size_t downloads;
    };
    const Row rows[] = {
        // 16G: one "*.grp"; other image kinds are ignored.
        {"fcelx_16g", {{"fw.grp", k16GImage}, {"other.ufi", k16GImage}}, nullptr, 1},
        {"fcelx_16g", {{"readme.txt", "x"}}, "Failed to find update module.There is not firmware file.", 0},
        {"fcelx_16g", {{"a.grp", k16GImage}, {"b.grp", k16GImage}}, "Failed to find update module.There is some firmware file.", 0},
        {"OCe11102", {{"fw.ufi", k16GImage}}, nullptr, 1},
        {"OCl14104", {{"a.ufi", k16GImage}, {"b.ufi", k16GImage}}, "Failed to find update module.There is some firmware file.", 0},
        // 8G: the boot BIOS search comes first and stops the selection.
        {"fcelx_8g1p", {{"fw.all", k8GImage}}, "Failed to find update module.There is not bios file.", 0},
        {"fcelx_8g1p", {{"a.prg", kBiosImage}, {"b.prg", kBiosImage}, {"fw.all", k8GImage}},
         "Failed to find update module.There is some bios file.", 0},
        {"fcelx_8g1p", {{"bios.prg", kBiosImage}, {"message.txt", firmwaretest::kMessageFile}},
         "Failed to find update module.There is not firmware file.", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uniqueName + std::string(" ") + row.entries.front().name);
        qdmtest::RemoveTree(state_ + "/calls");
        CTraceUtility::ClearCapture();
        CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
        EXPECT_EQ(row.failure ? 1 : 0, PreUpdate(module, row.uniqueName, row.entries));
        EXPECT_TRUE(!row.failure || HasDebug(row.failure));
        EXPECT_EQ(row.downloads, Calls("Download").size());
    }
}

TEST_F(FirmwareDownloadTest, UnknownUniqueNameWritesBothFailuresAndBothExitLines) {
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    module.SetUniqueName("fcelx_unknown");
    std::list<std::string> files;
    EXPECT_FALSE(module.FwUpdate(MakeModule("m.zip", {{"fw.grp", k16GImage}}), WorkFolder(), firmwaretest::kHbacmd,
                                 &files, false));
    EXPECT_EQ(29u, CEmulexCommon::GetLastError());
    std::vector<std::string> tail;
    bool seen = false;
    for (const auto& line : Debug()) {
        seen = seen || line.text == "No such unique name.";
        if (seen) tail.push_back(line.text);
    }
    const std::vector<std::string> expected = {
        "No such unique name.", "CEMULEX_Firmware::FwUpdate() [END]",
        "Failed to find update module.There is not firmware file.",
        "CEMULEX_Firmware::FwUpdate() [" + std::string(kFunction0) + "] [" + kWwpn + "] [END]"};
    EXPECT_EQ(expected, tail);
}

TEST_F(FirmwareDownloadTest, SecondFunctionIsSkippedOn16GButFlashedOn8G) {
    CFC_EMULEX_16G_Firmware sixteen(kFunction1, kWwpn);
    Register(sixteen, firmwaretest::k16GName, "11.4.204.20", root_ + "/missing.zip");
    EXPECT_EQ(0, sixteen.ExecutePreUpdate(false));
    EXPECT_TRUE(HasDebug("CheckPCIInfo is false. FwUpdate is skipped"));
    EXPECT_FALSE(qdmtest::Exists(WorkFolder()));

    CFC_EMULEX_8G_Firmware eight(kFunction1, kWwpn);
    EXPECT_EQ(0, PreUpdate(eight, firmwaretest::k8G2PName,
                           {{"bios.prg", kBiosImage}, {"fw.all", k8GImage}, {"message.txt", firmwaretest::kMessageFile}}));
    const auto downloads = Calls("Download");
    ASSERT_EQ(2u, downloads.size());
    EXPECT_NE(std::string::npos, downloads[0].find("bios.prg"));  // boot BIOS first
    EXPECT_NE(std::string::npos, downloads[1].find("fw.all"));
    EXPECT_FALSE(qdmtest::Exists(WorkFolder()));
}

TEST_F(FirmwareDownloadTest, FailedBootBiosStopsBeforeTheFirmware) {
    FailNextDownloads(1);
    CFC_EMULEX_8G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(1, PreUpdate(module, "fcelx_8g1p",
                           {{"bios.prg", kBiosImage}, {"fw.all", k8GImage}, {"message.txt", firmwaretest::kMessageFile}}));
    EXPECT_EQ(1u, Calls("Download").size());
    EXPECT_TRUE(HasDebugContaining("Failed to bios update("));
    EXPECT_TRUE(qdmtest::Exists(WorkFolder()));  // left for inspection
    ASSERT_EQ(1u, MessageCount("MSGID_EMULEX_FC_0004_F"));
    EXPECT_EQ((std::vector<std::string>{"firm", "21"}), Messages().back().inserts);
}

TEST_F(FirmwareDownloadTest, DirectDownloadTriesFourTimesWithThreePauses) {
    FailNextDownloads(4);
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    module.SetUniqueName(firmwaretest::k16GName);
    std::list<std::string> files;
    EXPECT_FALSE(module.FwUpdate(MakeModule("m.zip", {{"fw.grp", k16GImage}}), WorkFolder(), firmwaretest::kHbacmd,
                                 &files, false));
    EXPECT_EQ(16u, CEmulexCommon::GetLastError());
    EXPECT_EQ(4u, Calls("Download").size());
    EXPECT_EQ(3u, clock_->count(1000));
    EXPECT_TRUE(HasDebugContaining("Failed to execute command:\"/usr/sbin/ocmanager/hbacmd\" Download "));
}

TEST_F(FirmwareDownloadTest, DirectDownloadSucceedsOnTheFourthAttemptWithTheExactCommand) {
    FailNextDownloads(3);
    qdmtest::WriteFile(WorkFolder() + "/stale.grp", "left over");  // cleared before unpacking
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(0, PreUpdate(module, firmwaretest::k16GName, {{"fw.grp", k16GImage}}));
    EXPECT_EQ(4u, Calls("Download").size());
    EXPECT_EQ(3u, clock_->count(1000));
    EXPECT_TRUE(HasDebug(Command("fw.grp")));
    EXPECT_EQ("11.4.204.20", AdapterFirmware(kWwpn));
    EXPECT_FALSE(qdmtest::Exists(WorkFolder()));
}

TEST_F(FirmwareDownloadTest, CompletionTextCountsAnywhereInALine) {
    SetSuccessOutput("flashing 100%\nstatus: Download Complete, reset pending\n");
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(0, PreUpdate(module, firmwaretest::k16GName, {{"fw.grp", k16GImage}}));
    EXPECT_EQ(1u, Calls("Download").size());
    EXPECT_EQ(0u, clock_->count(1000));
}

TEST_F(FirmwareDownloadTest, CompletionTextMustStandWhole) {
    const std::string filler(4090, 'x');
    struct Row {
        std::string output;
        bool complete;
    };
    const Row rows[] = {
        {"Download Complete", true},
        {filler + "Download Complete\n", true},  // across a read block
        {"download complete\n", false},        // case matters
        {"Download\nComplete\n", false},       // split over two lines
        {"Download Complet", false},
        {"", false},
    };
    for (const Row& row : rows) {
        std::istringstream output(row.output);
        EXPECT_EQ(row.complete, emulex_firmware::ContainsDownloadComplete(output)) << row.output.substr(0, 40);
    }
}

TEST_F(FirmwareDownloadTest, MessageFileJudgesTheFirmwareDownload) {
    CFC_EMULEX_16G_Firmware ok(kFunction0, kWwpn);
    EXPECT_EQ(0, PreUpdate(ok, firmwaretest::k16GName, {{"fw.grp", k16GImage}, {"message.txt", firmwaretest::kMessageFile}}));
    EXPECT_EQ(1u, Calls("Download").size());
    EXPECT_EQ(1u, clock_->count(30000));  // the result check looks after one poll
    EXPECT_EQ(0u, clock_->count(1000));

    FailNextDownloads(1);  // no retry on this path
    CFC_EMULEX_16G_Firmware failing(kFunction0, kWwpn);
    EXPECT_EQ(1, PreUpdate(failing, firmwaretest::k16GName, {{"fw.grp", k16GImage}, {"message.txt", firmwaretest::kMessageFile}}));
    EXPECT_EQ(2u, Calls("Download").size());
    EXPECT_TRUE(HasDebug("Failed to open file(" + WorkFolder() + "/temp_hbacmd_Download.txt)."));
}

TEST_F(FirmwareDownloadTest, UnremovableWorkFolderFailsAfterTheFlash) {
    qdmtest::WriteFile(state_ + "/pin", "");  // the fake mounts a file system into the folder
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    module.SetUniqueName(firmwaretest::k16GName);
    std::list<std::string> files;
    const bool done = module.FwUpdate(MakeModule("m.zip", {{"fw.grp", k16GImage}}), WorkFolder(),
                                      firmwaretest::kHbacmd, &files, false);
    const unsigned long error = CEmulexCommon::GetLastError();
    ASSERT_EQ(0, std::system(("umount '" + WorkFolder() + "/pinned'").c_str()));
    EXPECT_FALSE(done);
    EXPECT_EQ(28u, error);
    EXPECT_EQ("11.4.204.20", AdapterFirmware(kWwpn));
    EXPECT_TRUE(HasDebug("Failed to get delete update module folder(" + WorkFolder() + ")"));
}

TEST_F(FirmwareDownloadTest, UnsafeCommandTextNeverReachesTheShell) {
    struct Row {
        const char* wwpn;
        const char* image;
    } rows[] = {
        {kWwpn, "fw$(touch pwned).grp"},    // command substitution in an archive name
        {"10:00;touch pwned", "fw.grp"},     // command separator in the listed WWPN
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.image);
        CFC_EMULEX_16G_Firmware module(kFunction0, row.wwpn);
        module.SetUniqueName(firmwaretest::k16GName);
        std::list<std::string> files;
        EXPECT_FALSE(module.FwUpdate(MakeModule("m.zip", {{row.image, k16GImage}}), WorkFolder(), firmwaretest::kHbacmd,
                                     &files, false));
        EXPECT_EQ(29u, CEmulexCommon::GetLastError());
        EXPECT_TRUE(HasDebugContaining("Download command refused, unsafe text in ["));
        EXPECT_TRUE(Calls("Download").empty());
    }
}

TEST_F(FirmwareDownloadTest, UnknownPciLocationFailsWithThirteen) {
    CFC_EMULEX_16G_Firmware module("not-a-pci-address", kWwpn);
    module.SetUniqueName(firmwaretest::k16GName);
    std::list<std::string> files;
    EXPECT_FALSE(module.FwUpdate(root_ + "/missing.zip", WorkFolder(), firmwaretest::kHbacmd, &files, false));
    EXPECT_EQ(13u, CEmulexCommon::GetLastError());
    EXPECT_TRUE(HasDebug("PCI Information is invalid"));
}

TEST_F(FirmwareDownloadTest, MissingToolIsReportedWithTheConstructorsExitLine) {
    ::unlink(firmwaretest::kHbacmd);
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(1, PreUpdate(module, firmwaretest::k16GName, {{"fw.grp", k16GImage}}));
    ASSERT_EQ(1u, MessageCount("MSGID_EMULEX_FC_0013_F"));
    EXPECT_EQ((std::vector<std::string>{"firm", "b", "Emulex", "fc", "One Command Manager"}), Messages().back().inserts);
    EXPECT_TRUE(HasDebug("Failed to get One Command Manager Install Path"));
    EXPECT_TRUE(HasDebug("CEMULEX_Firmware::CEMULEX_Firmware() [" + std::string(kFunction0) + "] [" + kWwpn + "] [END]"));
}

}  // namespace
