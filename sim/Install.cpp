// Installing the simulator into the sandbox's system paths, and the utility
// install/uninstall that the built scripts call.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "Sim.h"

namespace qdmsim {

namespace fs = std::filesystem;

namespace {

const char* const kDiscConfig = "/etc/emulexDiscConfig";
const char* const kRmConfig = "/etc/emulexRMConfig";
const char* const kDefaultBinDir = "/opt/qdmsim/bin";

void RequireSandbox(const std::string& what) {
    if (!InSandbox())
        throw SimError(what + " writes /etc, /usr/sbin and /opt: run it inside the sandbox "
                              "(sandbox/run), which sets QDM_SANDBOX=1");
}

void MakeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw SimError("cannot create " + folder.string() + ": " + error.message());
}

void RemovePath(const fs::path& path) {
    std::error_code error;
    fs::remove(path, error);
    if (error) throw SimError("cannot remove " + path.string() + ": " + error.message());
}

void Link(const fs::path& link, const fs::path& target) {
    MakeFolder(link.parent_path());
    RemovePath(link);
    std::error_code error;
    fs::create_symlink(target, link, error);
    if (error) throw SimError("cannot link " + link.string() + ": " + error.message());
}

void PlaceTool(bool installed) {
    if (installed)
        Link(kToolPath, SelfPath());
    else
        RemovePath(kToolPath);
}

// The settings as a real file might hold them: "Key : value", with comments
// and unrelated keys around them. None of the extra lines names a checked key.
std::string DiscConfig(const std::string& variant) {
    std::string remote = variant == "commented" ? "# ClientRemoteOperation : disabled\n"
                                                : "ClientRemoteOperation : disabled\n";
    std::string port = variant == "broken-port" ? "23334" : "23333";
    return "# Discovery settings of the management utility\n" + remote +
           "ClientOperationMode : enabled\n"
           "ClientReadOnlyOperation : disabled\n"
           "TcpSocketPortNumber : " + port + "\n"
           "DiscoveryRefreshSeconds : 300\n";
}

std::string RmConfig(const std::string& variant) {
    return "# Remote-management settings of the management utility\n"
           "ServerRemoteOperation : enabled\n"
           "ManagementHost : false\n"
           "SecureManagement : disabled\n"
           "MngmtHostIpAddress : 0\n" +
           std::string(variant == "missing" ? "" : "ExclusiveHostMgmnt : false\n") +
           "LogLevel : 1\n";
}

void RequireConfigVariant(const std::string& variant) {
    if (variant != "good" && variant != "broken-port" && variant != "commented" && variant != "missing")
        throw SimError("--config takes good, broken-port, commented, missing or none");
}

void WriteConfigs(const std::string& variant) {
    if (variant == "none") {
        RemovePath(kDiscConfig);
        RemovePath(kRmConfig);
        return;
    }
    RequireConfigVariant(variant);
    MakeFolder("/etc");
    WriteTextFile(kDiscConfig, DiscConfig(variant));
    WriteTextFile(kRmConfig, RmConfig(variant));
}

bool HasUtility(const json& state) {
    return state.contains("utilityVersion") && state["utilityVersion"].is_string();
}

// Drops the packages whose names begin with one of `prefixes`.
void DropPackages(json& state, const std::vector<std::string>& prefixes) {
    json kept = json::array();
    for (const json& name : state.value("packages", json::array())) {
        bool drop = false;
        for (const std::string& prefix : prefixes) drop = drop || StartsWith(name.get<std::string>(), prefix);
        if (!drop) kept.push_back(name);
    }
    state["packages"] = kept;
}

}  // namespace

int RunInstall(const Args& args) {
    Options options = ParseOptions(args, {"--state", "--bin", "--config"}, {"--no-utility"});
    RequireSandbox("qdmsim install");
    if (options.Get("--state").empty()) throw SimError("install: missing --state FILE");
    const fs::path state = fs::absolute(options.Get("--state"));
    const json loaded = LoadStateAt(state.string());  // refuse a broken state up front
    const fs::path binDir = options.Get("--bin", kDefaultBinDir);

    if (state != fs::path(kDefaultStatePath)) Link(kDefaultStatePath, state);
    PlaceTool(!options.Has("--no-utility") && HasUtility(loaded));
    MakeFolder(binDir);
    for (const char* tool : {"lspci", "rpm", "depmod"}) Link(binDir / tool, SelfPath());
    // A server without multipath has no multipathd at all.
    if (loaded.contains("multipath"))
        Link(binDir / "multipathd", SelfPath());
    else
        RemovePath(binDir / "multipathd");
    WriteConfigs(options.Get("--config", "good"));
    MakeFolder("/etc/depmod.d");
    WriteSysfs(loaded);
    std::cout << "qdmsim: installed; state " << state.string() << ", tools in " << binDir.string()
              << "\n";
    return 0;
}

int RunConfig(const Args& args) {
    Options options = ParseOptions(args, {"--config"}, {});
    const std::string variant = options.Get("--config", "good");
    RequireConfigVariant(variant);
    const Args& names = options.positional;
    if (names.size() != 1 || (names[0] != "disc" && names[0] != "rm"))
        throw SimError("usage: qdmsim config disc|rm [--config VARIANT]");
    std::cout << (names[0] == "disc" ? DiscConfig(variant) : RmConfig(variant));
    return 0;
}

int RunUtility(const Args& args) {
    const bool install = args.size() == 2 && args[0] == "install";
    if (!install && !(args.size() == 1 && args[0] == "uninstall"))
        throw SimError("usage: qdmsim utility install VERSION | qdmsim utility uninstall");
    LogCall("utility", args[0]);
    ToolRun run("system", "utility-" + args[0]);
    PauseIfSlow(TakeFault("utility", ""));
    UpdateState([&](json& state) {
        DropPackages(state, install ? std::vector<std::string>{"elxocmcore-"}
                                    : std::vector<std::string>{"elxocmcore-", "elxocmjvm-"});
        if (install) {
            state["utilityVersion"] = args[1];
            state["packages"].push_back("elxocmcore-" + args[1] + "-1.x86_64");
        } else {
            state.erase("utilityVersion");
        }
        return true;
    });
    // Outside the sandbox only the state changes: the fixed paths are real.
    if (InSandbox()) PlaceTool(install);
    return 0;
}

}  // namespace qdmsim
