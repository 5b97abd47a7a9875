#include "cli/Cli.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>
#include <vector>

#include "Version.h"
#include "cli/Command.h"
#include "cli/Console.h"
#include "commands/CommandTable.h"
#include "model/ExitCodes.h"
#include "model/HostError.h"
#include "util/UtcTime.h"

namespace qdmcli {

namespace {

// Raised only when a document changes in a way that breaks its readers.
const int kSchemaVersion = 1;

// What every document of one invocation carries besides the command's own fields.
struct Invocation {
    bool json = false;
    std::string started;               // UTC, when qdmhost started
    nlohmann::json command = nullptr;  // null until the command line names one
};

std::string HostName() {
    char name[256] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

// The command's fields in the envelope that every document carries.
void PrintDocument(const Invocation& run, nlohmann::json document, int exitCode) {
    document.update({{"schemaVersion", kSchemaVersion},
                     {"qdmhost", kVersion},
                     {"revision", kRevision},
                     {"host", HostName()},
                     {"time", run.started},
                     {"command", run.command},
                     {"exitCode", exitCode},
                     {"exitName", DescribeExitCode(exitCode).name}});
    // Texts from adapters may hold bytes that are not UTF-8: replaced, not fatal.
    std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n" << std::flush;
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
    app.add_option("--trace-level", options.traceLevel,
                   "debug trace level mask (1 info, 2 error, 4 function, 16 clean-up)")
        ->check(CLI::Range(0, 255));
    app.add_flag("--json", options.json, "print only JSON on standard output (errors too)");
    app.add_option("--wait", options.waitSeconds,
                   "seconds to wait for a running update (and the tools it started) before answering lock-busy")
        ->check(CLI::Range(0, 86400));
    app.add_flag("--allow-unsigned", options.allowUnsigned,
                 "accept a repository without a valid signature (labs only; loudly warned, recorded)");
}

// Every command of the table as a subcommand, with its own options.
std::vector<std::pair<CLI::App*, const Command*>> AddCommands(CLI::App& app, Options& options) {
    std::vector<std::pair<CLI::App*, const Command*>> commands;
    for (const Command& command : CommandTable()) {
        CLI::App* subcommand = app.add_subcommand(command.name, command.help);
        if (command.addOptions) command.addOptions(*subcommand, options);
        subcommand->fallthrough();
        commands.emplace_back(subcommand, &command);
    }
    return commands;
}

int RunCommand(const Command& command, const Options& options, const Invocation& run) {
    InstallHostHooks(VirtualTimeRequested());
    int code = kExitOk;
    try {
        CommandOutput output = command.run(options);
        if (run.json)
            PrintDocument(run, output.document, output.exitCode);
        else
            std::cout << output.text << std::flush;
        code = output.exitCode;
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
nlohmann::json ParsedCommand(const std::vector<std::pair<CLI::App*, const Command*>>& commands) {
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
    const std::vector<std::pair<CLI::App*, const Command*>> commands = AddCommands(app, options);
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
    for (const auto& entry : commands)
        if (entry.first->parsed()) return RunCommand(*entry.second, options, run);
    return kExitUsage;
}

}  // namespace qdmcli
