// Named locks exclude other objects and other processes.
#include <sys/wait.h>
#include <unistd.h>

#include "MutexUtil.h"
#include "TestEnv.h"

namespace {

class MutexTest : public qdmtest::HostTest {};

TEST_F(MutexTest, TwoObjectsInOneProcessExclude) {
    CMutexUtil first;
    CMutexUtil second;
    int error = -1;
    ASSERT_EQ(1, first.Create(1, "cache", &error));
    EXPECT_EQ(0, error);
    ASSERT_EQ(1, second.Create(0, "cache", &error));
    EXPECT_EQ(0, second.Lock(0));
    first.Unlock();
    EXPECT_EQ(1, second.Lock(0));
    EXPECT_TRUE(qdmtest::Exists(root_ + "/tmp/qdm_locks/cache.lock"));
}

TEST_F(MutexTest, DefaultNameAndUncreatedLock) {
    CMutexUtil unused;
    EXPECT_EQ(0, unused.Lock(0));
    CMutexUtil lock;
    ASSERT_EQ(1, lock.Create(0, nullptr, nullptr));
    EXPECT_EQ(1, lock.Lock(CMutexUtil::INFINITE_WAIT));
    EXPECT_TRUE(qdmtest::Exists(root_ + "/tmp/qdm_locks/default.lock"));
}

TEST_F(MutexTest, ChildProcessHoldingTheLockExcludesParent) {
    int locked[2];
    int release[2];
    ASSERT_EQ(0, ::pipe(locked));
    ASSERT_EQ(0, ::pipe(release));
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        CMutexUtil mutex;
        char byte = mutex.Create(1, "shared", nullptr) == 1 ? 'L' : 'F';
        if (::write(locked[1], &byte, 1) != 1) ::_exit(2);
        if (::read(release[0], &byte, 1) < 0) ::_exit(3);
        mutex.Unlock();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(1, ::read(locked[0], &byte, 1));
    ASSERT_EQ('L', byte);
    CMutexUtil mine;
    ASSERT_EQ(1, mine.Create(0, "shared", nullptr));
    EXPECT_EQ(0, mine.Lock(20)) << "the child holds it";
    ASSERT_EQ(1, ::write(release[1], "r", 1));
    EXPECT_EQ(1, mine.Lock(10000)) << "released by the child";
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    for (int fd : {locked[0], locked[1], release[0], release[1]}) ::close(fd);
}

}  // namespace
