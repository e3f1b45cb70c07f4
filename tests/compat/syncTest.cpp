// Threads, events and mutexes.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vector>

namespace {

bool fdReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN) != 0;
}

// Runs `count` threads of `proc` on `arg`, calls `meanwhile`, and waits for them all to end.
void runThreads(
    LPTHREAD_START_ROUTINE proc, void* arg, int count, const std::function<void()>& meanwhile = [] {}) {
    std::vector<HANDLE> threads(count);
    for (HANDLE& t : threads)
        ASSERT_NE(t = CreateThread(nullptr, 0, proc, arg, 0, nullptr), nullptr);
    meanwhile();
    for (HANDLE t : threads) {
        EXPECT_EQ(WaitForSingleObject(t, 30000), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(t));
    }
}

struct WaitArgs {
    HANDLE handle;
    std::atomic<int> woken{0};
};

DWORD WINAPI waitThenCount(LPVOID arg) {
    auto* a = static_cast<WaitArgs*>(arg);
    DWORD rc = WaitForSingleObject(a->handle, 1500);
    if (rc == WAIT_OBJECT_0)
        a->woken.fetch_add(1);
    return rc;
}

// An auto-reset event wakes exactly one of its waiters and resets; a manual-reset one wakes
// them all and stays signalled.
TEST(Events, SetWakesOneWaiterOrAll) {
    for (BOOL manual : {FALSE, TRUE}) {
        SCOPED_TRACE(manual);
        WaitArgs args;
        args.handle = CreateEventA(nullptr, manual, FALSE, nullptr);
        ASSERT_NE(args.handle, nullptr);
        runThreads(waitThenCount, &args, 3, [&] {
            Sleep(100); // all are waiting
            EXPECT_TRUE(SetEvent(args.handle));
        });
        EXPECT_EQ(args.woken.load(), manual ? 3 : 1);
        EXPECT_EQ(WaitForSingleObject(args.handle, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(args.handle));
    }
}

TEST(Events, DescriptorIsReadableExactlyWhileSignalled) {
    for (BOOL manual : {FALSE, TRUE}) {
        SCOPED_TRACE(manual);
        HANDLE ev = CreateEventA(nullptr, manual, TRUE, nullptr);
        int fd = HmCompatEventFd(ev);
        ASSERT_GE(fd, 0);
        EXPECT_TRUE(fdReadable(fd)); // initially signalled
        EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_OBJECT_0);
        EXPECT_EQ(fdReadable(fd), manual != FALSE);
        EXPECT_EQ(WaitForSingleObject(ev, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_TRUE(ResetEvent(ev));
        EXPECT_FALSE(fdReadable(fd));
        EXPECT_TRUE(SetEvent(ev));
        EXPECT_TRUE(SetEvent(ev)); // a second set is one signal, not two
        EXPECT_TRUE(fdReadable(fd));
        EXPECT_TRUE(ResetEvent(ev));
        EXPECT_FALSE(fdReadable(fd));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(WaitForSingleObject(ev, 150), WAIT_TIMEOUT);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150)); // it did wait
        EXPECT_TRUE(CloseHandle(ev));
    }
}

struct CounterArgs {
    HANDLE mutex;
    int counter; // guarded by the mutex only
};

DWORD WINAPI incrementUnderMutex(LPVOID arg) {
    auto* a = static_cast<CounterArgs*>(arg);
    for (int i = 0; i < 2000; ++i) {
        if (WaitForSingleObject(a->mutex, INFINITE) != WAIT_OBJECT_0)
            return 1;
        int v = a->counter;
        a->counter = v + 1;
        if (!ReleaseMutex(a->mutex))
            return 2;
    }
    return 0;
}

TEST(Mutexes, ExcludeEachOther) {
    CounterArgs args{CreateMutexA(nullptr, FALSE, nullptr), 0};
    ASSERT_NE(args.mutex, nullptr);
    runThreads(incrementUnderMutex, &args, 4);
    EXPECT_EQ(args.counter, 8000);
    EXPECT_TRUE(CloseHandle(args.mutex));
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
    return WaitForSingleObject(static_cast<HANDLE>(arg), 0);
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
    SetLastError(0);
    EXPECT_FALSE(ReleaseMutex(probe.mutex)); // released as often as acquired
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));

    runThreads(takeAndExit, probe.mutex, 1);
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 5000), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(probe.mutex)); // owned now
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(probe.mutex));
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
    EXPECT_EQ(WaitForSingleObject(t, 100), WAIT_TIMEOUT); // still running
    ASSERT_TRUE(SetEvent(gate.go));
    EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_EQ(id, gate.tid.load());
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(::syscall(SYS_gettid)));
    EXPECT_TRUE(CloseHandle(t));

    ASSERT_TRUE(ResetEvent(gate.go) && ResetEvent(gate.done));
    ASSERT_NE(t = CreateThread(nullptr, 0, waitForGate, &gate, 0, nullptr), nullptr);
    EXPECT_TRUE(CloseHandle(t));
    SetLastError(0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    ASSERT_TRUE(SetEvent(gate.go));
    EXPECT_EQ(WaitForSingleObject(gate.done, 5000), WAIT_OBJECT_0);
}

TEST(Handles, BadAndClosedHandlesFailCleanly) {
    int local = 0;
    for (HANDLE h : {HANDLE(nullptr), INVALID_HANDLE_VALUE, HANDLE(&local)}) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_FALSE(SetEvent(h));
        EXPECT_FALSE(ResetEvent(h));
        EXPECT_FALSE(ReleaseMutex(h));
        EXPECT_FALSE(CloseHandle(h));
        EXPECT_EQ(HmCompatEventFd(h), -1);
    }
    // The wrong kind of object.
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    SetLastError(0);
    EXPECT_FALSE(SetEvent(m));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(HmCompatEventFd(m), -1);
    EXPECT_TRUE(CloseHandle(m));
    EXPECT_FALSE(CloseHandle(m)); // already closed
    HANDLE ev = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_FALSE(ReleaseMutex(ev));
    EXPECT_TRUE(CloseHandle(ev));
    EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_FAILED);
}

} // namespace
