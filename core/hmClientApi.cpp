// The free functions through which the front end and the event code reach the one hmClient.
#include "core/hmClientApi.h"

#include <cstring>
#include <new>

#include "core/debugLog.h"
#include "core/hmClient.h"

namespace {

subagentBase* (*gClientFactory)() = nullptr;

} // namespace

void setClientFactory(subagentBase* (*factory)()) {
    gClientFactory = factory;
}

uint32_t initHMClient() {
    destroyHMClient();
    gSubagent = gClientFactory != nullptr ? gClientFactory() : new (std::nothrow) hmClient();
    if (gSubagent == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    return gSubagent->init();
}

void destroyHMClient() {
    delete gSubagent;
    gSubagent = nullptr;
}

void releaseTables() {
    if (gSubagent != nullptr) {
        gSubagent->releaseTables();
    }
}

uint32_t getIntInfo(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP
                                : gSubagent->getIntInfo(entity, attribute, index, value);
}

uint32_t getIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP
                                : gSubagent->getIntData(entity, attribute, index, value);
}

uint32_t getStrInfo(uint32_t entity, uint32_t attribute, uint32_t index, char** value) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP
                                : gSubagent->getStrInfo(entity, attribute, index, value);
}

uint32_t getStrData(uint32_t entity, uint32_t attribute, uint32_t index, char** value) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP
                                : gSubagent->getStrData(entity, attribute, index, value);
}

uint32_t setIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t value) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP
                                : gSubagent->setIntData(entity, attribute, index, value);
}

uint32_t getTableSize(uint32_t entity) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP : gSubagent->getTableSize(entity);
}

uint32_t getTableStatus(uint32_t entity) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP : gSubagent->getTableStatus(entity);
}

uint32_t findElementById(uint32_t entity, uint32_t id) {
    return gSubagent == nullptr ? CLIENT_ERROR_NOGROUP : gSubagent->findElementById(entity, id);
}

const char* getElementName(uint32_t entity, uint32_t index) {
    return gSubagent == nullptr ? nullptr : gSubagent->getElementName(entity, index);
}

void seedHealth(uint32_t entity) {
    if (gSubagent != nullptr) {
        gSubagent->seedHealth(entity);
    }
}

uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap, SnmpVarBindList* varBinds,
                      int32_t* trapToSend) {
    debugLog("\n\n 1st processEvent() called\n");
    if (gSubagent == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return gSubagent->processEvent(enterprise, specificTrap, varBinds, trapToSend);
}

void addEvent(eventData event) {
    if (gSubagent != nullptr) {
        gSubagent->addEvent(event);
    }
}

void setHealthstatus(int32_t status) {
    debugLog("Calling gSubagent->setHealthstatus\n");
    if (gSubagent != nullptr) {
        gSubagent->setHealthstatus(status);
    }
}

int32_t getHealthstatus() {
    debugLog("Calling gSubagent->getHealthstatus\n");
    return gSubagent == nullptr ? static_cast<int32_t>(CLIENT_ERROR_NOGROUP) : gSubagent->getHealthstatus();
}

bool isSetsEnabled() {
    return gSubagent != nullptr && gSubagent->isSetsEnabled();
}

bool isTrapsEnabled() {
    return gSubagent != nullptr && gSubagent->isTrapsEnabled();
}

int32_t mapHealthNameToStatus(const char* name) {
    static const struct {
        const char* name;
        int32_t status;
    } healthNames[] = {
        {"Monitor", 1}, {"Information", 1}, {"OK", 3}, {"Degraded", 4}, {"Error", 5}, {"Fatal", 6},
    };
    if (name != nullptr) {
        for (const auto& entry : healthNames) {
            if (strcmp(name, entry.name) == 0) {
                return entry.status;
            }
        }
    }
    return 2;
}

const char* mapStatusToName(int32_t status) {
    static const char* const statusNames[] = {"other",       "unknown",  "ok",
                                              "nonCritical", "critical", "nonRecoverable"};
    if (status < 1 || status > 6) {
        return nullptr;
    }
    return statusNames[status - 1];
}
