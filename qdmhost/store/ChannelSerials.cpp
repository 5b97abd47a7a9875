#include "store/ChannelSerials.h"

#include <algorithm>

#include "FileUtility.h"
#include "model/HostError.h"
#include "repository/Trust.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

const std::size_t kMaxStateBytes = 1 << 20;

bool IsSerialTable(const nlohmann::json& channels) {
    return channels.is_object() && std::all_of(channels.begin(), channels.end(), [](const nlohmann::json& serial) {
               return serial.is_number_unsigned();
           });
}

}  // namespace

ChannelSerials::ChannelSerials(const std::string& hostFolder)
    : hostFolder_(hostFolder), path_(hostFolder + "/" + kAcceptedSerialsFile) {
    LimitedRead read = ReadRegularFile(path_, kMaxStateBytes);
    if (read.result == ReadResult::kMissing) return;
    nlohmann::json document =
        read.result == ReadResult::kOk ? nlohmann::json::parse(read.text, nullptr, false) : nlohmann::json();
    damaged_ = !document.is_object() || !document.contains("channels") || !IsSerialTable(document["channels"]);
    if (!damaged_) channels_ = document["channels"];
}

std::uint64_t ChannelSerials::Highest(const std::string& channel) const {
    return channels_.contains(channel) ? channels_[channel].get<std::uint64_t>() : 0;
}

void ChannelSerials::CheckNotRolledBack(const std::string& cataloguePath, const std::string& channel,
                                        std::uint64_t serial) const {
    if (damaged_)
        Untrusted(untrusted::kState,
                  "serial " + std::to_string(serial) + " of " + cataloguePath + " cannot be checked: " + path_ +
                      " is damaged, so the serials accepted before are unknown; restore it "
                      "(or, knowing the channel's last serial, write {\"channels\": {\"NAME\": N}})");
    const std::uint64_t highest = Highest(channel);
    if (serial < highest)
        Untrusted(untrusted::kRollback, cataloguePath + " has serial " + std::to_string(serial) +
                                            ", lower than serial " + std::to_string(highest) +
                                            " accepted before on channel " + channel);
}

void ChannelSerials::Accept(const std::string& channel, std::uint64_t serial) {
    if (serial <= Highest(channel)) return;
    channels_[channel] = serial;
    const nlohmann::json document = {{"channels", channels_}};
    if (!CFileUtility::CreateFolder(hostFolder_) || !WriteFileAtomically(path_, document.dump(2) + "\n", 0644))
        throw HostError(kExitInternal, "cannot write " + path_);
}

}  // namespace qdmcli
