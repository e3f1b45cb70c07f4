// Module state of the entry points shared with the request code, and read-only views
// of it for diagnostics and tests.
#ifndef HM_AGENT_AGENTSTATE_H
#define HM_AGENT_AGENTSTATE_H

#include <windows.h>

// Counts one query; every tenth one signals the trap event.
void agentCountQuery();

// The trap event handed to the service, null outside Init..Close.
HANDLE agentTrapEvent();
// True while a trap asserted before the end of start-up waits to be signalled.
bool agentTrapsWaiting();
// True once a tenth query has asked for a health poll.
bool agentHealthPollRequested();
// Index of the next region SnmpExtensionInitEx hands out.
int agentRegionCounter();

// Exit code of the process when the event poller thread cannot be started.
constexpr UINT AGENT_EXIT_NO_POLLER = 8; // ERROR_NOT_ENOUGH_MEMORY

#endif
