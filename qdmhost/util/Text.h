#pragma once
// Small text helpers shared by the parsers and the renderers.
#include <nlohmann/json.hpp>

#include <string>

namespace qdmcli {

std::string ToUpper(std::string text);
std::string ToLower(std::string text);
// The text of a JSON string, else `fallback` (null, a number, a missing field).
std::string StringOr(const nlohmann::json& value, const std::string& fallback);

}  // namespace qdmcli
