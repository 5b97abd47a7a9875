// The adapter listing misbehaving under a full qdmhost run: a tool that
// hangs, crashes, prints nothing, garbage or errors, a very large server and
// a very large listing.
#include <cstdio>

#include "FaultRun.h"

namespace {

using e2e::FaultTest;
using nlohmann::json;

const char kListingFailed[] = "message MSGID_EMULEXCOMMON_0001_F";

struct UnusableListing {
    const char* mode;
    // 5 for an answer that is retried; 1 for an error, and for a hang that the
    // 60 s time-out (600 ms under virtual time) kills.
    size_t runsPerFailedListing;
};

void PrintTo(const UnusableListing& row, std::ostream* out) { *out << row.mode; }

class UnusableListingTest : public FaultTest, public ::testing::WithParamInterface<UnusableListing> {};

// Exit 0, no port resolved, each failed listing reported once after its runs, no tool left, nothing written outside.
TEST_P(UnusableListingTest, InventoryEndsWithNoPortResolved) {
    ASSERT_TRUE(qdmtest::SimFault("listhbas", GetParam().mode));
    TakeBaseline();
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ExpectNoPortResolved(run.Json());
    size_t failedListings = e2e::Occurrences(run.err, kListingFailed);
    EXPECT_GT(failedListings, 0u) << run.err;
    EXPECT_EQ(qdmtest::SimCallCount("listhbas"), GetParam().runsPerFailedListing * failedListings);
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

INSTANTIATE_TEST_SUITE_P(Modes, UnusableListingTest,
                         ::testing::Values(UnusableListing{"hang", 1}, UnusableListing{"error", 1},
                                           UnusableListing{"error64", 5}, UnusableListing{"empty", 5},
                                           UnusableListing{"garbage", 5}),
                         [](const auto& info) { return std::string(info.param.mode); });

class ListingFaultTest : public FaultTest {};

// Half a listing, then SIGABRT: it counts (the exit status is not judged); its ports resolve, the others do not.
TEST_F(ListingFaultTest, ToolCrashingHalfWayResolvesOnlyThePortsItPrinted) {
    ASSERT_TRUE(qdmtest::SimFault("listhbas", "crash"));
    TakeBaseline();
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(e2e::Occurrences(run.err, kListingFailed), 0u) << run.err;
    size_t resolved = 0;
    const json inventory = run.Json();
    for (const json& port : inventory["ports"]) {
        const std::string address = e2e::PortAddress(port);
        if (port["wwpn"] == "") {
            EXPECT_EQ(e2e::ModuleStatus(port, "firm"), "unreadable") << address;
            continue;
        }
        ++resolved;
        EXPECT_EQ(port["wwpn"], e2e::kDemoWwpns.at(address));
        EXPECT_EQ(e2e::ModuleStatus(port, "firm"), "no-package") << address;
    }
    EXPECT_GT(resolved, 0u);
    EXPECT_LT(resolved, e2e::kDemoWwpns.size());
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

// 10 MiB of garbage a run: exit 0 within 45 s, no port resolved, no tool left, nothing written outside.
TEST_F(ListingFaultTest, TenMebibytesOfGarbageEndInBoundedTime) {
    ASSERT_TRUE(qdmtest::SimFault("listhbas", "garbage10m"));
    TakeBaseline();
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"}, 45);
    ASSERT_FALSE(run.KilledAtTimeLimit());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ExpectNoPortResolved(run.Json());
    ExpectNoProcessLeft();
    ExpectNothingWrittenOutsideWorkArea();
}

// A port's WWPN as the adapter tool prints it, or as qdmhost shows it.
std::string LargeServerWwpn(int adapter, int port, bool shown) {
    char wwpn[32];
    std::snprintf(wwpn, sizeof wwpn, shown ? "10000090FA00%02X%02X" : "10:00:00:90:fa:00:%02x:%02x", adapter, port);
    return wwpn;
}

// 32 dual-port 16G adapters on buses 0x03..0x22.
json LargeServer() {
    json adapters = json::array();
    for (int a = 0; a < 32; ++a) {
        json adapter = {{"model", "LPe16002"},      {"kind", "16g"},       {"vendor", "10df"},
                        {"device", "e200"},         {"subVendor", "10df"}, {"subDevice", "e200"},
                        {"revision", "10"},         {"numbering", "full"}, {"firmware", "11.2.156.27"},
                        {"bootBios", "11.2.156.27"}};
        char slot[16];
        std::snprintf(slot, sizeof slot, "0000:%02x:00", 3 + a);
        adapter["slot"] = slot;
        adapter["serial"] = "FC16" + std::to_string(100000 + a);
        for (int p = 0; p < 2; ++p)
            adapter["ports"].push_back(
                {{"wwpn", LargeServerWwpn(a, p, false)}, {"portNumber", p}, {"pciDevice", 0}, {"pciFunction", p}});
        adapters.push_back(adapter);
    }
    return {{"hostName", "big01"},
            {"driverVersion", "11.2.156.27"},
            {"utilityVersion", "10.2.370.16"},
            {"packages", {"elxocmcore-10.2.370.16-1.x86_64", "lpfc-11.2.156.27-1.x86_64"}},
            {"adapters", adapters}};
}

// 64 ports, each with its WWPN and versions, from one listing, one attribute query a port and one version query.
TEST_F(ListingFaultTest, SixtyFourPortsTakeOneListingAndOneQueryPerPort) {
    ASSERT_FALSE(qdmtest::InstallSimulator(folder_, LargeServer().dump()).empty());
    qdmtest::SimResetCalls();
    TakeBaseline();
    e2e::HostRun run = e2e::RunHost({"--json", "inventory"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json ports = run.Json()["ports"];
    ASSERT_EQ(ports.size(), 64u);
    for (int a = 0; a < 32; ++a)
        for (int p = 0; p < 2; ++p) {
            const json& port = ports[static_cast<size_t>(2 * a + p)];
            EXPECT_EQ(port["wwpn"], LargeServerWwpn(a, p, true)) << e2e::PortAddress(port);
            for (const char* kind : {"firm", "driver", "util"})
                EXPECT_EQ(e2e::ModuleStatus(port, kind), "no-package") << e2e::PortAddress(port) << " " << kind;
        }
    EXPECT_EQ(qdmtest::SimCallCount("listhbas"), 1u);
    EXPECT_EQ(qdmtest::SimCallCount("HbaAttributes"), 64u);
    EXPECT_EQ(qdmtest::SimCallCount("version"), 1u);
    ExpectNothingWrittenOutsideWorkArea();
}

}  // namespace
