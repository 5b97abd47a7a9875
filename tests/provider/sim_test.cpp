// What other tests take from the simulator on trust and would not notice if
// it broke: the amount of garbage behind the bounded-time listing test.
#include <gtest/gtest.h>

#include "Sim.h"
#include "TestEnv.h"

namespace {

TEST(SimTest, GarbageFaultPrintsTenMebibytes) {
    QDM_REQUIRE_SANDBOX();
    const std::string folder = qdmtest::MakeTempDir("sim");
    ASSERT_FALSE(qdmtest::InstallSimulator(folder, qdmtest::DemoState()).empty());
    ASSERT_TRUE(qdmtest::SimFault("listhbas", "garbage10m"));
    std::string output;
    EXPECT_EQ(qdmtest::RunShell("/usr/sbin/ocmanager/hbacmd listhbas", &output), 0);
    EXPECT_EQ(output.size(), 10485760u);
    qdmtest::RemoveTree(folder);
}

}  // namespace
