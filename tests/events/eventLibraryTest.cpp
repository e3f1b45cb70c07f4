// Events through the library's exported entry points: the event sink, the trap
// event and SnmpExtensionTrap, as the SNMP service and an outside module see them.

#include <cstdlib>

#include "support/e2e.h"
#include "trapHarness.h"

namespace {

class EventLibraryTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (m_bStarted)
            SnmpExtensionClose();
        unsetenv("HMSUBAGENT_REGISTRY");
    }

    bool trapEventSignalled() { return WaitForSingleObject(m_hTrapEvent, 0) == WAIT_OBJECT_0; }

    // Hands `type` events to the sink as an outside module does; what HandleEvent answered.
    int handle(int type, const char* description) {
        CEventWrapper event = eventWrapper(5, description);
        return std::unique_ptr<CEventInterface>(new SNMP_EventInterface())->HandleEvent(event, type);
    }

    hmtest::TempDir m_dir{"hm-events-lib-"};
    HANDLE m_hTrapEvent = nullptr;
    bool m_bStarted = false;
};

TEST_F(EventLibraryTest, EventsAreRefusedUntilStartUpCompletesThenBecomeTheirTraps) {
    // Traps enabled (disabled in the configuration: the core tests read it, the SEL
    // poller's tests see the refusal).
    hmtest::writeFile(m_dir / "hmsubagent.conf", "debugenabled=1\ntrapsenabled=1\n");
    hmtest::writeRegistryFile(m_dir / "registry.reg", m_dir / "hmsubagent.conf", m_dir / "hmsubagent.log");
    setenv("HMSUBAGENT_REGISTRY", (m_dir / "registry.reg").c_str(), 1);
    AsnObjectIdentifier region = {0, nullptr};
    ASSERT_TRUE(SnmpExtensionInit(0, &m_hTrapEvent, &region));
    m_bStarted = true;
    EXPECT_EQ(handle(3, "there has been a chassis intrusion"), 0); // start-up is not complete
    int calls = 0;
    while (SnmpExtensionInitEx(&region) && calls < 100)
        ++calls;
    ASSERT_EQ(calls, 13);
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_TRUE(collectTraps().empty());
    EXPECT_EQ(handle(3, "there has been a chassis intrusion"), 1);
    const std::vector<Trap> traps = collectTraps(); // chassis events do not move the health
    ASSERT_EQ(traps.size(), 1u);
    EXPECT_TRUE(trapEventSignalled());
    expectTrap(traps[0], {"30.1", "there has been a chassis intrusion", 5, nullptr, 0, "", 0});

    // Types without a clone are refused.
    for (int type : {-1, 0, 1, 6, 7, 13, 16, 17, 18, 20, 255})
        EXPECT_EQ(handle(type, "watchdog"), 0) << type;
    EXPECT_FALSE(trapEventSignalled());
    EXPECT_TRUE(collectTraps().empty());
}

} // namespace
