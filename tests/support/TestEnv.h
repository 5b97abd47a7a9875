#pragma once
// Shared test environment: a fresh install root per test, trace capture and a
// virtual clock, plus small file helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TraceUtility.h"

namespace qdmtest {

// True inside sandbox/run (the fixed system paths are private overlays).
bool InSandbox();

// Skips the test when the fixed system paths are not private. Never taken in
// CI: .ci/run fails when a test was skipped.
#define QDM_REQUIRE_SANDBOX()                                                          \
    do {                                                                               \
        if (!::qdmtest::InSandbox())                                                   \
            GTEST_SKIP() << "needs the fixed system paths: run under sandbox/run";     \
    } while (0)

// Counts the host's pauses instead of waiting; time-outs shrink a hundredfold.
class VirtualClock {
public:
    VirtualClock();
    ~VirtualClock();
    const std::vector<unsigned long>& sleeps() const { return sleeps_; }
    size_t count(unsigned long ms) const { return static_cast<size_t>(std::count(sleeps_.begin(), sleeps_.end(), ms)); }

private:
    std::vector<unsigned long> sleeps_;
};

std::string ReadFile(const std::string& path);
// Writes the file, creating its folders.
void WriteFile(const std::string& path, const std::string& content);
// Writes an executable shell script ("#!/bin/sh" is prepended).
void WriteScript(const std::string& path, const std::string& body);
bool Exists(const std::string& path);
// Sets the file's modification time to now - seconds (negative: future) and
// stops the clock that the provider reads until the test ends.
void SetFileAge(const std::string& path, long seconds);
void RemoveTree(const std::string& path);
std::string MakeTempDir(const std::string& tag);

// Fresh install root under /tmp, capture on, virtual clock on. Cleans up after.
class HostTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string root_;               // the install root of this test
    std::string cache_;              // <root>/tmp/EMULEX/cache
    std::string temp_;               // <root>/tmp/EMULEX/temp
    VirtualClock* clock_ = nullptr;

    std::vector<CTraceUtility::DebugLine> Debug() const { return CTraceUtility::CapturedDebug(); }
    std::vector<CTraceUtility::Message> Messages() const { return CTraceUtility::CapturedMessages(); }
    // Number of captured messages with this identifier.
    size_t MessageCount(const std::string& id) const;
    // True when some captured debug line equals the text (contains it: `part`).
    bool HasDebug(const std::string& text, bool part = false) const;
    bool HasDebugContaining(const std::string& text) const { return HasDebug(text, true); }
};

}  // namespace qdmtest
