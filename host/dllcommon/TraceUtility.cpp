#include "TraceUtility.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "InstallRoot.h"

namespace {

const size_t kMaxLine = 4096;

struct TraceState {
    std::mutex mutex;
    unsigned levelMask = CTraceUtility::TRACE_INFO | CTraceUtility::TRACE_ERROR |
                         CTraceUtility::TRACE_CLEANUP;
    bool capturing = false;
    std::vector<CTraceUtility::DebugLine> debug;
    std::vector<CTraceUtility::Message> messages;
    std::function<void(const std::string&, const std::string&)> sink;
};

TraceState& State() {
    static TraceState state;
    return state;
}

std::string Timestamp() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    char text[64];
    size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof text - length, ".%03ld",
                  static_cast<long>(now.tv_usec / 1000));
    return text;
}

// Opens <root>/log/NAME for appending. The folder is made when the open
// finds it missing (not tried on every line), never the root itself: a line
// traced after the root was removed is dropped.
int OpenLog(const std::string& name) {
    const std::string folder = qdmhost::InstallRoot() + "/log";
    const std::string path = folder + "/" + name;
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW;
    int fd = ::open(path.c_str(), flags, 0644);
    if (fd < 0 && errno == ENOENT && (::mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST))
        fd = ::open(path.c_str(), flags, 0644);
    return fd;
}

// One open-append-close per line; a log that cannot be opened drops the line.
void AppendLine(const std::string& name, const std::string& line) {
    int fd = OpenLog(name);
    if (fd < 0) return;
    std::string text = line + "\n";
    const char* data = text.data();
    size_t left = text.size();
    while (left > 0) {
        ssize_t written = ::write(fd, data, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        data += written;
        left -= static_cast<size_t>(written);
    }
    ::close(fd);
}

std::string FileName(const char* file) { return file && *file ? file : "trace"; }

}  // namespace

void CTraceUtility::WriteDebug(const char* file, TRACE_DBG_LEVEL level, const char* format, ...) {
    char buffer[kMaxLine];
    buffer[0] = '\0';
    if (format) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
    }
    TraceState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.capturing) state.debug.push_back({FileName(file), static_cast<int>(level), buffer});
    if ((state.levelMask & static_cast<unsigned>(level)) == 0) return;
    AppendLine(FileName(file) + ".log",
               Timestamp() + " [" + std::to_string(static_cast<int>(level)) + "] " + buffer);
}

void CTraceUtility::WriteTraceList(const char* file, const char* messageId,
                                   const std::vector<std::string>& inserts) {
    std::string id = messageId ? messageId : "";
    std::string text = FormatMessage(id, inserts);
    std::function<void(const std::string&, const std::string&)> sink;
    {
        TraceState& state = State();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (state.capturing) state.messages.push_back({FileName(file), id, inserts});
        AppendLine(FileName(file) + "_messages.log",
                   Timestamp() + " " + id + ": " + text);
        sink = state.sink;
    }
    // Outside the lock: the sink may trace in turn.
    if (sink) sink(id, text);
}

void CTraceUtility::SetLevelMask(unsigned mask) {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().levelMask = mask;
}

unsigned CTraceUtility::GetLevelMask() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().levelMask;
}

void CTraceUtility::SetMessageSink(
    std::function<void(const std::string& id, const std::string& text)> sink) {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().sink = std::move(sink);
}

void CTraceUtility::StartCapture() {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().capturing = true;
}

void CTraceUtility::StopCapture() {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().capturing = false;
}

std::vector<CTraceUtility::DebugLine> CTraceUtility::CapturedDebug() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().debug;
}

std::vector<CTraceUtility::Message> CTraceUtility::CapturedMessages() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().messages;
}

void CTraceUtility::ClearCapture() {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().debug.clear();
    State().messages.clear();
}
