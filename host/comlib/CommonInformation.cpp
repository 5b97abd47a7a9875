#include "CommonInformation.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <mutex>
#include <vector>

#include "CommandWords.h"
#include "HostSys.h"
#include "FileDescriptor.h"
#include "TraceUtility.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

std::mutex& OverrideMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& ArchitectureOverride() {
    static std::string machine;
    return machine;
}

// Owns the spawn attributes and file actions of one child.
class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
    posix_spawn_file_actions_t* actions() { return &actions_; }
    posix_spawnattr_t* attributes() { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// The child's own process group, default signal handling, stdin from
// /dev/null, stdout into the output file when there is one.
bool PrepareSpawn(SpawnSetup& setup, int outputFd, const std::string& workFolder) {
    sigset_t empty;
    sigset_t all;
    sigemptyset(&empty);
    sigfillset(&all);
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (posix_spawnattr_setflags(setup.attributes(), flags) != 0 ||
        posix_spawnattr_setpgroup(setup.attributes(), 0) != 0 ||
        posix_spawnattr_setsigmask(setup.attributes(), &empty) != 0 ||
        posix_spawnattr_setsigdefault(setup.attributes(), &all) != 0)
        return false;
    if (posix_spawn_file_actions_addopen(setup.actions(), STDIN_FILENO, "/dev/null", O_RDONLY, 0) != 0)
        return false;
    if (outputFd >= 0 && posix_spawn_file_actions_adddup2(setup.actions(), outputFd, STDOUT_FILENO) != 0)
        return false;
    return workFolder.empty() ||
           posix_spawn_file_actions_addchdir_np(setup.actions(), workFolder.c_str()) == 0;
}

// Opens (creating) and empties a plain file of its own. A symbolic or hard
// link could lead the output over any file, and a FIFO would block the open
// until a reader came; each is refused before anything is written.
FileDescriptor OpenOutputFile(const std::string& path) {
    FileDescriptor output(::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
    struct stat info;
    if (output.get() < 0 || ::fstat(output.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1 ||
        ::ftruncate(output.get(), 0) != 0)
        return FileDescriptor();
    return output;
}

unsigned long ExitStatus(int status) {
    if (WIFEXITED(status)) return static_cast<unsigned long>(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return 128UL + static_cast<unsigned long>(WTERMSIG(status));
    return 255UL;
}

pid_t WaitForChild(pid_t pid, int* status, int options) {
    pid_t result;
    do {
        result = ::waitpid(pid, status, options);
    } while (result < 0 && errno == EINTR);
    return result;
}

Clock::duration ScaledTimeout(unsigned long timeoutMs) {
    // Capped at about 30 years so the deadline arithmetic cannot overflow.
    double scaled = std::min(static_cast<double>(timeoutMs) * qdmhost::GetTimeoutScale(), 1e12);
    return std::chrono::microseconds(static_cast<long long>(std::llround(scaled * 1000.0)));
}

enum class WaitResult { Reaped, TimedOut, Lost };

// Waits for the child until the deadline. Sleeps in poll() on a pidfd, or in
// short real pauses where pidfds are missing.
WaitResult WaitUntil(pid_t pid, Clock::time_point deadline, int* status) {
    FileDescriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    for (;;) {
        pid_t reaped = WaitForChild(pid, status, WNOHANG);
        if (reaped == pid) return WaitResult::Reaped;
        if (reaped < 0) return WaitResult::Lost;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return WaitResult::TimedOut;
        int pauseMs = static_cast<int>(std::min<long long>(left.count() + 1, 1000));
        if (pidfd.get() >= 0) {
            struct pollfd entry = {pidfd.get(), POLLIN, 0};
            ::poll(&entry, 1, pauseMs);
        } else {
            struct timespec pause = {0, static_cast<long>(std::min(pauseMs, 10)) * 1000000L};
            ::nanosleep(&pause, nullptr);
        }
    }
}

// Waits without limit when the time-out is all ones.
WaitResult WaitForExit(pid_t pid, unsigned long timeoutMs, int* status) {
    if (timeoutMs == CCommon_Information::NO_TIMEOUT)
        return WaitForChild(pid, status, 0) == pid ? WaitResult::Reaped : WaitResult::Lost;
    return WaitUntil(pid, Clock::now() + ScaledTimeout(timeoutMs), status);
}

void KillGroupAndReap(pid_t pid) {
    ::kill(-pid, SIGKILL);
    int status = 0;
    WaitForChild(pid, &status, 0);
}

// Parses a hexadecimal field of 1..maxDigits digits no larger than maxValue.
bool ParseHexField(const std::string& text, size_t maxDigits, int maxValue, int* value) {
    if (text.empty() || text.size() > maxDigits) return false;
    int result = 0;
    for (char c : text) {
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return false;
        result = result * 16 + digit;
    }
    if (result > maxValue) return false;
    *value = result;
    return true;
}

// "[dddd:]bb:dd.f" as lspci -s takes it.
bool ParsePciAddress(const std::string& address, int* bus, int* device, int* function) {
    size_t lastColon = address.rfind(':');
    size_t dot = address.find('.');
    if (lastColon == std::string::npos || dot == std::string::npos || dot < lastColon) return false;
    std::string head = address.substr(0, lastColon);
    size_t domainColon = head.find(':');
    int domain = 0;
    if (domainColon != std::string::npos &&
        !ParseHexField(head.substr(0, domainColon), 4, 0xffff, &domain))
        return false;
    std::string busText = domainColon == std::string::npos ? head : head.substr(domainColon + 1);
    return ParseHexField(busText, 2, 0xff, bus) &&
           ParseHexField(address.substr(lastColon + 1, dot - lastColon - 1), 2, 31, device) &&
           ParseHexField(address.substr(dot + 1), 1, 7, function);
}

// A line without shell syntax runs as its own words, sparing a shell per
// tool call. A program that cannot be run so (missing, not executable, a
// script without "#!") is left to the shell, which gives the same exit codes
// and messages as ever.
bool SpawnDirectly(pid_t* pid, const std::string& command, SpawnSetup& setup) {
    std::vector<std::string> words = qdmhost::PlainCommandWords(command);
    if (words.empty()) return false;
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    argv.push_back(nullptr);
    return ::posix_spawnp(pid, argv[0], setup.actions(), setup.attributes(), argv.data(), environ) == 0;
}

bool SpawnShell(pid_t* pid, const std::string& command, SpawnSetup& setup) {
    const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    return ::posix_spawn(pid, "/bin/sh", setup.actions(), setup.attributes(), const_cast<char* const*>(argv),
                         environ) == 0;
}

bool IsRetryableUnlinkError(int error) { return error == EBUSY || error == ETXTBSY || error == EAGAIN; }

}  // namespace

int CCommon_Information::ExecForeignModule(const std::string& command, const std::string& outputFile,
                                           const std::string& workFolder, unsigned long* returnCode,
                                           unsigned long timeoutMs) {
    FileDescriptor output = outputFile.empty() ? FileDescriptor() : OpenOutputFile(outputFile);
    if (!outputFile.empty() && output.get() < 0) return EXEC_NOT_STARTED;
    SpawnSetup setup;
    if (!PrepareSpawn(setup, output.get(), workFolder)) return EXEC_NOT_STARTED;

    pid_t pid = -1;
    if (!SpawnDirectly(&pid, command, setup) && !SpawnShell(&pid, command, setup)) return EXEC_NOT_STARTED;

    int status = 0;
    switch (WaitForExit(pid, timeoutMs, &status)) {
    case WaitResult::Reaped:
        break;
    case WaitResult::TimedOut:
        KillGroupAndReap(pid);
        return EXEC_TIMEOUT;
    case WaitResult::Lost:  // someone else reaped it (SIGCHLD ignored): no status to give
        return EXEC_NOT_STARTED;
    }
    if (returnCode) *returnCode = ExitStatus(status);
    return EXEC_OK;
}

// The shell command runner of the whole process, the provider's included:
// the C library's system() but for one thing. glibc's sets SIGINT and SIGQUIT
// to "ignore" while the command runs, which discards a SIGINT that an update
// host keeps blocked and has not taken yet; this one leaves the caller's
// signal dispositions and mask alone, so the command inherits them.
extern "C" int system(const char* command) {
    if (!command) return 1;  // a shell is there
    const char* argv[] = {"sh", "-c", command, nullptr};
    pid_t pid = -1;
    if (::posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0) return -1;
    int status = 0;
    return WaitForChild(pid, &status, 0) == pid ? status : -1;
}

bool CCommon_Information::GetPCIInfo(std::string deviceId, int* bus, int* device, int* function,
                                     const std::string& traceFile) {
    int parsedBus = 0;
    int parsedDevice = 0;
    int parsedFunction = 0;
    if (!ParsePciAddress(deviceId.substr(0, deviceId.find('-')), &parsedBus, &parsedDevice,
                         &parsedFunction)) {
        CTraceUtility::WriteDebug(traceFile.c_str(), CTraceUtility::TRACE_ERROR,
                                  "GetPCIInfo: malformed device identifier [%s]", deviceId.c_str());
        return false;
    }
    if (bus) *bus = parsedBus;
    if (device) *device = parsedDevice;
    if (function) *function = parsedFunction;
    return true;
}

std::string CCommon_Information::GetArchitectureInfo(const std::string& traceFile) {
    {
        std::lock_guard<std::mutex> lock(OverrideMutex());
        if (!ArchitectureOverride().empty()) return ArchitectureOverride();
    }
    struct utsname names;
    if (::uname(&names) != 0) {
        CTraceUtility::WriteDebug(traceFile.c_str(), CTraceUtility::TRACE_ERROR,
                                  "GetArchitectureInfo: uname failed (errno %d)", errno);
        return "";
    }
    return names.machine;
}

void CCommon_Information::SetArchitectureOverride(const std::string& machine) {
    std::lock_guard<std::mutex> lock(OverrideMutex());
    ArchitectureOverride() = machine;
}

bool CCommon_Information::RetryDeleteFile(const std::string& path) {
    const int attempts = 5;
    for (int attempt = 1;; ++attempt) {
        if (::unlink(path.c_str()) == 0 || errno == ENOENT) return true;
        if (!IsRetryableUnlinkError(errno) || attempt == attempts) return false;
        Sleep(100);
    }
}
