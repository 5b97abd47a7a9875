#pragma once
// Fault-injection runs of qdmhost. Every process a test starts carries a
// marker in its environment, so that whatever outlives a run is found (and
// killed in TearDown); the trees outside the work area are compared with a
// baseline taken once the scene is set.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "HostRun.h"
#include "Processes.h"

namespace e2e {

// The driver update's depmod override: the one file an update may write
// outside the work area.
const std::string kDepmodOverride = "/etc/depmod.d/elxlpfc.conf";

// The demo server's ports (address prefix of the device identifier) and WWPNs.
const std::map<std::string, std::string> kDemoWwpns = {{"0000:03:00.0", "10000000C9A10001"},
                                                       {"0000:04:00.0", "10000000C9B20001"},
                                                       {"0000:04:00.1", "10000000C9B20002"},
                                                       {"0000:05:00.0", "10000090FAC30001"},
                                                       {"0000:05:00.1", "10000090FAC30002"}};

inline std::string PortAddress(const nlohmann::json& port) {
    const std::string deviceId = port["deviceId"];
    return deviceId.substr(0, deviceId.find('-'));
}

inline std::string ModuleStatus(const nlohmann::json& port, const std::string& kind) {
    for (const nlohmann::json& module : port["modules"])
        if (module["kind"] == kind) return module["status"];
    return "";
}

inline size_t Occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++count;
    return count;
}

// Polls every 20 ms until the condition holds; false after `seconds`.
inline bool WaitUntil(const std::function<bool()>& condition, double seconds = 20) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

class FaultTest : public HostE2eTest {
protected:
    void SetUp() override {
        HostE2eTest::SetUp();
        marker_ = std::to_string(::getpid()) + "." +
                  std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
        ::setenv(kMarkerName, marker_.c_str(), 1);
    }

    void TearDown() override {
        for (const qdmtest::ProcessInfo& process : StartedProcesses()) ::kill(process.pid, SIGKILL);
        HostE2eTest::TearDown();
    }

    // Live processes started by this test (qdmhost and whatever it ran).
    std::vector<qdmtest::ProcessInfo> StartedProcesses() const {
        return qdmtest::ProcessesWithEnvironment(std::string(kMarkerName) + "=" + marker_);
    }

    void ExpectNoProcessLeft() const {
        std::string left;
        for (const qdmtest::ProcessInfo& process : StartedProcesses())
            left += std::to_string(process.pid) + " " + process.commandLine + "\n";
        EXPECT_EQ(left, "") << "processes outlived the run";
    }

    // Records the trees outside the work area; `alsoWritten` may change.
    void TakeBaseline(const std::vector<std::string>& alsoWritten = {}) {
        alsoWritten_ = alsoWritten;
        baseline_ = SnapshotOutsideWorkArea(alsoWritten_);
        ASSERT_GT(baseline_.size(), 100u) << "the snapshot missed the system folders";
    }

    void ExpectNothingWrittenOutsideWorkArea() const {
        std::string changes;
        for (const std::string& change : baseline_.ChangesUntil(SnapshotOutsideWorkArea(alsoWritten_)))
            changes += change + "\n";
        EXPECT_EQ(changes, "");
    }

    // Every port of the inventory without a WWPN, its firmware and driver unreadable.
    static void ExpectNoPortResolved(const nlohmann::json& inventory) {
        ASSERT_EQ(inventory["ports"].size(), kDemoWwpns.size());
        for (const nlohmann::json& port : inventory["ports"]) {
            EXPECT_EQ(port["wwpn"], "") << PortAddress(port);
            EXPECT_EQ(ModuleStatus(port, "firm"), "unreadable") << PortAddress(port);
            EXPECT_EQ(ModuleStatus(port, "driver"), "unreadable") << PortAddress(port);
        }
    }

private:
    static constexpr const char* kMarkerName = "QDMTEST_FAULT_RUN";

    std::string marker_;
    std::vector<std::string> alsoWritten_;
    qdmtest::TreeSnapshot baseline_;
};

}  // namespace e2e
