// Threads, events and mutexes with Windows semantics on POSIX threads.
// Every waitable object has its own mutex and condition variable (on the
// monotonic clock); an event also owns an eventfd that is readable exactly while
// the event is signalled, so that poll loops can wait on it.
#include "handles.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace hmcompat {
namespace {

thread_local DWORD t_lastError = 0;

DWORD currentTid() {
    return static_cast<DWORD>(::syscall(SYS_gettid));
}

class Lock {
public:
    explicit Lock(pthread_mutex_t& m) : m_(m) { pthread_mutex_lock(&m_); }
    ~Lock() { pthread_mutex_unlock(&m_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t& m_;
};

// Base of the objects a thread can wait for.
struct Waitable : Object {
    explicit Waitable(Kind k) : Object(k) {
        pthread_mutex_init(&mutex, nullptr);
        pthread_condattr_t attr;
        pthread_condattr_init(&attr);
        pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
        pthread_cond_init(&cond, &attr);
        pthread_condattr_destroy(&attr);
    }
    ~Waitable() override {
        pthread_cond_destroy(&cond);
        pthread_mutex_destroy(&mutex);
    }
    // Both called with the mutex held.
    virtual bool ready(DWORD tid) const = 0;
    virtual DWORD take(DWORD tid) = 0; // returns WAIT_OBJECT_0 or WAIT_ABANDONED

    pthread_mutex_t mutex;
    pthread_cond_t cond;
};

struct Event : Waitable {
    Event(bool manual, bool initial) : Waitable(Kind::Event), manualReset(manual) {
        fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (initial) {
            signal();
        }
    }
    ~Event() override {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    bool ready(DWORD) const override { return signalled; }
    DWORD take(DWORD) override {
        if (!manualReset) {
            unsignal();
        }
        return WAIT_OBJECT_0;
    }
    // Both with the mutex held; they keep the descriptor's readability equal to
    // the signalled state.
    void signal() {
        if (!signalled) {
            signalled = true;
            uint64_t one = 1;
            ssize_t n;
            do {
                n = ::write(fd, &one, sizeof one);
            } while (n < 0 && errno == EINTR);
        }
    }
    void unsignal() {
        if (signalled) {
            signalled = false;
            uint64_t count;
            ssize_t n;
            do {
                n = ::read(fd, &count, sizeof count);
            } while (n < 0 && errno == EINTR);
        }
    }

    const bool manualReset;
    bool signalled = false;
    int fd = -1;
};

struct Mutex;

// The mutexes the calling thread owns; at thread exit they are released and
// marked abandoned, so that their next owner learns of it.
struct OwnedMutexes {
    ~OwnedMutexes();
    std::vector<std::weak_ptr<Mutex>> list;
};
thread_local OwnedMutexes t_owned;

struct Mutex : Waitable, std::enable_shared_from_this<Mutex> {
    Mutex() : Waitable(Kind::Mutex) {}
    bool ready(DWORD tid) const override { return owner == 0 || owner == tid; }
    DWORD take(DWORD tid) override {
        if (owner == 0) {
            owner = tid;
            t_owned.list.push_back(weak_from_this());
        }
        ++count;
        if (abandoned) {
            abandoned = false;
            return WAIT_ABANDONED;
        }
        return WAIT_OBJECT_0;
    }

    DWORD owner = 0; // kernel thread id of the owner, 0 when free
    unsigned count = 0;
    bool abandoned = false;
};

OwnedMutexes::~OwnedMutexes() {
    DWORD tid = currentTid();
    for (auto& weak : list) {
        if (auto m = weak.lock()) {
            Lock g(m->mutex);
            if (m->owner == tid) {
                m->owner = 0;
                m->count = 0;
                m->abandoned = true;
                pthread_cond_signal(&m->cond);
            }
        }
    }
}

void forgetOwned(const Mutex* m) {
    auto& list = t_owned.list;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [m](const std::weak_ptr<Mutex>& w) {
                                  auto p = w.lock();
                                  return !p || p.get() == m;
                              }),
               list.end());
}

struct Thread : Waitable {
    Thread() : Waitable(Kind::Thread) {}
    bool ready(DWORD) const override { return finished; }
    DWORD take(DWORD) override { return WAIT_OBJECT_0; }

    DWORD tid = 0;
    bool started = false;
    bool finished = false;
    DWORD exitCode = STILL_ACTIVE;
};

struct ThreadStart {
    std::shared_ptr<Thread> thread;
    LPTHREAD_START_ROUTINE routine;
    LPVOID param;
};

void* threadMain(void* arg) {
    ThreadStart* start = static_cast<ThreadStart*>(arg);
    std::shared_ptr<Thread> t = std::move(start->thread);
    LPTHREAD_START_ROUTINE routine = start->routine;
    LPVOID param = start->param;
    delete start;
    {
        Lock g(t->mutex);
        t->tid = currentTid();
        t->started = true;
        pthread_cond_broadcast(&t->cond);
    }
    DWORD code = routine(param);
    {
        Lock g(t->mutex);
        t->exitCode = code;
        t->finished = true;
        pthread_cond_broadcast(&t->cond);
    }
    return nullptr;
}

timespec deadlineAfter(DWORD ms) {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += ms / 1000;
    ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

std::shared_ptr<Waitable> lookupWaitable(const void* h) {
    std::shared_ptr<Object> obj = lookupAnyObject(h);
    if (!obj || obj->kind == Kind::RegKey) {
        return nullptr;
    }
    return std::static_pointer_cast<Waitable>(obj);
}

BOOL failWith(DWORD error) {
    t_lastError = error;
    return FALSE;
}

} // namespace
} // namespace hmcompat

using namespace hmcompat;

extern "C" {

HM_COMPAT_API HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES, size_t /*dwStackSize*/,
                                         LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                                         DWORD dwCreationFlags, LPDWORD lpThreadId) {
    if (lpStartAddress == nullptr || (dwCreationFlags & CREATE_SUSPENDED) != 0) {
        failWith(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto t = std::make_shared<Thread>();
    auto* start = new ThreadStart{t, lpStartAddress, lpParameter};
    pthread_t pt;
    if (pthread_create(&pt, nullptr, threadMain, start) != 0) {
        delete start;
        failWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    pthread_detach(pt);
    DWORD tid;
    {
        Lock g(t->mutex);
        while (!t->started) {
            pthread_cond_wait(&t->cond, &t->mutex);
        }
        tid = t->tid;
    }
    if (lpThreadId != nullptr) {
        *lpThreadId = tid;
    }
    return registerObject(std::move(t));
}

HM_COMPAT_API HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState,
                                         LPCSTR /*lpName*/) {
    auto e = std::make_shared<Event>(bManualReset != FALSE, bInitialState != FALSE);
    if (e->fd < 0) {
        failWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return registerObject(std::move(e));
}

HM_COMPAT_API BOOL WINAPI SetEvent(HANDLE hEvent) {
    auto e = lookupAs<Event>(hEvent, Kind::Event);
    if (!e) {
        return failWith(ERROR_INVALID_HANDLE);
    }
    Lock g(e->mutex);
    e->signal();
    pthread_cond_broadcast(&e->cond);
    return TRUE;
}

HM_COMPAT_API BOOL WINAPI ResetEvent(HANDLE hEvent) {
    auto e = lookupAs<Event>(hEvent, Kind::Event);
    if (!e) {
        return failWith(ERROR_INVALID_HANDLE);
    }
    Lock g(e->mutex);
    e->unsignal();
    return TRUE;
}

HM_COMPAT_API int HmCompatEventFd(HANDLE hEvent) {
    auto e = lookupAs<Event>(hEvent, Kind::Event);
    if (!e) {
        failWith(ERROR_INVALID_HANDLE);
        return -1;
    }
    return e->fd;
}

HM_COMPAT_API HANDLE WINAPI CreateMutexA(LPSECURITY_ATTRIBUTES, BOOL bInitialOwner, LPCSTR /*lpName*/) {
    auto m = std::make_shared<Mutex>();
    if (bInitialOwner) {
        Lock g(m->mutex);
        m->take(currentTid());
    }
    return registerObject(std::move(m));
}

HM_COMPAT_API BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
    auto m = lookupAs<Mutex>(hMutex, Kind::Mutex);
    if (!m) {
        return failWith(ERROR_INVALID_HANDLE);
    }
    Lock g(m->mutex);
    if (m->owner != currentTid() || m->count == 0) {
        return failWith(ERROR_NOT_OWNER);
    }
    if (--m->count == 0) {
        m->owner = 0;
        forgetOwned(m.get());
        pthread_cond_signal(&m->cond);
    }
    return TRUE;
}

HM_COMPAT_API DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    auto w = lookupWaitable(hHandle);
    if (!w) {
        t_lastError = ERROR_INVALID_HANDLE;
        return WAIT_FAILED;
    }
    DWORD tid = currentTid();
    const timespec deadline = deadlineAfter(dwMilliseconds == INFINITE ? 0 : dwMilliseconds);
    Lock g(w->mutex);
    for (;;) {
        if (w->ready(tid)) {
            return w->take(tid);
        }
        if (dwMilliseconds == 0) {
            return WAIT_TIMEOUT;
        }
        if (dwMilliseconds == INFINITE) {
            pthread_cond_wait(&w->cond, &w->mutex);
        } else if (pthread_cond_timedwait(&w->cond, &w->mutex, &deadline) == ETIMEDOUT) {
            if (w->ready(tid)) {
                return w->take(tid);
            }
            return WAIT_TIMEOUT;
        }
    }
}

HM_COMPAT_API BOOL WINAPI CloseHandle(HANDLE hObject) {
    constexpr uint32_t closable = kindBit(Kind::Event) | kindBit(Kind::Mutex) | kindBit(Kind::Thread);
    if (!unregisterObject(hObject, closable)) {
        return failWith(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

HM_COMPAT_API VOID WINAPI Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == 0) {
        sched_yield();
        return;
    }
    if (dwMilliseconds == INFINITE) {
        for (;;) {
            ::pause();
        }
    }
    timespec req{static_cast<time_t>(dwMilliseconds / 1000),
                 static_cast<long>(dwMilliseconds % 1000) * 1000000L};
    while (nanosleep(&req, &req) != 0 && errno == EINTR) {
    }
}

HM_COMPAT_API VOID WINAPI ExitProcess(UINT uExitCode) {
    std::exit(static_cast<int>(uExitCode));
}

HM_COMPAT_API DWORD WINAPI GetCurrentThreadId(void) {
    return currentTid();
}

HM_COMPAT_API DWORD WINAPI GetLastError(void) {
    return t_lastError;
}

HM_COMPAT_API VOID WINAPI SetLastError(DWORD dwErrCode) {
    t_lastError = dwErrCode;
}

} // extern "C"
