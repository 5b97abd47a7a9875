#include "store/UpdateLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "cli/Console.h"
#include "model/HostError.h"

namespace qdmcli {

namespace {

const unsigned long kPollMs = 200;

bool TryLock(int fd, int operation) {
    while (::flock(fd, operation | LOCK_NB) != 0)
        if (errno != EINTR) return false;
    return true;
}

bool SameFile(const std::string& path, const struct stat& wanted) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && info.st_dev == wanted.st_dev && info.st_ino == wanted.st_ino;
}

std::string CommandName(const std::string& pid) {
    std::ifstream in("/proc/" + pid + "/comm");
    std::string name;
    std::getline(in, name);
    return name;
}

// The lock file; a reader of a root it cannot write opens it read-only, and
// finds none where none could be made: then no update can run there either.
int OpenLockFile(const std::string& path, int flags) {
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | flags, 0644);
    return fd >= 0 || (errno != EROFS && errno != EACCES) ? fd : ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | flags);
}

bool HoldsFile(const std::string& pid, const struct stat& wanted) {
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc/" + pid + "/fd", error), end; !error && it != end;
         it.increment(error))
        if (SameFile(it->path().string(), wanted)) return true;
    return false;
}

}  // namespace

std::string ProcessesHolding(const std::string& path) {
    struct stat wanted;
    if (::stat(path.c_str(), &wanted) != 0) return "";
    const std::string self = std::to_string(::getpid());
    std::string holders;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
        const std::string pid = it->path().filename().string();
        if (pid.find_first_not_of("0123456789") != std::string::npos || pid == self || !HoldsFile(pid, wanted))
            continue;
        holders += (holders.empty() ? "" : ", ") + ("pid " + pid + " (" + CommandName(pid) + ")");
    }
    return holders;
}

// Not closed on exec: the tools the run starts keep the lock with them.
UpdateLock::UpdateLock(const std::string& root, int waitSeconds, Mode mode) : fd_(-1) {
    const std::string path = PathFor(root);
    const int operation = mode == Mode::kUpdate ? LOCK_EX : LOCK_SH;
    fd_ = mode == Mode::kRead ? OpenLockFile(path, 0) : ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0644);
    if (fd_ < 0 && mode == Mode::kRead && errno == ENOENT) return;
    if (fd_ < 0) throw HostError(kExitInternal, "cannot open " + path + ": " + std::strerror(errno));
    if (TryLock(fd_, operation)) return;
    if (waitSeconds > 0)
        Progress("an update of " + root + " is running; waiting up to " + std::to_string(waitSeconds) + "s");
    for (long polls = static_cast<long>(waitSeconds) * 1000 / static_cast<long>(kPollMs); polls > 0; --polls) {
        // Real time even under virtual time: the holder is another process.
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        if (TryLock(fd_, operation)) return;
    }
    ::close(fd_);
    const std::string holders = ProcessesHolding(path);
    throw HostError(kExitLockBusy, std::string(mode == Mode::kUpdate ? "another qdmhost update" : "an update") +
                                       " is running on " + root + " (lock " + path +
                                       (holders.empty() ? "" : ", held by " + holders) +
                                       "); try again later or use --wait SECONDS");
}

UpdateLock::~UpdateLock() {
    if (fd_ >= 0) ::close(fd_);
}

void UpdateLock::WhileNoUpdateRuns(const std::string& root, const std::function<void()>& action) {
    const std::string path = PathFor(root);
    int fd = OpenLockFile(path, O_CLOEXEC);
    if (fd < 0) return;
    if (TryLock(fd, LOCK_SH)) action();
    ::close(fd);
}

}  // namespace qdmcli
