// Hardware events logged by name on a running simulated server become traps: the
// live-change tool's journal line, the simulated source, the SEL poller, the
// decoders, the event clones, the event queue and SnmpExtensionTrap, with the real
// client facade and its tables built from tests/data/selsim/selsim-platform.json.
// The poller thread is parked and the test polls with CheckForNewSELEntry; the
// hand-off retry sleeps are recorded, not slept.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "agent/snmpExtension.h"
#include "core/hmClientApi.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "kelvarn/Journal.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "kelvarn/SelEvents.h"
#include "trapHarness.h"

namespace {

std::string scratch(const std::string& name) {
    return ::testing::TempDir() + "hm-selsim-" + std::to_string(getpid()) + "-" + name;
}

std::string runTool(const std::string& arguments, int& status) {
    std::string output;
    FILE* pipe = popen((std::string(HM_KELVARN_SIM) + " " + arguments + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        status = -1;
        return output;
    }
    char buf[512];
    size_t got;
    while ((got = fread(buf, 1, sizeof buf, pipe)) > 0) {
        output.append(buf, got);
    }
    status = pclose(pipe);
    return output;
}

// One agent for the whole suite: started once, as the SNMP service starts it.
class SelSimEndToEnd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_platform = scratch("platform.json");
        s_journal = s_platform + ".journal";
        s_trace = scratch("agent.log");
        s_registry = scratch("registry.reg");
        s_config = scratch("kelvarn.conf");
        {
            std::ifstream in(HM_TEST_DATA_DIR "/selsim/selsim-platform.json", std::ios::binary);
            std::ofstream out(s_platform, std::ios::binary);
            out << in.rdbuf();
        }
        std::ofstream(s_config) << "source = simulated\nplatform = " << s_platform << "\n";
        std::ofstream(s_registry) << "Windows Registry Editor Version 5.00\r\n\r\n"
                                  << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                                  << "\"ConfigFile\"=\"" << HM_TEST_DATA_DIR << "/selsim/agent.conf\"\r\n"
                                  << "\"LogFile\"=\"" << s_trace << "\"\r\n";
        std::remove(s_journal.c_str());
        setenv("HMSUBAGENT_REGISTRY", s_registry.c_str(), 1);
        setenv("KELVARN_CONFIG", s_config.c_str(), 1);
        kelvarn::setProcessResponder(nullptr);

        resetSelPoller();
        setSelPollSleep(parkPoller);
        setHandOffRetrySleep(recordRetrySleep);
        HANDLE trapEvent = nullptr;
        AsnObjectIdentifier region = {0, nullptr};
        s_started = SnmpExtensionInit(0, &trapEvent, &region);
        for (int regions = 0; s_started && regions < 100 && SnmpExtensionInitEx(&region); ++regions) {
        }
    }

    static void TearDownTestSuite() {
        if (s_started) {
            SnmpExtensionClose();
        }
        destroyHMClient();
        kelvarn::setProcessResponder(nullptr);
        setHandOffRetrySleep(nullptr);
        unsetenv("HMSUBAGENT_REGISTRY");
        unsetenv("KELVARN_CONFIG");
        for (const std::string* f : {&s_platform, &s_journal, &s_trace, &s_registry, &s_config}) {
            std::remove(f->c_str());
        }
    }

    void SetUp() override { ASSERT_TRUE(s_started); }

    // Logs a named event the way `kelvarn-sim sel-add-event NAME [--deassert]` does.
    static void logEvent(const std::string& name, bool invert) {
        const kelvarn::NamedEvent* event = kelvarn::findNamedEvent(name);
        ASSERT_NE(event, nullptr) << name;
        const kelvarn::PlatformModel model = kelvarn::loadPlatformFile(s_platform);
        kelvarn::appendJournal(s_journal,
                               kelvarn::namedEventJournalLine(model, *event, "", 1763700000, invert));
    }

    static std::string s_platform, s_journal, s_trace, s_registry, s_config;
    static bool s_started;
};

std::string SelSimEndToEnd::s_platform, SelSimEndToEnd::s_journal, SelSimEndToEnd::s_trace,
    SelSimEndToEnd::s_registry, SelSimEndToEnd::s_config;
bool SelSimEndToEnd::s_started = false;

// One named event and the traps it must produce, in the order the steps run: the
// overall health carries from step to step (it starts "ok", 3).
// The trap's fields are written flat (brace elision).
struct Step {
    const char* event;
    bool invert; // logged with --deassert
    TrapShape trap;
    const char* healthChange; // "from to" names of the health trap that follows, or null
    int32_t newHealth;
};

#define HEALTH(from, to, n) from " to " to, n
#define NO_HEALTH nullptr, 0

const Step kSteps[] = {
    // Temperature probe CPU1 Temp (sensor 1, the only probe).
    {"temperature-upper-non-critical-going-high", false, "70", 17,
     "Status Changed from OK to Upper Non-Critical", 4, "600.40", 1, "CPU1 Temp", 1,
     HEALTH("ok", "nonCritical", 4)},
    {"temperature-upper-critical-going-high", false, "70", 18, "Status Changed to Upper Critical", 5,
     "600.40", 1, "CPU1 Temp", 1, HEALTH("nonCritical", "critical", 5)},
    {"temperature-upper-non-recoverable-going-high", false, "70", 19, "Status is Critical", 6, "600.40", 1,
     "CPU1 Temp", 1, HEALTH("critical", "nonRecoverable", 6)},
    {"temperature-upper-critical-going-high-deasserted", false, "70", 16,
     "Status Changed from Critical to Upper Non-Critical", 3, "600.40", 1, "CPU1 Temp", 1,
     HEALTH("nonRecoverable", "ok", 3)},
    // Voltage probe P12V (sensor 16).
    {"voltage-lower-non-critical-going-low", false, "50", 12, "Lower Non-critical going low", 4, "400.30", 1,
     "P12V", 16, HEALTH("ok", "nonCritical", 4)},
    {"voltage-upper-non-critical-going-high", false, "50", 14, "Upper Non-critical going high", 4, "400.30",
     1, "P12V", 16, NO_HEALTH},
    {"voltage-lower-critical-going-low", false, "50", 11, "Lower Critical going low", 5, "400.30", 1, "P12V",
     16, HEALTH("nonCritical", "critical", 5)},
    {"voltage-upper-critical-going-high", false, "50", 15, "Upper Critical going high", 5, "400.30", 1,
     "P12V", 16, NO_HEALTH},
    {"voltage-lower-non-recoverable-going-low", false, "50", 10, "Lower Non-recoverable going low", 6,
     "400.30", 1, "P12V", 16, HEALTH("critical", "nonRecoverable", 6)},
    {"voltage-upper-non-recoverable-going-high", false, "50", 16, "Upper Non-recoverable going high", 6,
     "400.30", 1, "P12V", 16, NO_HEALTH},
    {"voltage-lower-critical-going-low-deasserted", false, "50", 13, "Lower Critical going low", 3, "400.30",
     1, "P12V", 16, HEALTH("nonRecoverable", "ok", 3)},
    // Fan FAN1 (sensor 48) and the presence sensor FAN6 Presence (57, presence flag clear).
    // The cooling device table holds every fan-type record in SDR order: FAN1, Fan
    // Redundancy, FAN6 Presence.
    {"fan-lower-non-critical-going-low", false, "70", 6, "Lower Non-critical going low", 4, "600.20", 1,
     "FAN1", 48, HEALTH("ok", "nonCritical", 4)},
    {"fan-upper-non-critical-going-high", false, "70", 8, "Upper Non-critical going high", 4, "600.20", 1,
     "FAN1", 48, NO_HEALTH},
    {"fan-lower-critical-going-low", false, "70", 5, "Lower Critical going low", 5, "600.20", 1, "FAN1", 48,
     HEALTH("nonCritical", "critical", 5)},
    {"fan-upper-critical-going-high", false, "70", 9, "Upper Critical going high", 5, "600.20", 1, "FAN1", 48,
     NO_HEALTH},
    {"fan-lower-non-recoverable-going-low", false, "70", 4, "Lower Non-recoverable going low", 6, "600.20", 1,
     "FAN1", 48, HEALTH("critical", "nonRecoverable", 6)},
    {"fan-upper-non-recoverable-going-high", false, "70", 10, "Upper Non-recoverable going high", 6, "600.20",
     1, "FAN1", 48, NO_HEALTH},
    {"fan-lower-critical-going-low-deasserted", false, "70", 7, "Lower Critical going low", 3, "600.20", 1,
     "FAN1", 48, HEALTH("nonRecoverable", "ok", 3)},
    {"fan-device-removed", false, "70", 7, "Device Removed/Device Absent", 5, "600.20", 3, "FAN6 Presence",
     57, HEALTH("ok", "critical", 5)},
    {"fan-device-removed", true, "70", 7, "Device Removed/Device Absent", 3, "600.20", 3, "FAN6 Presence", 57,
     HEALTH("critical", "ok", 3)},
    // Fan Redundancy (56): cooling redundancy never counts in the health.
    {"fan-fully-redundant", false, "70", 1, "Fully Redundant", 3, "600.10", 1, "Fan Redundancy", 56,
     NO_HEALTH},
    {"fan-redundancy-degraded", false, "70", 2, "Redundancy Degraded", 4, "600.10", 1, "Fan Redundancy", 56,
     NO_HEALTH},
    {"fan-fully-redundant-deasserted", false, "70", 3, "Fully Redundant", 5, "600.10", 1, "Fan Redundancy",
     56, NO_HEALTH},
    // Chassis intrusion: two objects.
    {"chassis-intrusion", false, "30", 1, "there has been a chassis intrusion", 5, nullptr, 0, "", 0,
     NO_HEALTH},
    {"chassis-intrusion-deasserted", false, "30", 2, "Chassis OK", 3, nullptr, 0, "", 0, NO_HEALTH},
    // Processor CPU1 (sensor 80, socket 1). A critical device never lowers a
    // non-recoverable health; a non-critical one alone sets it to non-critical.
    {"processor-ierr", false, "40", 1, "IERR (Internal Error)", 6, "300.10", 1, "CPU1", 80,
     HEALTH("ok", "nonRecoverable", 6)},
    {"processor-thermal-trip", false, "40", 2, "Thermal Trip", 6, "300.10", 1, "CPU1", 80, NO_HEALTH},
    {"processor-frb1-bist-failure", false, "40", 3, "FRB1/BIST Failure", 5, "300.10", 1, "CPU1", 80,
     NO_HEALTH},
    {"processor-frb2-hang-in-post", false, "40", 4, "FRB2/Hang in POST Failure", 5, "300.10", 1, "CPU1", 80,
     NO_HEALTH},
    {"processor-frb3-startup-failure", false, "40", 5, "FRB3/Processor Startup/Initialization Failure", 5,
     "300.10", 1, "CPU1", 80, NO_HEALTH},
    {"processor-configuration-error", false, "40", 6, "Configuration Error", 5, "300.10", 1, "CPU1", 80,
     NO_HEALTH},
    {"processor-uncorrectable-cpu-complex-error", false, "40", 10,
     "SM BIOS 'Uncorrectable CPU-Complex Error'", 6, "300.10", 1, "CPU1", 80, NO_HEALTH},
    {"processor-presence-detected", false, "40", 7, "processor's presence has been detected", 1, "300.10", 1,
     "CPU1", 80, NO_HEALTH},
    {"processor-disabled", false, "40", 8, "processor has been disabled", 4, "300.10", 1, "CPU1", 80,
     HEALTH("nonRecoverable", "nonCritical", 4)},
    {"processor-terminator-presence-detected", false, "40", 9, "terminator's presence has been detected", 1,
     "300.10", 1, "CPU1", 80, NO_HEALTH},
    {"processor-ierr", true, "40", 1, "IERR (Internal Error)", 3, "300.10", 1, "CPU1", 80,
     HEALTH("nonCritical", "ok", 3)},
    // Power supply PSU1 Status (sensor 64): the table row carries the sensor name.
    {"psu-presence-detected", false, "50", 4, "power supply's presence has been detected", 3, "400.20", 1,
     "PSU1 Status", 64, NO_HEALTH},
    {"psu-presence-detected-deasserted", false, "50", 5, "power supply's presence has been lost", 5, "400.20",
     1, "PSU1 Status", 64, HEALTH("ok", "critical", 5)},
    {"psu-failure-detected", false, "50", 6, "power supply has suffered a failure", 5, "400.20", 1,
     "PSU1 Status", 64, NO_HEALTH},
    {"psu-predictive-failure", false, "50", 7, "predictive failure has been detected for the power supply", 4,
     "400.20", 1, "PSU1 Status", 64, HEALTH("critical", "nonCritical", 4)},
    {"psu-input-lost", false, "50", 8, "power supply's input (AC/DC) has been lost", 5, "400.20", 1,
     "PSU1 Status", 64, HEALTH("nonCritical", "critical", 5)},
    {"psu-input-lost-deasserted", false, "50", 9, "power supply's input (AC/DC) has been regained", 3,
     "400.20", 1, "PSU1 Status", 64, HEALTH("critical", "ok", 3)},
    // Power redundancy PSU Redundancy (66; its reading asserts a state): its clone
    // searches no table, so instance 0 and no device description.
    {"power-fully-redundant", false, "50", 1, "Fully Redundant", 3, "400.10", 0, "", 66, NO_HEALTH},
    {"power-redundancy-degraded", false, "50", 2, "Redundancy Degraded", 4, "400.10", 0, "", 66,
     HEALTH("ok", "nonCritical", 4)},
    {"power-redundancy-lost", false, "50", 3, "Redundancy Lost", 5, "400.10", 0, "", 66,
     HEALTH("nonCritical", "critical", 5)},
    {"power-fully-redundant", false, "50", 1, "Fully Redundant", 3, "400.10", 0, "", 66,
     HEALTH("critical", "ok", 3)},
    // Memory (sensor 2: the second row of the memory device table). Uncorrectable ECC
    // also reads as correctable ECC.
    {"memory-correctable-ecc", false, "60", 1, "correctable ECC error has been detected", 4, "500.20", 2,
     "DIMM_A2", 2, HEALTH("ok", "nonCritical", 4)},
    {"memory-uncorrectable-ecc", false, "60", 1, "uncorrectable ECC error has been detected", 6, "500.20", 2,
     "DIMM_A2", 2, HEALTH("nonCritical", "nonRecoverable", 6)},
    {"memory-parity", false, "60", 3, "Parity Error has been detected", 5, "500.20", 2, "DIMM_A2", 2,
     NO_HEALTH},
    {"memory-scrub-failed", false, "60", 4, "memory scrub failed", 5, "500.20", 2, "DIMM_A2", 2, NO_HEALTH},
    {"memory-device-disabled", false, "60", 5, "memory device has been disabled", 4, "500.20", 2, "DIMM_A2",
     2, HEALTH("nonRecoverable", "nonCritical", 4)},
    {"memory-ecc-logging-limit-reached", false, "60", 5, "correctable memory error logging has been disabled",
     4, "500.20", 2, "DIMM_A2", 2, NO_HEALTH},
    {"memory-correctable-ecc", true, "60", 1, "correctable ECC error has been detected", 3, "500.20", 2,
     "DIMM_A2", 2, HEALTH("nonCritical", "ok", 3)},
    // Drive slot Drive 0 (sensor 112): never counts.
    {"drive-present", false, "100", 2, "drive slot reports the device has been inserted or is present", 3,
     "700.10", 1, "Drive 0", 112, NO_HEALTH},
    {"drive-present-deasserted", false, "100", 1,
     "drive slot reports the device has been removed or is absent", 5, "700.10", 1, "Drive 0", 112,
     NO_HEALTH},
    // System events: the BIOS traps, two objects.
    {"system-reconfigured", false, "90", 1, "system has been reconfigured", 1, nullptr, 0, "", 0, NO_HEALTH},
    {"system-boot", false, "90", 2, "system boot event has occurred", 1, nullptr, 0, "", 0, NO_HEALTH},
    {"system-hardware-failure", false, "90", 3, "undetermined system hardware failure", 6, nullptr, 0, "", 0,
     NO_HEALTH},
    // Hot-plug slot PCI Slot 1 (sensor 160): the fixed objects.
    {"slot-power-off", false, "80", 3, "slot power is OFF", 3, "", 0, "", 160, NO_HEALTH},
    {"slot-power-off-deasserted", false, "80", 4, "slot power is ON", 3, "", 0, "", 160, NO_HEALTH},
    {"slot-device-installed", false, "80", 1, "device installed in the slot", 3, "", 0, "", 160, NO_HEALTH},
    {"slot-fault", false, "80", 2, "slot fault status asserted", 5, "", 0, "", 160, NO_HEALTH},
};
#undef HEALTH
#undef NO_HEALTH

TEST_F(SelSimEndToEnd, EveryNamedEventBecomesItsTrap) {
    // The first poll takes the two entries logged before the start as known.
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 2);
    ASSERT_TRUE(collectTraps().empty());

    const ThresholdEventCounts before = thresholdEventCounts();
    std::set<std::string> covered;
    int32_t recordId = 2;
    for (const Step& step : kSteps) {
        SCOPED_TRACE(std::string(step.event) + (step.invert ? " --deassert" : ""));
        covered.insert(step.event);
        logEvent(step.event, step.invert);
        ASSERT_EQ(CheckForNewSELEntry(), 1);
        EXPECT_EQ(selLastRecordId(), ++recordId);
        const std::vector<Trap> traps = collectTraps();
        ASSERT_EQ(traps.size(), step.healthChange != nullptr ? 2u : 1u);
        expectTrap(traps[0], step.trap);
        if (step.healthChange != nullptr) {
            expectHealthTrap(traps[1], step.newHealth, step.healthChange);
        }
    }
    // Every event was delivered on its first hand-off.
    EXPECT_TRUE(g_retrySleeps.empty());
    // The threshold steps (temperature, voltage, fan), counted by the class of their
    // offset whatever the direction.
    const ThresholdEventCounts after = thresholdEventCounts();
    EXPECT_EQ(after.nonCritical - before.nonCritical, 5u);
    EXPECT_EQ(after.critical - before.critical, 8u);
    EXPECT_EQ(after.nonRecoverable - before.nonRecoverable, 5u);
    // Every named event is in the table above.
    size_t count = 0;
    const kelvarn::NamedEvent* events = kelvarn::namedEvents(count);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(covered.count(events[i].name), 1u) << events[i].name << " has no step";
    }
}

// The tool itself: its table, a named event, a refusal, and a SEL cleared under the
// running agent, after which polling starts again from the newest entry.
TEST_F(SelSimEndToEnd, ToolAddsByNameAndTheSelClearIsSurvived) {
    int status = -1;
    const std::string list = runTool("list-events", status);
    EXPECT_EQ(status, 0) << list;
    EXPECT_NE(
        list.find("\nprocessor-ierr                                     Processor (0x07)       0x6f       0"
                  "      assert\n"),
        std::string::npos)
        << list;
    EXPECT_NE(
        list.find("\nfan-fully-redundant-deasserted                     Fan (0x04)             0x0b       0"
                  "      deassert\n"),
        std::string::npos)
        << list;

    const std::string refused = runTool("sel-add-event processor-ierr --sensor \"CPU1 Temp\"", status);
    EXPECT_NE(status, 0);
    EXPECT_EQ(refused,
              "kelvarn-sim: sensor \"CPU1 Temp\" is of sensor type 1, processor-ierr needs type 7\n");
    const std::string unknown = runTool("sel-add-event processor-melted", status);
    EXPECT_NE(status, 0);
    EXPECT_EQ(unknown,
              "kelvarn-sim: no event is named \"processor-melted\" (kelvarn-sim list-events prints the "
              "names)\n");

    ASSERT_EQ(CheckForNewSELEntry(), 0) << "the table test leaves no entry unpolled";
    collectTraps();
    const std::string added = runTool("sel-add-event chassis-intrusion --sensor Intrusion", status);
    ASSERT_EQ(status, 0) << added;
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    std::vector<Trap> traps = collectTraps();
    ASSERT_EQ(traps.size(), 1u);
    EXPECT_EQ(traps[0].eventOid, kP + ".1000.30.1");

    ASSERT_EQ(runTool("sel-clear", status).find("sel-clear"), std::string(s_journal + ": ").size());
    ASSERT_EQ(status, 0);
    const size_t mark = traceMessages(s_trace).size();
    const int32_t lastSeen = selLastRecordId(); // the chassis intrusion's record
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), kSelLastEntry);
    char expected[96];
    std::snprintf(expected, sizeof expected, "\nSel record ID = %d is not valid. SEL may be cleared.",
                  lastSeen);
    EXPECT_NE(traceMessages(s_trace).find("\n failed Error code. 1089  -", mark), std::string::npos);
    EXPECT_NE(traceMessages(s_trace).find(expected, mark), std::string::npos);

    // The empty SEL has no newest entry yet.
    EXPECT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_NE(traceMessages(s_trace).find("No SEL record found!", mark), std::string::npos);
    // The first entry after the clear (record 1) is walked as the anchor, not routed;
    // the next one is an event.
    runTool("sel-add-event system-boot", status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 1);
    EXPECT_TRUE(collectTraps().empty());
    // Two changes in quick succession between two polls: both kept, routed in order.
    runTool("sel-add-event slot-fault", status);
    ASSERT_EQ(status, 0);
    runTool("sel-add-event slot-device-installed", status);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(CheckForNewSELEntry(), 1);
    EXPECT_EQ(selLastRecordId(), 3);
    traps = collectTraps();
    ASSERT_EQ(traps.size(), 2u);
    EXPECT_EQ(traps[0].eventOid, kP + ".1000.80.2");
    EXPECT_EQ(traps[1].eventOid, kP + ".1000.80.1");
}

} // namespace
