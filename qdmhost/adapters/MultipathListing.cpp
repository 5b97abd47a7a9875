#include "adapters/MultipathListing.h"

#include <algorithm>
#include <sstream>

namespace qdmcli {

namespace {

const std::size_t kMaxField = 128;
const int kMaxHostNumber = 1 << 20;

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.' || c == ':';
}

bool IsName(const std::string& text) {
    return !text.empty() && text.size() <= kMaxField && std::all_of(text.begin(), text.end(), IsNameCharacter);
}

// Four decimal numbers "h:c:t:l"; the host number, or -1.
int HostOfHctl(const std::string& text) {
    std::istringstream in(text);
    long numbers[4];
    char colon[3];
    if (!(in >> numbers[0] >> colon[0] >> numbers[1] >> colon[1] >> numbers[2] >> colon[2] >> numbers[3])) return -1;
    if (!in.eof() || colon[0] != ':' || colon[1] != ':' || colon[2] != ':') return -1;
    if (!std::all_of(text.begin(), text.end(), [](char c) { return c == ':' || (c >= '0' && c <= '9'); })) return -1;
    return numbers[0] <= kMaxHostNumber ? static_cast<int>(numbers[0]) : -1;
}

bool IsDmState(const std::string& text) { return text == "active" || text == "failed" || text == "undef"; }

// The checker's words: lower-case letters and "/", one blank at most ("i/o pending").
bool IsCheckerState(const std::string& text) {
    return !text.empty() && text.size() <= 32 && std::count(text.begin(), text.end(), ' ') <= 1 &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= 'a' && c <= 'z') || c == '/' || c == ' '; });
}

bool ParseLine(const std::string& line, MultipathPath* path) {
    std::istringstream in(line);
    if (!(in >> path->map >> path->hctl >> path->device >> path->dmState >> path->wwid)) return false;
    std::string rest;
    std::getline(in >> std::ws, rest);
    path->checker = rest.substr(0, rest.find_last_not_of(' ') + 1);
    path->scsiHost = HostOfHctl(path->hctl);
    return IsName(path->map) && IsName(path->wwid) && IsName(path->device) && path->scsiHost >= 0 &&
           IsDmState(path->dmState) && IsCheckerState(path->checker);
}

}  // namespace

MultipathListing ParseMultipathPaths(const std::string& text) {
    MultipathListing listing;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        MultipathPath path;
        if (ParseLine(line, &path))
            listing.paths.push_back(path);
        else
            ++listing.skippedLines;
    }
    return listing;
}

}  // namespace qdmcli
