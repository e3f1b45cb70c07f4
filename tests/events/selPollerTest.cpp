// SEL entries added to a running simulated server become traps: through the poller,
// the decoders, the event clones, the event queue and SnmpExtensionTrap.

#include "agent/agentApi.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "kelvarn/Errors.h"
#include "platform/sensorTestSupport.h"
#include "support/e2e.h"
#include "support/fakeClient.h"
#include "trapHarness.h"

namespace {

using namespace std::chrono_literals;

// The client facade of the tests: no table rows, events queued into the test's event
// handler.
class SelClient : public FakeClient {
public:
    inline static std::string s_tracePath;
    inline static SelClient* s_current = nullptr;

    SelClient() { s_current = this; }
    ~SelClient() override { s_current = nullptr; }
    uint32_t init() override {
        openDebugLog(s_tracePath.c_str(), 1);
        return CLIENT_SUCCESS;
    }
    uint32_t getTableSize(uint32_t entity) override { return entity == systemManagementEntity ? 1 : 0; }
};

// The 16 bytes of a system event record from the BMC (owner 0x20, LUN 0).
std::array<uint8_t, 16> selRaw(uint16_t id, uint8_t sensorType, uint8_t sensorNumber, uint8_t eventType,
                               uint8_t offset, bool deassertion = false) {
    const uint8_t low = id & 0xff, high = id >> 8, type = eventType | (deassertion ? 0x80 : 0);
    return {low,  high,       0x02,         0,    0x5e,   0x20, 0x69, 0x20, 0,
            0x04, sensorType, sensorNumber, type, offset, 0xff, 0xff};
}

// Answers every path from the simulated server, except the ones listed as failing and,
// once when `clearedOnce` is set, the SEL itself (as for a lost record).
class WatchedPlatform : public kelvarn::Responder {
public:
    std::shared_ptr<kelvarn::Responder> platform; // the simulated server
    std::string failing;
    bool clearedOnce = false;

    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>& segments,
                const kelvarn::Parameters& params, uint8_t flags, kelvarn::ResultMap& out) override {
        if (path == failing)
            throw kelvarn::QueryError(kelvarn::kSourceUnavailable, "test: the BMC does not answer");
        if (clearedOnce && path == "/BMC/SEL/TRANSLATED") {
            clearedOnce = false;
            throw kelvarn::QueryError(kelvarn::kSelRecordNotFound, "test: the SEL was cleared");
        }
        platform->answer(path, segments, params, flags, out);
    }
};

class SelPollerTest : public ::testing::Test {
protected:
    void SetUp() override {
        SelClient::s_tracePath = m_trace.path();
        m_model = sensortest::loadModel("../sel/sel-platform.json");
        addEntry();
        kelvarn::setProcessResponder(m_platform);
        resetSelPoller();
        setSelPollSleep(parkPoller);
        setHandOffRetrySleep(recordRetrySleep);
        g_retrySleeps.clear();
        setClientFactory([]() -> subagentBase* { return new SelClient(); });
        HANDLE trapEvent = nullptr;
        AsnObjectIdentifier region = {0, nullptr};
        ASSERT_TRUE(SnmpExtensionInit(0, &trapEvent, &region));
        m_bStarted = true;
        freshHandler();
        for (int regions = 0; SnmpExtensionInitEx(&region) && regions < 100; ++regions) {
        }
        // The poller thread traces once, then parks.
        ASSERT_TRUE(hmtest::waitForText(m_trace.path(), "Inside the PollForEvent Function", 10s));
    }

    void TearDown() override {
        if (m_bStarted)
            SnmpExtensionClose();
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

    // Serves m_model with `raw` added (the poller thread is parked: no query runs meanwhile).
    void addEntry(const std::array<uint8_t, 16>& raw = {}) {
        if (raw[2] != 0) {
            m_model.sel.emplace_back();
            m_model.sel.back().raw = raw;
        }
        m_platform->platform =
            kelvarn::makePlatformResponder(std::make_shared<kelvarn::SimulatedSource>("sel", m_model));
    }

    // Polls once after `raw` was added; the trace written by the poll.
    std::string pollWith(const std::array<uint8_t, 16>& raw) {
        addEntry(raw);
        const size_t mark = m_trace.text().size();
        EXPECT_EQ(CheckForNewSELEntry(), 1);
        return m_trace.text().substr(mark);
    }

    kelvarn::PlatformModel m_model;
    std::shared_ptr<WatchedPlatform> m_platform = std::make_shared<WatchedPlatform>();
    std::unique_ptr<eventHandler> m_handler;
    ScopedTrace m_trace{false}; // opened by the client's init
    bool m_bStarted = false;
};

// The specific numbers of the processor traps queued.
std::vector<int32_t> processorTraps() {
    std::vector<int32_t> specifics;
    for (const Trap& trap : collectTraps())
        if (trap.enterprise == kP + ".1000.40")
            specifics.push_back(trap.specific);
    return specifics;
}

// One event each: the first trap it gives (its shape and the health trap after it are
// the named events' end to end).
TEST_F(SelPollerTest, SingleEventsBecomeTheirTraps) {
    ASSERT_EQ(CheckForNewSELEntry(), 0); // the first poll only records where the SEL ends
    const struct {
        uint8_t sensorType, sensorNumber, eventType, offset;
        bool deassertion;
        const char* oid; // under P.1000
        int32_t severity;
        const char* description; // or null
    } rows[] = {
        // Lower fan thresholds crossed going high.
        {0x04, 48, 0x01, 1, false, ".70.6", 4, "Lower Non-critical going high"},
        {0x04, 48, 0x01, 3, false, ".70.5", 5, "Lower Critical going high"},
        {0x04, 48, 0x01, 5, false, ".70.4", 6, "Lower Non-recoverable going high"},
        // Fan presence sensors (57, whose removal the named events reach end to end, and 58).
        {0x04, 57, 0x08, 1, true, ".70.7", 3, "Device Inserted/Device Present"},
        {0x04, 58, 0x08, 0, false, ".70.7", 3, "Device Removed/Device Absent"},
        {0x04, 58, 0x08, 1, false, ".70.7", 3, "Device Inserted/Device Present"},
        {0x04, 58, 0x08, 1, true, ".70.7", 5, "Device Inserted/Device Present"},
        // A cooling device that is no redundancy sensor: lost redundancy is an error,
        // degraded redundancy is noted only.
        {0x0A, 59, 0x6F, 1, false, ".70.3", 5, nullptr},
        {0x0A, 59, 0x6F, 1, true, ".70.1", 3, nullptr},
        {0x0A, 59, 0x6F, 2, false, ".70.1", 3, nullptr},
        {0x0A, 59, 0x6F, 0, true, ".70.1", 3, nullptr},
        // A redundancy sensor: lost redundancy is reported through its degraded states.
        {0x04, 56, 0x0B, 1, false, ".70.1", 3, nullptr},
        {0x04, 56, 0x0B, 9, false, ".70.3", 5, nullptr},
        // A power unit whose reading asserts no state at all reports OK.
        {0x09, 68, 0x0B, 1, false, ".50.1", 3, nullptr},
        {0x09, 66, 0x0B, 8, false, ".50.3", 5, nullptr},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(id); // the row's record ID: 3 for the first
        freshHandler();
        pollWith(selRaw(id++, row.sensorType, row.sensorNumber, row.eventType, row.offset, row.deassertion));
        const std::vector<Trap> traps = collectTraps();
        ASSERT_FALSE(traps.empty());
        EXPECT_EQ(traps[0].eventOid, kP + ".1000" + row.oid);
        EXPECT_EQ(traps[0].bindings[1].number, row.severity);
        if (row.description != nullptr) {
            EXPECT_EQ(traps[0].bindings[0].text, row.description);
        }
    }
    EXPECT_TRUE(g_retrySleeps.empty());
}

// Events that give no trap: decoders that stop on refused event kinds or failed look-ups,
// events that reach the queue without a status, and events the interface refuses (no
// trap for their kind, traps disabled), which the decoder tries five times with a 30 s
// pause after each attempt before the event is lost. Types without a clone are refused.
TEST_F(SelPollerTest, EventsWithoutATrap) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    CEventWrapper event = eventWrapper(5, "there has been a chassis intrusion");
    for (int type : {3, -1, 0, 1, 6, 7, 13, 16, 17, 18, 20, 255}) // 3 (chassis) has one
        EXPECT_EQ(SNMP_EventInterface().HandleEvent(event, type), type == 3 ? 1 : 0) << type;
    EXPECT_EQ(collectTraps().size(), 1u);
    const struct {
        uint8_t sensorType, sensorNumber, eventType, offset;
        const char* failing; // path the BMC does not answer, or ""
        int handOffs;        // 0: never reaches the event interface; 5: refused at each attempt
        const char* traced;  // once, or at each hand-off when refused
    } rows[] = {
        // Event kinds the decoders refuse.
        {0x04, 48, 0x6F, 0, "", 0, "Inside Fan_EventOccurred"},
        {0x0D, 112, 0x08, 0, "", 0, "Drive Slot Presence Sensor"},
        {0x0D, 112, 0x6F, 7, "", 0, "drive slot events were not handled"},
        {0x09, 67, 0x6F, 4, "", 0, "Power Unit event occured."},
        // Failed look-ups.
        {0x0C, 96, 0x6F, 0, "/BMC/SDR", 0, "Query Failed to get the SDR"},
        {0x01, 1, 0x01, 9, "/BMC/SDR/SENSOR_TYPE[1]", 0, "Temperature_EventOccurred SensorNamequery failed"},
        {0x01, 1, 0x01, 9, "/BMC/SENSOR[0]/NAME", 0, "Temperature_EventOccurred SensorNamequery failed"},
        {0x04, 48, 0x01, 9, "/BMC/SENSOR[2]/NAME", 0, "Query Failed to get the SDR"},
        // The ignored temperature offset reaches the queue with no status.
        {0x01, 1, 0x01, 5, "", 1, "\n Status = \n"},
        // Watchdog, platform security, an OEM sensor type; a processor with traps disabled.
        {0x23, 145, 0x6F, 1, "", 5, "WatchDog Event Occurred inside interface check"},
        {0x06, 129, 0x6F, 0, "", 5, "PlatformSecurity Event Occurred inside"},
        {0xC0, 200, 0x70, 3, "", 5, "Generic Event Occurred inside interface"},
        {0x07, 80, 0x6F, 0, "", 5, "\ntraps disabled...\n"},
    };
    uint16_t id = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.traced);
        m_platform->failing = row.failing;
        g_retrySleeps.clear();
        SelClient::s_current->trapsEnabled = row.sensorType != 0x07;
        const auto t = pollWith(selRaw(id++, row.sensorType, row.sensorNumber, row.eventType, row.offset));
        EXPECT_TRUE(collectTraps().empty());
        EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(row.handOffs == 5 ? 5 : 0, 30000));
        EXPECT_EQ(sensortest::countOf(t, row.traced), row.handOffs == 5 ? 5u : 1u) << t;
        EXPECT_EQ(sensortest::countOf(t, "SNMP_EventInterface::HandleEvent starting"), size_t(row.handOffs));
    }
}

TEST_F(SelPollerTest, FirstPollAndAClearedSelAnchorAtTheEndAndLaterPollsSkipTheKnownEntry) {
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 2);
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    // A new entry is routed, the known one skipped (several in order: the end-to-end test).
    pollWith(selRaw(5, 0x07, 80, 0x6F, 2));
    EXPECT_EQ(processorTraps(), std::vector<int32_t>{3});
    EXPECT_EQ(selLastRecordId(), 5);
    // A SEL cleared and refilled with an entry equal to the remembered one is anchored on
    // again instead of asking for the newest entry for ever.
    m_platform->clearedOnce = true;
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 65535);
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 5);
    // An entry numbered from 1 again is routed; the last record ID stays.
    pollWith(selRaw(1, 0x07, 80, 0x6F, 1));
    EXPECT_EQ(selLastRecordId(), 5);
    EXPECT_EQ(processorTraps(), std::vector<int32_t>{2});
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_TRUE(collectTraps().empty());
}

TEST_F(SelPollerTest, ThreeThousandNewEntriesTakeTwoPolls) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    for (uint16_t id = 3; id < 3003; ++id) { // presence: information, no health change
        m_model.sel.emplace_back();
        m_model.sel.back().raw = selRaw(id, 0x07, 80, 0x6F, 7);
    }
    addEntry();
    closeDebugLog(); // a trace of this size says nothing more
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 3001); // RANGE 3000 holds the known entry and 2999 new ones
    EXPECT_EQ(collectTraps().size(), 2999u);
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 3002);
    EXPECT_EQ(collectTraps().size(), 1u);
    EXPECT_EQ(CheckForNewSELEntry(), 0);
}

// An event decoded while the agent is still starting: the interface refuses it until
// start-up completes, then the next attempt delivers it.
TEST_F(SelPollerTest, EventBeforeStartUpCompletesIsDeliveredOnceStarted) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    SnmpExtensionClose();
    HANDLE trapEvent = nullptr;
    AsnObjectIdentifier region = {0, nullptr};
    ASSERT_TRUE(SnmpExtensionInit(0, &trapEvent, &region));
    freshHandler();
    ASSERT_FALSE(IsInitDone());
    setHandOffRetrySleep([](DWORD ms) { // start-up completes during the second wait
        g_retrySleeps.push_back(ms);
        AsnObjectIdentifier next = {0, nullptr};
        for (int regions = 0; g_retrySleeps.size() == 2 && SnmpExtensionInitEx(&next) && regions < 100;
             ++regions) {
        }
    });
    pollWith(selRaw(3, 0x07, 80, 0x6F, 0));
    EXPECT_TRUE(IsInitDone());
    EXPECT_EQ(g_retrySleeps, std::vector<DWORD>(2, 30000));
    EXPECT_EQ(processorTraps(), std::vector<int32_t>{1});
}

// A close while the poller sits in a 30-second hand-off retry ends the wait: the service's
// stop is not held up for the remaining retries (up to two and a half minutes).
TEST_F(SelPollerTest, CloseEndsAHandOffRetryWait) {
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    setHandOffRetrySleep(nullptr);
    static thread_local bool polled = false;
    setSelPollSleep([](DWORD) {
        if (polled)
            parkPoller(0);
        polled = true;
    });
    addEntry(selRaw(3, 0x23, 145, 0x6F, 1)); // watchdog: refused at every attempt
    std::thread(PollForEvent, nullptr).detach();
    ASSERT_TRUE(hmtest::waitForText(m_trace.path(), "WatchDog Event Occurred inside interface check", 10s));
    const auto start = std::chrono::steady_clock::now();
    SnmpExtensionClose();
    m_bStarted = false;
    // Closing must not wait out the retry: far below one 30-second wait, whatever the load.
    EXPECT_LT(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count(),
        20);
}

} // namespace
