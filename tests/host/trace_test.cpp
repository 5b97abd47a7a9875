// Debug trace lines, level filter, operator messages and test capture.
#include <regex>
#include <sstream>

#include "TestEnv.h"
#include "TraceUtility.h"

namespace {

class TraceTest : public qdmtest::HostTest {
protected:
    void TearDown() override {
        CTraceUtility::SetLevelMask(savedMask_);
        CTraceUtility::SetMessageSink({});
        HostTest::TearDown();
    }
    std::vector<std::string> LogLines(const std::string& name) {
        std::istringstream in(qdmtest::ReadFile(root_ + "/log/" + name));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
    unsigned savedMask_ = CTraceUtility::GetLevelMask();
};

const std::string kStamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";

TEST_F(TraceTest, DebugLineFormat) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "value %d [%s]", 42, "x");
    auto lines = LogLines("fc.log");
    ASSERT_EQ(1U, lines.size());
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(kStamp + R"(\[2\] value 42 \[x\])")))
        << lines[0];
}

TEST_F(TraceTest, LevelMaskFiltersFileButNotCapture) {
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "entry");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_CLEANUP, "cleanup");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "info");
    CTraceUtility::SetLevelMask(CTraceUtility::TRACE_FUNC);
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_FUNC, "entry now");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "info now");
    auto lines = LogLines("fc.log");
    ASSERT_EQ(3U, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("[16] cleanup"));
    EXPECT_NE(std::string::npos, lines[1].find("[1] info"));
    EXPECT_NE(std::string::npos, lines[2].find("[4] entry now"));
    EXPECT_EQ(5U, Debug().size());
    EXPECT_TRUE(HasDebug("entry"));
}

TEST_F(TraceTest, LongLinesAreTruncated) {
    std::string big(10000, 'a');
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "%s", big.c_str());
    auto lines = LogLines("fc.log");
    ASSERT_EQ(1U, lines.size());
    EXPECT_LT(lines[0].size(), 4200U);
    EXPECT_GT(lines[0].size(), 4000U);
}

TEST_F(TraceTest, MessagesGoToLogSinkAndCapture) {
    std::vector<std::string> sunk;
    CTraceUtility::SetMessageSink([&](const std::string& id, const std::string& text) {
        sunk.push_back(id + "|" + text);
    });
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0009_F", "firm", std::string("1.0"), "2.0");
    auto lines = LogLines("fc_messages.log");
    ASSERT_EQ(1U, lines.size());
    std::string text = CTraceUtility::FormatMessage("MSGID_EMULEX_FC_0009_F", {"firm", "1.0", "2.0"});
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(kStamp + "MSGID_EMULEX_FC_0009_F: .*")));
    EXPECT_NE(std::string::npos, lines[0].find(text));
    EXPECT_EQ(std::vector<std::string>{"MSGID_EMULEX_FC_0009_F|" + text}, sunk);
    ASSERT_EQ(1U, MessageCount("MSGID_EMULEX_FC_0009_F"));
    EXPECT_EQ((std::vector<std::string>{"firm", "1.0", "2.0"}), Messages()[0].inserts);
}

TEST_F(TraceTest, CatalogueFillsOnlyGivenInserts) {
    const char* ids[] = {"MSGID_EMULEX_FC_0001_F", "MSGID_EMULEX_FC_0004_F", "MSGID_EMULEX_FC_0005_F",
                         "MSGID_EMULEX_FC_0008_F", "MSGID_EMULEX_FC_0009_F", "MSGID_EMULEX_FC_0010_F",
                         "MSGID_EMULEX_FC_0012_F", "MSGID_EMULEX_FC_0013_F", "MSGID_EMULEX_FC_0016_F",
                         "MSGID_EMULEX_FC_0018_F", "MSGID_EMULEX_FC_0019_F", "MSGID_EMULEXCOMMON_0001_F"};
    for (const char* id : ids) {
        std::string text = CTraceUtility::FormatMessage(id, {"vendor"});
        EXPECT_EQ(std::string::npos, text.find('%')) << id << ": " << text;
        EXPECT_EQ(std::string::npos, text.find("MSGID")) << id << " has no catalogue text";
    }
    EXPECT_EQ(0U, CTraceUtility::FormatMessage("MSGID_EMULEX_FC_0013_F",
                                               {"vendor", "b", "Emulex", "FC", "One Command Manager"})
                      .find("vendor: "));
    EXPECT_EQ("MSGID_UNKNOWN a b", CTraceUtility::FormatMessage("MSGID_UNKNOWN", {"a", "b"}));
}

TEST_F(TraceTest, CaptureStopsAndClears) {
    CTraceUtility::StopCapture();
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "unseen");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_TRUE(Debug().empty());
    EXPECT_TRUE(Messages().empty());
    CTraceUtility::StartCapture();
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_INFO, "seen");
    EXPECT_TRUE(HasDebug("seen"));
    CTraceUtility::ClearCapture();
    EXPECT_TRUE(Debug().empty());
}

TEST_F(TraceTest, UnwritableLogIsDroppedSilently) {
    qdmtest::RemoveTree(root_ + "/log");
    qdmtest::WriteFile(root_ + "/log", "a file where the folder should be");
    CTraceUtility::WriteDebug("fc", CTraceUtility::TRACE_ERROR, "lost");
    CTraceUtility::WriteTrace("fc", "MSGID_EMULEX_FC_0001_F", "vendor", "1");
    EXPECT_TRUE(HasDebug("lost"));
    EXPECT_EQ("a file where the folder should be", qdmtest::ReadFile(root_ + "/log"));
}

}  // namespace
