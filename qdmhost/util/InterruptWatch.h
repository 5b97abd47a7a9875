#pragma once
// SIGINT, SIGTERM and SIGHUP during an update: noted, announced, never
// allowed to cut a step short. They are blocked and ignored in the process,
// so the tools the provider starts through system() (rpm, depmod, the
// utility's scripts) inherit them ignored: Ctrl-C and a hang-up reach the
// whole foreground group, and a shell would unblock a blocked one. Blocked
// signals are queued even when ignored; one thread takes them with sigwait.
// The host layer's system() keeps glibc's from discarding a queued SIGINT.
#include <atomic>
#include <string>
#include <thread>

namespace qdmcli {

class InterruptWatch {
public:
    // Call before any other thread exists: threads inherit the mask.
    InterruptWatch();
    // Stops the watcher. The signals stay blocked and ignored: one that
    // comes late must not kill a run that is writing its record.
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // Whether a signal asked the run to stop; its name ("SIGINT").
    static bool Requested();
    static std::string SignalName();

private:
    void Watch();

    std::atomic<bool> stop_{false};
    std::thread watcher_;
};

}  // namespace qdmcli
