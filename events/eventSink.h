// Where the event code hands a finished event: given to it at start-up by the front end,
// so that the event code calls nothing above it to reach the trap path.
#ifndef HM_EVENTS_EVENTSINK_H
#define HM_EVENTS_EVENTSINK_H

#include "events/eventData.h"

struct EventSink {
    void (*queue)(eventData event); // queues the record for the trap path
    int (*wake)();                  // signals the trap event
    unsigned char (*started)();     // nonzero once start-up is done
};

// Installs the sink; the front end does so at the start of SnmpExtensionInit. Until then
// the event interface answers as it does before start-up is done. Safe against a poller
// that is still running from an earlier start.
void setEventSink(const EventSink& sink);

#endif
