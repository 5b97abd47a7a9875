#include "store/History.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "FileUtility.h"
#include "adapters/Port.h"
#include "cli/Console.h"

namespace qdmcli {

bool AppendHistory(const std::string& hostFolder, const nlohmann::json& record) {
    std::string path = hostFolder + "/" + kHistoryFile;
    std::string line = record.dump() + "\n";
    int fd = CFileUtility::CreateFolder(hostFolder)
                 ? ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0644)
                 : -1;
    bool written =
        fd >= 0 && ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()) && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
    if (!written) Warn("the update history " + path + " could not be written");
    return written;
}

namespace {

// The fields the history command reads must be texts when present; time,
// port, kind and outcome must be there.
bool IsHistoryRecord(const nlohmann::json& record) {
    if (!record.is_object()) return false;
    for (const char* key : {"time", "deviceId", "kind", "outcome"})
        if (!record.contains(key)) return false;
    for (const char* key : {"time", "deviceId", "kind", "outcome", "wwpn", "busDevFunc"})
        if (record.contains(key) && !record[key].is_string()) return false;
    return !record.contains("messages") || record["messages"].is_array();
}

}  // namespace

std::vector<nlohmann::json> ParseHistory(const std::string& text, int* skipped) {
    std::vector<nlohmann::json> records;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
        if (IsHistoryRecord(record))
            records.push_back(std::move(record));
        else
            ++*skipped;
    }
    return records;
}

namespace {

bool RecordMatches(const nlohmann::json& record, const std::vector<std::string>& selectors) {
    if (selectors.empty()) return true;
    Port port{record.value("deviceId", ""), "", nullptr, record.value("wwpn", ""), record.value("busDevFunc", "")};
    for (const std::string& selector : selectors)
        if (PortMatches(port, selector)) return true;
    return false;
}

}  // namespace

std::vector<nlohmann::json> ReadHistory(const std::string& hostFolder, const std::vector<std::string>& selectors) {
    std::ifstream in(hostFolder + "/" + kHistoryFile);
    std::ostringstream text;
    if (in) text << in.rdbuf();
    int skipped = 0;
    std::vector<nlohmann::json> entries;
    for (nlohmann::json& record : ParseHistory(text.str(), &skipped))
        if (RecordMatches(record, selectors)) entries.push_back(std::move(record));
    if (skipped > 0) Warn(std::to_string(skipped) + " unreadable line(s) of the history skipped");
    return entries;
}

}  // namespace qdmcli
