#include "TestEnv.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CommonInformation.h"
#include "FileUtility.h"
#include "HostSys.h"

namespace fs = std::filesystem;

namespace {
// 0 while the wall clock runs; set by the first SetFileAge of a test.
std::atomic<time_t> frozenNow{0};

time_t RealNow() {
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}
}  // namespace

// File ages are measured against time(). A test that ages a file freezes it,
// so that an age of 3599 s cannot turn into 3600 s while the test runs.
extern "C" time_t time(time_t* out) noexcept {
    time_t now = frozenNow.load();
    if (now == 0) now = RealNow();
    if (out != nullptr) *out = now;
    return now;
}

namespace qdmtest {

bool InSandbox() {
    return std::getenv("QDM_SANDBOX") && std::string(std::getenv("QDM_SANDBOX")) == "1";
}

VirtualClock::VirtualClock() {
    qdmhost::SetSleepHook([this](unsigned long ms) { sleeps_.push_back(ms); });
    // 60 s become 600 ms: a hung tool is still killed quickly, while a tool
    // that merely starts slowly on a loaded machine (sanitizers, ctest -j) is not.
    qdmhost::SetTimeoutScale(0.01);
}

VirtualClock::~VirtualClock() {
    qdmhost::SetSleepHook({});
    qdmhost::SetTimeoutScale(1.0);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    fs::path p(path);
    if (p.has_parent_path()) fs::create_directories(p.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

void WriteScript(const std::string& path, const std::string& body) {
    WriteFile(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
}

bool Exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

void SetFileAge(const std::string& path, long seconds) {
    time_t expected = 0;
    frozenNow.compare_exchange_strong(expected, RealNow());
    const struct timeval at = {frozenNow.load() - seconds, 0}, times[2] = {at, at};
    ::utimes(path.c_str(), times);
}

void RemoveTree(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

std::string MakeTempDir(const std::string& tag) {
    std::string path = "/tmp/qdmtest_" + tag + ".XXXXXX";
    return ::mkdtemp(path.data()) ? path : "";
}

void HostTest::SetUp() {
    root_ = MakeTempDir("root");
    ASSERT_FALSE(root_.empty());
    CFileUtility::SetInstallPath(root_);
    cache_ = root_ + "/tmp/EMULEX/cache";
    temp_ = root_ + "/tmp/EMULEX/temp";
    fs::create_directories(cache_);
    fs::create_directories(temp_);
    CTraceUtility::StartCapture();
    CTraceUtility::ClearCapture();
    clock_ = new VirtualClock();
}

void HostTest::TearDown() {
    delete clock_;
    clock_ = nullptr;
    CTraceUtility::StopCapture();
    CCommon_Information::SetArchitectureOverride("");
    frozenNow = 0;
    RemoveTree(root_);
}

size_t HostTest::MessageCount(const std::string& id) const {
    auto messages = Messages();
    return static_cast<size_t>(std::count_if(messages.begin(), messages.end(),
                                             [&](const auto& m) { return m.id == id; }));
}

bool HostTest::HasDebug(const std::string& text, bool part) const {
    for (const auto& line : Debug())
        if (part ? line.text.find(text) != std::string::npos : line.text == text) return true;
    return false;
}

}  // namespace qdmtest
