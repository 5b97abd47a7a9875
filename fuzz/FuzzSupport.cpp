#include "FuzzSupport.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "CEmulexCommon.h"
#include "FileUtility.h"
#include "HostSys.h"
#include "TraceUtility.h"

namespace qdmfuzz {
namespace {

// Heap-held so that the exit handler still finds it after static destructors.
const std::string* root = nullptr;

void RemoveRoot() {
    if (!root) return;
    std::error_code ignored;
    std::filesystem::remove_all(*root, ignored);
}

std::string MakeRoot() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/qdmfuzz.XXXXXX";
    if (!mkdtemp(pattern.data())) {
        std::perror("qdmfuzz: mkdtemp");
        std::abort();
    }
    return pattern;
}

void Prepare() {
    root = new std::string(MakeRoot());
    std::atexit(RemoveRoot);
    CFileUtility::SetInstallPath(*root);
    CTraceUtility::SetLevelMask(0);
    // Operator messages are written whatever the level mask; a plain file
    // where their folder would be makes every append fail quietly, so a long
    // run cannot fill the disk.
    WriteFile(*root + "/log", "");
    qdmhost::SetSleepHook([](unsigned long) {});
    Require(CEmulexCommon::CreateLocalDirectory() == 1, "work folders created");
}

}  // namespace

const std::string& Root() {
    if (!root) Prepare();
    return *root;
}

std::string InRoot(const std::string& relative) { return Root() + "/" + relative; }

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    Require(static_cast<bool>(out), "fuzz input written to its file");
}

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "qdmfuzz: invariant broken: %s\n", what);
    std::abort();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::string::size_type start = 0;
    while (start < text.size()) {
        std::string::size_type end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> FolderEntries(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return names;
    while (struct dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    return names;
}

}  // namespace qdmfuzz
