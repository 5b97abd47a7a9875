// The update result protocol: a fuzzed message definition file against a
// fuzzed result file. The 30-second polls are counted, never waited for.
#include <fuzzer/FuzzedDataProvider.h>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "HostSys.h"

namespace {

unsigned long pauses = 0;

bool AnyLineHoldsAny(const std::string& text, const std::vector<std::string>& messages) {
    for (const std::string& line : qdmfuzz::Lines(text))
        for (const std::string& message : messages)
            if (line.find(message) != std::string::npos) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string definitionFile = qdmfuzz::InRoot("tmp/EMULEX/temp/message.txt");
    static const std::string resultFile = qdmfuzz::InRoot("tmp/EMULEX/temp/result.txt");
    qdmhost::SetSleepHook([](unsigned long ms) {
        qdmfuzz::Require(ms == 30000, "results are polled every 30 seconds");
        ++pauses;
    });
    FuzzedDataProvider input(data, size);
    const std::string definitions = input.ConsumeRandomLengthString(1024);
    const std::string result = input.ConsumeRemainingBytesAsString();
    qdmfuzz::WriteFile(definitionFile, definitions);
    qdmfuzz::WriteFile(resultFile, result);

    // The first five messages of each kind, each without outer blanks.
    std::vector<std::string> success, end;
    for (const std::string& line : qdmfuzz::Lines(definitions)) {
        std::string text;
        std::vector<std::string>* kind = CEmulexCommon::ParseUpdateMessageLine(line, "SuccessMessage=", text) ? &success
                                         : CEmulexCommon::ParseUpdateMessageLine(line, "EndMessage=", text)   ? &end
                                                                                                                : nullptr;
        if (!kind) continue;
        qdmfuzz::Require(text.empty() || (std::string(" \r\n").find(text.front()) == std::string::npos &&
                                          std::string(" \r\n").find(text.back()) == std::string::npos),
                         "a message text is not padded");
        if (kind->size() < 5) kind->push_back(text);
    }
    // What the protocol must answer, and the last error it must leave.
    const bool endSeen = end.empty() || AnyLineHoldsAny(result, end);
    const int expected = !success.empty() && endSeen && AnyLineHoldsAny(result, success);
    const unsigned long expectedError = success.empty() || expected ? 0 : endSeen ? 37 : 36;
    pauses = 0;
    CEmulexCommon::SetLastError(0);
    qdmfuzz::Require(CEmulexCommon::CheckUpdateResult_(resultFile, definitionFile) == expected,
                     "the verdict follows the message protocol");
    qdmfuzz::Require(CEmulexCommon::GetLastError() == expectedError, "the last error tells why it failed");
    qdmfuzz::Require(pauses <= 5 && (pauses == 0 || (!success.empty() && !end.empty())), "at most five polls, none without end messages");
    return 0;
}
