#pragma once
// The highest catalogue serial accepted per channel, in
// <root>/qdmhost/accepted-serials.json: one line per channel, whatever path,
// link or key brings a catalogue, so that no older catalogue comes back by
// another way.
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace qdmcli {

const char kAcceptedSerialsFile[] = "accepted-serials.json";

class ChannelSerials {
public:
    explicit ChannelSerials(const std::string& hostFolder);
    // Refuses (rollback) a lower serial than the channel's highest, and
    // (state) any serial while the file exists but cannot be read as serials:
    // forgetting them would reopen the door to a rollback.
    void CheckNotRolledBack(const std::string& cataloguePath, const std::string& channel, std::uint64_t serial) const;
    // Raises the channel's serial and writes the file atomically. Throws HostError (internal).
    void Accept(const std::string& channel, std::uint64_t serial);

private:
    std::uint64_t Highest(const std::string& channel) const;  // 0 when none yet

    std::string hostFolder_;
    std::string path_;
    bool damaged_ = false;
    nlohmann::json channels_ = nlohmann::json::object();  // {"<channel>": serial}
};

}  // namespace qdmcli
