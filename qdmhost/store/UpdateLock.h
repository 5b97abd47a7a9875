#pragma once
// One update at a time per install root, and no reader of the adapters
// while it runs: an flock on <root>/tmp/qdmhost.lock, exclusive for an
// update, shared for a reader. The lock's open file is inherited by every
// process the run starts, so the lock lasts as long as the last of them: a
// killed run's orphaned tools still hold the root until they end.
#include <functional>
#include <string>

namespace qdmcli {

class UpdateLock {
public:
    enum class Mode { kUpdate, kRead };
    // Waits up to waitSeconds (polling in real time), then
    // throws HostError (lock-busy) naming the processes that hold it.
    UpdateLock(const std::string& root, int waitSeconds, Mode mode);
    ~UpdateLock();
    UpdateLock(const UpdateLock&) = delete;
    UpdateLock& operator=(const UpdateLock&) = delete;

    static std::string PathFor(const std::string& root) { return root + "/tmp/qdmhost.lock"; }
    // Runs `action` while no update (nor any process of one) holds the root;
    // does nothing when one does.
    static void WhileNoUpdateRuns(const std::string& root, const std::function<void()>& action);

private:
    int fd_;
};

// "pid 812 (hbacmd), pid 815 (sh)": the processes other than this one that
// hold the file open; empty when none can be seen.
std::string ProcessesHolding(const std::string& path);

}  // namespace qdmcli
