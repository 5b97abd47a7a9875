#pragma once
// Files and the host's install tree.
#include <list>
#include <string>

class CFileUtility {
public:
    // The install root (index 0). Default "/opt/velmora/qdm/provider".
    static std::string GetInstallPath(int index);
    static void SetInstallPath(const std::string& root);

    // Creates the folder and its parents; an existing folder is success.
    static bool CreateFolder(std::string folder);
    static bool IsFileExist(std::string path);
    // Names (not paths) of the entries of one folder that match a shell-style
    // pattern. Replaces the list's contents; false when none matched or the
    // folder cannot be read. Sub-folders are never searched.
    static bool SearchFile(std::string folder, std::string pattern, std::list<std::string>* found,
                           bool recursive);
    // Deletes every regular file "*.<extension>" of the folder.
    static bool DeleteAllFileByExtendName(std::string folder, std::string extension);
};
