#include "cli/Options.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "model/HostError.h"

namespace qdmcli {

bool IsSafeHostPath(const std::string& path) {
    return !path.empty() && path[0] == '/' && path.size() < 1024 && path.find("..") == std::string::npos &&
           std::all_of(path.begin(), path.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '/' || c == '_' || c == '-' || c == '.'; });
}

namespace {

[[noreturn]] void RefusePath(const char* option, const std::string& path, const std::string& why, const char* reason) {
    throw HostError(kExitUsage, std::string(option) + " " + path + ": " + why, reason);
}

}  // namespace

void RequirePath(const char* option, const std::string& path, PathNeed need) {
    struct stat info;
    const bool folder = need != PathNeed::kFile;
    if (::stat(path.c_str(), &info) != 0)
        RefusePath(option, path, errno == ENOENT ? (folder ? "no such folder" : "no such file") : std::strerror(errno),
                   errno == ENOENT ? "missing" : "unreadable");
    if (folder && !S_ISDIR(info.st_mode)) RefusePath(option, path, "not a folder", "not-a-folder");
    if (!folder && !S_ISREG(info.st_mode)) RefusePath(option, path, "not a regular file", "not-a-file");
    if (need == PathNeed::kWritableFolder && ::access(path.c_str(), W_OK | X_OK) != 0)
        RefusePath(option, path, std::string("not writable (") + std::strerror(errno) + ")", "not-writable");
}

}  // namespace qdmcli
