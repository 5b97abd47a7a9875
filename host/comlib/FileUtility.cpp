#include "FileUtility.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "../dllcommon/InstallRoot.h"

namespace {

bool IsFolder(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool HasSuffix(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsDotEntry(const std::string& name) { return name == "." || name == ".."; }

// Only root may enter the work area: packages are unpacked there and their
// scripts run as root.
mode_t FolderMode(const std::string& folder) {
    const std::string workArea = qdmhost::InstallRoot() + "/tmp";
    return folder == workArea || folder.compare(0, workArea.size() + 1, workArea + "/") == 0 ? 0700 : 0755;
}

using DirHandle = std::unique_ptr<DIR, int (*)(DIR*)>;

DirHandle OpenFolder(const std::string& folder) { return DirHandle(::opendir(folder.c_str()), ::closedir); }

}  // namespace

// Every index answers the one root this host has.
std::string CFileUtility::GetInstallPath(int /*index*/) { return qdmhost::InstallRoot(); }

void CFileUtility::SetInstallPath(const std::string& root) { qdmhost::SetInstallRoot(root); }

bool CFileUtility::CreateFolder(std::string folder) {
    if (folder.empty()) return false;
    if (IsFolder(folder)) return true;
    for (size_t slash = folder.find('/', 1); slash != std::string::npos;
         slash = folder.find('/', slash + 1)) {
        std::string parent = folder.substr(0, slash);
        if (::mkdir(parent.c_str(), FolderMode(parent)) != 0 && errno != EEXIST) return false;
    }
    if (::mkdir(folder.c_str(), FolderMode(folder)) != 0 && errno != EEXIST) return false;
    return IsFolder(folder);
}

bool CFileUtility::IsFileExist(std::string path) {
    struct stat st;
    return !path.empty() && ::lstat(path.c_str(), &st) == 0;
}

// Sub-folders are never searched, whatever the last argument says.
bool CFileUtility::SearchFile(std::string folder, std::string pattern, std::list<std::string>* found,
                              bool /*recursive*/) {
    if (found) found->clear();
    DirHandle dir = OpenFolder(folder);
    if (!dir) return false;
    std::list<std::string> names;
    while (struct dirent* entry = ::readdir(dir.get())) {
        std::string name = entry->d_name;
        if (!IsDotEntry(name) && ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0)
            names.push_back(name);
    }
    names.sort();
    bool any = !names.empty();
    if (found) found->swap(names);
    return any;
}

bool CFileUtility::DeleteAllFileByExtendName(std::string folder, std::string extension) {
    DirHandle dir = OpenFolder(folder);
    if (!dir) return false;
    // "txt" and ".txt" name the same extension.
    const std::string suffix = (extension.compare(0, 1, ".") == 0 ? "" : ".") + extension;
    bool allDeleted = true;
    while (struct dirent* entry = ::readdir(dir.get())) {
        std::string name = entry->d_name;
        if (IsDotEntry(name) || !HasSuffix(name, suffix)) continue;
        std::string path = folder + "/" + name;
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        if (::unlink(path.c_str()) != 0) allDeleted = false;
    }
    return allDeleted;
}
