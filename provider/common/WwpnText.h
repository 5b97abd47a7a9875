#pragma once
// A WWPN, by its definition: hexadecimal pairs separated by ':', as the
// adapter list reports it. The listing is tool output; a value of any other
// form is no WWPN and must not reach a command line or a file name.
#include <cctype>
#include <string>

namespace emulex_common {

inline bool IsWwpnText(const std::string& text) {
    if (text.size() % 3 != 2) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (i % 3 == 2 ? text[i] != ':' : !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    return true;
}

}  // namespace emulex_common
