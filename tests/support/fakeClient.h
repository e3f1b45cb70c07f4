// A client facade for the event tests: health, traps-enabled flag and table rows
// set by the test; events forwarded to the test's event handler.
#ifndef HM_TESTS_SUPPORT_FAKECLIENT_H
#define HM_TESTS_SUPPORT_FAKECLIENT_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/hmClientApi.h"
#include "core/subagentBase.h"
#include "events/eventHandler.h"

class FakeClient : public subagentBase {
public:
    int32_t health = 3;
    std::vector<int32_t> healthStores; // every value given to setHealthstatus
    bool trapsEnabled = true;
    eventHandler* handler = nullptr; // receives addEvent and processEvent
    std::vector<eventData> added;    // every record given to addEvent
    // (entity, id) -> one-based position; (entity, zero-based row) -> description
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> positions;
    std::map<std::pair<uint32_t, uint32_t>, std::string> names;

    uint32_t init() override { return 0; }
    void releaseTables() override {}
    uint32_t getIntInfo(uint32_t, uint32_t, uint32_t, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getIntData(uint32_t, uint32_t, uint32_t, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrInfo(uint32_t, uint32_t, uint32_t, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrData(uint32_t, uint32_t, uint32_t, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t setIntData(uint32_t, uint32_t, uint32_t, int32_t) override { return CLIENT_ERROR_NOTSUPPORTED; }
    uint32_t getTableSize(uint32_t) override { return 0; }
    uint32_t findElementById(uint32_t entity, uint32_t id) override {
        auto it = positions.find({entity, id});
        return it == positions.end() ? 0 : it->second;
    }
    uint32_t getTableStatus(uint32_t) override { return 3; }
    uint32_t seedHealth(uint32_t) override { return 0; }
    const char* getElementName(uint32_t entity, uint32_t index) override {
        auto it = names.find({entity, index});
        return it == names.end() ? nullptr : it->second.c_str();
    }
    uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                          SnmpVarBindList* varBinds, int32_t* trapToSend) override {
        return handler->processEvent(enterprise, specificTrap, varBinds, trapToSend);
    }
    void addEvent(eventData event) override {
        added.push_back(event);
        if (handler != nullptr) {
            handler->addEvent(event);
        }
    }
    void setHealthstatus(int32_t status) override {
        health = status;
        healthStores.push_back(status);
    }
    int32_t getHealthstatus() override { return health; }
    bool isDebugEnabled() override { return true; }
    bool isTrapsEnabled() override { return trapsEnabled; }
    bool isSetsEnabled() override { return false; }
    uint32_t readRegistryParams() override { return 1; }
    BaseAccessor* getTable(uint32_t) override { return nullptr; }
    eventHandler* getEventHandler() override { return handler; }
};

// Installs a fake as the process's client object for the life of the scope.
class ScopedClient {
public:
    explicit ScopedClient(subagentBase* client) : m_pSaved(gSubagent) { gSubagent = client; }
    ~ScopedClient() { gSubagent = m_pSaved; }
    ScopedClient(const ScopedClient&) = delete;
    ScopedClient& operator=(const ScopedClient&) = delete;

private:
    subagentBase* m_pSaved;
};

#endif
