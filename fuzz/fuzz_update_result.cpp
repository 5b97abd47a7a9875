// The update result protocol: a fuzzed message definition file against a
// fuzzed result file. The 30-second polls are counted, never waited for.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "CEmulexCommon.h"
#include "FuzzSupport.h"
#include "HostSys.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string definitionFile = qdmfuzz::Root() + "/tmp/EMULEX/temp/message.txt";
    static const std::string resultFile = qdmfuzz::Root() + "/tmp/EMULEX/temp/result.txt";
    static unsigned long pauses = 0;
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
    // A message holds no line feed, so a line holds it when the text does.
    auto holdsAny = [&](const std::vector<std::string>& messages) {
        return !result.empty() && std::any_of(messages.begin(), messages.end(), [&](const std::string& message) {
            return result.find(message) != std::string::npos;
        });
    };
    // What the protocol must answer, and the last error it must leave.
    const bool endSeen = end.empty() || holdsAny(end);
    const int expected = !success.empty() && endSeen && holdsAny(success);
    const unsigned long expectedError = success.empty() || expected ? 0 : endSeen ? 37 : 36;
    pauses = 0;
    CEmulexCommon::SetLastError(0);
    qdmfuzz::Require(CEmulexCommon::CheckUpdateResult_(resultFile, definitionFile) == expected &&
                         CEmulexCommon::GetLastError() == expectedError,
                     "the verdict follows the message protocol and the last error tells why it failed");
    qdmfuzz::Require(pauses <= 5 && (pauses == 0 || (!success.empty() && !end.empty())),
                     "at most five polls, none without end messages");
    return 0;
}
