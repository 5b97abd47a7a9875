#include "FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CEmulexCommon.h"
#include "FileUtility.h"
#include "HostSys.h"
#include "TraceUtility.h"

namespace qdmfuzz {

// Heap-held so that the exit handler still finds it after static destructors.
static const std::string* root = nullptr;

const std::string& Root() {
    static const bool prepared = [] {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/qdmfuzz.XXXXXX";
        Require(mkdtemp(pattern.data()) != nullptr, "private install root created");
        root = new std::string(pattern);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(*root, ignored);
        });
        CFileUtility::SetInstallPath(*root);
        CTraceUtility::SetLevelMask(0);
        // Operator messages are written whatever the level mask; a plain file
        // where their folder would be makes every append fail quietly, so a long
        // run cannot fill the disk.
        WriteFile(*root + "/log", "");
        qdmhost::SetSleepHook([](unsigned long) {});
        return CEmulexCommon::CreateLocalDirectory() == 1;
    }();
    Require(prepared, "work folders created");
    return *root;
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    Require(static_cast<bool>(out << content << std::flush), "fuzz input written to its file");
}

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "qdmfuzz: invariant broken: %s\n", what);
    std::abort();
}

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace qdmfuzz
