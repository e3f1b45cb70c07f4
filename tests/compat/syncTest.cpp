// Threads, events and mutexes, with the semantics the agent relies on.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <poll.h>
#include <vector>

namespace {

bool fdReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN) != 0;
}

// What the threads of one test share.
struct Shared {
    HANDLE handle = nullptr, done = nullptr;
    std::atomic<int> count{0};
    int counter = 0; // guarded by the mutex only
};

// Runs `count` threads of `proc` on `shared`, sets `event` if any, and waits for them all to end.
void runThreads(LPTHREAD_START_ROUTINE proc, Shared* shared, int count, HANDLE event = nullptr) {
    std::vector<HANDLE> threads(count);
    for (HANDLE& t : threads)
        ASSERT_NE(t = CreateThread(nullptr, 0, proc, shared, 0, nullptr), nullptr);
    if (event != nullptr) {
        Sleep(100); // all are waiting
        EXPECT_TRUE(SetEvent(event));
    }
    for (HANDLE t : threads) {
        EXPECT_EQ(WaitForSingleObject(t, 30000), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(t));
    }
}

// An auto-reset event, as the agent's trap event is, wakes exactly one of its waiters and
// resets; its descriptor is readable exactly while it is signalled; two sets are one signal.
TEST(Events, AnAutoResetEventWakesOneWaiterAndItsDescriptorFollows) {
    Shared shared;
    ASSERT_NE(shared.handle = CreateEventA(nullptr, FALSE, FALSE, nullptr), nullptr);
    runThreads(
        [](LPVOID arg) -> DWORD {
            auto* s = static_cast<Shared*>(arg);
            if (WaitForSingleObject(s->handle, 1500) == WAIT_OBJECT_0)
                s->count.fetch_add(1);
            return 0;
        },
        &shared, 3, shared.handle);
    EXPECT_EQ(shared.count.load(), 1);
    const int fd = HmCompatEventFd(shared.handle);
    ASSERT_GE(fd, 0);
    EXPECT_FALSE(fdReadable(fd));
    EXPECT_TRUE(SetEvent(shared.handle) && SetEvent(shared.handle));
    EXPECT_TRUE(fdReadable(fd));
    EXPECT_EQ(WaitForSingleObject(shared.handle, 0), WAIT_OBJECT_0);
    EXPECT_FALSE(fdReadable(fd));
    EXPECT_TRUE(CloseHandle(shared.handle));
}

// Mutexes exclude each other; ownership is recursive.
TEST(Mutexes, ExclusionAndRecursiveOwnership) {
    Shared shared;
    ASSERT_NE(shared.handle = CreateMutexA(nullptr, FALSE, nullptr), nullptr);
    runThreads(
        [](LPVOID arg) -> DWORD {
            auto* s = static_cast<Shared*>(arg);
            for (int i = 0; i < 2000; ++i) {
                EXPECT_EQ(WaitForSingleObject(s->handle, INFINITE), WAIT_OBJECT_0);
                s->counter = s->counter + 1;
                EXPECT_TRUE(ReleaseMutex(s->handle));
            }
            return 0;
        },
        &shared, 4);
    EXPECT_EQ(shared.counter, 8000);

    EXPECT_EQ(WaitForSingleObject(shared.handle, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(shared.handle, 0), WAIT_OBJECT_0); // recursion count 2
    EXPECT_TRUE(ReleaseMutex(shared.handle));
    EXPECT_TRUE(ReleaseMutex(shared.handle));
    EXPECT_FALSE(ReleaseMutex(shared.handle)); // released as often as acquired
    EXPECT_TRUE(CloseHandle(shared.handle));
}

// Closing the handle of a running thread, as the agent does with its poller, detaches it,
// and that thread still runs to its end. Closed and wrong-kind handles then fail.
// (A thread's handle signalled at its end is what runThreads waits for.)
TEST(Threads, ClosingDetachesAndClosedHandlesFailCleanly) {
    Shared gate;
    gate.handle = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    gate.done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE t = CreateThread(
        nullptr, 0,
        [](LPVOID arg) -> DWORD {
            auto* g = static_cast<Shared*>(arg);
            WaitForSingleObject(g->handle, INFINITE);
            return SetEvent(g->done);
        },
        &gate, 0, nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(CloseHandle(t));
    EXPECT_FALSE(SetEvent(t) || CloseHandle(t) || ReleaseMutex(gate.handle));
    ASSERT_TRUE(SetEvent(gate.handle));
    EXPECT_EQ(WaitForSingleObject(gate.done, 5000), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(gate.handle) && CloseHandle(gate.done));
}

} // namespace
