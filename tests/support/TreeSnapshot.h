#pragma once
// Records every entry below some folders (path, type, size, content hash),
// so that a test can prove a run wrote nothing outside the places it may.
#include <map>
#include <string>
#include <vector>

namespace qdmtest {

class TreeSnapshot {
public:
    // Walks the roots without following links. An excluded path is left out
    // with everything below it.
    static TreeSnapshot Take(const std::vector<std::string>& roots, const std::vector<std::string>& excluded);

    // One line per entry added, removed or changed since this snapshot
    // ("added /etc/evil"); empty when the trees are equal.
    std::vector<std::string> ChangesUntil(const TreeSnapshot& later) const;

    size_t size() const { return entries_.size(); }

private:
    std::map<std::string, std::string> entries_;  // path -> type, size and hash
};

}  // namespace qdmtest
