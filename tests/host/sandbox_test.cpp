// The sandbox keeps writes to the fixed system paths away from the real ones.
#include <sys/wait.h>

#include <cstdlib>

#include "TestEnv.h"

namespace {

TEST(SandboxTest, WritesToEtcStayInside) {
    const char* probe = "/etc/qdm_sandbox_probe";
    ASSERT_FALSE(qdmtest::Exists(probe)) << "left over from an earlier run outside the sandbox";
    std::string command = std::string(QDM_SANDBOX_SCRIPT) + " sh -c 'echo x > " + probe +
                          " && test -f " + probe + "'";
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "the sandbox is unavailable here (no namespaces)";
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_FALSE(qdmtest::Exists(probe));
}

}  // namespace
