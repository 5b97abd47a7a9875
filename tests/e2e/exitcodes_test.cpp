// Exit codes and version verdicts: what scripts and operators rely on.
#include <gtest/gtest.h>

#include <set>

#include "ExitCodes.h"
#include "Modules.h"

namespace {

TEST(ExitCodes, CodesAndNamesAreDistinctAndDocumented) {
    std::set<int> codes;
    std::set<std::string> names;
    std::string help = qdmcli::ExitCodeHelp();
    for (const auto& info : qdmcli::ExitCodeTable()) {
        EXPECT_TRUE(codes.insert(info.code).second) << info.code;
        EXPECT_TRUE(names.insert(info.name).second) << info.name;
        EXPECT_NE(help.find(info.meaning), std::string::npos) << info.name;
    }
    EXPECT_EQ(codes.size(), 11u);
}

// The code a run ends with when its modules end differently.
TEST(ExitCodes, WorseOutcomeWins) {
    using namespace qdmcli;
    const int rows[][3] = {
        {kExitOk, kExitOk, kExitOk},
        {kExitOk, kExitRefused, kExitRefused},
        {kExitRefused, kExitApplyCheck, kExitApplyCheck},
        {kExitApplyCheck, kExitUpdateFailed, kExitUpdateFailed},
        {kExitUpdateFailed, kExitRefused, kExitUpdateFailed},
        {kExitMissingComponent, kExitRefused, kExitMissingComponent},
    };
    for (const auto& row : rows) EXPECT_EQ(WorseExitCode(row[0], row[1]), row[2]) << row[0] << " " << row[1];
}

TEST(ExitCodes, UnknownCodeDescribedAsInternal) {
    EXPECT_STREQ(qdmcli::DescribeExitCode(99).name, "internal-error");
}

TEST(VersionStatus, VerdictFromTheModulesComparison) {
    struct Row {
        const char* operating;
        bool hasPackage;
        int comparison;
        const char* status;
        bool update;
    };
    const Row rows[] = {
        {"2.02a4", true, 1, "older", true},         // repository newer
        {"2.02a6", true, -1, "newer", true},        // adapter newer: brought back to the repository
        {"2.02a5", true, 0, "current", false},
        {"abnormal", true, 0, "unreadable", true},  // 0 from a malformed text is not "current"
        {"", true, 0, "unreadable", true},
        {"2.02a5", false, 0, "no-package", false},
    };
    for (const Row& row : rows) {
        std::string status = qdmcli::VersionStatus(row.operating, row.hasPackage, row.comparison);
        EXPECT_EQ(status, row.status) << row.operating;
        EXPECT_EQ(qdmcli::StatusNeedsUpdate(status), row.update) << row.operating;
    }
}

}  // namespace
