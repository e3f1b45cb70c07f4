// A scripted client facade (the shared fake, answering from a script) installed through
// the facade's test seam, and the test fixture that starts the agent against it.
#ifndef HM_TESTS_AGENT_AGENTFIXTURE_H
#define HM_TESTS_AGENT_AGENTFIXTURE_H

#include <regex>
#include <set>

#include "agentTestSupport.h"

#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "support/fakeClient.h"

namespace hmtest {

// What the scripted facade answers and what it was asked.
struct FakeScript {
    UINT sizes[16] = {}; // table size by entity code
    UINT initStatus = CLIENT_SUCCESS, setStatus = CLIENT_SUCCESS, eventStatus = CLIENT_SUCCESS;
    bool setsEnabled = false;
    std::string tracePath;                  // opened by init, as the configuration's debugenabled does
    std::map<UINT, UINT> failingAttributes; // getter failures by attribute code
    std::set<UINT> nullTextAttributes;      // texts handed out as null
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
    UINT getIntInfo(UINT e, UINT a, UINT i, int32_t* v) override { return get("info", e, a, i, v, nullptr); }
    UINT getIntData(UINT e, UINT a, UINT i, int32_t* v) override { return get("data", e, a, i, v, nullptr); }
    UINT getStrInfo(UINT e, UINT a, UINT i, char** t) override { return get("sinfo", e, a, i, nullptr, t); }
    UINT getStrData(UINT e, UINT a, UINT i, char** t) override { return get("sdata", e, a, i, nullptr, t); }
    UINT setIntData(UINT e, UINT a, UINT i, int32_t v) override {
        script().calls.push_back("set e" + std::to_string(e) + " a" + std::to_string(a) + " i" +
                                 std::to_string(i) + " =" + std::to_string(v));
        return script().setStatus;
    }
    UINT getTableSize(UINT entity) override { return entity < 16 ? script().sizes[entity] : 0; }
    UINT processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap, SnmpVarBindList* varBinds,
                      int32_t* trapToSend) override {
        if (script().eventStatus != CLIENT_SUCCESS || (*trapToSend = script().trapToSend) != 1)
            return script().eventStatus;
        *specificTrap = 0;
        Arcs name = P({1000, 10, 1});
        AsnObjectIdentifier source{static_cast<UINT>(script().eventOid.size()), script().eventOid.data()},
            oid{static_cast<UINT>(name.size()), name.data()};
        SnmpUtilOidCpy(enterprise, &source);
        *varBinds = {static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind))), 1};
        SnmpUtilOidCpy(&varBinds->list[0].name, &oid);
        varBinds->list[0].value.asnType = ASN_INTEGER;
        return CLIENT_SUCCESS;
    }
    void addEvent(eventData) override {} // events from the running poller thread are dropped
    void setHealthstatus(int32_t) override {}
    bool isDebugEnabled() override { return false; }
    bool isSetsEnabled() override { return script().setsEnabled; }

private:
    static UINT get(const char* op, UINT e, UINT a, UINT i, int32_t* v, char** t) {
        char call[64];
        snprintf(call, sizeof call, "%s e%u a%u i%u", op, e, a, i);
        script().calls.push_back(call);
        if (script().failingAttributes.count(a))
            return script().failingAttributes[a];
        if (v != nullptr)
            *v = static_cast<int32_t>(a * 1000 + i);
        else if (!script().nullTextAttributes.count(a))
            *t = strdup(std::regex_replace(call, std::regex(" "), ":").c_str());
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
        return m_started = SnmpExtensionInit(1234, &m_event, &m_region) == TRUE;
    }
    void openTrace() {
        script().tracePath = m_dir / "trace.log";
        openDebugLog(script().tracePath.c_str(), 10);
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
