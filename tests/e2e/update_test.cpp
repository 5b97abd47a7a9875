// Updates end to end against the simulated demo server: the full cycle, a
// package that does not install what it claims, a failing tool, a refused
// utility, the dry run and a killed run's leftovers.
#include "HostRun.h"

namespace {

using e2e::HostE2eTest;
using nlohmann::json;

class UpdateTest : public HostE2eTest {
protected:
    json History() {
        e2e::HostRun run = Host({"--json", "history"});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return run.Json()["entries"];
    }
};

TEST_F(UpdateTest, FullCycleEndsCurrent) {
    BuildDemoRepository();
    e2e::HostRun update = Host({"--json", "update"});
    ASSERT_EQ(update.exitCode, 0) << update.err;
    json document = update.Json();
    // Host-wide components are updated once, through the first port.
    EXPECT_EQ(Outcomes(document, "driver")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "driver")["0000:05:00.1"], "current");
    EXPECT_EQ(Outcomes(document, "util")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "firm")["0000:04:00.0"], "current");
    EXPECT_EQ(Outcomes(document, "firm")["0000:05:00.0"], "updated");
    EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 1u);
    EXPECT_NE(update.err.find("waiting 30s for 0000:03:00.0 util pre-update (virtual time)"), std::string::npos)
        << update.err;

    e2e::HostRun inventory = Host({"--json", "inventory"});
    ASSERT_EQ(inventory.exitCode, 0) << inventory.err;
    json ports = inventory.Json()["ports"];
    for (const json& port : ports)
        for (const json& module : port["modules"])
            EXPECT_EQ(module["status"], "current") << port["deviceId"] << " " << module["kind"];
    EXPECT_EQ(inventory.Json()["ports"][0]["bootBios"], "5.12a3");

    json history = History();
    ASSERT_EQ(history.size(), 4u);  // util, firm and driver of 03:00.0, firm of 05:00.0
    EXPECT_EQ(history[1]["kind"], "firm");
    EXPECT_EQ(history[1]["from"], "2.01a12");
    EXPECT_EQ(history[1]["to"], "2.02a5");
    EXPECT_EQ(history[1]["outcome"], "updated");

    qdmtest::SimResetCalls();
    e2e::HostRun again = Host({"update"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 0u);
    EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 0u);
}

TEST_F(UpdateTest, PackageVersionNotInstalledIsApplyCheckMismatch) {
    BuildDemoRepository();
    json catalogue = json::parse(qdmtest::ReadFile(repo_ + "/catalogue.json"));
    catalogue["packages"][1]["version"] = "11.4.204.9";  // the 16G archive installs 11.4.204.8
    WriteCatalogue(catalogue);
    e2e::HostRun update = Host({"--json", "--port", "0000:05:00.0", "update"});
    EXPECT_EQ(update.exitCode, 4) << update.err;
    EXPECT_EQ(Outcomes(update.Json(), "firm")["0000:05:00.0"], "apply-check-mismatch");
    EXPECT_NE(update.err.find("MSGID_EMULEX_FC_0009_F"), std::string::npos) << update.err;
    json firmware;
    for (const json& entry : History())
        if (entry["kind"] == "firm") firmware = entry;
    ASSERT_TRUE(firmware.is_object());
    EXPECT_EQ(firmware["outcome"], "apply-check-mismatch");
    EXPECT_EQ(firmware["from"], "10.2.370.15");
    EXPECT_EQ(firmware["now"], "11.4.204.8");
    EXPECT_EQ(firmware["messages"][0]["id"], "MSGID_EMULEX_FC_0009_F");
}

TEST_F(UpdateTest, FailingDownloadIsUpdateFailureAndOthersGoOn) {
    BuildDemoRepository();
    ASSERT_TRUE(qdmtest::SimFault("Download", "fail"));
    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, 3) << update.err;
    json document = update.Json();
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"], "failed");
    EXPECT_EQ(Outcomes(document, "driver")["0000:03:00.0"], "updated");
    EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware"), "\"2.01a12\"");
}

TEST_F(UpdateTest, DryRunChangesNothing) {
    BuildDemoRepository();
    e2e::HostRun plan = Host({"--json", "update", "--dry-run"});
    ASSERT_EQ(plan.exitCode, 0) << plan.err;
    EXPECT_EQ(Outcomes(plan.Json(), "firm")["0000:03:00.0"], "planned");
    EXPECT_EQ(qdmtest::SimCallCount("Download"), 0u);
    EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 0u);
    EXPECT_TRUE(History().empty());
}

TEST_F(UpdateTest, KilledRunLeftoversDoNotBlock) {
    BuildDemoRepository();
    // What a run killed mid-download leaves: the lock file and a filled unpack folder.
    qdmtest::WriteFile(e2e::kRoot + "/tmp/qdmhost.lock", "");
    qdmtest::WriteFile(e2e::kRoot + "/tmp/EMULEX/temp/firm/fw_9.9.9.9.grp", "stale image\n");
    qdmtest::WriteFile(e2e::kRoot + "/tmp/EMULEX/temp/firm/bios_9.99a9.prg", "stale image\n");
    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, 0) << update.err;
    EXPECT_EQ(Outcomes(update.Json(), "firm")["0000:05:00.0"], "updated");
}

TEST_F(UpdateTest, BrokenAndEmptyRepositoriesAreRefused) {
    WriteCatalogue({{"packages", json::array()}});
    e2e::HostRun empty = Host({"update"});
    EXPECT_EQ(empty.exitCode, 8);
    EXPECT_NE(empty.err.find("holds no update package"), std::string::npos) << empty.err;
    qdmtest::WriteFile(repo_ + "/catalogue.json", "{\"packages\": [");
    e2e::HostRun broken = Host({"update"});
    EXPECT_EQ(broken.exitCode, 8);
    EXPECT_NE(broken.err.find("not valid JSON"), std::string::npos) << broken.err;
}

class RefusedUtilityTest : public HostE2eTest {
protected:
    void SetUp() override { Prepare({true, "broken-port"}); }
};

TEST_F(RefusedUtilityTest, BrokenConfigurationRefusesOnlyTheUtility) {
    BuildDemoRepository();
    e2e::HostRun update = Host({"--json", "update"});
    EXPECT_EQ(update.exitCode, 5) << update.err;
    json document = update.Json();
    for (const auto& outcome : Outcomes(document, "util")) EXPECT_EQ(outcome.second, "refused") << outcome.first;
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"], "updated");
    EXPECT_EQ(Outcomes(document, "driver")["0000:03:00.0"], "updated");
    EXPECT_EQ(qdmtest::SimGet("utilityVersion"), "\"10.2.370.16\"");
    EXPECT_NE(update.err.find("MSGID_EMULEX_FC_0010_F"), std::string::npos) << update.err;

    e2e::HostRun check = Host({"--json", "check"});
    EXPECT_EQ(check.exitCode, 5);
    EXPECT_EQ(check.Json()["ports"][0]["utilityCheck"], "refused");
}

}  // namespace
