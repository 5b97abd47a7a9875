#include "UnzipUtility.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <vector>

#include "ArchiveLibrary.h"
#include "FileUtility.h"
#include "FileDescriptor.h"
#include "TraceUtility.h"

namespace {

// Archive bombs stop here.
const la_int64_t kMaxTotalBytes = 2LL * 1024 * 1024 * 1024;
const size_t kMaxEntries = 100000;

using ArchiveHandle = std::unique_ptr<struct archive, int (*)(struct archive*)>;

ArchiveHandle OpenArchive(const ArchiveLibrary& lib, const std::string& path) {
    ArchiveHandle reader(lib.read_new(), lib.read_free);
    if (!reader) return reader;
    lib.support_format_all(reader.get());
    lib.support_filter_all(reader.get());
    if (lib.open_filename(reader.get(), path.c_str(), 64 * 1024) != ARCHIVE_OK)
        reader.reset();
    return reader;
}

// The entry's path split into components; "" and "." components dropped.
// False for an absolute path, a ".." component or an empty name.
bool SplitEntryPath(const char* name, std::vector<std::string>* components) {
    if (!name || !*name || name[0] == '/') return false;
    std::string path = name;
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find('/', start);
        if (slash == std::string::npos) slash = path.size();
        std::string part = path.substr(start, slash - start);
        if (part == "..") return false;
        if (!part.empty() && part != ".") components->push_back(part);
        start = slash + 1;
    }
    return true;
}

std::string JoinPath(const std::vector<std::string>& components) {
    std::string joined;
    for (const auto& part : components) joined += (joined.empty() ? "" : "/") + part;
    return joined;
}

// Why the entry may not be unpacked, or "" when it may.
std::string RejectReason(const ArchiveLibrary& lib, struct archive_entry* entry) {
    std::vector<std::string> components;
    if (!SplitEntryPath(lib.entry_pathname(entry), &components))
        return "unsafe or empty entry name";
    if (lib.entry_hardlink(entry) || lib.entry_symlink(entry)) return "link entry";
    mode_t type = lib.entry_filetype(entry);
    if (type != AE_IFREG && type != AE_IFDIR) return "special file entry";
    if (type == AE_IFREG && components.empty()) return "file entry without a name";
    return "";
}

// First pass: every entry must be safe before anything is written.
bool ValidateArchive(const ArchiveLibrary& lib, const std::string& archive, std::string* problem) {
    ArchiveHandle reader = OpenArchive(lib, archive);
    if (!reader) {
        *problem = "cannot open archive";
        return false;
    }
    struct archive_entry* entry;
    size_t entries = 0;
    la_int64_t total = 0;
    int result;
    while ((result = lib.next_header(reader.get(), &entry)) == ARCHIVE_OK) {
        std::string reason = RejectReason(lib, entry);
        if (!reason.empty()) {
            const char* name = lib.entry_pathname(entry);
            *problem = reason + " [" + (name ? name : "") + "]";
            return false;
        }
        if (lib.entry_size_is_set(entry)) total += lib.entry_size(entry);
        if (++entries > kMaxEntries || total > kMaxTotalBytes) {
            *problem = "archive too large";
            return false;
        }
    }
    if (result != ARCHIVE_EOF) {
        // libarchive gives no text for some damaged archives.
        const char* reason = lib.error_string(reader.get());
        *problem = std::string("unreadable archive: ") + (reason ? reason : "unknown error");
        return false;
    }
    return true;
}

// Opens (creating) the folder below parent without following a symbolic
// link; only root may enter it: archives are unpacked into the work area.
FileDescriptor OpenSubfolder(int parent, const std::string& name) {
    if (::mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) return FileDescriptor();
    return FileDescriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Descends along the components, creating folders; the last component is
// left to the caller when leaveLast is set.
FileDescriptor OpenFolderChain(int root, const std::vector<std::string>& components, bool leaveLast) {
    FileDescriptor current(::fcntl(root, F_DUPFD_CLOEXEC, 0));
    size_t count = components.size() - (leaveLast ? 1 : 0);
    for (size_t i = 0; i < count && current.get() >= 0; ++i)
        current = OpenSubfolder(current.get(), components[i]);
    return current;
}

bool CopyData(const ArchiveLibrary& lib, struct archive* reader, int fd, la_int64_t* total) {
    const void* block;
    size_t size;
    la_int64_t offset;
    int result;
    while ((result = lib.data_block(reader, &block, &size, &offset)) == ARCHIVE_OK) {
        *total += static_cast<la_int64_t>(size);
        if (*total > kMaxTotalBytes) return false;
        if (::pwrite(fd, block, size, offset) != static_cast<ssize_t>(size)) return false;
    }
    return result == ARCHIVE_EOF;
}

bool ExtractFile(const ArchiveLibrary& lib, struct archive* reader, struct archive_entry* entry, int root,
                 const std::vector<std::string>& components, la_int64_t* total) {
    FileDescriptor folder = OpenFolderChain(root, components, true);
    if (folder.get() < 0) return false;
    mode_t mode = (lib.entry_perm(entry) & S_IXUSR) ? 0755 : 0644;
    FileDescriptor file(::openat(folder.get(), components.back().c_str(),
                             O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode));
    if (file.get() < 0) return false;
    // An existing file keeps its old mode otherwise.
    return ::fchmod(file.get(), mode) == 0 && CopyData(lib, reader, file.get(), total);
}

// Second pass: regular files and folders only (the first pass refused the rest).
bool ExtractArchive(const ArchiveLibrary& lib, const std::string& archive, int root, std::list<std::string>* fileList,
                    size_t* fileCount, std::string* problem) {
    ArchiveHandle reader = OpenArchive(lib, archive);
    if (!reader) {
        *problem = "cannot open archive";
        return false;
    }
    struct archive_entry* entry;
    la_int64_t total = 0;
    while (lib.next_header(reader.get(), &entry) == ARCHIVE_OK) {
        std::vector<std::string> components;
        SplitEntryPath(lib.entry_pathname(entry), &components);
        if (components.empty()) continue;  // the folder itself ("./")
        bool done = lib.entry_filetype(entry) == AE_IFDIR
                        ? OpenFolderChain(root, components, false).get() >= 0
                        : ExtractFile(lib, reader.get(), entry, root, components, &total);
        if (!done) {
            *problem = "cannot write [" + JoinPath(components) + "]";
            return false;
        }
        if (lib.entry_filetype(entry) == AE_IFREG) {
            ++*fileCount;
            if (fileList) fileList->push_back(JoinPath(components));
        }
    }
    return true;
}

bool Unpack(const std::string& archive, std::list<std::string>* fileList, const std::string& folder,
            std::string* description) {
    std::string problem;
    const ArchiveLibrary* lib = ArchiveLibrary::Get(&problem);
    if (!lib) {
        *description = "failed: " + problem;
        return false;
    }
    if (!ValidateArchive(*lib, archive, &problem)) {
        *description = "refused: " + problem;
        return false;
    }
    if (!CFileUtility::CreateFolder(folder)) {
        *description = "cannot create folder " + folder;
        return false;
    }
    FileDescriptor root(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    size_t files = 0;
    if (root.get() < 0 || !ExtractArchive(*lib, archive, root.get(), fileList, &files, &problem)) {
        *description = "failed: " + (root.get() < 0 ? "cannot open folder " + folder : problem);
        return false;
    }
    *description = std::to_string(files) + " files unpacked into " + folder;
    return true;
}

}  // namespace

bool CUnzip_Utility::UpdateModuleUnzip(std::string archive, std::list<std::string>* fileList,
                                       std::string folder, std::string* output,
                                       std::string traceFile) {
    std::string description;
    bool unpacked = Unpack(archive, fileList, folder, &description);
    if (!unpacked)
        CTraceUtility::WriteDebug(traceFile.c_str(), CTraceUtility::TRACE_ERROR,
                                  "UpdateModuleUnzip(%s): %s", archive.c_str(), description.c_str());
    if (output) *output = description;
    return unpacked;
}

// remove_all never follows a symbolic link: a link is removed, not its target.
bool CUnzip_Utility::DeleteFolder(std::string folder, std::string traceFile) {
    if (folder.empty()) return false;
    std::error_code error;
    std::filesystem::remove_all(folder, error);
    if (error) {
        CTraceUtility::WriteDebug(traceFile.c_str(), CTraceUtility::TRACE_ERROR,
                                  "DeleteFolder(%s): %s", folder.c_str(), error.message().c_str());
        return false;
    }
    return true;
}
