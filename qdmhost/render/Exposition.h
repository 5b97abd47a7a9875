#pragma once
// The Prometheus text exposition format that `metrics` writes for
// node_exporter's textfile collector.
#include <string>
#include <utility>
#include <vector>

namespace qdmcli {

// A label value as the format quotes it: backslash, double quote and line
// feed escaped, bytes that are not UTF-8 replaced by U+FFFD; every other byte
// as it is.
std::string EscapeLabelValue(const std::string& value);

using Labels = std::vector<std::pair<std::string, std::string>>;

// Families one after another, each with its HELP and TYPE lines before its samples.
class Exposition {
public:
    void Family(const std::string& name, const std::string& help);  // a gauge
    void Sample(const std::string& name, const Labels& labels, double value);
    const std::string& text() const { return text_; }
    int series() const { return series_; }

private:
    std::string text_;
    int series_ = 0;
};

}  // namespace qdmcli
