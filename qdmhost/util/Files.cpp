#include "util/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace qdmcli {

namespace {

ReadResult OpenFailure(int error) {
    if (error == ENOENT) return ReadResult::kMissing;
    // ELOOP: a final link; ENXIO: a socket.
    return error == ELOOP || error == ENXIO ? ReadResult::kNotRegular : ReadResult::kUnreadable;
}

void SyncFolderOf(const std::string& path) {
    std::string folder = path.substr(0, path.rfind('/'));
    int fd = ::open(folder.empty() ? "/" : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

bool WriteAll(int fd, const void* data, std::size_t size) {
    const char* bytes = static_cast<const char*>(data);
    for (std::size_t done = 0; done < size;) {
        ssize_t wrote = ::write(fd, bytes + done, size - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return false;
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

LimitedRead ReadRegularFile(const std::string& path, std::size_t limit) {
    LimitedRead read;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        read.result = OpenFailure(errno);
        return read;
    }
    if (::fstat(fd, &read.info) != 0 || !S_ISREG(read.info.st_mode)) {
        read.result = ReadResult::kNotRegular;
        ::close(fd);
        return read;
    }
    char buffer[65536];
    read.result = ReadResult::kOk;
    for (;;) {
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (got < 0) read.result = ReadResult::kUnreadable;
            break;
        }
        read.text.append(buffer, static_cast<std::size_t>(got));
        if (read.text.size() > limit) {
            read.result = ReadResult::kTooLarge;
            break;
        }
    }
    ::close(fd);
    return read;
}

bool WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode) {
    // Hidden and without the final name's suffix, so that readers of "*.prom"
    // or "*.pub" never pick up a half-written file.
    std::size_t slash = path.rfind('/');
    std::string temporary = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".XXXXXX";
    int fd = ::mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0) return false;
    // fchmod: the mode must not depend on the caller's umask.
    bool written = ::fchmod(fd, mode) == 0 && WriteAll(fd, text.data(), text.size()) && ::fsync(fd) == 0;
    written = ::close(fd) == 0 && written && ::rename(temporary.c_str(), path.c_str()) == 0;
    if (!written) ::unlink(temporary.c_str());
    if (written) SyncFolderOf(path);
    return written;
}

}  // namespace qdmcli
