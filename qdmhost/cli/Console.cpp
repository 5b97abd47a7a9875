#include "cli/Console.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "HostSys.h"
#include "TraceUtility.h"

namespace qdmcli {

namespace {

struct ConsoleState {
    std::mutex mutex;
    std::string activity;
    std::vector<OperatorMessage> messages;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

ConsoleState& State() {
    static ConsoleState state;
    return state;
}

// A hung tool is still killed within a second (60 s become 600 ms), while a
// tool that merely starts slowly on a loaded machine is not cut off.
const double kVirtualTimeoutScale = 0.01;
// Shorter pauses (retries of a file deletion, lock polls) are not worth a line.
const unsigned long kAnnouncedPauseMs = 1000;

void AnnouncePause(unsigned long milliseconds, bool virtualTime) {
    if (milliseconds < kAnnouncedPauseMs) return;
    const std::string activity = CurrentActivity();
    Progress("waiting " + std::to_string(milliseconds / 1000) + "s for " +
             (activity.empty() ? std::string("the provider") : activity) + (virtualTime ? " (virtual time)" : ""));
}

void ReceiveOperatorMessage(const std::string& id, const std::string& text) {
    {
        std::lock_guard<std::mutex> lock(State().mutex);
        State().messages.push_back({id, text});
    }
    std::fprintf(stderr, "qdmhost: message %s: %s\n", id.c_str(), text.c_str());
}

}  // namespace

bool VirtualTimeRequested() {
    const char* value = std::getenv("QDMHOST_VIRTUAL_TIME");
    return value && *value && std::string(value) != "0";
}

void InstallHostHooks(bool virtualTime) {
    qdmhost::SetSleepHook([virtualTime](unsigned long milliseconds) {
        AnnouncePause(milliseconds, virtualTime);
        if (!virtualTime) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    });
    qdmhost::SetTimeoutScale(virtualTime ? kVirtualTimeoutScale : 1.0);
    CTraceUtility::SetMessageSink(ReceiveOperatorMessage);
    // The factory's console lines are for the log, not for the operator.
    qdmhost::SetShowMessageSink([](const std::string& line) {
        CTraceUtility::WriteDebug("qdmhost", CTraceUtility::TRACE_INFO, "%s", line.c_str());
    });
}

void RemoveHostHooks() {
    qdmhost::SetSleepHook(nullptr);
    qdmhost::SetTimeoutScale(1.0);
    CTraceUtility::SetMessageSink(nullptr);
    qdmhost::SetShowMessageSink(nullptr);
}

void SetActivity(const std::string& activity) {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().activity = activity;
}

std::string CurrentActivity() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().activity;
}

double ElapsedSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - State().start).count();
}

void Progress(const std::string& text) {
    std::fprintf(stderr, "qdmhost: [%7.1fs] %s\n", ElapsedSeconds(), text.c_str());
}

void Warn(const std::string& text) { std::fprintf(stderr, "qdmhost: warning: %s\n", text.c_str()); }

std::vector<OperatorMessage> TakeOperatorMessages() {
    std::lock_guard<std::mutex> lock(State().mutex);
    std::vector<OperatorMessage> taken;
    taken.swap(State().messages);
    return taken;
}

}  // namespace qdmcli
