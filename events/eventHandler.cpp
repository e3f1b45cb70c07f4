// The event queue, the per-severity health lists and the trap builders.
#include "events/eventHandler.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "agent/agentApi.h"
#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "events/eventOids.h"

namespace {

constexpr uint32_t kSuccess = 0;
constexpr uint32_t kNoMemory = 2;
constexpr uint32_t kNoTrap = 9;

// Status names for traces and health texts; codes outside the vocabulary get a
// fixed text so that a format never sees a null string.
const char* statusName(int32_t status) {
    const char* name = mapStatusToName(status);
    return name != nullptr ? name : "unknown";
}

template <size_t N> void terminate(char (&text)[N]) {
    text[N - 1] = '\0';
}

// A copy whose text fields are certainly terminated inside their arrays.
eventData terminatedCopy(const eventData& event) {
    eventData copy = event;
    terminate(copy.stDeviceDesc);
    terminate(copy.stEventDesc);
    terminate(copy.stTimeStamp);
    terminate(copy.stSensorType);
    return copy;
}

// One line per field, between the given header and footer lines.
void printRecord(const eventData& record, const char* header, const char* footer) {
    const eventData event = terminatedCopy(record);
    debugLog("%s", header);
    debugLog("nDeviceID is %d \n", event.nDeviceID);
    debugLog("nEventGroup is %d \n", event.nEventGroup);
    debugLog("nEventType is %d \n", event.nEventType);
    debugLog("nInstIndex is %d \n", event.nInstIndex);
    debugLog("stDeviceDesc is %s \n", event.stDeviceDesc);
    debugLog("stEventDesc is %s \n", event.stEventDesc);
    debugLog("nSeverity is %d \n", event.nSeverity);
    debugLog("stSensorType is %s \n", event.stSensorType);
    debugLog("stTimeStamp is %s \n", event.stTimeStamp);
    debugLog("%s", footer);
}

bool isWantedGroup(int32_t group) {
    switch (group) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 8:
    case 9:
    case 10:
    case 11:
    case 12:
    case 14:
    case 15:
    case 19:
        return true;
    default:
        return false;
    }
}

// Groups whose device events move the overall health.
bool isCountedGroup(int32_t group) {
    switch (group) {
    case 4:
    case 8:
    case 10:
    case 11:
    case 12:
    case 14:
    case 15:
        return true;
    default:
        return false;
    }
}

// A binding list of `count` zeroed bindings from the SNMP allocator, so that the
// service can release it with SnmpUtilVarBindListFree.
bool allocateBindings(SnmpVarBindList* list, UINT count) {
    list->list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(static_cast<UINT>(count * sizeof(SnmpVarBind))));
    if (list->list == nullptr) {
        list->len = 0;
        return false;
    }
    std::memset(list->list, 0, count * sizeof(SnmpVarBind));
    list->len = count;
    return true;
}

void freeBindings(SnmpVarBindList* list) {
    if (list->list != nullptr) {
        SnmpUtilVarBindListFree(list);
    }
    list->list = nullptr;
    list->len = 0;
}

bool setName(SnmpVarBind& bind, AsnObjectIdentifier* oid) {
    return SnmpUtilOidCpy(&bind.name, oid) == SNMPAPI_NOERROR;
}

void setInteger(SnmpVarBind& bind, int32_t value) {
    bind.value.asnType = ASN_INTEGER;
    bind.value.asnValue.number = value;
}

// An OCTET STRING holding the text up to its NUL (or the end of the field),
// without the NUL.
bool setString(SnmpVarBind& bind, const char* text, size_t capacity) {
    const size_t length = strnlen(text, capacity);
    bind.value.asnType = ASN_OCTETSTRING;
    bind.value.asnValue.string.length = static_cast<UINT>(length);
    bind.value.asnValue.string.stream = nullptr;
    bind.value.asnValue.string.dynamic = FALSE;
    if (length == 0) {
        return true;
    }
    BYTE* stream = static_cast<BYTE*>(SnmpUtilMemAlloc(static_cast<UINT>(length)));
    if (stream == nullptr) {
        bind.value.asnValue.string.length = 0;
        return false;
    }
    std::memcpy(stream, text, length);
    bind.value.asnValue.string.stream = stream;
    bind.value.asnValue.string.dynamic = TRUE;
    return true;
}

// Appends entry arc 1, a column and the instance to a table base OID; false when
// the allocator fails.
bool appendColumnArcs(AsnObjectIdentifier* name, UINT column, UINT instance) {
    UINT ids[3] = {1, column, instance};
    AsnObjectIdentifier tail = {3, ids};
    return SnmpUtilOidAppend(name, &tail) == SNMPAPI_NOERROR;
}

const char* oidText(AsnObjectIdentifier* oid) {
    const char* text = SnmpUtilOidToA(oid);
    return text != nullptr ? text : "";
}

} // namespace

eventHandler::eventHandler() = default;

eventHandler::~eventHandler() {
    if (mEventMutex != nullptr) {
        CloseHandle(mEventMutex);
    }
    if (mHealthMutex != nullptr) {
        CloseHandle(mHealthMutex);
    }
}

void eventHandler::EventSemaphoreWait() {
    WaitForSingleObject(mEventMutex, INFINITE);
}

void eventHandler::EventSemaphoreRelease() {
    ReleaseMutex(mEventMutex);
}

void eventHandler::HealthSemaphoreWait() {
    WaitForSingleObject(mHealthMutex, INFINITE);
}

void eventHandler::HealthSemaphoreRelease() {
    ReleaseMutex(mHealthMutex);
}

uint32_t eventHandler::init() {
    m_nHealthStatus = getHealthstatus();
    debugLog("eventHandler::init local copy of m_nHealthStatus is %d\n", m_nHealthStatus);
    if (mEventMutex == nullptr) {
        mEventMutex = CreateMutexA(nullptr, FALSE, nullptr);
        if (mEventMutex == nullptr) {
            debugLog("Error creating mutex for event list\n");
        }
    }
    if (mHealthMutex == nullptr) {
        mHealthMutex = CreateMutexA(nullptr, FALSE, nullptr);
        if (mHealthMutex == nullptr) {
            debugLog("Error creating mutex for health list\n");
        }
    }
    return kSuccess;
}

uint32_t eventHandler::addEvent(const eventData& event) {
    const eventData record = terminatedCopy(event);
    debugLog("addEvent(), nEventGroup=%d\n", record.nEventGroup);
    printRecord(record, "Printing eventData (evData)\n", "END Printing eventData (evData)\n");

    debugLog("eventAdd: before call EventSemaphoreWait()\n");
    EventSemaphoreWait();
    debugLog("addEvent(): after call EventSemaphoreWait()\n");
    // A queue that cannot grow loses the record; the lock is released all the same.
    uint32_t status = kSuccess;
    if (mEventQueue.size() >= mEventQueue.max_size()) {
        status = kNoMemory;
        debugLog("addEvent(): event dropped: deque<T> too long\n");
    } else {
        try {
            mEventQueue.push_back(record);
        } catch (const std::bad_alloc&) {
            status = kNoMemory;
            debugLog("addEvent(): event dropped: out of memory\n");
        }
    }
    debugLog("eventAdd: before call EventSemaphoreRelease()\n");
    EventSemaphoreRelease();
    debugLog("eventAdd: after call EventSemaphoreRelease()\n");
    return status;
}

size_t eventHandler::queuedEvents() {
    EventSemaphoreWait();
    const size_t count = mEventQueue.size();
    EventSemaphoreRelease();
    return count;
}

uint32_t eventHandler::processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                                    SnmpVarBindList* varBinds, int32_t* trapToSend) {
    (void)specificTrap; // the specific trap travels as the last arc of the enterprise OID
    debugLog("processEvent() called starting while loop\n");
    *trapToSend = 0;

    for (;;) {
        eventData event;
        bool taken = false;
        EventSemaphoreWait();
        if (!mEventQueue.empty()) {
            event = mEventQueue.front();
            mEventQueue.pop_front();
            taken = true;
        }
        EventSemaphoreRelease();

        if (!taken) {
            debugLog("mEventQueue is empty\n");
            return kSuccess;
        }

        debugLog("Check if the event is one we care about\n");
        debugLog("Event is %d \n", event.nEventGroup);
        if (!isWantedGroup(event.nEventGroup)) {
            debugLog("Event is not one we care about\n");
            continue;
        }

        uint32_t status;
        if (event.nEventGroup <= 3) {
            status = send2ObjEvent(event, enterprise, varBinds);
        } else {
            status = send4ObjEvent(event, enterprise, varBinds);
        }

        if (status != kSuccess) {
            debugLog("TrapToSend = FALSE");
            checkEventLists(event);
            return status;
        }
        debugLog("TrapToSend = TRUE");
        *trapToSend = 1;
        checkEventLists(event);
        return kSuccess;
    }
}

uint32_t eventHandler::insertIntoList(int32_t deviceId, int32_t severity) {
    HealthSemaphoreWait();
    std::list<int32_t>* list = nullptr;
    switch (severity) {
    case 4:
        list = &mNonCriList;
        break;
    case 5:
        list = &mCriticalList;
        break;
    case 6:
        list = &mNonRecList;
        break;
    default:
        HealthSemaphoreRelease();
        return kNoTrap;
    }
    uint32_t status = kSuccess;
    if (std::find(list->begin(), list->end(), deviceId) == list->end()) {
        if (list->size() >= list->max_size()) {
            status = kNoTrap;
            debugLog("insertElement(): device %d not listed: list<T> too long\n", deviceId);
        } else {
            try {
                list->push_back(deviceId);
            } catch (const std::bad_alloc&) {
                status = kNoMemory;
                debugLog("insertElement(): device %d not listed: out of memory\n", deviceId);
            }
        }
    }
    HealthSemaphoreRelease();
    return status;
}

uint32_t eventHandler::insertElement(const eventData& event) {
    debugLog("insertElement() called \n");
    return insertIntoList(event.nDeviceID, event.nSeverity);
}

uint32_t eventHandler::insertElementByDeviceId(int32_t deviceId, int32_t severity) {
    debugLog("insertElementByDeviceId() called \n");
    return insertIntoList(deviceId, severity);
}

uint32_t eventHandler::removeElement(int32_t deviceId) {
    HealthSemaphoreWait();
    for (std::list<int32_t>* list : {&mNonCriList, &mCriticalList, &mNonRecList}) {
        auto found = std::find(list->begin(), list->end(), deviceId);
        if (found != list->end()) {
            list->erase(found);
            break;
        }
    }
    HealthSemaphoreRelease();
    return kSuccess;
}

uint32_t eventHandler::checkEventLists(eventData event) {
    terminate(event.stEventDesc);
    debugLog("checkEventLists() called \n");
    debugLog("event description:%s:\n", event.stEventDesc);
    debugLog("event severity:%d %s\n", event.nSeverity, statusName(event.nSeverity));

    if (!isCountedGroup(event.nEventGroup)) {
        return kSuccess;
    }

    if (event.nSeverity == 3) {
        removeElement(event.nDeviceID);
    } else if (event.nSeverity > 3) {
        removeElement(event.nDeviceID);
        insertElement(event); // a severity outside 4..6 is refused here, on purpose
    }

    int32_t newHealth = 0;
    if (needHealthEvent(event.nSeverity, &newHealth) != 0) {
        sendHealthEvent(newHealth);
        HealthSemaphoreWait();
        debugLog("Setting health from %d to %d\n", m_nHealthStatus, newHealth);
        setHealthstatus(newHealth);
        debugLog("1. Health is now %d\n", newHealth);
        m_nHealthStatus = newHealth;
        debugLog("2. Health is now %d\n", m_nHealthStatus);
        HealthSemaphoreRelease();
    }
    return kSuccess;
}

uint32_t eventHandler::needHealthEvent(int32_t severity, int32_t* newHealth) {
    *newHealth = severity;
    HealthSemaphoreWait();
    const int32_t health = m_nHealthStatus;
    debugLog("needHealthEvent: m_nHealthStatus=%d :%s:\n", health, statusName(health));
    debugLog("needHealthEvent2: m_nHealthStatus=%d :%s:\n", health, statusName(health));

    if (severity > health) {
        HealthSemaphoreRelease();
        return 1;
    }

    debugLog("mNonCriList.empty()=%d\n", mNonCriList.empty() ? 1 : 0);
    debugLog("mCriticalList.empty()=%d\n", mCriticalList.empty() ? 1 : 0);
    debugLog("mNonRecList.empty()=%d\n", mNonRecList.empty() ? 1 : 0);

    // The first applicable rule decides. The critical rule only ever raises the
    // health: with the health at nonRecoverable it keeps it there.
    uint32_t change = 0;
    if (!mNonRecList.empty()) {
        if (health < 6) {
            *newHealth = 6;
            change = 1;
        }
    } else if (!mCriticalList.empty()) {
        if (health < 5) {
            *newHealth = 5;
            change = 1;
        }
    } else if (!mNonCriList.empty()) {
        if (health != 4) {
            *newHealth = 4;
            change = 1;
        }
    } else if (health > 3) {
        // An "other" or "unknown" health is never raised to "ok" here.
        *newHealth = 3;
        change = 1;
    }
    HealthSemaphoreRelease();
    return change;
}

uint32_t eventHandler::sendHealthEvent(int32_t newHealth) {
    HealthSemaphoreWait();
    const int32_t oldHealth = m_nHealthStatus;
    HealthSemaphoreRelease();
    eventData event;
    std::memset(&event, 0, sizeof(event));
    std::snprintf(event.stEventDesc, sizeof(event.stEventDesc), "System health was changed from %s to %s.",
                  statusName(oldHealth), statusName(newHealth));
    debugLog("sendHealthEvent:stEventDesc=%s, strlen=%d\n", event.stEventDesc,
             static_cast<int>(std::strlen(event.stEventDesc)));
    event.nSeverity = newHealth;
    event.nEventGroup = 1;
    addEvent(event);
    return kSuccess;
}

uint32_t eventHandler::send2ObjEvent(eventData event, AsnObjectIdentifier* enterprise,
                                     SnmpVarBindList* varBinds) {
    debugLog("send2ObjEvent() called\n");
    printRecord(event, "Printing eventData (aEvent)\n", "END Printing eventData (aEvent)\n");
    terminate(event.stEventDesc);

    AsnObjectIdentifier* eventOid =
        static_cast<AsnObjectIdentifier*>(SnmpUtilMemAlloc(static_cast<UINT>(sizeof(AsnObjectIdentifier))));
    if (eventOid == nullptr) {
        debugLog("ERROR getting memory for pEventOID structures\n");
        return kNoMemory;
    }
    SnmpVarBindList list = {nullptr, 0};
    if (!allocateBindings(&list, 2)) {
        debugLog("ERROR getting memory for SnmpVarBind structures\n");
        SnmpUtilMemFree(eventOid);
        return kNoMemory;
    }

    AsnObjectIdentifier* selected = nullptr;
    AsnObjectIdentifier* secondName = nullptr;
    switch (event.nEventGroup) {
    case 1:
        selected = getHealthEventOID(event);
        secondName = trapObjectOID(TrapObject::SystemHealth);
        break;
    case 2:
        selected = getBiosEventOID(event);
        secondName = trapObjectOID(TrapObject::EventSeverity);
        break;
    case 3:
        selected = getChassisEventOID(event);
        secondName = trapObjectOID(TrapObject::EventSeverity);
        break;
    default:
        freeBindings(&list);
        SnmpUtilMemFree(eventOid);
        return kNoTrap;
    }
    if (selected == nullptr) {
        debugLog("ERROR eventOID is NULL!! in eventHandler::send2ObjEvent\n");
        freeBindings(&list);
        SnmpUtilMemFree(eventOid);
        return kNoTrap;
    }

    uint32_t status = kNoMemory;
    std::memset(eventOid, 0, sizeof(*eventOid));
    if (SnmpUtilOidCpy(eventOid, selected) == SNMPAPI_NOERROR &&
        setName(list.list[0], trapObjectOID(TrapObject::EventDescription)) &&
        setName(list.list[1], secondName) &&
        setString(list.list[0], event.stEventDesc, sizeof(event.stEventDesc))) {
        setInteger(list.list[1], event.nSeverity);
        status = kSuccess;
    }
    if (status != kSuccess) {
        debugLog("ERROR getting memory for SnmpVarBind structures\n");
        SnmpUtilOidFree(eventOid);
        SnmpUtilMemFree(eventOid);
        freeBindings(&list);
        return status;
    }

    *enterprise = *eventOid; // the output takes over the copied arcs
    SnmpUtilMemFree(eventOid);
    debugLog("eventHandler::send2ObjEvent  pEnterpriseOid:%s:\n", oidText(enterprise));
    *varBinds = list;
    return kSuccess;
}

uint32_t eventHandler::send4ObjEvent(eventData event, AsnObjectIdentifier* enterprise,
                                     SnmpVarBindList* varBinds) {
    debugLog("send4ObjEvent() called\n");
    printRecord(event, "Printing eventData (aEvent)\n", "END Printing eventData (aEvent)\n");
    terminate(event.stEventDesc);
    terminate(event.stDeviceDesc);

    SnmpVarBindList list = {nullptr, 0};
    if (!allocateBindings(&list, 4)) {
        debugLog("ERROR getting memory for SnmpVarBind structures\n");
        return kNoMemory;
    }

    AsnObjectIdentifier* selected = nullptr;
    switch (event.nEventGroup) {
    case 4:
    case 5:
    case 8:
    case 9:
    case 10:
    case 11:
    case 12:
    case 14:
    case 15:
    case 17:
    case 18:
    case 19:
        selected = selectEventOID(event);
        break;
    default:
        freeBindings(&list);
        return kNoTrap;
    }

    const bool fixedNames = event.nEventGroup == 9;
    if (fixedNames) {
        if (!setName(list.list[1], trapObjectOID(TrapObject::EventSeverity)) ||
            !setName(list.list[2], trapObjectOID(TrapObject::EventDeviceDescription)) ||
            !setName(list.list[3], trapObjectOID(TrapObject::EventDeviceId))) {
            debugLog("ERROR getting memory for SnmpVarBind structures\n");
            freeBindings(&list);
            return kNoMemory;
        }
    } else {
        const int subtree = tableSubtreeForGroup(event.nEventGroup);
        for (UINT i = 1; i < 4; ++i) {
            GetOidSubTreeBaseOid(subtree, &list.list[i].name);
        }
        if (list.list[1].name.idLength == 0 || list.list[2].name.idLength == 0 ||
            list.list[3].name.idLength == 0) {
            debugLog("send4ObjEvent(): no base OID for subtree %d\n", subtree);
            freeBindings(&list);
            return kNoTrap;
        }
    }

    if (selected == nullptr) {
        debugLog("After the Switch ERROR eventOID is NULL!! in eventHandler::send4ObjEvent\n");
        freeBindings(&list);
        return kNoTrap;
    }

    AsnObjectIdentifier eventOid = {0, nullptr};
    if (SnmpUtilOidCpy(&eventOid, selected) != SNMPAPI_NOERROR) {
        debugLog("ERROR getting memory for SnmpVarBind structures\n");
        freeBindings(&list);
        return kNoMemory;
    }
    debugLog("eventHandler::send4ObjEvent  pEnterpriseOid:%s:\n", oidText(&eventOid));

    const UINT instance = static_cast<UINT>(event.nInstIndex);
    bool ok = true;
    if (!fixedNames) {
        ok = appendColumnArcs(&list.list[1].name, 5, instance) &&
             appendColumnArcs(&list.list[2].name, 3, instance) &&
             appendColumnArcs(&list.list[3].name, 2, instance);
    }
    ok = ok && setName(list.list[0], trapObjectOID(TrapObject::EventDescription));
    ok = ok && setString(list.list[0], event.stEventDesc, sizeof(event.stEventDesc));
    if (ok) {
        debugLog("in send4ObjEvent list[0].name:%s\n", oidText(&list.list[0].name));
        setInteger(list.list[1], event.nSeverity);
        debugLog("in send4ObjEvent list[1].name:%s\n", oidText(&list.list[1].name));
        ok = setString(list.list[2], event.stDeviceDesc, sizeof(event.stDeviceDesc));
    }
    if (ok) {
        debugLog("in send4ObjEvent list[2].name:%s\n", oidText(&list.list[2].name));
        setInteger(list.list[3], event.nDeviceID);
        debugLog("in send4ObjEvent list[3].name:%s\n", oidText(&list.list[3].name));
    }
    if (!ok) {
        debugLog("ERROR getting memory for SnmpVarBind structures\n");
        SnmpUtilOidFree(&eventOid);
        freeBindings(&list);
        return kNoMemory;
    }

    *enterprise = eventOid;
    *varBinds = list;
    return kSuccess;
}
