// The temperature, voltage and cooling-device tables against platform files whose
// raw readings, thresholds and conversion factors give the published values below,
// worked out by hand from the tables' rules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "core/hmClient.h"
#include "platform/sensorTableSupport.h"
#include "tables/coolingDevice.h"
#include "tables/temperatureProbe.h"
#include "tables/voltageProbe.h"
#include "inventoryTestSupport.h"

namespace {

using sensortest::containsInOrder;
using sensortest::countOf;
using sensortest::TracedTest;
using namespace inventorytest;

constexpr int32_t A = NO_VALUE; // absent

// Attribute codes of one table, and its no-row code.
struct Codes {
    int id, description, statusName, status, reading, unr, uc, unc, lnc, lc, lnr, resolution, tolerance,
        accuracy;
    uint32_t noRow;
};
const Codes kTemperature{138, 139, 140, 141, 142, 143, 144, 145, 148, 147, 146, 149, 150, 151, 32};
const Codes kVoltage{55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 25};
const Codes kCooling{117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128, 129, 130, 30};

// One published row.
struct Row {
    uint32_t id;
    const char* description;
    int32_t initStatus; // the row's status as start-up found it
    const char* statusName;
    int32_t status;
    int32_t reading, unr, uc, unc, lnc, lc, lnr, resolution, tolerance, accuracy;
};

template <class XInfo>
void expectRows(BaseContainer<XInfo>& t, const Codes& c, const std::vector<Row>& rows) {
    ASSERT_EQ(t.getCount(), static_cast<int>(rows.size()));
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& r = rows[i];
        const int n = static_cast<int>(i);
        SCOPED_TRACE(r.description);
        EXPECT_EQ(static_cast<XInfo*>(t.getRow(n))->status, r.initStatus);
        expectRow(t, n,
                  {I(c.id, static_cast<int32_t>(r.id)), S(c.description, r.description),
                   SL(c.statusName, r.statusName), IL(c.status, r.status), IL(c.reading, r.reading),
                   IL(c.unr, r.unr), IL(c.uc, r.uc), IL(c.unc, r.unc), IL(c.lnc, r.lnc), IL(c.lc, r.lc),
                   IL(c.lnr, r.lnr), I(c.resolution, r.resolution), I(c.tolerance, r.tolerance),
                   I(c.accuracy, r.accuracy)});
    }
}

// Unknown attributes: 9, with the out value in its "nothing" form.
void expectUnknownAttributes(BaseAccessor& t, const Codes& c) {
    for (IntRead r : {readInt(t, Getter::IntInfo, c.description, 0), readInt(t, Getter::IntData, c.id, 0)})
        EXPECT_EQ((std::pair<uint32_t, int32_t>{CLIENT_ERROR_NOSUCHNAME, -1}),
                  std::make_pair(r.code, r.value));
    for (StrRead r :
         {readStr(t, Getter::StrInfo, c.statusName, 0), readStr(t, Getter::StrData, c.description, 0)})
        EXPECT_EQ((std::pair<uint32_t, bool>{CLIENT_ERROR_NOSUCHNAME, true}), std::make_pair(r.code, r.null));
    EXPECT_EQ(t.setIntData(c.reading, 0, 5), CLIENT_ERROR_NOSUCHNAME);
    EXPECT_EQ(t.setIntData(c.resolution, 0, 5), CLIENT_ERROR_NOSUCHNAME);
}

// Writes to the six threshold columns from `first` are accepted and change nothing.
void expectThresholdWritesDiscarded(BaseAccessor& t, int first, int32_t value, const Column& unchanged) {
    for (int attribute = first; attribute < first + 6; ++attribute)
        EXPECT_EQ(t.setIntData(attribute, 0, value), CLIENT_SUCCESS) << attribute;
    expectRow(t, 0, {unchanged});
}

class SensorTablesTest : public TracedTest {
protected:
    void TearDown() override {
        hmClient::bInverseLinearization = false;
        TracedTest::TearDown();
    }
};

// temperature.json, scale 10 (tenths of a degree):
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
    expectRows(t, kTemperature,
               {{1, "CPU Temp", 3, "ok", 3, 450, 1000, 900, 850, A, 50, A, 100, 20, 50},
                {2, "Hot Temp", 5, "critical", 5, 950, 1000, 900, A, A, A, A, 100, 0, 0},
                {3, "Kelvin Temp", 3, "critical", 5, 3200, A, 910, A, A, A, A, 200, 0, 0},
                {4, "Cold Temp", 2, "unknown", 2, 50, A, A, A, A, 100, A, 100, 0, 0},
                {5, "Lost Temp", 2, "unknown", 2, A, A, 900, A, A, A, A, 100, 0, 0},
                {6, "Odd Unit Temp", 3, "critical", 5, 200, A, 0, A, A, A, A, 100, 0, 0}});
    EXPECT_EQ(t.getMaxStatus(), 5);
    EXPECT_EQ(temperatureSensorDatabase().GetCount(), 6);
    expectUnknownAttributes(t, kTemperature);

    const std::string log = trace();
    EXPECT_TRUE(containsInOrder(
        log, {"Temperature probe init() called",
              "\n The value of m_nCount is 6:", "\n The value of Resolution = 1,Accuracy = 50,Tolerance = 2",
              "buffer len:8\n", "temp1 buffer:CPU Temp:  description:CPU Temp:\n",
              "\n Inside Temperature probe the value of status is: 3: ",
              " Threshold values is LC =2147483647,LNC =2147483647,LNR =2147483647,UC= 90,"
              "UNC = 85,UR =100,Resolution = 1,UnitType = 1",
              "\n End of ClTemperatureProbe init()"}));
    EXPECT_NE(
        log.find("Inside getIntData Getting temp status: read:450 LC:50 LNR:2147483647 LNC:2147483647 UC:900 "
                 "UNR1000 UC:850\n"),
        std::string::npos);
    EXPECT_NE(log.find("\n UpperCritical =900,iType = 144"), std::string::npos);
    EXPECT_NE(log.find("\n\n\n Inside getIntData of Temperature status is :3"), std::string::npos);
    expectThresholdWritesDiscarded(t, 143, 950, IL(kTemperature.uc, 900));
    EXPECT_TRUE(containsInOrder(trace(), {"temperatureProbe::setIntData setting to 950\n",
                                          "clTemperature init, status is unknown\n"}));
}

// voltage.json, multiplier 1000 (millivolts), 0.1 V per count; UC 13.2, UNC 12.6, LNC 11.4, LC 10.8 V.
// "P1V1 Curve" is non-linear and dropped.
TEST_F(SensorTablesTest, VoltageProbeKeepsLinearSensorsInMillivolts) {
    sensortest::usePlatformFile("voltage.json");
    voltageProbe t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, kVoltage,
               {{20, "P12V A", 3, "ok", 3, 12100, A, 13200, 12600, 11400, 10800, A, 100, 3, 25},
                {21, "P12V B", 5, "critical", 5, 10700, A, 13200, 12600, 11400, 10800, A, 100, 3, 0},
                {23, "P12V C", 4, "nonCritical", 4, 11300, A, 13200, 12600, 11400, 10800, A, 100, 3, 0},
                {24, "P5V", 2, "unknown", 2, A, A, 5746, A, A, A, A, 26, 0, 0}});
    CDatabase<CSensorWrapper>& db = voltageSensorDatabase();
    ASSERT_EQ(db.GetCount(), 4);
    EXPECT_EQ(db.GetAt(2)->m_SensorInfo.nSensorNumber, 23);
    expectUnknownAttributes(t, kVoltage);
    expectThresholdWritesDiscarded(t, 60, 12000, IL(kVoltage.uc, 13200));

    const std::string log = trace();
    EXPECT_EQ(countOf(log, "\n Removing the object "), 1u);
    EXPECT_TRUE(containsInOrder(
        log,
        {"\n Voltager probe init() called:", "\n The value of m_nCount is 5:",
         "\n In voltage probe the Resolution=100,Tolerance=3,Accuracy=25",
         "\n In voltage probe the value of unit is 4",
         "\n Inside voltage Threshold P12V A values is LC =10800,LNC =11400,LNR =2147483647,UC= 13200,UNC = "
         "12600,UR =2147483647,Resolution = 100,UnitType = 4",
         "Voltage:Status[0]=3\n", "Voltage:Status[1]=5\n", "\n Removing the object 2",
         "Voltage:Status[2]=4\n", "\n End of VoltageProbe init()"}));
    EXPECT_NE(
        log.find("\n\n---Voltage Proble getStrData---\n  \t\t\t\t\t CR = 12100, LC =10800, LNR = 2147483647, "
                 "LNC =11400 ,UC=13200, UNR2147483647, UNC = 12600 \n\n"),
        std::string::npos);
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
    expectRow(t, 0,
              {IL(kTemperature.reading, 950), IL(kTemperature.status, 5), SL(kTemperature.statusName, "ok")});
    EXPECT_EQ(static_cast<TemperatureInfo*>(t.getRow(0))->status, 3);

    sensortest::usePlatformFile("voltage.json");
    voltageProbe v;
    ASSERT_EQ(v.init(), CLIENT_SUCCESS);
    model = sensortest::loadModel("voltage.json");
    sensortest::setRawReading(model, 20, 113); // 11.3 V: below the lower non-critical 11.4 V
    sensortest::serveModel(model);
    expectRow(v, 0, {SL(kVoltage.statusName, "nonCritical")});
    EXPECT_EQ(static_cast<VoltageInfo*>(v.getRow(0))->status, 3);
}

// fan.json, RPM: FAN1 75 x 80 = 6000 (LNC 1500, LC 975); FAN2 75 x 18 = 1350; FAN3 non-linear;
// FAN4 100 x 4 = 400 with LC 500 and UC 9000.
TEST_F(SensorTablesTest, CoolingDeviceKeepsLinearFans) {
    sensortest::usePlatformFile("fan.json");
    coolingDevice t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, kCooling,
               {{48, "FAN1", 3, "ok", 3, 6000, A, A, A, 1500, 975, A, 750, 1, 40},
                {49, "FAN2", 4, "nonCritical", 4, 1350, A, A, A, 1500, 975, A, 750, 1, 0},
                {51, "FAN4", 5, "critical", 5, 400, A, 9000, A, A, 500, A, 1000, 2, 0}});
    EXPECT_EQ(coolingSensorDatabase().GetCount(), 3);
    expectUnknownAttributes(t, kCooling);
    expectThresholdWritesDiscarded(t, 122, 100, IL(kCooling.lc, 975));
    const std::string log = trace();
    EXPECT_TRUE(containsInOrder(
        log,
        {"coolingDevice::init() called.\n", "\n The value of nCount is 4:",
         "\n This cooling device is linear value = 0, count =0\n", "\n This cooling device is linear\n",
         "\n This cooling device is linear value = 7, count =2\n", "\n This cooling device is Non-linear\n",
         "\n Inside cooling value of m_nCount is 3:", "\n Inside the cooling Device value of ret is 0:",
         "\n Inside coolingDevice value of Resolution = 75,Accuracy = 40,Tolerance = 1",
         " Inside cooling Device Threshold values is LC =975,LNC =1500,LNR =2147483647,UC= 2147483647,UNC = "
         "2147483647,UR =2147483647,Resolution = 75,UnitType = 18",
         "\n Removing the object 2", "getIntData called: 119,0\n"}));
    EXPECT_EQ(log.find("hmClient::bInverseLinearization\n"), std::string::npos);
    // Sensors of other types make no rows.
    temperatureProbe temperature;
    voltageProbe voltage;
    ASSERT_EQ(temperature.init() + voltage.init(), CLIENT_SUCCESS);
    EXPECT_EQ(temperature.getCount() + voltage.getCount(), 0);
}

// With inverse linearization the record's lower thresholds are published and judged as
// upper ones: FAN4's 400 RPM is below the working lower critical 9000.
TEST_F(SensorTablesTest, InverseLinearizationSwapsUpperAndLowerThresholds) {
    sensortest::usePlatformFile("fan.json");
    coolingDevice t(true);
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, kCooling,
               {{48, "FAN1", 5, "critical", 5, 6000, A, 975, 1500, A, A, A, 750, 1, 40},
                {49, "FAN2", 5, "critical", 5, 1350, A, 975, 1500, A, A, A, 750, 1, 0},
                {51, "FAN4", 5, "critical", 5, 400, A, 500, A, A, 9000, A, 1000, 2, 0}});
    EXPECT_NE(trace().find("hmClient::bInverseLinearization\n"), std::string::npos);
}

TEST(SensorTableSupport, TemperatureThresholdConversionByUnit) {
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
        std::string name;
        bool own;
        std::string description;
    } cases[] = {{true, "CPU1 Temp", true, "CPU1 Temp"},
                 {true, "", true, ""},
                 {false, "", false, "PX_VoltageSensor"},
                 {true, std::string(133, 'D'), true, std::string(127, 'D')}};
    for (const Case& c : cases) {
        CSensorInfo info;
        info.bNamePresent = c.answered;
        info.stName = CString(c.answered ? c.name.c_str() : nullptr);
        char description[kSensorDescriptionSize];
        size_t length = 99;
        EXPECT_EQ(describeSensor(info, "PX_VoltageSensor", description, &length), c.own) << c.description;
        EXPECT_EQ(std::string(description), c.description);
        EXPECT_EQ(length, c.own ? c.description.size() : 0u);
    }
}

// The flag is a DWORD of the agent's Parameters key; absent, zero or not a DWORD: clear.
TEST(InverseLinearizationSetting, ReadFromTheRegistry) {
    const std::string path =
        ::testing::TempDir() + "hm-sensors-registry-" + std::to_string(getpid()) + ".reg";
    struct Case {
        const char* line;
        bool expected;
    } cases[] = {{"\"bInverseLinearization\"=dword:00000001", true},
                 {"\"bInverseLinearization\"=dword:00000000", false},
                 {"\"bInverseLinearization\"=\"1\"", false},
                 {"", false}};
    for (const Case& c : cases) {
        hmtest::writeFile(path, "Windows Registry Editor Version 5.00\r\n\r\n"
                                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                                "\"LogFile\"=\"/tmp/unused.log\"\r\n" +
                                    std::string(c.line) + "\r\n");
        setenv("HMSUBAGENT_REGISTRY", path.c_str(), 1);
        hmClient::bInverseLinearization = !c.expected;
        hmClient client;
        client.readInverseLinearization();
        EXPECT_EQ(hmClient::bInverseLinearization, c.expected) << c.line;
    }
    unsetenv("HMSUBAGENT_REGISTRY");
    std::remove(path.c_str());
    hmClient::bInverseLinearization = false;
}

} // namespace
