#pragma once
// multipathd's path listing, read in one pure function: the caller runs
// `multipathd show paths raw format "<kMultipathPathFormat>"` and hands over
// its output. Raw, so that no header or padding comes with it; the checker
// state last, because it may hold a blank ("i/o pending").
#include <string>
#include <vector>

namespace qdmcli {

// %m map alias (its WWID without one; "[orphan]" outside any map), %i SCSI
// host:channel:target:lun, %d device, %t device-mapper state, %w the map's
// WWID, %T checker state.
const char kMultipathPathFormat[] = "%m %i %d %t %w %T";

struct MultipathPath {
    std::string map;  // alias or WWID
    std::string wwid;
    int scsiHost = -1;    // the h of h:c:t:l
    std::string hctl;     // "3:0:0:1"
    std::string device;   // "sdb"
    std::string dmState;  // "active", "failed", "undef"
    std::string checker;  // "ready", "faulty", "ghost", "i/o pending", ...

    // What the guard counts on: the kernel sends I/O there and the checker passes.
    bool ActiveReady() const { return dmState == "active" && checker == "ready"; }
};

struct MultipathListing {
    std::vector<MultipathPath> paths;
    int skippedLines = 0;  // orphans, headers and lines not of the format
};

// Lines of any other form are counted and skipped, never guessed at: a
// header, an orphan path, unknown states, over-long or unprintable fields.
MultipathListing ParseMultipathPaths(const std::string& text);

}  // namespace qdmcli
