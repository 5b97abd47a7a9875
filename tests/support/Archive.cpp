#include "Archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <memory>

namespace qdmtest {

namespace {
bool WriteEntry(struct archive* zip, const ArchiveEntry& item) {
    std::unique_ptr<struct archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                               archive_entry_free);
    const bool symlink = !item.symlinkTarget.empty();
    archive_entry_set_pathname(entry.get(), item.name.c_str());
    archive_entry_set_filetype(entry.get(), symlink ? AE_IFLNK : AE_IFREG);
    archive_entry_set_perm(entry.get(), symlink ? 0777 : item.executable ? 0755 : 0644);
    if (symlink) archive_entry_set_symlink(entry.get(), item.symlinkTarget.c_str());
    if (!item.hardlinkTarget.empty()) archive_entry_set_hardlink(entry.get(), item.hardlinkTarget.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(item.content.size()));
    if (archive_write_header(zip, entry.get()) != ARCHIVE_OK) return false;
    return item.content.empty() ||
           archive_write_data(zip, item.content.data(), item.content.size()) ==
               static_cast<la_ssize_t>(item.content.size());
}

bool MakeArchive(const std::string& path, const std::vector<ArchiveEntry>& entries,
                 int (*setFormat)(struct archive*)) {
    std::unique_ptr<struct archive, decltype(&archive_write_free)> writer(archive_write_new(),
                                                                          archive_write_free);
    if (setFormat(writer.get()) != ARCHIVE_OK) return false;
    if (archive_write_open_filename(writer.get(), path.c_str()) != ARCHIVE_OK) return false;
    for (const auto& item : entries)
        if (!WriteEntry(writer.get(), item)) return false;
    return archive_write_close(writer.get()) == ARCHIVE_OK;
}
}  // namespace

bool MakeZip(const std::string& path, const std::vector<ArchiveEntry>& entries) {
    return MakeArchive(path, entries, archive_write_set_format_zip);
}

bool MakeTar(const std::string& path, const std::vector<ArchiveEntry>& entries) {
    return MakeArchive(path, entries, archive_write_set_format_pax_restricted);
}

}  // namespace qdmtest
