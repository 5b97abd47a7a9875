#pragma once
// The qdmhost command line: parses it, runs one command, prints its result
// (a table, or JSON only with --json) and answers the exit code.
namespace qdmcli {

int RunCli(int argc, char** argv);

}  // namespace qdmcli
