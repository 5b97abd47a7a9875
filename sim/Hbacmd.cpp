// The simulated adapter tool: listhbas, HbaAttributes, version, Download.
#include <cstdio>
#include <fstream>
#include <iostream>

#include "Sim.h"

namespace qdmsim {

namespace {

const char* const kDriverApiSuffix = "; HBAAPI(I) v2.3.d, 07-12-10";
const char* const kFabricName = "10:00:00:05:1e:0e:4c:71";

// "Name", blanks to `width`, ": ", value: the tool's aligned line form.
std::string Field(const std::string& name, const std::string& value, size_t width) {
    std::string line = name;
    if (line.size() < width) line.append(width - line.size(), ' ');
    return line + ": " + value + "\n";
}

std::string ListField(const std::string& name, const std::string& value) {
    return Field(name, value, 15);  // values start at column 17
}

std::string AttributeField(const std::string& name, const std::string& value) {
    return Field(name, value, 18);
}

// The node name: the port name with its leading "10" made "20".
std::string NodeWwn(const std::string& wwpn) {
    return StartsWith(wwpn, "10") ? "20" + wwpn.substr(2) : wwpn;
}

int ListedFunction(const json& adapter, const json& port) {
    int multiplier = adapter.value("numbering", "compact") == "full" ? 8 : 2;
    return port["pciDevice"].get<int>() * multiplier + port["pciFunction"].get<int>();
}

int BusOf(const json& adapter) {
    PciAddress slot;
    ParsePciAddress(adapter["slot"], &slot);  // validated on load
    return slot.bus;
}

bool Is16g(const json& adapter) { return adapter["kind"] == "16g"; }

std::string PortBlock(const json& state, const std::string& wwpn, const std::string& serial,
                      int portNumber, int bus, int function, const std::string& model) {
    return ListField("Port WWN", wwpn) + ListField("Node WWN", NodeWwn(wwpn)) +
           ListField("Fabric Name", kFabricName) + ListField("Flags", "8000e300") +
           ListField("Host Name", state.value("hostName", "localhost")) +
           ListField("Mfg", "Emulex Corporation") + ListField("Serial No.", serial) +
           ListField("Port Number", std::to_string(portNumber)) + ListField("Mode", "Initiator") +
           ListField("PCI Bus Number", std::to_string(bus)) +
           ListField("PCI Function", std::to_string(function)) + ListField("Port Type", "FC") +
           ListField("Model", model);
}

std::string ExtraPorts() {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        char wwpn[32];
        std::snprintf(wwpn, sizeof wwpn, "10:00:00:00:c9:ff:%02x:%02x", (i >> 8) & 0xff, i & 0xff);
        text += "\n" + PortBlock(json::object(), wwpn, "VMEXTRA" + std::to_string(i), i % 2, 200,
                                 i % 8, "LPe12002");
    }
    return text;
}

bool SameWwpn(const std::string& a, const std::string& b) { return ToLower(a) == ToLower(b); }

// Index of the adapter and port holding `wwpn`; false when none does.
bool FindPort(const json& state, const std::string& wwpn, size_t* adapterIndex, size_t* portIndex) {
    const json& adapters = state.value("adapters", json::array());
    for (size_t a = 0; a < adapters.size(); ++a)
        for (size_t p = 0; p < adapters[a]["ports"].size(); ++p)
            if (SameWwpn(adapters[a]["ports"][p]["wwpn"], wwpn)) {
                *adapterIndex = a;
                *portIndex = p;
                return true;
            }
    return false;
}

std::string FirmwareText(const json& adapter) {
    std::string note = adapter.value("firmwareNote", "");
    return adapter["firmware"].get<std::string>() + (note.empty() ? "" : " " + note);
}

std::string ModelDescription(const json& adapter) {
    return "Emulex " + adapter["model"].get<std::string>() + (Is16g(adapter) ? " 16Gb " : " 8Gb ") +
           std::to_string(adapter["ports"].size()) + "-port PCIe Fibre Channel Adapter";
}

// ---- Download ------------------------------------------------------------------

struct Image {
    std::string target;   // "firmware" or "bootbios"
    std::string version;
    std::string family;   // "8g", "16g" or "cna"
};

bool ParseImageHeader(const std::string& line, Image* image) {
    std::vector<std::string> words = SplitWords(line);
    if (words.size() != 4 || words[0] != "QDMSIM-IMAGE") return false;
    if (words[1] != "firmware" && words[1] != "bootbios") return false;
    *image = Image{words[1], words[2], words[3]};
    return true;
}

std::string FamilyOf(const json& adapter) { return Is16g(adapter) ? "16g" : "8g"; }

struct UpdateMessages {
    std::vector<std::string> success, end;
};

// "SuccessMessage=" / "EndMessage=" lines of the message.txt beside the image.
UpdateMessages ReadMessages(const std::string& imagePath) {
    UpdateMessages messages;
    auto slash = imagePath.rfind('/');
    std::string folder = slash == std::string::npos ? "." : imagePath.substr(0, slash);
    std::ifstream in(folder + "/message.txt");
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (StartsWith(line, "SuccessMessage=")) messages.success.push_back(line.substr(15));
        if (StartsWith(line, "EndMessage=")) messages.end.push_back(line.substr(11));
    }
    return messages;
}

void PrintLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) std::cout << line << "\n";
}

void PrintProgress(const std::string& imagePath, const std::string& wwpn) {
    std::cout << "Downloading " << imagePath << " to HBA " << wwpn << "...\n";
    for (int percent = 25; percent <= 100; percent += 25)
        std::cout << "Download progress: " << percent << "%\n";
}

// Checks port and image; on failure prints the tool's error and returns false.
bool CheckDownload(const json& state, const std::string& wwpn, const std::string& imagePath,
                   Image* image) {
    size_t adapterIndex = 0, portIndex = 0;
    if (!FindPort(state, wwpn, &adapterIndex, &portIndex)) {
        std::cout << "ERROR: <5>: HBA Not Found\n";
        return false;
    }
    bool readable = false;
    std::string header = ReadFirstLine(imagePath, &readable);
    if (!readable) {
        std::cout << "ERROR: <18>: Unable to open image file " << imagePath << "\n";
        return false;
    }
    if (!ParseImageHeader(header, image) ||
        image->family != FamilyOf(state["adapters"][adapterIndex])) {
        std::cout << "ERROR: <220>: Image file is not valid for this adapter\n";
        return false;
    }
    return true;
}

void ApplyImage(const std::string& wwpn, const Image& image) {
    UpdateState([&](json& state) {
        size_t adapterIndex = 0, portIndex = 0;
        if (!FindPort(state, wwpn, &adapterIndex, &portIndex)) return false;
        json& adapter = state["adapters"][adapterIndex];
        if (image.target == "firmware") {
            adapter["firmware"] = image.version;
            adapter.erase("firmwareNote");
            BouncePaths(state, adapter);
        } else {
            adapter["bootBios"] = image.version;
        }
        return true;
    });
}

int Download(const Args& args, const std::string& fault) {
    if (args.size() != 3) {
        std::cout << "ERROR: <2>: Usage: hbacmd Download <WWPN> <FileName>\n";
        return 1;
    }
    const std::string& wwpn = args[1];
    const std::string& imagePath = args[2];
    if (fault == "silent") return 0;
    if (fault == "hang") HangForever();
    if (fault == "crash") EmitToolOutput("crash", "Downloading " + imagePath + " to HBA ...\n", 0);
    // A server-wide output fault ("error64", "empty", ...) replaces the whole run.
    if (!fault.empty() && fault != "fail" && fault != "slow") return EmitToolOutput(fault, "", 1);
    Image image;
    const json state = LoadState();
    if (!CheckDownload(state, wwpn, imagePath, &image)) return 1;
    size_t adapterIndex = 0, portIndex = 0;
    FindPort(state, wwpn, &adapterIndex, &portIndex);
    ToolRun run(state["adapters"][adapterIndex]["serial"], "Download");
    UpdateMessages messages = ReadMessages(imagePath);
    PrintProgress(imagePath, wwpn);
    PauseIfSlow(fault);
    if (fault == "fail") {
        std::cout << "ERROR: <219>: Download failed\n";
        PrintLines(messages.end);
        return 1;
    }
    ApplyImage(wwpn, image);
    std::cout << "Download Complete.\n";
    PrintLines(messages.success);
    PrintLines(messages.end);
    return 0;
}

int Attributes(const Args& args, const std::string& fault) {
    if (args.size() != 2) return EmitToolOutput(fault, "ERROR: <2>: Usage: hbacmd HbaAttributes <WWPN>\n", 1);
    json state = LoadState();
    size_t adapterIndex = 0, portIndex = 0;
    if (!FindPort(state, args[1], &adapterIndex, &portIndex))
        return EmitToolOutput(fault, "ERROR: <5>: HBA Not Found\n", 1);
    const json& adapter = state["adapters"][adapterIndex];
    PauseIfSlow(fault);
    return EmitToolOutput(fault,
                          FormatAttributes(state, adapter, adapter["ports"][portIndex], fault), 0);
}

// Canonical spelling of a verb; the tool takes verbs in any case.
std::string CanonicalVerb(const std::string& verb) {
    for (const char* known : {"listhbas", "HbaAttributes", "version", "Download"})
        if (ToLower(verb) == ToLower(known)) return known;
    return verb;
}

}  // namespace

std::string FormatListing(const json& state, bool manyPorts) {
    std::string text = "\nManageable HBA List\n";
    for (const json& adapter : state.value("adapters", json::array()))
        for (const json& port : adapter["ports"])
            text += "\n" + PortBlock(state, port["wwpn"], adapter["serial"], port["portNumber"],
                                     BusOf(adapter), ListedFunction(adapter, port), adapter["model"]);
    if (manyPorts) text += ExtraPorts();
    return text;
}

std::string FormatAttributes(const json& state, const json& adapter, const json& port,
                             const std::string& fault) {
    const std::string driver = state.value("driverVersion", "11.2.156.27");
    const std::string host = state.value("hostName", "localhost");
    std::string firmware = FirmwareText(adapter);
    std::string boot = adapter["bootBios"];
    std::string driverText = driver + kDriverApiSuffix;
    if (fault == "badversions") firmware = boot = driverText = "?.??";
    const bool withVersions = fault != "nokeys";
    const std::string wwpn = port["wwpn"];
    std::string text = "HBA Attributes for " + wwpn + "\n\n";
    text += AttributeField("Host Name", host) + AttributeField("Manufacturer", "Emulex Corporation") +
            AttributeField("Serial Number", adapter["serial"]) +
            AttributeField("Model", adapter["model"]) +
            AttributeField("Model Desc", ModelDescription(adapter)) +
            AttributeField("Node WWN", NodeWwn(wwpn)) +
            AttributeField("Node Symname", "Emulex " + adapter["model"].get<std::string>() + " FV" +
                                               ToUpper(adapter["firmware"]) + " DV" + driver +
                                               " HN:" + host + " OS:Linux") +
            AttributeField("HW Version", Is16g(adapter) ? "0000000b" : "31004549") +
            AttributeField("Opt ROM Version", adapter["bootBios"]);
    if (withVersions) text += AttributeField("FW Version", firmware);
    text += AttributeField("Vendor Spec ID", ToUpper(adapter["vendor"])) +
            AttributeField("Number of Ports", std::to_string(adapter["ports"].size())) +
            AttributeField("Driver Name", "lpfc") +
            AttributeField("Device ID", ToUpper(adapter["device"])) +
            AttributeField("HBA Type", adapter["model"]) +
            AttributeField("Operational FW", Is16g(adapter) ? "SLI-4 Overlay" : "SLI-3 Overlay");
    if (withVersions)
        text += AttributeField("Boot Version", boot) + AttributeField("Driver Version", driverText);
    text += AttributeField("Board Temperature", "Normal") + AttributeField("Function Type", "FC") +
            AttributeField("Sub Device ID", ToUpper(adapter["subDevice"])) +
            AttributeField("Port Index", std::to_string(port["portNumber"].get<int>()));
    return text;
}

std::string FormatVersion(const std::string& utilityVersion) {
    return "\nVersion:\n    Command Line Interface Version: " + utilityVersion +
           " (build 12)\n    Core Kit Version: " + utilityVersion +
           "\n    HBA API Version: 2.3.d\n";
}

int RunHbacmd(const Args& args) {
    if (args.empty()) {
        std::cout << "ERROR: <2>: Usage: hbacmd <verb> [arguments]\n";
        return 1;
    }
    const std::string verb = CanonicalVerb(args[0]);
    LogCall("hbacmd", verb);
    const std::string fault = TakeFault(verb, "hbacmd");
    if (verb == "Download") return Download(args, fault);
    if (verb == "HbaAttributes") return Attributes(args, fault);
    if (verb == "listhbas")
        return EmitToolOutput(fault, FormatListing(LoadState(), fault == "manyports"), 0);
    if (verb == "version") {
        json utility = LoadState().value("utilityVersion", json());
        if (!utility.is_string())
            return EmitToolOutput(fault, "ERROR: <251>: Management utility is not installed\n", 1);
        PauseIfSlow(fault);
        return EmitToolOutput(fault, FormatVersion(utility.get<std::string>()), 0);
    }
    std::cout << "ERROR: <1>: Unknown command " << args[0] << "\n";
    return 1;
}

}  // namespace qdmsim
