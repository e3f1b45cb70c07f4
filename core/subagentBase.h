// The virtual interface of the client facade and the process-wide pointer to its one object.
#ifndef HM_CORE_SUBAGENTBASE_H
#define HM_CORE_SUBAGENTBASE_H

#include <cstdint>
#include <snmp.h>

#include "events/eventData.h"

class BaseAccessor;
class eventHandler;

// Entity-addressed operations route to the group of that entity; when there is none
// they answer CLIENT_ERROR_NOGROUP (8), also in the place of a count, position or
// status, and getElementName answers null. Indexes are zero-based row indexes.
// The order of the virtual operations is fixed.
class subagentBase {
public:
    subagentBase() = default;
    subagentBase(const subagentBase&) = delete;
    subagentBase& operator=(const subagentBase&) = delete;

    virtual ~subagentBase();
    virtual uint32_t init() = 0;
    virtual void releaseTables() = 0;
    virtual uint32_t getIntInfo(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) = 0;
    virtual uint32_t getIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) = 0;
    // Text results are 128-byte malloc'ed buffers owned by the caller.
    virtual uint32_t getStrInfo(uint32_t entity, uint32_t attribute, uint32_t index, char** value) = 0;
    virtual uint32_t getStrData(uint32_t entity, uint32_t attribute, uint32_t index, char** value) = 0;
    virtual uint32_t setIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t value) = 0;
    virtual uint32_t getTableSize(uint32_t entity) = 0;
    // One-based position of the element with this id, 0 when absent.
    virtual uint32_t findElementById(uint32_t entity, uint32_t id) = 0;
    // The group's worst element status.
    virtual uint32_t getTableStatus(uint32_t entity) = 0;
    virtual uint32_t seedHealth(uint32_t entity) = 0;
    virtual const char* getElementName(uint32_t entity, uint32_t index) = 0;
    virtual uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                                  SnmpVarBindList* varBinds, int32_t* trapToSend) = 0;
    virtual void addEvent(eventData event) = 0;
    virtual void setHealthstatus(int32_t status) = 0;
    virtual int32_t getHealthstatus() = 0;
    virtual bool isDebugEnabled() = 0;
    virtual bool isTrapsEnabled() = 0;
    virtual bool isSetsEnabled() = 0;
    // 1 when both registry paths were read, 0 otherwise.
    virtual uint32_t readRegistryParams() = 0;
    virtual BaseAccessor* getTable(uint32_t entity) = 0;
    virtual eventHandler* getEventHandler() = 0;
};

// The one client object, created by initHMClient.
extern subagentBase* gSubagent;

#endif
