// The event interface and the clones that turn decoded events into queued records.

#include "agent/agentApi.h"
#include "core/hmClientApi.h"
#include "events/eventInterface.h"
#include "events/eventSink.h"
#include "support/fakeClient.h"
#include "trapHarness.h"

namespace {

class EventCloneTest : public ::testing::Test {
protected:
    // The sink the front end installs at start-up.
    void SetUp() override { setEventSink({&addEvent, &AssertTrap, &IsInitDone}); }

    std::string trace() { return m_trace.text(); }

    ScopedTrace m_trace;
    FakeClient client;
    ScopedClient scope{&client};
};

// Each clone's own table is the end-to-end test's (the named events); here the device
// looked for in a second table, not found, or found without a description.
TEST_F(EventCloneTest, ClonesFallBackToTheirSecondTable) {
    client.positions[{11, 5}] = 2; // in the first table of the fan clones
    client.names[{11, 1}] = "FAN1";
    client.positions[{12, 5}] = 7; // and in their second table: the first one wins
    client.positions[{12, 6}] = 4; // device 6 only in the second table
    client.names[{12, 3}] = "Fan Redundancy";
    client.positions[{7, 6}] = 2;
    client.names[{7, 1}] = "VBAT status";
    client.positions[{13, 7}] = 9; // found, but its row has no description
    const struct {
        int type;
        int32_t device;
        int32_t instance;
        const char* name;
    } rows[] = {{4, 5, 2, "FAN1"}, {4, 6, 4, "Fan Redundancy"}, {5, 6, 4, "Fan Redundancy"}, {14, 6, 0, ""},
                {14, 7, 9, ""},    {15, 6, 2, "VBAT status"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.type) + "/" + std::to_string(row.device));
        client.added.clear();
        CEventWrapper event = eventWrapper(row.device, "Upper Critical going high", "Error");
        EXPECT_EQ(runEventClone(*findEventClone(row.type), event), 1);
        ASSERT_EQ(client.added.size(), 1u);
        const eventData& e = client.added[0];
        EXPECT_EQ(e.nEventGroup, row.type);
        EXPECT_EQ(e.nDeviceID, row.device);
        EXPECT_EQ(e.nInstIndex, row.instance);
        EXPECT_STREQ(e.stDeviceDesc, row.name);
        EXPECT_STREQ(e.stEventDesc, "Upper Critical going high");
        EXPECT_EQ(e.nSeverity, 5);
        EXPECT_STREQ(e.stTimeStamp, "11/21/2026 22:10:05");
        EXPECT_STREQ(e.stSensorType, "Temperature");
    }
}

TEST_F(EventCloneTest, LongTextsAreCut) {
    CEventWrapper event = eventWrapper(1, std::string(300, 'd').c_str(), "OK");
    event.setTimeStamp(std::string(200, 't'));
    event.setSensorType(std::string(128, 's'));
    runEventClone(*findEventClone(12), event);
    ASSERT_EQ(client.added.size(), 1u);
    EXPECT_EQ(std::string(client.added[0].stEventDesc), std::string(128, 'd'));
    EXPECT_EQ(std::string(client.added[0].stTimeStamp), std::string(127, 't'));
    EXPECT_EQ(std::string(client.added[0].stSensorType), std::string(127, 's'));
}

TEST_F(EventCloneTest, TemperatureCloneTracesEachStep) {
    client.positions[{13, 12}] = 2;
    client.names[{13, 1}] = "CPU Temp";
    CEventWrapper event = eventWrapper(12, "Lower Critical going low", "Error");
    runEventClone(*findEventClone(14), event);
    EXPECT_NE(trace().find(
                  "\n SNMP_TemperatureSensorEventClone::HandleEvent Called:"
                  "\n The value of IsAsserted is 1:"
                  "\n\n The value of deviceId is 12:"
                  "\n\n The value of nInstIndex is 2:"
                  "\n The value of getLength is :24 :"
                  "SNMP_TemperatureSensorEventClone::HandleEvent GetDescription:Lower Critical going low:\n"
                  "\n The length of getStatus is :5 :"
                  "\n Inside SNMP_TemperatureEventClone EventGroup : 14:"),
              std::string::npos)
        << trace();
}

} // namespace
