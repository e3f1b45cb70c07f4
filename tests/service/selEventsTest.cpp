// SEL entry texts as a BMC's tools print them, and the named events of the
// simulated server: their journal lines and what the journal makes of them.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "kelvarn/Journal.h"
#include "kelvarn/SelEvents.h"
#include "serviceTestUtil.h"

namespace {

using Raw = std::array<uint8_t, 16>;

// A system event record from owner 0x20, LUN 0, logged at 1763700000 (2025-11-21 04:40:00 UTC).
Raw systemEvent(uint8_t sensorType, uint8_t number, uint8_t dirType, uint8_t data1) {
    return {0x06, 0x00, 0x02,       0x20,   0xed,    0x1f,  0x69, 0x20,
            0x00, 0x04, sensorType, number, dirType, data1, 0xff, 0xff};
}

TEST(SelEntryText, TextsAndTimeStampsReadAsTheBmcToolsPrintThem) {
    const struct {
        uint8_t sensorType, number, dirType, data1;
        const char* sensor;
        const char* text;
    } rows[] = {
        {0x01, 4, 0x01, 0x59, "CPU2 Temp", "Temperature CPU2 Temp | Upper Critical going high | Asserted"},
        {0x04, 56, 0x0B, 0x02, "Fan Redundancy", "Fan Fan Redundancy | Redundancy Degraded | Asserted"},
        {0x04, 57, 0x08, 0x00, "FAN6", "Fan FAN6 | Device Removed/Device Absent | Asserted"},
        {0x08, 65, 0x6F, 0x03, "PSU2", "Power Supply PSU2 | Power Supply AC lost | Asserted"},
        {0x0D, 112, 0xEF, 0x00, "Drive 0", "Drive Slot / Bay Drive 0 | Drive Present | Deasserted"},
        {0x21, 160, 0x6F, 0x05, "PCI 1", "Slot / Connector PCI 1 | Slot Power is Off | Asserted"},
        // A sensor missing from the SDR is named by its number.
        {0x05, 0x80, 0x6F, 0x00, "", "Physical Security #0x80 | General Chassis intrusion | Asserted"},
        // Offsets without a text, OEM sensor types and event types.
        {0x07, 80, 0x6F, 0x0E, "CPU1", "Processor CPU1 | Unknown event offset 0xe | Asserted"},
        {0xC0, 200, 0x70, 0x03, "OEM", "OEM reserved OEM | Unknown event offset 0x3 | Asserted"},
        {0x2D, 1, 0x6F, 0x00, "X", "reserved X | Unknown event offset 0x0 | Asserted"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(kelvarn::selEntryText(systemEvent(row.sensorType, row.number, row.dirType, row.data1),
                                        row.sensor),
                  row.text);
    // Time stamps: UTC date and time; none for an OEM record without one.
    Raw raw = systemEvent(0x01, 4, 0x01, 0x59);
    EXPECT_EQ(kelvarn::selTimestampText(raw), "2025-11-21 04:40:00");
    raw[2] = 0xE0;
    EXPECT_EQ(kelvarn::selEntryText(raw, "CPU2 Temp"), "OEM record type 0xe0");
    EXPECT_EQ(kelvarn::selTimestampText(raw), "");
    raw[2] = 0xC0; // OEM record with a time stamp
    raw[3] = raw[4] = raw[5] = raw[6] = 0;
    EXPECT_EQ(kelvarn::selTimestampText(raw), "1970-01-01 00:00:00");
}

// Two sensors share number and owner on different LUNs: the entry names the one on
// the generator's LUN (bits 8-9 of the generator ID).
TEST(SelEntryText, SensorIsFoundOnTheGeneratorsLun) {
    auto system = systemOver(platformWith(
        R"({"name": "Inlet Temp", "number": 5, "sensorType": 1},
           {"name": "Outlet Temp", "number": 5, "lun": 1, "sensorType": 1})",
        R"({"raw": "01 00 02 00 00 00 00 20 00 04 01 05 01 57 ff ff"},
           {"raw": "02 00 02 00 00 00 00 20 01 04 01 05 01 57 ff ff"})"));
    EXPECT_EQ(valueOf(*system, "/BMC/SEL/TRANSLATED[0]/DESCR"),
              "Temperature Inlet Temp | Upper Non-critical going high | Asserted");
    EXPECT_EQ(valueOf(*system, "/BMC/SEL/TRANSLATED[1]/DESCR"),
              "Temperature Outlet Temp | Upper Non-critical going high | Asserted");
}

const char* const kSensors = R"(
    {"name": "FAN1", "number": 48, "sensorType": 4},
    {"name": "Fan Redundancy", "number": 56, "record": "compact", "sensorType": 4, "eventReadingType": 11},
    {"name": "FAN6 Presence", "number": 57, "record": "compact", "sensorType": 4, "eventReadingType": 8},
    {"name": "CPU1 Status", "number": 80, "record": "compact", "sensorType": 7, "eventReadingType": 111},
    {"name": "PSU1 Status", "number": 64, "record": "compact", "sensorType": 8, "eventReadingType": 111},
    {"name": "PSU2 Status", "number": 65, "record": "compact", "sensorType": 8, "eventReadingType": 111},
    {"name": "Rear Intrusion", "number": 9, "owner": 44, "lun": 1, "record": "compact", "sensorType": 5,
     "eventReadingType": 111})";

TEST(NamedEvents, JournalLineNamesTheSensorAndTheEvent) {
    const kelvarn::PlatformModel model = kelvarn::parsePlatform(platformWith(kSensors), "test.json");
    const struct {
        const char* event;
        const char* sensor;
        bool invert;
        const char* line;
    } rows[] = {
        // The first sensor of the type whose SDR has the event's event/reading type.
        {"fan-upper-critical-going-high", "", false, "sel-add 100 32 48 9 assert 255 255 4 1"},
        {"fan-fully-redundant", "", false, "sel-add 100 32 56 0 assert 255 255 4 11"},
        {"fan-device-removed", "", false, "sel-add 100 32 57 0 assert 255 255 4 8"},
        {"psu-input-lost", "", false, "sel-add 100 32 64 3 assert 255 255 8 111"},
        // A named sensor, by name, number or OWNER:LUN:NUMBER; the LUN goes to bits 8-9.
        {"psu-input-lost", "PSU2 Status", false, "sel-add 100 32 65 3 assert 255 255 8 111"},
        {"chassis-intrusion", "44:1:9", false, "sel-add 100 300 9 0 assert 255 255 5 111"},
        {"chassis-intrusion", "", false, "sel-add 100 300 9 0 assert 255 255 5 111"},
        // --deassert turns the direction over.
        {"processor-ierr", "", true, "sel-add 100 32 80 0 deassert 255 255 7 111"},
        {"chassis-intrusion-deasserted", "", false, "sel-add 100 300 9 0 deassert 255 255 5 111"},
        {"chassis-intrusion-deasserted", "", true, "sel-add 100 300 9 0 assert 255 255 5 111"},
        // Sensors that do not fit are refused.
        {"system-boot", "", false,
         "the platform has no sensor of sensor type 18 (System Event) for system-boot"},
        {"processor-ierr", "FAN1", false, "sensor \"FAN1\" is of sensor type 4, processor-ierr needs type 7"},
        {"processor-ierr", "CPU9", false, "no sensor is named \"CPU9\""},
        {"processor-ierr", "81", false, "no sensor 81 in the platform"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.event);
        const kelvarn::NamedEvent* event = kelvarn::findNamedEvent(row.event);
        ASSERT_NE(event, nullptr);
        std::string line;
        try {
            line = kelvarn::namedEventJournalLine(model, *event, row.sensor, 100, row.invert);
        } catch (const kelvarn::PlatformFileError& e) {
            line = e.what();
        }
        EXPECT_EQ(line, row.line);
    }
    EXPECT_EQ(kelvarn::findNamedEvent("processor-melted"), nullptr);
    // With a fan that only reads thresholds, a presence event still goes to it.
    const kelvarn::PlatformModel fanOnly = kelvarn::parsePlatform(
        platformWith(R"({"name": "FAN1", "number": 48, "sensorType": 4})"), "test.json");
    EXPECT_EQ(kelvarn::namedEventJournalLine(fanOnly, *kelvarn::findNamedEvent("fan-device-removed"), "", 7),
              "sel-add 7 32 48 0 assert 255 255 4 8");
}

// The journal logs the event with the given types and the sensor of the generator's
// LUN, numbering on from the newest entry; malformed changes are refused.
TEST(NamedEvents, JournalAppliesTheTypesAndTheLun) {
    kelvarn::PlatformModel model =
        kelvarn::parsePlatform(platformWith(R"({"name": "Front Temp", "number": 9, "sensorType": 1},
                        {"name": "Rear Intrusion", "number": 9, "lun": 1, "record": "compact", "sensorType": 5,
                         "eventReadingType": 111})",
                                            R"({"recordId": 41, "sensor": 9})"),
                               "test.json");
    std::string why;
    ASSERT_TRUE(kelvarn::applyJournalLine(model, "sel-add 1763700000 288 9 0 deassert 255 255 5 111", why))
        << why;
    ASSERT_TRUE(kelvarn::applyJournalLine(model, "sel-add 1763700000 32 9 11 assert 255 255 4 1", why))
        << why;
    ASSERT_TRUE(kelvarn::applyJournalLine(model, "sel-add 1763700000 32 9 7 assert 255 255", why)) << why;
    ASSERT_EQ(model.sel.size(), 4u);
    const Raw expected[] = {
        {42, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x01, 0x04, 0x05, 9, 0xEF, 0x00, 0xff, 0xff},
        {43, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x00, 0x04, 0x04, 9, 0x01, 0x0B, 0xff, 0xff},
        {44, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x00, 0x04, 0x01, 9, 0x01, 0x07, 0xff, 0xff},
    };
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(model.sel[i + 1].raw, expected[i]) << i;
    // Short, out of range, unknown, or one type without the other; too many tokens.
    const char* const refused[] = {"",
                                   "reading 32 0 9",
                                   "reading 32 0 9 256",
                                   "states 32 1 9 0x8000",
                                   "available 32 0 9 2",
                                   "sel-add 1 32 99 0 assert 255 255",
                                   "sel-add 1 32 9 15 assert 255 255",
                                   "sel-add 1 32 9 0 sideways 255 255",
                                   "sel-raw 00 11",
                                   "sel-raw 0 1 2 3 4 5 6 7 8 9 a b c d e 100",
                                   "sel-clear now",
                                   "sel-add 1 32 9 0 assert 255 255 5",
                                   "sel-add 1 32 9 0 assert 255 255 256 111",
                                   "sel-add 1 32 9 0 assert 255 255 5 128",
                                   "sel-add 1 32 9 0 assert 255 255 5 111 0"};
    for (const char* line : refused)
        EXPECT_FALSE(kelvarn::applyJournalLine(model, line, why)) << line;
    EXPECT_EQ(model.sel.size(), 4u);
}

} // namespace
