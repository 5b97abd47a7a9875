// With --json, standard output holds exactly one JSON document for every
// command and every failure, so scripts can parse it blindly.
#include "HostRun.h"

namespace {

class JsonOutputTest : public e2e::HostE2eTest {};

TEST_F(JsonOutputTest, EveryCommandPrintsOneJsonDocument) {
    BuildDemoRepository();
    const std::vector<std::vector<std::string>> commands = {
        {"inventory"}, {"update", "--dry-run"}, {"update"}, {"check"}, {"history"},
        {"report", "--out", folder_ + "/report"},
    };
    for (const auto& command : commands) {
        std::vector<std::string> args = {"--json"};
        args.insert(args.end(), command.begin(), command.end());
        e2e::HostRun run = Host(args);
        SCOPED_TRACE(command[0]);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        nlohmann::json document;
        ASSERT_NO_THROW(document = nlohmann::json::parse(run.out)) << run.out;
        EXPECT_EQ(document["command"], command[0]);
        EXPECT_EQ(document["exitCode"], 0);
    }
}

// Failures come as {"error": {...}} objects with the exit code.
TEST_F(JsonOutputTest, FailuresAreJsonObjects) {
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        const char* name;
    };
    const Case cases[] = {
        {{"--json", "inventory", "--bogus"}, 2, "usage"},                                   // unknown option
        {{"--json"}, 2, "usage"},                                                           // no command
        {{"--json", "--provider", "/nonexistent.so", "inventory"}, 7, "provider-missing"},  // no library
        {{"--json", "--repo", "/nonexistent", "update"}, 8, "bad-repository"},              // no catalogue
        {{"--json", "--port", "7/7/7", "check"}, 9, "no-device"},                           // unknown port
        {{"--json", "--root", "relative/root", "history"}, 2, "usage"},                    // unsafe root
    };
    for (const Case& c : cases) {
        e2e::HostRun run = e2e::RunHost(c.args);
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
        nlohmann::json document;
        ASSERT_NO_THROW(document = nlohmann::json::parse(run.out)) << run.out;
        EXPECT_EQ(document["error"]["name"], c.name);
        EXPECT_EQ(document["error"]["exitCode"], c.exitCode);
        EXPECT_FALSE(document["error"]["message"].get<std::string>().empty());
    }
}

}  // namespace
