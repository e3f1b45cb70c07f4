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
#include "trapHarness.h"

namespace {

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

    const std::vector<Trap> traps = collectTraps();
    ASSERT_EQ(traps.size(), 2u);
    // A power-redundancy event names no table row: instance 0, no device description.
    expectTrap(traps[0], {"50", 3, "power redundancy lost", 5, "400.10", 0, "", 77});
    expectHealthTrap(traps[1], 5, (std::string(kStatusNames[health]) + " to critical").c_str());
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
    EXPECT_TRUE(collectTraps().empty());

    EXPECT_EQ(sink.HandleEvent(event, 3), 1);
    const std::vector<Trap> traps = collectTraps(); // chassis events do not move the health
    ASSERT_EQ(traps.size(), 1u);
    expectTrap(traps[0], {"30", 1, "there has been a chassis intrusion", 5, nullptr, 0, "", 0});
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
    EXPECT_TRUE(collectTraps().empty());
}

TEST_F(EventLibraryTest, TypesWithoutACloneAreRefused) {
    initialise("1");
    handOutRegions();
    SNMP_EventInterface sink;
    for (int type : {-1, 0, 1, 6, 7, 13, 16, 17, 18, 20, 255}) {
        CEventWrapper event = makeEvent(5, "watchdog", "Error");
        EXPECT_EQ(sink.HandleEvent(event, type), 0) << type;
    }
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_TRUE(collectTraps().empty());
}

} // namespace
