// Per-port attribute cache, work directories, dump cache names and the
// newest-file lookup.
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "CEmulexCommon.h"
#include "CommonInformation.h"
#include "FileUtility.h"
#include "MutexUtil.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "WwpnText.h"

namespace {

const char kTrace[] = "fc";
const long kCacheLifetimeSeconds = 3600;
const char kListingResultName[] = "fsresult";

// Directory and pattern go to the shell unquoted (the pattern must glob);
// refuse what would make it do more than list.
bool IsSafeListingArgument(const std::string& text) {
    return text.find_first_of(";&|`$()<>\"'\\\r\n") == std::string::npos;
}

std::string AttribCachePath(std::string wwpn) {
    CStringUtil::strReplace(wwpn, ":", "-");
    return CEmulexCommon::CacheFilePath("HbaAttrib" + wwpn + ".txt");
}

bool IsCacheFresh(const std::string& path) {
    long age = 0;
    if (!CEmulexCommon::FileAgeSeconds(path, &age)) return false;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEmulexCommon::GetHbaAttribData() HbaAttributes file elapse time [%d] sec",
                              static_cast<int>(age));
    return age < kCacheLifetimeSeconds;
}

// Runs "HbaAttributes" into the cache file; false only when the tool is missing
// or the run reports exactly 1.
bool RegenerateAttribCache(const std::string& wwpn, const std::string& path) {
    std::string hbacmd;
    if (!CEmulexCommon::GetOCMManagerInstallPath(&hbacmd)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEmulexCommon::GetHbaAttribData() Fail OCMPath:%s",
                                  hbacmd.c_str());
        return false;
    }
    const std::string command = "\"" + hbacmd + "\" HbaAttributes " + wwpn + " > \"" + path + "\"";
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::GetHbaAttribData() strListCmd:%s",
                              command.c_str());
    // ExecCommand_ gives 0 or -1, so a failed run is not caught here and the
    // file is read whatever it holds: long-standing behaviour, kept.
    if (CEmulexCommon::ExecCommand_(command) == 1) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEmulexCommon::GetHbaAttribData() command error");
        return false;
    }
    return true;
}

// The value behind the first colon of the first non-empty line holding `key`.
int FindAttribute(std::istream& in, const std::string& key, std::string& value) {
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line.find(key) == std::string::npos) continue;
        std::string::size_type colon = line.find(':');
        if (colon == std::string::npos) {
            value.clear();
            return -1;
        }
        CStringUtil::strTrimAll(line.substr(colon + 1), value);
        return 0;
    }
    return -1;
}

// Checks the WWPN that names a cache file; traces why it is refused.
bool IsUsableWwpn(const std::string& wwpn, const char* operation) {
    if (wwpn.empty()) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEmulexCommon::%s() Fail tsWWPNMAC empty", operation);
        return false;
    }
    // It ends up in a shell command and a file name: it must be a WWPN.
    if (!emulex_common::IsWwpnText(wwpn)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEmulexCommon::%s() Fail tsWWPNMAC invalid:[%s]",
                                  operation, wwpn.c_str());
        return false;
    }
    return true;
}

int ReadCachedAttribute(const std::string& wwpn, const std::string& key, std::string& value) {
    if (!IsUsableWwpn(wwpn, "GetHbaAttribData")) return -1;
    const std::string path = AttribCachePath(wwpn);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::GetHbaAttribData() strOutputFile:%s",
                              path.c_str());
    if (!IsCacheFresh(path) && !RegenerateAttribCache(wwpn, path)) return -1;
    std::ifstream in(path);
    if (!in) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "file open error:%s", path.c_str());
        return -1;
    }
    return FindAttribute(in, key, value);
}

int DeleteCachedAttributes(const std::string& wwpn) {
    if (!IsUsableWwpn(wwpn, "DeleteHbaAttribCache")) return -1;
    const std::string path = AttribCachePath(wwpn);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::DeleteHbaAttribCache() strOutputFile:%s",
                              path.c_str());
    if (CCommon_Information::RetryDeleteFile(path)) return 0;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                              "CEmulexCommon::DeleteHbaAttribCache() RetryDeleteFile fail:[%s]", path.c_str());
    return -1;
}

// Holds the host's named lock for the scope; unlocks on every path.
class ScopedHostLock {
public:
    ScopedHostLock() : locked_(mutex_.Create(1, nullptr, nullptr) == 1 &&
                               mutex_.Lock(CMutexUtil::INFINITE_WAIT) == 1) {}
    ~ScopedHostLock() {
        if (locked_) mutex_.Unlock();
    }
    bool locked() const { return locked_; }

private:
    CMutexUtil mutex_;
    bool locked_;
};

std::string CtimeText(time_t when) {
    char text[32] = "";
    if (::ctime_r(&when, text) == nullptr) return "";
    std::string result = text;
    if (!result.empty() && result.back() == '\n') result.pop_back();
    return result;
}

// Newest of the whitespace-separated paths; ties keep the earlier one.
std::string NewestListedPath(const std::string& listingFile) {
    std::ifstream in(listingFile);
    std::string latest;
    time_t latestTime = 0;
    std::string path;
    while (in >> path) {
        struct stat st;
        if (::stat(path.c_str(), &st) != 0) {
            CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "stat error!!");
            continue;
        }
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "st_mtime=%d", static_cast<int>(st.st_mtime));
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Last Modify [%s]", CtimeText(st.st_mtime).c_str());
        if (st.st_mtime > latestTime) {
            latestTime = st.st_mtime;
            latest = path;
        }
    }
    return latest;
}

std::string NewestMatchingFile(const std::string& directory, const std::string& pattern) {
    const std::string resultFile = CEmulexCommon::TempFilePath(kListingResultName);
    const std::string command = "/bin/ls " + directory + "/" + pattern + " > " + resultFile + " 2>&1";
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::LatestFile() system exec:[%s]",
                              command.c_str());
    std::string latest;
    if (std::system(command.c_str()) == 0) latest = NewestListedPath(resultFile);
    ::unlink(resultFile.c_str());
    return latest;
}

}  // namespace

int CEmulexCommon::GetHbaAttribData(std::string wwpn, std::string key, std::string& value) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHbaAttribData() [START]");
    int result = ReadCachedAttribute(wwpn, key, value);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetHbaAttribData(%s) find:(%s) return:(%d) [END]",
                              wwpn.c_str(), key.c_str(), result);
    return result;
}

int CEmulexCommon::DeleteHbaAttribCache(std::string wwpn) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::DeleteHbaAttribCache() [START]");
    const int result = DeleteCachedAttributes(wwpn);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::DeleteHbaAttribCache() [END]");
    return result;
}

int CEmulexCommon::CreateLocalDirectory() {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CreateLocalDirectory() [START]");
    int result = 1;
    if (!CFileUtility::CreateFolder(CacheFolderPath())) {
        SetLastError(18);
        result = 0;
    } else if (!CFileUtility::CreateFolder(TempFolderPath())) {
        SetLastError(19);
        result = 0;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CreateLocalDirectory() [END]");
    return result;
}

std::string CEmulexCommon::GetDumpCacheFilePath(std::string name) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetDumpCacheFilePath() [START]");
    CStringUtil::strReplace(name, "/", "_");
    CStringUtil::strReplace(name, ":", "-");
    const std::string path = CacheFilePath("CacheDump_" + name + ".txt");
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "CEmulexCommon::GetDumpCacheFilePath() [%s]", path.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::GetDumpCacheFilePath() [END]");
    return path;
}

int CEmulexCommon::CheckDumpFileKeyWord_(std::string file, std::string adapterType) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CheckDumpFileKeyWord_() [START]");
    const std::string keyword = adapterType == "cna" ? "Port WWPN/MAC: " : "Port WWN: ";
    errno = 0;
    std::ifstream in(file);
    if (!in) {
        SetLastError(17);
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "File Open Error. file(%s) errcode(%d)", file.c_str(),
                                  errno);
        return 0;
    }
    int found = 0;
    std::string line;
    while (!found && std::getline(in, line)) found = line.find(keyword) != std::string::npos;
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, found ? "[%s] is found" : "[%s] is not found",
                              keyword.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::CheckDumpFileKeyWord_() [END]");
    return found;
}

std::string CEmulexCommon::LatestFile(std::string directory, std::string pattern) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::LatestFile() [START]");
    std::string latest;
    if (!IsSafeListingArgument(directory) || !IsSafeListingArgument(pattern)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "CEmulexCommon::LatestFile() bad argument:[%s/%s]",
                                  directory.c_str(), pattern.c_str());
    } else {
        // Two callers must never share the listing result file.
        ScopedHostLock lock;
        if (lock.locked()) latest = NewestMatchingFile(directory, pattern);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEmulexCommon::LatestFile() [END] latest filename=%s",
                              latest.c_str());
    return latest;
}
