// Unpacking of fuzzed update modules. Whatever the archive holds, nothing may
// land outside the target folder and nothing but files and folders inside it.
#include <sys/stat.h>

#include <algorithm>
#include <list>

#include "FuzzSupport.h"
#include "UnzipUtility.h"

namespace {

// The unpack folder sits a few levels down, so that an entry climbing out of
// it shows up as a stray name in one of the levels above.
const char* const kLevels[] = {"unzip", "a", "b", "module"};

std::string FolderAt(size_t depth) {
    std::string folder = qdmfuzz::Root();
    for (size_t i = 0; i < depth; ++i) folder += std::string("/") + kLevels[i];
    return folder;
}

const size_t kDepth = sizeof kLevels / sizeof kLevels[0];

void CheckNothingAbove() {
    static const std::vector<std::string> kRootNames = {"log", "tmp", "module.zip", "unzip"};
    for (const std::string& name : qdmfuzz::FolderEntries(qdmfuzz::Root()))
        qdmfuzz::Require(std::find(kRootNames.begin(), kRootNames.end(), name) != kRootNames.end(),
                         "nothing written into the install root");
    for (size_t depth = 1; depth < kDepth; ++depth) {
        std::vector<std::string> names = qdmfuzz::FolderEntries(FolderAt(depth));
        qdmfuzz::Require(names.size() <= 1 && (names.empty() || names[0] == kLevels[depth]),
                         "nothing written beside the unpack folder");
    }
}

// Only regular files and folders below the unpack folder: no links, no devices.
void CheckOnlyPlainEntries(const std::string& folder) {
    for (const std::string& name : qdmfuzz::FolderEntries(folder)) {
        std::string path = folder + "/" + name;
        struct stat info;
        qdmfuzz::Require(::lstat(path.c_str(), &info) == 0, "an unpacked entry can be examined");
        qdmfuzz::Require(S_ISREG(info.st_mode) || S_ISDIR(info.st_mode), "only files and folders are unpacked");
        if (S_ISDIR(info.st_mode)) CheckOnlyPlainEntries(path);
    }
}

void CheckListedFiles(const std::string& folder, const std::list<std::string>& files) {
    for (const std::string& file : files) {
        struct stat info;
        qdmfuzz::Require(::lstat((folder + "/" + file).c_str(), &info) == 0 && S_ISREG(info.st_mode),
                         "every listed file was unpacked as a file");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string archive = qdmfuzz::InRoot("module.zip");
    static const std::string folder = FolderAt(kDepth);
    qdmfuzz::WriteFile(archive, std::string(reinterpret_cast<const char*>(data), size));

    std::list<std::string> files;
    std::string output;
    bool unpacked = CUnzip_Utility::UpdateModuleUnzip(archive, &files, folder, &output, "fc");
    qdmfuzz::Require(!output.empty(), "the unpack says what happened");
    CheckNothingAbove();
    CheckOnlyPlainEntries(folder);
    if (unpacked) CheckListedFiles(folder, files);
    qdmfuzz::Require(CUnzip_Utility::DeleteFolder(folder, "fc"), "the unpack folder is removed");
    qdmfuzz::Require(qdmfuzz::FolderEntries(FolderAt(kDepth - 1)).empty(), "nothing is left behind");
    return 0;
}
