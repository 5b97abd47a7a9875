// The simulated dm-multipath: LUN maps whose paths run through the adapters'
// ports, multipathd's path listing, the SCSI hosts in sysfs, and the bounce
// of an adapter's paths while its firmware downloads. Time is counted in
// listings: a flashed adapter's paths stay failed for `downListings` of them.
#include <iostream>

#include "Sim.h"

namespace qdmsim {

namespace {

const int kDefaultDownListings = 2;
const char* const kExpectedFormat = "%m %i %d %t %w %T";

struct SimPort {
    const json* adapter;
    const json* port;
    int scsiHost;
    PciAddress address;
};

// Every port with its SCSI host number: its own `scsiHost`, else 1 + its place among all ports.
std::vector<SimPort> Ports(const json& state) {
    std::vector<SimPort> ports;
    if (!state.contains("adapters")) return ports;
    for (const json& adapter : state["adapters"]) {  // by reference: the ports point into the state
        PciAddress slot;
        ParsePciAddress(adapter["slot"], &slot);
        for (const json& port : adapter["ports"]) {
            PciAddress address = slot;
            address.device = port["pciDevice"];
            address.function = port["pciFunction"];
            ports.push_back({&adapter, &port, port.value("scsiHost", static_cast<int>(ports.size()) + 1), address});
        }
    }
    return ports;
}

const SimPort* PortOf(const std::vector<SimPort>& ports, const std::string& wwpn) {
    for (const SimPort& port : ports)
        if (ToLower((*port.port)["wwpn"]) == ToLower(wwpn)) return &port;
    return nullptr;
}

std::string PathLine(const json& map, const json& path, const SimPort& port) {
    const bool down = port.adapter->value("pathsDownFor", 0) > 0;
    const std::string hctl = std::to_string(port.scsiHost) + ":0:0:" + std::to_string(path.value("lun", 1));
    return map["name"].get<std::string>() + " " + hctl + " " + path["device"].get<std::string>() + " " +
           (down ? "failed" : path.value("dmState", "active")) + " " + map["wwid"].get<std::string>() + " " +
           (down ? "faulty" : path.value("checker", "ready")) + "\n";
}

std::string Listing(const json& state, const std::string& fault) {
    const std::vector<SimPort> ports = Ports(state);
    std::string text;
    bool firstMap = true;
    for (const json& map : state["multipath"].value("maps", json::array())) {
        json paths = map.value("paths", json::array());
        // single-path: the first map keeps its first path only.
        if (fault == "single-path" && firstMap && paths.size() > 1) paths = json::array({paths[0]});
        firstMap = false;
        for (const json& path : paths)
            if (const SimPort* port = PortOf(ports, path.value("wwpn", ""))) text += PathLine(map, path, *port);
    }
    return text;
}

// stuck: the first path through the adapter stays failed after its bounce.
void KeepFirstPathFailed(json& state, const std::string& slot) {
    const std::vector<SimPort> ports = Ports(state);
    for (json& map : state["multipath"]["maps"])
        for (json& path : map["paths"]) {
            const SimPort* port = PortOf(ports, path.value("wwpn", ""));
            if (port && (*port->adapter)["slot"] == slot) {
                path["dmState"] = "failed";
                path["checker"] = "faulty";
                return;
            }
        }
}

// One listing's worth of virtual time for every bouncing adapter.
void AdvanceBounces(json& state, bool stuck) {
    for (json& adapter : state["adapters"]) {
        int left = adapter.value("pathsDownFor", 0);
        if (left <= 0) continue;
        if (left > 1) {
            adapter["pathsDownFor"] = left - 1;
            continue;
        }
        adapter.erase("pathsDownFor");
        const std::string slot = adapter["slot"];
        if (stuck) KeepFirstPathFailed(state, slot);
        LogCall(stuck ? "paths-stuck" : "paths-restored", slot);
    }
}

}  // namespace

void BouncePaths(json& state, json& adapter) {
    if (!state.contains("multipath")) return;
    adapter["pathsDownFor"] = state["multipath"].value("downListings", kDefaultDownListings);
    LogCall("flash", adapter["slot"]);
}

int RunMultipathd(const Args& args) {
    LogCall("multipathd", args.empty() ? "" : args[0]);
    const std::string fault = TakeFault("multipathd", "");
    if (fault == "missing") {
        std::cerr << "multipathd: cannot connect to the daemon's socket\n";
        return 1;
    }
    if (args != Args{"show", "paths", "raw", "format", kExpectedFormat}) {
        std::cerr << "multipathd: only 'show paths raw format \"" << kExpectedFormat << "\"' is simulated\n";
        return 1;
    }
    std::string text;
    UpdateState([&](json& state) {
        if (!state.contains("multipath")) return false;
        text = Listing(state, fault);
        AdvanceBounces(state, fault == "stuck");
        return true;
    });
    std::cout << text;
    return 0;
}

void WriteScsiHosts(const json& state, const std::string& scsiHostFolder, const std::string& fcHostFolder) {
    for (const SimPort& port : Ports(state)) {
        const std::string host = "host" + std::to_string(port.scsiHost);
        // As the kernel links it: into the device tree below the port's PCI function.
        MakeLink(scsiHostFolder + "/" + host, "../../devices/pci0000:00/0000:00:02.0/" + port.address.Text(true) +
                                                  "/" + host + "/scsi_host/" + host);
        std::string digits;
        for (char c : (*port.port)["wwpn"].get<std::string>())
            if (c != ':') digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        MakeFolderAt(fcHostFolder + "/" + host);
        WriteTextFile(fcHostFolder + "/" + host + "/port_name", "0x" + digits + "\n");
    }
}

}  // namespace qdmsim
