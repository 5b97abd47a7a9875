#include "Cli.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>

#include "Commands.h"
#include "Console.h"
#include "ExitCodes.h"
#include "HostError.h"
#include "Version.h"

namespace qdmcli {

namespace {

using Command = std::function<CommandResult(const Options&)>;

void PrintError(bool json, int code, const std::string& message, const std::string& reason = "") {
    if (json) {
        nlohmann::json error = {{"error", {{"exitCode", code}, {"name", DescribeExitCode(code).name}, {"message", message}}},
                                {"exitCode", code}};
        if (!reason.empty()) error["error"]["reason"] = reason;
        std::cout << error.dump(2) << std::endl;
    } else {
        std::fprintf(stderr, "qdmhost: error: %s\n", message.c_str());
    }
}

// --json is honoured even when the rest of the line does not parse.
bool WantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--json") == 0) return true;
    return false;
}

void AddCommonOptions(CLI::App& app, Options& options) {
    app.add_option("--root", options.root, "install root of the provider")->capture_default_str();
    app.add_option("--repo", options.repository, "update repository folder (default <root>/repository)");
    app.add_option("--provider", options.provider, "provider library (default: next to this build, else <root>/lib)");
    app.add_option("--port", options.ports, "only this port: device id, PCI address, WWPN or bus/dev/func (repeatable)")
        ->allow_extra_args(false);
    app.add_option("--trace-level", options.traceLevel, "debug trace level mask (1 info, 2 error, 4 function, 16 clean-up)")
        ->check(CLI::Range(0, 255));
    app.add_flag("--json", options.json, "print only JSON on standard output (errors too)");
    app.add_option("--wait", options.waitSeconds, "seconds to wait for another update's lock")
        ->check(CLI::Range(0, 86400));
    app.add_flag("--allow-unsigned", options.allowUnsigned,
                 "accept a repository without a valid signature (labs only; loudly warned, recorded)");
}

// trust add FILE.pub | trust list | trust remove KEYID: the action is noted
// when its subcommand is parsed.
CLI::App* AddTrustCommand(CLI::App& app, Options& options) {
    CLI::App* trust = app.add_subcommand("trust", "manage the keys that repositories must be signed with");
    trust->require_subcommand(1);
    CLI::App* add = trust->add_subcommand("add", "trust the minisign public key in FILE");
    add->add_option("file", options.trustArgument, "minisign public key file (.pub)")->required();
    CLI::App* list = trust->add_subcommand("list", "show the trusted keys");
    CLI::App* remove = trust->add_subcommand("remove", "stop trusting a key");
    remove->add_option("keyid", options.trustArgument, "key id, as trust list shows it")->required();
    for (CLI::App* action : {add, list, remove}) {
        action->fallthrough();
        action->parse_complete_callback([&options, action] { options.trustAction = action->get_name(); });
    }
    return trust;
}

std::map<CLI::App*, Command> AddCommands(CLI::App& app, Options& options) {
    std::map<CLI::App*, Command> commands;
    commands[app.add_subcommand("inventory", "list the ports with their versions and the repository's")] = RunInventory;
    CLI::App* update = app.add_subcommand("update", "bring every module to the repository version");
    update->add_flag("--dry-run", options.dryRun, "show the plan only");
    commands[update] = RunUpdate;
    CLI::App* report = app.add_subcommand("report", "write the device configuration report (XML)");
    report->add_option("--out", options.outFolder, "output folder")->required();
    commands[report] = RunReport;
    commands[app.add_subcommand("check", "check for missing components and the utility configuration")] = RunCheck;
    commands[app.add_subcommand("history", "show the results of past updates")] = RunHistory;
    commands[AddTrustCommand(app, options)] = RunTrust;
    for (auto& entry : commands) entry.first->fallthrough();
    return commands;
}

int RunCommand(const Command& command, const Options& options) {
    InstallHostHooks(VirtualTimeRequested());
    int code = kExitOk;
    try {
        CommandResult result = command(options);
        std::cout << (options.json ? result.document.dump(2) + "\n" : RenderText(result.document)) << std::flush;
        code = result.exitCode;
    } catch (const HostError& error) {
        PrintError(options.json, error.code(), error.what(), error.reason());
        code = error.code();
    } catch (const std::exception& error) {
        PrintError(options.json, kExitInternal, std::string("unexpected failure: ") + error.what());
        code = kExitInternal;
    }
    RemoveHostHooks();
    return code;
}

}  // namespace

int RunCli(int argc, char** argv) {
    Options options;
    CLI::App app("qdmhost: inventory and update of the server's Emulex Fibre Channel adapters", "qdmhost");
    app.footer(ExitCodeHelp());
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("qdmhost ") + kVersion + " (revision " + kRevision + ")");
    AddCommonOptions(app, options);
    std::map<CLI::App*, Command> commands = AddCommands(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {  // --help, --version
        return app.exit(request);
    } catch (const CLI::ParseError& error) {
        if (!WantsJson(argc, argv)) return app.exit(error) == 0 ? kExitOk : kExitUsage;
        PrintError(true, kExitUsage, error.what());
        return kExitUsage;
    }
    for (auto& entry : commands)
        if (entry.first->parsed()) return RunCommand(entry.second, options);
    return kExitUsage;
}

}  // namespace qdmcli
