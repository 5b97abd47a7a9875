// Readers that pick one "name <separator> value" line out of a text file.
#include <cerrno>
#include <cstdio>
#include <memory>

#include "CEmulexCommon.h"
#include "StringUtil.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";
// Lines are read in chunks of this size; a longer line is deliberately
// handled as several lines, as it always has been.
const int kLineBuffer = 128;

using FileHandle = std::unique_ptr<FILE, int (*)(FILE*)>;

FileHandle OpenForReading(const std::string& file) {
    FileHandle handle(std::fopen(file.c_str(), "r"), &std::fclose);
    if (!handle) {
        CEmulexCommon::SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "File Open Error. file(%s) errcode(%d)",
                                  file.c_str(), errno);
    }
    return handle;
}

bool ReadLine(FILE* in, std::string& line) {
    char buffer[kLineBuffer];
    if (std::fgets(buffer, sizeof buffer, in) == nullptr) return false;
    line = buffer;
    return true;
}

// Key and tag lines alike are matched with their line ends read as blanks.
void BlankLineEnds(std::string& line) {
    CStringUtil::strReplace(line, "\r", " ");
    CStringUtil::strReplace(line, "\n", " ");
}

bool ContainsAny(const std::string& line, const std::vector<std::string>& alternatives) {
    for (const std::string& alternative : alternatives)
        if (line.find(alternative) != std::string::npos) return true;
    return false;
}

std::vector<std::string> Alternatives(std::string list) { return CStringUtil::Split(list, "|"); }

// Reads on until a line of the key alternatives yields a value, skipping
// `index` key lines first.
void ScanForKeyValue(FILE* in, const std::vector<std::string>& keys, const std::string& separator,
                     std::pair<std::string, std::string>& result, unsigned int index) {
    std::string line;
    while (result.first.empty() && ReadLine(in, line)) {
        std::pair<std::string, std::string> candidate;
        CEmulexCommon::KeyLineMatch match =
            CEmulexCommon::MatchKeyValueLine(line, keys, separator, candidate);
        if (match == CEmulexCommon::KEYLINE_NO_KEY) continue;
        if (index > 0) {
            --index;
            continue;
        }
        if (match == CEmulexCommon::KEYLINE_VALUE) result = candidate;
    }
}

// Reads up to and including the tag line chosen by `index`; false when the
// file ends first.
bool SkipToTag(FILE* in, const std::vector<std::string>& tags, unsigned int index) {
    std::string line;
    while (ReadLine(in, line)) {
        BlankLineEnds(line);
        if (!ContainsAny(line, tags)) continue;
        if (index == 0) return true;
        --index;
    }
    return false;
}

}  // namespace

CEmulexCommon::KeyLineMatch CEmulexCommon::MatchKeyValueLine(std::string line,
                                                             const std::vector<std::string>& keys,
                                                             const std::string& separator,
                                                             std::pair<std::string, std::string>& result) {
    BlankLineEnds(line);
    for (const std::string& key : keys) {
        std::string::size_type keyAt = line.find(key);
        if (keyAt == std::string::npos) continue;
        // The separator is searched from the key itself, so the first one
        // behind the key is taken and the value keeps any later ones.
        std::string::size_type separatorAt = line.find(separator, keyAt);
        if (separatorAt == std::string::npos) return KEYLINE_NO_VALUE;
        std::string::size_type valueAt = line.find_first_not_of(' ', separatorAt + separator.size());
        if (valueAt == std::string::npos) return KEYLINE_NO_VALUE;
        std::string::size_type valueEnd = line.find_last_not_of(' ') + 1;
        result.first = key;
        result.second = line.substr(valueAt, valueEnd - valueAt);
        return KEYLINE_VALUE;
    }
    return KEYLINE_NO_KEY;
}

int CEmulexCommon::GetKeyValueFromFile_(std::string file, std::string keys, std::string separator,
                                        std::pair<std::string, std::string>& result, unsigned int index) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetKeyValueFromFile(%s,%s) [START]", file.c_str(),
                              keys.c_str());
    result.first.clear();
    result.second.clear();
    FileHandle in = OpenForReading(file);
    if (in) ScanForKeyValue(in.get(), Alternatives(keys), separator, result, index);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetKeyValueFromFile_() [%s,%s] [END]", result.first.c_str(),
                              result.second.c_str());
    return in ? 1 : 0;
}

int CEmulexCommon::GetTagKeyValueFromFile_(std::string file, std::string tags, std::string keys,
                                           std::string separator, std::pair<std::string, std::string>& result,
                                           unsigned int index) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "GetTagKeyValueFromFile(%s,%s,%s)",
                              file.c_str(), tags.c_str(), keys.c_str());
    result.first.clear();
    result.second.clear();
    FileHandle in = OpenForReading(file);
    // The key search runs on past the next tag line: a key missing from the
    // chosen block is taken from a later one (kept so).
    if (in && SkipToTag(in.get(), Alternatives(tags), index))
        ScanForKeyValue(in.get(), Alternatives(keys), separator, result, 0);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetTagKeyValueFromFile_() (%s;%s) [END]", result.first.c_str(),
                              result.second.c_str());
    return in ? 1 : 0;
}
