// Threads, events and mutexes.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

bool fdReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN) != 0;
}

struct WaitArgs {
    HANDLE handle;
    DWORD timeoutMs;
    std::atomic<int>* woken;
};

DWORD WINAPI waitThenCount(LPVOID arg) {
    auto* a = static_cast<WaitArgs*>(arg);
    DWORD rc = WaitForSingleObject(a->handle, a->timeoutMs);
    if (rc == WAIT_OBJECT_0) {
        a->woken->fetch_add(1);
    }
    return rc;
}

TEST(Events, AutoResetWakesExactlyOneWaiterAndResets) {
    HANDLE ev = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ASSERT_NE(ev, nullptr);
    std::atomic<int> woken{0};
    WaitArgs args{ev, 1500, &woken};
    HANDLE t1 = CreateThread(nullptr, 0, waitThenCount, &args, 0, nullptr);
    HANDLE t2 = CreateThread(nullptr, 0, waitThenCount, &args, 0, nullptr);
    ASSERT_NE(t1, nullptr);
    ASSERT_NE(t2, nullptr);
    Sleep(100); // both are waiting
    ASSERT_TRUE(SetEvent(ev));
    // One waiter takes the event; the other times out.
    EXPECT_EQ(WaitForSingleObject(t1, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t2, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(woken.load(), 1);
    EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_TIMEOUT); // reset by the wake-up
    EXPECT_TRUE(CloseHandle(t1));
    EXPECT_TRUE(CloseHandle(t2));
    EXPECT_TRUE(CloseHandle(ev));
}

TEST(Events, ManualResetWakesAllAndStaysSignalled) {
    HANDLE ev = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int> woken{0};
    WaitArgs args{ev, INFINITE, &woken};
    HANDLE threads[3];
    for (HANDLE& t : threads) {
        t = CreateThread(nullptr, 0, waitThenCount, &args, 0, nullptr);
        ASSERT_NE(t, nullptr);
    }
    Sleep(50);
    ASSERT_TRUE(SetEvent(ev));
    for (HANDLE t : threads) {
        EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(t));
    }
    EXPECT_EQ(woken.load(), 3);
    EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(ev));
    EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(ev));
}

TEST(Events, WaitTimesOut) {
    HANDLE ev = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(ev, 150), WAIT_TIMEOUT);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    EXPECT_LT(elapsed, std::chrono::milliseconds(3000));
    EXPECT_TRUE(CloseHandle(ev));
}

TEST(Events, DescriptorIsReadableExactlyWhileSignalled) {
    for (BOOL manual : {FALSE, TRUE}) {
        HANDLE ev = CreateEventA(nullptr, manual, TRUE, nullptr);
        int fd = HmCompatEventFd(ev);
        ASSERT_GE(fd, 0);
        EXPECT_TRUE(fdReadable(fd)) << "initially signalled, manual=" << manual;
        EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_OBJECT_0);
        EXPECT_EQ(fdReadable(fd), manual != FALSE) << "after a wait, manual=" << manual;
        EXPECT_TRUE(ResetEvent(ev));
        EXPECT_FALSE(fdReadable(fd));
        EXPECT_TRUE(SetEvent(ev));
        EXPECT_TRUE(SetEvent(ev)); // a second set is one signal, not two
        EXPECT_TRUE(fdReadable(fd));
        EXPECT_TRUE(ResetEvent(ev));
        EXPECT_FALSE(fdReadable(fd));
        EXPECT_EQ(WaitForSingleObject(ev, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(ev));
    }
    int notAnEvent = 0;
    EXPECT_EQ(HmCompatEventFd(&notAnEvent), -1);
}

struct CounterArgs {
    HANDLE mutex;
    int counter; // guarded by the mutex only
};

DWORD WINAPI incrementUnderMutex(LPVOID arg) {
    auto* a = static_cast<CounterArgs*>(arg);
    for (int i = 0; i < 2000; ++i) {
        if (WaitForSingleObject(a->mutex, INFINITE) != WAIT_OBJECT_0) {
            return 1;
        }
        int v = a->counter;
        a->counter = v + 1;
        if (!ReleaseMutex(a->mutex)) {
            return 2;
        }
    }
    return 0;
}

TEST(Mutexes, ExcludeEachOther) {
    CounterArgs args{CreateMutexA(nullptr, FALSE, nullptr), 0};
    ASSERT_NE(args.mutex, nullptr);
    HANDLE threads[4];
    for (HANDLE& t : threads) {
        t = CreateThread(nullptr, 0, incrementUnderMutex, &args, 0, nullptr);
        ASSERT_NE(t, nullptr);
    }
    for (HANDLE t : threads) {
        EXPECT_EQ(WaitForSingleObject(t, 30000), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(t));
    }
    EXPECT_EQ(args.counter, 8000);
    EXPECT_TRUE(CloseHandle(args.mutex));
}

TEST(Mutexes, RecursiveOwnership) {
    HANDLE m = CreateMutexA(nullptr, TRUE, nullptr); // owned from the start
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0); // recursion count 2
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_TRUE(ReleaseMutex(m));
    SetLastError(0);
    EXPECT_FALSE(ReleaseMutex(m)); // released as often as acquired
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_TRUE(CloseHandle(m));
}

struct OwnerProbe {
    HANDLE mutex;
    DWORD releaseOk = 99;
    DWORD releaseError = 0;
    DWORD waitResult = 0;
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

TEST(Mutexes, ForeignThreadSeesItOwnedAndAbandonmentIsReported) {
    OwnerProbe probe;
    probe.mutex = CreateMutexA(nullptr, TRUE, nullptr);
    HANDLE t = CreateThread(nullptr, 0, probeForeignMutex, &probe, 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(t));
    EXPECT_EQ(probe.releaseOk, static_cast<DWORD>(FALSE));
    EXPECT_EQ(probe.releaseError, static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_EQ(probe.waitResult, WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseMutex(probe.mutex));

    // A thread that ends while owning the mutex abandons it.
    t = CreateThread(nullptr, 0, takeAndExit, probe.mutex, 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(t));
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 5000), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(probe.mutex)); // owned now
    EXPECT_EQ(WaitForSingleObject(probe.mutex, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(probe.mutex));
    EXPECT_TRUE(CloseHandle(probe.mutex));
}

struct Gate {
    HANDLE go;
    HANDLE done = nullptr;
    std::atomic<DWORD> tid{0};
};

DWORD WINAPI waitForGate(LPVOID arg) {
    auto* g = static_cast<Gate*>(arg);
    g->tid = GetCurrentThreadId();
    WaitForSingleObject(g->go, INFINITE);
    if (g->done != nullptr) {
        SetEvent(g->done);
    }
    return 0;
}

TEST(Threads, HandleIsSignalledWhenTheThreadEnds) {
    Gate gate;
    gate.go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD id = 0;
    HANDLE t = CreateThread(nullptr, 0, waitForGate, &gate, 0, &id);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(WaitForSingleObject(t, 100), WAIT_TIMEOUT); // still running
    ASSERT_TRUE(SetEvent(gate.go));
    EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0); // stays signalled
    EXPECT_EQ(id, gate.tid.load());
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(::syscall(SYS_gettid)));
    EXPECT_TRUE(CloseHandle(t));
    EXPECT_TRUE(CloseHandle(gate.go));
}

TEST(Threads, ClosingARunningThreadDetachesIt) {
    Gate gate;
    gate.go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    gate.done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE t = CreateThread(nullptr, 0, waitForGate, &gate, 0, nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(CloseHandle(t));
    SetLastError(0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    ASSERT_TRUE(SetEvent(gate.go));
    // The detached thread still runs to its end.
    EXPECT_EQ(WaitForSingleObject(gate.done, 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(gate.go));
    EXPECT_TRUE(CloseHandle(gate.done));
}

TEST(Handles, BadAndClosedHandlesFailCleanly) {
    int local = 0;
    HANDLE bogus[] = {nullptr, INVALID_HANDLE_VALUE, &local};
    for (HANDLE h : bogus) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_FALSE(SetEvent(h));
        EXPECT_FALSE(ResetEvent(h));
        EXPECT_FALSE(ReleaseMutex(h));
        EXPECT_FALSE(CloseHandle(h));
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

TEST(LastError, IsPerThread) {
    SetLastError(1234);
    HANDLE t = CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            SetLastError(77);
            return 0;
        },
        nullptr, 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_TRUE(CloseHandle(t));
}

} // namespace
