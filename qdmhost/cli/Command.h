#pragma once
// One entry of qdmhost's command table: its name, its help, its own options,
// how it runs and how its result is rendered. Each command defines its entry
// beside its code (commands/); the CLI only loops over the table.
#include <nlohmann/json.hpp>

#include <functional>
#include <string>

#include "cli/Options.h"
#include "model/ExitCodes.h"

namespace CLI {
class App;
}

namespace qdmcli {

// A command's rendered result: the fields of its --json document (the CLI
// adds the envelope) and its readable text.
struct CommandOutput {
    int exitCode = kExitOk;
    nlohmann::json document;
    std::string text;
};

// What a command's help and the man page say besides its own options: the
// global options it reads and the exit codes it can answer (0, 1 and 2,
// which every command can answer, need not be listed).
struct CommandScope {
    std::vector<std::string> globalOptions;
    std::vector<int> exitCodes;
};

// The global options of the commands that read the adapters.
inline std::vector<std::string> AdapterOptions() {
    return {"--root", "--repo",           "--provider",        "--port", "--trace-level",
            "--json", "--allow-unsigned", "--allow-downgrade", "--wait"};
}

struct Command {
    const char* name;
    const char* help;
    CommandScope scope;
    // Declares the command's own options and subcommands on its subcommand.
    std::function<void(CLI::App& command, Options& options)> addOptions;
    // Runs the command and renders its result. Throws HostError.
    std::function<CommandOutput(const Options& options)> run;
};

// What a command's run answers: its typed result and the exit code.
template <class Result>
struct Outcome {
    Result result;
    int exitCode = kExitOk;
};

// A command whose run answers a typed result, rendered by its JSON and text renderers.
template <class Result>
Command MakeCommand(const char* name, const char* help, CommandScope scope,
                    std::function<void(CLI::App&, Options&)> addOptions, Outcome<Result> (*run)(const Options&),
                    nlohmann::json (*json)(const Result&), std::string (*text)(const Result&)) {
    return {name, help, std::move(scope), std::move(addOptions), [run, json, text](const Options& options) {
                Outcome<Result> outcome = run(options);
                return CommandOutput{outcome.exitCode, json(outcome.result), text(outcome.result)};
            }};
}

}  // namespace qdmcli
