// The adapter tool and the files it leaves: last-error text, command
// execution, the adapter listing, the attribute cache, work-area paths and
// the key/value readers.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "CommonFixture.h"

namespace {

using namespace commontest;
using Pair = std::pair<std::string, std::string>;

const char kAttributes[] =
    "HBA Attributes for 10:00:00:00:c9:12:34:56\n\nHost Name      : host01\nDriver Version : 8.3.7.18\r\n"
    "Boot Version   : 5.12a5\nFW Version     : 2.02a4 (U3D2.02A4)\nFirmware Version : 2.02a4\nOption ROM Version\n";

TEST_F(CommonTest, SmallServicesAndCommands) {
    // Last-error text: lower-case hex below 39.
    const auto text = [](unsigned long code) {
        CEmulexCommon::SetLastError(code);
        return CEmulexCommon::GetLastErrorToChractor();
    };
    EXPECT_EQ("1e 26 no errcode", text(30) + " " + text(38) + " " + text(39));
    // The first non-digit at or after the start ('/' and ':' border the digits), or npos.
    const auto find = [](const char* text, unsigned long start) { return CEmulexCommon::FindNotDisitChar(text, start); };
    EXPECT_EQ((std::vector<unsigned long>{4, 4, 0, std::string::npos, std::string::npos}),
              (std::vector<unsigned long>{find("1209/", 0), find("1209:", 0), find("abc", 0), find("12a4", 3), find("12", 5)}));
    // Null out-arguments are error 1; the program folder is left alone.
    std::string untouched = "keep";
    EXPECT_EQ("0 e1", Outcome(CEmulexCommon::GetProgramFilesFolder_(nullptr)));
    EXPECT_EQ("0 e1", Outcome(CEmulexCommon::GetOCMManagerInstallPath(nullptr)));
    EXPECT_EQ("1 e0 keep", Outcome(CEmulexCommon::GetProgramFilesFolder_(&untouched)) + " " + untouched);
    EXPECT_EQ(cache_ + "/CacheDump_dev_sda-1-2.txt", CEmulexCommon::GetDumpCacheFilePath("dev/sda:1:2"));

    // Commands: the result, the one-second pauses waiting for a redirected output, and that output.
    const std::string out = temp_ + "/out.txt";
    struct Row { std::string command, outcome; } rows[] = {
        // Single quotes would keep the double quotes; they are gone before the shell sees them.
        {"echo 'say \"hi\"' > \"" + out + "\"", "0 0 say hi\n"},
        {"true", "0 0 "},                                // no redirection: raw status
        {"exit 3", "-1 0 "},                             // non-zero exit status
        {"true > " + out, "-1 10 "},                     // output stays empty
        {"echo x > " + out + "; true", "-1 10 x\n"},     // trailing text is part of the name
    };
    for (const Row& row : rows) {
        ::unlink(out.c_str());
        const size_t before = clock_->count(1000);
        const int result = CEmulexCommon::ExecCommand_(row.command);
        EXPECT_EQ(row.outcome, std::to_string(result) + " " + std::to_string(clock_->count(1000) - before) + " " +
                                   qdmtest::ReadFile(out)) << row.command;
    }
    EXPECT_EQ(20u, clock_->sleeps().size());
    EXPECT_TRUE(HasDebug("[LEAVE] static int CEmulexCommon::ExecCommand_(std::string), rc=0"));
    EXPECT_TRUE(HasDebugContaining("static int CEmulexCommon::ExecCommand_(std::string) [exit 3] command failed! ("));
}

TEST_F(CommonTest, ListhbasAttempts) {
    QDM_REQUIRE_SANDBOX();
    const std::string attempt =
        std::string("CEmulexCommon::ExecListhbasCommand() ExecForeignModule cmd:[") + kHbacmd + " listhbas ]";
    const std::string failed = " MSGID_EMULEXCOMMON_0001_F", cat = "cat " + Golden("listhbas/");
    // What the tool does (most print a recorded listing): "RUNS ATTEMPTS MESSAGES" and the deciding trace.
    struct Row { std::string action, outcome, trace; } rows[] = {
        {cat + "good.txt", "1 1", "command success"},
        {cat + "error64.txt", "5 5" + failed, "[ERROR][<64>] Retry Target"},  // busy adapter: retried
        {cat + "error.txt", "1 1" + failed, "[ERROR] Not Retry Target"},      // other errors are final
        {cat + "truncated.txt", "5 5" + failed, ""},                          // no deciding line
        {"echo 'ERROR Serial No.'", "1 1" + failed, "[ERROR] Not Retry Target"},  // an error line wins
        {"echo 'Serial No : VM1'", "5 5" + failed, ""},                          // the dot counts
        {"sleep 5", "1 1" + failed, "Timeout [TimeoutInterval = 60000 (ms)]"},  // the scaled 600 ms
        {"if [ $(wc -l < " + runs_ + ") -eq 1 ]; then echo 'ERROR: <64>'; else echo 'Serial No. : VM1'; fi", "2 2",
         "command success"},  // busy on the first run only
        // The output cannot be created while a folder holds its name.
        {"echo 'Serial No. : VM1'", "0 1" + failed, "command error"},
    };
    for (const Row& row : rows) {
        NextRow();
        ::unlink(runs_.c_str());
        qdmtest::RemoveTree(cache_ + "/Listhbas.txt");
        if (row.trace == "command error") ::mkdir((cache_ + "/Listhbas.txt").c_str(), 0755);
        InstallTool(row.action);
        CEmulexCommon::ExecListhbasCommand(kHbacmd);
        size_t attempts = 0;
        for (const auto& line : Debug()) attempts += line.text == attempt;
        EXPECT_EQ(row.outcome, std::to_string(Runs()) + " " + std::to_string(attempts) + MessagesText()) << row.action;
        EXPECT_TRUE(row.trace.empty() || HasDebug("CEmulexCommon::ExecListhbasCommand() " + row.trace)) << row.trace;
        // The listing is kept as the tool wrote it.
        const std::string kept = cache_ + "/Listhbas.txt";
        EXPECT_EQ(qdmtest::ReadFile(row.action.rfind(cat, 0) ? kept : row.action.substr(4)), qdmtest::ReadFile(kept));
    }
}

TEST_F(CommonTest, AttributeCacheLivesAnHour) {
    QDM_REQUIRE_SANDBOX();
    const std::string cacheFile = cache_ + "/HbaAttrib10-00-00-00-c9-12-34-56.txt";
    InstallTool(std::string("cat <<'EOF'\n") + kAttributes + "EOF");
    std::string value, path;
    EXPECT_EQ("1 e0 " + std::string(kHbacmd), Outcome(CEmulexCommon::GetOCMManagerInstallPath(&path)) + " " + path);
    // Each step ages the cache (0: leaves it), then reads a key or, without one, deletes the cache:
    // "RESULT VALUE RUNS CACHED". Empty or unsafe WWPNs touch nothing.
    const char* const unsafe = "../10:00;touch /tmp/x";
    struct { long age; const char *wwpn, *key, *outcome; } steps[] = {
        {0, kWwpn, "FW Version", "0 2.02a4 (U3D2.02A4) 1 1"},  // missing: generated
        {-50, kWwpn, "Host Name", "0 host01 1 1"},              // from the future: still fresh
        {3599, kWwpn, "Boot Version", "0 5.12a5 1 1"},
        {3600, kWwpn, "Driver Version", "0 8.3.7.18 2 1"},      // regenerated; carriage return trimmed
        {0, kWwpn, "Version", "0 8.3.7.18 2 1"},                // the first line holding the key wins
        {0, kWwpn, "HBA Attributes", "0 00:00:00:c9:12:34:56 2 1"},  // the first colon splits
        {0, kWwpn, "Option ROM", "-1  2 1"},                    // a matching line without a colon: empty value
        {0, kWwpn, "Absent Key", "-1 untouched 2 1"},
        {0, kWwpn, nullptr, "0 untouched 2 0"}, {0, kWwpn, nullptr, "0 untouched 2 0"},  // gone already: no failure
        {0, kWwpn, "FW Version", "0 2.02a4 (U3D2.02A4) 3 1"},
        {0, "", "FW Version", "-1 untouched 3 1"}, {0, "", nullptr, "-1 untouched 3 1"},
        {0, unsafe, "FW Version", "-1 untouched 3 1"}, {0, kWwpn, nullptr, "0 untouched 3 0"},
    };
    for (const auto& step : steps) {
        if (step.age) qdmtest::SetFileAge(cacheFile, step.age);
        value = "untouched";
        const int result = step.key ? CEmulexCommon::GetHbaAttribData(step.wwpn, step.key, value)
                                    : CEmulexCommon::DeleteHbaAttribCache(step.wwpn);
        EXPECT_EQ(step.outcome, std::to_string(result) + " " + value + " " + std::to_string(Runs()) + " " +
                                    std::to_string(qdmtest::Exists(cacheFile))) << step.wwpn << " " << step.key;
    }
    const std::string run = std::string("HbaAttributes ") + kWwpn + "\n";
    EXPECT_EQ(run + run + run, qdmtest::ReadFile(runs_));
    EXPECT_TRUE(HasDebug("CEmulexCommon::DeleteHbaAttribCache() strOutputFile:" + cacheFile));
    EXPECT_TRUE(HasDebug("CEmulexCommon::GetHbaAttribData() Fail tsWWPNMAC empty"));
    EXPECT_TRUE(HasDebug("CEmulexCommon::DeleteHbaAttribCache() Fail tsWWPNMAC empty"));
    EXPECT_TRUE(HasDebug("CEmulexCommon::GetHbaAttribData() Fail tsWWPNMAC invalid:[../10:00;touch /tmp/x]"));

    // No tool: fails without reading.
    ::unlink(kHbacmd);
    EXPECT_EQ(-1, CEmulexCommon::GetHbaAttribData(kWwpn, "FW Version", value));
    EXPECT_TRUE(HasDebugContaining("CEmulexCommon::GetHbaAttribData() Fail OCMPath:"));
    EXPECT_FALSE(qdmtest::Exists(cacheFile));
    ::mkdir(cacheFile.c_str(), 0755);  // a folder cannot be unlinked
    EXPECT_EQ(-1, CEmulexCommon::DeleteHbaAttribCache(kWwpn));
    EXPECT_TRUE(HasDebugContaining("RetryDeleteFile fail:[" + cacheFile + "]"));
}

TEST_F(CommonTest, WorkAreaFiles) {
    const std::string fcDump = temp_ + "/fc.txt", cnaDump = temp_ + "/cna.txt";
    qdmtest::WriteFile(fcDump, "Adapter dump\nPort WWN: 10:00:00:00:c9:12:34:56\n");
    qdmtest::WriteFile(cnaDump, "Adapter dump\nPort WWPN/MAC: 00-00-c9-12-34-56\n");
    // Only "cna" selects the converged keyword.
    struct Row { std::string file; const char *type, *outcome; } rows[] = {
        {fcDump, "fc", "1 e0"}, {fcDump, "cna", "0 e0"}, {cnaDump, "cna", "1 e0"}, {cnaDump, "", "0 e0"},
        {temp_ + "/missing.txt", "fc", "0 e17"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.outcome, Outcome(CEmulexCommon::CheckDumpFileKeyWord_(row.file, row.type))) << row.file << row.type;

    // Cache entries that are no file are never fresh: links and FIFOs give way to the tool's output; a folder stays.
    const std::string target = root_ + "/outside.txt";
    long age = 0;
    qdmtest::WriteFile(target, "kept");
    ASSERT_EQ(0, ::symlink(target.c_str(), (temp_ + "/link").c_str()));
    ASSERT_EQ(0, ::mkfifo((temp_ + "/fifo").c_str(), 0644));
    qdmtest::WriteFile(temp_ + "/folder/inside", "");
    for (const Pair& row : std::vector<Pair>{{"link", "removed"}, {"fifo", "removed"}, {"folder", "kept"}}) {
        EXPECT_FALSE(CEmulexCommon::FileAgeSeconds(temp_ + "/" + row.first, &age)) << row.first;
        EXPECT_EQ(row.second == "kept", qdmtest::Exists(temp_ + "/" + row.first)) << row.first;
    }
    EXPECT_EQ("kept", qdmtest::ReadFile(target));

    // The newest match; ties keep the listing order.
    const std::string dir = root_ + "/reports";
    for (const auto& file : std::vector<std::pair<std::string, long>>{
             {"a.log", 300}, {"b.log", 100}, {"c.log", 100}, {"z.txt", 0}}) {  // z: newest, no match
        qdmtest::WriteFile(dir + "/" + file.first, "x");
        qdmtest::SetFileAge(dir + "/" + file.first, file.second);
    }
    EXPECT_EQ(dir + "/b.log", CEmulexCommon::LatestFile(dir, "*.log"));
    EXPECT_EQ("", CEmulexCommon::LatestFile(dir, "*.none"));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/fsresult"));
    // Shell syntax in the arguments is refused rather than run.
    EXPECT_EQ("", CEmulexCommon::LatestFile(dir, "*.log; touch " + root_ + "/ran"));
    EXPECT_FALSE(qdmtest::Exists(root_ + "/ran"));

    // The work folders; a plain file where a folder should be names the failing one.
    qdmtest::RemoveTree(root_ + "/tmp");
    EXPECT_EQ("1 e0", Outcome(CEmulexCommon::CreateLocalDirectory()));
    EXPECT_TRUE(qdmtest::Exists(cache_) && qdmtest::Exists(temp_));
    for (const Pair& row : std::vector<Pair>{{cache_, "0 e18"}, {temp_, "0 e19"}}) {
        qdmtest::RemoveTree(root_ + "/tmp");
        qdmtest::WriteFile(row.first, "not a folder");
        EXPECT_EQ(row.second, Outcome(CEmulexCommon::CreateLocalDirectory())) << row.first;
    }
}

TEST_F(CommonTest, KeyValueReaders) {
    const std::string file = temp_ + "/kv.txt", blocks = "Tag 1\nA : 1\nTag 2\nB : 2\n";
    const std::string good = qdmtest::ReadFile(Golden("listhbas/good.txt"));
    // A key line without a value still counts for the index; the last line has no line feed.
    const std::string ports =
        "Port WWN\nPort WWN : 10:00:00:00:c9:12:34:56\r\nPermanent MAC : 00-11\nPort WWN : 10:00:00:00:c9:12:34:57";
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage += static_cast<char>((i * 131 + 7) & 0xff);
    // The file's content (empty: no file); the keys are read within the block of the tags when given:
    // "RESULT eERROR KEY=VALUE" or "RESULT eERROR (none)".
    struct Row { std::string content; const char *tags, *keys; unsigned index; std::string expected; } rows[] = {
        {ports, nullptr, "Port WWN", 0, "1 e0 Port WWN=10:00:00:00:c9:12:34:56"},
        {ports, nullptr, "Port WWN", 2, "1 e0 Port WWN=10:00:00:00:c9:12:34:57"},
        {ports, nullptr, "Port WWN", 3, "1 e0 (none)"},
        {ports, nullptr, "Permanent MAC|Port WWN", 2, "1 e0 Permanent MAC=00-11"},
        {"", nullptr, "Key", 0, "0 e17 (none)"}, {"", "T", "K", 0, "0 e17 (none)"},
        // Carriage returns read as blanks; only blanks are trimmed from the value.
        {"Mode :\rInitiator\r\n", nullptr, "Mode", 0, "1 e0 Mode=Initiator"},
        {"Key : a\tb\t  \n", nullptr, "Key", 0, "1 e0 Key=a\tb\t"},
        // A blank value, or a separator only before the key, is a key line without a value.
        {"Key :   \r\nKey : v\nKey : w\n", nullptr, "Key", 1, "1 e0 Key=v"},
        {"x: Key v\nKey : v\n", nullptr, "Key", 0, "1 e0 Key=v"},
        {"B : v A\n", nullptr, "A|B", 0, "1 e0 (none)"},  // the first alternative found decides the line
        // Lines are read in 127-character pieces: a long value is cut, a key straddling the cut is not seen.
        {"Key : " + std::string(200, 'x') + "\n", nullptr, "Key", 0, "1 e0 Key=" + std::string(121, 'x')},
        {std::string(125, 'y') + "Key : v\n", nullptr, "Key", 0, "1 e0 (none)"},
        {garbage + "\nKey : after\n", nullptr, "Key", 0, "1 e0 Key=after"},
        {good, "Port WWN", "Port Number", 1, "1 e0 Port Number=1"},
        // The tag line itself is not searched: the next block's address is found.
        {good, "Port WWN", "Port WWN", 0, "1 e0 Port WWN=10:00:00:00:c9:12:34:57"},
        {blocks, "Tag", "B", 0, "1 e0 B=2"},  // a key missing from the chosen block comes from a later one
        {blocks, "Nope|Tag 2", "A|B", 0, "1 e0 B=2"}, {blocks, "Tag", "C", 0, "1 e0 (none)"},
        {blocks, "Tag", "A", 2, "1 e0 (none)"},  // index past the last tag
        // Line ends read as blanks on tag lines too.
        {"Tag 1\r\nA : 1\r\nTag 2\r\nA : 2\r\n", "2 ", "A", 0, "1 e0 A=2"},
    };
    const auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    for (const Row& row : rows) {
        NextRow();
        qdmtest::RemoveTree(file);
        if (!row.content.empty()) qdmtest::WriteFile(file, row.content);
        Pair result{"stale", "stale"};
        const int rc = row.tags ? CEmulexCommon::GetTagKeyValueFromFile_(file, row.tags, row.keys, ":", result, row.index)
                                : CEmulexCommon::GetKeyValueFromFile_(file, row.keys, ":", result, row.index);
        const std::string found = result.first.empty() ? "(none)" : result.first + "=" + result.second;
        EXPECT_EQ(row.expected, Outcome(rc) + " " + found) << row.content << " " << row.keys;
        EXPECT_EQ(!rc, HasDebug("File Open Error. file(" + file + ") errcode(2)")) << row.content;
    }
    EXPECT_EQ(before, descriptors());  // every path closes its file
}

}  // namespace
