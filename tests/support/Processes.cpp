#include "Processes.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "TestEnv.h"

namespace qdmtest {

namespace {

// The NUL-separated fields of a /proc file.
std::vector<std::string> Fields(const std::string& path) {
    std::vector<std::string> fields;
    std::string text = ReadFile(path);
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\0', start);
        if (end == std::string::npos) end = text.size();
        fields.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
    return line;
}

bool IsPidName(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); });
}

}  // namespace

std::vector<ProcessInfo> ProcessesWithEnvironment(const std::string& assignment) {
    std::vector<ProcessInfo> found;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
        std::string name = it->path().filename().string();
        if (!IsPidName(name)) continue;
        pid_t pid = static_cast<pid_t>(std::stol(name));
        if (pid == ::getpid()) continue;
        std::vector<std::string> environment = Fields("/proc/" + name + "/environ");
        if (std::find(environment.begin(), environment.end(), assignment) != environment.end())
            found.push_back({pid, Joined(Fields("/proc/" + name + "/cmdline"))});
    }
    return found;
}

}  // namespace qdmtest
