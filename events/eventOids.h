// Event OIDs of the agent's traps, the objects the traps name, and the selection of
// the event OID that describes an event record.
#ifndef HM_EVENTS_EVENTOIDS_H
#define HM_EVENTS_EVENTOIDS_H

#include <cstddef>
#include <windows.h>
#include <snmp.h>

#include "events/eventData.h"

// How one selection row tests an event record.
enum class EventTest {
    Severity,         // nSeverity equals the row's severity
    Contains,         // stEventDesc contains the row's text (case-sensitive)
    Equals,           // stEventDesc is exactly the row's text
    SeverityContains, // nSeverity equals the row's severity and stEventDesc contains the text
};

// One row of the event-OID selection: rows of a group are tried in table order and
// the first that matches gives the event OID <enterprise>.1000.<family>.<specific>.
struct EventOidRule {
    int32_t group;
    EventTest test;
    int32_t severity; // for the severity tests
    const char* text; // for the text tests
    UINT family;      // arc below .1000
    UINT specific;    // last arc: the specific-trap number
};

// The selection table, in matching order.
const EventOidRule* eventOidRules(size_t* count);

// The event OID of the first matching row of the record's group; null when no row
// matches or the group has no traps. The OID is a process-wide constant.
AsnObjectIdentifier* selectEventOID(const eventData& event);

// Per-group selection; each returns a process-wide constant or null.
AsnObjectIdentifier* getHealthEventOID(const eventData& event);
AsnObjectIdentifier* getBiosEventOID(const eventData& event);
AsnObjectIdentifier* getChassisEventOID(const eventData& event);
AsnObjectIdentifier* getCoolingSensorEventOID(const eventData& event);
AsnObjectIdentifier* getCoolingSpareEventOID(const eventData& event);
AsnObjectIdentifier* getMemoryEventOID(const eventData& event);
AsnObjectIdentifier* getPhpSlotEventOID(const eventData& event);
AsnObjectIdentifier* getPowerSupplyEventOID(const eventData& event);
AsnObjectIdentifier* getPowerSpareEventOID(const eventData& event);
AsnObjectIdentifier* getProcessorEventOID(const eventData& event);
AsnObjectIdentifier* getTemperatureEventOID(const eventData& event);
AsnObjectIdentifier* getVoltageEventOID(const eventData& event);
AsnObjectIdentifier* getPowerPerformanceEventOID(const eventData& event);
AsnObjectIdentifier* getCoolingPerformanceEventOID(const eventData& event);
AsnObjectIdentifier* getDriveSlotEventOID(const eventData& event);

// Objects a trap names in its variable bindings.
enum class TrapObject {
    EventDescription,       // .1000.10.1
    EventSeverity,          // .1000.10.2
    EventDeviceDescription, // .1000.10.3
    EventDeviceId,          // .1000.10.4
    SystemHealth,           // .100.1.0
};
AsnObjectIdentifier* trapObjectOID(TrapObject object);

// The MIB subtree whose table rows a device trap of this group names (column
// bindings base.1.<column>.<instance>); -1 for groups that name fixed objects or
// have no device traps.
int tableSubtreeForGroup(int32_t group);

#endif
