#include "adapters/PathReader.h"

#include <unistd.h>

#include "CommonInformation.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

// A listing of this size holds tens of thousands of paths: no server's.
const std::size_t kMaxListing = 4 << 20;
const unsigned long kTimeoutMs = 30000;

PathSnapshot WithoutMultipath(const std::string& note) {
    PathSnapshot snapshot;
    snapshot.note = note;
    return snapshot;
}

}  // namespace

PathSnapshot ReadPathSnapshot(const std::string& root) {
    const std::string output = root + "/tmp/qdmhost-multipath." + std::to_string(::getpid()) + ".txt";
    // A fixed line: nothing from outside reaches the shell.
    const std::string command =
        std::string("multipathd show paths raw format \"") + kMultipathPathFormat + "\" 2>/dev/null";
    unsigned long status = 0;
    int started = CCommon_Information::ExecForeignModule(command, output, "", &status, kTimeoutMs);
    LimitedRead read = ReadRegularFile(output, kMaxListing);
    ::unlink(output.c_str());
    if (started != CCommon_Information::EXEC_OK || status != 0)
        return WithoutMultipath("multipathd is not installed or does not answer: no multipath paths to protect");
    if (read.result != ReadResult::kOk) return WithoutMultipath("multipathd's listing could not be read");
    return RoutePaths(ParseMultipathPaths(read.text), ReadScsiHosts(kScsiHostFolder, kFcHostFolder));
}

PathSurvey SurveyPaths(const std::vector<Port>& ports, const std::string& root) {
    PathSnapshot snapshot = ReadPathSnapshot(root);
    std::vector<std::string> functions;
    for (const Port& port : ports) functions.push_back(PciAddressOf(port.deviceId));
    return {true, snapshot.multipath, snapshot.note, JudgeAdapters(functions, snapshot)};
}

}  // namespace qdmcli
