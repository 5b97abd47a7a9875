#pragma once
// A failure that ends the command with a documented exit code.
#include <stdexcept>
#include <string>

#include "ExitCodes.h"

namespace qdmcli {

class HostError : public std::runtime_error {
public:
    HostError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace qdmcli
