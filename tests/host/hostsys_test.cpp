// Pauses, the time-out scale and console messages of the host.
#include "HostSys.h"
#include "TestEnv.h"

namespace {

TEST(HostSysTest, SleepHookReplacesAndRestores) {
    std::vector<unsigned long> pauses;
    qdmhost::SetSleepHook([&](unsigned long ms) { pauses.push_back(ms); });
    Sleep(30000);
    qdmhost::SetSleepHook({});
    Sleep(1);  // real again: must not reach the old hook
    EXPECT_EQ(std::vector<unsigned long>{30000}, pauses);
}

TEST(HostSysTest, TimeoutScale) {
    qdmhost::SetTimeoutScale(0.001);
    EXPECT_DOUBLE_EQ(0.001, qdmhost::GetTimeoutScale());
    qdmhost::SetTimeoutScale(1.0);
    EXPECT_DOUBLE_EQ(1.0, qdmhost::GetTimeoutScale());
}

TEST(HostSysTest, ShowMessageNarrowsWideText) {
    std::vector<std::string> lines;
    qdmhost::SetShowMessageSink([&](const std::string& line) { lines.push_back(line); });
    ShowMessage(L"Unknown class", "CFC_X");
    ShowMessage(L"Unknown class", L"CFC_Y");
    ShowMessage(L"Alone");
    ShowMessage(L"Odd \u00e9", static_cast<const char*>(nullptr));
    qdmhost::SetShowMessageSink({});
    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ("Unknown class CFC_X", lines[0]);
    EXPECT_EQ("Unknown class CFC_Y", lines[1]);
    EXPECT_EQ("Alone", lines[2]);
    EXPECT_EQ(0U, lines[3].find("Odd ")) << "non-ASCII never breaks the line";
}

}  // namespace
