// Unpacking of fuzzed update modules. Whatever the archive holds, nothing may
// land outside the target folder and nothing but files and folders inside it.
#include <filesystem>
#include <list>

#include "FuzzSupport.h"
#include "UnzipUtility.h"

namespace fs = std::filesystem;

namespace {

// Names in a folder; none when it cannot be read.
std::vector<std::string> Names(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) names.push_back(entry.path().filename());
    return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The unpack folder sits a few levels down, so that an entry climbing out of
    // it shows up as a stray name in one of the levels above.
    static const fs::path root = qdmfuzz::Root(), archive = root / "module.zip", folder = root / "unzip/a/b/module";
    qdmfuzz::WriteFile(archive, std::string(reinterpret_cast<const char*>(data), size));
    std::list<std::string> files;
    std::string output;
    const bool unpacked = CUnzip_Utility::UpdateModuleUnzip(archive, &files, folder, &output, "fc");
    qdmfuzz::Require(!output.empty(), "the unpack says what happened");
    for (const std::string& name : Names(root))
        qdmfuzz::Require(name == "log" || name == "tmp" || name == "module.zip" || name == "unzip",
                         "nothing written into the install root");
    for (fs::path level = folder; level.parent_path() != root; level = level.parent_path()) {
        const std::vector<std::string> names = Names(level.parent_path());
        qdmfuzz::Require(names.empty() || names == std::vector<std::string>{level.filename()},
                         "nothing written beside the unpack folder");
    }
    std::error_code error;
    for (const auto& entry :
         fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, error))
        qdmfuzz::Require(fs::is_regular_file(entry.symlink_status()) || fs::is_directory(entry.symlink_status()),
                         "only files and folders are unpacked");
    for (const std::string& file : files)
        qdmfuzz::Require(!unpacked || fs::is_regular_file(fs::symlink_status(folder / file)),
                         "every listed file was unpacked as a file");
    qdmfuzz::Require(CUnzip_Utility::DeleteFolder(folder, "fc") && Names(folder.parent_path()).empty(),
                     "the unpack folder is removed and nothing is left behind");
    return 0;
}
