#include "cli/Cli.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>

#include "commands/Commands.h"
#include "cli/Console.h"
#include "model/ExitCodes.h"
#include "store/History.h"
#include "model/HostError.h"
#include "Version.h"

namespace qdmcli {

namespace {

using Command = std::function<CommandResult(const Options&)>;

// Raised only when a document changes in a way that breaks its readers.
const int kSchemaVersion = 1;

// What every document of one invocation carries besides the command's own fields.
struct Invocation {
    bool json = false;
    std::string started;                      // UTC, when qdmhost started
    nlohmann::json command = nullptr;         // null until the command line names one
};

std::string HostName() {
    char name[256] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

void PrintDocument(const Invocation& run, nlohmann::json document, int exitCode) {
    document.update({{"schemaVersion", kSchemaVersion}, {"qdmhost", kVersion}, {"revision", kRevision},
                     {"host", HostName()}, {"time", run.started}, {"command", run.command}, {"exitCode", exitCode},
                     {"exitName", DescribeExitCode(exitCode).name}});
    // Texts from adapters may hold bytes that are not UTF-8: replaced, not fatal.
    std::cout << (run.json ? document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n"
                           : RenderText(document))
              << std::flush;
}

void PrintError(const Invocation& run, int code, const std::string& message, const std::string& reason = "") {
    if (!run.json) {
        std::fprintf(stderr, "qdmhost: error: %s\n", message.c_str());
        return;
    }
    nlohmann::json error = {{"exitCode", code}, {"name", DescribeExitCode(code).name}, {"message", message}};
    if (!reason.empty()) error["reason"] = reason;
    PrintDocument(run, {{"error", error}}, code);
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
    CLI::App* metrics = app.add_subcommand(
        "metrics", "write Prometheus metrics for node_exporter: status and versions of every port and module, "
                   "last updates, utility check, this run's success");
    metrics
        ->add_option("--textfile", options.textfileFolder,
                     "folder of node_exporter's textfile collector (e.g. /var/lib/prometheus/node-exporter): "
                     "DIR/qdmhost.prom is replaced atomically, on a failure too (success 0 and the error's name; "
                     "the exit code is the error's)")
        ->type_name("DIR")
        ->required();
    commands[metrics] = RunMetrics;
    for (auto& entry : commands) entry.first->fallthrough();
    return commands;
}

int RunCommand(const Command& command, const Options& options, const Invocation& run) {
    InstallHostHooks(VirtualTimeRequested());
    int code = kExitOk;
    try {
        CommandResult result = command(options);
        PrintDocument(run, result.document, result.exitCode);
        code = result.exitCode;
    } catch (const HostError& error) {
        PrintError(run, error.code(), error.what(), error.reason());
        code = error.code();
    } catch (const std::exception& error) {
        PrintError(run, kExitInternal, std::string("unexpected failure: ") + error.what());
        code = kExitInternal;
    }
    RemoveHostHooks();
    return code;
}

// The command the line named, even when the rest of it did not parse.
nlohmann::json ParsedCommand(const std::map<CLI::App*, Command>& commands) {
    for (const auto& entry : commands)
        if (entry.first->parsed()) return entry.first->get_name();
    return nullptr;
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
    Invocation run{WantsJson(argc, argv), UtcTimestamp()};
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {  // --help, --version
        return app.exit(request);
    } catch (const CLI::ParseError& error) {
        if (!run.json) return app.exit(error) == 0 ? kExitOk : kExitUsage;
        run.command = ParsedCommand(commands);
        PrintError(run, kExitUsage, error.what());
        return kExitUsage;
    }
    run.command = ParsedCommand(commands);
    for (auto& entry : commands)
        if (entry.first->parsed()) return RunCommand(entry.second, options, run);
    return kExitUsage;
}

}  // namespace qdmcli
