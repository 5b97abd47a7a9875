#pragma once
// Shared set-up of the firmware, driver and utility module tests: a fake
// adapter tool at its fixed path, fake rpm and depmod first on PATH, all of
// which log their runs, and update modules built as zip archives.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "Archive.h"
#include "CommonFixture.h"
#include "CommonInformation.h"
#include "ModuleManager.h"

namespace moduletest {

using namespace commontest;
const char kLpfcConf[] = "/etc/depmod.d/elxlpfc.conf";
const char kBe2netConf[] = "/etc/depmod.d/elxbe2net.conf";
const char kBe2iscsiConf[] = "/etc/depmod.d/elxbe2iscsi.conf";
const char kDiscConfig[] = "/etc/emulexDiscConfig";
const char kRmConfig[] = "/etc/emulexRMConfig";
const char kToolVersionLine[] = "Command Line Interface Version: 10.2.370.16 (build)";

// The fake tool logs each run as "[arg][arg]...". "HbaAttributes" prints the
// versions kept in fw-<wwpn> and boot-<wwpn>. "Download" fails while the
// counter "failures" is above zero, else applies the image (first line
// "fw=<v>" or "boot=<v>"), pins a mount point into the image's folder when
// "pin" exists, and prints "Download Complete".
inline std::string FakeHbacmdBody(const std::string& state) {
    return "S='" + state + "'\n"
           "printf '[%s]' \"$@\" >> \"$S/calls\"; echo >> \"$S/calls\"; w=$(echo \"$2\" | tr ':' '-')\n"
           "case \"$1\" in\n"
           "HbaAttributes) echo \"HBA Attributes for $2\"; echo \"FW Version : $(cat \"$S/fw-$w\")\"\n"
           "  echo \"Boot Version : $(cat \"$S/boot-$w\")\"; echo 'Driver Version : 11.2.156.27; HBAAPI(I) v2.3.d' ;;\n"
           "version) echo 'One Command Manager'; echo '" + std::string(kToolVersionLine) + "' ;;\n"
           "Download) echo \"Downloading $3\"; n=$(cat \"$S/failures\" 2>/dev/null || echo 0)\n"
           "  if [ \"$n\" -gt 0 ]; then echo $((n - 1)) > \"$S/failures\"; echo 'ERROR: <219>: failed'; exit 1; fi\n"
           "  d=$(dirname \"$3\")/pinned; [ -f \"$S/pin\" ] && mkdir -p \"$d\" && mount -t tmpfs qdmpin \"$d\"\n"
           "  line=$(head -n 1 \"$3\"); echo \"${line#*=}\" > \"$S/${line%%=*}-$w\"; echo 'Download Complete' ;;\n"
           "esac\n";
}

class ModuleTest : public CommonTest {
protected:
    void SetUp() override {
        CommonTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        ready_ = true;
        CCommon_Information::SetArchitectureOverride("x86_64");
        state_ = root_ + "/fake";
        rpmLog_ = root_ + "/rpm.log";
        depmodLog_ = root_ + "/depmod.log";
        qdmtest::WriteScript(kHbacmd, FakeHbacmdBody(state_));
        FakeRpm(0);
        FakeDepmod(0);
        ::mkdir("/etc/depmod.d", 0755);
        SetAdapterVersions("11.2.156.27", "5.12a2");
    }
    void TearDown() override {
        if (ready_) Remove({kHbacmd, kLpfcConf, kBe2netConf, kBe2iscsiConf, kDiscConfig, kRmConfig});
        CommonTest::TearDown();
    }

    static void Remove(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) qdmtest::RemoveTree(path);
    }
    // A program found through PATH.
    void Fake(const std::string& name, const std::string& body) { qdmtest::WriteScript(root_ + "/bin/" + name, body); }
    // rpm logs its arguments; "-qa" lists rpm-qa.txt, anything else echoes "rpm <args>".
    void FakeRpm(int exitCode) {
        Fake("rpm", "echo \"$*\" >> '" + rpmLog_ + "'\ncase \"$1\" in -qa) cat '" + root_ +
                        "/rpm-qa.txt' ;; *) echo \"rpm $*\" ;; esac\nexit " + std::to_string(exitCode) + "\n");
    }
    void FakeDepmod(int exitCode) {
        Fake("depmod", "echo \"$*\" >> '" + depmodLog_ + "'\nexit " + std::to_string(exitCode) + "\n");
    }
    // The versions the fake tool reports for kWwpn.
    void SetAdapterVersions(const std::string& firmware, const std::string& boot) {
        qdmtest::WriteFile(state_ + "/fw-10-00-00-00-c9-12-34-56", firmware + "\n");
        qdmtest::WriteFile(state_ + "/boot-10-00-00-00-c9-12-34-56", boot + "\n");
    }
    void FailNextDownloads(int count) { qdmtest::WriteFile(state_ + "/failures", std::to_string(count) + "\n"); }
    // The fake tool's runs with this verb ("" for all), as logged.
    std::vector<std::string> Calls(const std::string& verb) const {
        std::istringstream in(qdmtest::ReadFile(state_ + "/calls"));
        std::vector<std::string> calls;
        for (std::string line; std::getline(in, line);)
            if (verb.empty() || line.compare(0, verb.size() + 2, "[" + verb + "]") == 0) calls.push_back(line);
        return calls;
    }
    // A zip update module; with no entries, a file that is no archive.
    std::string MakeModule(const std::string& name, const std::vector<qdmtest::ArchiveEntry>& entries) {
        if (entries.empty()) qdmtest::WriteFile(root_ + "/" + name, "not a zip archive");
        EXPECT_TRUE(entries.empty() || qdmtest::MakeZip(root_ + "/" + name, entries));
        return root_ + "/" + name;
    }
    // The host registers the package: unique name, update version, archive.
    static void Register(CModuleManager& module, const std::string& name, const std::string& version,
                         const std::string& archive = "") {
        module.CheckRegisterUpdateModule({name, "", version, archive});
    }
    // A step's result, the last error and each operator message with its
    // inserts, as one line: "1 29 MSGID_EMULEX_FC_0005_F driv 1d".
    std::string StepOutcome(long result) const {
        return std::to_string(result) + " " + std::to_string(CEmulexCommon::GetLastError()) + MessagesText();
    }
    // True when these lines were written one right after another.
    bool HasDebugRun(const std::vector<std::string>& lines) const {
        std::vector<std::string> texts;
        for (const auto& line : Debug()) texts.push_back(line.text);
        return std::search(texts.begin(), texts.end(), lines.begin(), lines.end()) != texts.end();
    }

    std::string WorkFolder() const { return temp_ + "/firm"; }
    // The attribute cache of kWwpn.
    std::string AttribCache() const { return cache_ + "/HbaAttrib10-00-00-00-c9-12-34-56.txt"; }
    std::string VersionFile() const { return cache_ + "/HbaVersion.txt"; }

    std::string state_, rpmLog_, depmodLog_;
    std::list<std::string> files_;  // what the unpacking lists

private:
    bool ready_ = false;
};

}  // namespace moduletest
