// The host layer the provider stands on: strings, files, INI, unpacking,
// processes, trace and messages, XML, locks, and the module and vendor bases.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "Archive.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "HostSys.h"
#include "ModuleManager.h"
#include "MutexUtil.h"
#include "Profile.h"
#include "QdmXml.h"
#include "StringUtil.h"
#include "TestEnv.h"
#include "UnzipUtility.h"
#include "Vendor.h"

namespace {

namespace fs = std::filesystem;
using S = CStringUtil;
using Exec = CCommon_Information;
using qdmtest::Exists;
using qdmtest::ReadFile;
using qdmtest::WriteFile;
using Strings = std::vector<std::string>;
const std::string kStamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
template <typename A, typename B>
using Rows = std::vector<std::pair<A, B>>;

class HostLayerTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        unzip_ = temp_ + "/unzip";
    }
    void TearDown() override {
        CTraceUtility::SetLevelMask(savedMask_);
        CTraceUtility::SetMessageSink({});
        HostTest::TearDown();
    }
    static Strings Names(const std::string& folder) {
        Strings names;
        for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static long OpenDescriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); }
    bool Unzip(const std::vector<qdmtest::ArchiveEntry>& entries, std::list<std::string>* files = nullptr) {
        EXPECT_TRUE(qdmtest::MakeZip(root_ + "/module.zip", entries));
        return Unzip(root_ + "/module.zip", files);
    }
    bool Unzip(const std::string& archive, std::list<std::string>* files = nullptr) {
        output_.clear();
        bool ok = CUnzip_Utility::UpdateModuleUnzip(archive, files, unzip_, &output_, "fc");
        EXPECT_FALSE(output_.empty());
        return ok;
    }
    bool UnzipEmpty() const { return !Exists(unzip_) || fs::is_empty(unzip_); }

    std::string output_;
    std::string unzip_;
    unsigned savedMask_ = CTraceUtility::GetLevelMask();
};

TEST_F(HostLayerTest, StringHelpers) {
    for (auto [in, out] : Rows<std::string, std::string>{{"  a b \t\r\n", "a b"}, {"\n\n", ""}, {"\t x\ty \r", "x\ty"}}) {
        std::string trimmed = "stale";
        S::strTrimAll(in, trimmed);
        EXPECT_EQ(out, trimmed) << "[" << in << "]";
    }
    struct Split { std::string text, separator; Strings fields; } splits[] = {
        {"abc", ".", {"abc"}},               // separator absent: whole text
        {"a..b.", ".", {"a", "", "b", ""}},  // empty fields kept
        {"a::b", "::", {"a", "b"}},          // multi-character separator
        {"a.b", "", {"a.b"}},                // empty separator: whole text
    };
    for (auto& row : splits) EXPECT_EQ(row.fields, S::Split(row.text, row.separator)) << row.text;
    for (auto [text, digits] : Rows<const char*, bool>{{"0123", true}, {"", false}, {"12a", false}, {"-1", false}})
        EXPECT_EQ(digits, S::IsDigitString(text)) << text;
    for (auto [version, ok] : Rows<const char*, bool>{{"11.2.156.27", true}, {"1.2.3", false}, {"1..3.4", false}, {"1.2.3.+4", false}})
        EXPECT_EQ(ok, S::CheckVersion4SegFormat(version)) << version;
    for (auto [text, value] : Rows<const char*, long>{{" 42", 42L}, {"-17abc", -17L}, {"+8", 8L}, {"abc", 0L}, {"-", 0L},
                                                      {"99999999999999999999999", LONG_MAX},  // clamped
                                                      {"-99999999999999999999999", LONG_MIN},
                                                      {"-9223372036854775808", LONG_MIN}})
        EXPECT_EQ(value, S::TStringToNumber(text)) << text;
    EXPECT_EQ(std::to_string(LONG_MIN), S::NumberToTString(LONG_MIN));
    EXPECT_EQ("abc-Ä/ABC", S::StringToLowerCase("ABC-Ä") + "/" + S::StringToUpperCase("aBc"));
    std::string text = "a:b::c";
    S::strReplace(text, ":", "::");  // replacement holds the pattern: no endless loop
    EXPECT_EQ("a::b::::c", text);
    S::strReplace(text, "", "x");
    S::strReplace(text, "::", "");
    EXPECT_EQ("abc", text);
}

TEST_F(HostLayerTest, DeviceIdentifiers) {
    struct Row { const char* id; bool ok; const char* ids; } ids[] = {
        {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", true, "10DF/F100"},
        {"03:00.1-pci\\ven_10df&dev_e200", true, "10DF/E200"},  // any case in, upper case out
        {"PCI\\VEN_10DF", false, "/"},                            // no device
        {"PCI\\VEN_10&DEV_F100", false, "/"},                     // short vendor
        {"PCI\\VEN_XYZW&DEV_F100", false, "/"},                   // not hex
    };
    for (const auto& row : ids) {
        std::string vendor, device;
        EXPECT_EQ(row.ok, S::GetVenIdDevIdformDeviceId(row.id, vendor, device)) << row.id;
        EXPECT_EQ(row.ids, vendor + "/" + device) << row.id;
    }
    struct Pci { const char* id; bool ok; int bus, device, function; } pcis[] = {
        {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100", true, 3, 0, 0},
        {"0000:AF:1f.7-PCI\\VEN_10DF", true, 0xaf, 31, 7},  // hexadecimal in either case
        {"82:00.1-PCI\\VEN_10DF", true, 0x82, 0, 1},          // without domain
        {"zzzz:03:00.0-PCI", false, 0, 0, 0},                 // domain not hex
        {"0000:03:20.0-PCI", false, 0, 0, 0},                 // device beyond 31
        {"0000:03:00.8-PCI", false, 0, 0, 0},                 // function beyond 7
        {"0000:0g:00.0-PCI", false, 0, 0, 0},                 // bus not hex
        {"0000:03:00-PCI", false, 0, 0, 0},                   // no function
        {"0000:03:.0-PCI", false, 0, 0, 0},                   // empty device
        {"03.00:0-PCI", false, 0, 0, 0},                      // parts swapped
        {"0000:123:00.0-PCI", false, 0, 0, 0},                // bus too long
        {"", false, 0, 0, 0},
    };
    for (const auto& row : pcis) {
        int bus = 0, device = 0, function = 0;
        EXPECT_EQ(row.ok, Exec::GetPCIInfo(row.id, &bus, &device, &function, "fc")) << row.id;
        if (row.ok) {
            EXPECT_EQ((std::vector{row.bus, row.device, row.function}), (std::vector{bus, device, function})) << row.id;
        }
    }
    std::string real = Exec::GetArchitectureInfo("fc");
    Exec::SetArchitectureOverride("ppc64le");
    EXPECT_EQ("ppc64le", Exec::GetArchitectureInfo("fc"));
    Exec::SetArchitectureOverride("");
    EXPECT_FALSE(real.empty());
    EXPECT_EQ(real, Exec::GetArchitectureInfo("fc"));
}

TEST_F(HostLayerTest, FileServices) {
    EXPECT_EQ(root_, CFileUtility::GetInstallPath(3));
    EXPECT_TRUE(CFileUtility::CreateFolder(root_ + "/a/b/c"));
    EXPECT_TRUE(CFileUtility::CreateFolder(root_ + "/a/b/c")) << "existing folder";
    WriteFile(root_ + "/file", "x");
    for (const char* bad : {"/file", "/file/sub", ""}) EXPECT_FALSE(CFileUtility::CreateFolder(*bad ? root_ + bad : "")) << bad;
    for (const char* name : {"b.grp", "a.grp", "c.GRP", "sub/deep.grp", "image.all"}) WriteFile(temp_ + "/" + name, "x");
    std::list<std::string> found = {"stale"};
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*.grp", &found, true));
    EXPECT_EQ((std::list<std::string>{"a.grp", "b.grp"}), found) << "sorted, replaced, not recursive";
    EXPECT_FALSE(CFileUtility::SearchFile(temp_, "*.rpm", &found, false));
    EXPECT_TRUE(found.empty());
    EXPECT_FALSE(CFileUtility::SearchFile(root_ + "/absent", "*", &found, false));
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*", &found, false));
    EXPECT_EQ(0, std::count(found.begin(), found.end(), ".")) << "dot entries are never names";
    for (const char* name : {"a.txt", "keep.txt.bak", "keeptxt", "folder.txt/inner.txt"}) WriteFile(root_ + "/d/" + name, "x");
    EXPECT_TRUE(CFileUtility::DeleteAllFileByExtendName(root_ + "/d", "txt"));
    EXPECT_EQ((Strings{"folder.txt", "keep.txt.bak", "keeptxt"}), Names(root_ + "/d"));
    EXPECT_TRUE(Exec::RetryDeleteFile(root_ + "/file"));
    EXPECT_FALSE(CFileUtility::IsFileExist(root_ + "/file"));
    EXPECT_TRUE(Exec::RetryDeleteFile(root_ + "/file")) << "missing counts as deleted";
    EXPECT_FALSE(Exec::RetryDeleteFile(temp_)) << "a folder is not a file";
    EXPECT_TRUE(CFileUtility::IsFileExist(temp_));
}

TEST_F(HostLayerTest, ProfileLookups) {
    const std::string ini = root_ + "/devices.ini";
    WriteFile(ini, "; adapters\n[Emulex]\nModel = LPe16002\nCount=12\nNegative = -7 ports\nGarbage = twelve\n"
                   "Empty =\nHuge = 99999999999\nTiny = -99999999999\n[Other]\nModel = elsewhere\n");
    struct Row { const char *section, *key; unsigned long size; std::string expected; } rows[] = {
        {"EMULEX", "model", 64, "LPe16002"},  // names ignore case
        {"Other", "Model", 64, "elsewhere"},  // keys belong to their section
        {"Emulex", "Missing", 64, "dflt"},
        {"Missing", "Model", 64, "dflt"},
        {"Emulex", "Empty", 64, ""},          // present but empty is not the default
        {"Emulex", "Model", 4, "LPe"},        // truncated to size - 1
    };
    for (const auto& row : rows) {
        std::vector<char> buffer(row.size + 1, 'Z');
        unsigned long copied = GetPrivateProfileStringA(row.section, row.key, "dflt", buffer.data(), row.size, ini.c_str());
        EXPECT_EQ(row.expected, std::string(buffer.data())) << row.section << "/" << row.key << " " << row.size;
        EXPECT_EQ(row.expected.size(), copied);
        EXPECT_EQ('Z', buffer[row.size]) << "wrote past the buffer";
    }
    char buffer[8] = "Z";
    EXPECT_EQ(0UL, GetPrivateProfileStringA("Emulex", "Model", "d", buffer, 0, ini.c_str()));
    EXPECT_EQ(0UL, GetPrivateProfileStringA("Emulex", "Model", "d", nullptr, 10, ini.c_str()));
    EXPECT_EQ('Z', buffer[0]) << "no room, nothing written";
    EXPECT_EQ(4UL, GetPrivateProfileStringA("E", "M", "dflt", buffer, 8, (root_ + "/absent.ini").c_str()));
    struct Int { const char* key; int expected; } ints[] = {
        {"Count", 12},
        {"Negative", -7},   // leading number of the value
        {"Garbage", 5},     // not a number: default
        {"Missing", 5},
        {"Huge", INT_MAX},  // clamped to int
        {"Tiny", INT_MIN},
    };
    for (const auto& row : ints)
        EXPECT_EQ(row.expected, static_cast<int>(GetPrivateProfileIntA("emulex", row.key, 5, ini.c_str()))) << row.key;
    EXPECT_EQ(9U, GetPrivateProfileIntA("Emulex", "Count", 9, (root_ + "/absent.ini").c_str()));
}

TEST_F(HostLayerTest, UnzipUnpacksModules) {
    std::list<std::string> files = {"kept"};
    ASSERT_TRUE(Unzip({{"readme.txt", "hello"}, {"bin/x86_64/install.sh", "#!/bin/sh\n", true}, {"./bin/data.grp", "image"}}, &files));
    EXPECT_EQ((std::list<std::string>{"kept", "readme.txt", "bin/x86_64/install.sh", "bin/data.grp"}), files);
    EXPECT_EQ("image", ReadFile(unzip_ + "/bin/data.grp"));
    EXPECT_EQ(fs::perms::owner_exec, fs::status(unzip_ + "/bin/x86_64/install.sh").permissions() & fs::perms::owner_exec);
    EXPECT_EQ(fs::perms::none, fs::status(unzip_ + "/readme.txt").permissions() & fs::perms::owner_exec);
    // Removal takes the tree but never what a link inside points to.
    WriteFile(root_ + "/keep/precious.txt", "p");
    fs::create_directory_symlink(root_ + "/keep", unzip_ + "/bin/link");
    EXPECT_TRUE(CUnzip_Utility::DeleteFolder(unzip_, "fc"));
    EXPECT_FALSE(Exists(unzip_));
    EXPECT_EQ("p", ReadFile(root_ + "/keep/precious.txt"));
    EXPECT_TRUE(CUnzip_Utility::DeleteFolder(unzip_, "fc")) << "a missing folder counts as removed";
}

TEST_F(HostLayerTest, UnzipRefusesHostileModulesBeforeWriting) {
    struct Row { const char* why; qdmtest::ArchiveEntry bad; } rows[] = {
        {"parent component", {"../escape.txt", "x"}},
        {"parent component deeper down", {"a/../../escape.txt", "x"}},
        {"absolute path", {"/tmp/qdm_abs_escape.txt", "x"}},
        {"symbolic link", {"link", "", false, "/etc"}},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(Unzip({{"first.txt", "fine"}, row.bad})) << row.why;
        EXPECT_TRUE(UnzipEmpty()) << row.why;
        qdmtest::RemoveTree(unzip_);
    }
    EXPECT_FALSE(Exists(temp_ + "/escape.txt") || Exists("/tmp/qdm_abs_escape.txt"));
    // A damaged zip for which the library has no error text (found by fuzzing).
    std::list<std::string> files;
    EXPECT_FALSE(Unzip(std::string(QDM_SOURCE_DIR) + "/fuzz/regressions/fuzz_unzip/null-error-string.zip", &files));
    EXPECT_EQ(0U, output_.rfind("refused: unreadable archive: ", 0)) << output_;
    EXPECT_TRUE(files.empty());
    WriteFile(root_ + "/garbage.zip", "this is not an archive");
    EXPECT_FALSE(Unzip(root_ + "/garbage.zip"));
    EXPECT_FALSE(Unzip(root_ + "/absent.zip"));
    EXPECT_TRUE(UnzipEmpty());
    // Links planted in the target folder are never followed.
    fs::create_directories(unzip_);
    fs::create_directories(root_ + "/outside");
    fs::create_directory_symlink(root_ + "/outside", unzip_ + "/sub");
    fs::create_symlink(root_ + "/outside/f.txt", unzip_ + "/f.txt");
    EXPECT_FALSE(Unzip({{"sub/x.txt", "x"}}));
    EXPECT_FALSE(Unzip({{"f.txt", "x"}}));
    EXPECT_TRUE(fs::is_empty(root_ + "/outside"));
}

TEST_F(HostLayerTest, ExecRunsCommands) {
    const long descriptors = OpenDescriptors();
    const std::string out = temp_ + "/out.txt";
    WriteFile(out, "old content that must be truncated\n");
    unsigned long code = 99;
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("echo hello; exit 3", out, "", &code, 60000));
    EXPECT_EQ(3UL, code);
    EXPECT_EQ("hello\n", ReadFile(out));
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("kill -9 $$", "", "", &code, Exec::NO_TIMEOUT));
    EXPECT_EQ(128UL + SIGKILL, code) << "a signalled child reports 128 + signal";
    // cat would block on an inherited terminal; an empty stdin ends it at once.
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("cat; pwd -P", out, temp_, &code, 60000));
    EXPECT_EQ("0 " + fs::canonical(temp_).string() + "\n", std::to_string(code) + " " + ReadFile(out));
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("exit 4", "", "", nullptr, Exec::NO_TIMEOUT));
    WriteFile(root_ + "/outside.txt", "kept\n");
    fs::create_symlink(root_ + "/outside.txt", temp_ + "/symlink.txt");
    fs::create_hard_link(root_ + "/outside.txt", temp_ + "/hardlink.txt");
    ASSERT_EQ(0, ::mkfifo((temp_ + "/fifo.txt").c_str(), 0644));
    struct Row { const char* why; std::string output, folder; } rows[] = {
        {"output file in a missing folder", root_ + "/missing/out.txt", ""},
        {"missing work folder", "", root_ + "/missing"},
        {"output is a symbolic link", temp_ + "/symlink.txt", ""},
        {"output is a hard link", temp_ + "/hardlink.txt", ""},
        {"output is a FIFO (must not block)", temp_ + "/fifo.txt", ""},
        {"output is a folder", temp_, ""},
    };
    for (const auto& row : rows) {
        code = 42;
        EXPECT_EQ(Exec::EXEC_NOT_STARTED, Exec::ExecForeignModule("echo x", row.output, row.folder, &code, 60000)) << row.why;
        EXPECT_EQ(42UL, code) << row.why << ": the return code is left alone";
    }
    EXPECT_EQ("kept\n", ReadFile(root_ + "/outside.txt"));
    EXPECT_EQ(descriptors, OpenDescriptors()) << "no descriptor leaks";
}

TEST_F(HostLayerTest, ExecTimeoutKillsTheWholeTree) {
    const std::string pidFile = temp_ + "/grandchild.pid";
    unsigned long code = 7;
    const long descriptors = OpenDescriptors();
    auto started = std::chrono::steady_clock::now();
    // 200 s, which the test clock scales to 2 s.
    EXPECT_EQ(Exec::EXEC_TIMEOUT, Exec::ExecForeignModule("sleep 30 & echo $! > " + pidFile + "; wait", temp_ + "/o", "", &code, 200000));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(descriptors, OpenDescriptors());
    const std::string stat = "/proc/" + std::to_string(std::atol(ReadFile(pidFile).c_str())) + "/stat";
    // Gone, or a zombie waiting for its new parent: no longer running.
    auto ended = [&] { std::string text = ReadFile(stat); return text.empty() || text.find(") Z") != std::string::npos; };
    for (int i = 0; i < 600 && !ended(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_NE("/proc/0/stat", stat);
    EXPECT_TRUE(ended());
    qdmhost::SetTimeoutScale(1.0);
    EXPECT_DOUBLE_EQ(1.0, qdmhost::GetTimeoutScale());
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("exit 0", "", "", &code, 60000));
    qdmhost::SetTimeoutScale(0.001);
    EXPECT_EQ(Exec::EXEC_TIMEOUT, Exec::ExecForeignModule("sleep 10", "", "", &code, 60000)) << "the scale applies";
}

TEST_F(HostLayerTest, DebugTrace) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "value %d [%s]", 42, "x");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "entry");  // not logged by default
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_CLEANUP, "cleanup");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "info");
    CTraceUtility::SetLevelMask(CTraceUtility::TRACE_FUNC);
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "entry now");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "info now");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "%s", std::string(10000, 'a').c_str());
    const std::string log = ReadFile(root_ + "/log/fc.log");
    EXPECT_TRUE(std::regex_match(log, std::regex(kStamp + R"(\[2\] value 42 \[x\]\n)" + kStamp + R"(\[16\] cleanup\n)" + kStamp +
                                                 R"(\[1\] info\n)" + kStamp + R"(\[4\] entry now\n)" + kStamp + "\\[4\\] a{4000,4100}\n")))
        << log.substr(0, 300) << " ... " << log.size() << " bytes: long lines are cut";
    EXPECT_EQ(7U, Debug().size()) << "capture ignores the level mask";
    EXPECT_TRUE(HasDebug("entry"));
    CTraceUtility::StopCapture();
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "unseen");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_EQ(7U, Debug().size());
    EXPECT_TRUE(Messages().empty());
    CTraceUtility::StartCapture();
    CTraceUtility::ClearCapture();
    EXPECT_TRUE(Debug().empty());
    // A log folder that cannot be written loses the lines, not the process.
    qdmtest::RemoveTree(root_ + "/log");
    WriteFile(root_ + "/log", "a file where the folder should be");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "lost");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_TRUE(HasDebug("lost"));
    EXPECT_EQ("a file where the folder should be", ReadFile(root_ + "/log"));
}

TEST_F(HostLayerTest, OperatorMessages) {
    Strings sunk;
    CTraceUtility::SetMessageSink([&](const std::string& id, const std::string& text) { sunk.push_back(id + ": " + text); });
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0009_F", "firm", std::string("1.0"), "2.0");
    const std::string line = "MSGID_EMULEX_FC_0009_F: firm: the operating version 1.0 does not match the update version 2.0";
    EXPECT_TRUE(std::regex_match(ReadFile(root_ + "/log/fc_messages.log"), std::regex(kStamp + line + "\n")));
    EXPECT_EQ(Strings{line}, sunk);
    ASSERT_EQ(1U, MessageCount("MSGID_EMULEX_FC_0009_F"));
    EXPECT_EQ((Strings{"firm", "1.0", "2.0"}), Messages()[0].inserts);
    // Each text with the inserts the provider sends it.
    struct Row { const char* id; Strings inserts; const char* text; } rows[] = {
        {"MSGID_EMULEX_FC_0008_F", {"ocm", "abnormal", "12.0"},
         "ocm: the operating version could not be read after the update (operating version abnormal, update version 12.0)"},
        {"MSGID_EMULEX_FC_0013_F", {"vendor", "b", "Emulex", "FC", "One Command Manager"},
         "vendor: the required component Emulex FC One Command Manager is not installed (error b)"},
        {"MSGID_EMULEX_FC_0019_F", {"1e"}, "A version text has not the expected form (error 1e)."},  // the error text alone
        {"MSGID_EMULEXCOMMON_0001_F", {}, "The adapter list could not be obtained from the adapter management tool."},
        {"MSGID_EMULEX_FC_0004_F", {"firm"}, "firm: the update could not be applied (error )"},  // missing insert: empty
        {"MSGID_UNKNOWN", {"a", "b"}, "MSGID_UNKNOWN a b"},  // no text: identifier and inserts
    };
    for (const auto& row : rows) EXPECT_EQ(row.text, CTraceUtility::FormatMessage(row.id, row.inserts)) << row.id;
}

TEST_F(HostLayerTest, XmlDocuments) {
    CQdmXmlNode root("root"), child("port");
    child.addAttribute("name", "<a> & \"b\" 'c'");
    child.addAttribute("b", "2");
    child.addAttribute("name", "x");  // replaced in place
    EXPECT_EQ((Rows<std::string, std::string>{{"name", "x"}, {"b", "2"}}), child.attributes());
    child.clearAttribute();
    child.addAttribute("name", "<a> & \"b\" 'c'");
    root.addChildNode(child);
    WriteFile(temp_ + "/doc.xml", "old");
    ASSERT_TRUE(CQdmXmlWrite().writeXML(temp_ + "/doc.xml", root));
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n  <port name=\"&lt;a> &amp; &quot;b&quot; 'c'\" />\n</root>\n",
              ReadFile(temp_ + "/doc.xml"));
    EXPECT_FALSE(CQdmXmlWrite().writeXML(root_ + "/missing/doc.xml", root));
    fs::create_directories(temp_ + "/a_folder");
    EXPECT_FALSE(CQdmXmlWrite().writeXML(temp_ + "/a_folder", root));
    EXPECT_EQ((Strings{"a_folder", "doc.xml"}), Names(temp_)) << "no temporary left";
}

TEST_F(HostLayerTest, NamedLocksExcludeObjectsAndProcesses) {
    CMutexUtil unused, first, second, plain, mine;
    EXPECT_EQ(0, unused.Lock(0)) << "never created";
    int error = -1;
    ASSERT_EQ(1, first.Create(1, "cache", &error));
    EXPECT_EQ(0, error);
    ASSERT_EQ(1, second.Create(0, "cache", &error));
    EXPECT_EQ(0, second.Lock(0));
    first.Unlock();
    EXPECT_EQ(1, second.Lock(0));
    ASSERT_EQ(1, plain.Create(0, nullptr, nullptr));
    EXPECT_EQ(1, plain.Lock(CMutexUtil::INFINITE_WAIT));
    EXPECT_EQ((Strings{"cache.lock", "default.lock"}), Names(root_ + "/tmp/qdm_locks"));
    int locked[2], release[2];
    ASSERT_EQ(0, ::pipe(locked) + ::pipe(release));
    pid_t child = ::fork();
    if (child == 0) {
        CMutexUtil mutex;
        char byte = mutex.Create(1, "shared", nullptr) == 1 ? 'L' : 'F';
        if (::write(locked[1], &byte, 1) != 1 || ::read(release[0], &byte, 1) < 0) ::_exit(2);
        mutex.Unlock();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(1, ::read(locked[0], &byte, 1));
    ASSERT_EQ('L', byte);
    ASSERT_EQ(1, mine.Create(0, "shared", nullptr));
    EXPECT_EQ(0, mine.Lock(20)) << "the child holds it";
    ASSERT_EQ(1, ::write(release[1], "r", 1));
    EXPECT_EQ(1, mine.Lock(10000)) << "released by the child";
    int status = 0;
    ::waitpid(child, &status, 0);
    for (int fd : {locked[0], locked[1], release[0], release[1]}) ::close(fd);
    EXPECT_EQ(0, status);
}

// Records what the lifecycle hands to the overridable steps.
template <typename Base>
struct Recording : Base {
    template <typename... Args>
    explicit Recording(Args... args) : Base(args...) {}
    ~Recording() override { ++destroyed; }
    std::string GetOperatingVersion() override { return "12.8.1"; }
    int CheckVendorVersion(std::string, std::string) override { return 0; }
    int PreUpdate(std::string device, std::string archive, std::list<std::string>* files, bool) override {
        seen = {std::to_string(this->GetUpdateProgress()), device, archive};
        files->push_back("written.bin");
        return 0;
    }
    int Update(std::string, std::string, std::list<std::string>* files, bool) override {
        seen.insert(seen.end(), {std::to_string(this->GetUpdateProgress()), std::to_string(files->size())});
        return 7;
    }
    bool UpdateApplyCheck(std::string) override {
        seen.push_back(std::to_string(this->GetUpdateProgress()));
        return failCheck;
    }
    Strings seen;
    bool failCheck = false;
    static inline int destroyed = 0;
};

TEST_F(HostLayerTest, ModuleLifecycle) {
    Recording<CUtility> module("0000:03:00.0-PCI", "ocm");
    EXPECT_EQ(0, module.CheckRegisterUpdateModule({"fcelx_16g", "util", "12.0.0.1", "/repo/ocm.zip"}));
    EXPECT_EQ(CModuleManager::PROGRESS_IDLE, module.GetUpdateProgress());
    EXPECT_EQ(0, module.ExecuteUpdateBackup("/backup", false));
    EXPECT_EQ(CModuleManager::PROGRESS_BACKUP, module.GetUpdateProgress());
    EXPECT_EQ(0, module.ExecutePreUpdate(false));
    EXPECT_EQ(7, module.ExecuteUpdate(false));
    EXPECT_EQ(CModuleManager::PROGRESS_UPDATED, module.GetUpdateProgress());
    EXPECT_FALSE(module.ExecuteUpdateApplyCheck());
    // PreUpdate and Update run inside the window 25..84; the file list lives across them.
    EXPECT_EQ((Strings{"25", "0000:03:00.0-PCI", "/repo/ocm.zip", "50", "1", "90"}), module.seen);
    EXPECT_EQ(CModuleManager::STATUS_SUCCESS, module.GetUpdateStatus());
    EXPECT_EQ(CModuleManager::PROGRESS_DONE, module.GetUpdateProgress());
    EXPECT_FALSE(module.GetLatestUpdateDate().empty());
    EXPECT_EQ("12.0.0.1 fcelx_16g", module.GetOperatingModuleInfo().version + " " + module.GetUniqueName());
    module.failCheck = true;
    EXPECT_TRUE(module.ExecuteUpdateApplyCheck());
    EXPECT_EQ(CModuleManager::STATUS_FAILURE, module.GetUpdateStatus());
    Recording<CDriver> driver("dev"), named("dev", "lpfc"), unnamed("dev", "");
    EXPECT_EQ("driver lpfc driver dev", driver.GetModuleName() + " " + named.GetModuleName() + " " + unnamed.GetModuleName() +
                                            " " + driver.GetDeviceName());
    EXPECT_EQ("", driver.GetOperatingVersionCache());
    EXPECT_EQ("12.8.1", driver.RefreshOperatingVersionCache());
    EXPECT_EQ("12.8.1", driver.GetOperatingVersionCache());
    driver.InitializeOperatingModuleInfo("12.0");
    EXPECT_EQ("12.0 12.0", driver.GetOldOperatingModuleInfo().version + " " + driver.GetPrevVendorVersion());
    EXPECT_EQ(0, driver.RegistUpdateModule("key", "/a.zip"));
    EXPECT_EQ("key driver", driver.GetManageModuleInfo().uniqueName + " " + driver.GetManageModuleInfo().moduleName);
}

struct TestVendor : CVendorEx {
    explicit TestVendor(bool withModules) : CVendorEx("0000:03:00.0-PCI\\VEN_10DF") {
        if (withModules) LinkDevice();
    }
    void LinkDevice() override {
        firmwareModule = firmware = new Recording<CFirmware>(deviceId);
        driverModule = new Recording<CDriver>(deviceId);
        utilityModules.push_back(new Recording<CUtility>(deviceId, std::string("ocm")));
    }
    Recording<CFirmware>* firmware = nullptr;
};

TEST_F(HostLayerTest, VendorBase) {
    TestVendor* vendor = new TestVendor(true);
    const CVendor* address = vendor;
    EXPECT_TRUE(CVendor::IsLive(address));
    EXPECT_FALSE(CVendor::IsLive(nullptr));
    EXPECT_EQ("0000:03:00.0-PCI\\VEN_10DF", vendor->GetDeviceInfo());
    EXPECT_EQ(vendor->GetFirmwareModule(), vendor->FindModule("firm"));
    EXPECT_EQ(vendor->GetDriverModule(), vendor->FindModule("driver"));
    EXPECT_EQ(vendor->GetUtilityModules().front(), vendor->FindModule("util"));
    EXPECT_EQ(nullptr, vendor->FindModule("bios"));
    EXPECT_EQ(1, vendor->ExecutePreUpdate("bios", false)) << "no such module";
    EXPECT_EQ(0, vendor->ExecutePreUpdate("firm", false));
    EXPECT_EQ(CModuleManager::PROGRESS_PREUPDATE, vendor->FindModule("firm")->GetUpdateProgress());
    EXPECT_EQ(0, vendor->ExecuteUpdateApplyCheck("driver"));
    EXPECT_FALSE(vendor->IsUpdateFailure());
    vendor->firmware->failCheck = true;
    EXPECT_EQ(1, vendor->ExecuteUpdateApplyCheck("firm"));
    EXPECT_TRUE(vendor->IsUpdateFailure());
    vendor->SetPrevVendorVersion("util", "9.9");
    EXPECT_EQ("9.9", vendor->GetPrevVendorVersion("util"));
    EXPECT_EQ("", vendor->GetLatestUpdateDate("bios"));
    auto destroyed = [] { return Recording<CDriver>::destroyed + Recording<CFirmware>::destroyed + Recording<CUtility>::destroyed; };
    const int before = destroyed();
    delete vendor;
    delete new TestVendor(false);
    EXPECT_FALSE(CVendor::IsLive(address));
    EXPECT_EQ(before + 3, destroyed()) << "the vendor deletes what it linked, and only that";
}

TEST_F(HostLayerTest, PausesAndConsole) {
    std::vector<unsigned long> pauses;
    qdmhost::SetSleepHook([&](unsigned long ms) { pauses.push_back(ms); });
    Sleep(30000);
    qdmhost::SetSleepHook({});
    Sleep(1);  // real again: must not reach the old hook
    EXPECT_EQ(std::vector<unsigned long>{30000}, pauses);
    Strings lines;
    qdmhost::SetShowMessageSink([&](const std::string& line) { lines.push_back(line); });
    ShowMessage(L"Unknown class", "CFC_X");
    ShowMessage(L"Unknown class", L"CFC_Y");
    ShowMessage(L"Alone");
    ShowMessage(L"Odd \u00e9", static_cast<const char*>(nullptr));
    qdmhost::SetShowMessageSink({});
    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ(0U, lines[3].find("Odd ")) << "non-ASCII never breaks the line";
    lines.pop_back();
    EXPECT_EQ((Strings{"Unknown class CFC_X", "Unknown class CFC_Y", "Alone"}), lines);
}

TEST_F(HostLayerTest, SandboxKeepsWritesToEtcInside) {
    const std::string probe = "/etc/qdm_sandbox_probe";
    ASSERT_FALSE(Exists(probe)) << "left over from an earlier run outside the sandbox";
    int status = std::system((QDM_SANDBOX_SCRIPT " sh -c 'echo x > " + probe + " && test -f " + probe + "'").c_str());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "the sandbox is unavailable here (no namespaces)";
    EXPECT_EQ(0, status);
    EXPECT_FALSE(Exists(probe));
}

}  // namespace
