#include "agent/pollForEvent.h"

// Placeholder: keeps the poller's 3000 ms rhythm but does not read the BMC event log yet.
DWORD WINAPI PollForEvent(LPVOID /*lpParameter*/) {
    for (;;)
        Sleep(3000);
}
