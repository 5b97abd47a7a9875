#pragma once
// Fakes for the driver and utility module tests: programs found through PATH,
// files placed at fixed system paths (inside the sandbox only) and removed
// again, and a small adapter tool that counts its runs.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "TestEnv.h"

namespace moduletest {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
const char kWwpn[] = "10:00:00:00:c9:12:34:56";
const char kAttribCacheName[] = "HbaAttrib10-00-00-00-c9-12-34-56.txt";

// Number of lines of a file (0 when it is missing): the fakes append one per run.
inline size_t LineCount(const std::string& path) {
    std::istringstream in(qdmtest::ReadFile(path));
    size_t lines = 0;
    for (std::string line; std::getline(in, line);) ++lines;
    return lines;
}

// A folder of fake programs put in front of PATH; both undone on destruction.
class FakeBin {
public:
    FakeBin() : folder_(qdmtest::MakeTempDir("bin")) {
        const char* path = std::getenv("PATH");
        oldPath_ = path ? path : "";
        ::setenv("PATH", (folder_ + ":" + oldPath_).c_str(), 1);
    }
    ~FakeBin() {
        ::setenv("PATH", oldPath_.c_str(), 1);
        qdmtest::RemoveTree(folder_);
    }
    FakeBin(const FakeBin&) = delete;
    FakeBin& operator=(const FakeBin&) = delete;

    void Add(const std::string& name, const std::string& body) { qdmtest::WriteScript(folder_ + "/" + name, body); }

private:
    std::string folder_;
    std::string oldPath_;
};

// Files and folders placed at fixed system paths; removed in reverse order,
// together with every folder that had to be created for them.
class PlacedPaths {
public:
    PlacedPaths() = default;
    PlacedPaths(const PlacedPaths&) = delete;
    PlacedPaths& operator=(const PlacedPaths&) = delete;
    ~PlacedPaths() {
        for (auto it = placed_.rbegin(); it != placed_.rend(); ++it) qdmtest::RemoveTree(*it);
    }

    void File(const std::string& path, const std::string& content) {
        Track(path);
        qdmtest::WriteFile(path, content);
    }
    void Script(const std::string& path, const std::string& body) {
        Track(path);
        qdmtest::WriteScript(path, body);
    }
    void Folder(const std::string& path) {
        Track(path);
        ::mkdir(path.c_str(), 0755);
    }

private:
    // Records the outermost missing ancestor first so that it goes last.
    void Track(const std::string& path) {
        std::vector<std::string> missing;
        for (std::string p = path; p.size() > 1 && !qdmtest::Exists(p); p = p.substr(0, p.rfind('/')))
            missing.push_back(p);
        placed_.insert(placed_.end(), missing.rbegin(), missing.rend());
        if (missing.empty()) placed_.push_back(path);
    }
    std::vector<std::string> placed_;
};

// Installs an adapter tool at its fixed path that appends one line per run to
// `runLog`, answers "HbaAttributes" with `driverLine` and "version" with
// `versionLine`.
inline void InstallFakeHbacmd(PlacedPaths& placed, const std::string& runLog, const std::string& driverLine,
                              const std::string& versionLine) {
    placed.Script(kHbacmd, "echo \"$*\" >> '" + runLog + "'\n"
                           "case \"$1\" in\n"
                           "HbaAttributes) echo \"Port WWN : $2\"; echo '" + driverLine + "' ;;\n"
                           "version) echo 'One Command Manager'; echo '" + versionLine + "' ;;\n"
                           "esac\n");
}

}  // namespace moduletest
