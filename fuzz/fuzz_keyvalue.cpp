// The key/value and tag readers over a fuzzed tool output file, and the line
// matcher they share.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "StringUtil.h"

namespace {

bool IsAlternative(const std::string& found, std::string list) {
    const std::vector<std::string> alternatives = CStringUtil::Split(list, "|");
    return std::find(alternatives.begin(), alternatives.end(), found) != alternatives.end();
}

// A found value starts at a non-blank and has its line end and trailing
// blanks cut off.
void CheckValue(const std::string& value) {
    qdmfuzz::Require(!value.empty(), "a found value is not empty");
    qdmfuzz::Require(value.front() != ' ' && value.back() != ' ', "a value has no outer blanks");
    qdmfuzz::Require(value.find_first_of("\r\n") == std::string::npos, "a value has no line end");
}

void CheckResult(const std::pair<std::string, std::string>& result, const std::string& keys) {
    if (result.first.empty()) return;
    qdmfuzz::Require(IsAlternative(result.first, keys), "the pair names one of the keys searched");
    CheckValue(result.second);
}

void FuzzLineMatcher(const std::string& content, const std::string& keys, const std::string& separator) {
    std::string list = keys;
    const std::vector<std::string> alternatives = CStringUtil::Split(list, "|");
    for (const std::string& line : qdmfuzz::Lines(content)) {
        std::pair<std::string, std::string> result;
        CEmulexCommon::KeyLineMatch match =
            CEmulexCommon::MatchKeyValueLine(line, alternatives, separator, result);
        if (match != CEmulexCommon::KEYLINE_VALUE) continue;
        CheckResult(result, keys);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string file = qdmfuzz::InRoot("tmp/EMULEX/temp/keyvalue.txt");
    FuzzedDataProvider input(data, size);
    const std::string keys = input.ConsumeRandomLengthString(64);
    const std::string tags = input.ConsumeRandomLengthString(64);
    const std::string separator = input.ConsumeRandomLengthString(4);
    const unsigned int index = input.ConsumeIntegral<uint8_t>();
    const std::string content = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(file, content);

    std::pair<std::string, std::string> result;
    qdmfuzz::Require(CEmulexCommon::GetKeyValueFromFile_(file, keys, separator, result, index) == 1,
                     "a readable file gives 1");
    CheckResult(result, keys);
    qdmfuzz::Require(CEmulexCommon::GetTagKeyValueFromFile_(file, tags, keys, separator, result, index) == 1,
                     "a readable file gives 1 (tags)");
    CheckResult(result, keys);
    FuzzLineMatcher(content, keys, separator);
    return 0;
}
