// The live variable chain built by SnmpExtensionInit: instance expansion, pruning of
// empty groups, subtree first variables, the start-up trace, and rebuilding.
#include <set>

#include "agentFixture.h"

#include "agent/mibChain.h"
#include "agent/mibHandlers.h"

namespace hmtest {
namespace {

Arcs fullName(const MIB_VAR_TYPE* v) {
    Arcs arcs = kBases[v->SubTreeIndex];
    Arcs relative = arcsOf(v->Oid);
    arcs.insert(arcs.end(), relative.begin(), relative.end());
    return arcs;
}

std::vector<const MIB_VAR_TYPE*> chain() {
    std::vector<const MIB_VAR_TYPE*> rows;
    for (const MIB_VAR_TYPE* v = mibChainHead(); v != nullptr && rows.size() < 5000; v = v->pMibNext)
        rows.push_back(v);
    return rows;
}

using ChainTest = AgentTest;

// Three temperature probes: the system group's ten scalars, then 15 columns x 3 probes;
// everything else is empty. The index finds, from a starting row, the first row whose
// full name is not below the one asked for: the row itself for an exact name, the next
// row for a name just after one (the row's name with a 0 arc appended), nothing after
// the last row. Start-up traces the expansion, the chain and the subtrees.
TEST_F(ChainTest, ThreeTemperatureProbesAreExpandedIndexedAndTraced) {
    ASSERT_TRUE(start({{temperatureProbeEntity, 3}}, true));
    std::vector<const MIB_VAR_TYPE*> rows = chain();
    ASSERT_EQ(rows.size(), 10u + 45u);
    for (UINT n = 1; n <= 10; ++n)
        EXPECT_EQ(dotted(arcsOf(rows[n - 1]->Oid)) + " a" + std::to_string(rows[n - 1]->HMAttribute),
                  std::to_string(n) + ".0 a" + std::to_string(n));
    for (size_t at = 10; at < rows.size(); ++at) {
        const UINT column = static_cast<UINT>(at - 10) / 3 + 1, instance = static_cast<UINT>(at - 10) % 3 + 1;
        EXPECT_EQ(arcsOf(rows[at]->Oid), (Arcs{1, column, instance}));
        EXPECT_EQ(rows[at]->HMAttribute * 100 + rows[at]->HMEntity, (136 + column) * 100 + 13) << at;
        EXPECT_EQ(rows[at]->SubTreeIndex, 12);
    }
    // Only the system group and the temperature table keep variables.
    for (int i = 0; i < MIB_SUBTREE_COUNT; ++i)
        EXPECT_EQ(OidSubTrees[i].pMibVar, i == 0 ? rows[0] : i == 12 ? rows[10] : nullptr) << i;

    MIB_VAR_TYPE* head = mibChainHead();
    MIB_VAR_TYPE* found = nullptr;
    AsnObjectIdentifier full{0, nullptr};
    for (size_t i = 0; i < rows.size(); ++i) {
        for (size_t k = 0; k < 2; ++k) {
            Arcs copy = fullName(rows[i]);
            if (k == 1)
                copy.push_back(0);
            AsnObjectIdentifier requested{static_cast<UINT>(copy.size()), copy.data()};
            const MibSeekResult result = mibChainSeek(head, &requested, &found, &full);
            if (i + k == rows.size()) {
                EXPECT_EQ(result, MibSeekResult::End) << i;
                continue;
            }
            ASSERT_EQ(result, MibSeekResult::Found) << i;
            EXPECT_EQ(found, rows[i + k]) << i;
            EXPECT_EQ(arcsOf(full), fullName(rows[i + k])) << i;
        }
    }
    // A name before the whole view finds the first row; a row outside the chain is not indexed.
    Arcs before = P({1});
    AsnObjectIdentifier requested{static_cast<UINT>(before.size()), before.data()};
    EXPECT_EQ(mibChainSeek(head, &requested, &found, &full), MibSeekResult::Found);
    EXPECT_EQ(found, head);
    MIB_VAR_TYPE outside{};
    EXPECT_EQ(mibChainSeek(&outside, &requested, &found, &full), MibSeekResult::NotIndexed);

    // The removed column rows are not in the printed chain.
    const std::string log = closeAndReadTrace();
    EXPECT_TRUE(tracedAll(log, {"table size for sensor 13 is 3\n", "Constructed instance Oid:1.15.3:\n",
                                "  Full Oid:1.3.6.1.4.1.64999.2.10.3.5.600.40.1.2.3         ",
                                "Leaving 1 SNMPExtensionInit\n"}));
    EXPECT_EQ(log.find("  Full Oid:1.3.6.1.4.1.64999.2.10.3.5.600.40.1.2         "), std::string::npos);
}

TEST_F(ChainTest, EveryGroupWithTwoRowsGivesOneStrictlyOrderedChainRebuiltAfterClose) {
    for (uint32_t entity = 3; entity <= 14; ++entity)
        script().sizes[entity] = 2;
    ASSERT_TRUE(start({{chassisInfoEntity, 1}}));
    std::vector<const MIB_VAR_TYPE*> rows = chain();
    // 25 scalars (system and chassis) and 131 table columns of two instances each.
    ASSERT_EQ(rows.size(), 25u + 131u * 2u);
    std::map<uint32_t, int> perAttribute;
    std::set<uint32_t> writable;
    for (size_t n = 0; n < rows.size(); ++n) {
        ++perAttribute[rows[n]->HMAttribute];
        if (rows[n]->access == MIB_ACCESS_READWRITE)
            writable.insert(rows[n]->HMAttribute);
        EXPECT_EQ(rows[n]->HMEntity, static_cast<uint32_t>(rows[n]->SubTreeIndex + 1));
        EXPECT_TRUE(n == 0 || fullName(rows[n - 1]) < fullName(rows[n])) << dotted(fullName(rows[n]));
    }
    ASSERT_EQ(perAttribute.size(), 156u);
    EXPECT_EQ(perAttribute.rbegin()->first, 156u);
    EXPECT_EQ(perAttribute[25] * 10 + perAttribute[26], 12); // last chassis scalar, first processor column
    const std::set<uint32_t> thresholds = {60,  61,  62,  63,  64,  65,  122, 123, 124,
                                           125, 126, 127, 143, 144, 145, 146, 147, 148};
    EXPECT_EQ(writable, thresholds);
    EXPECT_EQ(dotted(fullName(rows[25])) + " " + dotted(fullName(rows.back())),
              kP + ".300.10.1.1.1 " + kP + ".700.10.1.5.2");
    for (int i = 2; i < MIB_SUBTREE_COUNT; ++i)
        EXPECT_TRUE(OidSubTrees[i].pMibVar && arcsOf(OidSubTrees[i].pMibVar->Oid) == Arcs({1, 1, 1})) << i;

    // Close releases the chain and the texts read, and leaves the static table as built; a
    // second init rebuilds the chain from the new sizes.
    Bindings reads({P({100, 2, 0}), P({600, 40, 1, 4, 2})});
    EXPECT_EQ(query(SNMP_EXTENSION_GET, reads).status, 0);
    SnmpExtensionClose();
    EXPECT_EQ(mibChainHead(), nullptr);
    EXPECT_EQ(hmSubagentMib[136].pMibFunc, ProcessIndexFunc);
    EXPECT_EQ(hmSubagentMib[1].value, static_cast<void*>(gMibEmptyText));
    script() = FakeScript{};
    ASSERT_TRUE(start({{temperatureProbeEntity, 1}, {driveSlotEntity, 2}}));
    rows = chain();
    ASSERT_EQ(rows.size(), 10u + 15u + 10u);
    EXPECT_EQ(dotted(arcsOf(rows[11]->Oid)) + " " + dotted(arcsOf(rows[26]->Oid)), "1.2.1 1.1.2");
    EXPECT_EQ(rows[25]->SubTreeIndex, 13);
}

TEST_F(ChainTest, AFailingFacadeStopsStartUpAndClosesTheTrace) {
    script().initStatus = CLIENT_ERROR_NOCONFIGFILE;
    EXPECT_FALSE(start({}, true));
    EXPECT_EQ(m_event, nullptr);
    EXPECT_NE(readFile(script().tracePath).find("*********** End Log ****************\n"), std::string::npos);
    // Nothing is served: the name is unknown, and a walk ends at once.
    Bindings get({P({100, 1, 0})}), next({P({100, 1, 0})});
    EXPECT_EQ(query(SNMP_EXTENSION_GET, get).status, SNMP_ERRORSTATUS_NOSUCHNAME);
    EXPECT_EQ(query(SNMP_EXTENSION_GET_NEXT, next).status, 0);
    EXPECT_EQ(next.name(0), kEndOfView);
    // A host that calls on after the FALSE (net-snmp's winExtDLL) gets no further region.
    EXPECT_FALSE(SnmpExtensionInitEx(&m_region));
}

} // namespace
} // namespace hmtest
