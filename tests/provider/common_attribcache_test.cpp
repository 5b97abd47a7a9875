// Attribute cache, work directories, dump cache names and the newest-file lookup.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
const char kWwpn[] = "10:00:00:00:c9:12:34:56";

const char kAttributes[] =
    "HBA Attributes for 10:00:00:00:c9:12:34:56\n"
    "\n"
    "Host Name      : host01\n"
    "Manufacturer   : Emulex Corporation\n"
    "Serial Number  : FC10000001\n"
    "Model          : LPe12002\n"
    "Driver Name    : lpfc\n"
    "Driver Version : 8.3.7.18\r\n"
    "Boot Version   : 5.12a5\n"
    "FW Version     : 2.02a4 (U3D2.02A4)\n"
    "Firmware Version : 2.02a4\n"
    "Option ROM Version\n";

// Exact modification times, so that two files can tie to the second.
void SetMtime(const std::string& path, time_t when) {
    struct timeval times[2] = {{when, 0}, {when, 0}};
    ::utimes(path.c_str(), times);
}

class AttribCacheTest : public qdmtest::HostTest {
protected:
    std::string cacheFile() const { return cache_ + "/HbaAttrib10-00-00-00-c9-12-34-56.txt"; }
    std::string runsFile() const { return root_ + "/hbacmd_runs.txt"; }

    // A fake tool that logs each run and prints the attribute listing.
    void InstallFakeHbacmd() {
        qdmtest::WriteScript(kHbacmd, "echo \"$@\" >> " + runsFile() + "\ncat <<'EOF'\n" + kAttributes + "EOF\n");
    }
    size_t Runs() const {
        std::string runs = qdmtest::ReadFile(runsFile());
        return static_cast<size_t>(std::count(runs.begin(), runs.end(), '\n'));
    }
};

TEST_F(AttribCacheTest, CacheIsReusedUpTo3599SecondsAndRegeneratedFrom3600) {
    QDM_REQUIRE_SANDBOX();
    InstallFakeHbacmd();
    std::string value;

    // Missing file: generated once.
    ASSERT_EQ(0, CEmulexCommon::GetHbaAttribData(kWwpn, "FW Version", value));
    EXPECT_EQ("2.02a4 (U3D2.02A4)", value);
    EXPECT_EQ(1u, Runs());
    EXPECT_EQ("HbaAttributes 10:00:00:00:c9:12:34:56\n", qdmtest::ReadFile(runsFile()));

    qdmtest::SetFileAge(cacheFile(), 3599);
    ASSERT_EQ(0, CEmulexCommon::GetHbaAttribData(kWwpn, "Boot Version", value));
    EXPECT_EQ("5.12a5", value);
    EXPECT_EQ(1u, Runs());

    qdmtest::SetFileAge(cacheFile(), 3600);
    ASSERT_EQ(0, CEmulexCommon::GetHbaAttribData(kWwpn, "Driver Version", value));
    EXPECT_EQ("8.3.7.18", value);  // carriage return trimmed
    EXPECT_EQ(2u, Runs());
}

TEST_F(AttribCacheTest, KeyLookupRules) {
    qdmtest::WriteFile(cacheFile(), kAttributes);  // fresh: the tool is never needed
    struct Row {
        const char* key;
        int result;
        const char* value;
    } rows[] = {
        {"Firmware Version", 0, "2.02a4"},
        // "Version" first appears in the driver line: the first line holding the key wins.
        {"Version", 0, "8.3.7.18"},
        // The first colon splits even when the value holds more.
        {"HBA Attributes", 0, "00:00:00:c9:12:34:56"},
        // A matching line without a colon gives an empty value.
        {"Option ROM", -1, ""},
        {"Absent Key", -1, "untouched"},
    };
    for (const Row& row : rows) {
        std::string value = "untouched";
        EXPECT_EQ(row.result, CEmulexCommon::GetHbaAttribData(kWwpn, row.key, value)) << row.key;
        EXPECT_EQ(row.value, value) << row.key;
    }
}

TEST_F(AttribCacheTest, EmptyOrUnsafeWwpnTouchesNothing) {
    QDM_REQUIRE_SANDBOX();
    InstallFakeHbacmd();
    for (const char* wwpn : {"", "../../etc/x", "10:00;touch /tmp/x"}) {
        std::string value = "untouched";
        EXPECT_EQ(-1, CEmulexCommon::GetHbaAttribData(wwpn, "FW Version", value)) << wwpn;
        EXPECT_EQ("untouched", value);
        EXPECT_EQ(-1, CEmulexCommon::DeleteHbaAttribCache(wwpn)) << wwpn;
    }
    EXPECT_EQ(0u, Runs());
    EXPECT_TRUE(HasDebug("CEmulexCommon::GetHbaAttribData() Fail tsWWPNMAC empty"));
    EXPECT_TRUE(HasDebug("CEmulexCommon::DeleteHbaAttribCache() Fail tsWWPNMAC empty"));
}

TEST_F(AttribCacheTest, MissingToolFailsWithoutReading) {
    QDM_REQUIRE_SANDBOX();
    ::unlink(kHbacmd);
    std::string value;
    EXPECT_EQ(-1, CEmulexCommon::GetHbaAttribData(kWwpn, "FW Version", value));
    EXPECT_TRUE(HasDebugContaining("CEmulexCommon::GetHbaAttribData() Fail OCMPath:"));
    EXPECT_FALSE(qdmtest::Exists(cacheFile()));
}

TEST_F(AttribCacheTest, DeleteRemovesTheCacheSoTheNextReadRegenerates) {
    QDM_REQUIRE_SANDBOX();
    InstallFakeHbacmd();
    std::string value;
    ASSERT_EQ(0, CEmulexCommon::GetHbaAttribData(kWwpn, "FW Version", value));
    EXPECT_EQ(0, CEmulexCommon::DeleteHbaAttribCache(kWwpn));
    EXPECT_FALSE(qdmtest::Exists(cacheFile()));
    EXPECT_TRUE(HasDebug("CEmulexCommon::DeleteHbaAttribCache() strOutputFile:" + cacheFile()));
    // Deleting what is already gone is no failure.
    EXPECT_EQ(0, CEmulexCommon::DeleteHbaAttribCache(kWwpn));
    ASSERT_EQ(0, CEmulexCommon::GetHbaAttribData(kWwpn, "FW Version", value));
    EXPECT_EQ(2u, Runs());
}

TEST_F(AttribCacheTest, DeleteFailureIsReported) {
    ::mkdir(cacheFile().c_str(), 0755);  // a folder cannot be unlinked
    EXPECT_EQ(-1, CEmulexCommon::DeleteHbaAttribCache(kWwpn));
    EXPECT_TRUE(HasDebugContaining("RetryDeleteFile fail:[" + cacheFile() + "]"));
}

TEST_F(AttribCacheTest, CreateLocalDirectoryCreatesBothAndNamesTheFailingOne) {
    qdmtest::RemoveTree(root_ + "/tmp");
    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(1, CEmulexCommon::CreateLocalDirectory());
    EXPECT_TRUE(qdmtest::Exists(cache_));
    EXPECT_TRUE(qdmtest::Exists(temp_));

    struct Row {
        std::string blockedBy;  // a plain file where the folder should be
        unsigned long error;
    } rows[] = {{cache_, 18}, {temp_, 19}};
    for (const Row& row : rows) {
        qdmtest::RemoveTree(root_ + "/tmp");
        qdmtest::WriteFile(row.blockedBy, "not a folder");
        EXPECT_EQ(0, CEmulexCommon::CreateLocalDirectory()) << row.blockedBy;
        EXPECT_EQ(row.error, CEmulexCommon::GetLastError()) << row.blockedBy;
    }
}

TEST_F(AttribCacheTest, DumpCacheFilePathReplacesSlashesAndColons) {
    EXPECT_EQ(cache_ + "/CacheDump_dev_sda-1-2.txt", CEmulexCommon::GetDumpCacheFilePath("dev/sda:1:2"));
    EXPECT_EQ(cache_ + "/CacheDump_.txt", CEmulexCommon::GetDumpCacheFilePath(""));
}

TEST_F(AttribCacheTest, DumpFileKeyWordDependsOnAdapterType) {
    const std::string fcDump = temp_ + "/fc.txt";
    const std::string cnaDump = temp_ + "/cna.txt";
    qdmtest::WriteFile(fcDump, "Adapter dump\nPort WWN: 10:00:00:00:c9:12:34:56\n");
    qdmtest::WriteFile(cnaDump, "Adapter dump\nPort WWPN/MAC: 00-00-c9-12-34-56\n");
    struct Row {
        const std::string* file;
        const char* type;
        int found;
    } rows[] = {
        {&fcDump, "fc", 1},  {&fcDump, "cna", 0},
        {&cnaDump, "cna", 1}, {&cnaDump, "", 0},  // only "cna" selects the converged keyword
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.found, CEmulexCommon::CheckDumpFileKeyWord_(*row.file, row.type)) << *row.file << " " << row.type;

    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(0, CEmulexCommon::CheckDumpFileKeyWord_(temp_ + "/missing.txt", "fc"));
    EXPECT_EQ(17u, CEmulexCommon::GetLastError());
}

TEST_F(AttribCacheTest, LatestFilePicksNewestAndKeepsListingOrderOnTies) {
    const std::string dir = root_ + "/reports";
    for (const char* name : {"a.log", "b.log", "c.log", "z.txt"}) qdmtest::WriteFile(dir + "/" + name, "x");
    const time_t now = std::time(nullptr);
    SetMtime(dir + "/a.log", now - 300);
    SetMtime(dir + "/b.log", now - 100);
    SetMtime(dir + "/c.log", now - 100);
    SetMtime(dir + "/z.txt", now);  // newest, but not matching

    EXPECT_EQ(dir + "/b.log", CEmulexCommon::LatestFile(dir, "*.log"));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/fsresult"));
    EXPECT_EQ("", CEmulexCommon::LatestFile(dir, "*.none"));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/fsresult"));
    // Shell syntax in the arguments is refused rather than run.
    EXPECT_EQ("", CEmulexCommon::LatestFile(dir, "*.log; touch " + root_ + "/ran"));
    EXPECT_FALSE(qdmtest::Exists(root_ + "/ran"));
}

}  // namespace
