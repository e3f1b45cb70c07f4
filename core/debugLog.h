// The agent's process-wide diagnostic trace.
#ifndef HM_CORE_DEBUGLOG_H
#define HM_CORE_DEBUGLOG_H

#include <cstdint>

// printf-style trace call; the format carries its own line end.
void debugLog(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
void openDebugLog(const char* path, uint32_t level);
void closeDebugLog();

#endif
