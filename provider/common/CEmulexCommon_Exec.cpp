// Last-error code, tool lookup, shell command execution, the adapter listing
// and the paths of the provider's work area.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FcTrace.h"
#include "FileUtility.h"
#include "HostSys.h"
#include "StringUtil.h"
#include "TraceUtility.h"

unsigned long CEmulexCommon::m_dwLastError = 0;

namespace {

const char kTrace[] = "fc";
const char kHbacmdPath[] = "/usr/sbin/ocmanager/hbacmd";
const char kExecSignature[] = "static int CEmulexCommon::ExecCommand_(std::string)";

const unsigned long kErrorTextLimit = 39;  // codes from here on have no text
const int kOutputPolls = 10;               // one-second polls for a redirected output
const int kListhbasAttempts = 5;
const unsigned long kListhbasTimeoutMs = 60000;

std::string WorkFolder(const char* leaf) {
    std::string path = CFileUtility::GetInstallPath(0);
    path.append("/");
    path.append("tmp");
    path.append("/");
    path.append("EMULEX");
    path.append("/");
    path.append(leaf);
    return path;
}

std::string WithoutQuotes(std::string text) {
    CStringUtil::strReplace(text, "\"", "");
    return text;
}

bool HasContent(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && st.st_size != 0;
}

// The exit status lives in bits 8 to 15; a signal death leaves them zero and
// is deliberately not counted as a failure.
bool SystemFailed(int status) { return status < 0 || ((status >> 8) & 0xff) != 0; }

// Waits for a redirected command's output file to get content.
int WaitForOutput(const std::string& outputFile) {
    for (int poll = 0; poll < kOutputPolls; ++poll) {
        if (HasContent(outputFile)) return 0;
        Sleep(1000);
    }
    return -1;
}

enum class AttemptResult { Succeeded, Retry, Failed };

// Judges the listing output of one run by its first deciding line.
AttemptResult JudgeListhbasOutput(const std::string& outputFile) {
    std::ifstream in(outputFile, std::ios::binary);
    if (!in) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "file open error:%s",
                                  outputFile.c_str());
        return AttemptResult::Retry;
    }
    std::string line;
    while (std::getline(in, line)) {
        switch (CEmulexCommon::ClassifyListhbasLine(line)) {
        case CEmulexCommon::LISTHBAS_RETRY_ERROR:
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                      "CEmulexCommon::ExecListhbasCommand() [ERROR][<64>] Retry Target");
            return AttemptResult::Retry;
        case CEmulexCommon::LISTHBAS_FATAL_ERROR:
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                      "CEmulexCommon::ExecListhbasCommand() [ERROR] Not Retry Target");
            return AttemptResult::Failed;
        case CEmulexCommon::LISTHBAS_SUCCESS:
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                                      "CEmulexCommon::ExecListhbasCommand() command success");
            return AttemptResult::Succeeded;
        case CEmulexCommon::LISTHBAS_UNDECIDED:
            break;
        }
    }
    return AttemptResult::Retry;
}

AttemptResult RunListhbasOnce(const std::string& command, const std::string& outputFile) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEmulexCommon::ExecListhbasCommand() ExecForeignModule cmd:[%s]",
                              command.c_str());
    unsigned long returnCode = 0;
    int status =
        CCommon_Information::ExecForeignModule(command, outputFile, "", &returnCode, kListhbasTimeoutMs);
    CTraceUtility::WriteDebug(
        kTrace, CTraceUtility::TRACE_INFO,
        "CEmulexCommon::ExecListhbasCommand() ExecForeignModule hbasRtn = [%d] dwRtnCode = [%u]", status,
        static_cast<unsigned>(returnCode));
    switch (status) {
    case CCommon_Information::EXEC_OK:
        return JudgeListhbasOutput(outputFile);
    case CCommon_Information::EXEC_NOT_STARTED:
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CEmulexCommon::ExecListhbasCommand() command error");
        return AttemptResult::Failed;
    case CCommon_Information::EXEC_TIMEOUT:
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CEmulexCommon::ExecListhbasCommand() Timeout [TimeoutInterval = %d (ms)]",
                                  static_cast<int>(kListhbasTimeoutMs));
        return AttemptResult::Failed;
    default:
        return AttemptResult::Retry;
    }
}

}  // namespace

// The last-error accessors write no trace lines: they run inside every
// failure path and would split its trace.
void CEmulexCommon::SetLastError(unsigned long code) { m_dwLastError = code; }

unsigned long CEmulexCommon::GetLastError() { return m_dwLastError; }

std::string CEmulexCommon::GetLastErrorToChractor() {
    if (m_dwLastError >= kErrorTextLimit) return "no errcode";
    char text[8];
    std::snprintf(text, sizeof text, "%lx", m_dwLastError);
    return text;
}

unsigned long CEmulexCommon::FindNotDisitChar(std::string text, unsigned long start) {
    TraceFunc("CEmulexCommon::FindNotDisitChar() [START]");
    unsigned long found = std::string::npos;
    for (unsigned long i = start; i < text.size() && found == std::string::npos; ++i)
        if (text[i] < '0' || text[i] > '9') found = i;
    TraceFunc("CEmulexCommon::FindNotDisitChar() [END]");
    return found;
}

int CEmulexCommon::GetProgramFilesFolder_(std::string* out) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetProgramFilesFolder_() [START]");
    // Kept as a no-op: callers only rely on the argument check.
    int result = 1;
    if (out == nullptr) {
        SetLastError(1);
        result = 0;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetProgramFilesFolder_() [END]");
    return result;
}

int CEmulexCommon::GetOCMManagerInstallPath(std::string* out) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetOCMManagerInstallPath() [START]");
    if (out == nullptr) {
        SetLastError(1);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                                  "CEmulexCommon::GetOCMManagerInstallPath(%d) [END]", 1);
        return 0;
    }
    if (!CFileUtility::IsFileExist(kHbacmdPath)) {
        SetLastError(11);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                                  "CEmulexCommon::GetOCMManagerInstallPath() [END]");
        return 0;
    }
    *out = kHbacmdPath;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::GetOCMManagerInstallPath() [END] [%s]", out->c_str());
    return 1;
}

int CEmulexCommon::ExecCommand_(std::string command) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::ExecCommand_() [START]");
    // Wrapping in quotes and then stripping every quote is long-standing
    // behaviour: callers' quotes never reach the shell.
    command = WithoutQuotes("\"" + command + "\"");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "%s ExecCommand_(%s)", kExecSignature,
                              command.c_str());

    int status = std::system(command.c_str());
    int result = status;
    if (SystemFailed(status)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "%s [%s] command failed! (%d)",
                                  kExecSignature, command.c_str(), errno);
        result = -1;
    } else {
        std::string::size_type redirect = command.find(" > ");
        // Everything behind the redirection is the file name, trailing text
        // included; such a name never exists and the wait fails (kept so).
        if (redirect != std::string::npos) result = WaitForOutput(command.substr(redirect + 3));
    }

    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "[LEAVE] %s, rc=%d", kExecSignature, result);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::ExecCommand_() [END]");
    return result;
}

CEmulexCommon::ListhbasLine CEmulexCommon::ClassifyListhbasLine(const std::string& line) {
    if (line.find("ERROR") != std::string::npos)
        return line.find("<64>") != std::string::npos ? LISTHBAS_RETRY_ERROR : LISTHBAS_FATAL_ERROR;
    if (line.find("Serial No.") != std::string::npos) return LISTHBAS_SUCCESS;
    return LISTHBAS_UNDECIDED;
}

void CEmulexCommon::ExecListhbasCommand(std::string hbacmdPath) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::ExecListhbasCommand() [START]");
    const std::string command = hbacmdPath + " listhbas ";
    const std::string outputFile = CacheFilePath("Listhbas.txt");

    AttemptResult outcome = AttemptResult::Retry;
    for (int attempt = 0; attempt < kListhbasAttempts && outcome == AttemptResult::Retry; ++attempt)
        outcome = RunListhbasOnce(command, outputFile);

    // The single place that reports a failed listing.
    if (outcome != AttemptResult::Succeeded) CTraceUtility::WriteTrace(kTrace, "MSGID_EMULEXCOMMON_0001_F");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEmulexCommon::ExecListhbasCommand() [END]");
}

std::string CEmulexCommon::CacheFolderPath() { return WorkFolder("cache"); }

std::string CEmulexCommon::TempFolderPath() { return WorkFolder("temp"); }

std::string CEmulexCommon::CacheFilePath(const std::string& name) { return CacheFolderPath() + "/" + name; }

std::string CEmulexCommon::TempFilePath(const std::string& name) { return TempFolderPath() + "/" + name; }

bool CEmulexCommon::FileAgeSeconds(const std::string& path, long* age) {
    if (age == nullptr) return false;
    time_t now = std::time(nullptr);
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return false;
    if (!S_ISREG(st.st_mode)) {
        if (!S_ISDIR(st.st_mode) && ::unlink(path.c_str()) == 0)
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "removed a cache entry that is no file:[%s]",
                                      path.c_str());
        return false;
    }
    *age = static_cast<long>(std::difftime(now, st.st_mtime));
    return true;
}
