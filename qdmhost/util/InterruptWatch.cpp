#include "util/InterruptWatch.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>

#include "cli/Console.h"

namespace qdmcli {

namespace {

std::atomic<int> g_signal{0};

sigset_t StopSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    return set;
}

// Every signal says the same, so a second Ctrl-C only repeats it.
void Announce(int signal) {
    const std::string activity = CurrentActivity();
    Progress(std::string("SIG") + sigabbrev_np(signal) + " received: " +
             (activity.empty() ? "stopping before the next step" : "finishing " + activity + ", then stopping") +
             "; the remaining modules are skipped (exit 12)");
}

}  // namespace

InterruptWatch::InterruptWatch() {
    const sigset_t set = StopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &ignore, nullptr);
    watcher_ = std::thread([this] { Watch(); });
}

InterruptWatch::~InterruptWatch() {
    stop_ = true;
    watcher_.join();
}

void InterruptWatch::Watch() {
    const sigset_t set = StopSignals();
    const struct timespec pause = {0, 50 * 1000 * 1000};
    while (!stop_) {
        int signal = sigtimedwait(&set, nullptr, &pause);
        if (signal <= 0) continue;
        int none = 0;
        g_signal.compare_exchange_strong(none, signal);
        Announce(signal);
    }
}

bool InterruptWatch::Requested() { return g_signal.load() != 0; }

std::string InterruptWatch::SignalName() {
    int signal = g_signal.load();
    return signal ? std::string("SIG") + sigabbrev_np(signal) : "";
}

}  // namespace qdmcli
