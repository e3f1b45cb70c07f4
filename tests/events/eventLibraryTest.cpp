// Events through the library's exported entry points: the event sink, the trap
// event and SnmpExtensionTrap, as the SNMP service and an outside module see them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <windows.h>
#include <snmp.h>

#include "events/eventInterface.h"
#include "oidText.h"

extern "C" {
BOOL SNMP_FUNC_TYPE SnmpExtensionInit(DWORD dwUpTimeReference, HANDLE* phSubagentTrapEvent,
                                      AsnObjectIdentifier* pFirstSupportedRegion);
BOOL SNMP_FUNC_TYPE SnmpExtensionInitEx(AsnObjectIdentifier* pNextSupportedRegion);
BOOL SNMP_FUNC_TYPE SnmpExtensionTrap(AsnObjectIdentifier* pEnterpriseOid, AsnInteger32* pGenericTrapId,
                                      AsnInteger32* pSpecificTrapId, AsnTimeticks* pTimeStamp,
                                      SnmpVarBindList* pVarBindList);
VOID SNMP_FUNC_TYPE SnmpExtensionClose(void);
}

namespace {

struct Binding {
    std::string name;
    BYTE type;
    std::string text;
    int32_t number;
};

struct SentTrap {
    BOOL produced;
    std::string enterprise;
    AsnInteger32 generic;
    AsnInteger32 specific;
    std::vector<Binding> bindings;
};

// One call of the service's trap callback; the results are released as the service does.
SentTrap collectTrap() {
    AsnObjectIdentifier enterprise = {0, nullptr};
    AsnInteger32 generic = -1;
    AsnInteger32 specific = -1;
    AsnTimeticks stamp = 0;
    SnmpVarBindList list = {nullptr, 0};
    SentTrap trap{
        SnmpExtensionTrap(&enterprise, &generic, &specific, &stamp, &list), "", generic, specific, {}};
    trap.enterprise = dotted(enterprise);
    for (UINT i = 0; i < list.len; ++i) {
        const SnmpVarBind& vb = list.list[i];
        Binding b{dotted(vb.name), vb.value.asnType, "", 0};
        if (vb.value.asnType == ASN_OCTETSTRING) {
            b.text.assign(reinterpret_cast<const char*>(vb.value.asnValue.string.stream),
                          vb.value.asnValue.string.length);
        } else {
            b.number = vb.value.asnValue.number;
        }
        trap.bindings.push_back(b);
    }
    if (list.list != nullptr) {
        SnmpUtilVarBindListFree(&list);
    }
    if (enterprise.ids != nullptr) {
        SnmpUtilOidFree(&enterprise);
    }
    return trap;
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

class EventLibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/hm-events-lib-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_stDir = dir;
        m_stConfig = m_stDir + "/hmsubagent.conf";
        m_stLog = m_stDir + "/hmsubagent.log";
        m_stRegistry = m_stDir + "/registry.reg";
        writeFile(m_stRegistry, "Windows Registry Editor Version 5.00\n\n"
                                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n"
                                "\"ConfigFile\"=\"" +
                                    m_stConfig + "\"\n\"LogFile\"=\"" + m_stLog + "\"\n");
        setenv("HMSUBAGENT_REGISTRY", m_stRegistry.c_str(), 1);
    }

    void TearDown() override {
        if (m_bStarted) {
            SnmpExtensionClose();
        }
        unsetenv("HMSUBAGENT_REGISTRY");
        std::remove(m_stConfig.c_str());
        std::remove(m_stLog.c_str());
        std::remove(m_stRegistry.c_str());
        rmdir(m_stDir.c_str());
    }

    // SnmpExtensionInit with the given trapsenabled value; regions not yet handed out.
    void initialise(const char* trapsEnabled) {
        writeFile(m_stConfig, std::string("debugenabled=1\ntrapsenabled=") + trapsEnabled + "\n");
        AsnObjectIdentifier region = {0, nullptr};
        ASSERT_TRUE(SnmpExtensionInit(0, &m_hTrapEvent, &region));
        m_bStarted = true;
        ASSERT_NE(m_hTrapEvent, nullptr);
    }

    void handOutRegions() {
        AsnObjectIdentifier region = {0, nullptr};
        int calls = 0;
        while (SnmpExtensionInitEx(&region) && calls < 100) {
            ++calls;
        }
        ASSERT_EQ(calls, 13);
    }

    bool trapEventSignalled() { return WaitForSingleObject(m_hTrapEvent, 0) == WAIT_OBJECT_0; }

    std::string trace() { return traceMessages(m_stLog); }

    // The overall health the event handler started from, read back from the trace.
    int initialHealth() {
        std::smatch m;
        const std::string t = trace();
        static const std::regex line("eventHandler::init local copy of m_nHealthStatus is ([0-9]+)\n");
        return std::regex_search(t, m, line) ? std::stoi(m[1]) : -1;
    }

    HANDLE m_hTrapEvent = nullptr;

private:
    bool m_bStarted = false;
    std::string m_stDir;
    std::string m_stConfig;
    std::string m_stLog;
    std::string m_stRegistry;
};

CEventWrapper makeEvent(int32_t deviceId, const char* description, const char* status) {
    CEventWrapper event;
    event.SetAsserted(true);
    event.setDeviceId(deviceId);
    event.setDescription(description);
    event.setStatus(status);
    event.setTimeStamp("11/21/2026 23:01:00");
    event.setSensorType("Power Unit");
    return event;
}

const char* kStatusNames[] = {"", "other", "unknown", "ok", "nonCritical", "critical", "nonRecoverable"};

TEST_F(EventLibraryTest, DeviceEventBecomesItsTrapThenTheHealthTrap) {
    initialise("1");
    handOutRegions();
    const int health = initialHealth();
    ASSERT_GE(health, 1);
    ASSERT_LE(health, 4); // the event below must raise it
    EXPECT_FALSE(trapEventSignalled());

    CEventInterface* sink = new SNMP_EventInterface();
    CEventWrapper event = makeEvent(77, "power redundancy lost", "Error");
    EXPECT_EQ(sink->HandleEvent(event, 11), 1);
    delete sink;
    EXPECT_TRUE(trapEventSignalled());

    const SentTrap device = collectTrap();
    ASSERT_TRUE(device.produced);
    EXPECT_EQ(device.enterprise, kP + ".1000.50");
    EXPECT_EQ(device.generic, 6);
    EXPECT_EQ(device.specific, 3);
    ASSERT_EQ(device.bindings.size(), 4u);
    // A power-redundancy event names no table row: instance 0, no device description.
    EXPECT_EQ(device.bindings[0].name, kP + ".1000.10.1");
    EXPECT_EQ(device.bindings[0].type, ASN_OCTETSTRING);
    EXPECT_EQ(device.bindings[0].text, "power redundancy lost");
    EXPECT_EQ(device.bindings[1].name, kP + ".400.10.1.5.0");
    EXPECT_EQ(device.bindings[1].type, ASN_INTEGER);
    EXPECT_EQ(device.bindings[1].number, 5);
    EXPECT_EQ(device.bindings[2].name, kP + ".400.10.1.3.0");
    EXPECT_EQ(device.bindings[2].type, ASN_OCTETSTRING);
    EXPECT_EQ(device.bindings[2].text, "");
    EXPECT_EQ(device.bindings[3].name, kP + ".400.10.1.2.0");
    EXPECT_EQ(device.bindings[3].type, ASN_INTEGER);
    EXPECT_EQ(device.bindings[3].number, 77);

    const SentTrap healthTrap = collectTrap();
    ASSERT_TRUE(healthTrap.produced);
    EXPECT_EQ(healthTrap.enterprise, kP + ".1000.20");
    EXPECT_EQ(healthTrap.generic, 6);
    EXPECT_EQ(healthTrap.specific, 5);
    ASSERT_EQ(healthTrap.bindings.size(), 2u);
    EXPECT_EQ(healthTrap.bindings[0].name, kP + ".1000.10.1");
    EXPECT_EQ(healthTrap.bindings[0].text,
              std::string("System health was changed from ") + kStatusNames[health] + " to critical.");
    EXPECT_EQ(healthTrap.bindings[1].name, kP + ".100.1.0");
    EXPECT_EQ(healthTrap.bindings[1].type, ASN_INTEGER);
    EXPECT_EQ(healthTrap.bindings[1].number, 5);

    EXPECT_FALSE(collectTrap().produced);
    const std::string t = trace();
    EXPECT_NE(t.find("\nSNMP_EventInterface::HandleEvent starting\ntraps enabled\n"), std::string::npos);
}

TEST_F(EventLibraryTest, EventsAreRefusedUntilStartUpCompletes) {
    initialise("1");
    SNMP_EventInterface sink;
    CEventWrapper event = makeEvent(3, "there has been a chassis intrusion", "Error");
    EXPECT_EQ(sink.HandleEvent(event, 3), 0);
    EXPECT_NE(trace().find("initialzation not complete yet\n"), std::string::npos);
    handOutRegions();
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_FALSE(collectTrap().produced);

    EXPECT_EQ(sink.HandleEvent(event, 3), 1);
    const SentTrap trap = collectTrap();
    ASSERT_TRUE(trap.produced);
    EXPECT_EQ(trap.enterprise, kP + ".1000.30");
    EXPECT_EQ(trap.specific, 1);
    ASSERT_EQ(trap.bindings.size(), 2u);
    EXPECT_EQ(trap.bindings[1].name, kP + ".1000.10.2");
    EXPECT_EQ(trap.bindings[1].number, 5);
    EXPECT_FALSE(collectTrap().produced); // chassis events do not move the health
}

TEST_F(EventLibraryTest, TrapsDisabledInTheConfigurationRefuseEveryEvent) {
    initialise("0");
    handOutRegions();
    SNMP_EventInterface sink;
    for (int type : {2, 3, 4, 5, 8, 9, 10, 11, 12, 14, 15, 19}) {
        CEventWrapper event = makeEvent(5, "Upper Critical going high", "Error");
        EXPECT_EQ(sink.HandleEvent(event, type), 0) << type;
    }
    EXPECT_NE(trace().find("\nSNMP_EventInterface::HandleEvent starting\ntraps disabled...\n"),
              std::string::npos);
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_FALSE(collectTrap().produced);
}

TEST_F(EventLibraryTest, TypesWithoutACloneAreRefused) {
    initialise("1");
    handOutRegions();
    SNMP_EventInterface sink;
    for (int type : {0, 1, 6, 7, 13, 16, 17, 18, 20}) {
        CEventWrapper event = makeEvent(5, "watchdog", "Error");
        EXPECT_EQ(sink.HandleEvent(event, type), 0) << type;
    }
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_FALSE(collectTrap().produced);
}

} // namespace
