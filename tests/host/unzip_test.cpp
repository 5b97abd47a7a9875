// Unpacking update modules: the good path, and refusal of hostile archives
// before anything is written.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Archive.h"
#include "TestEnv.h"
#include "UnzipUtility.h"

namespace {

using qdmtest::ArchiveEntry;

class UnzipTest : public qdmtest::HostTest {
protected:
    std::string Zip(const std::vector<ArchiveEntry>& entries) {
        std::string path = root_ + "/module.zip";
        EXPECT_TRUE(qdmtest::MakeZip(path, entries));
        return path;
    }
    bool Unzip(const std::string& archive, std::list<std::string>* files = nullptr) {
        std::string output;
        bool result = CUnzip_Utility::UpdateModuleUnzip(archive, files, target_, &output, "fc");
        EXPECT_FALSE(output.empty());
        return result;
    }
    bool TargetIsEmpty() const {
        return !qdmtest::Exists(target_) || std::filesystem::is_empty(target_);
    }
    std::string target_ = "";
    void SetUp() override {
        HostTest::SetUp();
        target_ = temp_ + "/unzip";
    }
};

bool IsOwnerExecutable(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && (st.st_mode & S_IXUSR);
}

TEST_F(UnzipTest, UnpacksNestedFoldersAndKeepsExecBit) {
    std::string archive = Zip({{"readme.txt", "hello", false, ""},
                               {"bin/x86_64/install.sh", "#!/bin/sh\n", true, ""},
                               {"./bin/data.grp", "image", false, ""}});
    std::list<std::string> files = {"kept"};
    ASSERT_TRUE(Unzip(archive, &files));
    EXPECT_EQ((std::list<std::string>{"kept", "readme.txt", "bin/x86_64/install.sh", "bin/data.grp"}),
              files);
    EXPECT_EQ("hello", qdmtest::ReadFile(target_ + "/readme.txt"));
    EXPECT_EQ("image", qdmtest::ReadFile(target_ + "/bin/data.grp"));
    EXPECT_TRUE(IsOwnerExecutable(target_ + "/bin/x86_64/install.sh"));
    EXPECT_FALSE(IsOwnerExecutable(target_ + "/readme.txt"));
}

TEST_F(UnzipTest, RefusesHostileEntriesWithoutWritingAnything) {
    struct Row {
        const char* why;
        ArchiveEntry bad;
    } rows[] = {
        {"parent component", {"../escape.txt", "x", false, ""}},
        {"parent component deeper down", {"a/../../escape.txt", "x", false, ""}},
        {"absolute path", {"/tmp/qdm_abs_escape.txt", "x", false, ""}},
        {"symbolic link", {"link", "", false, "/etc"}},
    };
    for (const auto& row : rows) {
        std::string archive = Zip({{"first.txt", "fine", false, ""}, row.bad});
        EXPECT_FALSE(Unzip(archive)) << row.why;
        EXPECT_TRUE(TargetIsEmpty()) << row.why;
        EXPECT_FALSE(qdmtest::Exists(temp_ + "/escape.txt")) << row.why;
        qdmtest::RemoveTree(target_);
    }
    EXPECT_FALSE(qdmtest::Exists("/tmp/qdm_abs_escape.txt"));
}

TEST_F(UnzipTest, MissingOrGarbageArchiveFails) {
    EXPECT_FALSE(Unzip(root_ + "/absent.zip"));
    qdmtest::WriteFile(root_ + "/garbage.zip", "this is not an archive");
    EXPECT_FALSE(Unzip(root_ + "/garbage.zip"));
    EXPECT_TRUE(TargetIsEmpty());
}

TEST_F(UnzipTest, NeverFollowsSymlinkInTarget) {
    std::string outside = root_ + "/outside";
    std::filesystem::create_directories(outside);
    std::filesystem::create_directories(target_);
    ASSERT_EQ(0, ::symlink(outside.c_str(), (target_ + "/sub").c_str()));
    ASSERT_EQ(0, ::symlink((outside + "/f.txt").c_str(), (target_ + "/f.txt").c_str()));
    EXPECT_FALSE(Unzip(Zip({{"sub/x.txt", "x", false, ""}})));
    EXPECT_FALSE(Unzip(Zip({{"f.txt", "x", false, ""}})));
    EXPECT_TRUE(std::filesystem::is_empty(outside));
}

TEST_F(UnzipTest, DeleteFolderRemovesTreeButNotLinkTargets) {
    std::string outside = root_ + "/keep";
    qdmtest::WriteFile(outside + "/precious.txt", "p");
    qdmtest::WriteFile(target_ + "/a/b/c.txt", "c");
    ASSERT_EQ(0, ::symlink(outside.c_str(), (target_ + "/a/link").c_str()));
    EXPECT_TRUE(CUnzip_Utility::DeleteFolder(target_, "fc"));
    EXPECT_FALSE(qdmtest::Exists(target_));
    EXPECT_EQ("p", qdmtest::ReadFile(outside + "/precious.txt"));
    EXPECT_TRUE(CUnzip_Utility::DeleteFolder(target_, "fc")) << "a missing folder counts as removed";
}

}  // namespace
