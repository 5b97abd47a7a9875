#pragma once
// Shared set-up of the firmware module tests: a fake adapter tool at its
// fixed path whose versions, failures and output the test scripts through
// files in a state folder, and update modules built as zip archives.
#include <unistd.h>

#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "Archive.h"
#include "CEmulexCommon.h"
#include "ModuleManager.h"
#include "TestEnv.h"

namespace firmwaretest {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
const char kWwpn[] = "10:00:00:00:c9:12:34:56";
const char kFunction0[] = "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";
const char kFunction1[] = "0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";
const char k8G2PName[] = "fcelx_8g2p_10df_f100_10df_f100";
const char k16GName[] = "fcelx_16g";
// The module's own message definitions: the fake's "Downloading" line ends
// the run, "Download Complete" tells success.
const char kMessageFile[] = "EndMessage=Downloading\nSuccessMessage=Download Complete\n";

// The fake tool. "HbaAttributes" prints the versions kept in fw-<wwpn> and
// boot-<wwpn>. "Download" logs the call, fails while the counter "failures"
// is above zero (printing fail.out), else applies the image (its first line
// is "fw=<version>" or "boot=<version>"), optionally pins a mount point into
// the image's folder ("pin"), and prints ok.out or "Download Complete".
inline std::string FakeHbacmdBody(const std::string& state) {
    return "S='" + state + "'\n"
           "echo \"$*\" >> \"$S/calls\"\n"
           "w=$(echo \"$2\" | tr ':' '-')\n"
           "case \"$1\" in\n"
           "HbaAttributes)\n"
           "  echo \"HBA Attributes for $2\"\n"
           "  echo \"FW Version        : $(cat \"$S/fw-$w\" 2>/dev/null)\"\n"
           "  echo \"Boot Version      : $(cat \"$S/boot-$w\" 2>/dev/null)\"\n"
           "  ;;\n"
           "Download)\n"
           "  echo \"Downloading $3\"\n"
           "  n=$(cat \"$S/failures\" 2>/dev/null || echo 0)\n"
           "  if [ \"$n\" -gt 0 ]; then\n"
           "    echo $((n - 1)) > \"$S/failures\"\n"
           "    cat \"$S/fail.out\" 2>/dev/null || echo 'ERROR: <219>: Download failed'\n"
           "    exit 1\n"
           "  fi\n"
           "  if [ -f \"$S/pin\" ]; then\n"
           "    d=$(dirname \"$3\")/pinned; mkdir -p \"$d\" && mount -t tmpfs qdmpin \"$d\"\n"
           "  fi\n"
           "  line=$(head -n 1 \"$3\")\n"
           "  echo \"${line#*=}\" > \"$S/${line%%=*}-$w\"\n"
           "  cat \"$S/ok.out\" 2>/dev/null || echo 'Download Complete'\n"
           "  ;;\n"
           "esac\n";
}

class FirmwareTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        CEmulexCommon::SetLastError(0);
        state_ = root_ + "/fake";
        qdmtest::WriteScript(kHbacmd, FakeHbacmdBody(state_));
        SetAdapterVersions(kWwpn, "11.2.156.27", "5.12a2");
    }
    void TearDown() override {
        ::unlink(kHbacmd);
        HostTest::TearDown();
    }

    void SetAdapterVersions(const std::string& wwpn, const std::string& firmware, const std::string& boot) {
        const std::string name = FileName(wwpn);
        qdmtest::WriteFile(state_ + "/fw-" + name, firmware + "\n");
        qdmtest::WriteFile(state_ + "/boot-" + name, boot + "\n");
    }
    std::string AdapterFirmware(const std::string& wwpn) const {
        std::istringstream in(qdmtest::ReadFile(state_ + "/fw-" + FileName(wwpn)));
        std::string version;
        std::getline(in, version);
        return version;
    }
    void FailNextDownloads(int count) { qdmtest::WriteFile(state_ + "/failures", std::to_string(count) + "\n"); }
    void SetSuccessOutput(const std::string& text) { qdmtest::WriteFile(state_ + "/ok.out", text); }
    void SetFailureOutput(const std::string& text) { qdmtest::WriteFile(state_ + "/fail.out", text); }

    // Lines of the fake's call log that start with the verb.
    std::vector<std::string> Calls(const std::string& verb) const {
        std::istringstream in(qdmtest::ReadFile(state_ + "/calls"));
        std::vector<std::string> calls;
        for (std::string line; std::getline(in, line);)
            if (line.compare(0, verb.size(), verb) == 0) calls.push_back(line);
        return calls;
    }

    // A zip update module in the test root.
    std::string MakeModule(const std::string& name, const std::vector<qdmtest::ArchiveEntry>& entries) {
        const std::string path = root_ + "/" + name;
        EXPECT_TRUE(qdmtest::MakeZip(path, entries));
        return path;
    }
    // The host registers the package: unique name, update version, archive.
    static void Register(CModuleManager& module, const std::string& uniqueName, const std::string& version,
                         const std::string& archive) {
        CManageRepositoryInfo info;
        info.uniqueName = uniqueName;
        info.moduleKind = "firm";
        info.version = version;
        info.archivePath = archive;
        module.CheckRegisterUpdateModule(info);
    }

    std::string WorkFolder() const { return temp_ + "/firm"; }
    std::string AttribCache(const std::string& wwpn) const { return cache_ + "/HbaAttrib" + FileName(wwpn) + ".txt"; }

    std::string state_;

private:
    static std::string FileName(std::string wwpn) {
        for (char& c : wwpn)
            if (c == ':') c = '-';
        return wwpn;
    }
};

}  // namespace firmwaretest
