#include "util/UtcTime.h"

#include <cctype>

namespace qdmcli {

std::string UtcTimestamp() {
    std::time_t now = std::time(nullptr);
    struct tm utc;
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::optional<std::time_t> ParseUtcTime(const std::string& text) {
    // Digits where "0000-00-00T00:00:00Z" has them, the rest literally.
    const std::string form = "0000-00-00T00:00:00Z";
    if (text.size() != form.size()) return std::nullopt;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] == '0' ? !std::isdigit(static_cast<unsigned char>(text[i])) : text[i] != form[i])
            return std::nullopt;
    struct tm fields = {};
    fields.tm_year = std::stoi(text.substr(0, 4)) - 1900;
    fields.tm_mon = std::stoi(text.substr(5, 2)) - 1;
    fields.tm_mday = std::stoi(text.substr(8, 2));
    fields.tm_hour = std::stoi(text.substr(11, 2));
    fields.tm_min = std::stoi(text.substr(14, 2));
    fields.tm_sec = std::stoi(text.substr(17, 2));
    const struct tm written = fields;
    std::time_t time = ::timegm(&fields);
    // timegm turns 31 April into 1 May: a field that changed was out of range.
    bool same = fields.tm_year == written.tm_year && fields.tm_mon == written.tm_mon &&
                fields.tm_mday == written.tm_mday && fields.tm_hour == written.tm_hour &&
                fields.tm_min == written.tm_min && fields.tm_sec == written.tm_sec;
    return same ? std::optional<std::time_t>(time) : std::nullopt;
}

}  // namespace qdmcli
