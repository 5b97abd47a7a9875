// Fault switches: which verb misbehaves, and how its output is spoilt.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "Sim.h"

namespace qdmsim {

namespace {

const std::set<std::string> kOutputFaults = {"error64", "error",   "empty",      "hang",
                                             "crash",   "garbage", "garbage10m", "longlines"};

std::string ModeOf(const json& fault) {
    if (fault.is_string()) return fault.get<std::string>();
    if (fault.is_object() && fault.contains("mode") && fault["mode"].is_string())
        return fault["mode"].get<std::string>();
    throw SimError("fault switch: expected a mode or {\"mode\": M, \"times\": N}");
}

// Consumes one firing of a counted fault; true when the state changed.
bool ConsumeOne(json& faults, const std::string& key) {
    json& fault = faults[key];
    if (!fault.is_object() || !fault.contains("times")) return false;
    if (!fault["times"].is_number_integer()) throw SimError("fault switch: times must be an integer");
    long left = fault["times"].get<long>() - 1;
    if (left <= 0)
        faults.erase(key);
    else
        fault["times"] = left;
    return true;
}

// Deterministic bytes, so that a failing run can be reproduced.
std::string PseudoRandomBytes(size_t count) {
    std::string bytes(count, '\0');
    unsigned long seed = 0x2545F491UL;
    for (char& byte : bytes) {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        byte = static_cast<char>(seed >> 33);
    }
    return bytes;
}

std::string LongLines() {
    std::string text;
    for (const char* key : {"Port WWN", "Serial No.", "PCI Bus Number"}) {
        text += key;
        text += std::string(256 * 1024, ' ');
        text += ": ";
        text += std::string(256 * 1024, '9');
    }
    return text + "\n";
}

[[noreturn]] void CrashAfter(const std::string& partialOutput) {
    std::fwrite(partialOutput.data(), 1, partialOutput.size(), stdout);
    std::fflush(stdout);
    struct rlimit noCore = {0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    std::abort();
}

}  // namespace

std::string TakeFault(const std::string& verb, const std::string& fallback) {
    std::string mode;
    UpdateState([&](json& state) {
        if (!state.contains("faults")) return false;
        json& faults = state["faults"];
        std::string key = faults.contains(verb) ? verb : fallback;
        if (key.empty() || !faults.contains(key)) return false;
        mode = ModeOf(faults[key]);
        return ConsumeOne(faults, key);
    });
    return mode;
}

bool IsKnownFault(const std::string& verb, const std::string& mode) {
    if (verb == "lspci") return mode == "hang";
    if (verb == "utility") return mode == "slow";
    if (verb == "version") return kOutputFaults.count(mode) > 0 || mode == "slow";
    if (verb == "hbacmd") return kOutputFaults.count(mode) > 0;
    if (verb == "listhbas") return kOutputFaults.count(mode) > 0 || mode == "manyports";
    if (verb == "HbaAttributes")
        return kOutputFaults.count(mode) > 0 || mode == "badversions" || mode == "nokeys" || mode == "slow";
    if (verb == "Download")
        return mode == "fail" || mode == "silent" || mode == "crash" || mode == "hang" || mode == "slow";
    if (verb == "multipathd") return mode == "missing" || mode == "single-path" || mode == "stuck";
    if (verb == "rpm" || verb == "depmod") return mode == "fail" || mode == "hang" || mode == "slow";
    return false;
}

void HangForever() {
    std::fflush(stdout);
    for (;;) ::pause();
}

int EmitToolOutput(const std::string& mode, const std::string& normal, int normalStatus) {
    if (mode == "error64") {
        std::cout << "ERROR: <64>: Adapter busy, retry later\n";
        return 1;
    }
    if (mode == "error") {
        std::cout << "ERROR: <251>: Command failed\n";
        return 1;
    }
    if (mode == "empty") return 0;
    if (mode == "hang") HangForever();
    if (mode == "crash") CrashAfter(normal.substr(0, normal.size() / 2));
    if (mode == "garbage" || mode == "garbage10m") {
        // The large variant repeats the block: cheap to print even in a sanitizer build.
        const std::string block = PseudoRandomBytes(64 * 1024);
        for (int copies = mode == "garbage" ? 1 : 160; copies > 0; --copies) std::cout << block;
        return 0;
    }
    if (mode == "longlines") {
        std::cout << LongLines();
        return 0;
    }
    std::cout << normal;
    return normalStatus;
}

}  // namespace qdmsim
