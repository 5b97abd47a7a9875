#pragma once
// Processes and system facts.
#include <string>

class CCommon_Information {
public:
    enum { EXEC_OK = 0, EXEC_NOT_STARTED = 1, EXEC_TIMEOUT = 255 };
    static const unsigned long NO_TIMEOUT = ~0UL;

    // Runs the line in its own process group: as its words when it holds no
    // shell syntax, else with /bin/sh -c. Standard output goes to outputFile
    // when one is given; workFolder, when not empty, is the current directory
    // of the command. Fills returnCode with the exit status.
    // Returns 0 when it ran, 1 when it could not be started, 255 when the
    // time-out expired (the whole process group is then killed and reaped).
    static int ExecForeignModule(const std::string& command, const std::string& outputFile,
                                 const std::string& workFolder, unsigned long* returnCode,
                                 unsigned long timeoutMs);

    // Bus, device and function of a device identifier
    // ("0000:03:00.0-PCI\VEN_10DF&DEV_F100&..." or "03:00.0-...").
    static bool GetPCIInfo(std::string deviceId, int* bus, int* device, int* function,
                           const std::string& traceFile);

    // The machine name from uname ("x86_64", "i686", ...).
    static std::string GetArchitectureInfo(const std::string& traceFile);
    // For tests and the CLI: answer this instead of uname (empty restores).
    static void SetArchitectureOverride(const std::string& machine);

    // Deletes a file, retrying briefly; a missing file counts as deleted.
    static bool RetryDeleteFile(const std::string& path);
};
