// The host's request and trap paths against the scripted fake extension agent
// (loaded in process) and a mock of the net-snmp calls.
#include <stdlib.h>

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "host/agentHost.h"
#include "host/entityModel.h"
#include "host/hostConfig.h"
#include "support/files.h"

namespace hmhost {
namespace {

Arcs fake(std::initializer_list<uint32_t> tail) {
    Arcs arcs{1, 3, 6, 1, 4, 1, 64999, 7};
    arcs.insert(arcs.end(), tail);
    return arcs;
}

// net-snmp's calls, recorded; registrations are real structures that the host fills in.
class FakeNetSnmp : public NetSnmp {
public:
    netsnmp_handler_registration* createHandlerRegistration(const char* name, Netsnmp_Node_Handler* handler,
                                                            const oid* root, size_t length,
                                                            int modes) override {
        this->modes.push_back(modes);
        return netsnmp_create_handler_registration(name, handler, root, length, modes);
    }
    int registerHandler(netsnmp_handler_registration* r) override {
        roots.push_back(arcsOf(r->rootoid, r->rootoid_len));
        return MIB_REGISTERED_OK;
    }
    int unregisterHandler(netsnmp_handler_registration* r) override {
        netsnmp_handler_registration_free(r);
        return ++unregistered, 0;
    }
    int registerReadfd(int fd, void (*)(int, void*), void* data) override {
        readFds.emplace_back(fd, data);
        return 0;
    }
    int unregisterReadfd(int fd) override { return readFds.emplace_back(-fd, nullptr), 0; }
    int setRequestError(netsnmp_agent_request_info*, netsnmp_request_info*, int error) override {
        return errors.push_back(error), error;
    }
    void sendV2trap(netsnmp_variable_list* vars) override {
        traps.emplace_back();
        for (netsnmp_variable_list* v = vars; v != nullptr; v = v->next_variable) {
            char text[512];
            snprint_variable(text, sizeof text, v->name, v->name_length, v);
            traps.back().push_back(text);
        }
    }

    std::vector<int> modes, errors;
    std::vector<Arcs> roots;
    std::vector<std::pair<int, void*>> readFds; // unregistered: -fd
    int unregistered = 0;
    std::vector<std::vector<std::string>> traps;
};

// One request as net-snmp hands it to a handler.
struct Request {
    explicit Request(const Arcs& name, int mode) {
        const std::vector<oid> arcs = oidsOf(name);
        snmp_varlist_add_variable(&vars, arcs.data(), arcs.size(), ASN_NULL, nullptr, 0);
        info.requestvb = vars;
        reqinfo.mode = mode;
    }
    ~Request() { snmp_free_varbind(vars); }

    netsnmp_variable_list* vars = nullptr;
    netsnmp_request_info info{};
    netsnmp_agent_request_info reqinfo{};
};

class HostTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // Printed OIDs stay numeric and no MIB files are read.
        setenv("MIBS", "", 1);
        netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT,
                           NETSNMP_OID_OUTPUT_NUMERIC);
        init_snmp("hmhosttest");
    }
    static EntryPoints fakeAgent() {
        EntryPoints entries;
        std::string error;
        EXPECT_TRUE(loadEntryPoints(HM_FAKE_AGENT_LIBRARY, entries, error)) << error;
        return entries;
    }
    void TearDown() override { unsetenv("HMFAKE_TRAPS"); }

    EntryPoints m_entries = fakeAgent();
    std::string m_error;
    FakeNetSnmp m_snmp;
    ExtensionAgent m_agent{m_entries};
    AgentHost m_host{m_snmp, m_agent};
};

// Extension statuses become what a manager expects (noSuchName and readOnly:
// RequestsAreAnsweredAsTheAgentSays), handler modes become request types.
TEST(StatusMapping, StatusesAndModes) {
    const struct {
        int32_t agent;
        bool set;
        int expected;
    } statuses[] = {
        {kNoError, false, SNMP_ERR_NOERROR},   {kBadValue, true, SNMP_ERR_WRONGVALUE},
        {kBadValue, false, SNMP_ERR_BADVALUE}, {kGenErr, false, SNMP_ERR_GENERR},
        {kGenErr, true, SNMP_ERR_GENERR},      {kTooBig, false, SNMP_ERR_TOOBIG},
        {17, true, SNMP_ERR_NOTWRITABLE},      {18, true, SNMP_ERR_INCONSISTENTNAME},
        {19, true, SNMP_ERR_GENERR},           {-1, false, SNMP_ERR_GENERR},
    };
    for (const auto& c : statuses)
        EXPECT_EQ(netSnmpStatus(c.agent, c.set, false), c.expected)
            << "status " << c.agent << " set " << c.set;
    const struct {
        int mode;
        uint32_t type; // 0: not served
    } modes[] = {
        {MODE_GET, 0xA0},       {MODE_GETNEXT, 0xA1},  {MODE_SET_RESERVE1, 0xE0},
        {MODE_SET_RESERVE2, 0}, {MODE_SET_ACTION, 0},  {MODE_SET_COMMIT, 0xA3},
        {MODE_SET_UNDO, 0xE1},  {MODE_SET_FREE, 0xE2}, {MODE_GETBULK, 0},
    };
    for (const auto& c : modes) {
        uint32_t type = 0;
        EXPECT_EQ(requestTypeFor(c.mode, type), c.type != 0) << c.mode;
        EXPECT_EQ(type, c.type) << c.mode;
    }
}

TEST_F(HostTest, RegistersEveryRegionAndWaitsOnTheTrapEvent) {
    ASSERT_TRUE(m_host.start("test", 0, m_error)) << m_error;
    EXPECT_EQ(m_snmp.modes, std::vector<int>(3, HANDLER_CAN_RWRITE));
    EXPECT_EQ(m_snmp.roots, (std::vector<Arcs>{fake({1}), fake({2}), fake({3})}));
    const int fd = m_agent.trapEventFd();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(m_snmp.readFds, (std::vector<std::pair<int, void*>>{{fd, &m_host}}));
    m_host.stop();
    EXPECT_EQ(m_snmp.readFds, (std::vector<std::pair<int, void*>>{{fd, &m_host}, {-fd, nullptr}}));
    EXPECT_EQ(m_snmp.unregistered, 3);
}

// Each request as net-snmp hands it to the region's handler: the variable it ends
// with as net-snmp prints it, and the errors set on it. GET tells a missing
// instance (the object exists) from a missing object, except with SNMPv1; GETNEXT
// stays in its region and leaves the rest to the next one; set phases are refused
// as the agent says.
TEST_F(HostTest, RequestsAreAnsweredAsTheAgentSays) {
    ASSERT_TRUE(m_host.start("test", 0, m_error));
    const std::string p = ".1.3.6.1.4.1.64999.7.";
    const struct {
        int mode;
        Arcs region, asked;
        std::string variable;
        std::vector<int> errors;
        long version = SNMP_VERSION_2c;
    } rows[] = {
        {MODE_GET, fake({1}), fake({1, 1, 0}), p + "1.1.0 = INTEGER: 42", {}},
        {MODE_GET, fake({1}), fake({1, 2, 0}), p + "1.2.0 = STRING: \"alpha\"", {}},
        {MODE_GET, fake({1}), fake({1, 3, 0}), p + "1.3.0 = INTEGER: -7", {}},
        {MODE_GET, fake({1}), fake({1, 1, 5}), p + "1.1.5 = NULL", {SNMP_NOSUCHINSTANCE}},
        {MODE_GET, fake({1}), fake({1, 9, 0}), p + "1.9.0 = NULL", {SNMP_NOSUCHOBJECT}},
        {MODE_GET, fake({3}), fake({3, 2, 7}), p + "3.2.7 = NULL", {SNMP_NOSUCHINSTANCE}},
        {MODE_GET, fake({1}), fake({1, 1, 5}), p + "1.1.5 = NULL", {SNMP_NOSUCHOBJECT}, SNMP_VERSION_1},
        {MODE_GETNEXT, fake({1}), fake({1}), p + "1.1.0 = INTEGER: 42", {}},
        {MODE_GETNEXT, fake({1}), {1, 3, 6, 1}, p + "1.1.0 = INTEGER: 42", {}}, // before the region: its root
        {MODE_GETNEXT, fake({1}), fake({1, 1, 0}), p + "1.2.0 = STRING: \"alpha\"", {}},
        {MODE_GETNEXT, fake({1}), fake({1, 3, 0}), p + "1.3.0 = NULL", {}}, // the next is in region 3
        {MODE_GETNEXT, fake({2}), fake({2}), p + "2 = NULL", {}},           // empty region
        {MODE_GETNEXT, fake({3}), fake({2, 5}), p + "3.1.1 = INTEGER: 100", {}},
        {MODE_GETNEXT, fake({3}), fake({3, 2, 1}), p + "3.2.1 = NULL", {}}, // end of the view
        {MODE_SET_RESERVE1, fake({1}), fake({1, 1, 0}), "", {SNMP_ERR_NOTWRITABLE}},
        {MODE_SET_RESERVE1, fake({1}), fake({1, 7, 0}), "", {SNMP_ERR_NOCREATION}},
        {MODE_SET_COMMIT, fake({1}), fake({1, 1, 0}), "", {SNMP_ERR_NOTWRITABLE}},
        {MODE_SET_RESERVE2, fake({1}), fake({1, 1, 0}), "", {}},
        {MODE_SET_FREE, fake({1}), fake({1, 1, 0}), "", {}},
        {MODE_SET_UNDO, fake({1}), fake({1, 1, 0}), "", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.variable + " mode " + std::to_string(row.mode));
        m_snmp.errors.clear();
        Request request(row.asked, row.mode);
        if (row.variable.empty()) {
            long value = 5;
            snmp_set_var_typed_value(request.vars, ASN_INTEGER, &value, sizeof value);
        }
        m_host.serve(row.region, &request.reqinfo, &request.info, row.version);
        char text[512];
        snprint_variable(text, sizeof text, request.vars->name, request.vars->name_length, request.vars);
        EXPECT_EQ(row.variable.empty() ? "" : text, row.variable);
        EXPECT_EQ(m_snmp.errors, row.errors);
    }
}

// The agent's traps in SNMPv2 form; a wake-up with more than 256 yields to the
// sockets and signals the event again; once the agent has no more, the event is
// consumed and nothing more comes until it is signalled again.
TEST_F(HostTest, TrapsAreCollectedInSnmpV2FormAFewHundredAWakeUp) {
    setenv("HMFAKE_TRAPS", "259", 1);
    ASSERT_TRUE(m_host.start("test", 0, m_error));
    m_host.collectTraps();
    ASSERT_EQ(m_snmp.traps.size(), 256u);
    EXPECT_EQ(m_snmp.traps[0], (std::vector<std::string>{
                                   ".1.3.6.1.2.1.1.3.0 = Timeticks: (4200) 0:00:42.00",
                                   ".1.3.6.1.6.3.1.1.4.1.0 = OID: .1.3.6.1.4.1.64999.7.1000.0.279",
                                   ".1.3.6.1.4.1.64999.7.1.1.0 = INTEGER: 259",
                                   ".1.3.6.1.4.1.64999.7.1.2.0 = STRING: \"trap 259\"",
                               }));
    m_host.collectTraps();
    ASSERT_EQ(m_snmp.traps.size(), 259u);
    EXPECT_EQ(m_snmp.traps.back()[1], ".1.3.6.1.6.3.1.1.4.1.0 = OID: .1.3.6.1.4.1.64999.7.1000.0.21");
    EXPECT_EQ(m_host.trapsSent(), 259u);
    m_host.collectTraps();
    EXPECT_EQ(m_snmp.traps.size(), 259u);
}

TEST(RoleDirective, ReadBeforeTheAgentStarts) {
    const struct {
        std::string text;
        bool ok;
        Role role;
        std::string error;
    } cases[] = {
        {"agentaddress udp:127.0.0.1:1161\n", true, Role::Master, ""},
        {"agentRole subagent\n", true, Role::Subagent, ""},
        {"  AGENTROLE   Master  \n", true, Role::Master, ""},
        {"agentRole subagent\nagentRole master\n", true, Role::Master, ""},
        {"# agentRole subagent\n", true, Role::Master, ""},
        {"rocommunity public\nagentRole boss\n", false, Role::Master,
         ": line 2: agentRole must be master or subagent"},
    };
    const hmtest::TempDir dir("hmhostrole");
    const std::string path = dir / "role.conf";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        hmtest::writeFile(path, c.text);
        Role role = Role::Master;
        std::string error;
        EXPECT_EQ(readRole(path, role, error), c.ok);
        EXPECT_EQ(std::make_pair(role, error), std::make_pair(c.role, c.ok ? "" : path + c.error));
    }
}

// What the end-to-end test over the BMC simulator cannot reach: a unit without
// its own type, an offset B finer than M, a non-linear record, a value out of
// range, a sensor on the system chassis, a second record with the same numbers.
TEST(EntityModel, EdgesOfTheRowsAndTree) {
    auto sensor = [](uint8_t number, uint8_t entity, uint8_t unit, int16_t b, uint8_t linearization,
                     double value) {
        SensorFacts s;
        s.sdr.number = number, s.sdr.entityId = entity, s.sdr.baseUnit = unit, s.sdr.rExp = -1;
        s.sdr.b = b, s.sdr.bExp = -1, s.sdr.linearization = linearization,
        s.sdr.name = "S" + std::to_string(number);
        s.state = SensorFacts::State::Read, s.value = value;
        return s;
    };
    const EntityModel model = buildModel({},
                                         {sensor(1, 23, 2, 0, 0, 98.64), sensor(2, 10, 4, 5, 0, 12.06),
                                          sensor(3, 29, 18, 0, 7, 5952.381), sensor(4, 10, 5, 0, 0, 2e8),
                                          sensor(1, 3, 1, 0, 0, 40), sensor(5, 7, 4, 0, 0x70, 1.098)},
                                         {{23, 1}});
    // index, type, precision, value, status, units
    const std::vector<std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t, std::string>> rows{
        {1032000001, kTypeOther, 1, 986, kStatusOk, "degrees F"},
        {1032000002, kTypeVoltsDc, 2, 1206, kStatusOk, "volts"},
        {1032000003, kTypeRpm, 2, 595238, kStatusOk, "RPM"},
        {1032000004, kTypeAmperes, 1, 0, kStatusUnavailable, "amps"}, // 2·10^9 tenths: out of range
        {1032000005, kTypeVoltsDc, 1, 11, kStatusOk, "volts"}};       // non-linear 0x70: the record's step
    ASSERT_EQ(model.sensors.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        const SensorRow& r = model.sensors[i];
        EXPECT_EQ(std::make_tuple(r.index, r.type, r.precision, r.value, r.status, r.unitsDisplay), rows[i]);
    }
    // index, contained in, position among siblings of its class: the chassis,
    // processor 1 (of the ignored second record), the system board, power supply 1,
    // fan 1, the sensors.
    const std::vector<int32_t> entries{1,          0,     -1, 3001,       1,     1, 7001,       1,     1,
                                       10001,      1,     1,  29001,      1,     1, 1032000001, 1,     1,
                                       1032000002, 10001, 1,  1032000003, 29001, 1, 1032000004, 10001, 2,
                                       1032000005, 7001,  1};
    ASSERT_EQ(model.entries.size() * 3, entries.size());
    for (size_t i = 0; i < model.entries.size(); ++i) {
        const PhysicalEntry& e = model.entries[i];
        EXPECT_EQ((std::vector<int32_t>{e.index, e.containedIn, e.parentRelPos}),
                  std::vector<int32_t>(entries.begin() + 3 * i, entries.begin() + 3 * i + 3));
    }
}

} // namespace
} // namespace hmhost
