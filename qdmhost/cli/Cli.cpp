#include "cli/Cli.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cctype>
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
    app.add_option(
           "--root", options.root,
           "the provider's install root: work area, logs, history, trusted keys and the update lock are below it")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--repo", options.repository,
                   "the update repository: catalogue.json, its signature and the module archives "
                   "(default <root>/repository)")
        ->type_name("DIR");
    app.add_option("--provider", options.provider,
                   "the provider library (default: next to this build, else <root>/lib/libqdmp_EMULEX_FC.so)")
        ->type_name("LIB");
    app.add_option(
           "--port", options.ports,
           "only this port: device id, PCI address, WWPN or bus/dev/func; repeat for more (default: every port)")
        ->type_name("SEL")
        ->allow_extra_args(false);
    app.add_option("--trace-level", options.traceLevel,
                   "trace mask of the provider's log, 0 to 255: 1 info, 2 error, 4 function, 16 clean-up "
                   "(default: the host's)")
        ->type_name("MASK")
        ->check(WholeNumber("a trace mask", 0, 255));
    app.add_flag("--json", options.json, "print only one JSON document on standard output, errors included");
    app.add_option("--wait", options.waitSeconds,
                   "seconds to wait for a running update (and the tools it started) before giving up (lock-busy)")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(WholeNumber("a whole number of seconds", 0, 86400));
    app.add_flag("--allow-unsigned", options.allowUnsigned,
                 "accept a repository without a valid signature (labs only; loudly warned, recorded in the history)");
    app.add_flag("--allow-downgrade", options.allowDowngrade,
                 "update a module whose adapter is newer than the repository to the older version (recorded in the "
                 "history)");
}

// "--out DIR", or "FILE" for a positional argument.
std::string OptionLabel(const CLI::Option& option) {
    const std::string name = option.get_name(), type = option.get_type_name();
    if (!option.nonpositional()) return type.empty() ? name : type;
    return type.empty() ? name : name + " " + type;
}

// "  --wait SECONDS          meaning (default 0)": one global option in a command's help.
std::string GlobalOptionLine(const CLI::App& app, const std::string& name) {
    const CLI::Option* option = app.get_option_no_throw(name);
    if (!option) return "";
    const std::string label = OptionLabel(*option);
    const std::string fallback = option->get_default_str();
    char line[512];
    std::snprintf(line, sizeof line, "  %-22s %s%s\n", label.c_str(), option->get_description().c_str(),
                  fallback.empty() ? "" : (" (default " + fallback + ")").c_str());
    return line;
}

// What a command's --help adds after its own options: the global options it
// reads, with their defaults, and the exit codes it can answer.
std::string CommandFooter(const CLI::App& app, const Command& command) {
    std::string text = "Global options (before or after the command):\n";
    for (const std::string& name : command.scope.globalOptions) text += GlobalOptionLine(app, name);
    std::vector<int> codes = {kExitOk, kExitInternal, kExitUsage};
    codes.insert(codes.end(), command.scope.exitCodes.begin(), command.scope.exitCodes.end());
    return text + "\n" + ExitCodeHelp(codes);
}

// Every command of the table as a subcommand, with its own options.
std::vector<std::pair<CLI::App*, const Command*>> AddCommands(CLI::App& app, Options& options) {
    std::vector<std::pair<CLI::App*, const Command*>> commands;
    for (const Command& command : CommandTable()) {
        CLI::App* subcommand = app.add_subcommand(command.name, command.help);
        if (command.addOptions) command.addOptions(*subcommand, options);
        const std::string footer = CommandFooter(app, command);
        subcommand->footer(footer);
        for (CLI::App* nested : subcommand->get_subcommands({})) nested->footer(footer);  // trust add ...
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

// The subcommand the line went deepest into ("trust add"), or the app itself.
const CLI::App* DeepestCommand(const CLI::App& app, std::string* path) {
    const CLI::App* deepest = &app;
    *path = "qdmhost";
    for (bool found = true; found;) {
        found = false;
        for (const CLI::App* sub : deepest->get_subcommands({}))
            if (sub->parsed()) {
                deepest = sub;
                *path += " " + sub->get_name();
                found = true;
                break;
            }
    }
    return deepest;
}

std::string SubcommandNames(const CLI::App& app) {
    std::string names;
    for (const CLI::App* sub : app.get_subcommands({})) names += (names.empty() ? "" : ", ") + sub->get_name();
    return names;
}

// The text after "NAME: " of a CLI11 message, or the whole of it.
std::string AfterOptionName(const std::string& text) {
    std::size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

// A command-line error as the operator needs it: the offending word and what
// was expected, then where to read more.
std::string UsageMessage(const CLI::ParseError& error, CLI::App& app) {
    std::string path;
    const CLI::App* deepest = DeepestCommand(app, &path);
    const std::string text = error.what();
    const std::vector<std::string> stray = app.remaining(true);
    const std::string word = stray.empty() ? "" : stray.front();
    const std::string hint = " (see '" + path + " --help')";
    const bool extra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const bool required = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    const bool wantsCommand = !deepest->get_subcommands({}).empty() && (word.empty() || word[0] != '-');
    if (wantsCommand && (extra || text.rfind("A subcommand", 0) == 0))
        return (word.empty() ? "no command given" : "unknown command '" + word + "'") + ": expected one of " +
               SubcommandNames(*deepest) + hint;
    if (extra && !word.empty())
        return (word[0] == '-' ? "unknown option '" + word + "'" : "unexpected argument '" + word + "'") + " for " +
               path + hint;
    const std::string name = text.substr(0, text.find(required ? " is required" : ":"));
    const CLI::Option* option = deepest->get_option_no_throw(name);
    if (!option) option = app.get_option_no_throw(name);
    const std::string expected = option ? option->get_description() : "";
    if (required)
        return path + " needs " + (option ? OptionLabel(*option) : name) + (expected.empty() ? "" : ": " + expected) +
               hint;
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error))
        return name + " needs a value" + (option ? ": " + option->get_type_name() + ", " + expected : "") + hint;
    if (dynamic_cast<const CLI::ValidationError*>(&error) || dynamic_cast<const CLI::ConversionError*>(&error))
        return name + ": " + AfterOptionName(text) + hint;
    return text + hint;
}

}  // namespace

// No description: the help shows the option's own words.
CLI::Validator WholeNumber(const std::string& what, int low, int high) {
    return CLI::Validator(
        [=](std::string& value) -> std::string {
            const bool digits =
                !value.empty() && value.size() <= 9 &&
                std::all_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c); });
            if (digits && std::stol(value) >= low && std::stol(value) <= high) return "";
            return "'" + value + "' is not " + what + " from " + std::to_string(low) + " to " + std::to_string(high);
        },
        "");
}

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
    } catch (const CLI::CallForVersion& request) {
        if (!run.json) return app.exit(request);
        PrintDocument(run, nlohmann::json::object(), kExitOk);  // the envelope names version and revision
        return kExitOk;
    } catch (const CLI::Success& request) {  // --help
        return app.exit(request);
    } catch (const CLI::ParseError& error) {
        run.command = ParsedCommand(commands);
        PrintError(run, kExitUsage, UsageMessage(error, app));
        return kExitUsage;
    }
    run.command = ParsedCommand(commands);
    for (const auto& entry : commands)
        if (entry.first->parsed()) return RunCommand(*entry.second, options, run);
    return kExitUsage;
}

}  // namespace qdmcli
