#include "repository/Staging.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "model/HostError.h"
#include "repository/Trust.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

void RemoveStaleStagingFolders(const std::string& tmp) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(tmp, error))
        if (entry.path().filename().string().rfind(kStagingPrefix, 0) == 0)
            std::filesystem::remove_all(entry.path(), error);  // does not follow links
}

struct Descriptor {
    explicit Descriptor(int value) : fd(value) {}
    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int fd;
};

// O_NONBLOCK: opening a FIFO must not wait for a writer; O_NOFOLLOW: a link
// could lead anywhere.
int OpenArchive(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat info;
    if (fd >= 0 && ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) return fd;
    if (fd >= 0) ::close(fd);
    Untrusted(untrusted::kArchiveNotRegular, path + " is not a regular file");
}

std::string Hex(const unsigned char* bytes, std::size_t size) {
    std::string hex(size * 2 + 1, '\0');
    ::sodium_bin2hex(&hex[0], hex.size(), bytes, size);
    hex.pop_back();
    return hex;
}

// Copies in to out, hashing what is written; stops past `limit` bytes.
struct CopyResult {
    std::uint64_t size = 0;
    std::string sha256;
};

CopyResult CopyAndHash(int in, int out, const std::optional<std::uint64_t>& limit, const std::string& source,
                       const std::string& copy) {
    crypto_hash_sha256_state state;
    ::crypto_hash_sha256_init(&state);
    CopyResult result;
    unsigned char buffer[65536];
    for (;;) {
        ssize_t got = ::read(in, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0)
            throw HostError(kExitRepository, "repository: cannot read " + source + ": " + std::strerror(errno));
        if (got == 0) break;
        result.size += static_cast<std::uint64_t>(got);
        if (limit && result.size > *limit)
            Untrusted(untrusted::kArchiveTooLarge,
                      source + " is larger than the " + std::to_string(*limit) + " bytes the catalogue declares");
        if (!WriteAll(out, buffer, static_cast<std::size_t>(got)))
            throw HostError(kExitInternal, "cannot write " + copy + ": " + std::strerror(errno));
        ::crypto_hash_sha256_update(&state, buffer, static_cast<unsigned long long>(got));
    }
    unsigned char digest[crypto_hash_sha256_BYTES];
    ::crypto_hash_sha256_final(&state, digest);
    result.sha256 = Hex(digest, sizeof digest);
    return result;
}

}  // namespace

StagingArea::StagingArea(const std::string& root) {
    if (::sodium_init() < 0) throw HostError(kExitInternal, "libsodium cannot be initialised");
    RemoveStaleStagingFolders(root + "/tmp");
    folder_ = root + "/tmp/" + kStagingPrefix + std::to_string(::getpid());
    if (::mkdir(folder_.c_str(), 0700) != 0 || ::chmod(folder_.c_str(), 0700) != 0) {
        std::string why = std::strerror(errno);
        folder_.clear();
        throw HostError(kExitInternal, "cannot create the staging folder below " + root + "/tmp: " + why);
    }
}

StagingArea::~StagingArea() {
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

std::string StagingArea::Stage(const std::string& repositoryFolder, const CatalogueEntry& entry) {
    const std::string source = repositoryFolder + "/" + entry.archive;
    const std::string copy = folder_ + "/" + entry.archive;
    Descriptor in(OpenArchive(source));
    Descriptor out(::open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (out.fd < 0) throw HostError(kExitInternal, "cannot create " + copy + ": " + std::strerror(errno));
    CopyResult copied = CopyAndHash(in.fd, out.fd, entry.size, source, copy);
    if (entry.size && copied.size != *entry.size)
        Untrusted(untrusted::kArchiveMismatch, source + " has " + std::to_string(copied.size) +
                                                   " bytes, the catalogue declares " + std::to_string(*entry.size));
    if (!entry.sha256.empty() && copied.sha256 != entry.sha256)
        Untrusted(untrusted::kArchiveMismatch,
                  source + " has SHA-256 " + copied.sha256 + ", the catalogue declares " + entry.sha256);
    return copy;
}

}  // namespace qdmcli
