// GET, GETNEXT and SET-phase requests through SnmpExtensionQueryEx against a scripted
// facade: which variable answers, which facade call it makes, the value and name the
// binding carries back, the error status and index.
#include <chrono>

#include "fakeClient.h"

#include "agent/mibHandlers.h"
#include "agent/mibTypes.h"
#include "agent/requestResolution.h"

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
    std::string lastCall() const {
        if (script().calls.empty())
            return "none";
        const FakeScript::Call& c = script().calls.back();
        return c.op + " e" + std::to_string(c.entity) + " a" + std::to_string(c.attribute) + " i" +
               std::to_string(c.index);
    }
};

struct ReadCase {
    const char* name;
    UINT type;
    Arcs requested;
    AsnInteger32 status;
    AsnInteger32 index; // -1: not written
    Arcs answered;      // the binding's name afterwards
    BYTE asnType;       // ASN_NULL: value untouched
    int32_t number;
    const char* text;
    const char* call; // last facade call, "none" when there is none
};

class Reads : public RequestTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(Reads, AnswerTheRightVariable) {
    const ReadCase& c = GetParam();
    Bindings bindings({c.requested});
    Answer a = query(c.type, bindings);
    EXPECT_EQ(a.status, c.status);
    EXPECT_EQ(a.index, c.index);
    EXPECT_EQ(dotted(bindings.name(0)), dotted(c.answered));
    ASSERT_EQ(bindings[0].value.asnType, c.asnType);
    if (c.asnType == ASN_INTEGER) {
        EXPECT_EQ(bindings[0].value.asnValue.number, c.number);
    }
    if (c.asnType == ASN_OCTETSTRING) {
        EXPECT_EQ(bindings.text(0), c.text);
        EXPECT_TRUE(bindings[0].value.asnValue.string.dynamic);
    }
    EXPECT_EQ(lastCall(), c.call);
}

constexpr UINT GET = SNMP_EXTENSION_GET;
constexpr UINT NEXT = SNMP_EXTENSION_GET_NEXT;
const BYTE I = ASN_INTEGER;
const BYTE S = ASN_OCTETSTRING;
const BYTE NUL = ASN_NULL;
const Arcs kEnterprise{1, 3, 6, 1, 4, 1, 64999};
const UINT kMax = 0xFFFFFFFFu;

Arcs longName(Arcs prefix, size_t length, UINT fill) {
    prefix.resize(length, fill);
    return prefix;
}

INSTANTIATE_TEST_SUITE_P(
    Requests, Reads,
    ::testing::Values(
        // Scalars: integers are read at index 0, strings at index 1.
        ReadCase{"GetSystemInteger", GET, P({100, 1, 0}), 0, -1, P({100, 1, 0}), I, 1000, "",
                 "info e1 a1 i0"},
        ReadCase{"GetSystemString", GET, P({100, 2, 0}), 0, -1, P({100, 2, 0}), S, 0, "sinfo:e1:a2:i1",
                 "sinfo e1 a2 i1"},
        ReadCase{"GetChassisLiveInteger", GET, P({200, 6, 0}), 0, -1, P({200, 6, 0}), I, 16000, "",
                 "data e2 a16 i0"},
        ReadCase{"GetChassisCachedInteger", GET, P({200, 7, 0}), 0, -1, P({200, 7, 0}), I, 17000, "",
                 "info e2 a17 i0"},
        // Tables: instance k is element k-1; the index column answers k without a call.
        ReadCase{"GetIndexColumn", GET, P({600, 40, 1, 1, 3}), 0, -1, P({600, 40, 1, 1, 3}), I, 3, "",
                 "none"},
        ReadCase{"GetLiveReading", GET, P({600, 40, 1, 5, 2}), 0, -1, P({600, 40, 1, 5, 2}), I, 141001, "",
                 "data e13 a141 i1"},
        ReadCase{"GetCachedColumn", GET, P({400, 30, 1, 2, 1}), 0, -1, P({400, 30, 1, 2, 1}), I, 55000, "",
                 "info e6 a55 i0"},
        ReadCase{"GetLiveString", GET, P({600, 40, 1, 4, 1}), 0, -1, P({600, 40, 1, 4, 1}), S, 0,
                 "sdata:e13:a140:i0", "sdata e13 a140 i0"},
        ReadCase{"GetCachedString", GET, P({600, 40, 1, 3, 3}), 0, -1, P({600, 40, 1, 3, 3}), S, 0,
                 "sinfo:e13:a139:i2", "sinfo e13 a139 i2"},
        // Names that are not variables.
        ReadCase{"GetColumnWithoutInstance", GET, P({600, 40, 1, 5}), 2, 1, P({600, 40, 1, 5}), NUL, 0, "",
                 "none"},
        ReadCase{"GetInstanceBeyondTable", GET, P({600, 40, 1, 5, 4}), 2, 1, P({600, 40, 1, 5, 4}), NUL, 0,
                 "", "none"},
        ReadCase{"GetEmptyTable", GET, P({700, 10, 1, 1, 1}), 2, 1, P({700, 10, 1, 1, 1}), NUL, 0, "",
                 "none"},
        ReadCase{"GetScalarWithoutZero", GET, P({100, 1}), 2, 1, P({100, 1}), NUL, 0, "", "none"},
        ReadCase{"GetEmptyName", GET, Arcs{}, 2, 1, Arcs{}, NUL, 0, "", "none"},
        // GETNEXT before, inside, between and after the subtrees.
        ReadCase{"NextFromEnterprise", NEXT, kEnterprise, 0, -1, P({100, 1, 0}), I, 1000, "",
                 "info e1 a1 i0"},
        ReadCase{"NextFromEmptyName", NEXT, Arcs{}, 0, -1, P({100, 1, 0}), I, 1000, "", "info e1 a1 i0"},
        ReadCase{"NextFromVariable", NEXT, P({100, 1, 0}), 0, -1, P({100, 2, 0}), S, 0, "sinfo:e1:a2:i1",
                 "sinfo e1 a2 i1"},
        ReadCase{"NextAcrossSubtrees", NEXT, P({100, 10, 0}), 0, -1, P({200, 1, 0}), I, 11000, "",
                 "data e2 a11 i0"},
        ReadCase{"NextOverEmptyTables", NEXT, P({200, 15, 0}), 0, -1, P({400, 30, 1, 1, 1}), I, 1, "",
                 "none"},
        ReadCase{"NextIntoEmptySubtree", NEXT, P({300}), 0, -1, P({400, 30, 1, 1, 1}), I, 1, "", "none"},
        ReadCase{"NextFromColumnWithoutInstance", NEXT, P({600, 40, 1, 5}), 0, -1, P({600, 40, 1, 5, 1}), I,
                 141000, "", "data e13 a141 i0"},
        ReadCase{"NextWrapsToNextColumn", NEXT, P({400, 30, 1, 2, 2}), 0, -1, P({400, 30, 1, 3, 1}), S, 0,
                 "sinfo:e6:a56:i0", "sinfo e6 a56 i0"},
        ReadCase{"NextFromLastVariable", NEXT, P({600, 40, 1, 15, 3}), 0, -1, kEndOfView, NUL, 0, "", "none"},
        ReadCase{"NextInEmptyLastSubtree", NEXT, P({700, 10}), 0, -1, kEndOfView, NUL, 0, "", "none"},
        ReadCase{"NextFromEndOfView", NEXT, kEndOfView, 0, -1, kEndOfView, NUL, 0, "", "none"},
        ReadCase{"NextFromBeforeEverything", NEXT, Arcs{1}, 0, -1, P({100, 1, 0}), I, 1000, "",
                 "info e1 a1 i0"},
        ReadCase{"NextFromAfterEverything", NEXT, Arcs{2}, 0, -1, kEndOfView, NUL, 0, "", "none"},
        // Overlong names, the largest arcs and request types that are no reads.
        ReadCase{"GetOf128Arcs", GET, longName(P({100, 1, 0}), 128, 0), 2, 1,
                 longName(P({100, 1, 0}), 128, 0), NUL, 0, "", "none"},
        ReadCase{"NextOf128Arcs", NEXT, longName(P({100, 1, 0}), 128, 0), 0, -1, P({100, 2, 0}), S, 0,
                 "sinfo:e1:a2:i1", "sinfo e1 a2 i1"},
        ReadCase{"NextOf128MaxArcs", NEXT, longName({}, 128, kMax), 0, -1, kEndOfView, NUL, 0, "", "none"},
        ReadCase{"GetOfMaxArcs", GET, Arcs{kMax, kMax, kMax}, 2, 1, Arcs{kMax, kMax, kMax}, NUL, 0, "",
                 "none"},
        ReadCase{"NextOfMaxArcInSubtree", NEXT, P({100, kMax}), 0, -1, P({200, 1, 0}), I, 11000, "",
                 "data e2 a11 i0"},
        ReadCase{"NextOfMaxInstance", NEXT, P({600, 40, 1, 2, kMax}), 0, -1, P({600, 40, 1, 3, 1}), S, 0,
                 "sinfo:e13:a139:i0", "sinfo e13 a139 i0"},
        ReadCase{"GetBulkOnVariable", SNMP_EXTENSION_GET_BULK, P({100, 1, 0}), 5, 1, P({100, 1, 0}), NUL, 0,
                 "", "none"},
        ReadCase{"GetBulkOnMissingName", SNMP_EXTENSION_GET_BULK, P({100, 1}), 2, 1, P({100, 1}), NUL, 0, "",
                 "none"},
        ReadCase{"TypeZeroOnVariable", 0, P({600, 40, 1, 1, 1}), 5, 1, P({600, 40, 1, 1, 1}), NUL, 0, "",
                 "none"},
        ReadCase{"TypeZeroOnMissingName", 0, Arcs{}, 2, 1, Arcs{}, NUL, 0, "", "none"},
        ReadCase{"UndoOnMissingName", SNMP_EXTENSION_SET_UNDO, P({100, 99}), 2, 1, P({100, 99}), NUL, 0, "",
                 "none"},
        ReadCase{"CleanupOnVariable", SNMP_EXTENSION_SET_CLEANUP, P({100, 2, 0}), 0, -1, P({100, 2, 0}), NUL,
                 0, "", "none"}),
    [](const ::testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST_F(RequestTest, AFailingBindingStopsTheListAndNamesItsPosition) {
    Bindings bindings({P({100, 1, 0}), P({600, 40, 1, 5}), P({100, 2, 0})});
    Answer a = query(SNMP_EXTENSION_GET, bindings);
    EXPECT_EQ(a.status, SNMP_ERRORSTATUS_NOSUCHNAME);
    EXPECT_EQ(a.index, 2);
    EXPECT_EQ(bindings[0].value.asnType, ASN_INTEGER);
    EXPECT_EQ(bindings[2].value.asnType, ASN_NULL); // never reached
}

TEST_F(RequestTest, AFailingFacadeReadIsGenErrOnGetAndEndOfViewOnGetNext) {
    script().failingAttributes[141] = CLIENT_ERROR_NOELEMENT;
    Bindings get({P({100, 1, 0}), P({600, 40, 1, 5, 1})});
    Answer a = query(SNMP_EXTENSION_GET, get);
    EXPECT_EQ(a.status, SNMP_ERRORSTATUS_GENERR);
    EXPECT_EQ(a.index, 2);

    Bindings next({P({600, 40, 1, 4, 3})});
    a = query(SNMP_EXTENSION_GET_NEXT, next);
    EXPECT_EQ(a.status, SNMP_ERRORSTATUS_NOERROR);
    EXPECT_EQ(a.index, -1);
    EXPECT_EQ(next.name(0), kEndOfView);
}

TEST_F(RequestTest, AllBindingsServedLeavesTheErrorIndexAlone) {
    Bindings bindings({P({100, 1, 0}), P({100, 2, 0}), P({600, 40, 1, 1, 2}), P({400, 30, 1, 4, 2})});
    Answer a = query(SNMP_EXTENSION_GET, bindings);
    EXPECT_EQ(a.status, 0);
    EXPECT_EQ(a.index, -1);
    EXPECT_EQ(bindings.text(1), "sinfo:e1:a2:i1");
    EXPECT_EQ(bindings[2].value.asnValue.number, 2);
    EXPECT_EQ(bindings.text(3), "sdata:e6:a57:i1");
}

TEST_F(RequestTest, AStringVariableKeepsItsTextWhenTheFacadeHandsOutNone) {
    Bindings first({P({100, 6, 0})});
    ASSERT_EQ(query(SNMP_EXTENSION_GET, first).status, 0);
    EXPECT_EQ(first.text(0), "sinfo:e1:a6:i1");
    script().nullTextAttributes[6] = true;
    Bindings again({P({100, 6, 0})});
    ASSERT_EQ(query(SNMP_EXTENSION_GET, again).status, 0);
    EXPECT_EQ(again.text(0), "sinfo:e1:a6:i1");
    // A variable never read answers the empty text.
    script().nullTextAttributes[7] = true;
    Bindings never({P({100, 7, 0})});
    ASSERT_EQ(query(SNMP_EXTENSION_GET, never).status, 0);
    EXPECT_EQ(never.text(0), "");
}

TEST_F(RequestTest, AReusedBindingReleasesWhatItHeldBefore) {
    // One binding walked over strings and integers, as a service reusing its list
    // would; the leak check at exit catches a stream left behind.
    Bindings walk({P({100, 1, 0})});
    walk.setString(0, "left over from the request");
    for (int n = 0; n < 12; ++n)
        ASSERT_EQ(query(SNMP_EXTENSION_GET_NEXT, walk).status, 0);
    EXPECT_EQ(walk.name(0), P({200, 3, 0}));
    EXPECT_EQ(walk[0].value.asnValue.number, 13000);

    Bindings wrongType({P({100, 8, 0}), P({100, 3, 0})});
    wrongType.setInteger(0, 99);
    wrongType.setString(1, "text on an integer");
    ASSERT_EQ(query(SNMP_EXTENSION_GET, wrongType).status, 0);
    EXPECT_EQ(wrongType.text(0), "sinfo:e1:a8:i1");
    EXPECT_EQ(wrongType[1].value.asnType, ASN_INTEGER);
    EXPECT_EQ(wrongType[1].value.asnValue.number, 3000);
}

struct SetCase {
    const char* name;
    Arcs variable;
    BYTE valueType;
    bool setsEnabled;
    UINT phase;
    AsnInteger32 status;
    const char* call; // last facade call
};

class Sets : public RequestTest, public ::testing::WithParamInterface<SetCase> {};

TEST_P(Sets, AnswerByAccessConfigurationAndType) {
    const SetCase& c = GetParam();
    script().setsEnabled = c.setsEnabled;
    Bindings bindings({c.variable});
    if (c.valueType == ASN_INTEGER)
        bindings.setInteger(0, 55);
    else
        bindings.setString(0, "55");
    script().calls.clear();
    Answer a = query(c.phase, bindings);
    EXPECT_EQ(a.status, c.status);
    EXPECT_EQ(a.index, c.status == 0 ? -1 : 1);
    EXPECT_EQ(lastCall(), c.call);
    EXPECT_EQ(bindings.name(0), c.variable);
}

constexpr UINT TEST = SNMP_EXTENSION_SET_TEST;
constexpr UINT COMMIT = SNMP_EXTENSION_SET_COMMIT;
constexpr UINT UNDO = SNMP_EXTENSION_SET_UNDO;
constexpr UINT CLEANUP = SNMP_EXTENSION_SET_CLEANUP;
const Arcs kThreshold = P({600, 40, 1, 7, 1});

INSTANTIATE_TEST_SUITE_P(
    Requests, Sets,
    ::testing::Values(
        SetCase{"ThresholdWrongTypeSetsDisabled", kThreshold, S, false, TEST, 4, "none"},
        SetCase{"ThresholdWrongTypeSetsEnabled", kThreshold, S, true, TEST, 3, "none"},
        SetCase{"ThresholdTestSetsEnabled", kThreshold, I, true, TEST, 0, "none"},
        SetCase{"ThresholdCommitSetsDisabled", kThreshold, I, false, COMMIT, 4, "none"},
        SetCase{"ThresholdCommitSetsEnabled", kThreshold, I, true, COMMIT, 0, "readback e13 a143 i0"},
        SetCase{"VoltageThresholdCommit", P({400, 30, 1, 12, 2}), I, true, COMMIT, 0, "readback e6 a65 i1"},
        SetCase{"ThresholdUndo", kThreshold, I, true, UNDO, 0, "none"},
        SetCase{"ThresholdCleanup", kThreshold, S, false, CLEANUP, 0, "none"},
        SetCase{"ReadOnlyInteger", P({600, 40, 1, 5, 1}), I, true, TEST, 4, "none"},
        SetCase{"ReadOnlyScalarInteger", P({100, 3, 0}), I, true, COMMIT, 4, "none"},
        SetCase{"ReadOnlyString", P({100, 2, 0}), S, true, TEST, 4, "none"},
        SetCase{"IndexColumn", P({600, 40, 1, 1, 1}), I, true, COMMIT, 4, "none"},
        SetCase{"ColumnWithoutInstance", P({600, 40, 1, 7}), I, true, TEST, 2, "none"},
        SetCase{"EmptyTable", P({700, 10, 1, 1, 1}), I, true, TEST, 2, "none"}),
    [](const ::testing::TestParamInfo<SetCase>& info) { return std::string(info.param.name); });

TEST_F(RequestTest, ACommitReportsTheReadBackNotTheSet) {
    script().setsEnabled = true;
    script().tracePath = scratchPath("trace.log");
    openDebugLog(script().tracePath.c_str(), 10);
    Bindings bindings({kThreshold});
    bindings.setInteger(0, 77);

    script().setStatus = CLIENT_ERROR_NOTSUPPORTED;
    EXPECT_EQ(query(SNMP_EXTENSION_SET_COMMIT, bindings).status, 0);
    ASSERT_GE(script().calls.size(), 2u);
    const FakeScript::Call& set = script().calls[script().calls.size() - 2];
    EXPECT_EQ(set.op, "set");
    EXPECT_EQ(set.value, 77);

    script().setStatus = CLIENT_SUCCESS;
    script().readBackStatus = CLIENT_ERROR_NOELEMENT;
    EXPECT_EQ(query(SNMP_EXTENSION_SET_COMMIT, bindings).status, SNMP_ERRORSTATUS_GENERR);

    const std::string log = closeAndReadTrace();
    EXPECT_TRUE(traced(log, "Calling SetFunc for SensorCode:13 MibVarCode:143 index:0 value:77\n"));
    EXPECT_TRUE(traced(log, "After set status:4\n"));
    EXPECT_TRUE(traced(log, "AFter set value is:143000\n"));
    EXPECT_TRUE(traced(log, "After set status:0\n"));
    EXPECT_TRUE(traced(log, "AFter set value is:77\n"));
    EXPECT_TRUE(traced(log, "oops...didn't get CLIENT_SUCCESS\n"));
}

// The handlers on their own: index columns and strings refuse every SET phase,
// integers accept all but the commit without calling the facade.
TEST_F(RequestTest, HandlersAnswerEverySetPhase) {
    const int indexRow = 136, stringRow = 1, thresholdRow = 142; // static rows of attributes 137, 2, 143
    const struct {
        PMIBFUNC handler;
        int row;
        std::vector<UINT> types;
        UINT status;
    } cases[] = {
        {ProcessIndexFunc, indexRow, {TEST, COMMIT, UNDO, CLEANUP, 0xA5, 0}, 5},
        {ProcessStringFunc, stringRow, {TEST, COMMIT, UNDO, CLEANUP, 0xA5, 0}, 5},
        {ProcessIntegerFunc, thresholdRow, {TEST, UNDO, CLEANUP}, 0},
        {ProcessIntegerFunc, thresholdRow, {0xA5, 0}, 5},
    };
    for (const auto& c : cases) {
        for (UINT type : c.types) {
            MIB_VAR_TYPE row = hmSubagentMib[c.row];
            SnmpVarBind binding{};
            binding.value.asnType = ASN_INTEGER;
            script().calls.clear();
            EXPECT_EQ(c.handler(type, &row, &binding), c.status) << c.row << " " << type;
            EXPECT_TRUE(script().calls.empty());
            EXPECT_EQ(row.value, hmSubagentMib[c.row].value);
        }
    }
}

TEST_F(RequestTest, ResolutionAndHandlersTraceTheirSteps) {
    script().tracePath = scratchPath("trace.log");
    openDebugLog(script().tracePath.c_str(), 10);
    script().failingAttributes[139] = CLIENT_ERROR_NOELEMENT;
    script().nullTextAttributes[10] = true;
    Bindings next({kEnterprise});
    query(SNMP_EXTENSION_GET_NEXT, next);
    Bindings gets({P({600, 40, 1, 5, 2}), P({100, 2, 0}), P({100, 10, 0})});
    query(SNMP_EXTENSION_GET, gets);
    Bindings top({P({300, 10, 1, 1, 1})});
    query(SNMP_EXTENSION_GET, top);
    Bindings failing({P({600, 40, 1, 3, 1})});
    query(SNMP_EXTENSION_GET, failing);
    Bindings last({P({600, 40, 1, 15, 3})});
    query(SNMP_EXTENSION_GET_NEXT, last);
    Bindings set({P({100, 1, 0})});
    set.setInteger(0, 1);
    query(SNMP_EXTENSION_SET_TEST, set);

    const std::string log = closeAndReadTrace();
    for (const char* line : {
             "Setting new varBind name to 1.3.6.1.4.1.64999.2.10.3.5.100.1.0\n",
             "Printing MIB_VAR_TYPE \n",
             "HMAttribute=141 \n",
             "HMEntity=13 \n",
             "SubTreeIndex=12 \n",
             "asnType=2 \n",
             "Oid=1.5.2 \n",
             "UseLiveData=1 \n",
             "Found varbind match\n",
             "Calling GetFunc for SensorCode:13 MibVarCode:141 index:1\n",
             "ProcessStringFunc Calling GetFunc for SensorCode:1 MibVarCode:2 index:1\n",
             "string got assigned:sinfo:e1:a2:i1:\n",
             "string got NULL\n",
             "OOPS..didn't get CLIENT_SUCCESS\n",
             "Leaving ProcessLeafNode status:0\n",
             "Leaving ProcessLeafNode status:5\n",
             "Starting search at the top\n",
             "no such name found\n",
             "we searched to the bottom of the mib\n",
             "Leaving ProcessLeafNode status:2\n",
             "no access\n",
             "Leaving ProcessLeafNode status:4\n",
         })
        EXPECT_TRUE(traced(log, line)) << line;
}

TEST_F(RequestTest, EmptyOrMissingListsAreAnsweredWithoutTouchingTheOutputs) {
    Bindings empty({});
    Answer a = query(SNMP_EXTENSION_GET, empty);
    EXPECT_EQ(a.status, -1);
    EXPECT_EQ(a.index, -1);

    SnmpVarBindList broken{nullptr, 3};
    AsnInteger32 status = -1;
    AsnInteger32 index = -1;
    EXPECT_TRUE(SnmpExtensionQueryEx(SNMP_EXTENSION_GET, 0, &broken, nullptr, &status, &index));
    EXPECT_TRUE(SnmpExtensionQueryEx(SNMP_EXTENSION_GET, 0, nullptr, nullptr, &status, &index));
    EXPECT_EQ(status, -1);
    EXPECT_EQ(index, -1);
}

TEST_F(RequestTest, ANameWithoutArcsButWithALengthIsNoSuchName) {
    SnmpVarBind binding{};
    binding.name = AsnObjectIdentifier{4, nullptr};
    binding.value.asnType = ASN_NULL;
    SnmpVarBindList list{&binding, 1};
    AsnInteger32 status = -1;
    AsnInteger32 index = -1;
    EXPECT_TRUE(SnmpExtensionQueryEx(SNMP_EXTENSION_GET, 0, &list, nullptr, &status, &index));
    EXPECT_EQ(status, SNMP_ERRORSTATUS_NOSUCHNAME);
    EXPECT_EQ(index, 1);
}

TEST_F(RequestTest, AHundredThousandMixedRequestsKeepNoMemory) {
    script().record = false;
    Bindings walk({kEnterprise});
    Bindings gets({P({100, 2, 0}), P({600, 40, 1, 4, 2}), P({400, 30, 1, 5, 1})});
    Bindings missing({P({600, 40, 1, 5, 9})});
    int wraps = 0;
    for (int n = 0; n < 100000; ++n) {
        switch (n % 4) {
        case 0:
        case 1: {
            ASSERT_EQ(query(SNMP_EXTENSION_GET_NEXT, walk).status, 0);
            if (walk.name(0) == kEndOfView) {
                ++wraps;
                Arcs start = kEnterprise;
                AsnObjectIdentifier oid{static_cast<UINT>(start.size()), start.data()};
                SnmpUtilOidFree(&walk[0].name);
                SnmpUtilOidCpy(&walk[0].name, &oid);
            }
            break;
        }
        case 2:
            ASSERT_EQ(query(SNMP_EXTENSION_GET, gets).status, 0);
            break;
        default:
            ASSERT_EQ(query(SNMP_EXTENSION_GET, missing).status, SNMP_ERRORSTATUS_NOSUCHNAME);
        }
    }
    // 50,000 steps over a view of 10 + 15 + 30 + 45 variables and its end.
    EXPECT_EQ(wraps, 50000 / 101);
    EXPECT_EQ(gets.text(1), "sdata:e13:a140:i1");
}

} // namespace
} // namespace hmtest
