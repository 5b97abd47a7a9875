#include "MutexUtil.h"

#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "FileUtility.h"

namespace {

// Lock names become file names: no folder separators.
std::string LockFilePath(const char* name) {
    std::string base = name && *name ? name : "default";
    for (char& c : base)
        if (c == '/') c = '_';
    if (base == "." || base == "..") base = "default";
    return CFileUtility::GetInstallPath(0) + "/tmp/qdm_locks/" + base + ".lock";
}

int FlockRetrying(int fd, int operation) {
    int result;
    do {
        result = ::flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Tries the lock until the deadline, pausing briefly between attempts
// (flock has no timed wait).
bool LockBefore(int fd, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        if (FlockRetrying(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline) return false;
        struct timespec pause = {0, 5 * 1000000L};
        ::nanosleep(&pause, nullptr);
    }
}

}  // namespace

CMutexUtil::CMutexUtil() : fd_(-1), locked_(false) {}

CMutexUtil::~CMutexUtil() {
    Unlock();
    if (fd_ >= 0) ::close(fd_);
}

int CMutexUtil::Create(int initialOwner, const char* name, int* error) {
    if (error) *error = 0;
    if (fd_ >= 0) {
        Unlock();
        ::close(fd_);
        fd_ = -1;
    }
    std::string path = LockFilePath(name);
    if (!CFileUtility::CreateFolder(path.substr(0, path.rfind('/')))) {
        if (error) *error = errno ? errno : EIO;
        return 0;
    }
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd_ < 0) {
        if (error) *error = errno;
        return 0;
    }
    if (initialOwner && !Lock(INFINITE_WAIT)) {
        if (error) *error = errno;
        return 0;
    }
    return 1;
}

int CMutexUtil::Lock(int timeoutMs) {
    if (fd_ < 0) return 0;
    if (locked_) return 1;
    if (timeoutMs < 0)
        locked_ = FlockRetrying(fd_, LOCK_EX) == 0;
    else
        locked_ = LockBefore(fd_, std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs));
    return locked_ ? 1 : 0;
}

void CMutexUtil::Unlock() {
    if (fd_ < 0 || !locked_) return;
    FlockRetrying(fd_, LOCK_UN);
    locked_ = false;
}
