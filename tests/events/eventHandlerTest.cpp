// The event queue, the health lists, the traps built from queued records, and the
// clones that turn decoded events into queued records.

#include <cstring>
#include <future>
#include <list>

#include "agent/agentApi.h"
#include "core/hmClientApi.h"
#include "events/eventHandler.h"
#include "events/eventInterface.h"
#include "events/eventSink.h"
#include "support/fakeClient.h"
#include "trapHarness.h"

namespace {

const std::string kEvent = kP + ".1000";
using Ids = std::list<int32_t>;

Trap takeTrap(eventHandler& handler) {
    AsnObjectIdentifier enterprise = {0, nullptr};
    AsnInteger32 specific = 0;
    SnmpVarBindList list = {nullptr, 0};
    int32_t flag = -1;
    const uint32_t status = handler.processEvent(&enterprise, &specific, &list, &flag);
    return takeBuilt(enterprise, specific, list, status, flag);
}

// A handler started with the facade's overall health at `health`, the facade installed.
struct Started {
    explicit Started(int32_t health) {
        client.handler = &h;
        client.health = health;
        EXPECT_EQ(h.init(), 0u);
    }
    FakeClient client;
    ScopedClient scope{&client};
    eventHandler h;
};

// Each test starts with a handler at health ok, its trace open.
class EventHandlerTest : public ::testing::Test {
protected:
    // The sink the front end installs at start-up, for the clones.
    void SetUp() override { setEventSink({&addEvent, &AssertTrap, &IsInitDone}); }

    ScopedTrace m_trace;
    Started s{3};
    FakeClient& client = s.client;
    eventHandler& handler = s.h;
};

TEST_F(EventHandlerTest, EmptyQueueGivesNoTrapAndUnwantedGroupsAreDroppedInTheSameCall) {
    Trap trap = takeTrap(handler);
    EXPECT_EQ(trap.status, 0u);
    EXPECT_EQ(trap.flag, 0);

    handler.addEvent(makeEvent(7, 5, 1, "Lower Critical going low"));
    handler.addEvent(makeEvent(14, 4, 12, "Upper Non-critical going high", 2, "CPU Temp"));
    trap = takeTrap(handler);
    EXPECT_EQ(trap.flag, 1);
    EXPECT_EQ(trap.enterprise, kEvent + ".70.17");
    EXPECT_NE(m_trace.text().find(
                  "Event is not one we care about\nCheck if the event is one we care about\nEvent is 14"),
              std::string::npos);
    // Performance events have builders but are never sent, and never counted.
    handler.addEvent(makeEvent(17, 5, 2, "performance is lagging"));
    handler.addEvent(makeEvent(18, 5, 3, "performance is lagging"));
    handler.addEvent(makeEvent(0, 6, 4, "Lower"));
    EXPECT_EQ(takeTrap(handler).enterprise, kEvent + ".20.4"); // the temperature event's health change
    EXPECT_EQ(takeTrap(handler).flag, 0);
    EXPECT_EQ(handler.queuedEvents(), 0u);
    EXPECT_EQ(client.healthStores, std::vector<int32_t>({4}));
}

// Devices already listed when an event arrives decide the new health.
TEST_F(EventHandlerTest, RemainingListedDevicesDecideTheHealth) {
    {
        // A critical device never lowers a non-recoverable health...
        Started t(6);
        t.h.insertElementByDeviceId(20, 6);
        t.h.insertElementByDeviceId(21, 5);
        t.h.addEvent(makeEvent(15, 3, 20, ""));
        EXPECT_EQ(takeTrap(t.h).enterprise, kEvent + ".50.13");
        EXPECT_TRUE(t.h.nonRecoverableList().empty());
        EXPECT_EQ(t.h.criticalList(), Ids({21}));
        EXPECT_TRUE(t.client.healthStores.empty());
        // ...until the last critical device recovers: all lists are empty, the health is ok.
        t.h.addEvent(makeEvent(15, 3, 21, "", 2));
        takeTrap(t.h);
        expectHealthTrap(takeTrap(t.h), 3, "nonRecoverable to ok");
    }
    // A non-critical device lowers a critical health.
    Started t(5);
    t.h.insertElementByDeviceId(30, 5);
    t.h.insertElementByDeviceId(31, 4);
    t.h.addEvent(makeEvent(12, 3, 30, "the processor's presence has been detected"));
    EXPECT_EQ(takeTrap(t.h).enterprise, kEvent + ".40.7");
    expectHealthTrap(takeTrap(t.h), 4, "critical to nonCritical");
    // A device that turns critical, then back to non-critical, leaves its old list each time.
    t.h.addEvent(makeEvent(15, 5, 31, ""));
    takeTrap(t.h);
    expectHealthTrap(takeTrap(t.h), 5, "nonCritical to critical");
    t.h.addEvent(makeEvent(15, 4, 31, ""));
    takeTrap(t.h);
    EXPECT_TRUE(t.h.criticalList().empty());
    EXPECT_EQ(t.h.nonCriticalList(), Ids({31}));
    expectHealthTrap(takeTrap(t.h), 4, "critical to nonCritical");
}

TEST_F(EventHandlerTest, SeverityOutsideTheVocabularyIsNotListedButSetsTheHealth) {
    handler.addEvent(makeEvent(14, 7, 12, "Upper"));
    for (int record = 0; record < 2; ++record) { // the health record itself has no trap either
        const Trap trap = takeTrap(handler);
        EXPECT_EQ(trap.status, 9u); // no event OID for severity 7
        EXPECT_EQ(trap.flag, 0);
        EXPECT_TRUE(trap.bindings.empty());
    }
    EXPECT_TRUE(handler.criticalList().empty() && handler.nonRecoverableList().empty());
    EXPECT_EQ(client.healthStores, std::vector<int32_t>({7}));
}

TEST_F(EventHandlerTest, OtherAndUnknownHealthAreNotRaisedToOkByEmptyLists) {
    const struct {
        int32_t health, severity, expected;
    } rows[] = {{2, 2, 2}, {2, 1, 2}, {1, 1, 1}, {2, 3, 3}, {1, 4, 4}, {3, 3, 3}, {3, 1, 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.health) + " <- " + std::to_string(row.severity));
        Started fresh(row.health);
        int32_t newHealth = -1;
        const uint32_t change = fresh.h.needHealthEvent(row.severity, &newHealth);
        EXPECT_EQ(change, row.expected != row.health ? 1u : 0u);
        if (change != 0) {
            EXPECT_EQ(newHealth, row.expected);
        }
    }
}

// Texts that fill their whole field, unterminated, are cut at the field's end; so are
// the texts of a decoded event that are longer than their record fields.
TEST_F(EventHandlerTest, LongAndUnterminatedTextsAreCut) {
    eventData e = makeEvent(19, 3, 8, "");
    std::memset(e.stDeviceDesc, 'b', sizeof(e.stDeviceDesc));
    std::memset(e.stEventDesc, 'e', sizeof(e.stEventDesc));
    const char* inserted = "Bay 0 reports the device has been inserted or is present";
    std::memcpy(e.stEventDesc, inserted, std::strlen(inserted));
    std::memset(e.stTimeStamp, 't', sizeof(e.stTimeStamp));
    std::memset(e.stSensorType, 's', sizeof(e.stSensorType));
    handler.addEvent(e);
    const Trap trap = takeTrap(handler);
    EXPECT_EQ(trap.enterprise, kEvent + ".100.2");
    ASSERT_EQ(trap.bindings.size(), 4u);
    EXPECT_EQ(trap.bindings[0].text.size(), 1023u);
    EXPECT_EQ(trap.bindings[2].text, std::string(127, 'b'));

    CEventWrapper event = eventWrapper(1, std::string(300, 'd').c_str(), "OK");
    event.setTimeStamp(std::string(200, 't'));
    event.setSensorType(std::string(128, 's'));
    runEventClone(*findEventClone(12), event);
    ASSERT_EQ(client.added.size(), 1u);
    EXPECT_EQ(std::string(client.added[0].stEventDesc), std::string(128, 'd'));
    EXPECT_EQ(std::string(client.added[0].stTimeStamp), std::string(127, 't'));
    EXPECT_EQ(std::string(client.added[0].stSensorType), std::string(127, 's'));
}

// Two threads queue events while another drains them into traps: each one's events come
// out once, in the order queued.
TEST_F(EventHandlerTest, EventsQueuedByOtherThreadsComeOutOnceInOrder) {
    constexpr int kEvents = 20000; // by each producer
    closeDebugLog();               // a trace of this size says nothing more
    const auto text = [](int producer, int i) {
        return "system boot event has occurred #" + std::to_string(producer) + "." + std::to_string(i);
    };
    const auto produce = [&](int producer) {
        for (int i = 0; i < kEvents; ++i)
            handler.addEvent(makeEvent(2, 3, 0, text(producer, i).c_str()));
    };
    std::thread first(produce, 0), second(produce, 1);
    int next[2] = {0, 0};
    for (int polls = 0; next[0] + next[1] < 2 * kEvents && polls < 100000000; ++polls) {
        const Trap trap = takeTrap(handler);
        if (trap.flag == 0) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(trap.bindings.size(), 2u);
        const int producer = trap.bindings[0].text.find("#1.") != std::string::npos ? 1 : 0;
        ASSERT_EQ(trap.bindings[0].text, text(producer, next[producer]++));
    }
    first.join();
    second.join();
    EXPECT_EQ(next[0] + next[1], 2 * kEvents);
    EXPECT_EQ(handler.queuedEvents(), 0u);
}

// The health lock is given back after every event, whether it moves the health or not:
// the SNMP service may take traps on more than one thread, and while the thread that
// handled them lives on, another thread's trap still gets through.
TEST_F(EventHandlerTest, HealthLockIsFreeAfterAnotherThreadsTrap) {
    std::promise<void> traded, finish;
    std::thread first([&] {
        handler.addEvent(makeEvent(14, 5, 12, "Lower Critical going low", 2, "CPU Temp"));
        takeTrap(handler); // the device's trap, which moves the health
        takeTrap(handler); // the health trap
        handler.addEvent(makeEvent(14, 3, 15, "Lower Critical going low", 4, "VR Temp")); // health stays
        takeTrap(handler);
        traded.set_value();
        finish.get_future().wait();
    });
    traded.get_future().wait();
    auto second = std::async(std::launch::async, [&] {
        handler.addEvent(makeEvent(14, 6, 13, "Lower Non-recoverable going low", 3, "PCH Temp"));
        takeTrap(handler);
    });
    // Far beyond any wait for a free lock: a lock never given back is held until the first thread ends.
    const bool through = second.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    finish.set_value();
    first.join();
    second.wait();
    EXPECT_TRUE(through);
    EXPECT_EQ(handler.healthStatus(), 6);
}

// Each clone's own table is the end-to-end test's (the named events); here the device
// looked for in a second table, not found, or found without a description.
TEST_F(EventHandlerTest, ClonesFallBackToTheirSecondTable) {
    client.positions[{11, 5}] = 2; // in the first table of the fan clones
    client.names[{11, 1}] = "FAN1";
    client.positions[{12, 5}] = 7; // and in their second table: the first one wins
    client.positions[{12, 6}] = 4; // device 6 only in the second table
    client.names[{12, 3}] = "Fan Redundancy";
    client.positions[{7, 6}] = 2;
    client.names[{7, 1}] = "VBAT status";
    client.positions[{13, 7}] = 9; // found, but its row has no description
    const struct {
        int32_t type, device, instance;
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
    }
}

} // namespace
