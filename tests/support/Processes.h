#pragma once
// Finds the processes that a test started, however deep below it, by a
// marker in their environment (children inherit it).
#include <sys/types.h>

#include <string>
#include <vector>

namespace qdmtest {

struct ProcessInfo {
    pid_t pid;
    std::string commandLine;  // arguments joined by blanks
};

// Every live process but this one whose environment holds `assignment`
// ("NAME=value"). Zombies are not listed: their environment is gone.
std::vector<ProcessInfo> ProcessesWithEnvironment(const std::string& assignment);

}  // namespace qdmtest
