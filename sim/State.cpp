// The simulated server's state file: location, locked load and atomic save,
// validation, and the call log beside it.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Sim.h"

namespace qdmsim {

namespace {

// Holds an flock on "<state>.lock" for its lifetime. The lock lives on a
// separate file because the state itself is replaced by rename.
class StateLock {
public:
    StateLock(const std::string& statePath, int operation)
        : fd_(::open((statePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (fd_ < 0) return;  // read-only folder: go on unlocked
        while (::flock(fd_, operation) != 0 && errno == EINTR) {
        }
    }
    ~StateLock() {
        if (fd_ >= 0) ::close(fd_);
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

private:
    int fd_;
};

json ParseStateFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SimError(path + ": cannot open the state file: " + std::strerror(errno));
    json state = json::parse(in, nullptr, false);
    if (state.is_discarded()) throw SimError(path + ": the state file is not valid JSON");
    try {
        ValidateState(state);
    } catch (const SimError& error) {
        throw SimError(path + ": " + error.what());
    }
    return state;
}

void SaveStateFile(const std::string& path, const json& state) {
    std::string temporary = path + ".tmp." + std::to_string(::getpid());
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << state.dump(2) << '\n';
    out.close();
    if (!out || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::string reason = std::strerror(errno);
        std::remove(temporary.c_str());
        throw SimError(path + ": cannot save the state: " + reason);
    }
}

// ---- validation ------------------------------------------------------------

void Require(bool condition, const std::string& where, const std::string& what) {
    if (!condition) throw SimError(where + ": " + what);
}

void RequireString(const json& object, const char* key, const std::string& where, bool optional) {
    if (!object.contains(key)) {
        Require(optional, where + "." + key, "missing");
        return;
    }
    Require(object[key].is_string(), where + "." + key, "expected a string");
}

void RequireHexId(const json& object, const char* key, const std::string& where, size_t digits) {
    RequireString(object, key, where, false);
    const std::string& value = object[key].get_ref<const std::string&>();
    bool hex = value.size() == digits;
    for (char c : value) hex = hex && std::isxdigit(static_cast<unsigned char>(c));
    Require(hex, where + "." + key, "expected " + std::to_string(digits) + " hex digits");
}

void RequireInt(const json& object, const char* key, const std::string& where, int low, int high) {
    Require(object.contains(key) && object[key].is_number_integer(), where + "." + key,
            "expected an integer");
    long value = object[key].get<long>();
    Require(value >= low && value <= high, where + "." + key,
            "out of range " + std::to_string(low) + ".." + std::to_string(high));
}

void ValidatePort(const json& port, const std::string& where) {
    Require(port.is_object(), where, "expected an object");
    RequireString(port, "wwpn", where, false);
    RequireInt(port, "portNumber", where, 0, 255);
    RequireInt(port, "pciDevice", where, 0, 31);
    RequireInt(port, "pciFunction", where, 0, 7);
}

void ValidateAdapter(const json& adapter, const std::string& where) {
    Require(adapter.is_object(), where, "expected an object");
    for (const char* key : {"model", "kind", "slot", "serial", "firmware", "bootBios"})
        RequireString(adapter, key, where, false);
    for (const char* key : {"numbering", "firmwareNote"}) RequireString(adapter, key, where, true);
    for (const char* key : {"vendor", "device", "subVendor", "subDevice"})
        RequireHexId(adapter, key, where, 4);
    if (adapter.contains("revision")) RequireHexId(adapter, "revision", where, 2);
    const std::string kind = adapter["kind"];
    Require(kind == "8g1p" || kind == "8g2p" || kind == "16g", where + ".kind",
            "expected 8g1p, 8g2p or 16g");
    const std::string numbering = adapter.value("numbering", "compact");
    Require(numbering == "compact" || numbering == "full", where + ".numbering",
            "expected compact or full");
    PciAddress slot;
    Require(ParsePciAddress(adapter["slot"], &slot), where + ".slot",
            "expected a PCI slot such as 0000:03:00");
    Require(adapter.contains("ports") && adapter["ports"].is_array(), where + ".ports",
            "expected an array");
    for (size_t i = 0; i < adapter["ports"].size(); ++i)
        ValidatePort(adapter["ports"][i], where + ".ports[" + std::to_string(i) + "]");
}

void ValidateOtherDevice(const json& device, const std::string& where) {
    Require(device.is_object(), where, "expected an object");
    RequireString(device, "address", where, false);
    PciAddress address;
    Require(ParsePciAddress(device["address"], &address), where + ".address",
            "expected a PCI address such as 0000:00:19.0");
    RequireHexId(device, "class", where, 4);
    for (const char* key : {"vendor", "device", "subVendor", "subDevice"})
        RequireHexId(device, key, where, 4);
    if (device.contains("revision")) RequireHexId(device, "revision", where, 2);
}

void ValidateList(const json& state, const char* key,
                  const std::function<void(const json&, const std::string&)>& check) {
    if (!state.contains(key)) return;
    Require(state[key].is_array(), key, "expected an array");
    for (size_t i = 0; i < state[key].size(); ++i)
        check(state[key][i], std::string(key) + "[" + std::to_string(i) + "]");
}

}  // namespace

void ValidateState(const json& state) {
    Require(state.is_object(), "state", "expected a JSON object");
    RequireString(state, "hostName", "state", true);
    RequireString(state, "driverVersion", "state", true);
    if (state.contains("utilityVersion") && !state["utilityVersion"].is_null())
        RequireString(state, "utilityVersion", "state", false);
    ValidateList(state, "packages", [](const json& name, const std::string& where) {
        Require(name.is_string(), where, "expected a string");
    });
    ValidateList(state, "adapters", ValidateAdapter);
    ValidateList(state, "otherDevices", ValidateOtherDevice);
    if (state.contains("faults")) Require(state["faults"].is_object(), "faults", "expected an object");
}

std::string StatePath() {
    const char* fromEnvironment = std::getenv("QDMSIM_STATE");
    std::string path = fromEnvironment && *fromEnvironment ? fromEnvironment : kDefaultStatePath;
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved)) return resolved;
    return path;
}

json LoadStateAt(const std::string& path) {
    StateLock lock(path, LOCK_SH);
    return ParseStateFile(path);
}

json LoadState() { return LoadStateAt(StatePath()); }

json UpdateState(const std::function<bool(json&)>& change) {
    const std::string path = StatePath();
    StateLock lock(path, LOCK_EX);
    json state = ParseStateFile(path);
    if (change(state)) {
        ValidateState(state);
        SaveStateFile(path, state);
    }
    return state;
}

std::string CallLogPath() { return StatePath() + ".calls"; }

void LogCall(const std::string& tool, const std::string& verb) {
    int fd = ::open(CallLogPath().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    // One write per line: O_APPEND keeps concurrent lines whole.
    std::string line = tool + " " + verb + "\n";
    ssize_t written = ::write(fd, line.data(), line.size());
    (void)written;
    ::close(fd);
}

}  // namespace qdmsim
