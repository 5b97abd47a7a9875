// The multipath guard's inputs and judgement in process: multipathd's path
// listing, the SCSI hosts in sysfs and the verdict per adapter.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TestEnv.h"
#include "adapters/MultipathListing.h"
#include "adapters/ScsiHostSysfs.h"
#include "model/PathGuard.h"

namespace {

namespace fs = std::filesystem;

// Every parsed path as "map wwid host hctl device dm/checker", one a line.
std::string Parsed(const std::string& text) {
    qdmcli::MultipathListing listing = qdmcli::ParseMultipathPaths(text);
    std::string lines;
    for (const qdmcli::MultipathPath& p : listing.paths)
        lines += p.map + " " + p.wwid.substr(0, 6) + " " + std::to_string(p.scsiHost) + " " + p.hctl + " " + p.device +
                 " " + p.dmState + "/" + p.checker + (p.ActiveReady() ? " usable" : "") + "\n";
    return lines + "skipped " + std::to_string(listing.skippedLines);
}

TEST(MultipathListing, RecordedListingsAndHostileLines) {
    const std::string golden = std::string(QDM_GOLDEN_DIR) + "/multipath/";
    // Raw form: an alias-less map (WWID as its name), a standby and a pending path; the orphan is skipped.
    EXPECT_EQ(Parsed(qdmtest::ReadFile(golden + "paths-raw.txt")),
              "mpatha 3600a0 2 2:0:0:1 sdb active/ready usable\n"
              "mpatha 3600a0 4 4:0:0:1 sdf active/ready usable\n"
              "mpathb 3600a0 2 2:0:1:2 sdc active/ready usable\n"
              "mpathb 3600a0 4 4:0:1:2 sdg failed/faulty\n"
              "36005076303ffc52a0000000000001234 360050 3 3:0:0:0 sdd active/ghost\n"
              "mpathc 3600a0 5 5:0:0:3 sde active/i/o pending\n"
              "skipped 1");
    // Padded form with its header: the header is skipped, the padding is no field.
    EXPECT_EQ(Parsed(qdmtest::ReadFile(golden + "paths-padded.txt")),
              "mpatha 3600a0 2 2:0:0:1 sdb active/ready usable\nmpatha 3600a0 4 4:0:0:1 sdf failed/faulty\nskipped 1");
    for (const char* line : {
             "mpatha #:#:#:# sdb active 3600a0 ready",            // host unknown to multipathd
             "mpatha 2:0:0 sdb active 3600a0 ready",              // three numbers
             "mpatha -2:0:0:1 sdb active 3600a0 ready",           // a sign
             "mpatha 99999999:0:0:1 sdb active 3600a0 ready",     // no such host
             "mpatha 2:0:0:1 sdb enabled 3600a0 ready",           // not a path's dm state
             "mpatha 2:0:0:1 sdb active 3600a0",                  // no checker
             "mpatha 2:0:0:1 sdb active 3600a0 ready now and then",  // two blanks in the checker
             "mpatha 2:0:0:1 sdb active 3600a0 READY",            // upper case
             "mp$(reboot) 2:0:0:1 sdb active 3600a0 ready",       // shell text as the alias
             "mpatha 2:0:0:1 ../sdb active 3600a0 ready",         // a path as the device
             "mpatha 2:0:0:1 sdb active 3600a0 ready\x1b[2J",     // terminal escape
         })
        EXPECT_EQ(Parsed(line), "skipped 1") << line;
    EXPECT_EQ(Parsed(std::string(300, 'm') + " 2:0:0:1 sdb active 3600a0 ready"), "skipped 1");  // over-long alias
    EXPECT_EQ(Parsed("\n  \r\n\t\n"), "skipped 0");  // blanks only
}

TEST(ScsiHostSysfs, LinksNamesAndPortNames) {
    const std::string base = "../../devices/pci0000:00/0000:00:03.0/";
    const struct {
        std::string target, host, function;
    } links[] = {
        {base + "0000:03:00.1/host3/scsi_host/host3", "host3", "0000:03:00.1"},               // lpfc, as the kernel links it
        {base + "0000:03:00.0/host3/vport-3:0-0/host7/scsi_host/host7", "host7", "0000:03:00.0"},  // an NPIV port
        {"../../devices/platform/host9/session1/host9/scsi_host/host9", "host9", ""},        // iSCSI: no PCI function
        {base + "0000:03:00.1/host3/scsi_host/host4", "host4", ""},                          // another host's folder
        {base + "0000:03:00.1/host3/scsi_host/host3/", "host3", ""},                         // trailing slash
        {base + "0000:03:00.9/host3/scsi_host/host3", "host3", ""},                          // function beyond 7
        {base + "0000:03:00.A/host3/scsi_host/host3", "host3", ""},                          // upper case
        {std::string(5000, '/') + "0000:03:00.1/host3/scsi_host/host3", "host3", ""},       // over-long
    };
    for (const auto& row : links) EXPECT_EQ(qdmcli::ParseScsiHostLink(row.target, row.host), row.function) << row.target;
    for (const auto& name : std::vector<std::pair<std::string, int>>{
             {"host0", 0}, {"host12", 12}, {"host", -1}, {"host01", -1}, {"host-1", -1}, {"host99999999", -1}, {"hosts", -1}})
        EXPECT_EQ(qdmcli::ParseScsiHostName(name.first), name.second) << name.first;
    for (const auto& text : std::vector<std::pair<std::string, std::string>>{
             {"0x10000000c9b20002\n", "10:00:00:00:c9:b2:00:02"},
             {"0x9b20002", "00:00:00:00:09:b2:00:02"},  // the kernel drops leading zeros
             {"0x10000000C9B20002\n", ""}, {"10000000c9b20002\n", ""}, {"0x", ""}, {"0x110000000c9b20002\n", ""}})
        EXPECT_EQ(qdmcli::ParseFcPortName(text.first), text.second) << text.first;
}

// A scsi_host folder as the kernel lays it out, with hostile entries that must be skipped without a hang.
TEST(ScsiHostSysfs, ReadsHostsFromFolders) {
    const std::string root = qdmtest::MakeTempDir("scsihost");
    const std::string scsi = root + "/scsi_host", fc = root + "/fc_host";
    fs::create_directories(scsi);
    fs::create_directory_symlink("../../devices/pci0000:00/0000:00:03.0/0000:05:00.1/host5/scsi_host/host5", scsi + "/host5");
    fs::create_directory_symlink("../../devices/pci0000:00/0000:00:03.0/0000:04:00.0/host2/scsi_host/host2", scsi + "/host2");
    qdmtest::WriteFile(fc + "/host2/port_name", "0x10000000c9b20001\n");
    fs::create_directories(fc + "/host5");
    ::mkfifo((fc + "/host5/port_name").c_str(), 0600);                             // must not block
    fs::create_directory_symlink("host6", scsi + "/host6");                           // a link loop
    fs::create_directories(scsi + "/host8");                                          // a folder, no link
    fs::create_directory_symlink("../x/0000:06:00.0/host1/scsi_host/host1", scsi + "/host1x");  // no host name
    std::string hosts;
    for (const qdmcli::ScsiHost& host : qdmcli::ReadScsiHosts(scsi, fc))
        hosts += std::to_string(host.number) + " " + host.pciAddress + " " + host.wwpn + ";";
    EXPECT_EQ(hosts, "2 0000:04:00.0 10:00:00:00:c9:b2:00:01;5 0000:05:00.1 ;");
    EXPECT_TRUE(qdmcli::ReadScsiHosts(root + "/absent", fc).empty());
    qdmtest::RemoveTree(root);
}

qdmcli::RoutedPath Path(const std::string& map, const std::string& adapter, const std::string& dm, const std::string& checker,
                        const std::string& device) {
    return {{map, "wwid-" + map, 1, "1:0:0:1", device, dm, checker}, adapter.empty() ? "" : adapter + ".0", adapter, ""};
}

// Verdicts per adapter: what the guard lets through, what it refuses and what it counts as a single point of failure.
TEST(PathGuard, VerdictsPerAdapter) {
    qdmcli::PathSnapshot snapshot;
    snapshot.multipath = true;
    snapshot.paths = {
        Path("both", "0000:04:00", "active", "ready", "sda"), Path("both", "0000:05:00", "active", "ready", "sdb"),
        Path("only4", "0000:04:00", "active", "ready", "sdc"),    // its only path
        Path("ghost", "0000:04:00", "active", "ready", "sdd"), Path("ghost", "0000:05:00", "active", "ghost", "sde"),
        Path("down5", "0000:04:00", "active", "ready", "sdf"), Path("down5", "0000:05:00", "failed", "faulty", "sdg"),
        Path("unrouted", "0000:05:00", "active", "ready", "sdh"), Path("unrouted", "", "active", "ready", "sdi"),
    };
    std::string verdicts;
    for (const qdmcli::AdapterPaths& adapter :
         qdmcli::JudgeAdapters({"0000:04:00.0", "0000:04:00.1", "0000:05:00.0", "0000:06:00.0"}, snapshot)) {
        verdicts += adapter.adapter + " " + std::to_string(adapter.functions.size()) + " " + adapter.verdict + " sole " +
                    std::to_string(adapter.SolePathMaps()) + " active " + std::to_string(adapter.ActivePaths().size());
        for (const std::string& map : adapter.LastPathMaps()) verdicts += " " + map;
        verdicts += "\n";
    }
    // A standby (ghost), a failed path and a path whose host is on no known adapter never count as another healthy path.
    EXPECT_EQ(verdicts,
              "0000:04:00 2 last-path sole 3 active 4 only4 ghost down5\n"
              "0000:05:00 1 last-path sole 1 active 2 unrouted\n"
              "0000:06:00 1 no-multipath sole 0 active 0\n");
    qdmcli::PathSnapshot after = snapshot;
    after.paths[0].path.checker = "i/o pending";
    after.paths[2].path.dmState = "failed";
    EXPECT_EQ(qdmcli::PathsNotRestored(qdmcli::JudgeAdapter("0000:04:00", snapshot).ActivePaths(), after),
              (std::vector<std::string>{"sda (1:0:0:1)", "sdc (1:0:0:1)"}));
}

}  // namespace
