// Commands that inspect and change the simulated server: state, fault, calls.
#include <fstream>
#include <iostream>

#include "Sim.h"

namespace qdmsim {

namespace {

// "/a/0/b" stays; "a.0.b" becomes "/a/0/b".
json::json_pointer PointerOf(const std::string& key) {
    if (key.empty()) throw SimError("empty state key");
    if (key[0] == '/') return json::json_pointer(key);
    std::string pointer;
    for (char c : key) pointer += c == '.' ? '/' : c;
    return json::json_pointer("/" + pointer);
}

json ParseValue(const std::string& text) {
    json value = json::parse(text, nullptr, false);
    return value.is_discarded() ? json(text) : value;
}

void RequireArgs(const Args& args, size_t count, const char* usage) {
    if (args.size() != count) throw SimError(std::string("usage: ") + usage);
}

}  // namespace

int RunStateCommand(const Args& args) {
    if (args.empty()) throw SimError("usage: qdmsim state get [KEY] | set KEY VALUE | unset KEY");
    const std::string& action = args[0];
    if (action == "get") {
        if (args.size() > 2) throw SimError("usage: qdmsim state get [KEY]");
        json state = LoadState();
        json::json_pointer pointer = args.size() == 2 ? PointerOf(args[1]) : json::json_pointer();
        if (!state.contains(pointer)) throw SimError("no such state key " + args[1]);
        std::cout << state.at(pointer).dump(2) << "\n";
        return 0;
    }
    if (action == "set") {
        RequireArgs(args, 3, "qdmsim state set KEY VALUE");
        UpdateState([&](json& state) {
            state[PointerOf(args[1])] = ParseValue(args[2]);
            return true;
        });
        return 0;
    }
    if (action == "unset") {
        RequireArgs(args, 2, "qdmsim state unset KEY");
        UpdateState([&](json& state) {
            json::json_pointer pointer = PointerOf(args[1]);
            if (!state.contains(pointer)) return false;
            json& parent = state.at(pointer.parent_pointer());
            if (parent.is_array())
                parent.erase(std::stoul(pointer.back()));
            else
                parent.erase(pointer.back());
            return true;
        });
        return 0;
    }
    throw SimError("unknown state action " + action + " (get, set or unset)");
}

int RunFaultCommand(const Args& args) {
    Options options = ParseOptions(args, {"--times"}, {});
    if (options.positional.size() != 2) throw SimError("usage: qdmsim fault VERB MODE [--times N] | qdmsim fault VERB off");
    const std::string verb = options.positional[0];
    const std::string mode = options.positional[1];
    if (mode != "off" && !IsKnownFault(verb, mode))
        throw SimError("unknown fault " + mode + " for " + verb + " (see sim/README.md)");
    json fault = mode;
    if (options.Has("--times")) {
        int times = 0;
        try {
            times = std::stoi(options.Get("--times"));
        } catch (const std::exception&) {
            times = 0;
        }
        if (times <= 0) throw SimError("--times takes a positive number");
        fault = json{{"mode", mode}, {"times", times}};
    }
    UpdateState([&](json& state) {
        if (mode == "off") {
            if (state.contains("faults")) state["faults"].erase(verb);
        } else {
            state["faults"][verb] = fault;
        }
        return true;
    });
    return 0;
}

int RunCallsCommand(const Args& args) {
    if (args.size() == 1 && args[0] == "--reset") {
        std::ofstream truncate(CallLogPath(), std::ios::trunc);
        return 0;
    }
    if (args.size() > 1) throw SimError("usage: qdmsim calls [VERB] | qdmsim calls --reset");
    std::ifstream in(CallLogPath());
    size_t count = 0;
    for (std::string line; std::getline(in, line);) {
        auto blank = line.find(' ');
        std::string verb = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (args.empty() || verb == args[0]) ++count;
    }
    std::cout << count << "\n";
    return 0;
}

}  // namespace qdmsim
