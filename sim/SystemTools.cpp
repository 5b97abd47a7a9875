// The simulated system programs: lspci, rpm and depmod.
#include <algorithm>
#include <iostream>

#include "Sim.h"

namespace qdmsim {

namespace {

const char* const kFibreChannelClass = "0c04";

}  // namespace

std::vector<PciFunction> AllFunctions(const json& state) {
    std::vector<PciFunction> functions;
    for (const json& adapter : state.value("adapters", json::array())) {
        PciAddress slot;
        ParsePciAddress(adapter["slot"], &slot);  // validated on load
        for (const json& port : adapter["ports"]) {
            PciAddress address = slot;
            address.device = port["pciDevice"];
            address.function = port["pciFunction"];
            functions.push_back({address, kFibreChannelClass, adapter["vendor"], adapter["device"],
                                 adapter.value("revision", "03"), adapter["subVendor"],
                                 adapter["subDevice"]});
        }
    }
    for (const json& other : state.value("otherDevices", json::array())) {
        PciAddress address;
        ParsePciAddress(other["address"], &address);
        functions.push_back({address, other["class"], other["vendor"], other["device"],
                             other.value("revision", "01"), other["subVendor"], other["subDevice"]});
    }
    std::sort(functions.begin(), functions.end(),
              [](const PciFunction& a, const PciFunction& b) { return a.address < b.address; });
    return functions;
}

namespace {

// One "-s" selector "[[domain:]bus:]device[.function]"; empty fields match all.
struct Selector {
    std::vector<std::string> fields;  // domain, bus, device, function

    bool Matches(const PciAddress& address) const {
        const int values[] = {address.domain, address.bus, address.device, address.function};
        for (size_t i = 0; i < 4; ++i)
            if (!fields[i].empty() && std::stoi(fields[i], nullptr, 16) != values[i]) return false;
        return true;
    }
};

bool IsHexText(const std::string& text) {
    return text.size() <= 4 && std::all_of(text.begin(), text.end(), [](char c) {
               return std::isxdigit(static_cast<unsigned char>(c));
           });
}

bool ParseSelector(const std::string& text, Selector* selector) {
    std::string slot = text, function;
    auto dot = text.find('.');
    if (dot != std::string::npos) {
        slot = text.substr(0, dot);
        function = text.substr(dot + 1);
    }
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t colon; (colon = slot.find(':', start)) != std::string::npos; start = colon + 1)
        parts.push_back(slot.substr(start, colon - start));
    parts.push_back(slot.substr(start));
    if (parts.size() > 3) return false;
    while (parts.size() < 3) parts.insert(parts.begin(), "");
    parts.push_back(function);
    for (const std::string& part : parts)
        if (!IsHexText(part)) return false;
    selector->fields = parts;
    return true;
}

struct LspciRequest {
    bool withDomain = false;
    bool selected = false;
    std::string selector;
};

// Accepts the option clusters -n, -m, -D and -s <sel> in any grouping.
bool ParseLspciArgs(const Args& args, LspciRequest* request) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() < 2 || arg[0] != '-') return false;
        for (size_t k = 1; k < arg.size(); ++k) {
            char option = arg[k];
            if (option == 'D') {
                request->withDomain = true;
            } else if (option == 's') {
                request->selected = true;
                if (k + 1 < arg.size()) {
                    request->selector = arg.substr(k + 1);
                } else if (i + 1 < args.size()) {
                    request->selector = args[++i];
                } else {
                    return false;
                }
                break;
            } else if (option != 'n' && option != 'm') {
                return false;
            }
        }
    }
    return true;
}

std::string LspciVerb(const LspciRequest& request) {
    return std::string("-") + (request.withDomain ? "D" : "") + "nm" + (request.selected ? "s" : "");
}

bool HasArg(const Args& args, const std::string& wanted) {
    return std::find(args.begin(), args.end(), wanted) != args.end();
}

struct Package {
    std::string name, version;
};

// Reads the "QDMSIM-PACKAGE <name> <version>" header; prints rpm's error.
bool ReadPackage(const std::string& path, Package* package) {
    bool readable = false;
    std::vector<std::string> words = SplitWords(ReadFirstLine(path, &readable));
    if (!readable) {
        std::cerr << "error: open of " << path << " failed: No such file or directory\n";
        return false;
    }
    if (words.size() != 3 || words[0] != "QDMSIM-PACKAGE") {
        std::cerr << "error: " << path << ": not an rpm package (or package manifest)\n";
        return false;
    }
    *package = Package{words[1], words[2]};
    return true;
}

void InstallPackage(const Package& package) {
    UpdateState([&](json& state) {
        json kept = json::array();
        for (const json& name : state.value("packages", json::array()))
            if (!StartsWith(name.get<std::string>(), package.name + "-")) kept.push_back(name);
        kept.push_back(package.name + "-" + package.version + "-1.x86_64");
        state["packages"] = kept;
        if (package.name == "lpfc") state["driverVersion"] = package.version;
        return true;
    });
}

std::string HashLine(const std::string& label) {
    std::string line = label;
    line.resize(std::max<size_t>(label.size() + 1, 38), ' ');
    return line + "################################# [100%]\n";
}

int RpmUpgrade(const Args& files, const std::string& fault) {
    if (files.empty()) {
        std::cerr << "rpm: no packages given for install\n";
        return 1;
    }
    std::vector<Package> packages(files.size());
    for (size_t i = 0; i < files.size(); ++i)
        if (!ReadPackage(files[i], &packages[i])) return 1;
    std::cout << HashLine("Preparing...");
    ToolRun run("system", "rpm");
    PauseIfSlow(fault);
    if (fault == "fail") {
        std::cerr << "error: %prein(" << packages[0].name << ") scriptlet failed, exit status 1\n"
                  << "error: " << packages[0].name << ": install failed\n";
        return 1;
    }
    std::cout << "Updating / installing...\n";
    for (size_t i = 0; i < packages.size(); ++i) {
        InstallPackage(packages[i]);
        std::cout << HashLine("   " + std::to_string(i + 1) + ":" + packages[i].name + "-" +
                              packages[i].version + "-1");
    }
    return 0;
}

}  // namespace

bool FormatLspci(const json& state, bool withDomain, const std::string& selectorText,
                 std::string* text) {
    Selector selector;
    if (!ParseSelector(selectorText, &selector)) return false;
    for (const PciFunction& f : AllFunctions(state)) {
        if (!selector.Matches(f.address)) continue;
        *text += f.address.Text(withDomain) + " \"" + f.classId + "\" \"" + ToLower(f.vendor) +
                 "\" \"" + ToLower(f.device) + "\" -r" + ToLower(f.revision) + " \"" +
                 ToLower(f.subVendor) + "\" \"" + ToLower(f.subDevice) + "\"\n";
    }
    return true;
}

int RunLspci(const Args& args) {
    LspciRequest request;
    if (!ParseLspciArgs(args, &request)) {
        std::cerr << "lspci: only -n, -m, -D and -s <slot> are simulated\n";
        LogCall("lspci", "invalid");
        return 2;
    }
    LogCall("lspci", LspciVerb(request));
    if (TakeFault("lspci", "") == "hang") HangForever();
    std::string text;
    if (!FormatLspci(LoadState(), request.withDomain, request.selector, &text)) {
        std::cerr << "lspci: -s: Invalid slot number\n";
        return 1;
    }
    std::cout << text;
    return 0;
}

int RunRpm(const Args& args) {
    const bool query = HasArg(args, "-qa");
    LogCall("rpm", query ? "-qa" : (args.empty() ? "" : args[0]));
    const std::string fault = TakeFault("rpm", "");
    if (fault == "hang") HangForever();
    if (query) {
        if (fault == "fail") return 1;
        for (const json& name : LoadState().value("packages", json::array()))
            std::cout << name.get<std::string>() << "\n";
        return 0;
    }
    if (args.empty() || !StartsWith(args[0], "-U")) {
        std::cerr << "rpm: only -Uhv [--oldpackage] <file> and -qa are simulated\n";
        return 1;
    }
    Args files;
    for (size_t i = 1; i < args.size(); ++i)
        if (!StartsWith(args[i], "-")) files.push_back(args[i]);
    return RpmUpgrade(files, fault);
}

int RunDepmod(const Args& args) {
    LogCall("depmod", args.empty() ? "(none)" : args[0]);
    const std::string fault = TakeFault("depmod", "");
    if (fault == "hang") HangForever();
    ToolRun run("system", "depmod");
    PauseIfSlow(fault);
    if (fault == "fail") {
        std::cerr << "depmod: ERROR: could not open directory /lib/modules: No such file or directory\n";
        return 1;
    }
    return 0;
}

}  // namespace qdmsim
