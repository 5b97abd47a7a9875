#pragma once
// Files that other hands may have prepared (repository, keys) and files that
// must never be seen half-written: read without following a final link,
// without blocking on a FIFO and within a size limit; written whole or not
// at all.
#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace qdmcli {

enum class ReadResult { kOk, kMissing, kNotRegular, kTooLarge, kUnreadable };

struct LimitedRead {
    ReadResult result = ReadResult::kUnreadable;
    std::string text;     // whole when kOk
    struct stat info {};  // of the opened file
};

LimitedRead ReadRegularFile(const std::string& path, std::size_t limit);
// All of it, retrying short and interrupted writes; false on an error.
bool WriteAll(int fd, const void* data, std::size_t size);
// A temporary file beside the path (".<name>.XXXXXX"), synced, then renamed
// over it, so a reader sees the old or the new content; false when that fails
// (the temporary removed).
bool WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode);

}  // namespace qdmcli
