#include "TreeSnapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace qdmtest {

namespace {

// Larger files (toolchains under /opt) are identified by size and times
// instead: hashing them on every snapshot would cost seconds, and the
// change time cannot be set back by whoever wrote them.
const off_t kHashedSizeLimit = 4 << 20;

uint64_t ContentHash(const std::string& path) {
    uint64_t hash = 14695981039346656037ULL;  // FNV-1a
    int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return 0;
    char buffer[65536];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
        for (ssize_t i = 0; i < got; ++i) hash = (hash ^ static_cast<unsigned char>(buffer[i])) * 1099511628211ULL;
    ::close(fd);
    return hash;
}

std::string Nanoseconds(const struct timespec& time) {
    return std::to_string(static_cast<long long>(time.tv_sec) * 1000000000LL + time.tv_nsec);
}

std::string RegularFileFingerprint(const std::string& path, const struct stat& info) {
    std::string sized = "file " + std::to_string(info.st_size);
    if (info.st_size > kHashedSizeLimit)
        return sized + " modified " + Nanoseconds(info.st_mtim) + " changed " + Nanoseconds(info.st_ctim);
    return sized + " hash " + std::to_string(ContentHash(path));
}

std::string Fingerprint(const std::string& path, const struct stat& info) {
    switch (info.st_mode & S_IFMT) {
    case S_IFREG:
        return RegularFileFingerprint(path, info);
    case S_IFDIR:
        return "folder";  // its entries are recorded one by one
    case S_IFLNK: {
        std::error_code error;
        return "link -> " + fs::read_symlink(path, error).string();
    }
    case S_IFIFO:
        return "fifo";
    case S_IFSOCK:
        return "socket";
    default:
        return "device " + std::to_string(info.st_rdev);
    }
}

bool IsExcluded(const std::string& path, const std::vector<std::string>& excluded) {
    return std::any_of(excluded.begin(), excluded.end(),
                       [&](const std::string& prefix) { return path == prefix || path.rfind(prefix + "/", 0) == 0; });
}

void Record(const std::string& path, const std::vector<std::string>& excluded,
            std::map<std::string, std::string>& entries) {
    struct stat info;
    if (IsExcluded(path, excluded) || ::lstat(path.c_str(), &info) != 0) return;
    entries[path] = Fingerprint(path, info);
    if (!S_ISDIR(info.st_mode)) return;
    std::error_code error;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        Record(it->path().string(), excluded, entries);
}

}  // namespace

TreeSnapshot TreeSnapshot::Take(const std::vector<std::string>& roots, const std::vector<std::string>& excluded) {
    TreeSnapshot snapshot;
    for (const std::string& root : roots) Record(root, excluded, snapshot.entries_);
    return snapshot;
}

std::vector<std::string> TreeSnapshot::ChangesUntil(const TreeSnapshot& later) const {
    std::vector<std::string> changes;
    for (const auto& [path, before] : entries_) {
        auto after = later.entries_.find(path);
        if (after == later.entries_.end())
            changes.push_back("removed " + path);
        else if (after->second != before)
            changes.push_back("changed " + path + ": " + before + " => " + after->second);
    }
    for (const auto& [path, after] : later.entries_)
        if (entries_.count(path) == 0) changes.push_back("added " + path + " (" + after + ")");
    return changes;
}

}  // namespace qdmtest
