// Shared by the event tests: traps read back as the SNMP service receives them and
// released as it releases them, the check of a trap's shape, the agent's trace
// file, and the seams that park the event poller and record the hand-off retries.
#ifndef HM_TESTS_EVENTS_TRAPHARNESS_H
#define HM_TESTS_EVENTS_TRAPHARNESS_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "events/eventData.h"
#include "events/eventInterface.h"
#include "support/files.h"
#include "support/oids.h"

struct Binding {
    std::string name;
    BYTE type;
    std::string text; // octet strings
    int32_t number;   // integers
    bool operator==(const Binding& o) const {
        return name == o.name && type == o.type && text == o.text && number == o.number;
    }
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
inline Trap takeBuilt(AsnObjectIdentifier& enterprise, AsnInteger32 specific, SnmpVarBindList& list,
                      uint32_t status = 0, int32_t flag = 0) {
    Trap trap{dotted(enterprise), specific, {}, dotted(enterprise), status, flag};
    for (UINT i = 0; i < list.len; ++i) {
        const SnmpVarBind& vb = list.list[i];
        const bool text = vb.value.asnType == ASN_OCTETSTRING;
        trap.bindings.push_back(
            {dotted(vb.name), vb.value.asnType,
             text ? std::string(reinterpret_cast<const char*>(vb.value.asnValue.string.stream),
                                vb.value.asnValue.string.length)
                  : "",
             text ? 0 : vb.value.asnValue.number});
    }
    SnmpUtilVarBindListFree(&list);
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
    const char* oid; // the event OID is P.1000.<oid>
    const char* description;
    int32_t severity;
    const char* table; // device objects: MIB table under P; "" the fixed objects; null two objects
    int32_t instance;
    const char* deviceDesc;
    int32_t deviceId;
};

inline void expectTrap(const Trap& trap, const TrapShape& s) {
    EXPECT_EQ(trap.eventOid, kP + ".1000." + s.oid);
    const bool device = s.table != nullptr && s.table[0] != '\0';
    const std::string fixed = kP + ".1000.10.", at = "." + std::to_string(s.instance);
    const std::string column = kP + "." + (device ? s.table : "") + ".1.";
    std::vector<Binding> expected = {{fixed + "1", ASN_OCTETSTRING, s.description, 0},
                                     {device ? column + "5" + at : fixed + "2", ASN_INTEGER, "", s.severity}};
    if (s.table != nullptr) {
        expected.push_back({device ? column + "3" + at : fixed + "3", ASN_OCTETSTRING, s.deviceDesc, 0});
        expected.push_back({device ? column + "2" + at : fixed + "4", ASN_INTEGER, "", s.deviceId});
    }
    EXPECT_EQ(trap.bindings, expected);
}

// The overall-health trap; `change` is its "from to" names.
inline void expectHealthTrap(const Trap& trap, int32_t health, const std::string& change) {
    EXPECT_EQ(trap.eventOid, kP + ".1000.20." + std::to_string(health));
    EXPECT_EQ(trap.bindings, (std::vector<Binding>{{kP + ".1000.10.1", ASN_OCTETSTRING,
                                                    "System health was changed from " + change + ".", 0},
                                                   {kP + ".100.1.0", ASN_INTEGER, "", health}}));
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

// A record as the event clones queue it.
eventData makeEvent(int32_t group, int32_t severity, int32_t deviceId, const char* description,
                    int32_t instance = 1, const char* deviceName = "") {
    eventData e{};
    e.nEventGroup = group;
    e.nSeverity = severity;
    e.nDeviceID = deviceId;
    e.nInstIndex = instance;
    std::strncpy(e.stEventDesc, description, sizeof(e.stEventDesc) - 1);
    std::strncpy(e.stDeviceDesc, deviceName, sizeof(e.stDeviceDesc) - 1);
    return e;
}

// An asserted event as a decoder hands it to the event interface.
inline CEventWrapper eventWrapper(int32_t deviceId, const char* description, const char* status = "Error") {
    CEventWrapper w;
    w.SetAsserted(true);
    w.setDeviceId(deviceId);
    w.setDescription(description);
    w.setStatus(status);
    return w;
}

// Every hand-off retry sleep asked for, when recordRetrySleep is the seam.
inline std::vector<DWORD> g_retrySleeps;

inline const auto recordRetrySleep = [](DWORD ms) { g_retrySleeps.push_back(ms); };

// The poller thread started with the agent waits here for ever: the tests poll.
inline void parkPoller(DWORD) {
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

#endif
