// The multipath guard end to end on the demo server with two maps, each with
// one path through the 8G single-port adapter (03:00) and one through the
// 16G adapter (05:00); both adapters' firmware is older than the repository's.
#include <sstream>

#include "HostRun.h"

namespace {

using e2e::Document;
using e2e::json;
using e2e::Outcomes;

class PathGuardTest : public e2e::E2eTest {
public:
    void SetUp() override {
        E2eTest::SetUp();
        if (IsSkipped()) return;
        json state = json::parse(qdmtest::DemoState());
        state.update(json::parse(qdmtest::ReadFile(std::string(QDM_SOURCE_DIR) + "/sim/demo/multipath.json")));
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, state.dump()).empty());
        BuildDemoRepository();
    }

    // What the simulator logged of flashes and paths coming back (or not), in order.
    std::string PathEvents() const {
        std::istringstream log(qdmtest::ReadFile(StatePath() + ".calls"));
        std::string events;
        for (std::string line; std::getline(log, line);)
            if (line.rfind("flash ", 0) == 0 || line.rfind("paths-", 0) == 0) events += line + ";";
        return events;
    }

    static std::string Verdicts(const json& document) {
        std::string verdicts;
        for (const json& adapter : document["paths"]["adapters"])
            verdicts += adapter["adapter"].get<std::string>() + " " + adapter["verdict"].get<std::string>() + ";";
        return verdicts;
    }
};

// Both adapters flashed, one after the other: the second only once the first one's paths are back.
TEST_F(PathGuardTest, AdaptersFlashedInTurnAfterTheirPathsReturn) {
    const json check = Document(Host({"--json", "check"}), "check", 0);
    EXPECT_EQ(Verdicts(check), "0000:03:00 safe;0000:04:00 no-multipath;0000:05:00 safe;");
    EXPECT_EQ(check["paths"]["adapters"][0]["maps"][0]["otherHealthyPaths"][0]["port"], "0000:05:00.0");
    const e2e::HostRun plan = Host({"update", "--dry-run"});
    EXPECT_NE(plan.out.find("mpatha  sdb (1:0:0:1) active/ready  sdd (4:0:0:1) active/ready via 0000:05:00"),
              std::string::npos) << plan.out;
    const e2e::HostRun update = Host({"--json", "update"});
    const json document = Document(update, "update", 0);
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"] + Outcomes(document, "firm")["0000:05:00.0"], "updatedupdated");
    EXPECT_EQ(PathEvents(), "flash 0000:03:00;paths-restored 0000:03:00;flash 0000:05:00;paths-restored 0000:05:00;");
    EXPECT_NE(update.err.find("waiting 5s for the paths of 0000:03:00: sdb (1:0:0:1), sdc (1:0:0:2)"), std::string::npos)
        << update.err;
}

// A map whose only path runs through 03:00: that firmware is refused, the other adapter updated; then
// --allow-path-loss flashes it, says so and the history records it.
TEST_F(PathGuardTest, SolePathRefusedUnlessPathLossAllowed) {
    ASSERT_TRUE(qdmtest::SimFault("multipathd", "single-path"));
    ASSERT_EQ(Run({"metrics", "--textfile", folder_ + "/out"}).exitCode, 0);
    EXPECT_NE(qdmtest::ReadFile(folder_ + "/out/qdmhost.prom").find("qdmhost_adapter_sole_path_maps{adapter=\"0000:03:00\"} 1"),
              std::string::npos);
    const json refused = Document(Host({"--json", "update"}), "update", 5);
    const json& firm = refused["results"][1];
    EXPECT_EQ(firm["kind"].get<std::string>() + " " + firm["outcome"].get<std::string>() + " " +
                  firm["reason"].get<std::string>() + " " + firm["maps"].dump(),
              "firm refused last-path [\"mpatha\"]");
    EXPECT_EQ(Outcomes(refused, "firm")["0000:05:00.0"], "updated");
    EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware"), "\"2.01a12\"");

    const e2e::HostRun allowed = Host({"--json", "update", "--allow-path-loss"});
    EXPECT_EQ(Outcomes(Document(allowed, "update", 0), "firm")["0000:03:00.0"], "updated");
    EXPECT_NE(allowed.err.find("--allow-path-loss: flashing 0000:03:00 takes down the last healthy path of mpatha"),
              std::string::npos) << allowed.err;
    const json last = Document(Host({"--json", "history"}), "history", 0)["entries"].back();
    EXPECT_EQ(last["kind"].get<std::string>() + " " + last["pathLossAllowed"].dump() + " " + last["maps"].dump(),
              "firm true [\"mpatha\"]");
}

// A path that does not come back: the run stops before the second adapter, which stays untouched.
TEST_F(PathGuardTest, PathNotRestoredStopsBeforeNextAdapter) {
    ASSERT_TRUE(qdmtest::SimFault("multipathd", "stuck"));
    const json document = Document(Host({"--json", "update", "--path-wait", "20"}), "update", 3);
    EXPECT_EQ(document["stopped"].dump(),
              R"j({"adapter":"0000:03:00","paths":["sdb (1:0:0:1)"],"reason":"paths-not-restored"})j");
    EXPECT_EQ(PathEvents(), "flash 0000:03:00;paths-stuck 0000:03:00;");
    EXPECT_EQ(qdmtest::SimGet("/adapters/2/firmware"), "\"10.2.370.15\"");
    EXPECT_EQ(Outcomes(document, "firm").count("0000:05:00.0"), 0u);
}

// multipathd there but not answering: nothing to protect, said so, and the update runs as without multipath.
TEST_F(PathGuardTest, MultipathdNotAnsweringUpdatesAsBefore) {
    ASSERT_TRUE(qdmtest::SimFault("multipathd", "missing"));
    const e2e::HostRun update = Host({"--json", "update"});
    const json document = Document(update, "update", 0);
    EXPECT_EQ(document["paths"]["multipath"].dump() + " " + Verdicts(document),
              "false 0000:03:00 no-multipath;0000:04:00 no-multipath;0000:05:00 no-multipath;");
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"] + Outcomes(document, "firm")["0000:05:00.0"], "updatedupdated");
    EXPECT_NE(update.err.find("multipathd is not installed or does not answer"), std::string::npos) << update.err;
}

}  // namespace
