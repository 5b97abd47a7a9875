#include "adapters/UpdateLeftovers.h"

#include <filesystem>

namespace qdmcli {

namespace {

bool IsCachedReading(const std::string& name) {
    return name == "HbaVersion.txt" ||
           (name.rfind("HbaAttrib", 0) == 0 && name.size() > 13 && name.compare(name.size() - 4, 4, ".txt") == 0);
}

}  // namespace

void ClearUpdateLeftovers(const std::string& root) {
    const std::string temp = root + "/tmp/EMULEX/temp";
    std::error_code ignored;
    for (const char* name : {"tmp", "firm", "temp_driver_fc.txt", "temp_ocm_install.txt", "temp_ocm_uninstall.txt"})
        std::filesystem::remove_all(temp + "/" + name, ignored);  // does not follow links
    const std::string cache = root + "/tmp/EMULEX/cache";
    std::error_code error;
    for (std::filesystem::directory_iterator it(cache, error), end; !error && it != end; it.increment(error))
        if (IsCachedReading(it->path().filename().string())) std::filesystem::remove(it->path(), ignored);
}

}  // namespace qdmcli
