// qdmsim: a multi-call binary. As hbacmd, lspci, rpm or depmod it plays that
// tool against the simulated server; as qdmsim it builds update modules,
// installs itself into the sandbox and edits the simulated state.
#include <cstring>
#include <iostream>

#include "Sim.h"

namespace {

const char* const kUsage =
    "usage: qdmsim hbacmd|lspci|rpm|depmod|multipathd ARGS...\n"
    "       qdmsim build-firmware|build-driver|build-utility OPTIONS\n"
    "       qdmsim build-catalogue --repo DIR [--from FILE] [--serial N] [--expires TIME]\n"
    "       qdmsim install --state FILE [--bin DIR] [--no-utility] [--config VARIANT]\n"
    "       qdmsim state get|set|unset ..., qdmsim fault VERB MODE [--times N]\n"
    "       qdmsim calls [VERB|--reset], qdmsim utility install VERSION|uninstall\n"
    "       qdmsim config disc|rm [--config VARIANT]\n"
    "See sim/README.md.\n";

int RunTool(const std::string& tool, const qdmsim::Args& args) {
    if (tool == "hbacmd") return qdmsim::RunHbacmd(args);
    if (tool == "lspci") return qdmsim::RunLspci(args);
    if (tool == "rpm") return qdmsim::RunRpm(args);
    if (tool == "multipathd") return qdmsim::RunMultipathd(args);
    return qdmsim::RunDepmod(args);
}

bool IsTool(const std::string& name) {
    return name == "hbacmd" || name == "lspci" || name == "rpm" || name == "depmod" || name == "multipathd";
}

int Dispatch(const std::string& program, qdmsim::Args args) {
    if (IsTool(program)) return RunTool(program, args);
    if (args.empty() || args[0] == "--help" || args[0] == "help") {
        std::cout << kUsage;
        return args.empty() ? 2 : 0;
    }
    const std::string command = args[0];
    args.erase(args.begin());
    if (IsTool(command)) return RunTool(command, args);
    if (command == "build-firmware" || command == "build-driver" || command == "build-utility" ||
        command == "build-catalogue")
        return qdmsim::RunBuilder(command, args);
    if (command == "install") return qdmsim::RunInstall(args);
    if (command == "utility") return qdmsim::RunUtility(args);
    if (command == "config") return qdmsim::RunConfig(args);
    if (command == "state") return qdmsim::RunStateCommand(args);
    if (command == "fault") return qdmsim::RunFaultCommand(args);
    if (command == "calls") return qdmsim::RunCallsCommand(args);
    std::cerr << "qdmsim: unknown command " << command << "\n" << kUsage;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* slash = argc > 0 ? std::strrchr(argv[0], '/') : nullptr;
    const std::string program = argc > 0 ? (slash ? slash + 1 : argv[0]) : "qdmsim";
    try {
        return Dispatch(program, qdmsim::Args(argv + (argc > 0 ? 1 : 0), argv + argc));
    } catch (const qdmsim::SimError& error) {
        std::cerr << "qdmsim: " << error.what() << "\n";
    } catch (const qdmsim::json::exception& error) {
        std::cerr << "qdmsim: state: " << error.what() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "qdmsim: " << error.what() << "\n";
    }
    return 2;
}
