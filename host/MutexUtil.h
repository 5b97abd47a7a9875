#pragma once
// Named lock that excludes threads and other processes (flock on a lock file
// in the install root's work area).
#include <string>

class CMutexUtil {
public:
    static const int INFINITE_WAIT = -1;

    CMutexUtil();
    ~CMutexUtil();
    CMutexUtil(const CMutexUtil&) = delete;
    CMutexUtil& operator=(const CMutexUtil&) = delete;

    // A null name selects the host's default lock. Returns 1 on success.
    int Create(int initialOwner, const char* name, int* error);
    // Waits up to timeoutMs (INFINITE_WAIT: for ever). Returns 1 when locked.
    int Lock(int timeoutMs);
    void Unlock();

private:
    int fd_;
    bool locked_;
};
