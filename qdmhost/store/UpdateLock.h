#pragma once
// One update at a time per install root: an flock on <root>/tmp/qdmhost.lock.
// The kernel drops the lock with the process, so a killed run never blocks
// the next one; the file itself may stay.
#include <string>

namespace qdmcli {

class UpdateLock {
public:
    // Waits up to waitSeconds (polling through the host's pause), then
    // throws HostError (lock-busy).
    UpdateLock(const std::string& root, int waitSeconds);
    ~UpdateLock();
    UpdateLock(const UpdateLock&) = delete;
    UpdateLock& operator=(const UpdateLock&) = delete;

    static std::string PathFor(const std::string& root) { return root + "/tmp/qdmhost.lock"; }

private:
    int fd_;
};

}  // namespace qdmcli
