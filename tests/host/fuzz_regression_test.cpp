// Inputs the fuzzers found crashing the host services, replayed from
// fuzz/regressions/ so that the fixes stay in.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "TestEnv.h"
#include "UnzipUtility.h"

namespace {

std::string Reproducer(const std::string& target, const std::string& name) {
    return std::string(QDM_SOURCE_DIR) + "/fuzz/regressions/" + target + "/" + name;
}

class FuzzRegressionTest : public qdmtest::HostTest {};

TEST_F(FuzzRegressionTest, DamagedArchivesAreRefusedWithAReason) {
    struct Case {
        const char* file;
        const char* outputStart;
    } cases[] = {
        // A damaged zip for which libarchive has no error text: the reason
        // used to be built from a null pointer.
        {"null-error-string.zip", "refused: unreadable archive: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string archive = Reproducer("fuzz_unzip", c.file);
        ASSERT_TRUE(qdmtest::Exists(archive));
        const std::string folder = temp_ + "/unzip";
        std::list<std::string> files;
        std::string output;
        EXPECT_FALSE(CUnzip_Utility::UpdateModuleUnzip(archive, &files, folder, &output, "fc"));
        EXPECT_EQ(output.rfind(c.outputStart, 0), 0u) << output;
        EXPECT_TRUE(files.empty());
        EXPECT_FALSE(qdmtest::Exists(folder));
    }
}

}  // namespace
