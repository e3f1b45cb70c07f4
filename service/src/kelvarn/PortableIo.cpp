#include "PortableIo.h"

#include <cerrno>

#ifdef _WIN32
#include <climits>
#include <io.h>
#include <windows.h>
#else
#include <sys/file.h>
#include <unistd.h>
#endif

namespace kelvarn {

#ifdef _WIN32

namespace {

HANDLE osHandle(int fd) {
    const intptr_t h = _get_osfhandle(fd);
    return h == -1 ? INVALID_HANDLE_VALUE : reinterpret_cast<HANDLE>(h);
}

} // namespace

bool lockWholeFile(int fd) {
    const HANDLE h = osHandle(fd);
    if (h == INVALID_HANDLE_VALUE) {
        errno = EBADF;
        return false;
    }
    OVERLAPPED at = {};
    if (LockFileEx(h, LOCKFILE_EXCLUSIVE_LOCK, 0, MAXDWORD, MAXDWORD, &at))
        return true;
    errno = EIO;
    return false;
}

ssize_t readAt(int fd, void* buffer, size_t count, uint64_t offset) {
    const HANDLE h = osHandle(fd);
    if (h == INVALID_HANDLE_VALUE) {
        errno = EBADF;
        return -1;
    }
    // One ReadFile call takes at most a DWORD's worth; callers loop for more.
    const DWORD want =
        count > static_cast<size_t>(INT_MAX) ? static_cast<DWORD>(INT_MAX) : static_cast<DWORD>(count);
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    if (!ReadFile(h, buffer, want, &got, &at)) {
        if (GetLastError() == ERROR_HANDLE_EOF)
            return 0;
        errno = EIO;
        return -1;
    }
    return static_cast<ssize_t>(got);
}

#else

bool lockWholeFile(int fd) {
    return ::flock(fd, LOCK_EX) == 0;
}

ssize_t readAt(int fd, void* buffer, size_t count, uint64_t offset) {
    return ::pread(fd, buffer, count, static_cast<off_t>(offset));
}

#endif

} // namespace kelvarn
