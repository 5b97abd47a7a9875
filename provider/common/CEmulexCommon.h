#pragma once
// Adapter services shared by the vendor objects and the update modules. A
// class of static members only; it is never instantiated.
#include <iosfwd>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

class CEmulexCommon {
public:
    CEmulexCommon() = delete;

    // ---- Last error, tool lookup, command execution, adapter listing ------
    static void SetLastError(unsigned long code);
    static unsigned long GetLastError();
    static std::string GetLastErrorToChractor();
    static unsigned long FindNotDisitChar(std::string text, unsigned long start);
    static int GetProgramFilesFolder_(std::string* out);
    static int GetOCMManagerInstallPath(std::string* out);
    static int ExecCommand_(std::string command);
    static void ExecListhbasCommand(std::string hbacmdPath);
    // Verdict of one line of listing output.
    enum ListhbasLine { LISTHBAS_UNDECIDED, LISTHBAS_RETRY_ERROR, LISTHBAS_FATAL_ERROR, LISTHBAS_SUCCESS };
    static ListhbasLine ClassifyListhbasLine(const std::string& line);

    // Work-area paths below the install root.
    static std::string CacheFolderPath();             // <root>/tmp/EMULEX/cache
    static std::string TempFolderPath();              // <root>/tmp/EMULEX/temp
    static std::string CacheFilePath(const std::string& name);
    static std::string TempFilePath(const std::string& name);
    // Whole seconds since the cache file's last modification (negative when
    // it lies in the future); false when there is no regular file. Any other
    // entry but a folder (a link, a FIFO) is removed, so the tool's output
    // that replaces it can neither leave the work area nor block its reader.
    static bool FileAgeSeconds(const std::string& path, long* age);

    // ---- Adapter attribute cache ------------------------------------------
    static int GetHbaAttribData(std::string wwpn, std::string key, std::string& value);
    static int DeleteHbaAttribCache(std::string wwpn);
    static int CreateLocalDirectory();
    static std::string GetDumpCacheFilePath(std::string name);
    static int CheckDumpFileKeyWord_(std::string file, std::string adapterType);
    static std::string LatestFile(std::string directory, std::string pattern);

    // ---- Version strings --------------------------------------------------
    static std::string FormatVersion4SegCleanDust(std::string version);
    static int CheckVendorVersion4SegNormal(std::string version1, std::string version2);
    static bool CheckVersionFCFirmwareFormat(std::string version, long& major, long& minor,
                                             std::string& letters, long& build);
    static bool CheckVersionFCFirmwareFormat(std::string version);
    static int CheckVendorVersionFCFirmware(std::string version1, std::string version2);

    // ---- Key/value and tag file readers -----------------------------------
    static int GetKeyValueFromFile_(std::string file, std::string keys, std::string separator,
                                    std::pair<std::string, std::string>& result,
                                    unsigned int index);
    static int GetTagKeyValueFromFile_(std::string file, std::string tags, std::string keys,
                                       std::string separator,
                                       std::pair<std::string, std::string>& result,
                                       unsigned int index);
    // One line read from such a file against the key alternatives; `result`
    // is filled only for KEYLINE_VALUE.
    enum KeyLineMatch { KEYLINE_NO_KEY, KEYLINE_NO_VALUE, KEYLINE_VALUE };
    static KeyLineMatch MatchKeyValueLine(std::string line, const std::vector<std::string>& keys,
                                          const std::string& separator,
                                          std::pair<std::string, std::string>& result);

    // ---- Update execution and result checking -----------------------------
    static int EmulexUpdate(std::string command, std::string outputFile, std::string arg3,
                            unsigned long* returnCode, std::string reportsDir,
                            std::string definitionFile, int Resultmode);
    static int CheckUpdateResult_(std::string resultFile, std::string definitionFile);
    // Message text of one definition-file line starting with `prefix`
    // ("SuccessMessage=" / "EndMessage="); false when the line holds none.
    static bool ParseUpdateMessageLine(const std::string& line, const std::string& prefix,
                                       std::string& text);

    // ---- Adapter discovery ------------------------------------------------
    static bool GetVenDevIdList(std::string iniName, std::list<std::string>* cnaIds,
                                std::list<std::string>* second, std::list<std::string>* third,
                                std::list<std::string>* fcIds);
    static bool GetVenderIdList(std::list<std::string>* ids);
    static bool GetHBAInfoList(std::list<std::map<std::string, std::string>>* adapters);
    static bool GetHBAInfo(std::string deviceId, std::map<std::string, std::string>* adapter);
    // Multiplier of the listing's PCI function numbering on `bus`: 8 when it
    // shows a function of 8 or more there, else 2.
    static int ListingFunctionMultiplier(std::istream& listing, int bus);
    // The adapter records of a listing, read in one pass: record k holds, per
    // key, what GetKeyValueFromFile_(listing, key, ":", pair, k) finds.
    static std::list<std::map<std::string, std::string>> ParseHBAListing(std::istream& listing);

private:
    static unsigned long m_dwLastError;
};
