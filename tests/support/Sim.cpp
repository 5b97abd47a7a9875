#include "Sim.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <archive.h>
#include <archive_entry.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "TestEnv.h"

namespace qdmtest {

namespace {

// Runs a qdmsim builder with its own arguments, then the caller's extra ones.
bool Build(const std::string& command, std::vector<std::string> args, const std::vector<std::string>& extra) {
    args.insert(args.begin(), command);
    args.insert(args.end(), extra.begin(), extra.end());
    std::string output;
    int status = RunSim(args, &output);
    EXPECT_EQ(status, 0) << command << ": " << output;
    return status == 0;
}

}  // namespace

std::string ShellQuote(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

int RunSim(const std::vector<std::string>& args, std::string* output) {
    std::string command = ShellQuote(QDM_SIM_BINARY);
    for (const std::string& arg : args) command += " " + ShellQuote(arg);
    return RunShell(command, output);
}

int RunShell(const std::string& commandLine, std::string* output) {
    FILE* pipe = ::popen(("{ " + commandLine + "; } 2>&1").c_str(), "r");
    if (!pipe) return -1;
    std::string text;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
    int status = ::pclose(pipe);
    if (output) *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool UnpackModule(const std::string& zip, const std::string& folder) {
    std::unique_ptr<struct archive, decltype(&archive_read_free)> reader(archive_read_new(),
                                                                         archive_read_free);
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_filename(reader.get(), zip.c_str(), 16384) != ARCHIVE_OK) return false;
    std::filesystem::create_directories(folder);
    struct archive_entry* entry = nullptr;
    int status;
    while ((status = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
        const std::string path = folder + "/" + archive_entry_pathname(entry);
        if (archive_entry_filetype(entry) == AE_IFDIR) {
            std::filesystem::create_directories(path);
            continue;
        }
        std::string content;
        char buffer[4096];
        for (la_ssize_t n; (n = archive_read_data(reader.get(), buffer, sizeof buffer)) > 0;)
            content.append(buffer, static_cast<size_t>(n));
        WriteFile(path, content);
        ::chmod(path.c_str(), archive_entry_perm(entry));
    }
    return status == ARCHIVE_EOF;
}

std::string InstallSimulator(const std::string& folder, const std::string& stateJson, const SimOptions& options) {
    const std::string statePath = folder + "/qdmsim-state.json";
    WriteFile(statePath, stateJson);
    ::setenv("QDMSIM_STATE", statePath.c_str(), 1);
    std::vector<std::string> args = {"install", "--state", statePath, "--config", options.config};
    if (!options.utility) args.push_back("--no-utility");
    std::string output;
    if (RunSim(args, &output) != 0) {
        ADD_FAILURE() << "qdmsim install failed: " << output;
        return "";
    }
    // The simulated tools first on PATH, once.
    const std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    if (path.rfind("/opt/qdmsim/bin:", 0) != 0) ::setenv("PATH", ("/opt/qdmsim/bin:" + path).c_str(), 1);
    return statePath;
}

std::string DemoState() { return ReadFile(std::string(QDM_SOURCE_DIR) + "/sim/demo/server.json"); }

size_t SimCallCount(const std::string& verb) {
    std::string output;
    return RunSim({"calls", verb}, &output) == 0 ? std::strtoul(output.c_str(), nullptr, 10) : 0;
}

void SimResetCalls() { RunSim({"calls", "--reset"}); }

bool SimFault(const std::string& verb, const std::string& mode, int times) {
    std::vector<std::string> args = {"fault", verb, mode};
    if (times > 0) args.insert(args.end(), {"--times", std::to_string(times)});
    return RunSim(args) == 0;
}

std::string SimGet(const std::string& key) {
    std::string output;
    if (RunSim({"state", "get", key}, &output) != 0) return "";
    return output.erase(output.find_last_not_of("\n ") + 1);
}

bool BuildFirmwareModule(const std::string& out, const std::string& uniqueName, const std::vector<std::string>& extra) {
    return Build("build-firmware", {"--out", out, "--name", uniqueName}, extra);
}

bool BuildDriverModule(const std::string& out, const std::string& version, const std::vector<std::string>& extra) {
    return Build("build-driver", {"--out", out, "--version", version}, extra);
}

bool BuildUtilityModule(const std::string& out, const std::string& version, const std::vector<std::string>& extra) {
    return Build("build-utility", {"--out", out, "--version", version}, extra);
}

bool BuildCatalogue(const std::string& repo, const std::vector<std::string>& extra) {
    return Build("build-catalogue", {"--repo", repo}, extra);
}

}  // namespace qdmtest
