// File services: install root, folder creation, pattern search, bulk delete,
// retrying delete.
#include <algorithm>
#include <filesystem>

#include "CommonInformation.h"
#include "FileUtility.h"
#include "TestEnv.h"

namespace {

class FileUtilityTest : public qdmtest::HostTest {};

TEST_F(FileUtilityTest, InstallRootIsTheSameForEveryIndex) {
    EXPECT_EQ(root_, CFileUtility::GetInstallPath(0));
    EXPECT_EQ(root_, CFileUtility::GetInstallPath(3));
}

TEST_F(FileUtilityTest, CreateFolder) {
    EXPECT_TRUE(CFileUtility::CreateFolder(root_ + "/a/b/c"));
    EXPECT_TRUE(std::filesystem::is_directory(root_ + "/a/b/c"));
    EXPECT_TRUE(CFileUtility::CreateFolder(root_ + "/a/b/c")) << "existing folder";
    qdmtest::WriteFile(root_ + "/file", "x");
    EXPECT_FALSE(CFileUtility::CreateFolder(root_ + "/file")) << "existing non-folder";
    EXPECT_FALSE(CFileUtility::CreateFolder(root_ + "/file/sub"));
    EXPECT_FALSE(CFileUtility::CreateFolder(""));
}

TEST_F(FileUtilityTest, SearchFileReplacesListSortedAndNotRecursive) {
    for (const char* name : {"b.grp", "a.grp", "c.GRP", "sub/deep.grp", "image.all"})
        qdmtest::WriteFile(temp_ + "/" + name, "x");
    std::list<std::string> found = {"stale"};
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*.grp", &found, true));
    EXPECT_EQ((std::list<std::string>{"a.grp", "b.grp"}), found);
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*.all", &found, false));
    EXPECT_EQ((std::list<std::string>{"image.all"}), found) << "second search replaces the first";
    EXPECT_FALSE(CFileUtility::SearchFile(temp_, "*.rpm", &found, false));
    EXPECT_TRUE(found.empty());
    EXPECT_FALSE(CFileUtility::SearchFile(root_ + "/absent", "*", &found, false));
    EXPECT_TRUE(CFileUtility::SearchFile(temp_, "*", &found, false));
    EXPECT_EQ(0, std::count(found.begin(), found.end(), ".")) << "dot entries are never names";
}

TEST_F(FileUtilityTest, DeleteAllFileByExtendName) {
    for (const char* name : {"a.txt", "b.txt", "keep.txt.bak", "keeptxt", "folder.txt/inner.txt"})
        qdmtest::WriteFile(temp_ + "/" + name, "x");
    EXPECT_TRUE(CFileUtility::DeleteAllFileByExtendName(temp_, "txt"));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/a.txt"));
    EXPECT_FALSE(qdmtest::Exists(temp_ + "/b.txt"));
    EXPECT_TRUE(qdmtest::Exists(temp_ + "/keep.txt.bak"));
    EXPECT_TRUE(qdmtest::Exists(temp_ + "/keeptxt"));
    EXPECT_TRUE(qdmtest::Exists(temp_ + "/folder.txt/inner.txt")) << "folders are not files";
}

TEST_F(FileUtilityTest, RetryDeleteFile) {
    std::string file = temp_ + "/f";
    qdmtest::WriteFile(file, "x");
    EXPECT_TRUE(CCommon_Information::RetryDeleteFile(file));
    EXPECT_FALSE(qdmtest::Exists(file));
    EXPECT_TRUE(CCommon_Information::RetryDeleteFile(file)) << "missing counts as deleted";
    EXPECT_FALSE(CCommon_Information::RetryDeleteFile(temp_)) << "a folder is not a file";
    EXPECT_TRUE(CFileUtility::IsFileExist(temp_));
    EXPECT_FALSE(CFileUtility::IsFileExist(file));
}

}  // namespace
