#include "adapters/ShutdownInhibitor.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "cli/Console.h"

namespace qdmcli {

namespace {

const char kWhy[] = "qdmhost is updating adapter firmware";
// logind answers at once when it runs; a stuck bus must not stall the update.
const std::uint64_t kCallTimeoutUs = 2 * 1000 * 1000;

// The inhibitor's file descriptor (closed on exec, so tools do not keep it),
// or -1 with *why.
int TakeInhibitor(std::string* why) {
    sd_bus* bus = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int fd = -1;
    int result = sd_bus_open_system(&bus);
    if (result >= 0) result = sd_bus_set_method_call_timeout(bus, kCallTimeoutUs);
    if (result >= 0)
        result = sd_bus_call_method(bus, "org.freedesktop.login1", "/org/freedesktop/login1",
                                    "org.freedesktop.login1.Manager", "Inhibit", &error, &reply, "ssss",
                                    "shutdown:sleep", "qdmhost", kWhy, "block");
    int received = -1;
    if (result >= 0) result = sd_bus_message_read(reply, "h", &received);
    if (result >= 0) fd = ::fcntl(received, F_DUPFD_CLOEXEC, 3);
    if (fd < 0) *why = error.message ? error.message : std::strerror(result < 0 ? -result : errno);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return fd;
}

}  // namespace

ShutdownInhibitor::~ShutdownInhibitor() {
    if (fd_ >= 0) ::close(fd_);
}

void ShutdownInhibitor::Hold() {
    if (asked_) return;
    asked_ = true;
    std::string why;
    fd_ = TakeInhibitor(&why);
    Progress(fd_ >= 0
                 ? std::string("shutdown and sleep are blocked while adapters are written (logind: \"") + kWhy + "\")"
                 : "no shutdown inhibitor (logind: " + why + "); going on without one");
}

}  // namespace qdmcli
