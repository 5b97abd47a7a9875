#include "model/PathGuard.h"

#include <algorithm>
#include <map>

namespace qdmcli {

namespace {

bool SamePath(const RoutedPath& a, const RoutedPath& b) {
    return a.path.device == b.path.device && a.path.hctl == b.path.hctl;
}

MapThroughAdapter& MapEntry(std::vector<MapThroughAdapter>& maps, const MultipathPath& path) {
    for (MapThroughAdapter& map : maps)
        if (map.wwid == path.wwid) return map;
    maps.push_back({path.map, path.wwid, {}, {}, false});
    return maps.back();
}

void AddOtherHealthy(MapThroughAdapter& map, const std::string& adapter, const PathSnapshot& snapshot) {
    bool healthyHere = false;
    for (const RoutedPath& routed : snapshot.paths) {
        if (routed.path.wwid != map.wwid || !routed.path.ActiveReady()) continue;
        if (routed.adapter == adapter)
            healthyHere = true;
        else if (!routed.adapter.empty())
            map.otherHealthy.push_back(routed);
    }
    map.soleHealthyHere = healthyHere && map.otherHealthy.empty();
}

}  // namespace

std::string RoutedPath::Name() const { return path.device + " (" + path.hctl + ")"; }

std::vector<std::string> AdapterPaths::LastPathMaps() const {
    std::vector<std::string> names;
    for (const MapThroughAdapter& map : maps)
        if (map.otherHealthy.empty()) names.push_back(map.map);
    return names;
}

int AdapterPaths::SolePathMaps() const {
    return static_cast<int>(
        std::count_if(maps.begin(), maps.end(), [](const MapThroughAdapter& map) { return map.soleHealthyHere; }));
}

std::vector<RoutedPath> AdapterPaths::ActivePaths() const {
    std::vector<RoutedPath> active;
    for (const MapThroughAdapter& map : maps)
        for (const RoutedPath& routed : map.paths)
            if (routed.path.ActiveReady()) active.push_back(routed);
    return active;
}

std::string AdapterOf(const std::string& pciFunction) { return pciFunction.substr(0, pciFunction.rfind('.')); }

PathSnapshot RoutePaths(const MultipathListing& listing, const std::vector<ScsiHost>& hosts) {
    std::map<int, const ScsiHost*> byNumber;
    for (const ScsiHost& host : hosts) byNumber[host.number] = &host;
    PathSnapshot snapshot;
    snapshot.multipath = true;
    for (const MultipathPath& path : listing.paths) {
        RoutedPath routed{path, "", "", ""};
        auto host = byNumber.find(path.scsiHost);
        if (host != byNumber.end())
            routed = {path, host->second->pciAddress, AdapterOf(host->second->pciAddress), host->second->wwpn};
        snapshot.paths.push_back(routed);
    }
    if (snapshot.paths.empty()) snapshot.note = "multipathd lists no multipath device";
    return snapshot;
}

AdapterPaths JudgeAdapter(const std::string& adapter, const PathSnapshot& snapshot) {
    AdapterPaths judged{adapter, {}, {}, kVerdictNoMultipath};
    for (const RoutedPath& routed : snapshot.paths)
        if (routed.adapter == adapter) MapEntry(judged.maps, routed.path).paths.push_back(routed);
    for (MapThroughAdapter& map : judged.maps) AddOtherHealthy(map, adapter, snapshot);
    if (!judged.maps.empty()) judged.verdict = judged.LastPathMaps().empty() ? kVerdictSafe : kVerdictLastPath;
    return judged;
}

std::vector<AdapterPaths> JudgeAdapters(const std::vector<std::string>& functions, const PathSnapshot& snapshot) {
    std::vector<AdapterPaths> adapters;
    for (const std::string& function : functions) {
        const std::string adapter = AdapterOf(function);
        auto known =
            std::find_if(adapters.begin(), adapters.end(), [&](const AdapterPaths& a) { return a.adapter == adapter; });
        if (known == adapters.end()) {
            adapters.push_back(JudgeAdapter(adapter, snapshot));
            known = adapters.end() - 1;
        }
        known->functions.push_back(function);
    }
    return adapters;
}

std::vector<std::string> PathsNotRestored(const std::vector<RoutedPath>& expected, const PathSnapshot& now) {
    std::vector<std::string> missing;
    for (const RoutedPath& wanted : expected) {
        bool back = std::any_of(now.paths.begin(), now.paths.end(), [&](const RoutedPath& seen) {
            return SamePath(seen, wanted) && seen.path.ActiveReady();
        });
        if (!back) missing.push_back(wanted.Name());
    }
    return missing;
}

}  // namespace qdmcli
