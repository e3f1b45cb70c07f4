// Shared by the event tests: traps read back as the SNMP service receives them and
// released as it releases them, the check of a trap's shape, the agent's trace
// file, and the seams that park the event poller and record the hand-off retries.
#ifndef HM_TESTS_EVENTS_TRAPHARNESS_H
#define HM_TESTS_EVENTS_TRAPHARNESS_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "events/eventInterface.h"
#include "support/files.h"
#include "support/oids.h"

struct Binding {
    std::string name;
    BYTE type;
    std::string text;
    int32_t number;
};

struct Trap {
    std::string enterprise;
    AsnInteger32 specific;
    std::vector<Binding> bindings;
    std::string eventOid; // the enterprise with the specific number as its last arc
    uint32_t status = 0;  // what processEvent returned and set, for the event handler's traps
    int32_t flag = 0;
};

// Reads what a trap builder produced and releases it.
inline Trap takeBuilt(AsnObjectIdentifier& enterprise, AsnInteger32 specific, SnmpVarBindList& list) {
    Trap trap{dotted(enterprise), specific, {}, dotted(enterprise)};
    for (UINT i = 0; i < list.len; ++i) {
        const SnmpVarBind& vb = list.list[i];
        Binding b{dotted(vb.name), vb.value.asnType, "", 0};
        if (vb.value.asnType == ASN_OCTETSTRING)
            b.text.assign(reinterpret_cast<const char*>(vb.value.asnValue.string.stream),
                          vb.value.asnValue.string.length);
        else
            b.number = vb.value.asnValue.number;
        trap.bindings.push_back(b);
    }
    if (list.list != nullptr)
        SnmpUtilVarBindListFree(&list);
    if (enterprise.ids != nullptr)
        SnmpUtilOidFree(&enterprise);
    return trap;
}

// Every trap the agent has queued, as the SNMP service collects them with SnmpExtensionTrap.
inline std::vector<Trap> collectTraps() {
    std::vector<Trap> traps;
    while (traps.size() < 100000) {
        AsnObjectIdentifier enterprise = {0, nullptr};
        AsnInteger32 generic = -1, specific = -1;
        AsnTimeticks stamp = 0;
        SnmpVarBindList list = {nullptr, 0};
        const BOOL produced = SnmpExtensionTrap(&enterprise, &generic, &specific, &stamp, &list);
        AsnObjectIdentifier copy = {0, nullptr}; // the enterprise OID stays the agent's
        SnmpUtilOidCpy(&copy, &enterprise);
        Trap trap = takeBuilt(copy, specific, list);
        if (!produced)
            break;
        EXPECT_EQ(generic, 6);
        trap.eventOid = trap.enterprise + "." + std::to_string(specific);
        traps.push_back(trap);
    }
    return traps;
}

// What a device, two-object or fixed-object trap carries.
struct TrapShape {
    const char* family; // the event OID is P.1000.<family>.<specific>
    int32_t specific;
    const char* description;
    int32_t severity;
    const char* table; // device objects: MIB table under P; "" the fixed objects; null two objects
    int32_t instance;
    const char* deviceDesc;
    int32_t deviceId;
};

inline void expectBinding(const Binding& b, const std::string& name, BYTE type) {
    EXPECT_EQ(b.name, name);
    EXPECT_EQ(b.type, type);
}

inline void expectTrap(const Trap& trap, const TrapShape& s) {
    EXPECT_EQ(trap.eventOid, kP + ".1000." + s.family + "." + std::to_string(s.specific));
    ASSERT_EQ(trap.bindings.size(), s.table == nullptr ? 2u : 4u);
    expectBinding(trap.bindings[0], kP + ".1000.10.1", ASN_OCTETSTRING);
    EXPECT_EQ(trap.bindings[0].text, s.description);
    EXPECT_EQ(trap.bindings[1].number, s.severity);
    if (s.table == nullptr) {
        expectBinding(trap.bindings[1], kP + ".1000.10.2", ASN_INTEGER);
        return;
    }
    const bool fixed = s.table[0] == '\0';
    const std::string column = kP + "." + s.table + ".1.", instance = "." + std::to_string(s.instance);
    expectBinding(trap.bindings[1], fixed ? kP + ".1000.10.2" : column + "5" + instance, ASN_INTEGER);
    expectBinding(trap.bindings[2], fixed ? kP + ".1000.10.3" : column + "3" + instance, ASN_OCTETSTRING);
    EXPECT_EQ(trap.bindings[2].text, s.deviceDesc);
    expectBinding(trap.bindings[3], fixed ? kP + ".1000.10.4" : column + "2" + instance, ASN_INTEGER);
    EXPECT_EQ(trap.bindings[3].number, s.deviceId);
}

// The overall-health trap; `change` is its "from to" names, or null to skip the text.
inline void expectHealthTrap(const Trap& trap, int32_t health, const char* change) {
    EXPECT_EQ(trap.eventOid, kP + ".1000.20." + std::to_string(health));
    ASSERT_EQ(trap.bindings.size(), 2u);
    expectBinding(trap.bindings[0], kP + ".1000.10.1", ASN_OCTETSTRING);
    if (change != nullptr) {
        EXPECT_EQ(trap.bindings[0].text, std::string("System health was changed from ") + change + ".");
    }
    expectBinding(trap.bindings[1], kP + ".100.1.0", ASN_INTEGER);
    EXPECT_EQ(trap.bindings[1].number, health);
}

// A trace file in a scratch folder, opened as the agent's trace (unless told otherwise)
// for the life of the object.
class ScopedTrace {
public:
    explicit ScopedTrace(bool open = true) {
        if (open)
            openDebugLog(m_path.c_str(), 1);
    }
    ~ScopedTrace() { closeDebugLog(); }

    const std::string& path() const { return m_path; }
    std::string text() const { return traceMessages(m_path); }

private:
    hmtest::TempDir m_dir{"hm-events-trace-"};
    std::string m_path = m_dir / "trace.log";
};

// An asserted event as a decoder hands it to the event interface.
inline CEventWrapper eventWrapper(int32_t deviceId, const char* description, const char* status = "Error") {
    CEventWrapper w;
    w.SetAsserted(true);
    w.setDeviceId(deviceId);
    w.setDescription(description);
    w.setStatus(status);
    w.setTimeStamp("11/21/2026 22:10:05");
    w.setSensorType("Temperature");
    return w;
}

// Every hand-off retry sleep asked for, when recordRetrySleep is the seam.
inline std::vector<DWORD> g_retrySleeps;

inline void recordRetrySleep(DWORD ms) {
    g_retrySleeps.push_back(ms);
}

// The poller thread started with the agent waits here for ever: the tests poll.
inline void parkPoller(DWORD) {
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

#endif
