#include "render/Exposition.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace qdmcli {

std::string EscapeLabelValue(const std::string& value) {
    // The format is UTF-8 only, and one bad byte makes node_exporter drop the
    // whole file: the JSON round trip turns bytes that are not UTF-8 into U+FFFD.
    const std::string text =
        nlohmann::json::parse(nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace))
            .get<std::string>();
    std::string escaped;
    for (char c : text) {
        if (c == '\\')
            escaped += "\\\\";
        else if (c == '"')
            escaped += "\\\"";
        else if (c == '\n')
            escaped += "\\n";
        else
            escaped += c;
    }
    return escaped;
}

void Exposition::Family(const std::string& name, const std::string& help) {
    text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

void Exposition::Sample(const std::string& name, const Labels& labels, double value) {
    std::string line = name;
    for (std::size_t i = 0; i < labels.size(); ++i)
        line += (i == 0 ? "{" : ",") + labels[i].first + "=\"" + EscapeLabelValue(labels[i].second) + "\"";
    char number[32];
    std::snprintf(number, sizeof number, "%.17g", value);
    text_ += line + (labels.empty() ? " " : "} ") + number + "\n";
    ++series_;
}

}  // namespace qdmcli
