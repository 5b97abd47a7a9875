#include "repository/ChannelConfig.h"

#include <ini.h>

#include <cstring>

#include "model/HostError.h"
#include "repository/Catalogue.h"
#include "repository/Trust.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

const std::size_t kMaxConfigBytes = 64 << 10;

[[noreturn]] void BadConfig(const std::string& path, const std::string& why) {
    throw HostError(kExitInternal, path + ": " + why);
}

// Only the top of the file, before any [section], holds qdmhost's keys.
int TakeChannel(void* channel, const char* section, const char* name, const char* value) {
    if (section[0] == '\0' && std::strcmp(name, "channel") == 0) *static_cast<std::string*>(channel) = value;
    return 1;
}

}  // namespace

std::string ReadChannel(const std::string& hostFolder) {
    const std::string path = hostFolder + "/" + kHostConfigFile;
    LimitedRead read = ReadRegularFile(path, kMaxConfigBytes);
    if (read.result == ReadResult::kMissing) return kDefaultChannel;
    if (read.result != ReadResult::kOk) BadConfig(path, "not a readable regular file of at most 64 KiB");
    // Whoever may change the channel may bring back an older catalogue.
    const std::string others = WhoElseMayChange(read.info);
    if (!others.empty()) BadConfig(path, "refused: " + others + " (chmod go-w, chown root)");
    std::string channel = kDefaultChannel;
    const int badLine = ::ini_parse_string(read.text.c_str(), TakeChannel, &channel);
    if (badLine != 0) BadConfig(path, "line " + std::to_string(badLine) + " is not INI");
    if (!IsSafeUniqueName(channel)) BadConfig(path, "channel must be a name of letters, digits, '.', '_' and '-'");
    return channel;
}

}  // namespace qdmcli
