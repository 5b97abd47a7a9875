#include "adapters/WorkArea.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "FileUtility.h"
#include "model/HostError.h"
#include "repository/Trust.h"

namespace qdmcli {

namespace {

std::string ModeText(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

// Answers whether the folder exists; refuses one that others may change.
bool RefuseUnsafeFolder(const std::string& path) {
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) return false;
    const std::string others = S_ISDIR(info.st_mode) ? WhoElseMayChange(info) : "not a folder";
    if (!others.empty())
        throw HostError(kExitInternal, "refusing to run: " + path + " is " + others + " (mode " +
                                           ModeText(info.st_mode) + ", owner " + std::to_string(info.st_uid) +
                                           "); only root may change it: chmod go-w, chown root");
    return true;
}

}  // namespace

void PrepareWorkArea(const std::string& root) {
    const std::string tmp = root + "/tmp";
    if (!CFileUtility::CreateFolder(root)) throw HostError(kExitInternal, "cannot create " + root);
    RefuseUnsafeFolder(root);
    RefuseUnsafeFolder(root + "/qdmhost");
    if (::mkdir(tmp.c_str(), 0700) != 0 && errno != EEXIST)
        throw HostError(kExitInternal, "cannot create " + tmp + ": " + std::strerror(errno));
    RefuseUnsafeFolder(tmp);
    struct stat info;
    if (::lstat(tmp.c_str(), &info) == 0 && (info.st_mode & 077) != 0 && ::chmod(tmp.c_str(), 0700) != 0)
        throw HostError(kExitInternal, "cannot make " + tmp + " mode 0700: " + std::strerror(errno));
}

}  // namespace qdmcli
