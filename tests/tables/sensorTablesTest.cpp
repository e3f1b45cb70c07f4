// The temperature, voltage and cooling-device tables against platform files whose
// raw readings, thresholds and conversion factors give the published values below,
// worked out by hand from the tables' rules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/hmClient.h"
#include "platform/sensorTableSupport.h"
#include "tables/coolingDevice.h"
#include "tables/temperatureProbe.h"
#include "tables/voltageProbe.h"
#include "inventoryTestSupport.h"

namespace {

using namespace inventorytest;

// Every column of a sensor table from its id column: id, description, status name, status,
// reading, six thresholds (live), resolution, tolerance, accuracy.
const char kSensorKinds[] = "isSIIIIIIIIiii";

// The rows, and the status each row got at start-up.
template <class XInfo>
void expectRows(BaseContainer<XInfo>& t, int first, const std::vector<std::string>& rows,
                const std::vector<int32_t>& initStatus) {
    ASSERT_EQ(t.getCount(), static_cast<int>(rows.size()));
    for (int i = 0; i < t.getCount(); ++i) {
        EXPECT_EQ(cells(t, i, first, kSensorKinds), rows[i]);
        EXPECT_EQ(static_cast<XInfo*>(t.getRow(i))->status, initStatus[i]) << rows[i];
    }
    // Columns asked through the other getter are unknown (9), handing out nothing; so are
    // writes to columns other than the thresholds.
    EXPECT_EQ(cells(t, 0, first, "IS") + "|" + cells(t, 0, first + 1, "is"), "!9|!9|!9|!9");
    EXPECT_EQ(t.setIntData(first + 4, 0, 5), CLIENT_ERROR_NOSUCHNAME);
    EXPECT_EQ(t.setIntData(first + 11, 0, 5), CLIENT_ERROR_NOSUCHNAME);
}

// Writes to the six threshold columns are accepted and change nothing.
void expectThresholdWritesDiscarded(BaseAccessor& t, int first, int32_t value) {
    const std::string before = cells(t, 0, first, kSensorKinds);
    for (int attribute = first + 5; attribute < first + 11; ++attribute)
        EXPECT_EQ(t.setIntData(attribute, 0, value), CLIENT_SUCCESS) << attribute;
    EXPECT_EQ(cells(t, 0, first, kSensorKinds), before);
}

class SensorTablesTest : public sensortest::TracedTest {
protected:
    void TearDown() override {
        hmClient::bInverseLinearization = false;
        TracedTest::TearDown();
    }
};

// temperature.json, scale 10 (tenths of a degree); thresholds in the order UNR UC UNC LNR LC LNC:
//   CPU Temp   degrees C, reading 45, UNR 100, UC 90, UNC 85, LC 5, m 1, tolerance 2, accuracy 50
//   Hot Temp   degrees C, reading 95, UNR 100, UC 90
//   Kelvin Temp  Kelvin, m 2: reading 320, UC 364 -> (364 - 273) x 10 = 910 against reading 3200;
//              at start-up the raw 320 was judged against the raw 364: "ok"
//   Cold Temp  reading 5, LC 10 only: lower thresholds do not count, so "unknown"
//   Lost Temp  no reading
//   Odd Unit Temp  unit code 5: every present threshold converts to 0
TEST_F(SensorTablesTest, TemperatureProbePublishesTenthsOfDegreesAndJudgesUpperThresholds) {
    sensortest::usePlatformFile("temperature.json");
    temperatureProbe t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, 138,
               {"1|CPU Temp|ok|3|450|1000|900|850|-|50|-|100|20|50",
                "2|Hot Temp|critical|5|950|1000|900|-|-|-|-|100|0|0",
                "3|Kelvin Temp|critical|5|3200|-|910|-|-|-|-|200|0|0",
                "4|Cold Temp|unknown|2|50|-|-|-|-|100|-|100|0|0",
                "5|Lost Temp|unknown|2|-|-|900|-|-|-|-|100|0|0",
                "6|Odd Unit Temp|critical|5|200|-|0|-|-|-|-|100|0|0"},
               {3, 5, 3, 2, 2, 3});
    EXPECT_EQ(t.getMaxStatus(), 5);
    EXPECT_EQ(temperatureSensorDatabase().GetCount(), 6);
    expectThresholdWritesDiscarded(t, 138, 950);
}

// voltage.json, multiplier 1000 (millivolts), 0.1 V per count; UC 13.2, UNC 12.6, LNC 11.4, LC 10.8 V
// (thresholds in the order UNR UC UNC LNC LC LNR). "P1V1 Curve" is non-linear and dropped.
TEST_F(SensorTablesTest, VoltageProbeKeepsLinearSensorsInMillivolts) {
    sensortest::usePlatformFile("voltage.json");
    voltageProbe t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, 55,
               {"20|P12V A|ok|3|12100|-|13200|12600|11400|10800|-|100|3|25",
                "21|P12V B|critical|5|10700|-|13200|12600|11400|10800|-|100|3|0",
                "23|P12V C|nonCritical|4|11300|-|13200|12600|11400|10800|-|100|3|0",
                "24|P5V|unknown|2|-|-|5746|-|-|-|-|26|0|0"},
               {3, 5, 4, 2});
    CDatabase<CSensorWrapper>& db = voltageSensorDatabase();
    ASSERT_EQ(db.GetCount(), 4);
    EXPECT_EQ(db.GetAt(2)->m_SensorInfo.nSensorNumber, 23);
    expectThresholdWritesDiscarded(t, 55, 12000);
    // The start-up status of each row is traced, under the row's place in the table.
    EXPECT_NE(trace().find("Voltage:Status[1]=5\n"), std::string::npos);
}

// A reading that changes after start-up: the temperature status name keeps the reading found
// at start-up, the voltage status name is read live; the rows keep their start-up status.
TEST_F(SensorTablesTest, StatusNamesAfterTheReadingChanged) {
    sensortest::usePlatformFile("temperature.json");
    temperatureProbe t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    kelvarn::PlatformModel model = sensortest::loadModel("temperature.json");
    sensortest::setRawReading(model, 1, 95); // CPU Temp rises to 95 degrees
    sensortest::serveModel(model);
    EXPECT_EQ(cells(t, 0, 140, "SII"), "ok|5|950");
    EXPECT_EQ(static_cast<TemperatureInfo*>(t.getRow(0))->status, 3);

    sensortest::usePlatformFile("voltage.json");
    voltageProbe v;
    ASSERT_EQ(v.init(), CLIENT_SUCCESS);
    model = sensortest::loadModel("voltage.json");
    sensortest::setRawReading(model, 20, 113); // 11.3 V: below the lower non-critical 11.4 V
    sensortest::serveModel(model);
    EXPECT_EQ(cells(v, 0, 57, "S"), "nonCritical");
    EXPECT_EQ(static_cast<VoltageInfo*>(v.getRow(0))->status, 3);
}

// fan.json, RPM: FAN1 75 x 80 = 6000 (LNC 1500, LC 975); FAN2 75 x 18 = 1350; FAN3 non-linear;
// FAN4 100 x 4 = 400 with LC 500 and UC 9000. With inverse linearization the record's lower
// thresholds are published and judged as upper ones: FAN4's 400 RPM is below the working lower
// critical 9000.
TEST_F(SensorTablesTest, CoolingDeviceKeepsLinearFansAndInverseLinearizationSwapsThresholds) {
    sensortest::usePlatformFile("fan.json");
    coolingDevice t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, 117,
               {"48|FAN1|ok|3|6000|-|-|-|1500|975|-|750|1|40",
                "49|FAN2|nonCritical|4|1350|-|-|-|1500|975|-|750|1|0",
                "51|FAN4|critical|5|400|-|9000|-|-|500|-|1000|2|0"},
               {3, 4, 5});
    EXPECT_EQ(coolingSensorDatabase().GetCount(), 3);
    expectThresholdWritesDiscarded(t, 117, 100);
    coolingDevice inverse(true);
    ASSERT_EQ(inverse.init(), CLIENT_SUCCESS);
    expectRows(inverse, 117,
               {"48|FAN1|critical|5|6000|-|975|1500|-|-|-|750|1|40",
                "49|FAN2|critical|5|1350|-|975|1500|-|-|-|750|1|0",
                "51|FAN4|critical|5|400|-|500|-|-|9000|-|1000|2|0"},
               {5, 5, 5});
    // Sensors of other types make no rows.
    temperatureProbe temperature;
    voltageProbe voltage;
    ASSERT_EQ(temperature.init() + voltage.init(), CLIENT_SUCCESS);
    EXPECT_EQ(temperature.getCount() + voltage.getCount(), 0);
}

TEST(SensorTableSupport, TemperatureThresholdConversionByUnit) {
    const int32_t A = NO_VALUE;
    struct Case {
        int32_t value, unit, expected;
    } cases[] = {{90, 0, 90}, {90, 1, 900}, {363, 3, 900}, {363, 2, 900}, {250, 2, -230},   {90, 4, 0},
                 {90, 18, 0}, {A, 1, A},    {A, 3, A},     {A, 7, A},     {300000000, 1, A}}; // does not fit
    for (const Case& c : cases)
        EXPECT_EQ(temperatureProbe::convertThreshold(c.value, c.unit, 10), c.expected)
            << c.value << " unit " << c.unit;
}

// A name the query answered is published, cut to 127 characters, an empty one included;
// only a sensor without an answer gets the placeholder.
TEST(SensorTableSupport, DescriptionsAreTheAnsweredNameOrThePlaceholder) {
    struct Case {
        bool answered;
        std::string name, description;
    } cases[] = {{true, "CPU1 Temp", "CPU1 Temp"},
                 {true, "", ""},
                 {false, "", "PX_VoltageSensor"},
                 {true, std::string(133, 'D'), std::string(127, 'D')}};
    for (const Case& c : cases) {
        CSensorInfo info;
        info.bNamePresent = c.answered;
        info.stName = CString(c.answered ? c.name.c_str() : nullptr);
        char description[kSensorDescriptionSize];
        size_t length = 99;
        EXPECT_EQ(describeSensor(info, "PX_VoltageSensor", description, &length), c.answered);
        EXPECT_EQ(std::string(description), c.description);
        EXPECT_EQ(length, c.answered ? c.description.size() : 0u);
    }
}

// The flag is a DWORD of the agent's Parameters key; absent, zero or not a DWORD: clear.
TEST(InverseLinearizationSetting, ReadFromTheRegistry) {
    hmtest::TempDir dir;
    const std::string path = dir / "registry.reg";
    setenv("HMSUBAGENT_REGISTRY", path.c_str(), 1);
    const std::pair<std::string, bool> cases[] = {{"\"bInverseLinearization\"=dword:00000001", true},
                                                  {"\"bInverseLinearization\"=dword:00000000", false},
                                                  {"\"bInverseLinearization\"=\"1\"", false},
                                                  {"", false}};
    for (const auto& [line, expected] : cases) {
        hmtest::writeFile(path, "Windows Registry Editor Version 5.00\r\n\r\n"
                                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n" +
                                    line + "\r\n");
        hmClient::bInverseLinearization = !expected;
        hmClient().readInverseLinearization();
        EXPECT_EQ(hmClient::bInverseLinearization, expected) << line;
    }
    unsetenv("HMSUBAGENT_REGISTRY");
    hmClient::bInverseLinearization = false;
}

} // namespace
