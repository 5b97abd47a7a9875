#include "store/UpdateLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "HostSys.h"
#include "cli/Console.h"
#include "model/HostError.h"

namespace qdmcli {

namespace {

const unsigned long kPollMs = 200;

bool TryLock(int fd) {
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        if (errno != EINTR) return false;
    return true;
}

}  // namespace

UpdateLock::UpdateLock(const std::string& root, int waitSeconds) : fd_(-1) {
    std::string path = PathFor(root);
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd_ < 0) throw HostError(kExitInternal, "cannot open " + path + ": " + std::strerror(errno));
    if (TryLock(fd_)) return;
    if (waitSeconds > 0)
        Progress("another qdmhost update holds " + root + "; waiting up to " + std::to_string(waitSeconds) + "s");
    for (long polls = static_cast<long>(waitSeconds) * 1000 / static_cast<long>(kPollMs); polls > 0; --polls) {
        Sleep(kPollMs);
        if (TryLock(fd_)) return;
    }
    ::close(fd_);
    throw HostError(kExitLockBusy, "another qdmhost update is running on " + root + " (lock " + path +
                                       "); try again later or use --wait SECONDS");
}

UpdateLock::~UpdateLock() { ::close(fd_); }

}  // namespace qdmcli
