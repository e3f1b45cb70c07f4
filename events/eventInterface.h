// The door through which a decoded hardware event becomes a queued trap record.
#ifndef HM_EVENTS_EVENTINTERFACE_H
#define HM_EVENTS_EVENTINTERFACE_H

#include <cstddef>
#include <cstdint>

#include "platform/hmVocabulary.h"
#include "platform/CEventWrapper.h"

// Receiver of decoded hardware events.
class HM_EXPORT CEventInterface {
public:
    CEventInterface();
    CEventInterface(const CEventInterface&) = default;
    virtual ~CEventInterface();
    CEventInterface& operator=(const CEventInterface& other);

    // Returns non-zero when the event was accepted.
    virtual int HandleEvent(CEventWrapper& event, int type) = 0;
};

// The agent's event sink: hands each event to the clone of its type, which queues
// a trap record and asks the SNMP service to collect it.
class HM_EXPORT SNMP_EventInterface : public CEventInterface {
public:
    SNMP_EventInterface();
    ~SNMP_EventInterface() override;

    // 0 when refused (start-up not complete, traps disabled, or a type without a
    // clone); otherwise the clone's result, 1.
    int HandleEvent(CEventWrapper& event, int type) override;
};

// One event clone: the type code it serves (also the record's event group), the
// entity codes whose tables it searches for the device, and its trace texts.
struct EventClone {
    int type;
    const char* name;
    uint32_t entities[2];  // searched in order, 0 ends the list
    const char* calledLog; // entry trace, no arguments
    const char* descriptionLog;
    const char* groupLog;
};

// The clone for a type code, or null.
const EventClone* findEventClone(int type);

// Fills a record from the wrapper, queues it through the client facade and asserts
// a trap; always returns 1.
int runEventClone(const EventClone& clone, CEventWrapper& event);

// Longest event description kept from a wrapper, in characters.
constexpr size_t kEventDescriptionChars = 128;

#endif
