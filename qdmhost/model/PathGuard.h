#pragma once
// The multipath guard's judgement, pure: which maps run through an adapter
// (all PCI functions of one PCI device: flashing its firmware resets them
// all), whether each keeps an active and ready path through another adapter,
// and which of its paths must come back after a flash.
#include <string>
#include <vector>

#include "adapters/MultipathListing.h"
#include "adapters/ScsiHostSysfs.h"

namespace qdmcli {

// Verdicts of an adapter (scripts and the schemas rely on them).
const char kVerdictSafe[] = "safe";
const char kVerdictLastPath[] = "last-path";
const char kVerdictNoMultipath[] = "no-multipath";
// Reasons of an update's refusal and stop.
const char kReasonLastPath[] = "last-path";
const char kReasonPathsNotRestored[] = "paths-not-restored";

// One multipath path with the adapter port it runs through.
struct RoutedPath {
    MultipathPath path;
    std::string function;  // PCI function of its SCSI host; empty when unknown
    std::string adapter;   // PCI device (dddd:bb:dd); empty when unknown
    std::string wwpn;      // the port's, when the host is Fibre Channel

    // "sdb (3:0:0:1)": how reports and messages name a path.
    std::string Name() const;
};

struct PathSnapshot {
    bool multipath = false;  // multipathd answered
    std::string note;        // why there is nothing to protect, when so
    std::vector<RoutedPath> paths;
};

struct MapThroughAdapter {
    std::string map;
    std::string wwid;
    std::vector<RoutedPath> paths;         // through the adapter, any state
    std::vector<RoutedPath> otherHealthy;  // active and ready through another adapter
    bool soleHealthyHere = false;          // its only active and ready paths run here
};

struct AdapterPaths {
    std::string adapter;
    std::vector<std::string> functions;  // the selected ports' functions on it
    std::vector<MapThroughAdapter> maps;
    std::string verdict;

    // The maps that would lose their last active and ready path.
    std::vector<std::string> LastPathMaps() const;
    int SolePathMaps() const;
    // The paths through the adapter that are active and ready now: those a flash must give back.
    std::vector<RoutedPath> ActivePaths() const;
};

// The paths seen from each adapter of the selected ports: what check,
// update --dry-run and metrics show.
struct PathSurvey {
    bool surveyed = false;  // asked for by the command
    bool multipath = false;
    std::string note;
    std::vector<AdapterPaths> adapters;
};

// "0000:04:00" of "0000:04:00.1".
std::string AdapterOf(const std::string& pciFunction);
// Each path's SCSI host looked up among the hosts; a path whose host is not
// on a PCI function keeps an empty adapter and never counts as another one's.
PathSnapshot RoutePaths(const MultipathListing& listing, const std::vector<ScsiHost>& hosts);
// One entry per adapter of the functions, in their order.
std::vector<AdapterPaths> JudgeAdapters(const std::vector<std::string>& functions, const PathSnapshot& snapshot);
AdapterPaths JudgeAdapter(const std::string& adapter, const PathSnapshot& snapshot);
// The names of the `expected` paths that are not active and ready in `now`.
std::vector<std::string> PathsNotRestored(const std::vector<RoutedPath>& expected, const PathSnapshot& now);

}  // namespace qdmcli
