// The tool log: when a writing tool begins and ends, and on what.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Sim.h"

namespace qdmsim {

namespace {

// Long enough for a test to see the run begin and send a signal into it.
const int kSlowMilliseconds = 1000;

void AppendToolLine(const std::string& line) {
    int fd = ::open(ToolLogPath().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    ssize_t written = ::write(fd, line.data(), line.size());  // one write: whole lines
    (void)written;
    ::close(fd);
}

}  // namespace

std::string ToolLogPath() { return StatePath() + ".tools"; }

ToolRun::ToolRun(const std::string& target, const std::string& what) : target_(target), what_(what) {
    AppendToolLine("begin " + std::to_string(::getpid()) + " " + target_ + " " + what_ + "\n");
}

ToolRun::~ToolRun() { AppendToolLine("end " + std::to_string(::getpid()) + " " + target_ + " " + what_ + "\n"); }

void PauseIfSlow(const std::string& fault) {
    if (fault == "slow") std::this_thread::sleep_for(std::chrono::milliseconds(kSlowMilliseconds));
}

}  // namespace qdmsim
