#include "util/Text.h"

#include <algorithm>
#include <cctype>

namespace qdmcli {

std::string ToUpper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string StringOr(const nlohmann::json& value, const std::string& fallback) {
    return value.is_string() ? value.get<std::string>() : fallback;
}

}  // namespace qdmcli
