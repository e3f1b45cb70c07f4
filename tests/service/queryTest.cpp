// The query front and the simulated server: failures, value forms, SEL and inventory paths,
// platform files and the service configuration; SEL entry texts as a BMC's tools print them,
// and the named events of the simulated server: their journal lines and what the journal
// makes of them.
#include <gtest/gtest.h>

#include <array>

#include "kelvarn/Errors.h"
#include "kelvarn/Journal.h"
#include "kelvarn/Path.h"
#include "kelvarn/SelEvents.h"
#include "serviceTestUtil.h"
#include "support/e2e.h"
#include "support/files.h"

namespace {

TEST(QueryFailureTest, BadPathsAndRequestKeysAreThrownAsResultStatusWithTheirCode) {
    // The paths failing with each code, one after each "|".
    const std::pair<uint16_t, std::string> groups[] = {
        {1082, "||BMC/SDR|/BMC/SDR/SENSOR_TYPE[1|/BMC/SDR/SENSOR_TYPE1]|/BMC/SDR/SENSOR_TYPE[]|"
               "/BMC/SDR/SENSOR_TYPE[x]|/BMC/SDR/SENSOR_TYPE[-1]|/BMC/SDR/SENSOR_TYPE[1]x|"
               "/BMC/SDR/SENSOR_TYPE[4294967296]|/BMC//SDR|/BMC/SDR/|/BMC/SD\nR"},
        {1083,
         "|/BMC/SDR/SENSOR_TYPE[4294967295]|/BMC/SENSOR[200]/OWNER[32]/LUN[0]/NAME|"
         "/BMC/SENSOR[3]/OWNER[33]/LUN[0]/NAME|/BMC/SENSOR[3]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[256]|"
         "/BMC/SENSOR[999]/NAME|/BMC/SDR[50]|/BMC/SEL/TRANSLATED[5]|/SMBIOS/ProcessorInfo[2]|"
         "/SMBIOS/MemoryArray[0]/MemoryDevice[6]/Size|/BMC/FRU[1]/RECORD/DECODED/CHASSISAREA/TYPE"},
        {1084, "|/" + std::string(9999, 'A')},
        {1081, "|/BMC/NOTHING|/ELSEWHERE|/BMC/SENSOR[3]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_WARM|"
               "/SMBIOS/ProcessorInfo[0]/Colour"},
    };
    auto system = systemOver(kelvarn::demoPlatformText());
    size_t n = 0;
    for (const auto& g : groups)
        for (size_t at = 1, bar = 0; bar != std::string::npos; at = bar + 1, ++n) {
            const std::string path = g.second.substr(at, (bar = g.second.find('|', at)) - at);
            const std::vector<RStatus> f = failuresOf(*system, path);
            ASSERT_EQ(f.size(), 1u) << path.substr(0, 60);
            EXPECT_EQ(std::make_tuple(f[0].Code, f[0].Operation),
                      std::make_tuple(g.first, kelvarn::kOpGetPath))
                << path.substr(0, 60) << ": " << f[0].Message;
            EXPECT_LE(f[0].Path.size(), kelvarn::kMaxPathLength + 3);
        }
    EXPECT_EQ(n, 27u);

    // Each failing request key adds one status; the result stays as it was.
    Result r = {{"/kept", _XNode{}}};
    EXPECT_THROW(system->Get("/BMC/NOTHING", r), ResultStatus);
    EXPECT_EQ(r.size(), 1u);
    auto failures = [&](std::map<std::string, std::map<std::string, std::string>> keys) {
        return statusesOf([&] { system->Get(keys, r); });
    };
    const std::vector<RStatus> f =
        failures({{"/BMC/OEM/PRODUCTID", {}}, {"/BMC/NOTHING", {}}, {"/BMC/SDR[", {}}});
    ASSERT_EQ(f.size(), 2u);
    EXPECT_EQ(std::make_tuple(f[0].Code, f[0].Path, f[1].Code, f[1].Operation),
              std::make_tuple(1081, "/BMC/NOTHING", 1082, kelvarn::kOpGetRequest));
    EXPECT_EQ(failures({}).at(0).Code, 1088);
}

// A responder that fails in ways the front must contain.
class ThrowingResponder : public kelvarn::Responder {
public:
    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>&, const kelvarn::Parameters&,
                uint8_t, kelvarn::ResultMap&) override {
        if (path == "/std")
            throw std::out_of_range("index 9");
        throw 42;
    }
};

// Other exceptions become internal errors.
TEST(QueryFailureTest, OtherExceptionsBecomeInternalErrors) {
    SDK::System system(std::make_shared<ThrowingResponder>());
    EXPECT_EQ(failureOf(system, "/int").rfind("1087: ", 0), 0u);
    EXPECT_EQ(failureOf(system, "/std").rfind("1087: ", 0), 0u);
    EXPECT_NE(failureOf(system, "/std").find("index 9"), std::string::npos);
}

// The demo server: current readings and record attributes (names, thresholds and the
// conversion of every raw value of the full records are checked against FreeIPMI in
// sdrTest), inventory, collections and whole subtrees.
TEST(DemoServerTest, SensorsInventoryCollectionsUnavailableReadingsAndUnknownStates) {
    auto system = systemOver(kelvarn::demoPlatformText());
    expectValues(*system,
                 "SENSOR[16]/OWNER[32]/LUN[0]/TOLERANCE=1|"
                 "SENSOR[65]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=PRESENCE_DETECTED,PREDICTIVE_FAILURE|"
                 "SENSOR[65]/OWNER[32]/LUN[0]/TOLERANCE=NOT SUPPORTED|"
                 "SENSOR[65]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[3]=NOT SUPPORTED|"
                 "SENSOR[96]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=ALL_DEASSERTED|"
                 "FRU[0]/RECORD/DECODED/CHASSISAREA/SERIAL_NUMBER=C819AK21N0417|",
                 "/BMC/");
    expectValues(*system,
                 "Type3/SecurityStatus=None|Type24/HardwareSecuritySettings/KeyboardPassword=Not Implemented|"
                 "ProcessorInfo[1]/Upgrade=Socket LGA771|MemoryArray[1]/NumMemoryDevices=6|"
                 "MemoryArray[1]/MemoryDevice[3]/TypeDetail/Synchronous=Supported|",
                 "/SMBIOS/");
    auto keysOf = [&](const char* path) { return resultOf(*system, path); };
    EXPECT_EQ(keysOf("/BMC/SDR/SENSOR_TYPE[1]").begin()->first, "/BMC/SDR[0]");
    EXPECT_TRUE(keysOf("/BMC/SDR/SENSOR_TYPE[200]").empty());
    EXPECT_EQ(keysOf("/BMC/SDR/RECORD_TYPE[2]").size(), 18u); // and 32 full records
    Result sensor = keysOf("/BMC/SENSOR[4]/OWNER[32]/LUN[0]");
    ASSERT_EQ(sensor.size(), 11u); // name, value, six thresholds, three attributes
    EXPECT_EQ(sensor["/BMC/SENSOR[4]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_NONRECOVERABLE"].Values.at(0), "95");
    EXPECT_EQ(sensor["/BMC/SENSOR[4]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"].NodeType, 0);
    Result processor = keysOf("/SMBIOS/ProcessorInfo[0]"), memory = keysOf("/SMBIOS/MemoryArray");
    EXPECT_EQ(processor.size(), 16u);
    EXPECT_EQ(processor["/SMBIOS/ProcessorInfo[0]/ProcessorType"].Values.at(0), "Central processor");
    EXPECT_EQ(memory["/SMBIOS/MemoryArray[0]/MemoryDevice[5]/DevicePresent"].Values.at(0), "False");
    EXPECT_EQ(memory.count("/SMBIOS/ProcessorInfo/TotalNoOfProcessor"), 0u);

    auto odd = systemOver(platformWith(
        R"({"name": "Off", "number": 1, "sensorType": 1, "reading": 20, "available": false},
           {"name": "Odd", "number": 2, "record": "compact", "sensorType": 7, "eventReadingType": 111,
            "states": [0, 14]},
           {"sdr": "05 00 51 02 1e 20 00 03 07 01 63 40 0d 6f 00 00 00 00 ff 01 c0 00 00 00 00 00 00 00 00 00 00 c3 48 44 44", "states": ["DRIVE_FAULT"]})"));
    expectValues(
        *odd,
        "1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=READING_UNAVAILABLE|3]/OWNER[32]/LUN[0]/NAME=HDD|"
        "2]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=IERR,STATE_14|3]/OWNER[32]/LUN[0]/"
        "INTERPRET_SENSOR_VALUE=DRIVE_FAULT|",
        "/BMC/SENSOR[");
    // A record made from the platform file without masks: no deassertion events (bytes 16-17).
    EXPECT_EQ(valueOf(*odd, "/BMC/SDR[0]").substr(16 * 3, 5), "00 00");
}

TEST(SelTest, LastEntryKnownIdRangeAndTheirFailures) {
    auto system = systemOver(kelvarn::demoPlatformText());
    Result r = selQuery(*system, "ffff");
    ASSERT_EQ(r["/BMC/SEL/TRANSLATED"].Values, std::vector<std::string>{"/BMC/SEL/TRANSLATED[0]"});
    EXPECT_EQ(r["/BMC/SEL/TRANSLATED"].NodeType, 1);
    // Record 5: P12V (sensor 0x14, voltage), lower non-critical going low, readings 178/181.
    // Time stamp 1763689400 = 0x691FC3B8.
    EXPECT_EQ(r["/BMC/SEL/TRANSLATED[0]/RAW"].Values.at(0),
              "05 00 02 b8 c3 1f 69 20 00 04 02 14 01 50 b2 b5");
    EXPECT_EQ(r["/BMC/SEL/TRANSLATED[0]/VALUE"].Values.at(0), "0005");
    // From record 3, then at most 2 from it: the first byte (record ID) of each entry's RAW.
    auto ids = [](Result r) {
        std::string out;
        for (size_t i = 0; i < r["/BMC/SEL/TRANSLATED"].Values.size(); ++i)
            out += r["/BMC/SEL/TRANSLATED[" + std::to_string(i) + "]/RAW"].Values.at(0).substr(0, 3);
        return out;
    };
    EXPECT_EQ(ids(selQuery(*system, "3")), "03 04 05 ");
    EXPECT_EQ(ids(selQuery(*system, "3", "2")), "03 04 ");
    EXPECT_EQ(selQuery(*system, "3", "2").count("/BMC/SEL/TRANSLATED[2]/RAW"), 0u);
    // Unknown IDs and bad parameters.
    struct Case {
        const char* id;
        const char* range;
        uint16_t code;
    } cases[] = {{"1f", "3000", 1089}, {"6", nullptr, 1089}, {"xyz", "1", 1085},  {"12345", "1", 1085},
                 {"1", "0", 1085},     {"1", "ten", 1085},   {"1", "70000", 1085}};
    for (const Case& c : cases) {
        const std::vector<RStatus> f = statusesOf([&] { selQuery(*system, c.id, c.range); });
        ASSERT_EQ(f.size(), 1u) << c.id;
        EXPECT_EQ(f[0].Code, c.code) << c.id << " " << (c.range ? c.range : "");
    }
    // (An empty SEL: in the IPMI source's cleared-SEL case.)
}

TEST(PlatformFileTest, BadFilesNameTheFileThePlaceAndTheProblem) {
    // The text, and how the refusal starts after "test.json".
    const std::pair<std::string, const char*> cases[] = {
        {"{\n  \"format\": \"kelvarn-platform\",\n  \"version\": 1,,\n}", ":3:16: syntax error"},
        {R"({"format": "kelvarn-platform", "version": 2})", ": /version: version 2 is not supported"},
        {R"({"format": "other", "version": 1})", ": /format: expected \"kelvarn-platform\""},
        {R"({"format": "kelvarn-platform", "version": 1, "colour": 1})", ": /colour: unknown field"},
        {platformWith(R"({"name": "A", "number": 1, "m": 600})"), ": /bmc/sensors/0/m: 600 is out of "},
        {platformWith(R"({"name": "A", "number": 1}, {"name": "B", "number": 1})"),
         ": /bmc/sensors/1/number: duplicate sensor number 1 (owner 32, LUN byte 0)"},
        {platformWith(R"({"sdr": "01 00 51 02 1ff"})"), ": /bmc/sensors/0/sdr: \"1ff\" is not a byte"},
        {platformWith(R"({"sdr": "01 00 51 02 05 20 00 01 00 00"})"), ": /bmc/sensors/0/sdr: not a full"},
        {platformWith(R"({"name": "ABCDEFGHIJKLMNOPQ", "number": 1})"), ": /bmc/sensors/0/name: longer"},
        {platformWith(R"({"name": "A", "number": 1, "linearization": 12})"),
         ": /bmc/sensors/0/linearization: "},
        {platformWith(R"({"name": "A", "number": 1, "readableThresholds": ["UPPER_CRITICAL"]})"),
         ": /bmc/sensors/0/readableThresholds: UPPER_CRITICAL is readable but has no value"},
        {platformWith(
             R"({"name": "A", "number": 1, "eventReadingType": 111, "sensorType": 8, "states": ["IERR"]})"),
         ": /bmc/sensors/0/states/0: not a state offset"},
        {platformWith("", R"({"raw": "01 02"})"), ": /bmc/sel/0/raw: a SEL entry is 16 bytes, 2 given"},
        {platformWith("", R"({"sensor": 9, "offset": 1})"), ": /bmc/sel/0/sensor: no sensor 9"},
    };
    for (const auto& c : cases) {
        const std::string why =
            refusal<kelvarn::PlatformFileError>([&] { kelvarn::parsePlatform(c.first, "test.json"); });
        EXPECT_EQ(why.rfind(std::string("test.json") + c.second, 0), 0u) << why;
    }
}

TEST(ConfiguredSource, SimulatedPlatformFromTheConfigurationItsFailureAndTheQueryTool) {
    hmtest::TempDir dir;
    hmtest::writeFile(dir / "p.json", platformWith(R"({"name": "Only", "number": 9, "reading": 7})"));
    hmtest::writeFile(dir / "k.conf", "source=simulated\nplatform=p.json\n");
    ScopedConfig config(dir / "k.conf");
    SDK::System system;
    EXPECT_EQ(valueOf(system, "/BMC/SENSOR[9]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"), "7");
    hmtest::writeFile(dir / "p.json", "{");
    kelvarn::setProcessResponder(nullptr); // read again
    const std::vector<RStatus> f = failuresOf(system, "/BMC/SDR");
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(std::make_tuple(f[0].Code, f[0].Facility), std::make_tuple(1086, kelvarn::kFacilitySource));
    EXPECT_NE(f[0].Message.find(dir / "p.json:1:2: syntax error"), std::string::npos) << f[0].Message;
    setenv("KELVARN_CONFIG", "/nonexistent/kelvarn.conf", 1);
    EXPECT_EQ(failuresOf(system, "/BMC/SDR").at(0).Code, 1086);

    // Without KELVARN_CONFIG (and no /etc/kelvarn/kelvarn.conf) the tool serves the demo server.
    const hmtest::Result run = hmtest::runCommand(std::string("env -u KELVARN_CONFIG ") + HM_BINARY_DIR +
                                                  "/bin/kelvarn-query '/BMC/SDR/SENSOR_TYPE[1]'");
    const std::string& out = run.output;
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        out.rfind("Key = \"/BMC/SDR[0]\"\n\tNodeType = 0\n\t\tValue[0] = 01 00 51 01 35 20 00 01 40", 0), 0u)
        << out.substr(0, 200);
    EXPECT_NE(out.find("Key = \"/BMC/SDR[9]\""), std::string::npos);
    EXPECT_EQ(out.find("Key = \"/BMC/SDR[10]\""), std::string::npos);
}

using Raw = std::array<uint8_t, 16>;

// A system event record from owner 0x20, LUN 0, logged at 1763700000 (2025-11-21 04:40:00 UTC).
Raw systemEvent(uint8_t sensorType, uint8_t number, uint8_t dirType, uint8_t data1) {
    return {0x06, 0x00, 0x02,       0x20,   0xed,    0x1f,  0x69, 0x20,
            0x00, 0x04, sensorType, number, dirType, data1, 0xff, 0xff};
}

TEST(SelEntryText, TextsTimeStampsAndTheSensorOnTheGeneratorsLun) {
    const struct {
        uint8_t sensorType, number, dirType, data1;
        const char* sensor;
        const char* text;
    } rows[] = {
        {0x01, 4, 0x01, 0x59, "CPU2 Temp", "Temperature CPU2 Temp | Upper Critical going high | Asserted"},
        {0x04, 56, 0x0B, 0x02, "Fan Redundancy", "Fan Fan Redundancy | Redundancy Degraded | Asserted"},
        {0x08, 65, 0x6F, 0x03, "PSU2", "Power Supply PSU2 | Power Supply AC lost | Asserted"},
        {0x0D, 112, 0xEF, 0x00, "Drive 0", "Drive Slot / Bay Drive 0 | Drive Present | Deasserted"},
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

    // Two sensors share number and owner on different LUNs: the entry names the one on
    // the generator's LUN (bits 8-9 of the generator ID).
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
        // The first sensor of the type whose SDR has the event's event/reading type (every event
        // with its first sensor, and --deassert, reach their traps in tests/events).
        {"fan-device-removed", "", false, "sel-add 100 32 57 0 assert 255 255 4 8"},
        // A named sensor, by name, number or OWNER:LUN:NUMBER; the LUN goes to bits 8-9.
        {"psu-input-lost", "PSU2 Status", false, "sel-add 100 32 65 3 assert 255 255 8 111"},
        {"psu-input-lost", "65", false, "sel-add 100 32 65 3 assert 255 255 8 111"},
        {"chassis-intrusion", "44:1:9", false, "sel-add 100 300 9 0 assert 255 255 5 111"},
        // --deassert turns the direction over.
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
    for (const char* line :
         {"288 9 0 deassert 255 255 5 111", "32 9 11 assert 255 255 4 1", "32 9 7 assert 255 255"})
        ASSERT_TRUE(kelvarn::applyJournalLine(model, std::string("sel-add 1763700000 ") + line, why)) << why;
    ASSERT_EQ(model.sel.size(), 4u);
    const Raw expected[] = {
        {42, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x01, 0x04, 0x05, 9, 0xEF, 0x00, 0xff, 0xff},
        {43, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x00, 0x04, 0x04, 9, 0x01, 0x0B, 0xff, 0xff},
        {44, 0, 0x02, 0x20, 0xed, 0x1f, 0x69, 0x20, 0x00, 0x04, 0x01, 9, 0x01, 0x07, 0xff, 0xff},
    };
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(model.sel[i + 1].raw, expected[i]) << i;
    // Short, out of range, unknown, or one type without the other; too many tokens.
    std::istringstream refused(
        "|reading 32 0 9|reading 32 0 9 256|states 32 1 9 0x8000|available 32 0 9 2|"
        "sel-add 1 32 99 0 assert 255 255|sel-add 1 32 9 15 assert 255 255|sel-add 1 32 9 0 sideways 255 255|"
        "sel-raw 00 11|sel-raw 0 1 2 3 4 5 6 7 8 9 a b c d e 100|sel-clear now|sel-add 1 32 9 0 assert 255 "
        "255 5|"
        "sel-add 1 32 9 0 assert 255 255 256 111|sel-add 1 32 9 0 assert 255 255 5 128|"
        "sel-add 1 32 9 0 assert 255 255 5 111 0");
    int n = 0;
    for (std::string line; std::getline(refused, line, '|'); ++n)
        EXPECT_FALSE(kelvarn::applyJournalLine(model, line, why)) << line;
    EXPECT_EQ(n, 15);
    EXPECT_EQ(model.sel.size(), 4u);
}

} // namespace
