#pragma once
// libarchive, loaded at the first unpack: it and what it brings (libxml2,
// ICU, the compression libraries) are about half of a process's start-up,
// yet only an update unpacks anything.
#include <archive.h>
#include <archive_entry.h>

#include <string>

class ArchiveLibrary {
public:
    // The loaded library, or null (with the loader's reason in *problem) when
    // it or one of its functions cannot be found.
    static const ArchiveLibrary* Get(std::string* problem);

    decltype(&archive_read_new) read_new = nullptr;
    decltype(&archive_read_free) read_free = nullptr;
    decltype(&archive_read_support_format_all) support_format_all = nullptr;
    decltype(&archive_read_support_filter_all) support_filter_all = nullptr;
    decltype(&archive_read_open_filename) open_filename = nullptr;
    decltype(&archive_read_next_header) next_header = nullptr;
    decltype(&archive_read_data_block) data_block = nullptr;
    decltype(&archive_error_string) error_string = nullptr;
    decltype(&archive_entry_pathname) entry_pathname = nullptr;
    decltype(&archive_entry_hardlink) entry_hardlink = nullptr;
    decltype(&archive_entry_symlink) entry_symlink = nullptr;
    decltype(&archive_entry_filetype) entry_filetype = nullptr;
    decltype(&archive_entry_size_is_set) entry_size_is_set = nullptr;
    decltype(&archive_entry_size) entry_size = nullptr;
    decltype(&archive_entry_perm) entry_perm = nullptr;

private:
    ArchiveLibrary() = default;
    bool Load(std::string* problem);
};
