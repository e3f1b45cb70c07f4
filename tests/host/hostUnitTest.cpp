// The host's pure parts: status and mode mapping, the role directive, the entity
// model. (Requests and traps through the daemon and the scripted agent: hostE2eTest.)
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

// Extension statuses become what a manager expects (noSuchName and readOnly:
// TheScriptedAgentIsAnsweredAndItsTrapsSent), handler modes become request types.
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

// (Its error message, with the file and line: BadConfigurationsStopTheDaemonWithTheirMessage.)
TEST(RoleDirective, ReadBeforeTheAgentStarts) {
    const struct {
        std::string text;
        bool ok;
        Role role;
    } cases[] = {
        {"agentRole subagent\n", true, Role::Subagent},
        {"  AGENTROLE   Master  \n", true, Role::Master},
        {"agentRole subagent\nagentRole master\n", true, Role::Master},
        {"# agentRole subagent\n", true, Role::Master},
        {"rocommunity public\nagentRole boss\n", false, Role::Master},
    };
    const hmtest::TempDir dir("hmhostrole");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        hmtest::writeFile(dir / "role.conf", c.text);
        Role role = Role::Master;
        std::string error;
        const bool ok = readRole(dir / "role.conf", role, error);
        EXPECT_EQ(std::make_tuple(ok, role, error.empty()), std::make_tuple(c.ok, c.role, c.ok));
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
