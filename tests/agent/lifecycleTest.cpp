// Region hand-out, start-up completion, trap signalling and trap production.
#include "agentFixture.h"

#include "agent/agentApi.h"
#include "agent/agentState.h"
#include "agent/mibTypes.h"

namespace hmtest {
namespace {

using LifecycleTest = AgentTest;

bool signalled(HANDLE event) {
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

TEST_F(LifecycleTest, RegionsAreHandedOutOneSubtreeAtATimeAndCloseReleasesEverything) {
    // Missing outputs are refused.
    EXPECT_FALSE(SnmpExtensionInit(0, nullptr, &m_region));
    EXPECT_FALSE(SnmpExtensionInit(0, &m_event, nullptr));
    EXPECT_FALSE(SnmpExtensionInitEx(nullptr));
    AsnInteger32 generic = 0;
    EXPECT_FALSE(SnmpExtensionTrap(nullptr, &generic, &generic, nullptr, nullptr));
    ASSERT_TRUE(start({}, true));
    EXPECT_EQ(arcsOf(m_region), kBases[0]);
    ASSERT_NE(m_event, nullptr);

    AsnObjectIdentifier region{0, nullptr};
    for (int i = 1; i < 14; ++i) {
        EXPECT_FALSE(IsInitDone());
        ASSERT_TRUE(SnmpExtensionInitEx(&region));
        EXPECT_EQ(arcsOf(region), kBases[i]);
    }
    region = AsnObjectIdentifier{0, nullptr};
    EXPECT_FALSE(SnmpExtensionInitEx(&region));
    const UINT* ids = region.ids; // the packed field is copied, not referenced
    EXPECT_EQ(ids, nullptr);
    EXPECT_TRUE(IsInitDone());
    EXPECT_FALSE(signalled(m_event)); // no trap was waiting for the end of start-up

    // Subtree bases are handed out as copies of their own for valid indexes, and not at all
    // for others.
    for (int index : {0, 13, 14, -1}) {
        UINT arc = 77;
        AsnObjectIdentifier oid{1, &arc};
        GetOidSubTreeBaseOid(index, &oid);
        const bool valid = index == 0 || index == 13;
        EXPECT_EQ(arcsOf(oid), valid ? kBases[index] : Arcs{77}) << index;
        if (valid) {
            const UINT *copy = oid.ids, *base = OidSubTrees[index].baseOid.ids;
            EXPECT_NE(copy, base);
            SnmpUtilOidFree(&oid);
        }
    }
    // Close releases the facade and closes the trace last.
    const std::string log = closeAndReadTrace();
    EXPECT_TRUE(tracedAll(log, {"\n\n InitDone \n\n", "SNMP Extension Agent closing\n"}));
    EXPECT_EQ(log.rfind("*********** End Log ****************\n") + 37, log.size());
    EXPECT_FALSE(IsInitDone());
    EXPECT_EQ(script().releaseCount, 1);
    EXPECT_EQ(agentTrapEvent(), nullptr);
    // A trap asserted by a poller still running after close is only remembered.
    EXPECT_EQ(AssertTrap(), 1);
    EXPECT_TRUE(agentTrapsWaiting());
}

// A trap asserted during start-up waits for the last region, then every assertion
// signals at once, and so does every tenth query, counted afresh from each init.
TEST_F(LifecycleTest, TrapsWaitForTheLastRegionAreSignalledAndSplitTheEventOid) {
    ASSERT_TRUE(start({}));
    Bindings none({});
    for (int n = 0; n < 7; ++n)
        query(SNMP_EXTENSION_GET, none);
    SnmpExtensionClose();
    ASSERT_TRUE(start({}, true));
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(SnmpExtensionInitEx(&region));
    EXPECT_EQ(AssertTrap() + AssertTrap(), 2);
    EXPECT_TRUE(agentTrapsWaiting());
    EXPECT_FALSE(signalled(m_event));
    int regions = 0;
    while (SnmpExtensionInitEx(&region) && regions < 100)
        ++regions;
    EXPECT_EQ(regions, 12);
    EXPECT_FALSE(agentTrapsWaiting());
    EXPECT_TRUE(signalled(m_event));
    EXPECT_FALSE(signalled(m_event)); // auto-reset, signalled once
    EXPECT_EQ(AssertTrap(), 1);
    EXPECT_TRUE(signalled(m_event));
    for (int n = 1; n <= 30; ++n) {
        query(SNMP_EXTENSION_GET, none);
        EXPECT_EQ(signalled(m_event), n % 10 == 0) << n;
        EXPECT_EQ(agentHealthPollRequested(), n >= 10) << n;
    }
    // Traps split the event OID into enterprise and specific trap, and are traced.
    const struct {
        Arcs eventOid;
        uint32_t eventStatus;
        int32_t trapToSend;
        std::string trap; // "enterprise/specific"; "/-1": no trap
    } rows[] = {
        {P({1000, 100, 21}), 0, 1, kP + ".1000.100/21"},
        {P({1000, 7, 4000000}), 0, 1, kP + ".1000.7/4000000"},
        {Arcs{21}, 0, 1, "21/0"}, // a single arc is left as it is
        {Arcs{1, 21}, 0, 1, "1/21"},
        {P({1000, 1, 3}), 0, 0, "/-1"},                       // the queue is empty
        {P({1000, 1, 3}), CLIENT_ERROR_NOSUCHNAME, 1, "/-1"}, // the facade fails
    };
    for (const auto& row : rows) {
        script().eventOid = row.eventOid;
        script().eventStatus = row.eventStatus;
        script().trapToSend = row.trapToSend;
        AsnObjectIdentifier enterprise{0, nullptr};
        AsnInteger32 generic = -1, specific = -1;
        AsnTimeticks stamp = 0xFFFFFFFFu;
        SnmpVarBindList bindings{nullptr, 0};
        EXPECT_EQ(SnmpExtensionTrap(&enterprise, &generic, &specific, &stamp, &bindings), row.trap != "/-1");
        EXPECT_EQ(dotted(enterprise) + "/" + std::to_string(specific), row.trap);
        EXPECT_EQ(generic, SNMP_GENERICTRAP_ENTERSPECIFIC);
        EXPECT_NE(stamp, 0xFFFFFFFFu);
        EXPECT_EQ(bindings.len, row.trap != "/-1" ? 1u : 0u);
        SnmpUtilVarBindListFree(&bindings);
    }
    EXPECT_TRUE(tracedAll(closeAndReadTrace(),
                          {"Traps are waiting...so call AssertTrap\n",
                           "   VarBind 0:1.3.6.1.4.1.64999.2.10.3.5.1000.10.1  value type:2\n"}));
}

} // namespace
} // namespace hmtest
