// qdmhost end to end on the demo server: inventory and report against their
// golden files, port selection, the exit codes with their JSON errors, the
// update lock, and updates that succeed, fail, mismatch or are refused.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <tuple>

#include "HostRun.h"

namespace {

using e2e::E2eTest;
using e2e::json;
using e2e::Document;
using e2e::Outcomes;

// Inventory and report against their golden files; the table shows the inventory, the report follows --port.
TEST_F(E2eTest, InventoryAndReportMatchGolden) {
    BuildDemoRepository();
    json golden = json::parse(qdmtest::ReadFile(std::string(QDM_GOLDEN_DIR) + "/e2e/inventory.json"));
    json inventory = Document(Host({"--json", "inventory"}), "inventory", 0);
    // Differ from run to run; the schema check covers their form.
    for (const char* varies : {"host", "time", "qdmhost", "revision", "repository"}) inventory[varies] = "(varies)";
    EXPECT_EQ(inventory, golden);
    e2e::HostRun table = Host({"inventory"});
    ASSERT_EQ(table.exitCode, 0) << table.err;
    for (const char* text : {"0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF", "10000090FAC30002",
                             "boot BIOS  5.10a5", "2.01a12", "older", "current"})
        EXPECT_NE(table.out.find(text), std::string::npos) << text;
    json document = Document(Run({"--json", "report", "--out", folder_ + "/out/all"}), "report", 0);
    EXPECT_EQ(document["ports"], 5);
    EXPECT_EQ(qdmtest::ReadFile(folder_ + "/out/all/Emulex_FcConfigInfo.xml"),
              qdmtest::ReadFile(std::string(QDM_GOLDEN_DIR) + "/e2e/report.xml"));
    ASSERT_EQ(Run({"--port", "5/0/1", "report", "--out", folder_ + "/out/one"}).exitCode, 0);
    const std::string one = qdmtest::ReadFile(folder_ + "/out/one/Emulex_FcConfigInfo.xml");
    EXPECT_EQ(e2e::Occurrences(one, "<port>"), 1u) << one;
    EXPECT_NE(one.find("10000090FAC30002"), std::string::npos) << one;
}

// Every form of --port selects the same single port; without a repository its versions still show.
// An adapter the table does not list is skipped with a warning.
TEST_F(E2eTest, PortSelectorsAndUnlistedAdapter) {
    for (const char* selector : {"0000:04:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF", "0000:04:00.1", "04:00.1",
                                 "10:00:00:00:c9:b2:00:02", "10000000C9B20002", "4/0/1"}) {
        json ports = Document(Run({"--json", "--port", selector, "inventory"}), "inventory", 0)["ports"];
        ASSERT_EQ(ports.size(), 1u) << selector;
        EXPECT_EQ(ports[0]["wwpn"], "10000000C9B20002") << selector;
        EXPECT_EQ(ports[0]["modules"][0], json({{"kind", "firm"}, {"operating", "2.02a5"}, {"plan", "none"},
                                                {"repository", nullptr}, {"status", "no-package"}}));
    }
    qdmtest::WriteFile(e2e::kRoot + "/qdmhost/devices.json",
                       R"({"devices": [{"match": "PCI\\VEN_10DF&DEV_E200", "class": "CFC_EMULEX_16G_Vendor"}]})");
    e2e::HostRun run = Run({"--json", "inventory"});
    EXPECT_EQ(Document(run, "inventory", 0)["ports"].size(), 2u);
    EXPECT_NE(run.err.find("unsupported Fibre Channel function 0000:03:00.0"), std::string::npos) << run.err;
}

// check carries each port's last history record; the history is stored data, so a record's field that is
// no text is null and a line that is no record is skipped.
TEST_F(E2eTest, CheckCarriesLastUpdateOfEachPort) {
    const std::string first = R"(0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF)";
    const std::string second = R"(0000:04:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF)";
    qdmtest::WriteFile(e2e::kRoot + "/qdmhost/history.jsonl",
                       // an older record of the first port, replaced by the one after it
                       R"({"time": "t1", "deviceId": ")" + first + R"(", "kind": "firm", "outcome": "updated"})" "\n"
                       // its last: failedStep, from and to of the wrong type
                       R"({"time": "t2", "deviceId": ")" + first +
                       R"(", "kind": "util", "outcome": "failed", "failedStep": {"x": 1}, "from": 5, "to": ["6"]})" "\n"
                       "not json\n"
                       // the second port's kind is no text: not a record
                       R"({"time": "t3", "deviceId": ")" + second + R"(", "kind": 7, "outcome": "updated"})" "\n"
                       // a port that is not on this server
                       R"({"time": "t4", "deviceId": "0000:09:00.0-PCI", "kind": "firm", "outcome": "updated"})" "\n");
    e2e::HostRun run = Run({"--json", "check"});
    const json ports = Document(run, "check", 0)["ports"];
    ASSERT_EQ(ports.size(), 5u);
    EXPECT_EQ(ports[0]["lastUpdate"], json({{"time", "t2"}, {"kind", "util"}, {"outcome", "failed"},
                                            {"failedStep", nullptr}, {"from", nullptr}, {"to", nullptr}}));
    for (std::size_t i = 1; i < ports.size(); ++i) EXPECT_EQ(ports[i]["lastUpdate"], nullptr) << ports[i]["deviceId"];
    EXPECT_NE(run.err.find("2 unreadable line(s) of the history skipped"), std::string::npos) << run.err;
}

// Failures: with --json an {"error": ...} document holding the code, its name and a message; without,
// one "qdmhost: error:" line on standard error. Command-line mistakes name the word and what was expected.
TEST_F(E2eTest, ErrorExitCodes) {
    const std::string catalogue = repo_ + "/catalogue.json", table = e2e::kRoot + "/qdmhost/devices.json";
    const std::string file = folder_ + "/plain-file";
    qdmtest::WriteFile(file, "not a folder\n");
    // Arguments after --json; a file replaced ("" none) by a content (nullptr: removed); exit code, its name and a
    // part of the message. Rows that replace a file come last: the file stays as the row leaves it.
    const std::tuple<std::vector<std::string>, std::string, const char*, int, const char*, std::string> rows[] = {
        {{"inventory", "--bogus"}, "", "", 2, "usage", "unknown option '--bogus' for qdmhost inventory"},
        {{}, "", "", 2, "usage", "no command given: expected one of inventory, update"},
        {{"frobnicate"}, "", "", 2, "usage", "unknown command 'frobnicate': expected one of inventory"},
        {{"help"}, "", "", 2, "usage", "unknown command 'help'"},
        {{"trust", "frob"}, "", "", 2, "usage", "unknown command 'frob': expected one of add, list, remove"},
        {{"--wait", "abc", "update"}, "", "", 2, "usage", "--wait: 'abc' is not a whole number of seconds from 0"},
        {{"update", "--wait"}, "", "", 2, "usage", "--wait needs a value: SECONDS"},
        {{"report"}, "", "", 2, "usage", "qdmhost report needs --out DIR"},
        {{"--root", "relative/root", "history"}, "", "", 2, "usage", "--root"},          // unsafe root
        {{"report", "--out", folder_ + "/a;touch x"}, "", "", 2, "usage", "--out"},      // unsafe folder
        // A path given on the command line that is missing or of the wrong kind.
        {{"--root", "/nonexistent", "inventory"}, "", "", 2, "usage", "--root /nonexistent: no such folder"},
        {{"--root", file, "history"}, "", "", 2, "usage", "--root " + file + ": not a folder"},
        {{"metrics", "--textfile", "/nonexistent"}, "", "", 2, "usage", "--textfile /nonexistent: no such folder"},
        {{"metrics", "--textfile", file}, "", "", 2, "usage", "--textfile " + file + ": not a folder"},
        {{"report", "--out", file}, "", "", 2, "usage", "--out " + file + ": not a folder"},
        {{"--repo", "/nonexistent", "update"}, "", "", 2, "usage", "--repo /nonexistent: no such folder"},
        {{"--provider", "/nonexistent/libqdmp_EMULEX_FC.so", "inventory"}, "", "", 2, "usage", "no such file"},
        {{"--provider", folder_, "inventory"}, "", "", 2, "usage", "--provider " + folder_ + ": not a regular file"},
        {{"trust", "add", "/nonexistent.pub"}, "", "", 2, "usage", "trust add /nonexistent.pub: no such file"},
        {{"--port", "9/9/9", "check"}, "", "", 9, "no-device", "no port matches --port 9/9/9"},
        {{"--allow-unsigned", "--repo", repo_, "update"}, catalogue, "{\"channel\": \"default\", \"packages\": []}", 8, "bad-repository",
         "holds no update package"},
        {{"--allow-unsigned", "--repo", repo_, "update"}, catalogue, "{\"channel\": \"default\", \"packages\": [", 8, "bad-repository",
         "not valid JSON"},
        {{"--allow-unsigned", "--repo", repo_, "update"}, catalogue,
         R"({"channel": "default", "packages": [{"uniqueNames": ["fcelx_16g"], "kind": "firm", "version": "1", "archive": "fw.zip"}]})", 8,
         "bad-repository", "fw.zip is missing"},
        {{"inventory"}, table, nullptr, 9, "no-device", "supported-device table"},
    };
    for (const auto& [arguments, replaced, content, exitCode, name, message] : rows) {
        if (!replaced.empty()) content ? qdmtest::WriteFile(replaced, content) : qdmtest::RemoveTree(replaced);
        std::vector<std::string> args = arguments;
        args.insert(args.begin(), "--json");
        e2e::HostRun run = Run(args);
        json error = json::parse(run.out, nullptr, false)["error"];
        const std::string code = std::to_string(exitCode);
        EXPECT_EQ(std::to_string(run.exitCode) + " " + error.value("name", "") + " " + error["exitCode"].dump(),
                  code + " " + name + " " + code) << run.err;
        EXPECT_NE(error.value("message", "").find(message), std::string::npos) << run.out;
        e2e::HostRun text = Run(arguments);
        EXPECT_EQ(text.exitCode, exitCode) << text.err;
        EXPECT_NE(text.err.find("qdmhost: error: " + error.value("message", "?")), std::string::npos) << text.err;
    }
    // A usage error names the command once the line has named one.
    EXPECT_EQ(json::parse(Run({"--json", "metrics"}).out)["command"], "metrics");
    EXPECT_EQ(json::parse(Run({"--json", "--bogus"}).out)["command"], nullptr);
    // --version under --json: the envelope alone.
    json version = json::parse(Run({"--json", "--version"}).out, nullptr, false);
    EXPECT_EQ(version.value("exitName", "") + " " + version["command"].dump() + " " + version["qdmhost"].type_name(),
              "ok null string");
}

// Held lock: an update waits (announced), then gives up; a reader answers lock-busy at once.
// Then the whole cycle, over what a killed run leaves: the plan, the update, all current, the history.
TEST_F(E2eTest, LockThenFullUpdateCycleEndsCurrent) {
    BuildDemoRepository();
    qdmtest::WriteFile(e2e::kRoot + "/tmp/qdmhost.lock", "");
    int holder = ::open((e2e::kRoot + "/tmp/qdmhost.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);
    e2e::HostRun busy = Host({"--json", "--wait", "1", "update"});
    EXPECT_EQ(std::to_string(busy.exitCode) + " " + busy.Json()["error"]["name"].get<std::string>(), "6 lock-busy") << busy.err;
    EXPECT_NE(busy.err.find("waiting up to 1s"), std::string::npos) << busy.err;
    Document(Host({"--json", "inventory"}), "inventory", 6);
    ::close(holder);

    json plan = Document(Host({"--json", "update", "--dry-run"}), "update", 0);
    EXPECT_EQ(Outcomes(plan, "firm")["0000:03:00.0"], "planned");
    // The host-wide driver and utility are planned once, for the five ports that share them.
    for (const char* kind : {"driver", "util"})
        EXPECT_EQ(Outcomes(plan, kind), (std::map<std::string, std::string>{{"0000:03:00.0", "planned"}})) << kind;
    for (const json& result : plan["results"])
        if (result["kind"] == "driver") {
            EXPECT_EQ(result["ports"].size(), 5u) << result;
        }
    EXPECT_NE(Host({"update", "--dry-run"}).out.find("all 5 ports"), std::string::npos);
    EXPECT_EQ(qdmtest::SimCallCount("Download") + qdmtest::SimCallCount("-Uhv"), 0u);
    EXPECT_TRUE(Document(Host({"--json", "history"}), "history", 0)["entries"].empty());

    qdmtest::WriteFile(e2e::kRoot + "/tmp/EMULEX/temp/firm/fw_9.9.9.9.grp", "stale image\n");
    qdmtest::WriteFile(e2e::kRoot + "/tmp/EMULEX/temp/firm/bios_9.99a9.prg", "stale image\n");
    e2e::HostRun update = Host({"--json", "update"});
    json document = Document(update, "update", 0);
    // Host-wide components are updated once, through the first port, and reported once for all five.
    EXPECT_EQ(Outcomes(document, "driver"), (std::map<std::string, std::string>{{"0000:03:00.0", "updated"}}));
    EXPECT_EQ(Outcomes(document, "util")["0000:03:00.0"] + Outcomes(document, "firm")["0000:03:00.0"] +
                  Outcomes(document, "firm")["0000:04:00.0"] + Outcomes(document, "firm")["0000:05:00.0"],
              "updatedupdatedcurrentupdated");
    EXPECT_EQ(qdmtest::SimCallCount("-Uhv"), 1u);
    EXPECT_NE(update.err.find("waiting 30s for 0000:03:00.0 util pre-update (virtual time)"), std::string::npos)
        << update.err;

    json inventory = Document(Host({"--json", "inventory"}), "inventory", 0);
    for (const json& port : inventory["ports"])
        for (const json& module : port["modules"])
            EXPECT_EQ(module["status"], "current") << port["deviceId"] << " " << module["kind"];
    EXPECT_EQ(inventory["ports"][0]["bootBios"], "5.12a3");
    json history = Document(Host({"--json", "history"}), "history", 0)["entries"];
    ASSERT_EQ(history.size(), 4u);  // util, firm and driver of 03:00.0, firm of 05:00.0
    EXPECT_EQ(history[1]["kind"].get<std::string>() + " " + history[1]["from"].get<std::string>() + " " +
                  history[1]["to"].get<std::string>() + " " + history[1]["outcome"].get<std::string>(),
              "firm 2.01a12 2.02a5 updated");
    // check: each port's last update as recorded (03:00.0 its driver, 05:00.0 its firmware, the others none).
    const json check = Document(Host({"--json", "check"}), "check", 0);
    EXPECT_EQ(check["missingComponents"], json::array());
    std::string last;
    for (const json& port : check["ports"])
        last += port["lastUpdate"].is_null() ? "none " : port["lastUpdate"]["kind"].get<std::string>() + ":" +
                                                             port["lastUpdate"]["outcome"].get<std::string>() + " ";
    EXPECT_EQ(last, "driver:updated none none firm:updated none ");
    EXPECT_EQ(check["ports"][3]["lastUpdate"]["time"], history[3]["time"]);

    qdmtest::SimResetCalls();
    EXPECT_EQ(Host({"update"}).exitCode, 0);
    EXPECT_EQ(qdmtest::SimCallCount("Download") + qdmtest::SimCallCount("-Uhv"), 0u);
}

TEST_F(E2eTest, PackageVersionNotInstalledIsApplyCheckMismatch) {
    BuildDemoRepository();
    json catalogue = json::parse(qdmtest::ReadFile(repo_ + "/catalogue.json"));
    catalogue["packages"][1]["version"] = "11.4.204.9";  // the 16G archive installs 11.4.204.8
    qdmtest::WriteFile(repo_ + "/catalogue.json", catalogue.dump());
    PublishCatalogue();
    e2e::HostRun update = Host({"--json", "--port", "0000:05:00.0", "update"});
    EXPECT_EQ(Outcomes(Document(update, "update", 4), "firm")["0000:05:00.0"], "apply-check-mismatch");
    EXPECT_NE(update.err.find("MSGID_EMULEX_FC_0009_F"), std::string::npos) << update.err;
    // Utility, firmware and driver, as a full update records them.
    const json firmware = Document(Host({"--json", "history"}), "history", 0)["entries"].at(1);
    EXPECT_EQ(firmware["kind"].get<std::string>() + " " + firmware["outcome"].get<std::string>() + " " +
                  firmware["from"].get<std::string>() + " " + firmware["now"].get<std::string>() + " " +
                  firmware["messages"][0]["id"].get<std::string>(),
              "firm apply-check-mismatch 10.2.370.15 11.4.204.8 MSGID_EMULEX_FC_0009_F");
}

TEST_F(E2eTest, FailingDownloadIsUpdateFailureAndOthersGoOn) {
    BuildDemoRepository();
    ASSERT_TRUE(qdmtest::SimFault("Download", "fail"));
    json document = Document(Host({"--json", "update"}), "update", 3);
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"], "failed");
    EXPECT_EQ(Outcomes(document, "driver")["0000:03:00.0"], "updated");
    EXPECT_EQ(qdmtest::SimGet("/adapters/0/firmware"), "\"2.01a12\"");
}

// A broken utility configuration refuses only the utility (5); no utility at all is a missing component (10).
TEST_F(E2eTest, RefusedUtilityAndMissingComponent) {
    BuildDemoRepository();
    ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState(), {true, "broken-port"}).empty());
    e2e::HostRun update = Host({"--json", "update"});
    json document = Document(update, "update", 5);
    for (const auto& outcome : Outcomes(document, "util")) EXPECT_EQ(outcome.second, "refused") << outcome.first;
    EXPECT_EQ(Outcomes(document, "firm")["0000:03:00.0"] + Outcomes(document, "driver")["0000:03:00.0"], "updatedupdated");
    EXPECT_EQ(qdmtest::SimGet("utilityVersion"), "\"10.2.370.16\"");
    EXPECT_NE(update.err.find("MSGID_EMULEX_FC_0010_F"), std::string::npos) << update.err;
    EXPECT_EQ(Document(Host({"--json", "check"}), "check", 5)["ports"][0]["utilityCheck"], "refused");

    ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState(), {false, "none"}).empty());
    json check = Document(Host({"--json", "check"}), "check", 10);
    EXPECT_EQ(check["missingComponents"].dump() + " " + check["ports"][0]["utilityCheck"].get<std::string>(),
              "[\"One Command Manager\"] no-utility");
}

}  // namespace
