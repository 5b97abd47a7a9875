// Runs an update tool and judges its result by return code, output file or
// the messages of a result or report file.
#include <fstream>
#include <list>
#include <vector>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "HostSys.h"
#include "TraceUtility.h"

namespace {

const char kTrace[] = "fc";
const char kSuccessPrefix[] = "SuccessMessage=";
const char kEndPrefix[] = "EndMessage=";
const size_t kMaxMessages = 5;
const unsigned long kEndPollMs = 30000;
const int kEndPollSeconds = 30;
const int kEndWaitSeconds = 150;

enum ResultMode { MODE_RETURN_CODE = 1, MODE_OUTPUT_ZERO = 2, MODE_RESULT_FILE = 3, MODE_REPORT_FILE = 4 };

struct UpdateMessages {
    std::vector<std::string> success;
    std::vector<std::string> end;
};

void KeepMessage(std::vector<std::string>& messages, const std::string& text) {
    if (messages.size() < kMaxMessages) messages.push_back(text);
}

UpdateMessages ReadUpdateMessages(std::istream& in) {
    UpdateMessages messages;
    std::string line;
    std::string text;
    while (std::getline(in, line)) {
        if (CEmulexCommon::ParseUpdateMessageLine(line, kSuccessPrefix, text))
            KeepMessage(messages.success, text);
        else if (CEmulexCommon::ParseUpdateMessageLine(line, kEndPrefix, text))
            KeepMessage(messages.end, text);
    }
    for (size_t i = 0; i < messages.success.size(); ++i)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "successMessage[%d]=[%s]", static_cast<int>(i),
                                  messages.success[i].c_str());
    for (size_t i = 0; i < messages.end.size(); ++i)
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "endMessage[%d]=[%s]", static_cast<int>(i), messages.end[i].c_str());
    return messages;
}

const std::string* FindAnyIn(const std::string& line, const std::vector<std::string>& messages) {
    for (const std::string& message : messages)
        if (line.find(message) != std::string::npos) return &message;
    return nullptr;
}

enum class Scan { Found, NotFound, OpenFailed };

// Looks for any of the messages in the result file, tracing each line read.
Scan ScanResultFile(const std::string& resultFile, const std::vector<std::string>& messages, const char* lineTrace,
                    const char* foundTrace) {
    std::ifstream in(resultFile);
    if (!in) {
        CEmulexCommon::SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "File Open Error");
        return Scan::OpenFailed;
    }
    std::string line;
    while (std::getline(in, line)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, lineTrace, line.c_str());
        if (const std::string* message = FindAnyIn(line, messages)) {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, foundTrace, message->c_str(), line.c_str());
            return Scan::Found;
        }
    }
    return Scan::NotFound;
}

// Polls every 30 seconds until the tool writes an end message, for at most 150 seconds.
bool WaitForEndMessage(const std::string& resultFile, const std::vector<std::string>& endMessages) {
    for (int elapsed = 0; elapsed < kEndWaitSeconds;) {
        Sleep(kEndPollMs);
        elapsed += kEndPollSeconds;
        Scan scan = ScanResultFile(resultFile, endMessages, "Result file check endmsg [%s]", "Find endmsg[%s] in [%s]");
        if (scan == Scan::Found) return true;
        if (scan == Scan::OpenFailed) return false;
    }
    CEmulexCommon::SetLastError(36);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "No such end message.");
    return false;
}

bool HasSuccessMessage(const std::string& resultFile, const std::vector<std::string>& successMessages) {
    Scan scan = ScanResultFile(resultFile, successMessages, "Result file check success msg [%s]",
                               "Find SuccessMsg[%s] in [%s]");
    if (scan == Scan::Found) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Update Result Check OK");
        return true;
    }
    if (scan == Scan::NotFound) {
        CEmulexCommon::SetLastError(37);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "No such success message.");
    }
    return false;
}

int FailUpdate(const std::string& command) {
    CEmulexCommon::SetLastError(33);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to update(%s).", command.c_str());
    return 0;
}

int FailOpen(const std::string& file) {
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to open file(%s).", file.c_str());
    return 0;
}

int CheckReturnCode(const std::string& command, unsigned long returnCode) {
    if (returnCode == 0) return 1;
    CEmulexCommon::SetLastError(33);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to update(%s)(ReturnCode=%#x).",
                              command.c_str(), static_cast<unsigned>(returnCode));
    return 0;
}

// The tool's first output line must be exactly "0"; a trailing blank fails.
int CheckOutputZero(const std::string& command, const std::string& outputFile) {
    std::ifstream in(outputFile);
    if (!in) return FailOpen(outputFile);
    std::string firstLine;
    std::getline(in, firstLine);
    return firstLine == "0" ? 1 : FailUpdate(command);
}

int CheckResultFile(const std::string& command, const std::string& resultFile, const std::string& definitionFile) {
    if (definitionFile.empty()) return FailOpen(definitionFile);
    return CEmulexCommon::CheckUpdateResult_(resultFile, definitionFile) ? 1 : FailUpdate(command);
}

int CheckReportFile(const std::string& command, const std::string& reportsDir, const std::string& definitionFile) {
    if (definitionFile.empty()) return FailOpen(definitionFile);
    std::list<std::string> reports;
    CFileUtility::SearchFile(reportsDir, "*.txt", &reports, false);
    if (reports.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "After to find reports file.There is not APInstall update file.");
        return FailUpdate(command);
    }
    if (reports.size() == 1) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "After to find reports file.There is one update file.");
    } else {
        // Deleting before the check makes the check fail: more than one
        // report must always count as a failed update.
        CFileUtility::DeleteAllFileByExtendName(reportsDir, "txt");
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "After to find reports file.There is some update file.");
    }
    return CheckResultFile(command, reportsDir + "/" + reports.front(), definitionFile);
}

}  // namespace

bool CEmulexCommon::ParseUpdateMessageLine(const std::string& line, const std::string& prefix, std::string& text) {
    // The prefix is recognised anywhere but the text is cut at the prefix's
    // length, so only a prefix at the line's start gives a sensible text.
    if (line.find(prefix) == std::string::npos || line.size() <= prefix.size()) return false;
    const char* const trimmed = " \r\n";
    std::string::size_type first = line.find_first_not_of(trimmed, prefix.size());
    // Blanks only still make a message: an empty one, which every line holds.
    text = first == std::string::npos ? std::string() : line.substr(first, line.find_last_not_of(trimmed) + 1 - first);
    return true;
}

int CEmulexCommon::CheckUpdateResult_(std::string resultFile, std::string definitionFile) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CheckUpdateResult_() [START]");
    int result = 0;
    std::ifstream definitions(definitionFile);
    if (!definitions) {
        SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "File open error %s", definitionFile.c_str());
    } else {
        const UpdateMessages messages = ReadUpdateMessages(definitions);
        if (messages.success.empty()) {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "no successMessage");
        } else if (messages.end.empty()) {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "no endMessage");
            result = HasSuccessMessage(resultFile, messages.success);
        } else {
            result = WaitForEndMessage(resultFile, messages.end) && HasSuccessMessage(resultFile, messages.success);
        }
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CheckUpdateResult_() [END]");
    return result;
}

int CEmulexCommon::EmulexUpdate(std::string command, std::string outputFile, std::string arg3,
                                unsigned long* returnCode, std::string reportsDir, std::string definitionFile,
                                int Resultmode) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::EmulexUpdate() Resultmode = %d [START]",
                              Resultmode);
    unsigned long ownReturnCode = 0;
    if (returnCode == nullptr) returnCode = &ownReturnCode;
    if (!reportsDir.empty()) CFileUtility::DeleteAllFileByExtendName(reportsDir, "txt");

    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "ExecForeignModule cmd:[%s]", command.c_str());
    int status = CCommon_Information::ExecForeignModule(command, outputFile, arg3, returnCode,
                                                        CCommon_Information::NO_TIMEOUT);
    int result = 0;
    if (status == CCommon_Information::EXEC_NOT_STARTED) {
        SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to update execute(%s)(%x)(Windows Error code:%d).",
                                  command.c_str(), static_cast<unsigned>(GetLastError()),
                                  static_cast<int>(GetLastError()));
    } else if (Resultmode == MODE_RETURN_CODE) {
        result = CheckReturnCode(command, *returnCode);
    } else if (Resultmode == MODE_OUTPUT_ZERO) {
        result = CheckOutputZero(command, outputFile);
    } else if (Resultmode == MODE_RESULT_FILE) {
        result = CheckResultFile(command, outputFile, definitionFile);
    } else if (Resultmode == MODE_REPORT_FILE) {
        result = CheckReportFile(command, reportsDir, definitionFile);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::EmulexUpdate() [END]");
    return result;
}
