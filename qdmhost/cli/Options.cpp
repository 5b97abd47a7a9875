#include "cli/Options.h"

#include <algorithm>
#include <cctype>

namespace qdmcli {

bool IsSafeHostPath(const std::string& path) {
    return !path.empty() && path[0] == '/' && path.size() < 1024 && path.find("..") == std::string::npos &&
           std::all_of(path.begin(), path.end(), [](unsigned char c) {
               return std::isalnum(c) || c == '/' || c == '_' || c == '-' || c == '.';
           });
}

}  // namespace qdmcli
