// The event queue, the health lists and the trap builders.
#ifndef HM_EVENTS_EVENTHANDLER_H
#define HM_EVENTS_EVENTHANDLER_H

#include <cstdint>
#include <deque>
#include <list>
#include <windows.h>
#include <snmp.h>

#include "events/eventData.h"

class eventHandler {
public:
    eventHandler();
    virtual ~eventHandler();

    uint32_t init();
    uint32_t addEvent(const eventData& event);
    uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                          SnmpVarBindList* varBinds, int32_t* trapToSend);

    uint32_t insertElement(const eventData& event);
    uint32_t insertElementByDeviceId(int32_t deviceId, int32_t severity);
    uint32_t removeElement(int32_t deviceId);
    uint32_t checkEventLists(eventData event);
    uint32_t needHealthEvent(int32_t severity, int32_t* newHealth);
    uint32_t sendHealthEvent(int32_t newHealth);

    uint32_t send2ObjEvent(eventData event, AsnObjectIdentifier* enterprise, SnmpVarBindList* varBinds);
    uint32_t send4ObjEvent(eventData event, AsnObjectIdentifier* enterprise, SnmpVarBindList* varBinds);

    // Read-only views for diagnostics and tests.
    const std::list<int32_t>& nonCriticalList() const { return mNonCriList; }
    const std::list<int32_t>& criticalList() const { return mCriticalList; }
    const std::list<int32_t>& nonRecoverableList() const { return mNonRecList; }
    int32_t healthStatus() const { return m_nHealthStatus; }
    size_t queuedEvents();

private:
    // The event-list mutex guards mEventQueue; the health-list mutex guards the
    // three lists and m_nHealthStatus. The two are never held together.
    void EventSemaphoreWait();
    void EventSemaphoreRelease();
    void HealthSemaphoreWait();
    void HealthSemaphoreRelease();
    // Appends the id to the list of the severity unless it is there already.
    uint32_t insertIntoList(int32_t deviceId, int32_t severity);

    eventHandler(const eventHandler&) = delete;
    eventHandler& operator=(const eventHandler&) = delete;

    HANDLE mEventMutex = nullptr;
    HANDLE mHealthMutex = nullptr;
    std::list<int32_t> mNonCriList;
    std::list<int32_t> mCriticalList;
    std::list<int32_t> mNonRecList;
    std::deque<eventData> mEventQueue;
    int32_t m_nHealthStatus = 2;
};

#endif
