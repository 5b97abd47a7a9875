#include "ArchiveLibrary.h"

#include <dlfcn.h>

namespace {

template <class Function>
bool Bind(void* handle, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(::dlsym(handle, name));
    return *function != nullptr;
}

}  // namespace

bool ArchiveLibrary::Load(std::string* problem) {
    // By its soname, as the linker would have named it; never unloaded.
    void* handle = ::dlopen(QDM_LIBARCHIVE_SONAME, RTLD_NOW | RTLD_LOCAL);
    bool bound = handle && Bind(handle, "archive_read_new", &read_new) &&
                 Bind(handle, "archive_read_free", &read_free) &&
                 Bind(handle, "archive_read_support_format_all", &support_format_all) &&
                 Bind(handle, "archive_read_support_filter_all", &support_filter_all) &&
                 Bind(handle, "archive_read_open_filename", &open_filename) &&
                 Bind(handle, "archive_read_next_header", &next_header) &&
                 Bind(handle, "archive_read_data_block", &data_block) &&
                 Bind(handle, "archive_error_string", &error_string) &&
                 Bind(handle, "archive_entry_pathname", &entry_pathname) &&
                 Bind(handle, "archive_entry_hardlink", &entry_hardlink) &&
                 Bind(handle, "archive_entry_symlink", &entry_symlink) &&
                 Bind(handle, "archive_entry_filetype", &entry_filetype) &&
                 Bind(handle, "archive_entry_size_is_set", &entry_size_is_set) &&
                 Bind(handle, "archive_entry_size", &entry_size) && Bind(handle, "archive_entry_perm", &entry_perm);
    if (!bound) {
        const char* reason = ::dlerror();
        *problem = std::string("cannot load ") + QDM_LIBARCHIVE_SONAME + ": " + (reason ? reason : "no reason given");
    }
    return bound;
}

const ArchiveLibrary* ArchiveLibrary::Get(std::string* problem) {
    static std::string loadProblem;
    static const ArchiveLibrary* library = [] {
        static ArchiveLibrary loaded;
        return loaded.Load(&loadProblem) ? &loaded : nullptr;
    }();
    *problem = loadProblem;
    return library;
}
