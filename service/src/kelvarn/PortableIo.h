// The file calls of the query service that POSIX and Windows spell differently: the
// open flag that keeps a descriptor from child processes, an exclusive whole-file lock
// and a read at an offset.
#ifndef KELVARN_PORTABLEIO_H
#define KELVARN_PORTABLEIO_H

#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/types.h>

namespace kelvarn {

// Open flag: the descriptor is not inherited by child processes.
#ifdef _WIN32
constexpr int kOpenNoInherit = _O_NOINHERIT;
#else
constexpr int kOpenNoInherit = O_CLOEXEC;
#endif

// Waits for an exclusive lock on the whole file open on `fd`; closing `fd` releases it.
// False with errno set when the lock cannot be taken.
bool lockWholeFile(int fd);

// Reads up to `count` bytes at `offset` without moving the descriptor's position: the
// number of bytes read, 0 at the end of the file, or -1 with errno set.
ssize_t readAt(int fd, void* buffer, size_t count, uint64_t offset);

} // namespace kelvarn

#endif
