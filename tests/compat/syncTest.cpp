// Threads, events and mutexes.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

bool fdReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN) != 0;
}

struct Shared {
    HANDLE handle;
    std::atomic<int> count{0};
    int counter = 0; // guarded by the mutex only
};

DWORD WINAPI waitThenCount(LPVOID arg) {
    auto* a = static_cast<Shared*>(arg);
    DWORD rc = WaitForSingleObject(a->handle, 1500);
    if (rc == WAIT_OBJECT_0)
        a->count.fetch_add(1);
    return rc;
}

DWORD WINAPI incrementUnderMutex(LPVOID arg) {
    auto* a = static_cast<Shared*>(arg);
    for (int i = 0; i < 2000; ++i) {
        if (WaitForSingleObject(a->handle, INFINITE) != WAIT_OBJECT_0)
            return 1;
        a->counter = a->counter + 1;
        if (!ReleaseMutex(a->handle))
            return 2;
    }
    return 0;
}

// Runs `count` threads of `proc` on `arg`, sets `event` if any, and waits for them all to end.
void runThreads(LPTHREAD_START_ROUTINE proc, void* arg, int count, HANDLE event = nullptr) {
    std::vector<HANDLE> threads(count);
    for (HANDLE& t : threads)
        ASSERT_NE(t = CreateThread(nullptr, 0, proc, arg, 0, nullptr), nullptr);
    if (event != nullptr) {
        Sleep(100); // all are waiting
        EXPECT_TRUE(SetEvent(event));
    }
    for (HANDLE t : threads) {
        EXPECT_EQ(WaitForSingleObject(t, 30000), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(t));
    }
}

// An auto-reset event wakes exactly one of its waiters and resets; a manual-reset one wakes
// them all and stays signalled. Its descriptor is readable exactly while it is signalled.
TEST(Events, SetWakesOneWaiterOrAllAndTheDescriptorFollows) {
    for (BOOL manual : {FALSE, TRUE}) {
        SCOPED_TRACE(manual);
        Shared args;
        args.handle = CreateEventA(nullptr, manual, FALSE, nullptr);
        ASSERT_NE(args.handle, nullptr);
        runThreads(waitThenCount, &args, 3, args.handle);
        EXPECT_EQ(args.count.load(), manual ? 3 : 1);
        const int fd = HmCompatEventFd(args.handle);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(fdReadable(fd), manual != FALSE);
        EXPECT_EQ(WaitForSingleObject(args.handle, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_TRUE(SetEvent(args.handle));
        EXPECT_TRUE(SetEvent(args.handle)); // a second set is one signal, not two
        EXPECT_TRUE(fdReadable(fd));
        EXPECT_EQ(WaitForSingleObject(args.handle, 0), WAIT_OBJECT_0);
        EXPECT_EQ(fdReadable(fd), manual != FALSE);
        EXPECT_TRUE(ResetEvent(args.handle));
        EXPECT_FALSE(fdReadable(fd));
        EXPECT_EQ(WaitForSingleObject(args.handle, 20), WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(args.handle));
    }
    HANDLE initiallySet = CreateEventA(nullptr, FALSE, TRUE, nullptr);
    EXPECT_TRUE(fdReadable(HmCompatEventFd(initiallySet)));
    EXPECT_TRUE(CloseHandle(initiallySet));
}

TEST(Mutexes, ExcludeEachOther) {
    Shared args;
    ASSERT_NE(args.handle = CreateMutexA(nullptr, FALSE, nullptr), nullptr);
    runThreads(incrementUnderMutex, &args, 4);
    EXPECT_EQ(args.counter, 8000);
    EXPECT_TRUE(CloseHandle(args.handle));
}

struct OwnerProbe {
    HANDLE mutex;
    DWORD releaseOk = 99, releaseError = 0, waitResult = 0;
};

DWORD WINAPI probeForeignMutex(LPVOID arg) {
    auto* p = static_cast<OwnerProbe*>(arg);
    SetLastError(0);
    p->releaseOk = static_cast<DWORD>(ReleaseMutex(p->mutex));
    p->releaseError = GetLastError();
    p->waitResult = WaitForSingleObject(p->mutex, 50);
    return 0;
}

DWORD WINAPI takeAndExit(LPVOID arg) {
    return WaitForSingleObject(static_cast<OwnerProbe*>(arg)->mutex, 0);
}

// Ownership is recursive and per thread; a thread that ends while owning the mutex abandons it.
TEST(Mutexes, OwnershipRecursionAndAbandonment) {
    OwnerProbe probe;
    probe.mutex = CreateMutexA(nullptr, TRUE, nullptr); // owned from the start
    ASSERT_NE(probe.mutex, nullptr);
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 0), WAIT_OBJECT_0); // recursion count 2
    EXPECT_TRUE(ReleaseMutex(probe.mutex));
    SetLastError(1234); // the last error is per thread
    runThreads(probeForeignMutex, &probe, 1);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(probe.releaseOk, static_cast<DWORD>(FALSE));
    EXPECT_EQ(probe.releaseError, static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_EQ(probe.waitResult, WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseMutex(probe.mutex));
    EXPECT_FALSE(ReleaseMutex(probe.mutex)); // released as often as acquired

    runThreads(takeAndExit, &probe, 1);
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 5000), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(probe.mutex)); // owned now
    EXPECT_TRUE(CloseHandle(probe.mutex));
}

struct Gate {
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> tid{0};
    ~Gate() {
        CloseHandle(go);
        CloseHandle(done);
    }
};

DWORD WINAPI waitForGate(LPVOID arg) {
    auto* g = static_cast<Gate*>(arg);
    g->tid = GetCurrentThreadId();
    WaitForSingleObject(g->go, INFINITE);
    SetEvent(g->done);
    return 0;
}

// A thread's handle is signalled when it ends and stays so; closing the handle of a running
// thread detaches it, and that thread still runs to its end.
TEST(Threads, HandleIsSignalledAtTheEndAndClosingDetaches) {
    Gate gate;
    DWORD id = 0;
    HANDLE t = CreateThread(nullptr, 0, waitForGate, &gate, 0, &id);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(WaitForSingleObject(t, 50), WAIT_TIMEOUT); // still running
    ASSERT_TRUE(SetEvent(gate.go));
    EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_EQ(id, gate.tid.load());
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(::syscall(SYS_gettid)));
    EXPECT_TRUE(CloseHandle(t));

    ASSERT_TRUE(ResetEvent(gate.go) && ResetEvent(gate.done));
    ASSERT_NE(t = CreateThread(nullptr, 0, waitForGate, &gate, 0, nullptr), nullptr);
    EXPECT_TRUE(CloseHandle(t));
    ASSERT_TRUE(SetEvent(gate.go));
    EXPECT_EQ(WaitForSingleObject(gate.done, 5000), WAIT_OBJECT_0);
}

// Bad, closed and wrong-kind handles fail with ERROR_INVALID_HANDLE.
TEST(Handles, BadAndClosedHandlesFailCleanly) {
    int local = 0;
    HANDLE closed = CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    for (HANDLE h : {HANDLE(nullptr), INVALID_HANDLE_VALUE, HANDLE(&local), closed}) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_FALSE(SetEvent(h) || ResetEvent(h) || ReleaseMutex(h) || CloseHandle(h));
        EXPECT_EQ(HmCompatEventFd(h), -1);
    }
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    SetLastError(0);
    EXPECT_FALSE(SetEvent(m));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(HmCompatEventFd(m), -1);
    EXPECT_TRUE(CloseHandle(m));
    HANDLE ev = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_FALSE(ReleaseMutex(ev));
    EXPECT_TRUE(CloseHandle(ev));
}

} // namespace
