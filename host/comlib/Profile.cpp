#include "Profile.h"

#include <ini.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Lookup {
    const char* section;
    const char* key;
    bool found = false;
    std::string value;
};

// The first matching key wins; names compare without case.
int OnEntry(void* user, const char* section, const char* name, const char* value) {
    Lookup* lookup = static_cast<Lookup*>(user);
    if (!section || !name) return 1;
    if (!lookup->found && strcasecmp(section, lookup->section) == 0 &&
        strcasecmp(name, lookup->key) == 0) {
        lookup->found = true;
        lookup->value = value ? value : "";
    }
    return 1;
}

bool ReadValue(const char* section, const char* key, const char* file, std::string* value) {
    if (!section || !key || !file) return false;
    Lookup lookup;
    lookup.section = section;
    lookup.key = key;
    // Malformed lines are skipped; only an unreadable file fails outright.
    if (ini_parse(file, OnEntry, &lookup) < 0 || !lookup.found) return false;
    *value = lookup.value;
    return true;
}

}  // namespace

unsigned long GetPrivateProfileStringA(const char* section, const char* key, const char* defaultValue,
                                       char* buffer, unsigned long size, const char* file) {
    std::string value;
    if (!ReadValue(section, key, file, &value)) value = defaultValue ? defaultValue : "";
    if (!buffer || size == 0) return 0;
    unsigned long copied = std::min<unsigned long>(value.size(), size - 1);
    std::memcpy(buffer, value.data(), copied);
    buffer[copied] = '\0';
    return copied;
}

unsigned int GetPrivateProfileIntA(const char* section, const char* key, int defaultValue,
                                   const char* file) {
    std::string value;
    if (!ReadValue(section, key, file, &value)) return static_cast<unsigned int>(defaultValue);
    const char* start = value.c_str();
    char* end = nullptr;
    errno = 0;
    long number = std::strtol(start, &end, 10);
    if (end == start) return static_cast<unsigned int>(defaultValue);
    if (number > INT_MAX) number = INT_MAX;
    if (number < INT_MIN) number = INT_MIN;
    return static_cast<unsigned int>(static_cast<int>(number));
}
