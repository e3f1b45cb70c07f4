// A scripted client facade (the shared fake, answering from a script) installed through
// the facade's test seam, and the test fixture that starts the agent against it.
#ifndef HM_TESTS_AGENT_AGENTFIXTURE_H
#define HM_TESTS_AGENT_AGENTFIXTURE_H

#include "agentTestSupport.h"

#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "core/subagentBase.h"
#include "support/fakeClient.h"

namespace hmtest {

// What the scripted facade answers and what it was asked.
struct FakeScript {
    uint32_t sizes[16] = {}; // table size by entity code
    uint32_t initStatus = CLIENT_SUCCESS;
    bool setsEnabled = false;
    std::string tracePath; // opened by init, as the configuration's debugenabled does
    std::map<uint32_t, uint32_t> failingAttributes; // getter failures by attribute code
    std::map<uint32_t, bool> nullTextAttributes;    // texts handed out as null
    uint32_t setStatus = CLIENT_SUCCESS, eventStatus = CLIENT_SUCCESS;
    int32_t trapToSend = 1;
    Arcs eventOid;
    std::vector<std::string> calls; // "op eENTITY aATTRIBUTE iINDEX"
    int releaseCount = 0;
};

inline FakeScript& script() {
    static FakeScript s;
    return s;
}

// Integer values are attribute * 1000 + index, so a test can tell which row was read;
// texts are "op:eENTITY:aATTRIBUTE:iINDEX".
class ScriptedClient : public ::FakeClient {
public:
    uint32_t init() override {
        if (!script().tracePath.empty())
            openDebugLog(script().tracePath.c_str(), 10);
        return script().initStatus;
    }
    void releaseTables() override { ++script().releaseCount; }
    uint32_t getIntInfo(uint32_t e, uint32_t a, uint32_t i, int32_t* v) override {
        return read("info", e, a, i, v);
    }
    uint32_t getIntData(uint32_t e, uint32_t a, uint32_t i, int32_t* v) override {
        return read("data", e, a, i, v);
    }
    uint32_t getStrInfo(uint32_t e, uint32_t a, uint32_t i, char** v) override {
        return text("sinfo", e, a, i, v);
    }
    uint32_t getStrData(uint32_t e, uint32_t a, uint32_t i, char** v) override {
        return text("sdata", e, a, i, v);
    }
    uint32_t setIntData(uint32_t e, uint32_t a, uint32_t i, int32_t v) override {
        note("set", e, a, i, " =" + std::to_string(v));
        return script().setStatus;
    }
    uint32_t getTableSize(uint32_t entity) override { return entity < 16 ? script().sizes[entity] : 0; }
    uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                          SnmpVarBindList* varBinds, int32_t* trapToSend) override {
        if (script().eventStatus != CLIENT_SUCCESS)
            return script().eventStatus;
        *trapToSend = script().trapToSend;
        if (script().trapToSend != 1)
            return CLIENT_SUCCESS;
        *specificTrap = 0;
        AsnObjectIdentifier source{static_cast<UINT>(script().eventOid.size()), script().eventOid.data()};
        SnmpUtilOidCpy(enterprise, &source);
        Arcs name = P({1000, 10, 1});
        AsnObjectIdentifier oid{static_cast<UINT>(name.size()), name.data()};
        varBinds->len = 1;
        varBinds->list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind)));
        SnmpUtilOidCpy(&varBinds->list[0].name, &oid);
        varBinds->list[0].value.asnType = ASN_INTEGER;
        return CLIENT_SUCCESS;
    }
    void addEvent(eventData) override {} // events from the running poller thread are dropped
    void setHealthstatus(int32_t) override {}
    bool isDebugEnabled() override { return false; }
    bool isSetsEnabled() override { return script().setsEnabled; }

private:
    static void note(const char* op, uint32_t e, uint32_t a, uint32_t i, const std::string& more = "") {
        script().calls.push_back(std::string(op) + " e" + std::to_string(e) + " a" + std::to_string(a) +
                                 " i" + std::to_string(i) + more);
    }
    static uint32_t read(const char* op, uint32_t e, uint32_t a, uint32_t i, int32_t* v) {
        note(op, e, a, i);
        auto failing = script().failingAttributes.find(a);
        if (failing != script().failingAttributes.end())
            return failing->second;
        *v = static_cast<int32_t>(a * 1000 + i);
        return CLIENT_SUCCESS;
    }
    static uint32_t text(const char* op, uint32_t e, uint32_t a, uint32_t i, char** v) {
        int32_t unused = 0;
        if (uint32_t status = read(op, e, a, i, &unused))
            return status;
        if (script().nullTextAttributes.count(a))
            return CLIENT_SUCCESS;
        *v = static_cast<char*>(calloc(1, 128));
        snprintf(*v, 128, "%s:e%u:a%u:i%u", op, e, a, i);
        return CLIENT_SUCCESS;
    }
};

// Runs the entry points against the scripted facade.
class AgentTest : public ::testing::Test {
protected:
    void SetUp() override {
        script() = FakeScript{};
        setClientFactory([]() -> subagentBase* { return new ScriptedClient(); });
    }
    void TearDown() override {
        if (m_started)
            SnmpExtensionClose();
        setClientFactory(nullptr);
        destroyHMClient();
    }

    // Init with these table sizes (entity code -> size); the system group has one row.
    bool start(std::initializer_list<std::pair<uint32_t, uint32_t>> sizes, bool trace = false) {
        script().sizes[systemManagementEntity] = 1;
        for (const auto& [entity, size] : sizes)
            script().sizes[entity] = size;
        if (trace)
            script().tracePath = m_dir / "trace.log";
        m_started = SnmpExtensionInit(1234, &m_event, &m_region) == TRUE;
        return m_started;
    }
    void openTrace() {
        script().tracePath = m_dir / "trace.log";
        openDebugLog(script().tracePath.c_str(), 10);
    }
    // Hands out every further region; returns how many there were.
    int finishRegions() {
        int count = 0;
        AsnObjectIdentifier region{0, nullptr};
        while (SnmpExtensionInitEx(&region) && count < 100)
            ++count;
        return count;
    }
    Answer query(UINT type, Bindings& bindings) {
        Answer answer;
        SnmpExtensionQueryEx(type, 7, bindings.list(), nullptr, &answer.status, &answer.index);
        return answer;
    }
    // Closes the agent (which closes the trace) and returns the trace text.
    std::string closeAndReadTrace() {
        SnmpExtensionClose();
        m_started = false;
        return readFile(script().tracePath);
    }

    TempDir m_dir{"hmagent-"};
    bool m_started = false;
    HANDLE m_event = nullptr;
    AsnObjectIdentifier m_region{0, nullptr};
};

} // namespace hmtest

#endif
