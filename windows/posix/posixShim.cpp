#include "posixShim.h"

#include <cerrno>
#include <climits>

#include <windows.h>

namespace {

HANDLE osHandle(int fd) {
    const intptr_t h = _get_osfhandle(fd);
    return h == -1 ? INVALID_HANDLE_VALUE : reinterpret_cast<HANDLE>(h);
}

} // namespace

extern "C" int flock(int fd, int operation) {
    const HANDLE h = osHandle(fd);
    if (h == INVALID_HANDLE_VALUE) {
        errno = EBADF;
        return -1;
    }
    OVERLAPPED at = {};
    const int kind = operation & (LOCK_SH | LOCK_EX | LOCK_UN);
    if (kind == LOCK_UN) {
        if (UnlockFileEx(h, 0, MAXDWORD, MAXDWORD, &at))
            return 0;
        errno = EINVAL;
        return -1;
    }
    if (kind != LOCK_SH && kind != LOCK_EX) {
        errno = EINVAL;
        return -1;
    }
    DWORD flags = kind == LOCK_EX ? LOCKFILE_EXCLUSIVE_LOCK : 0;
    if (operation & LOCK_NB)
        flags |= LOCKFILE_FAIL_IMMEDIATELY;
    if (LockFileEx(h, flags, 0, MAXDWORD, MAXDWORD, &at))
        return 0;
    errno = GetLastError() == ERROR_LOCK_VIOLATION ? EWOULDBLOCK : EIO;
    return -1;
}

extern "C" ssize_t pread(int fd, void* buf, size_t count, int64_t offset) {
    const HANDLE h = osHandle(fd);
    if (h == INVALID_HANDLE_VALUE) {
        errno = EBADF;
        return -1;
    }
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    // One ReadFile call takes at most a DWORD's worth; callers loop for more.
    const DWORD want =
        count > static_cast<size_t>(INT_MAX) ? static_cast<DWORD>(INT_MAX) : static_cast<DWORD>(count);
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(static_cast<uint64_t>(offset));
    at.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
    DWORD got = 0;
    if (!ReadFile(h, buf, want, &got, &at)) {
        if (GetLastError() == ERROR_HANDLE_EOF)
            return 0;
        errno = EIO;
        return -1;
    }
    return static_cast<ssize_t>(got);
}
