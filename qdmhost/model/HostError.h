#pragma once
// A failure that ends the command with a documented exit code.
#include <stdexcept>
#include <string>
#include <utility>

#include "model/ExitCodes.h"

namespace qdmcli {

class HostError : public std::runtime_error {
public:
    HostError(ExitCode code, const std::string& message, std::string reason = "")
        : std::runtime_error(message), code_(code), reason_(std::move(reason)) {}
    ExitCode code() const { return code_; }
    // A stable word that scripts can test (--json), e.g. why a repository is not trusted.
    const std::string& reason() const { return reason_; }

private:
    ExitCode code_;
    std::string reason_;
};

}  // namespace qdmcli
