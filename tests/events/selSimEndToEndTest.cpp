// Hardware events logged by name on a running simulated server become traps: the
// live-change tool's journal line, the simulated source, the SEL poller, the
// decoders, the event clones, the event queue and SnmpExtensionTrap, with the real
// client facade and its tables built from tests/data/selsim/selsim-platform.json.
// The poller thread is parked and the test polls with CheckForNewSELEntry; the
// hand-off retry sleeps are recorded, not slept.

#include <cstdlib>
#include <set>

#include "core/hmClientApi.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "kelvarn/Journal.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "kelvarn/SelEvents.h"
#include "support/e2e.h"
#include "trapHarness.h"

namespace {

// One agent for the whole suite: started once, as the SNMP service starts it.
class SelSimEndToEnd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new hmtest::TempDir("hm-selsim-");
        s_platform = s_dir->file("platform.json");
        s_journal = s_platform + ".journal";
        hmtest::writeFile(s_platform, hmtest::readFile(HM_TEST_DATA_DIR "/selsim/selsim-platform.json"));
        hmtest::writeFile(s_dir->file("kelvarn.conf"), "source = simulated\nplatform = " + s_platform + "\n");
        hmtest::writeRegistryFile(s_dir->file("registry.reg"), HM_TEST_DATA_DIR "/selsim/agent.conf",
                                  s_dir->file("agent.log"));
        setenv("HMSUBAGENT_REGISTRY", s_dir->file("registry.reg").c_str(), 1);
        setenv("KELVARN_CONFIG", s_dir->file("kelvarn.conf").c_str(), 1);
        setSelPollSleep(parkPoller);
        setHandOffRetrySleep(recordRetrySleep);
        HANDLE trapEvent = nullptr;
        AsnObjectIdentifier region = {0, nullptr};
        s_started = SnmpExtensionInit(0, &trapEvent, &region);
        for (int regions = 0; s_started && regions < 100 && SnmpExtensionInitEx(&region); ++regions) {
        }
    }

    static void TearDownTestSuite() {
        if (s_started)
            SnmpExtensionClose();
        destroyHMClient();
        kelvarn::setProcessResponder(nullptr);
        setHandOffRetrySleep(nullptr);
        unsetenv("HMSUBAGENT_REGISTRY");
        unsetenv("KELVARN_CONFIG");
        delete s_dir;
    }

    void SetUp() override { ASSERT_TRUE(s_started); }

    inline static hmtest::TempDir* s_dir = nullptr;
    inline static std::string s_platform, s_journal;
    inline static bool s_started = false;
};

// One named event ("!" at the end: logged with --deassert), its trap, and the overall
// health it moves to (0: no health trap follows).
struct Step {
    const char *event, *oid, *description; // the OID as in TrapShape
    int32_t severity, health;
};

// A device's trap objects and its events, in the order the steps run: the overall
// health carries from step to step (it starts "ok").
struct Device {
    struct {
        const char* table; // as in TrapShape
        int32_t instance;
        const char* name;
        int32_t id;
    } objects;
    std::vector<Step> steps;
};

// Temperature probe CPU1 Temp; voltage probe P12V; fan FAN1 and the presence sensor FAN6
// Presence (presence flag clear), the cooling device table holding every fan-type record
// in SDR order (FAN1, Fan Redundancy, FAN6 Presence); Fan Redundancy, which never counts
// in the health; chassis and BIOS events, two objects; processor CPU1 (a critical device
// never lowers a non-recoverable health, a non-critical one alone sets it to
// non-critical); the power supply row carrying the sensor name; PSU Redundancy, whose
// clone searches no table; memory (the second row of its table; uncorrectable ECC also
// reads as correctable ECC); drive slot Drive 0, never counted; hot-plug slot PCI Slot 1,
// the fixed objects.
const Device kDevices[] = {
    {{"600.40", 1, "CPU1 Temp", 1},
     {{"temperature-upper-non-critical-going-high", "70.17", "Status Changed from OK to Upper Non-Critical",
       4, 4},
      {"temperature-upper-critical-going-high", "70.18", "Status Changed to Upper Critical", 5, 5},
      {"temperature-upper-non-recoverable-going-high", "70.19", "Status is Critical", 6, 6},
      {"temperature-upper-critical-going-high-deasserted", "70.16",
       "Status Changed from Critical to Upper Non-Critical", 3, 3}}},
    {{"400.30", 1, "P12V", 16},
     {{"voltage-lower-non-critical-going-low", "50.12", "Lower Non-critical going low", 4, 4},
      {"voltage-upper-non-critical-going-high", "50.14", "Upper Non-critical going high", 4, 0},
      {"voltage-lower-critical-going-low", "50.11", "Lower Critical going low", 5, 5},
      {"voltage-upper-critical-going-high", "50.15", "Upper Critical going high", 5, 0},
      {"voltage-lower-non-recoverable-going-low", "50.10", "Lower Non-recoverable going low", 6, 6},
      {"voltage-upper-non-recoverable-going-high", "50.16", "Upper Non-recoverable going high", 6, 0},
      {"voltage-lower-critical-going-low-deasserted", "50.13", "Lower Critical going low", 3, 3}}},
    {{"600.20", 1, "FAN1", 48},
     {{"fan-lower-non-critical-going-low", "70.6", "Lower Non-critical going low", 4, 4},
      {"fan-upper-non-critical-going-high", "70.8", "Upper Non-critical going high", 4, 0},
      {"fan-lower-critical-going-low", "70.5", "Lower Critical going low", 5, 5},
      {"fan-upper-critical-going-high", "70.9", "Upper Critical going high", 5, 0},
      {"fan-lower-non-recoverable-going-low", "70.4", "Lower Non-recoverable going low", 6, 6},
      {"fan-upper-non-recoverable-going-high", "70.10", "Upper Non-recoverable going high", 6, 0},
      {"fan-lower-critical-going-low-deasserted", "70.7", "Lower Critical going low", 3, 3}}},
    {{"600.20", 3, "FAN6 Presence", 57},
     {{"fan-device-removed", "70.7", "Device Removed/Device Absent", 5, 5},
      {"fan-device-removed!", "70.7", "Device Removed/Device Absent", 3, 3}}},
    {{"600.10", 1, "Fan Redundancy", 56},
     {{"fan-fully-redundant", "70.1", "Fully Redundant", 3, 0},
      {"fan-redundancy-degraded", "70.2", "Redundancy Degraded", 4, 0},
      {"fan-fully-redundant-deasserted", "70.3", "Fully Redundant", 5, 0}}},
    {{nullptr, 0, "", 0},
     {{"chassis-intrusion", "30.1", "there has been a chassis intrusion", 5, 0},
      {"chassis-intrusion-deasserted", "30.2", "Chassis OK", 3, 0},
      {"system-reconfigured", "90.1", "system has been reconfigured", 1, 0},
      {"system-boot", "90.2", "system boot event has occurred", 1, 0},
      {"system-hardware-failure", "90.3", "undetermined system hardware failure", 6, 0}}},
    {{"300.10", 1, "CPU1", 80},
     {{"processor-ierr", "40.1", "IERR (Internal Error)", 6, 6},
      {"processor-thermal-trip", "40.2", "Thermal Trip", 6, 0},
      {"processor-frb1-bist-failure", "40.3", "FRB1/BIST Failure", 5, 0},
      {"processor-frb2-hang-in-post", "40.4", "FRB2/Hang in POST Failure", 5, 0},
      {"processor-frb3-startup-failure", "40.5", "FRB3/Processor Startup/Initialization Failure", 5, 0},
      {"processor-configuration-error", "40.6", "Configuration Error", 5, 0},
      {"processor-uncorrectable-cpu-complex-error", "40.10", "SM BIOS 'Uncorrectable CPU-Complex Error'", 6,
       0},
      {"processor-presence-detected", "40.7", "processor's presence has been detected", 1, 0},
      {"processor-disabled", "40.8", "processor has been disabled", 4, 4},
      {"processor-terminator-presence-detected", "40.9", "terminator's presence has been detected", 1, 0},
      {"processor-ierr!", "40.1", "IERR (Internal Error)", 3, 3}}},
    {{"400.20", 1, "PSU1 Status", 64},
     {{"psu-presence-detected", "50.4", "power supply's presence has been detected", 3, 0},
      {"psu-presence-detected-deasserted", "50.5", "power supply's presence has been lost", 5, 5},
      {"psu-failure-detected", "50.6", "power supply has suffered a failure", 5, 0},
      {"psu-predictive-failure", "50.7", "predictive failure has been detected for the power supply", 4, 4},
      {"psu-input-lost", "50.8", "power supply's input (AC/DC) has been lost", 5, 5},
      {"psu-input-lost-deasserted", "50.9", "power supply's input (AC/DC) has been regained", 3, 3}}},
    {{"400.10", 0, "", 66},
     {{"power-fully-redundant", "50.1", "Fully Redundant", 3, 0},
      {"power-redundancy-degraded", "50.2", "Redundancy Degraded", 4, 4},
      {"power-redundancy-lost", "50.3", "Redundancy Lost", 5, 5},
      {"power-fully-redundant", "50.1", "Fully Redundant", 3, 3}}},
    {{"500.20", 2, "DIMM_A2", 2},
     {{"memory-correctable-ecc", "60.1", "correctable ECC error has been detected", 4, 4},
      {"memory-uncorrectable-ecc", "60.1", "uncorrectable ECC error has been detected", 6, 6},
      {"memory-parity", "60.3", "Parity Error has been detected", 5, 0},
      {"memory-scrub-failed", "60.4", "memory scrub failed", 5, 0},
      {"memory-device-disabled", "60.5", "memory device has been disabled", 4, 4},
      {"memory-ecc-logging-limit-reached", "60.5", "correctable memory error logging has been disabled", 4,
       0},
      {"memory-correctable-ecc!", "60.1", "correctable ECC error has been detected", 3, 3}}},
    {{"700.10", 1, "Drive 0", 112},
     {{"drive-present", "100.2", "drive slot reports the device has been inserted or is present", 3, 0},
      {"drive-present-deasserted", "100.1", "drive slot reports the device has been removed or is absent", 5,
       0}}},
    {{"", 0, "", 160},
     {{"slot-power-off", "80.3", "slot power is OFF", 3, 0},
      {"slot-power-off-deasserted", "80.4", "slot power is ON", 3, 0},
      {"slot-device-installed", "80.1", "device installed in the slot", 3, 0},
      {"slot-fault", "80.2", "slot fault status asserted", 5, 0}}},
};

const char* const kHealthNames[] = {"",         "other",         "unknown", "ok", "nonCritical",
                                    "critical", "nonRecoverable"};

TEST_F(SelSimEndToEnd, EveryNamedEventBecomesItsTrap) {
    // The first poll takes the two entries logged before the start as known.
    ASSERT_EQ(CheckForNewSELEntry(), 0);
    EXPECT_EQ(selLastRecordId(), 2);
    ASSERT_TRUE(collectTraps().empty());
    std::set<std::string> covered;
    int32_t recordId = 2;
    std::string health = "ok";
    for (const Device& device : kDevices) {
        for (const Step& step : device.steps) {
            std::string name = step.event;
            const bool invert = name.back() == '!';
            if (invert)
                name.pop_back();
            SCOPED_TRACE(step.event);
            covered.insert(name);
            const kelvarn::NamedEvent* event = kelvarn::findNamedEvent(name);
            ASSERT_NE(event, nullptr);
            kelvarn::appendJournal(s_journal,
                                   kelvarn::namedEventJournalLine(kelvarn::loadPlatformFile(s_platform),
                                                                  *event, "", 1763700000, invert));
            ASSERT_EQ(CheckForNewSELEntry(), 1);
            EXPECT_EQ(selLastRecordId(), ++recordId);
            const std::vector<Trap> traps = collectTraps();
            ASSERT_EQ(traps.size(), step.health != 0 ? 2u : 1u);
            expectTrap(traps[0], {step.oid, step.description, step.severity, device.objects.table,
                                  device.objects.instance, device.objects.name, device.objects.id});
            if (step.health != 0) {
                expectHealthTrap(traps[1], step.health, health + " to " + kHealthNames[step.health]);
                health = kHealthNames[step.health];
            }
        }
    }
    EXPECT_TRUE(g_retrySleeps.empty()); // every event was delivered on its first hand-off
    size_t count = 0;
    const kelvarn::NamedEvent* events = kelvarn::namedEvents(count);
    for (size_t i = 0; i < count; ++i)
        EXPECT_EQ(covered.count(events[i].name), 1u) << events[i].name << " has no step";
}

// Runs kelvarn-sim with `arguments`: true when it succeeds.
bool tool(const std::string& arguments) {
    return hmtest::runCommand(std::string(HM_KELVARN_SIM) + " " + arguments).status == 0;
}

// Polls once: the event OIDs of the traps it gave.
std::vector<std::string> polledTraps(int expected) {
    EXPECT_EQ(CheckForNewSELEntry(), expected);
    std::vector<std::string> oids;
    for (const Trap& trap : collectTraps())
        oids.push_back(trap.eventOid);
    return oids;
}

// The tool itself: a named event and a SEL cleared under the
// running agent, after which polling starts again from the newest entry.
TEST_F(SelSimEndToEnd, ToolAddsByNameAndTheSelClearIsSurvived) {
    ASSERT_TRUE(polledTraps(0).empty()) << "the table test leaves no entry unpolled";
    ASSERT_TRUE(tool("sel-add-event chassis-intrusion --sensor Intrusion"));
    EXPECT_EQ(polledTraps(1), std::vector<std::string>{kP + ".1000.30.1"});

    ASSERT_TRUE(tool("sel-clear"));
    EXPECT_TRUE(polledTraps(0).empty());
    EXPECT_EQ(selLastRecordId(), kSelLastEntry);
    EXPECT_TRUE(polledTraps(0).empty()); // the empty SEL has no newest entry yet
    // The first entry after the clear (record 1) is walked as the anchor, not routed;
    // then two changes in quick succession between two polls: both kept, routed in order.
    ASSERT_TRUE(tool("sel-add-event system-boot"));
    EXPECT_TRUE(polledTraps(1).empty());
    EXPECT_EQ(selLastRecordId(), 1);
    for (const char* name : {"slot-fault", "slot-device-installed"})
        ASSERT_TRUE(tool(std::string("sel-add-event ") + name));
    EXPECT_EQ(polledTraps(1), (std::vector<std::string>{kP + ".1000.80.2", kP + ".1000.80.1"}));
    EXPECT_EQ(selLastRecordId(), 3);
}

} // namespace
