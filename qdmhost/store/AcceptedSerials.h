#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace qdmcli {

const char kAcceptedSerialsFile[] = "accepted-serials.json";

// The highest catalogue serial accepted per trusted key and repository real
// path, kept in <host folder>/accepted-serials.json.
class AcceptedSerials {
public:
    // Throws HostError (internal) when the file exists but is broken: a
    // silently forgotten serial would reopen the door to a rollback.
    explicit AcceptedSerials(const std::string& hostFolder);
    std::uint64_t Highest(const std::string& keyId, const std::string& repository) const;  // 0 when none
    // Raises the remembered serial and writes the file atomically. Throws HostError (internal).
    void Accept(const std::string& keyId, const std::string& repository, std::uint64_t serial);

private:
    std::string hostFolder_;
    std::string path_;
    nlohmann::json accepted_ = nlohmann::json::array();  // [{"keyId", "repository", "serial"}]
};

}  // namespace qdmcli
