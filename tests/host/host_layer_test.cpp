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
#include <regex>
#include <thread>

#include "Archive.h"
#include "CommandWords.h"
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

std::string Str(std::string text) { return text; }
template <typename T>
std::string Str(T value) {
    return std::to_string(value);
}
// Each input's outcome, joined by '|': a whole table in one comparison.
template <typename F>
std::string Each(const Strings& inputs, F outcome) {
    std::string joined;
    for (size_t i = 0; i < inputs.size(); ++i) joined += (i ? "|" : "") + Str(outcome(inputs[i]));
    return joined;
}

class HostLayerTest : public qdmtest::HostTest {
protected:
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
        bool ok = CUnzip_Utility::UpdateModuleUnzip(archive, files, Unpacked(), &output_, "fc");
        EXPECT_FALSE(output_.empty());
        return ok;
    }
    std::string Unpacked() const { return temp_ + "/unzip"; }
    bool UnzipEmpty() const { return !Exists(Unpacked()) || fs::is_empty(Unpacked()); }

    std::string output_;
    unsigned savedMask_ = CTraceUtility::GetLevelMask();
};

TEST_F(HostLayerTest, TextsAndDeviceIdentifiers) {
    auto trim = [](const std::string& text) {
        std::string trimmed = "stale";
        S::strTrimAll(text, trimmed);
        return trimmed;
    };
    EXPECT_EQ("a b||x\ty", Each({"  a b \t\r\n", "\n\n", "\t x\ty \r"}, trim));
    // Separator absent, empty fields kept, a multi-character separator, an empty separator.
    std::string fields;
    for (auto [text, separator] :
         Rows<std::string, std::string>{{"abc", "."}, {"a..b.", "."}, {"a::b", "::"}, {"a.b", ""}}) {
        for (const auto& field : S::Split(text, separator)) fields += "[" + field + "]";
        fields += "|";
    }
    EXPECT_EQ("[abc]|[a][][b][]|[a][b]|[a.b]|", fields);
    EXPECT_EQ("1|0|0|0", Each({"0123", "", "12a", "-1"}, S::IsDigitString));
    // Out of range texts are clamped.
    EXPECT_EQ("42|-17|8|0|0|" + Str(LONG_MAX) + "|" + Str(LONG_MIN) + "|" + Str(LONG_MIN),
              Each({" 42", "-17abc", "+8", "abc", "-", "99999999999999999999999", "-99999999999999999999999",
                    "-9223372036854775808"},
                   S::TStringToNumber));
    std::string text = "a:b::c";
    S::strReplace(text, ":", "::");  // replacement holds the pattern: no endless loop
    EXPECT_EQ("a::b::::c", text);
    S::strReplace(text, "", "x");
    S::strReplace(text, "::", "");
    EXPECT_EQ("abc", text);
    auto ids = [](const std::string& id) {
        std::string vendor, device;
        return Str(S::GetVenIdDevIdformDeviceId(id, vendor, device)) + " " + vendor + "/" + device;
    };
    // Any case in, upper case out; then no device, a short vendor, a vendor not hex.
    EXPECT_EQ("1 10DF/F100|1 10DF/E200|0 /|0 /|0 /",
              Each({"0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "03:00.1-pci\\ven_10df&dev_e200",
                    "PCI\\VEN_10DF", "PCI\\VEN_10&DEV_F100", "PCI\\VEN_XYZW&DEV_F100"},
                   ids));
    auto pci = [](const std::string& id) {
        int bus = -1, device = -1, function = -1;
        const bool ok = Exec::GetPCIInfo(id, &bus, &device, &function, "fc");
        return ok ? Str(bus) + "." + Str(device) + "." + Str(function) : "-";
    };
    // Hexadecimal in either case, without domain.
    EXPECT_EQ(
        "3.0.0|175.31.7|130.0.1",
        Each({"0000:03:00.0-PCI\\VEN_10DF&DEV_F100", "0000:AF:1f.7-PCI\\VEN_10DF", "82:00.1-PCI\\VEN_10DF"}, pci));
    // Domain not hex, device beyond 31, function beyond 7, bus not hex, no function, empty device, parts swapped,
    // bus too long, nothing.
    EXPECT_EQ("-|-|-|-|-|-|-|-|-", Each({"zzzz:03:00.0-PCI", "0000:03:20.0-PCI", "0000:03:00.8-PCI", "0000:0g:00.0-PCI",
                                         "0000:03:00-PCI", "0000:03:.0-PCI", "03.00:0-PCI", "0000:123:00.0-PCI", ""},
                                        pci));
}

TEST_F(HostLayerTest, FilesAndXmlDocuments) {
    WriteFile(root_ + "/file", "x");
    // New, existing; a file, below a file, no name.
    EXPECT_EQ("1|1|0|0|0", Each({root_ + "/a/b/c", root_ + "/a/b/c", root_ + "/file", root_ + "/file/sub", ""},
                                CFileUtility::CreateFolder));
    for (const char* name : {"b.grp", "a.grp", "c.GRP", "sub/deep.grp", "image.all"}) WriteFile(temp_ + "/" + name, "x");
    std::list<std::string> found = {"stale"};
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*.grp", &found, true));
    EXPECT_EQ((std::list<std::string>{"a.grp", "b.grp"}), found) << "sorted, replaced, not recursive";
    // No match: none found, the list emptied; a missing folder; every name, but never a dot entry.
    EXPECT_EQ((std::vector<long>{0, 0, 0, 1, 0}),
              (std::vector<long>{
                  CFileUtility::SearchFile(temp_, "*.rpm", &found, false), static_cast<long>(found.size()),
                  CFileUtility::SearchFile(root_ + "/absent", "*", &found, false),
                  CFileUtility::SearchFile(temp_, "*", &found, false), std::count(found.begin(), found.end(), ".")}));
    for (const char* name : {"a.txt", "keep.txt.bak", "keeptxt", "folder.txt/inner.txt"}) WriteFile(root_ + "/d/" + name, "x");
    EXPECT_TRUE(CFileUtility::DeleteAllFileByExtendName(root_ + "/d", "txt"));
    EXPECT_EQ((Strings{"folder.txt", "keep.txt.bak", "keeptxt"}), Names(root_ + "/d"));
    CQdmXmlNode root("root"), child("port");
    child.addAttribute("name", "<a> & \"b\" 'c'");
    root.addChildNode(child);
    WriteFile(root_ + "/xml/doc.xml", "old");
    ASSERT_TRUE(CQdmXmlWrite().writeXML(root_ + "/xml/doc.xml", root));
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n  <port name=\"&lt;a> &amp; &quot;b&quot; 'c'\" />\n</root>\n",
              ReadFile(root_ + "/xml/doc.xml"));
    fs::create_directories(root_ + "/xml/a_folder");
    EXPECT_FALSE(CQdmXmlWrite().writeXML(root_ + "/missing/doc.xml", root) ||
                 CQdmXmlWrite().writeXML(root_ + "/xml/a_folder", root));
    EXPECT_EQ((Strings{"a_folder", "doc.xml"}), Names(root_ + "/xml")) << "no temporary left";
}

TEST_F(HostLayerTest, ProfileLookups) {
    const std::string ini = root_ + "/devices.ini", absent = root_ + "/absent.ini";
    WriteFile(ini, "; adapters\n[Emulex]\nModel = LPe16002\nCount=12\nNegative = -7 ports\nGarbage = twelve\n"
                   "Empty =\nHuge = 99999999999\nTiny = -99999999999\n[Other]\nModel = elsewhere\n");
    // The count copied, the text, and the byte past the buffer (never written).
    auto read = [](const std::string& file, const char* section, const char* key, unsigned long size) {
        std::vector<char> buffer(size + 1, 'Z');
        const unsigned long copied = GetPrivateProfileStringA(section, key, "dflt", buffer.data(), size, file.c_str());
        return Str(copied) + " " + buffer.data() + " " + buffer[size];
    };
    // Names ignore case; keys belong to their section; missing key, section or file: the default; present but empty
    // is not the default; truncated to size - 1.
    EXPECT_EQ((Strings{"8 LPe16002 Z", "9 elsewhere Z", "4 dflt Z", "4 dflt Z", "4 dflt Z", "0  Z", "3 LPe Z"}),
              (Strings{read(ini, "EMULEX", "model", 64), read(ini, "Other", "Model", 64),
                       read(ini, "Emulex", "Missing", 64), read(ini, "Missing", "Model", 64), read(absent, "E", "M", 8),
                       read(ini, "Emulex", "Empty", 64), read(ini, "Emulex", "Model", 4)}));
    char buffer[8] = "Z";
    // No room: nothing copied, nothing written.
    EXPECT_EQ((std::vector<unsigned long>{0, 0, 'Z'}),
              (std::vector<unsigned long>{GetPrivateProfileStringA("Emulex", "Model", "d", buffer, 0, ini.c_str()),
                                          GetPrivateProfileStringA("Emulex", "Model", "d", nullptr, 10, ini.c_str()),
                                          static_cast<unsigned long>(buffer[0])}));
    auto number = [&](const std::string& key) {
        return static_cast<int>(GetPrivateProfileIntA("emulex", key.c_str(), 5, ini.c_str()));
    };
    // The leading number of the value; not a number or missing: the default; clamped to int.
    EXPECT_EQ("12|-7|5|5|" + Str(INT_MAX) + "|" + Str(INT_MIN),
              Each({"Count", "Negative", "Garbage", "Missing", "Huge", "Tiny"}, number));
    EXPECT_EQ(9U, GetPrivateProfileIntA("Emulex", "Count", 9, absent.c_str()));
}

TEST_F(HostLayerTest, UnzipUnpacksModulesAndRefusesHostileOnesBeforeWriting) {
    std::list<std::string> files = {"kept"};
    ASSERT_TRUE(Unzip({{"readme.txt", "hello"}, {"bin/x86_64/install.sh", "#!/bin/sh\n", true}, {"./bin/data.grp", "image"}}, &files));
    EXPECT_EQ((std::list<std::string>{"kept", "readme.txt", "bin/x86_64/install.sh", "bin/data.grp"}), files);
    EXPECT_EQ("image", ReadFile(Unpacked() + "/bin/data.grp"));
    EXPECT_EQ(fs::perms::owner_exec,
              fs::status(Unpacked() + "/bin/x86_64/install.sh").permissions() & fs::perms::owner_exec);
    EXPECT_EQ(fs::perms::none, fs::status(Unpacked() + "/readme.txt").permissions() & fs::perms::owner_exec);
    // Removal takes the tree but never what a link inside points to.
    WriteFile(root_ + "/keep/precious.txt", "p");
    fs::create_directory_symlink(root_ + "/keep", Unpacked() + "/bin/link");
    // Removed, gone, the target kept; a missing folder counts as removed.
    EXPECT_EQ((Strings{"1", "0", "p", "1"}),
              (Strings{Str(CUnzip_Utility::DeleteFolder(Unpacked(), "fc")), Str(Exists(Unpacked())),
                       ReadFile(root_ + "/keep/precious.txt"), Str(CUnzip_Utility::DeleteFolder(Unpacked(), "fc"))}));
    // A parent component, one deeper down, an absolute path, a symbolic link.
    for (const qdmtest::ArchiveEntry& bad : std::vector<qdmtest::ArchiveEntry>{{"../escape.txt", "x"},
                                                                               {"a/../../escape.txt", "x"},
                                                                               {"/tmp/qdm_abs_escape.txt", "x"},
                                                                               {"link", "", false, "/etc"}}) {
        EXPECT_FALSE(Unzip({{"first.txt", "fine"}, bad})) << bad.name;
        EXPECT_TRUE(UnzipEmpty()) << bad.name;
        qdmtest::RemoveTree(Unpacked());
    }
    EXPECT_FALSE(Exists(temp_ + "/escape.txt") || Exists("/tmp/qdm_abs_escape.txt"));
    // A damaged zip for which the library has no error text (found by fuzzing).
    files.clear();
    EXPECT_EQ(
        (Strings{"0", "refused: unreadable archive: ", "0"}),
        (Strings{Str(Unzip(std::string(QDM_SOURCE_DIR) + "/fuzz/regressions/fuzz_unzip/null-error-string.zip", &files)),
                 output_.substr(0, 29), Str(files.size())}));
    WriteFile(root_ + "/garbage.zip", "this is not an archive");
    EXPECT_FALSE(Unzip(root_ + "/garbage.zip") || Unzip(root_ + "/absent.zip"));
    EXPECT_TRUE(UnzipEmpty());
    // Links planted in the target folder are never followed.
    fs::create_directories(root_ + "/outside");
    fs::create_directories(Unpacked());
    fs::create_directory_symlink(root_ + "/outside", Unpacked() + "/sub");
    fs::create_symlink(root_ + "/outside/f.txt", Unpacked() + "/f.txt");
    EXPECT_FALSE(Unzip({{"sub/x.txt", "x"}}) || Unzip({{"f.txt", "x"}}));
    EXPECT_TRUE(fs::is_empty(root_ + "/outside"));
}

TEST_F(HostLayerTest, ExecRunsCommandsAndEndsTheWholeTreeOnTimeout) {
    const long descriptors = OpenDescriptors();
    // The result and the return code, which is 42 when left alone.
    auto run = [](const std::string& command, const std::string& output = "", const std::string& folder = "",
                  unsigned long timeoutMs = 60000) {
        unsigned long code = 42;
        const int result = Exec::ExecForeignModule(command, output, folder, &code, timeoutMs);
        return Str(result) + " " + Str(code);
    };
    const std::string out = temp_ + "/out.txt";
    WriteFile(out, "old content that must be truncated\n");
    EXPECT_EQ((Strings{"0 3", "hello\n"}), (Strings{run("echo hello; exit 3", out), ReadFile(out)}));
    EXPECT_EQ("0 " + Str(128 + SIGKILL), run("kill -9 $$", "", "", Exec::NO_TIMEOUT)) << "128 + signal";
    // cat would block on an inherited terminal; an empty stdin ends it at once.
    EXPECT_EQ((Strings{"0 0", fs::canonical(temp_).string() + "\n"}),
              (Strings{run("cat; pwd -P", out, temp_), ReadFile(out)}));
    EXPECT_EQ(Exec::EXEC_OK, Exec::ExecForeignModule("exit 4", "", "", nullptr, Exec::NO_TIMEOUT));
    // Started directly: output, work folder, time-out (20 s scaled to 0.2 s). What cannot be run so is left to
    // the shell: a missing program (127), a file not executable (126), a script without "#!".
    WriteFile(temp_ + "/plain.txt", "");
    WriteFile(temp_ + "/nohashbang.sh", "exit 7\n");
    fs::permissions(temp_ + "/nohashbang.sh", fs::perms::owner_all);
    EXPECT_EQ((Strings{"0 0", fs::canonical(temp_).string() + "\n", "255 42", "0 127", "0 126", "0 7"}),
              (Strings{run("/bin/pwd  -P", out, temp_), ReadFile(out), run("sleep 30", "", "", 20000),
                       run("no-such-program-qdm", out), run(temp_ + "/plain.txt"), run("./nohashbang.sh", "", temp_)}));
    WriteFile(root_ + "/outside.txt", "kept\n");
    fs::create_symlink(root_ + "/outside.txt", temp_ + "/symlink.txt");
    fs::create_hard_link(root_ + "/outside.txt", temp_ + "/hardlink.txt");
    ASSERT_EQ(0, ::mkfifo((temp_ + "/fifo.txt").c_str(), 0644));
    // Not started: output file in a missing folder, missing work folder; output a symbolic link, a hard link, a FIFO
    // (must not block), a folder.
    const Rows<std::string, std::string> refused = {{root_ + "/missing/out.txt", ""}, {"", root_ + "/missing"},
                                                    {temp_ + "/symlink.txt", ""},     {temp_ + "/hardlink.txt", ""},
                                                    {temp_ + "/fifo.txt", ""},        {temp_, ""}};
    for (auto [output, folder] : refused)
        EXPECT_EQ("1 42", run("echo x", output, folder)) << output << folder;
    EXPECT_EQ("kept\n", ReadFile(root_ + "/outside.txt"));
    // 200 s, which the test clock scales to 2 s.
    const std::string pidFile = temp_ + "/grandchild.pid";
    EXPECT_EQ("255 42", run("sleep 30 & echo $! > " + pidFile + "; wait", temp_ + "/o", "", 200000));
    EXPECT_EQ(descriptors, OpenDescriptors()) << "no descriptor leaks";
    const std::string stat = "/proc/" + std::to_string(std::atol(ReadFile(pidFile).c_str())) + "/stat";
    // Gone, or a zombie waiting for its new parent: no longer running.
    auto ended = [&] { std::string text = ReadFile(stat); return text.empty() || text.find(") Z") != std::string::npos; };
    for (int i = 0; i < 600 && !ended(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_NE("/proc/0/stat", stat);
    EXPECT_TRUE(ended());
    qdmhost::SetTimeoutScale(0);
    EXPECT_DOUBLE_EQ(1.0, qdmhost::GetTimeoutScale()) << "a scale must be positive";
}

TEST(CommandWordsTest, OnlyLinesWithoutShellSyntaxSplitIntoWords) {
    auto words = [](const std::string& line) {
        std::string joined;
        for (const std::string& word : qdmhost::PlainCommandWords(line)) joined += "[" + word + "]";
        return joined;
    };
    // Blanks and tabs separate; = - , : + @ are literal past the first word.
    EXPECT_EQ("[/usr/sbin/ocmanager/hbacmd][listhbas]|[hbacmd][Download][10:00:00:90:FA:C3:00:01][/w/fw_1.2-3+x.grp]|"
              "[rpm][-Uhv][--opt=a,b][x@y]",
              Each({"/usr/sbin/ocmanager/hbacmd listhbas ", "\thbacmd  Download 10:00:00:90:FA:C3:00:01 /w/fw_1.2-3+x.grp",
                    "rpm -Uhv --opt=a,b x@y"},
                   words));
    // Needs a shell: nothing at all, quotes, expansions, redirection and operators, globs, tilde, braces, brackets,
    // parentheses, comment, history, job, escapes, newline, control and non-ASCII bytes; an assignment; keywords
    // and built-ins.
    const Strings shell = {"", "  \t", "ls \"a b\"", "ls 'a'", "echo $HOME", "ls `pwd`", "a; b", "a | b", "a & b",
                           "a > f", "a < f", "ls *", "ls ?", "ls [ab]", "ls ~", "ls {a,b}", "(ls)", "ls # c",
                           "!ls", "fg %1", "ls a\\ b", "ls\nrm x", "ls\r", "ls \x01", "ls caf\xc3\xa9",
                           "LANG=C ls", "if", "exit 4", "cd /", ".", ":", "echo hi", "exec ls", "time ls"};
    EXPECT_EQ(std::string(shell.size() - 1, '|'), Each(shell, words));
}

TEST_F(HostLayerTest, DebugTraceAndOperatorMessages) {
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
    EXPECT_EQ("7 1", Str(Debug().size()) + " " + Str(HasDebug("entry"))) << "capture ignores the level mask";
    CTraceUtility::StopCapture();
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "unseen");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_EQ("7 0", Str(Debug().size()) + " " + Str(Messages().size())) << "capture stopped";
    CTraceUtility::StartCapture();
    // A log folder that cannot be written loses the lines, not the process.
    qdmtest::RemoveTree(root_ + "/log");
    WriteFile(root_ + "/log", "a file where the folder should be");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "lost");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_TRUE(HasDebug("lost"));
    EXPECT_EQ("a file where the folder should be", ReadFile(root_ + "/log"));
    qdmtest::RemoveTree(root_ + "/log");
    Strings sunk;
    CTraceUtility::SetMessageSink([&](const std::string& id, const std::string& text) { sunk.push_back(id + ": " + text); });
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0009_F", "firm", std::string("1.0"), "2.0");
    const std::string line = "MSGID_EMULEX_FC_0009_F: firm: the operating version 1.0 does not match the update version 2.0";
    EXPECT_TRUE(std::regex_match(ReadFile(root_ + "/log/fc_messages.log"), std::regex(kStamp + line + "\n")));
    EXPECT_EQ(Strings{line}, sunk);
    ASSERT_EQ(1U, MessageCount("MSGID_EMULEX_FC_0009_F"));
    EXPECT_EQ((Strings{"firm", "1.0", "2.0"}), Messages().back().inserts);
    // Each text with the inserts the provider sends it.
    struct Row { const char* id; Strings inserts; const char* text; } rows[] = {
        {"MSGID_EMULEX_FC_0019_F", {"1e"}, "A version text has not the expected form (error 1e)."},  // the error text alone
        {"MSGID_EMULEX_FC_0004_F", {"firm"}, "firm: the update could not be applied (error )"},  // missing insert: empty
        {"MSGID_UNKNOWN", {"a", "b"}, "MSGID_UNKNOWN a b"},  // no text: identifier and inserts
    };
    for (const auto& row : rows) EXPECT_EQ(row.text, CTraceUtility::FormatMessage(row.id, row.inserts)) << row.id;
}

TEST_F(HostLayerTest, NamedLocksExcludeObjectsAndProcesses) {
    CMutexUtil unused, first, second, plain, mine;
    int error = -1;
    // Never created: no lock; created and held, no error; a second object on the name waits.
    EXPECT_EQ((std::vector{0, 1, 0, 1, 0}), (std::vector{unused.Lock(0), first.Create(1, "cache", &error), error,
                                                        second.Create(0, "cache", &error), second.Lock(0)}));
    first.Unlock();
    // Released; no name: the default lock.
    EXPECT_EQ((std::vector{1, 1, 1}),
              (std::vector{second.Lock(0), plain.Create(0, nullptr, nullptr), plain.Lock(CMutexUtil::INFINITE_WAIT)}));
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

int destroyedModules = 0;

// Records what the lifecycle hands to the overridable steps.
template <typename Base>
struct Recording : Base {
    template <typename... Args>
    explicit Recording(Args... args) : Base(args...) {}
    ~Recording() override { ++destroyedModules; }
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
};

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

TEST_F(HostLayerTest, ModuleLifecycleAndVendorBase) {
    Recording<CUtility> module("0000:03:00.0-PCI", "ocm");
    auto step = [&](int result) { return Str(result) + "@" + Str(module.GetUpdateProgress()); };
    // Each step's result, then the progress after it: idle, backup, pre-update, updated, done.
    EXPECT_EQ((Strings{"0@0", "0@10", "0@25", "7@85", "0@100"}),
              (Strings{step(module.CheckRegisterUpdateModule({"fcelx_16g", "util", "12.0.0.1", "/repo/ocm.zip"})),
                       step(module.ExecuteUpdateBackup("/backup", false)), step(module.ExecutePreUpdate(false)),
                       step(module.ExecuteUpdate(false)), step(module.ExecuteUpdateApplyCheck())}));
    // PreUpdate and Update run inside the window 25..84; the file list lives across them.
    EXPECT_EQ((Strings{"25", "0000:03:00.0-PCI", "/repo/ocm.zip", "50", "1", "90"}), module.seen);
    // Status success, the module's version and name, an update date.
    EXPECT_EQ("2 12.0.0.1 fcelx_16g 0", Str(module.GetUpdateStatus()) + " " + module.GetOperatingModuleInfo().version +
                                            " " + module.GetUniqueName() + " " +
                                            Str(module.GetLatestUpdateDate().empty()));
    module.failCheck = true;
    EXPECT_EQ((std::vector<int>{1, CModuleManager::STATUS_FAILURE}),
              (std::vector<int>{module.ExecuteUpdateApplyCheck(), module.GetUpdateStatus()}));
    Recording<CDriver> driver("dev"), named("dev", "lpfc"), unnamed("dev", "");
    EXPECT_EQ("driver lpfc driver dev", driver.GetModuleName() + " " + named.GetModuleName() + " " + unnamed.GetModuleName() +
                                            " " + driver.GetDeviceName());
    EXPECT_EQ((Strings{"", "12.8.1", "12.8.1"}),
              (Strings{driver.GetOperatingVersionCache(), driver.RefreshOperatingVersionCache(),
                       driver.GetOperatingVersionCache()}));
    driver.InitializeOperatingModuleInfo("12.0");
    EXPECT_EQ((Strings{"12.0", "12.0", "0", "key driver"}),
              (Strings{driver.GetOldOperatingModuleInfo().version, driver.GetPrevVendorVersion(),
                       Str(driver.RegistUpdateModule("key", "/a.zip")),
                       driver.GetManageModuleInfo().uniqueName + " " + driver.GetManageModuleInfo().moduleName}));

    TestVendor* vendor = new TestVendor(true);
    const CVendor* address = vendor;
    EXPECT_EQ("1 0", Str(CVendor::IsLive(address)) + " " + Str(CVendor::IsLive(nullptr)));
    EXPECT_EQ("0000:03:00.0-PCI\\VEN_10DF", vendor->GetDeviceInfo());
    EXPECT_EQ((std::vector<CModuleManager*>{vendor->GetFirmwareModule(), vendor->GetDriverModule(),
                                            vendor->GetUtilityModules().front(), nullptr}),
              (std::vector{vendor->FindModule("firm"), vendor->FindModule("driver"), vendor->FindModule("util"),
                           vendor->FindModule("bios")}));
    vendor->firmware->failCheck = true;
    // No such module; the firmware's pre-update and its progress; the driver's check passes, the firmware's fails.
    EXPECT_EQ((std::vector<int>{1, 0, CModuleManager::PROGRESS_PREUPDATE, 0, 0, 1, 1}),
              (std::vector<int>{vendor->ExecutePreUpdate("bios", false), vendor->ExecutePreUpdate("firm", false),
                                vendor->FindModule("firm")->GetUpdateProgress(),
                                vendor->ExecuteUpdateApplyCheck("driver"), vendor->IsUpdateFailure(),
                                vendor->ExecuteUpdateApplyCheck("firm"), vendor->IsUpdateFailure()}));
    vendor->SetPrevVendorVersion("util", "9.9");
    EXPECT_EQ("9.9/", vendor->GetPrevVendorVersion("util") + "/" + vendor->GetLatestUpdateDate("bios"));
    const int before = destroyedModules;
    delete vendor;
    delete new TestVendor(false);
    EXPECT_FALSE(CVendor::IsLive(address));
    EXPECT_EQ(before + 3, destroyedModules) << "the vendor deletes what it linked, and only that";
}

TEST_F(HostLayerTest, PausesAndConsole) {
    Sleep(30000);
    qdmhost::SetSleepHook({});
    Sleep(1);  // real again: must not reach the old hook
    EXPECT_EQ(std::vector<unsigned long>{30000}, clock_->sleeps());
    Strings lines;
    qdmhost::SetShowMessageSink([&](const std::string& line) { lines.push_back(line); });
    ShowMessage(L"Unknown class", "CFC_X");
    ShowMessage(L"Unknown class", L"CFC_Y");
    ShowMessage(L"Alone");
    ShowMessage(L"Odd \u00e9", static_cast<const char*>(nullptr));
    qdmhost::SetShowMessageSink({});
    ASSERT_EQ(4U, lines.size());
    lines[3].resize(4);  // non-ASCII never breaks the line
    EXPECT_EQ((Strings{"Unknown class CFC_X", "Unknown class CFC_Y", "Alone", "Odd "}), lines);
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
