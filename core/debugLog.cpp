// The process-wide diagnostic trace: one line per call, "hh:mm:ss: (thread) message",
// appended to the log file or, when that cannot be opened, to standard output.
#include "core/debugLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

#include <windows.h>

#ifndef HM_DEBUG_LOG_ENABLED
#define HM_DEBUG_LOG_ENABLED 1
#endif

namespace {

// Build-time master switch: when 0 the three operations do nothing.
const uint32_t gDebugCompiledIn = HM_DEBUG_LOG_ENABLED;
// 1 between openDebugLog and closeDebugLog. Written under the lock; read without
// it first, so that a closed trace costs a trace call one load and no lock.
std::atomic<uint32_t> gDebugOpen{0};
FILE* gDebugStream = nullptr;
// Level passed at open; kept for the record, no message is filtered by it.
uint32_t gDebugLevel = 0;
// Keeps the pieces of one trace line together and guards the state above.
std::mutex gDebugMutex;

void closeLocked() {
    if (gDebugCompiledIn == 0 || gDebugOpen == 0) {
        return;
    }
    fprintf(gDebugStream, "*********** End Log ****************\n");
    fflush(gDebugStream);
    gDebugOpen = 0;
    if (gDebugStream != stdout) {
        fclose(gDebugStream);
    }
    gDebugStream = nullptr;
}

// The ctime text of now ("Www Mmm dd hh:mm:ss yyyy\n").
void currentTimeText(char (&text)[32]) {
    time_t now = time(nullptr);
#if defined(_WIN32)
    if (ctime_s(text, sizeof text, &now) != 0) {
        text[0] = '\0';
    }
#else
    if (ctime_r(&now, text) == nullptr) {
        text[0] = '\0';
    }
#endif
}

} // namespace

void debugLog(const char* format, ...) {
    if (gDebugOpen.load(std::memory_order_acquire) == 0 || gDebugCompiledIn == 0) {
        return;
    }
    std::lock_guard<std::mutex> lock(gDebugMutex);
    if (gDebugOpen == 0) { // closed meanwhile
        return;
    }
    char timeText[32] = {};
    currentTimeText(timeText);
    // Characters 11 to 18 of the ctime text: hh:mm:ss.
    fprintf(gDebugStream, "%8.8s: ", timeText[0] != '\0' ? timeText + 11 : "");
    fprintf(gDebugStream, "(%d) ", static_cast<int>(GetCurrentThreadId()));
    va_list args;
    va_start(args, format);
    vfprintf(gDebugStream, format, args);
    va_end(args);
    fflush(gDebugStream);
}

void openDebugLog(const char* path, uint32_t level) {
    if (gDebugCompiledIn == 0) {
        return;
    }
    std::lock_guard<std::mutex> lock(gDebugMutex);
    closeLocked();
    gDebugOpen = 1;
    gDebugLevel = level;
    if (path == nullptr) {
        gDebugStream = stdout;
        return;
    }
    gDebugStream = fopen(path, "a+");
    if (gDebugStream == nullptr) {
        gDebugStream = stdout;
        fprintf(gDebugStream, "Error opening File \"%s\"\n", path);
        fprintf(gDebugStream, "All messages will go to stdout\n");
    }
    fprintf(gDebugStream, "*********** New Log ****************\n");
    fflush(gDebugStream);
}

void closeDebugLog() {
    std::lock_guard<std::mutex> lock(gDebugMutex);
    closeLocked();
}
