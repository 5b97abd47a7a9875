#pragma once
// Shared set-up of the micro-benchmarks: a quiet host with a throw-away
// install root, and adapter listings of any size in the tool's own layout.
#include <string>

namespace qdmbench {

// Port counts of the simulated servers that every sized benchmark runs over.
constexpr int kPortCounts[] = {1, 8, 32, 64};

// Silences tracing and points the host at a fresh install root below /tmp
// with the provider's work area created; removes it again on destruction.
class QuietHost {
public:
    QuietHost();
    ~QuietHost();
    QuietHost(const QuietHost&) = delete;
    QuietHost& operator=(const QuietHost&) = delete;

    const std::string& Root() const { return root_; }

private:
    std::string root_;
};

// "listhbas" output of `ports` ports: dual-port adapters on buses 3, 4, ...,
// functions 0 and 1, in the tool's padded "Name : value" layout.
std::string ListingText(int ports);

// Writes `text` to `path`; aborts the run when that fails, as every figure
// after it would be meaningless.
void WriteFileOrDie(const std::string& path, const std::string& text);

}  // namespace qdmbench
