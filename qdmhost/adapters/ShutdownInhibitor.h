#pragma once
// A systemd-logind "block" inhibitor for shutdown and sleep while adapters
// are written: a power-off in the middle of a flash is the one interruption
// that cannot be finished cleanly. Where logind is unavailable (containers,
// the sandbox) the update goes on without one, and says so.
namespace qdmcli {

class ShutdownInhibitor {
public:
    ShutdownInhibitor() = default;
    ~ShutdownInhibitor();
    ShutdownInhibitor(const ShutdownInhibitor&) = delete;
    ShutdownInhibitor& operator=(const ShutdownInhibitor&) = delete;

    // Takes the inhibitor on the first call; later calls change nothing.
    void Hold();

private:
    bool asked_ = false;
    int fd_ = -1;  // released when closed
};

}  // namespace qdmcli
