// The update result protocol: a fuzzed message definition file against a
// fuzzed result file. The 30-second polls are counted, never waited for.
#include <fuzzer/FuzzedDataProvider.h>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "HostSys.h"

namespace {

const size_t kMaxMessages = 5;

struct Messages {
    std::vector<std::string> success;
    std::vector<std::string> end;
};

unsigned long pauses = 0;

void CountPause(unsigned long milliseconds) {
    qdmfuzz::Require(milliseconds == 30000, "results are polled every 30 seconds");
    ++pauses;
}

// Checks each definition line's message text and keeps the first five of
// each kind, as the protocol does.
Messages DefinedMessages(const std::string& definitions) {
    Messages messages;
    for (const std::string& line : qdmfuzz::Lines(definitions)) {
        std::string text;
        std::vector<std::string>* kind = nullptr;
        if (CEmulexCommon::ParseUpdateMessageLine(line, "SuccessMessage=", text)) kind = &messages.success;
        else if (CEmulexCommon::ParseUpdateMessageLine(line, "EndMessage=", text)) kind = &messages.end;
        if (!kind) continue;
        qdmfuzz::Require(!text.empty() && std::string(" \r\n").find(text.front()) == std::string::npos &&
                             std::string(" \r\n").find(text.back()) == std::string::npos,
                         "a message text is neither empty nor padded");
        if (kind->size() < kMaxMessages) kind->push_back(text);
    }
    return messages;
}

bool AnyLineHoldsAny(const std::string& file, const std::vector<std::string>& messages) {
    for (const std::string& line : qdmfuzz::Lines(file))
        for (const std::string& message : messages)
            if (line.find(message) != std::string::npos) return true;
    return false;
}

// What the protocol must answer, and the last error it must leave.
int ExpectedResult(const Messages& messages, const std::string& result, unsigned long* error) {
    *error = 0;
    if (messages.success.empty()) return 0;
    if (!messages.end.empty() && !AnyLineHoldsAny(result, messages.end)) {
        *error = 36;
        return 0;
    }
    if (AnyLineHoldsAny(result, messages.success)) return 1;
    *error = 37;
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string definitionFile = qdmfuzz::InRoot("tmp/EMULEX/temp/message.txt");
    static const std::string resultFile = qdmfuzz::InRoot("tmp/EMULEX/temp/result.txt");
    qdmfuzz::Root();
    qdmhost::SetSleepHook(CountPause);
    FuzzedDataProvider input(data, size);
    const std::string definitions = input.ConsumeRandomLengthString(1024);
    const std::string result = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(definitionFile, definitions);
    qdmfuzz::WriteFile(resultFile, result);

    const Messages messages = DefinedMessages(definitions);
    unsigned long expectedError = 0;
    const int expected = ExpectedResult(messages, result, &expectedError);
    pauses = 0;
    CEmulexCommon::SetLastError(0);
    const int found = CEmulexCommon::CheckUpdateResult_(resultFile, definitionFile);
    qdmfuzz::Require(found == expected, "the verdict follows the message protocol");
    qdmfuzz::Require(CEmulexCommon::GetLastError() == expectedError, "the last error tells why it failed");
    qdmfuzz::Require(pauses <= 5, "at most five polls");
    if (messages.success.empty() || messages.end.empty()) qdmfuzz::Require(pauses == 0, "no wait without end messages");
    return 0;
}
