// The event poller thread: reads the newest BMC event-log entries every 3000 ms and
// routes them to the event decoders.
#ifndef HM_AGENT_POLLFOREVENT_H
#define HM_AGENT_POLLFOREVENT_H

#include <windows.h>

DWORD WINAPI PollForEvent(LPVOID lpParameter);

#endif
