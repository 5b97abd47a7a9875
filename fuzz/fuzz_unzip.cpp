// Unpacking of fuzzed update modules. Whatever the archive holds, nothing may
// land outside the target folder and nothing but files and folders inside it.
#include <sys/stat.h>

#include <list>

#include "FuzzSupport.h"
#include "UnzipUtility.h"

namespace {

// The unpack folder sits a few levels down, so that an entry climbing out of
// it shows up as a stray name in one of the levels above.
const std::vector<std::string> kLevels = {"unzip", "a", "b", "module"};

std::string FolderAt(size_t depth) {
    std::string folder = qdmfuzz::Root();
    for (size_t i = 0; i < depth; ++i) folder += "/" + kLevels[i];
    return folder;
}

bool IsA(const std::string& path, mode_t type) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && (info.st_mode & S_IFMT) == type;
}

// Only regular files and folders below the unpack folder: no links, no devices.
void CheckOnlyPlainEntries(const std::string& folder) {
    for (const std::string& name : qdmfuzz::FolderEntries(folder)) {
        const std::string path = folder + "/" + name;
        qdmfuzz::Require(IsA(path, S_IFREG) || IsA(path, S_IFDIR), "only files and folders are unpacked");
        if (IsA(path, S_IFDIR)) CheckOnlyPlainEntries(path);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string archive = qdmfuzz::InRoot("module.zip");
    static const std::string folder = FolderAt(kLevels.size());
    qdmfuzz::WriteFile(archive, std::string(reinterpret_cast<const char*>(data), size));
    std::list<std::string> files;
    std::string output;
    const bool unpacked = CUnzip_Utility::UpdateModuleUnzip(archive, &files, folder, &output, "fc");
    qdmfuzz::Require(!output.empty(), "the unpack says what happened");
    for (const std::string& name : qdmfuzz::FolderEntries(qdmfuzz::Root()))
        qdmfuzz::Require(name == "log" || name == "tmp" || name == "module.zip" || name == "unzip", "nothing written into the install root");
    for (size_t depth = 1; depth < kLevels.size(); ++depth) {
        const std::vector<std::string> names = qdmfuzz::FolderEntries(FolderAt(depth));
        qdmfuzz::Require(names.empty() || names == std::vector<std::string>{kLevels[depth]}, "nothing written beside the unpack folder");
    }
    CheckOnlyPlainEntries(folder);
    for (const std::string& file : files)
        qdmfuzz::Require(!unpacked || IsA(folder + "/" + file, S_IFREG), "every listed file was unpacked as a file");
    qdmfuzz::Require(CUnzip_Utility::DeleteFolder(folder, "fc"), "the unpack folder is removed");
    qdmfuzz::Require(qdmfuzz::FolderEntries(FolderAt(kLevels.size() - 1)).empty(), "nothing is left behind");
    return 0;
}
