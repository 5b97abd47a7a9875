#include "cli/Cli.h"

int main(int argc, char** argv) { return qdmcli::RunCli(argc, argv); }
