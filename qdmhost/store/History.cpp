#include "store/History.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <tuple>

#include "FileUtility.h"
#include "adapters/Port.h"
#include "cli/Console.h"
#include "util/Files.h"
#include "util/UtcTime.h"

namespace qdmcli {

namespace {

const std::size_t kMaxHistoryBytes = 64 << 20;

// A line cut short by a power loss must not swallow the next record.
bool EndsWithNewline(int fd) {
    char last = '\n';
    off_t size = ::lseek(fd, 0, SEEK_END);
    return size <= 0 || (::pread(fd, &last, 1, size - 1) == 1 && last == '\n');
}

bool AppendLine(int fd, const nlohmann::json& record) {
    std::string line = (EndsWithNewline(fd) ? "" : "\n") + record.dump() + "\n";
    return WriteAll(fd, line.data(), line.size()) && ::fsync(fd) == 0;
}

int OpenHistory(const std::string& hostFolder) {
    const std::string path = hostFolder + "/" + kHistoryFile;
    return CFileUtility::CreateFolder(hostFolder)
               ? ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0644)
               : -1;
}

bool IsText(const nlohmann::json& record, const char* key) { return record.contains(key) && record[key].is_string(); }

// The fields the readers use must be texts when present; the identity of
// the module always, the outcome on an end record.
bool IsHistoryRecord(const nlohmann::json& record) {
    if (!record.is_object()) return false;
    for (const char* key : {"deviceId", "kind"})
        if (!IsText(record, key)) return false;
    for (const char* key : {"time", "outcome", "wwpn", "busDevFunc", "event", "run", "step"})
        if (record.contains(key) && !record[key].is_string()) return false;
    const std::string event = record.value("event", kEventEnd);
    if (event == kEventStep) return IsText(record, "run") && IsText(record, "step");
    if (event == kEventStart) return IsText(record, "run") && IsText(record, "time");
    return event == kEventEnd && IsText(record, "time") && IsText(record, "outcome") &&
           (!record.contains("messages") || record["messages"].is_array());
}

bool IsEnd(const nlohmann::json& record) { return record.value("event", kEventEnd) == kEventEnd; }

using ModuleKey = std::tuple<std::string, std::string, std::string>;  // run, device id, kind

ModuleKey KeyOf(const nlohmann::json& record) { return {record.value("run", ""), record["deviceId"], record["kind"]}; }

// The start records without an end, each with the last step it reached.
std::vector<nlohmann::json> OpenStarts(const std::vector<nlohmann::json>& records) {
    std::map<ModuleKey, nlohmann::json> open;
    for (const nlohmann::json& record : records) {
        const std::string event = record.value("event", kEventEnd);
        if (event == kEventStart) open[KeyOf(record)] = record;
        if (event == kEventStep && open.count(KeyOf(record))) open[KeyOf(record)]["step"] = record["step"];
        if (event == kEventEnd) open.erase(KeyOf(record));
    }
    std::vector<nlohmann::json> starts;
    for (auto& entry : open) starts.push_back(entry.second);
    return starts;
}

std::string ReadAll(int fd) {
    std::string text;
    char buffer[65536];
    for (off_t at = 0; text.size() < kMaxHistoryBytes;) {
        ssize_t got = ::pread(fd, buffer, sizeof buffer, at);
        if (got <= 0) break;
        text.append(buffer, static_cast<std::size_t>(got));
        at += got;
    }
    return text;
}

nlohmann::json InterruptedEnd(const nlohmann::json& start) {
    nlohmann::json end = start;
    const std::string step = start.value("step", "");
    end["event"] = kEventEnd;
    end["outcome"] = "interrupted";
    end["interruptedStep"] = step.empty() ? nlohmann::json(nullptr) : nlohmann::json(step);
    end["found"] = UtcTimestamp();
    end.erase("step");
    return end;
}

}  // namespace

bool AppendHistory(const std::string& hostFolder, const nlohmann::json& record) {
    int fd = OpenHistory(hostFolder);
    bool written = fd >= 0 && AppendLine(fd, record);
    if (fd >= 0) ::close(fd);
    if (!written) Warn("the update history " + hostFolder + "/" + kHistoryFile + " could not be written");
    return written;
}

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
    LimitedRead read = ReadRegularFile(hostFolder + "/" + kHistoryFile, kMaxHistoryBytes);
    int skipped = 0;
    std::vector<nlohmann::json> entries;
    for (nlohmann::json& record : ParseHistory(read.text, &skipped))
        if (IsEnd(record) && RecordMatches(record, selectors)) entries.push_back(std::move(record));
    if (skipped > 0) Warn(std::to_string(skipped) + " unreadable line(s) of the history skipped");
    return entries;
}

void RecoverInterruptedRuns(const std::string& hostFolder) {
    if (!CFileUtility::IsFileExist(hostFolder + "/" + kHistoryFile)) return;
    int fd = OpenHistory(hostFolder);
    if (fd < 0 || ::flock(fd, LOCK_EX) != 0) {
        if (fd >= 0) ::close(fd);
        return;
    }
    int skipped = 0;
    for (const nlohmann::json& start : OpenStarts(ParseHistory(ReadAll(fd), &skipped))) {
        const nlohmann::json end = InterruptedEnd(start);
        Warn("an update started " + start["time"].get<std::string>() +
             " was interrupted: " + start["deviceId"].get<std::string>() + " " + start["kind"].get<std::string>() +
             (end["interruptedStep"].is_string() ? " in its " + end["interruptedStep"].get<std::string>() + " step"
                                                 : " before its first step") +
             "; recorded in the history as interrupted");
        if (!AppendLine(fd, end)) Warn("the update history could not be written");
    }
    ::close(fd);
}

}  // namespace qdmcli
