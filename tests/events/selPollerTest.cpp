// SEL entries added to a running simulated server become traps: through the poller,
// the decoders, the event clones, the event queue and SnmpExtensionTrap.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "agent/agentApi.h"
#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "support/fakeClient.h"
#include "kelvarn/Errors.h"
#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "trapHarness.h"

namespace {

// The client facade of the tests: table rows as set below, events queued into the
// test's event handler.
class SelClient : public FakeClient {
public:
    static std::string s_tracePath;
    static SelClient* s_current;

    SelClient() {
        s_current = this;
        trapsEnabled = true;
        const struct {
            uint32_t entity;
            uint32_t device;
            uint32_t position;
            const char* name;
        } rows[] = {
            {13, 1, 1, "CPU1 Temp"},
            {6, 16, 4, "P12V"},
            {11, 48, 2, "FAN1"},
            {12, 57, 1, "FAN6 Presence"},
            {10, 56, 1, "Fan Redundancy"},
            {3, 80, 1, "CPU1"},
            {5, 64, 1, "PSU1"},
            {9, 96, 3, "DIMM A1"},
            {14, 112, 1, "Drive 0"},
        };
        for (const auto& row : rows) {
            positions[{row.entity, row.device}] = row.position;
            names[{row.entity, row.position - 1}] = row.name;
        }
    }
    ~SelClient() override { s_current = nullptr; }
    uint32_t init() override {
        openDebugLog(s_tracePath.c_str(), 1);
        return CLIENT_SUCCESS;
    }
    uint32_t getTableSize(uint32_t entity) override { return entity == systemManagementEntity ? 1 : 0; }
};
std::string SelClient::s_tracePath;
SelClient* SelClient::s_current = nullptr;

subagentBase* makeSelClient() {
    return new SelClient();
}

// A simulated server whose whole description the test replaces at will.
class TestSource : public kelvarn::Source {
public:
    explicit TestSource(kelvarn::PlatformModel model) : m_model(std::move(model)) {}
    std::string describe() const override { return "SEL test server"; }
    std::vector<kelvarn::Bytes> sdrRepository() override {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_model.sdr;
    }
    bool sensorReading(const kelvarn::SensorAddress& address, kelvarn::SensorReading& out) override {
        std::lock_guard<std::mutex> guard(m_lock);
        auto it = m_model.readings.find(address);
        if (it == m_model.readings.end()) {
            return false;
        }
        out = it->second;
        return true;
    }
    std::vector<kelvarn::SelEntry> selEntries() override {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_model.sel;
    }
    kelvarn::Inventory inventory() override {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_model.inventory;
    }
    void replace(const kelvarn::PlatformModel& model) {
        std::lock_guard<std::mutex> guard(m_lock);
        m_model = model;
    }

private:
    std::mutex m_lock;
    kelvarn::PlatformModel m_model;
};

// The 16 bytes of a system event record from the BMC (owner 0x20, LUN 0).
std::array<uint8_t, 16> selRaw(uint16_t id, uint8_t sensorType, uint8_t sensorNumber, uint8_t eventType,
                               uint8_t offset, bool deassertion) {
    return {static_cast<uint8_t>(id),
            static_cast<uint8_t>(id >> 8),
            0x02,
            0x00,
            0x5e,
            0x20,
            0x69,
            0x20,
            0x00,
            0x04,
            sensorType,
            sensorNumber,
            static_cast<uint8_t>(eventType | (deassertion ? 0x80 : 0)),
            offset,
            0xff,
            0xff};
}

class SelPollerTest : public ::testing::Test {
protected:
    void SetUp() override {
        SelClient::s_tracePath = m_trace.path();

        m_model = kelvarn::loadPlatformFile(HM_TEST_DATA_DIR "/sel/sel-platform.json");
        m_source = std::make_shared<TestSource>(m_model);
        kelvarn::setProcessResponder(kelvarn::makePlatformResponder(m_source));

        resetSelPoller();
        setSelPollSleep(parkPoller);
        setHandOffRetrySleep(recordRetrySleep);
        g_retrySleeps.clear();
        setClientFactory(makeSelClient);

        HANDLE trapEvent = nullptr;
        AsnObjectIdentifier region = {0, nullptr};
        ASSERT_TRUE(SnmpExtensionInit(0, &trapEvent, &region));
        m_bStarted = true;
        freshHandler();
        int regions = 0;
        while (SnmpExtensionInitEx(&region) && regions < 100) {
            ++regions;
        }
        // The poller thread traces once, then waits for ever.
        for (int i = 0; i < 500 && trace().find("\n Inside the PollForEvent Function") == std::string::npos;
             ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_NE(trace().find("\n Inside the PollForEvent Function"), std::string::npos);
    }

    void TearDown() override {
        if (m_bStarted) {
            SnmpExtensionClose();
        }
        setClientFactory(nullptr);
        destroyHMClient();
        kelvarn::setProcessResponder(nullptr);
        setHandOffRetrySleep(nullptr);
    }

    // A new event handler with empty health lists and overall health ok.
    void freshHandler() {
        ASSERT_NE(SelClient::s_current, nullptr);
        m_handler = std::make_unique<eventHandler>();
        SelClient::s_current->health = 3;
        SelClient::s_current->handler = m_handler.get();
        ASSERT_EQ(m_handler->init(), 0u);
    }

    void addEntry(const std::array<uint8_t, 16>& raw) {
        kelvarn::SelEntry entry;
        entry.raw = raw;
        m_model.sel.push_back(entry);
        m_source->replace(m_model);
    }

    // The trace text from `mark` on.
    std::string trace() { return m_trace.text(); }
    size_t traceMark() { return trace().size(); }
    std::string traceSince(size_t mark) { return trace().substr(mark); }

    kelvarn::PlatformModel m_model;
    std::shared_ptr<TestSource> m_source;
    std::unique_ptr<eventHandler> m_handler;
    ScopedTrace m_trace{false}; // opened by the client's init
    bool m_bStarted = false;
};

// ---- traps the named events of selSimEndToEndTest.cpp do not reach --------------

// Lower fan thresholds crossed going high; the device row is the second of its table.
TEST_F(SelPollerTest, LowerFanThresholdsGoingHighBecomeTheirTraps) {
    ASSERT_EQ(CheckForNewSELEntry(), 0); // the first poll only records where the SEL ends
    const struct {
        uint8_t offset;
        TrapShape trap;
        const char* healthChange;
        int32_t health;
    } rows[] = {
        {1, {"70", 6, "Lower Non-critical going high", 4, "600.20", 2, "FAN1", 48}, "ok to nonCritical", 4},
        {3, {"70", 5, "Lower Critical going high", 5, "600.20", 2, "FAN1", 48}, "ok to critical", 5},
        {5,
         {"70", 4, "Lower Non-recoverable going high", 6, "600.20", 2, "FAN1", 48},
         "ok to nonRecoverable",
         6},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.offset));
        freshHandler();
        addEntry(selRaw(id++, 0x04, 48, 0x01, row.offset, false));
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        const std::vector<Trap> traps = collectTraps();
        ASSERT_EQ(traps.size(), 2u);
        expectTrap(traps[0], row.trap);
        expectHealthTrap(traps[1], row.health, row.healthChange);
    }
    EXPECT_TRUE(g_retrySleeps.empty());
}

// Events whose kind has no trap: the event interface refuses them, the decoder tries
// five times with a 30 s pause after each attempt, and the event is lost.
TEST_F(SelPollerTest, EventsWithoutATrapAreTriedFiveTimesThenLost) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const struct {
        const char* name;
        uint8_t sensorType, sensorNumber, eventType, offset;
        const char* interfaceCheck; // traced before each attempt
        int32_t type;               // refused type code
    } rows[] = {
        {"watchdog", 0x23, 145, 0x6F, 1, "\n-->WatchDog Event Occurred inside interface check<--\n", 16},
        {"platform security", 0x06, 129, 0x6F, 0,
         "\n-->PlatformSecurity Event Occurred inside interface check<--\n", 13},
        {"OEM sensor type", 0xC0, 200, 0x70, 3, "\n-->Generic Event Occurred inside interface check<--\n", 6},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_retrySleeps.clear();
        const size_t mark = traceMark();
        addEntry(selRaw(id++, row.sensorType, row.sensorNumber, row.eventType, row.offset, false));
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(5, 30000));
        EXPECT_TRUE(collectTraps().empty());
        const std::string t = traceSince(mark);
        size_t attempts = 0;
        for (size_t at = t.find(row.interfaceCheck); at != std::string::npos;
             at = t.find(row.interfaceCheck, at + 1)) {
            ++attempts;
        }
        EXPECT_EQ(attempts, 5u);
    }
}

TEST_F(SelPollerTest, PowerUnitEventsOtherThanRedundancyAreDropped) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const size_t mark = traceMark();
    addEntry(selRaw(3, 0x09, 67, 0x6F, 4, false));
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_TRUE(collectTraps().empty());
    EXPECT_TRUE(g_retrySleeps.empty());
    const std::string t = traceSince(mark);
    EXPECT_NE(
        t.find("Power Unit event occured.\nPower Unit ucEventType:= 6f \nPower Unit m_ucEventType:= 6f \n"
               "Power Unit t_EventStruct.ucEventTrigger:= 6f \n"),
        std::string::npos);
    EXPECT_EQ(t.find("_EventOccurred Function"), std::string::npos);
}

// A fan presence sensor whose record says it is ignored while absent: removal is normal.
TEST_F(SelPollerTest, FanPresenceFollowsTheSensorsPresenceFlag) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const struct {
        uint8_t sensor, offset;
        bool deassertion;
        int32_t severity;
    } rows[] = {
        {57, 0, false, 5}, {57, 0, true, 3}, {57, 1, false, 3}, {57, 1, true, 3},
        {58, 0, false, 3}, {58, 0, true, 3}, {58, 1, false, 3}, {58, 1, true, 5},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.sensor) + "/" + std::to_string(row.offset) +
                     (row.deassertion ? "d" : "a"));
        freshHandler();
        addEntry(selRaw(id++, 0x04, row.sensor, 0x08, row.offset, row.deassertion));
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        const std::vector<Trap> traps = collectTraps();
        ASSERT_FALSE(traps.empty());
        EXPECT_EQ(traps[0].eventOid, kP + ".1000.70.7");
        EXPECT_EQ(traps[0].bindings[1].number, row.severity);
        EXPECT_EQ(traps[0].bindings[0].text,
                  row.offset == 0 ? "Device Removed/Device Absent" : "Device Inserted/Device Present");
    }
}

// ---- the poller's own rules -----------------------------------------------------

TEST_F(SelPollerTest, FirstPollRecordsTheEndOfTheSelThenEqualEntriesAreSkipped) {
    size_t mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    std::string t = traceSince(mark);
    EXPECT_NE(
        t.find("\n\n Inside the CheckForNewSELEntry function::\n\nRECORD_ID = ffff.\n\n Before CR call\n"
               "\n Using /BMC/SEL/TRANSLATED - 6"),
        std::string::npos)
        << t;
    EXPECT_NE(t.find("Sel[0] = 02 00 02 10 ad 1f 69 20 00 04 07 50 6f 07 ff ff.\n"
                     "\n The SEL entry is 02 00 02 10 ad 1f 69 20 00 04 07 50 6f 07 ff ff:"
                     "\n The value of RecordType is 2:\n The value of SensorType is 7:"
                     "\n The value of SensorNumber is 80:\n The value of RecordID is 2:"
                     "\n Last record = 2 this recordID =2:"
                     "First time reading the SEL. Structures related to SEL are initialized now.\n"),
              std::string::npos)
        << t;
    EXPECT_EQ(selLastRecordId(), 2);
    EXPECT_TRUE(collectTraps().empty());

    mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    t = traceSince(mark);
    EXPECT_NE(t.find("RECORD_ID = 2.\n"), std::string::npos);
    EXPECT_NE(t.find("Last and current SEL entries are equal.\n"), std::string::npos);
    EXPECT_EQ(t.find("SEL Start"), std::string::npos);
}

TEST_F(SelPollerTest, NewEntriesAreRoutedInSelOrderAndTheKnownOneIsSkipped) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    addEntry(selRaw(3, 0x07, 80, 0x6F, 0, false));
    addEntry(selRaw(4, 0x07, 80, 0x6F, 1, false));
    addEntry(selRaw(5, 0x07, 80, 0x6F, 2, false));
    const size_t mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    std::vector<int32_t> specifics;
    for (const Trap& trap : collectTraps()) {
        if (trap.enterprise == kP + ".1000.40") {
            specifics.push_back(trap.specific);
        }
    }
    EXPECT_EQ(specifics, (std::vector<int32_t>{1, 2, 3}));
    EXPECT_EQ(selLastRecordId(), 5);
    const std::string t = traceSince(mark);
    EXPECT_NE(t.find("\n ------------------- SEL Start -----------------\nThis is last SEL record, so skip\n"
                     "\n SelEntry = 03 00 02 00 5e 20 69 20 00 04 07 50 6f 00 ff ff"),
              std::string::npos)
        << t;
    EXPECT_NE(t.find("\nBefore comparing DESCR\n\nInside comparing DESCR\n\n Discription = "
                     "Processor CPU1 Status | IERR | Asserted"
                     "\nBefore comparing TIMESTAMP\n\nEnd of loop\n"),
              std::string::npos);
    EXPECT_NE(t.find("\nInside comparing TIMESTAMP\n\n sTimeStamp = 2025-11-21 12:41:36\nEnd of loop\n"),
              std::string::npos);
    EXPECT_NE(t.find("\nGet data is completed!\nTime stamp is assigned!Sensor type is assigned!"
                     "Event trigger is assigned!\n Check new SEL entry = 0"
                     "\n Inside the routeEvent Function:Check event Struct"
                     "\n Inside the routeEvent Function:After memory allocation"
                     "\n Inside the routeEvent Function:After memory Copy =2\n"
                     "\n Inside the routeEvent Function: String comparioson failed!!\n"
                     "\n Inside the routeEvent Function:After comparison\n"
                     "\n Inside RouteEventFunction the value of RecordType is 2:  "
                     "\n\n The sensorType inside RouteEvent Function is 7:  "
                     "\n The value of SensorType is 7:  "
                     "\n Inside the routeEvent Function: Sensor type check switch = 7"
                     "\n Inside Processor_EventOccurred Function"),
              std::string::npos);
    EXPECT_NE(t.find("\n ------------------- SEL End -----------------\n"), std::string::npos);
}

TEST_F(SelPollerTest, ClearedSelIsAskedForFromTheNewestEntryAgain) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    ASSERT_EQ(selLastRecordId(), 2);
    // The BMC clears its SEL and logs the clearing as record 1.
    m_model.sel.clear();
    addEntry(selRaw(1, 0x10, 146, 0x6F, 2, false));

    size_t mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    std::string t = traceSince(mark);
    EXPECT_NE(t.find("\nGet Last SEL record error\n\nQuery Failed to get the Last Record\n\nOperation: 2"
                     "\n failed Error code. 1089  -\nSel record ID = 2 is not valid. SEL may be cleared."),
              std::string::npos)
        << t;
    EXPECT_EQ(selLastRecordId(), 65535);

    mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    t = traceSince(mark);
    EXPECT_NE(t.find("RECORD_ID = ffff.\n"), std::string::npos);
    EXPECT_TRUE(collectTraps().empty()); // the newest entry is taken as known
    EXPECT_EQ(selLastRecordId(), 1);

    // Entries logged after the clearing are routed again.
    addEntry(selRaw(2, 0x07, 80, 0x6F, 0, false));
    mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_NE(traceSince(mark).find("RECORD_ID = 1.\n"), std::string::npos);
    const std::vector<Trap> traps = collectTraps();
    ASSERT_FALSE(traps.empty());
    EXPECT_EQ(traps[0].eventOid, kP + ".1000.40.1");
}

TEST_F(SelPollerTest, RestartedRecordNumberingLeavesTheLastRecordId) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    addEntry(selRaw(1, 0x07, 80, 0x6F, 1, false)); // numbered from 1 again
    size_t mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_NE(traceSince(mark).find("\n Last record = 2 this recordID =1:"), std::string::npos);
    EXPECT_EQ(selLastRecordId(), 2);
    const std::vector<Trap> traps = collectTraps();
    ASSERT_FALSE(traps.empty());
    EXPECT_EQ(traps[0].specific, 2);

    mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    const std::string t = traceSince(mark);
    EXPECT_NE(t.find("RECORD_ID = 2.\n"), std::string::npos);
    EXPECT_NE(t.find("Last and current SEL entries are equal.\n"), std::string::npos);
}

TEST_F(SelPollerTest, ThreeThousandNewEntriesTakeTwoPolls) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    for (uint16_t id = 3; id < 3003; ++id) {
        kelvarn::SelEntry entry;
        entry.raw = selRaw(id, 0x07, 80, 0x6F, 7, false); // presence: information, no health change
        m_model.sel.push_back(entry);
    }
    m_source->replace(m_model);
    closeDebugLog(); // a trace of this size says nothing more

    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 3001); // RANGE 3000 holds the known entry and 2999 new ones
    EXPECT_EQ(collectTraps().size(), 2999u);
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 3002);
    EXPECT_EQ(collectTraps().size(), 1u);
    EXPECT_EQ(CheckForNewSELEntry(), 0);
}

// ---- RAW texts that are not 16 bytes ----------------------------------------------

// Answers the SEL path with scripted RAW texts (every entry, oldest first) and every
// other path from the simulated server.
class ScriptedSel : public kelvarn::Responder {
public:
    ScriptedSel(std::shared_ptr<kelvarn::Responder> platform) : m_platform(std::move(platform)) {}
    std::vector<std::string> raw;
    bool clearedOnce = false; // the next SEL query fails as for a record the SEL lost

    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>& segments,
                const kelvarn::Parameters& params, uint8_t flags, kelvarn::ResultMap& out) override {
        if (path != "/BMC/SEL/TRANSLATED") {
            m_platform->answer(path, segments, params, flags, out);
            return;
        }
        if (clearedOnce) {
            clearedOnce = false;
            throw kelvarn::QueryError(kelvarn::kSelRecordNotFound, "test: the SEL was cleared");
        }
        _XNode list;
        list.NodeType = 1;
        for (size_t k = 0; k < raw.size(); ++k) {
            const std::string stem = path + "[" + std::to_string(k) + "]";
            _XNode entry;
            entry.NodeType = 1;
            entry.Values = {stem + "/RAW", stem + "/DESCR", stem + "/TIMESTAMP"};
            out[stem] = entry;
            out[stem + "/RAW"].Values = {raw[k]};
            out[stem + "/DESCR"].Values = {"scripted entry " + std::to_string(k)};
            out[stem + "/TIMESTAMP"].Values = {"2026-11-21 23:00:00"};
            list.Values.push_back(stem);
        }
        out[path] = list;
    }

private:
    std::shared_ptr<kelvarn::Responder> m_platform;
};

TEST_F(SelPollerTest, ShortLongAndNonHexadecimalEntriesAreDecodedWithoutOverread) {
    auto scripted = std::make_shared<ScriptedSel>(kelvarn::makePlatformResponder(m_source));
    scripted->raw = {"01 00 02 00 00 00 00 20 00 04 07 50 6f 07 ff ff"};
    kelvarn::setProcessResponder(scripted);
    ASSERT_EQ(CheckForNewSELEntry(), 0);

    std::string forty = "02 00 02 00 00 00 00 20 00 04 07 50 6f 00 ff ff";
    for (int i = 0; i < 24; ++i) {
        forty += " 6f";
    }
    scripted->raw.push_back("03 00 02 00 00"); // sensor type 0: the generic decoder
    scripted->raw.push_back(forty);            // processor IERR; the rest ignored
    scripted->raw.push_back("04 00 02 xx yy 00 00 20 00 04 07 50 6f 01 ff ff"); // thermal trip
    g_retrySleeps.clear();
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    std::vector<int32_t> processor;
    for (const Trap& trap : collectTraps()) {
        if (trap.enterprise == kP + ".1000.40") {
            processor.push_back(trap.specific);
        }
    }
    EXPECT_EQ(processor, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(5, 30000)); // the five-token entry, refused
    EXPECT_EQ(selLastRecordId(), 4);
    EXPECT_EQ(static_cast<int64_t>(selCurrentRecord().llTimeStamp), 0);
    EXPECT_STREQ(selCurrentRecord().stDescription, "scripted entry 3");
}

// ---- decoders that stop, refuse or refine --------------------------------------

// Records every path asked for and fails the ones listed.
class WatchedPlatform : public kelvarn::Responder {
public:
    explicit WatchedPlatform(std::shared_ptr<kelvarn::Responder> platform)
        : m_platform(std::move(platform)) {}
    std::vector<std::string> asked;
    std::vector<std::string> failing;

    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>& segments,
                const kelvarn::Parameters& params, uint8_t flags, kelvarn::ResultMap& out) override {
        asked.push_back(path);
        for (const std::string& f : failing) {
            if (path == f) {
                throw kelvarn::QueryError(kelvarn::kSourceUnavailable, "test: the BMC does not answer");
            }
        }
        m_platform->answer(path, segments, params, flags, out);
    }

private:
    std::shared_ptr<kelvarn::Responder> m_platform;
};

TEST_F(SelPollerTest, DecodersStopOnRefusedEventsAndFailedLookUps) {
    auto watched = std::make_shared<WatchedPlatform>(kelvarn::makePlatformResponder(m_source));
    kelvarn::setProcessResponder(watched);
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const struct {
        const char* name;
        uint8_t sensorType, sensorNumber, eventType, offset;
        const char* failing; // path the BMC does not answer, or ""
        const char* traced;  // expected in the trace of the poll
    } rows[] = {
        {"fan with a sensor-specific event", 0x04, 48, 0x6F, 0, "", "\n Inside Fan_EventOccurred Function"},
        {"drive slot presence event type", 0x0D, 112, 0x08, 0, "",
         "CDriveSlotEvent::EventOccurred Event is not triggered for Drive Slot Presence Sensor with "
         "EventType "
         "Value 8. Returning FALSE."},
        {"drive slot rebuild offset", 0x0D, 112, 0x6F, 7, "",
         "\n ucEventOffset= 7 \n\n The sensor specific drive slot events were not handled. \n"},
        {"memory without its SDR", 0x0C, 96, 0x6F, 0, "/BMC/SDR",
         "Query Failed to get the SDR's Operation: 1on :/BMC/SDR failed Error code. 1086  -"},
        {"temperature without its SDR", 0x01, 1, 0x01, 9, "/BMC/SDR/SENSOR_TYPE[1]",
         "\n Temperature_EventOccurred SensorNamequery failed"},
        {"temperature without its name", 0x01, 1, 0x01, 9, "/BMC/SENSOR[0]/NAME",
         "\n Temperature_EventOccurred SensorNamequery failed"},
        {"fan without its name", 0x04, 48, 0x01, 9, "/BMC/SENSOR[2]/NAME", "Query Failed to get the SDR's "},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        watched->failing = {row.failing};
        watched->asked.clear();
        const size_t mark = traceMark();
        addEntry(selRaw(id++, row.sensorType, row.sensorNumber, row.eventType, row.offset, false));
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        EXPECT_TRUE(collectTraps().empty());
        EXPECT_TRUE(g_retrySleeps.empty());
        const std::string t = traceSince(mark);
        EXPECT_NE(t.find(row.traced), std::string::npos) << t;
        EXPECT_EQ(t.find("HandleEvent starting"), std::string::npos);
        // Only the poll itself when the event type is refused.
        if (row.failing[0] == '\0') {
            EXPECT_EQ(watched->asked, std::vector<std::string>{"/BMC/SEL/TRANSLATED"});
        }
    }
}

TEST_F(SelPollerTest, RedundancyStatusFollowsTheSensor) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const struct {
        const char* name;
        uint8_t sensorType, sensorNumber, eventType, offset;
        bool deassertion;
        const char* enterprise;
        int32_t specific;
        int32_t severity;
        bool note; // a REDUNDANCY_LOST note on the standard error stream
    } rows[] = {
        // A cooling device that is no redundancy sensor: lost redundancy is an error,
        // degraded redundancy is noted only.
        {"cooling unit redundancy lost", 0x0A, 59, 0x6F, 1, false, "70", 3, 5, false},
        {"cooling unit redundancy regained", 0x0A, 59, 0x6F, 1, true, "70", 1, 3, false},
        {"cooling unit redundancy degraded", 0x0A, 59, 0x6F, 2, false, "70", 1, 3, true},
        {"cooling unit fully redundant gone", 0x0A, 59, 0x6F, 0, true, "70", 1, 3, false},
        // A redundancy sensor: lost redundancy is reported through its degraded states.
        {"fan redundancy lost", 0x04, 56, 0x0B, 1, false, "70", 1, 3, false},
        {"fan redundancy beyond the states", 0x04, 56, 0x0B, 9, false, "70", 3, 5, false},
        // A power unit whose reading asserts no state at all reports OK.
        {"idle power spare lost", 0x09, 68, 0x0B, 1, false, "50", 1, 3, false},
        {"power redundancy beyond the states", 0x09, 66, 0x0B, 8, false, "50", 3, 5, false},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        freshHandler();
        addEntry(selRaw(id++, row.sensorType, row.sensorNumber, row.eventType, row.offset, row.deassertion));
        testing::internal::CaptureStderr();
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(err.find("REDUNDANCY_LOST") != std::string::npos, row.note) << err;
        const std::vector<Trap> traps = collectTraps();
        ASSERT_FALSE(traps.empty());
        EXPECT_EQ(traps[0].eventOid, kP + ".1000." + row.enterprise + "." + std::to_string(row.specific));
        EXPECT_EQ(traps[0].bindings[1].number, row.severity);
    }
}

// The ignored temperature offset still reaches the queue, with no status: no trap.
TEST_F(SelPollerTest, TemperatureOffsetFiveCarriesNoStatus) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    const size_t mark = traceMark();
    addEntry(selRaw(3, 0x01, 1, 0x01, 5, false));
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_TRUE(collectTraps().empty());
    const std::string t = traceSince(mark);
    EXPECT_NE(t.find("\n AfterEventTrigger = 1:\n After the calculation \n \n LunNumber is 0:"
                     "\n SensorNUmber is 1:\n GetOwnerId is 32:\n The value of deviceid is 1:"
                     "\n Event Direction is 0:"),
              std::string::npos)
        << t;
    EXPECT_NE(t.find("\nEvent description , and length = 0\n Before calling Event clone\n \n Sensor wrapper "
                     "details---\n\n Status = \n "),
              std::string::npos);
    EXPECT_NE(t.find("\n Inside SNMP_TemperatureEventClone EventGroup : 14:"), std::string::npos);
}

// Traps disabled: the interface refuses, the decoder tries five times, the event is lost.
TEST_F(SelPollerTest, TrapsDisabledLoseTheEventAfterFiveAttempts) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    SelClient::s_current->trapsEnabled = false;
    const size_t mark = traceMark();
    addEntry(selRaw(3, 0x07, 80, 0x6F, 0, false));
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(5, 30000));
    EXPECT_TRUE(collectTraps().empty());
    std::string expected;
    for (int i = 0; i < 5; ++i) {
        expected += "\n-->Processor Event Occurred inside interface check<--\n"
                    "\nSNMP_EventInterface::HandleEvent starting\ntraps disabled...\n";
    }
    expected += "\n-->Processor Event Occurred End sucessfully!<--\n";
    EXPECT_NE(traceSince(mark).find(expected), std::string::npos);
}

// An event decoded while the agent is still starting: the interface refuses it until
// start-up completes, then the next attempt delivers it.
std::function<void()> g_afterRetrySleep;

void recordRetrySleepThenAct(DWORD ms) {
    g_retrySleeps.push_back(ms);
    if (g_afterRetrySleep) {
        g_afterRetrySleep();
    }
}

TEST_F(SelPollerTest, EventBeforeStartUpCompletesIsDeliveredOnceStarted) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    SnmpExtensionClose();
    HANDLE trapEvent = nullptr;
    AsnObjectIdentifier region = {0, nullptr};
    ASSERT_TRUE(SnmpExtensionInit(0, &trapEvent, &region));
    freshHandler();
    ASSERT_FALSE(IsInitDone());
    g_afterRetrySleep = [] {
        if (g_retrySleeps.size() == 2) {
            AsnObjectIdentifier next = {0, nullptr};
            for (int regions = 0; SnmpExtensionInitEx(&next) && regions < 100; ++regions) {
            }
        }
    };
    setHandOffRetrySleep(recordRetrySleepThenAct);

    const size_t mark = traceMark();
    addEntry(selRaw(3, 0x07, 80, 0x6F, 0, false));
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    g_afterRetrySleep = nullptr;
    EXPECT_TRUE(IsInitDone());
    EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(2, 30000));
    const std::vector<Trap> traps = collectTraps();
    ASSERT_FALSE(traps.empty());
    EXPECT_EQ(traps[0].eventOid, kP + ".1000.40.1");
    const std::string t = traceSince(mark);
    const std::string refused =
        "\n-->Processor Event Occurred inside interface check<--\n"
        "\nSNMP_EventInterface::HandleEvent starting\ninitialzation not complete yet\n";
    EXPECT_NE(t.find(refused + refused), std::string::npos) << t;
}

// A close while the poller sits in a 30-second hand-off retry ends the wait: the service's
// stop is not held up for the remaining retries (up to two and a half minutes).
TEST_F(SelPollerTest, CloseEndsAHandOffRetryWait) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    setHandOffRetrySleep(nullptr);
    static thread_local bool polled = false;
    setSelPollSleep([](DWORD) {
        if (polled) {
            parkPoller(0);
        }
        polled = true;
    });
    addEntry(selRaw(3, 0x23, 145, 0x6F, 1, false)); // watchdog: refused at every attempt
    std::thread(PollForEvent, nullptr).detach();
    const std::string check = "\n-->WatchDog Event Occurred inside interface check<--\n";
    for (int i = 0; i < 1000 && trace().find(check) == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_NE(trace().find(check), std::string::npos);
    const auto start = std::chrono::steady_clock::now();
    SnmpExtensionClose();
    m_bStarted = false;
    // Closing must not wait out the retry: far below one 30-second wait, whatever the load.
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 20);
}

// Cleared and refilled with an entry equal to the remembered one: the poller anchors
// on it instead of asking for the newest entry for ever.
TEST_F(SelPollerTest, ClearedSelWithTheSameNewestEntryAnchorsAgain) {
    auto scripted = std::make_shared<ScriptedSel>(kelvarn::makePlatformResponder(m_source));
    scripted->raw = {"07 00 02 00 00 00 00 20 00 04 07 50 6f 07 ff ff"};
    kelvarn::setProcessResponder(scripted);
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    ASSERT_EQ(selLastRecordId(), 7);
    scripted->clearedOnce = true;
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 65535);
    size_t mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    std::string t = traceSince(mark);
    EXPECT_NE(t.find("RECORD_ID = ffff.\n"), std::string::npos);
    EXPECT_NE(t.find("Last and current SEL entries are equal.\n"), std::string::npos);
    EXPECT_EQ(selLastRecordId(), 7);
    mark = traceMark();
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_NE(traceSince(mark).find("RECORD_ID = 7.\n"), std::string::npos);
}

} // namespace
