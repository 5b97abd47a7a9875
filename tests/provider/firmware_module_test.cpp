// Firmware and boot BIOS modules against the fake adapter tool: image choice,
// the download command and its retries, versions and the host's steps.

#include "CFC_EMULEX_16G_Firmware.h"
#include "CFC_EMULEX_8G_Firmware.h"
#include "FirmwareSupport.h"
#include "ModuleFakes.h"

namespace {

using namespace moduletest;
using qdmtest::ArchiveEntry;

const char kFunction0[] = "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";
const char kFunction1[] = "0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";
// The fake's "Downloading" line ends a run, "Download Complete" tells success.
const char kMessageFile[] = "EndMessage=Downloading\nSuccessMessage=Download Complete\n";
const char k16GImage[] = "fw=11.4.204.20\n";
const char k8GImage[] = "fw=2.10a7\n";
const char kBiosImage[] = "boot=5.30a1\n";

class FirmwareTest : public ModuleTest {
protected:
    // The download command line of an image, and its trace.
    std::string Line(const std::string& image) const {
        return "\"/usr/sbin/ocmanager/hbacmd\" Download " + std::string(kWwpn) + " \"" + WorkFolder() + "/" + image +
               "\"";
    }
    std::string Exec(const std::string& image) const { return "ExecForeignModule cmd:[" + Line(image) + "]"; }
};

TEST_F(FirmwareTest, FwUpdateOutcomes) {
    const std::string refused = "Download command refused, unsafe text in [" + std::string(kWwpn) + "] [";
    const std::string find = "Failed to find update module.There is ";
    const std::vector<ArchiveEntry> fw = {{"fw.grp", k16GImage}};
    const char* g16 = "fcelx_16g";
    // outcome: FwUpdate's result and the last error; debug: lines written one
    // after another; failures: downloads the fake fails first (a pause follows
    // each but the last); pin: the fake mounts a file system into the work folder.
    struct Row { const char* uniqueName; std::vector<ArchiveEntry> entries; int failures; bool pin; const char* outcome;
                 std::vector<std::string> debug; size_t downloads; std::string wwpn = kWwpn;
                 const char* device = kFunction0; };
    const Row rows[] = {
        // 16G takes the one "*.grp"; other image kinds are ignored.
        {g16, {{"fw.grp", k16GImage}, {"x.ufi", k16GImage}}, 0, false, "1 0", {Exec("fw.grp")}, 1},
        {g16, {{"readme.txt", "x"}}, 0, false, "0 29", {find + "not firmware file."}, 0},
        {g16, {{"a.grp", k16GImage}, {"b.grp", k16GImage}}, 0, false, "0 29", {find + "some firmware file."}, 0},
        {"OCe11102", {{"fw.ufi", k16GImage}}, 0, false, "1 0", {Exec("fw.ufi")}, 1},
        {"OCl14104", {{"a.ufi", k16GImage}, {"b.ufi", k16GImage}}, 0, false, "0 29", {find + "some firmware file."}, 0},
        // 8G: the boot BIOS search comes first and ends the trace with the short exit line.
        {"fcelx_8g1p", {{"fw.all", k8GImage}}, 0, false, "0 29",
         {find + "not bios file.", "CEMULEX_Firmware::FwUpdate() [END]"}, 0},
        // An unknown module writes both failures and both exit lines.
        {"fcelx_unknown", fw, 0, false, "0 29",
         {"No such unique name.", "CEMULEX_Firmware::FwUpdate() [END]", find + "not firmware file.",
          "CEMULEX_Firmware::FwUpdate() [" + std::string(kFunction0) + "] [" + kWwpn + "] [END]"}, 0},
        // Four attempts; only "Download Complete" in the output counts, not the exit status.
        {g16, fw, 3, false, "1 0", {Exec("fw.grp")}, 4},
        {g16, fw, 4, false, "0 16", {"Failed to execute command:" + Line("fw.grp") + " ,return:0"}, 4},
        // With a message file it decides, and nothing is retried: the boot BIOS failing stops the firmware.
        {"fcelx_8g1p", {{"bios.prg", kBiosImage}, {"fw.all", k8GImage}, {"message.txt", kMessageFile}}, 1, false,
         "0 17", {"Failed to bios update(" + Line("bios.prg") + ")."}, 1},
        {g16, {{"fw.grp", k16GImage}, {"message.txt", kMessageFile}}, 1, false, "0 17",
         {"Failed to open file(" + WorkFolder() + "/temp_hbacmd_Download.txt)."}, 1},
        // A leftover work folder fails the step although the adapter was flashed.
        {g16, fw, 0, true, "0 28", {"Failed to get delete update module folder(" + WorkFolder() + ")"}, 1},
        {g16, fw, 0, false, "0 13", {"PCI Information is invalid"}, 0, kWwpn, "not-a-pci-address"},
        // Image names stand inside double quotes: blanks and parentheses pass...
        {g16, {{"fw (v2) 16g.grp", k16GImage}}, 0, false, "1 0", {Exec("fw (v2) 16g.grp")}, 1},
        // ...but nothing that leaves the quotes reaches the shell.
        {g16, {{"fw$(touch x).grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw$(touch x).grp]"}, 0},
        {g16, {{"fw\".grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw\".grp]"}, 0},
        {g16, {{"fw`id`.grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw`id`.grp]"}, 0},
        {g16, {{"fw\\x.grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw\\x.grp]"}, 0},
        {g16, {{"fw\r.grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw\r.grp]"}, 0},
        {g16, {{"fw\n.grp", k16GImage}}, 0, false, "0 29", {refused + "] [fw\n.grp]"}, 0},
        {"fcelx_8g1p", {{"b$x.prg", kBiosImage}, {"fw.all", k8GImage}}, 0, false, "0 29",
         {refused + "b$x.prg] [fw.all]"}, 0},
        // The WWPN stands bare on the command line: plain text only.
        {g16, fw, 0, false, "0 29", {"Download command refused, unsafe text in [10:00 (x)] [] [fw.grp]"}, 0,
         "10:00 (x)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.uniqueName + (" " + row.entries.front().name) + " " + row.wwpn);
        Remove({state_ + "/calls", state_ + "/pin"});
        qdmtest::WriteFile(WorkFolder() + "/stale.grp", "left over");  // cleared before unpacking
        if (row.pin) qdmtest::WriteFile(state_ + "/pin", "");
        FailNextDownloads(row.failures);
        NextRow();
        const size_t pausesBefore = clock_->count(1000);
        CFC_EMULEX_16G_Firmware module(row.device, row.wwpn);
        module.SetUniqueName(row.uniqueName);
        // A tar archive: zip readers take a backslash in a name for a folder.
        ASSERT_TRUE(qdmtest::MakeTar(root_ + "/m.zip", row.entries));
        EXPECT_EQ(row.outcome, StepOutcome(module.FwUpdate(root_ + "/m.zip", WorkFolder(), kHbacmd, &files_, false)));
        ASSERT_TRUE(!row.pin || std::system(("umount '" + WorkFolder() + "/pinned'").c_str()) == 0);
        EXPECT_TRUE(HasDebugRun(row.debug)) << row.debug.front();
        // One argument per word, however the image is named.
        const std::string image = WorkFolder() + "/" + row.entries.front().name;
        const std::string download = "[Download][" + row.wwpn + "][" + image + "]";
        EXPECT_EQ(std::vector<std::string>(row.downloads, download), Calls("Download"));
        EXPECT_EQ(row.downloads ? row.downloads - 1 : 0, clock_->count(1000) - pausesBefore);
        EXPECT_EQ(row.outcome[0] == '0', qdmtest::Exists(WorkFolder()));  // kept for inspection
    }
}

// The host's steps on the second PCI function: 16G skips it, 8G flashes boot
// BIOS, then firmware, and passes the apply check. Backup and Update have
// nothing to do; Restore forgets what was read from the adapter.
TEST_F(FirmwareTest, HostStepsOnTheSecondFunction) {
    CFC_EMULEX_16G_Firmware sixteen(kFunction1, kWwpn);
    Register(sixteen, "fcelx_16g", "11.4.204.20", root_ + "/missing.zip");
    EXPECT_EQ(Joined({sixteen.ExecuteUpdateBackup("", false), sixteen.ExecutePreUpdate(false),
                      sixteen.ExecuteUpdate(false), sixteen.ExecuteUpdateRestore("")}),  // nothing to delete
              "0 0 0 0");
    EXPECT_TRUE(HasDebug("CheckPCIInfo is false. FwUpdate is skipped"));
    EXPECT_TRUE(
        HasDebug("CEMULEX_Firmware::CEMULEX_Firmware()  [" + std::string(kFunction1) + "] [" + kWwpn + "] [END]"));
    EXPECT_TRUE(Calls("").empty());

    SetAdapterVersions("2.02a4 (U3D2.02A4)", "5.12a2");
    CFC_EMULEX_8G_Firmware eight(kFunction1, kWwpn);
    eight.InitializeOperatingModuleInfo(eight.GetOperatingVersion());
    EXPECT_EQ("2.02a4", eight.GetPrevVendorVersion());  // read through the adapter, note dropped
    Register(eight, "fcelx_8g2p_10df_f100_10df_f100", "2.10a7",
             MakeModule("m.zip", {{"bios.prg", kBiosImage}, {"fw.all", k8GImage}, {"message.txt", kMessageFile}}));
    EXPECT_EQ(0, eight.ExecutePreUpdate(false));
    const std::string download = "[Download][" + std::string(kWwpn) + "][" + WorkFolder();
    EXPECT_EQ((std::vector<std::string>{download + "/bios.prg]", download + "/fw.all]"}), Calls("Download"));
    EXPECT_EQ(2u, clock_->count(30000));  // each result is looked at after one poll
    qdmtest::SetFileAge(AttribCache(), 3610);  // the reading before the flash is over an hour old
    EXPECT_EQ(Joined({eight.ExecuteUpdateApplyCheck(), eight.GetBootBiosVersion(), MessagesText(), eight.GetUpdateStatus()}),
              Joined({0, "5.30a1", "", static_cast<int>(CModuleManager::STATUS_SUCCESS)}));

    const std::string dump = CEmulexCommon::GetDumpCacheFilePath(kFunction1);
    qdmtest::WriteFile(dump, "Port WWN: x\n");
    EXPECT_EQ(Joined({eight.ExecuteUpdateRestore(""), qdmtest::Exists(dump), qdmtest::Exists(AttribCache())}), "0 0 0");
}

// A failed flash is 0004 (last error 33); without the tool, 0013.
TEST_F(FirmwareTest, PreUpdateFailuresAreReportedWithTheirMessages) {
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    Register(module, "fcelx_16g", "", root_ + "/missing.zip");
    EXPECT_EQ("1 33 MSGID_EMULEX_FC_0004_F firm 21", StepOutcome(module.ExecutePreUpdate(false)));
    EXPECT_TRUE(HasDebug("Failed to open file(" + root_ + "/missing.zip)."));

    ::unlink(kHbacmd);
    NextRow();
    EXPECT_EQ("1 11 MSGID_EMULEX_FC_0013_F firm b Emulex fc One Command Manager",
              StepOutcome(module.ExecutePreUpdate(false)));
    EXPECT_TRUE(HasDebugRun({"Failed to get One Command Manager Install Path",
                             "CEMULEX_Firmware::CEMULEX_Firmware() [" + std::string(kFunction0) + "] [" + kWwpn +
                                 "] [END]"}));
}

TEST_F(FirmwareTest, CompletionTextMustStandWholeInALine) {
    const std::pair<std::string, bool> rows[] = {
        {"flashing 100%\nstatus: Download Complete, reset pending\n", true},  // anywhere in a line
        {std::string(4090, 'x') + "Download Complete\n", true},               // across a read block
        {"download complete\n", false},                                       // case matters
        {"Download Complet", false},
    };
    for (const auto& row : rows) {
        std::istringstream output(row.first);
        EXPECT_EQ(row.second, emulex_firmware::ContainsDownloadComplete(output)) << row.first.substr(0, 40);
    }
}

TEST_F(FirmwareTest, VersionsOfEachModel) {
    const std::string bad8 = "CFC_EMULEX_8G_Firmware::FormatVersionString() Version format error. [";
    const std::string bad16 = "CEMULEX_Firmware::FormatVersionString() Version format error. [";
    // complaint: a debug line that must be written, or ""
    struct Row { bool eight; const char* raw; const char* expected; std::string complaint; };
    const Row rows[] = {
        {true, " 2.02a4(x(y))", "2.02a4", ""},  // cut at the first "(", then trimmed
        {true, "", "abnormal", "CFC_EMULEX_8G_Firmware::FormatVersionString() Version empty []"},
        // Empty only after the cut: judged by the format check, not as empty.
        {true, "(U3D2.02A4)", "abnormal", bad8 + "]"},
        {true, "11.2.156.27", "abnormal", bad8 + "11.2.156.27]"},
        {false, "  11.2.156.27 ", "11.2.156.27", ""},
        {false, "11.2.156.27 (build 12)", "11.2.156.27", ""},  // the note is the fourth segment's dust
        {false, "2.02a4", "abnormal", bad16 + "2.02a4]"},
    };
    CFC_EMULEX_8G_Firmware eight(kFunction0, kWwpn);
    CFC_EMULEX_16G_Firmware sixteen(kFunction0, kWwpn);
    for (const Row& row : rows) {
        CTraceUtility::ClearCapture();
        EXPECT_EQ(row.expected, row.eight ? eight.FormatVersionString(row.raw) : sixteen.FormatVersionString(row.raw));
        EXPECT_TRUE(row.complaint.empty() || HasDebug(row.complaint)) << row.raw;
    }
    EXPECT_GT(eight.CheckVendorVersion("2.02a4", "2.10a1"), 0);
    EXPECT_LT(sixteen.CheckVendorVersion("11.4.1.1", "11.2.156.27"), 0);
    EXPECT_TRUE(HasDebug("CFC_EMULEX_8G_Firmware::CheckVendorVersion() [" + std::string(kFunction0) + "] [" + kWwpn +
                         "] [1] [END]"));
    EXPECT_EQ(Joined({eight.CheckVendorVersion("11.2.156.27", "11.4.1.1"), sixteen.CheckVendorVersion("2.02a4", "2.02a5"),
                      CEmulexCommon::GetLastError()}),
              "0 0 30");
    // Boot BIOS: 8G wants its own form, 16G takes any.
    EXPECT_EQ(Joined({eight.CheckBootBiosVersionFormat("5.12a2"), eight.CheckBootBiosVersionFormat("5.12"),
                      sixteen.CheckBootBiosVersionFormat("odd 1")}),
              "5.12a2 abnormal odd 1");

    // From 25 to 84 % of an update the versions are the update's (or the
    // previous one's) without asking the adapter.
    struct Window { int progress; const char* update; const char* firmware; const char* boot; };
    const Window windows[] = {
        {24, "11.4.204.20", "11.2.156.27", "5.12a2"},
        {25, "11.4.204.20", "11.4.204.20", "11.4.204.20"},
        {84, "11.4.204.20", "11.4.204.20", "11.4.204.20"},
        {50, "", "11.0.0.1", "11.0.0.1"},
        {85, "11.4.204.20", "11.2.156.27", "5.12a2"},
    };
    sixteen.SetPrevVendorVersion("11.0.0.1");
    for (const Window& row : windows) {
        sixteen.SetUpdateVersion(row.update);
        sixteen.SetUpdateProgress(row.progress);
        const size_t before = Calls("HbaAttributes").size();
        CEmulexCommon::DeleteHbaAttribCache(kWwpn);
        EXPECT_EQ(row.firmware, sixteen.GetOperatingVersion()) << row.progress;
        EXPECT_EQ(row.boot, sixteen.GetBootBiosVersion()) << row.progress;  // from the cache just written
        EXPECT_EQ(row.firmware == std::string(row.boot) ? 0u : 1u, Calls("HbaAttributes").size() - before);
    }
}

TEST_F(FirmwareTest, FailedReadDropsTheCacheForFirmwareButNotForBootBios) {
    qdmtest::WriteFile(AttribCache(), "HBA Attributes for x\nModel : LPe16002\n");
    CFC_EMULEX_16G_Firmware module(kFunction0, kWwpn);
    EXPECT_EQ(Joined({module.GetBootBiosVersion(), qdmtest::Exists(AttribCache()), module.GetOperatingVersion(),
                      qdmtest::Exists(AttribCache())}),
              "abnormal 1 abnormal 0");
    EXPECT_TRUE(HasDebug("CEMULEX_Firmware::GetOperatingVersion() GetHbaAttribData return:-1"));

    // Without a WWPN the firmware reader does not even try; the boot BIOS one does.
    CTraceUtility::ClearCapture();
    CFC_EMULEX_16G_Firmware anonymous(kFunction0, "");
    EXPECT_EQ("abnormal", anonymous.GetOperatingVersion());
    EXPECT_EQ("abnormal", anonymous.GetBootBiosVersion());
    EXPECT_FALSE(HasDebugContaining("GetOperatingVersion() GetHbaAttribData return"));
    EXPECT_TRUE(HasDebug("CFC_EMULEX_Firmware::GetBootBiosVersion() GetHbaAttribData return:-1"));
    EXPECT_EQ(0, anonymous.ExecuteUpdateRestore(""));  // never fails
    EXPECT_TRUE(HasDebug("Failed to get delete HbaAttrib cache file."));
}

}  // namespace
