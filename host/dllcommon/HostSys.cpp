#include "HostSys.h"

#include <time.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cwchar>
#include <mutex>

#include "InstallRoot.h"

namespace {

std::mutex& HostMutex() {
    static std::mutex mutex;
    return mutex;
}

std::function<void(unsigned long)>& SleepHook() {
    static std::function<void(unsigned long)> hook;
    return hook;
}

std::function<void(const std::string&)>& MessageSink() {
    static std::function<void(const std::string&)> sink;
    return sink;
}

std::atomic<bool> durableWrites{true};

double& TimeoutScale() {
    static double scale = 1.0;
    return scale;
}

std::string& Root() {
    static std::string root = "/opt/velmora/qdm/provider";
    return root;
}

void RealSleep(unsigned long milliseconds) {
    struct timespec wanted;
    wanted.tv_sec = static_cast<time_t>(milliseconds / 1000);
    wanted.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&wanted, &wanted) != 0 && errno == EINTR) {
    }
}

// Wide text to narrow, character by character, so that an unconvertible
// character costs one "?" instead of the whole text.
std::string Narrow(const wchar_t* text) {
    std::string out;
    if (!text) return out;
    std::mbstate_t state{};
    char buffer[MB_LEN_MAX];
    for (; *text; ++text) {
        size_t length = std::wcrtomb(buffer, *text, &state);
        if (length == static_cast<size_t>(-1)) {
            out += '?';
            state = std::mbstate_t{};
        } else {
            out.append(buffer, length);
        }
    }
    return out;
}

void Show(const std::string& line) {
    std::function<void(const std::string&)> sink;
    {
        std::lock_guard<std::mutex> lock(HostMutex());
        sink = MessageSink();
    }
    if (sink)
        sink(line);
    else
        std::fprintf(stderr, "%s\n", line.c_str());
}

std::string Compose(const wchar_t* text, const std::string& argument) {
    std::string line = Narrow(text);
    if (!argument.empty()) line += " " + argument;
    return line;
}

}  // namespace

void Sleep(unsigned long milliseconds) {
    std::function<void(unsigned long)> hook;
    {
        std::lock_guard<std::mutex> lock(HostMutex());
        hook = SleepHook();
    }
    if (hook)
        hook(milliseconds);
    else
        RealSleep(milliseconds);
}

void ShowMessage(const wchar_t* text, const char* argument) {
    Show(Compose(text, argument ? argument : ""));
}

void ShowMessage(const wchar_t* text, const wchar_t* argument) { Show(Compose(text, Narrow(argument))); }

namespace qdmhost {

void SetSleepHook(std::function<void(unsigned long)> hook) {
    std::lock_guard<std::mutex> lock(HostMutex());
    SleepHook() = std::move(hook);
}

void SetTimeoutScale(double scale) {
    std::lock_guard<std::mutex> lock(HostMutex());
    TimeoutScale() = scale > 0 ? scale : 1.0;
}

double GetTimeoutScale() {
    std::lock_guard<std::mutex> lock(HostMutex());
    return TimeoutScale();
}

void SetShowMessageSink(std::function<void(const std::string&)> sink) {
    std::lock_guard<std::mutex> lock(HostMutex());
    MessageSink() = std::move(sink);
}

void SetDurableWrites(bool durable) { durableWrites = durable; }

bool DurableWrites() { return durableWrites; }

std::string InstallRoot() {
    std::lock_guard<std::mutex> lock(HostMutex());
    return Root();
}

void SetInstallRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(HostMutex());
    Root() = root;
}

}  // namespace qdmhost
