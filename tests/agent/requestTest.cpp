// GET, GETNEXT and SET-phase requests through SnmpExtensionQueryEx against a scripted
// facade: which variable answers, which facade call it makes, the value and name the
// binding carries back, the error status and index.
#include "agentFixture.h"

#include "agent/mibHandlers.h"

namespace hmtest {
namespace {

// The groups every request test runs with: system and chassis scalars, two voltage
// probes and three temperature probes; every other group is empty.
class RequestTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        ASSERT_TRUE(start({{chassisInfoEntity, 1}, {voltageProbeEntity, 2}, {temperatureProbeEntity, 3}}));
    }
};

constexpr UINT GET = SNMP_EXTENSION_GET, NEXT = SNMP_EXTENSION_GET_NEXT, BULK = SNMP_EXTENSION_GET_BULK;
constexpr UINT TEST = SNMP_EXTENSION_SET_TEST, COMMIT = SNMP_EXTENSION_SET_COMMIT;
constexpr UINT UNDO = SNMP_EXTENSION_SET_UNDO, CLEANUP = SNMP_EXTENSION_SET_CLEANUP;
const BYTE I = ASN_INTEGER, S = ASN_OCTETSTRING, NUL = ASN_NULL;
const Arcs kEnterprise{1, 3, 6, 1, 4, 1, 64999};
const UINT kMax = 0xFFFFFFFFu;

// A SET phase carries the value 55 of the row's type, and the binding keeps it.
TEST_F(RequestTest, RequestsAnswerTheRightVariable) {
    const Arcs kThreshold = P({600, 40, 1, 7, 1});
    Arcs kLong = P({100, 1, 0});
    kLong.resize(128, 0); // the longest name
    const struct {
        UINT type;
        Arcs requested;
        AsnInteger32 status; // the index is 1 with an error, not written without
        Arcs answered;       // the binding's name afterwards; empty: as requested
        BYTE asnType;
        const char* value;
        const char* call;          // last facade call, "none" when there is none
        bool setsDisabled = false; // by the configuration
    } rows[] = {
        // Scalars: integers are read at index 0, strings at index 1.
        {GET, P({100, 1, 0}), 0, {}, I, "1000", "info e1 a1 i0"},
        {GET, P({100, 2, 0}), 0, {}, S, "sinfo:e1:a2:i1", "sinfo e1 a2 i1"},
        {GET, P({200, 6, 0}), 0, {}, I, "16000", "data e2 a16 i0"}, // live
        {GET, P({200, 7, 0}), 0, {}, I, "17000", "info e2 a17 i0"}, // cached
        // Tables: instance k is element k-1; the index column answers k without a call.
        {GET, P({600, 40, 1, 1, 3}), 0, {}, I, "3", "none"},
        {GET, P({600, 40, 1, 5, 2}), 0, {}, I, "141001", "data e13 a141 i1"},
        {GET, P({600, 40, 1, 4, 1}), 0, {}, S, "sdata:e13:a140:i0", "sdata e13 a140 i0"},
        // Names that are not variables: a column, an instance beyond the table, an empty
        // table, a scalar without .0, no name.
        {GET, P({600, 40, 1, 5}), 2, {}, NUL, "", "none"},
        {GET, P({600, 40, 1, 5, 4}), 2, {}, NUL, "", "none"},
        {GET, P({700, 10, 1, 1, 1}), 2, {}, NUL, "", "none"},
        {GET, P({100, 1}), 2, {}, NUL, "", "none"},
        // GETNEXT before, inside, between and after the subtrees.
        {NEXT, kEnterprise, 0, P({100, 1, 0}), I, "1000", "info e1 a1 i0"},
        {NEXT, P({100, 1, 0}), 0, P({100, 2, 0}), S, "sinfo:e1:a2:i1", "sinfo e1 a2 i1"},
        {NEXT, P({100, 10, 0}), 0, P({200, 1, 0}), I, "11000", "data e2 a11 i0"},
        {NEXT, P({200, 15, 0}), 0, P({400, 30, 1, 1, 1}), I, "1", "none"}, // over empty tables
        {NEXT, P({600, 40, 1, 5}), 0, P({600, 40, 1, 5, 1}), I, "141000", "data e13 a141 i0"},
        {NEXT, P({400, 30, 1, 2, 2}), 0, P({400, 30, 1, 3, 1}), S, "sinfo:e6:a56:i0", "sinfo e6 a56 i0"},
        {NEXT, P({600, 40, 1, 15, 3}), 0, kEndOfView, NUL, "", "none"},
        {NEXT, Arcs{2}, 0, kEndOfView, NUL, "", "none"},
        // Overlong names, the largest arcs and request types that are no reads.
        {GET, kLong, 2, {}, NUL, "", "none"},
        {NEXT, kLong, 0, P({100, 2, 0}), S, "sinfo:e1:a2:i1", "sinfo e1 a2 i1"},
        {NEXT, P({100, kMax}), 0, P({200, 1, 0}), I, "11000", "data e2 a11 i0"},
        {BULK, P({100, 1, 0}), 5, {}, NUL, "", "none"},
        {0, P({600, 40, 1, 1, 1}), 5, {}, NUL, "", "none"},
        {UNDO, P({100, 99}), 2, {}, NUL, "", "none"},
        {CLEANUP, P({100, 2, 0}), 0, {}, NUL, "", "none"},
        // SET phases by access, configuration and type.
        {TEST, kThreshold, 4, {}, S, "55", "none", true},
        {TEST, kThreshold, 3, {}, S, "55", "none"},
        {TEST, kThreshold, 0, {}, I, "55", "none"},
        {COMMIT, kThreshold, 4, {}, I, "55", "none", true},
        {COMMIT, kThreshold, 0, {}, I, "55", "data e13 a143 i0"},
        {COMMIT, P({400, 30, 1, 12, 2}), 0, {}, I, "55", "data e6 a65 i1"},
        {TEST, P({100, 2, 0}), 4, {}, S, "55", "none"},
        {TEST, P({600, 40, 1, 7}), 2, {}, I, "55", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.type) + " " + dotted(row.requested));
        script().calls.clear();
        script().setsEnabled = !row.setsDisabled;
        Bindings bindings({row.requested});
        if (row.type == TEST || row.type == COMMIT)
            row.asnType == I ? bindings.setInteger(0, 55) : bindings.setString(0, "55");
        Answer a = query(row.type, bindings);
        EXPECT_EQ(a.status * 10 + a.index, row.status ? row.status * 10 + 1 : -1);
        EXPECT_EQ(dotted(bindings.name(0)), dotted(row.answered.empty() ? row.requested : row.answered));
        EXPECT_EQ(bindings[0].value.asnType, row.asnType);
        EXPECT_EQ(bindings.value(0), row.value);
        EXPECT_EQ(script().calls.empty() ? "none" : script().calls.back(), row.call);
    }
}

TEST_F(RequestTest, ListsStopAtTheFirstFailingBindingAndNameItsPosition) {
    Bindings all({P({100, 2, 0}), P({600, 40, 1, 1, 2})}),
        missing({P({100, 1, 0}), P({600, 40, 1, 5}), P({100, 2, 0})});
    EXPECT_EQ(query(GET, all).index, -1);
    EXPECT_EQ(all.value(0) + " " + all.value(1), "sinfo:e1:a2:i1 2");
    Answer a = query(GET, missing);
    EXPECT_EQ(a.status * 10 + a.index, SNMP_ERRORSTATUS_NOSUCHNAME * 10 + 2);
    EXPECT_EQ(missing.value(0) + "|" + missing.value(2), "1000|"); // the third is never reached
    // A failing facade read is genErr on GET and the end of the view on GETNEXT.
    script().failingAttributes[141] = CLIENT_ERROR_NOELEMENT;
    Bindings get({P({100, 1, 0}), P({600, 40, 1, 5, 1})}), next({P({600, 40, 1, 4, 3})});
    a = query(GET, get);
    EXPECT_EQ(a.status * 10 + a.index, SNMP_ERRORSTATUS_GENERR * 10 + 2);
    EXPECT_EQ(query(NEXT, next).index, -1);
    EXPECT_EQ(next.name(0), kEndOfView);
    // Empty or missing lists, and a name with a length but no arcs.
    SnmpVarBind binding{};
    binding.name = AsnObjectIdentifier{4, nullptr};
    binding.value.asnType = ASN_NULL;
    SnmpVarBindList empty{nullptr, 0}, missingList{nullptr, 3}, noArcs{&binding, 1};
    for (SnmpVarBindList* list : {&empty, &missingList, &noArcs, static_cast<SnmpVarBindList*>(nullptr)}) {
        AsnInteger32 status = -1, index = -1;
        EXPECT_TRUE(SnmpExtensionQueryEx(GET, 0, list, nullptr, &status, &index));
        EXPECT_EQ(status * 10 + index, list == &noArcs ? SNMP_ERRORSTATUS_NOSUCHNAME * 10 + 1 : -11);
    }
}

TEST_F(RequestTest, BindingsKeepOrReleaseTheirTexts) {
    // A string variable keeps its text when the facade hands out none; one never read is empty.
    Bindings first({P({100, 6, 0})});
    ASSERT_EQ(query(GET, first).status, 0);
    script().nullTextAttributes = {6, 7};
    Bindings again({P({100, 6, 0}), P({100, 7, 0})});
    ASSERT_EQ(query(GET, again).status, 0);
    EXPECT_EQ(again.text(0) + "|" + again.text(1), "sinfo:e1:a6:i1|");
    // One binding walked over strings and integers, as a service reusing its list would;
    // the leak check at exit catches a stream left behind.
    Bindings walk({P({100, 1, 0})});
    walk.setString(0, "left over from the request");
    for (int n = 0; n < 12; ++n)
        ASSERT_EQ(query(NEXT, walk).status, 0);
    EXPECT_EQ(dotted(walk.name(0)) + " " + walk.value(0), kP + ".200.3.0 13000");
    Bindings wrongType({P({100, 8, 0}), P({100, 3, 0})});
    wrongType.setInteger(0, 99);
    wrongType.setString(1, "text on an integer");
    ASSERT_EQ(query(GET, wrongType).status, 0);
    EXPECT_EQ(wrongType.value(0) + " " + wrongType.value(1), "sinfo:e1:a8:i1 3000");
}

// A commit answers by the read-back, not by the set. The trace is the only observable of
// the descriptor dump and of each step's outcome.
TEST_F(RequestTest, ACommitReportsTheReadBackAndEveryStepIsTraced) {
    openTrace();
    script().setsEnabled = true;
    script().setStatus = CLIENT_ERROR_NOTSUPPORTED;
    Bindings commit({P({600, 40, 1, 7, 1})}), next({P({600, 40, 1, 15, 3})}), test({P({100, 1, 0})});
    commit.setInteger(0, 77);
    test.setInteger(0, 1);
    EXPECT_EQ(query(COMMIT, commit).status, 0);
    EXPECT_EQ(script().calls.at(script().calls.size() - 2), "set e13 a143 i0 =77");
    script().failingAttributes[143] = CLIENT_ERROR_NOELEMENT; // the read-back fails
    EXPECT_EQ(query(COMMIT, commit).status, SNMP_ERRORSTATUS_GENERR);
    EXPECT_EQ(query(NEXT, next).status + query(TEST, test).status, SNMP_ERRORSTATUS_READONLY);
    EXPECT_TRUE(tracedAll(closeAndReadTrace(),
                          {"Printing MIB_VAR_TYPE \n", "Oid=1.7.1 \n", "After set status:4\n",
                           "AFter set value is:143000\n", "Leaving ProcessLeafNode status:0\n",
                           "Leaving ProcessLeafNode status:5\n", "we searched to the bottom of the mib\n",
                           "Leaving ProcessLeafNode status:2\n", "Leaving ProcessLeafNode status:4\n"}));
}

// The handlers on their own: index columns and strings refuse every SET phase and unknown
// request types; integers accept all SET phases but the commit without calling the facade.
TEST_F(RequestTest, HandlersAnswerEverySetPhase) {
    const PMIBFUNC handlers[] = {ProcessIndexFunc, ProcessStringFunc, ProcessIntegerFunc};
    const int rows[] = {136, 1, 142}; // static rows of attributes 137, 2 and 143
    for (int h = 0; h < 3; ++h)
        for (UINT type : {TEST, UNDO, CLEANUP, 0xA5u, 0u, h < 2 ? COMMIT : 0u}) {
            MIB_VAR_TYPE row = hmSubagentMib[rows[h]];
            SnmpVarBind binding{};
            script().calls.clear();
            EXPECT_EQ(handlers[h](type, &row, &binding), h == 2 && type >= TEST ? 0u : 5u)
                << h << " " << type;
            EXPECT_TRUE(script().calls.empty());
            EXPECT_EQ(row.value, hmSubagentMib[rows[h]].value);
        }
}

// The walk restarts from an empty name at the end of the view.
TEST_F(RequestTest, AHundredThousandMixedRequestsKeepNoMemory) {
    Bindings walk({kEnterprise}), gets({P({100, 2, 0}), P({600, 40, 1, 4, 2})}),
        missing({P({600, 40, 1, 5, 9})});
    int wraps = 0;
    for (int n = 0; n < 50000; ++n) {
        script().calls.clear();
        ASSERT_EQ(query(NEXT, walk).status, 0);
        if (walk.name(0) == kEndOfView && ++wraps)
            SnmpUtilOidFree(&walk[0].name);
        ASSERT_EQ(query(GET, n % 2 ? gets : missing).status, n % 2 ? 0 : SNMP_ERRORSTATUS_NOSUCHNAME);
    }
    // 50,000 steps over a view of 10 + 15 + 30 + 45 variables and its end.
    EXPECT_EQ(wraps, 50000 / 101);
}

} // namespace
} // namespace hmtest
