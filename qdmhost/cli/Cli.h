#pragma once
// The qdmhost command line: parses it, runs one command, prints its result
// (a table, or JSON only with --json) and answers the exit code.
#include <CLI/CLI.hpp>

#include <string>

namespace qdmcli {

// A whole number from LOW to HIGH; the message names the word and what was
// expected, and the help shows no parser type.
CLI::Validator WholeNumber(const std::string& what, int low, int high);

int RunCli(int argc, char** argv);

}  // namespace qdmcli
