// The few POSIX file calls the query service uses that the Windows C runtime lacks,
// built on the Win32 API. Included ahead of every query-service source in the
// Windows build.
#ifndef HM_WINDOWS_POSIX_SHIM_H
#define HM_WINDOWS_POSIX_SHIM_H

#if defined(_WIN32)

#include <fcntl.h>
#include <io.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

// Descriptors are not inherited by child processes (the runtime's own flag).
#ifndef O_CLOEXEC
#define O_CLOEXEC _O_NOINHERIT
#endif

#ifndef LOCK_SH
#define LOCK_SH 1
#define LOCK_EX 2
#define LOCK_NB 4
#define LOCK_UN 8
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Locks or unlocks the whole file open on fd (LOCK_SH, LOCK_EX, optionally with
// LOCK_NB, or LOCK_UN). Windows releases the lock when the descriptor is closed.
// Returns 0, or -1 with errno set (EWOULDBLOCK when LOCK_NB finds it held, EBADF,
// EINVAL, EIO).
int flock(int fd, int operation);

// Reads up to count bytes at offset without moving the descriptor's position.
// Returns the number of bytes read (0 at the end of the file), or -1 with errno set.
ssize_t pread(int fd, void* buf, size_t count, int64_t offset);

#ifdef __cplusplus
}
#endif

#endif
#endif
