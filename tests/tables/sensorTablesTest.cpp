// The temperature, voltage and cooling-device tables against platform files whose
// raw readings, thresholds and conversion factors give the published values below,
// worked out by hand from the tables' rules; and the rules every table shares.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "core/hmClient.h"
#include "events/eventHandler.h"
#include "tables/processorDevice.h"
#include "platform/sensorTableSupport.h"
#include "tables/coolingDevice.h"
#include "tables/temperatureProbe.h"
#include "tables/voltageProbe.h"
#include "cells.h"
#include "tests/platform/sensorTestSupport.h"

namespace {

using hmtest::cells;

constexpr int32_t A = NO_VALUE; // absent

// Every column of a sensor table from its id column: id, description, status name, status,
// reading, six thresholds (live), resolution, tolerance, accuracy.
const char kSensorKinds[] = "isSIIIIIIIIiii";

// The rows, each followed by " @" and the status the row got at start-up.
template <class XInfo>
void expectRows(BaseContainer<XInfo>& t, int first, const std::vector<std::string>& rows) {
    ASSERT_EQ(t.getCount(), static_cast<int>(rows.size()));
    for (int i = 0; i < t.getCount(); ++i)
        EXPECT_EQ(cells(t, i, first, kSensorKinds) + " @" +
                      std::to_string(static_cast<XInfo*>(t.getRow(i))->status),
                  rows[i]);
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
               {"1|CPU Temp|ok|3|450|1000|900|850|-|50|-|100|20|50 @3",
                "2|Hot Temp|critical|5|950|1000|900|-|-|-|-|100|0|0 @5",
                "3|Kelvin Temp|critical|5|3200|-|910|-|-|-|-|200|0|0 @3",
                "4|Cold Temp|unknown|2|50|-|-|-|-|100|-|100|0|0 @2",
                "5|Lost Temp|unknown|2|-|-|900|-|-|-|-|100|0|0 @2",
                "6|Odd Unit Temp|critical|5|200|-|0|-|-|-|-|100|0|0 @3"});
    EXPECT_EQ(t.getMaxStatus(), 5);
    EXPECT_EQ(temperatureSensorDatabase().GetCount(), 6);
    expectThresholdWritesDiscarded(t, 138, 950);
    // CPU Temp rises to 95 degrees: its status name keeps the reading found at start-up, and
    // so does the row's status.
    kelvarn::PlatformModel model = sensortest::loadModel("temperature.json");
    sensortest::setRawReading(model, 1, 95);
    sensortest::serveModel(model);
    EXPECT_EQ(cells(t, 0, 140, "SII"), "ok|5|950");
    EXPECT_EQ(static_cast<TemperatureInfo*>(t.getRow(0))->status, 3);
}

// voltage.json, multiplier 1000 (millivolts), 0.1 V per count; UC 13.2, UNC 12.6, LNC 11.4, LC 10.8 V
// (thresholds in the order UNR UC UNC LNC LC LNR). "P1V1 Curve" is non-linear and dropped.
TEST_F(SensorTablesTest, VoltageProbeKeepsLinearSensorsInMillivolts) {
    sensortest::usePlatformFile("voltage.json");
    voltageProbe t;
    ASSERT_EQ(t.init(), CLIENT_SUCCESS);
    expectRows(t, 55,
               {"20|P12V A|ok|3|12100|-|13200|12600|11400|10800|-|100|3|25 @3",
                "21|P12V B|critical|5|10700|-|13200|12600|11400|10800|-|100|3|0 @5",
                "23|P12V C|nonCritical|4|11300|-|13200|12600|11400|10800|-|100|3|0 @4",
                "24|P5V|unknown|2|-|-|5746|-|-|-|-|26|0|0 @2"});
    CDatabase<CSensorWrapper>& db = voltageSensorDatabase();
    ASSERT_EQ(db.GetCount(), 4);
    EXPECT_EQ(db.GetAt(2)->m_SensorInfo.nSensorNumber, 23);
    expectThresholdWritesDiscarded(t, 55, 12000);
    // The start-up status of each row is traced, under the row's place in the table.
    EXPECT_NE(trace().find("Voltage:Status[1]=5\n"), std::string::npos);
    // P12V A falls to 11.3 V, below the lower non-critical 11.4 V: the status name is read live,
    // the row keeps its start-up status.
    kelvarn::PlatformModel model = sensortest::loadModel("voltage.json");
    sensortest::setRawReading(model, 20, 113);
    sensortest::serveModel(model);
    EXPECT_EQ(cells(t, 0, 57, "S"), "nonCritical");
    EXPECT_EQ(static_cast<VoltageInfo*>(t.getRow(0))->status, 3);
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
               {"48|FAN1|ok|3|6000|-|-|-|1500|975|-|750|1|40 @3",
                "49|FAN2|nonCritical|4|1350|-|-|-|1500|975|-|750|1|0 @4",
                "51|FAN4|critical|5|400|-|9000|-|-|500|-|1000|2|0 @5"});
    EXPECT_EQ(coolingSensorDatabase().GetCount(), 3);
    expectThresholdWritesDiscarded(t, 117, 100);
    coolingDevice inverse(true);
    ASSERT_EQ(inverse.init(), CLIENT_SUCCESS);
    expectRows(inverse, 117,
               {"48|FAN1|critical|5|6000|-|975|1500|-|-|-|750|1|40 @5",
                "49|FAN2|critical|5|1350|-|975|1500|-|-|-|750|1|0 @5",
                "51|FAN4|critical|5|400|-|500|-|-|9000|-|1000|2|0 @5"});
    // Sensors of other types make no rows.
    temperatureProbe temperature;
    voltageProbe voltage;
    ASSERT_EQ(temperature.init() + voltage.init(), CLIENT_SUCCESS);
    EXPECT_EQ(temperature.getCount() + voltage.getCount(), 0);
}

TEST(SensorTableSupport, TemperatureThresholdConversionByUnit) {
    const int32_t cases[][3] = {{90, 0, 90},    {90, 1, 900}, {363, 3, 900},    {363, 2, 900},
                                {250, 2, -230}, {90, 4, 0},   {90, 18, 0},      {A, 1, A},
                                {A, 3, A},      {A, 7, A},    {300000000, 1, A}}; // does not fit
    for (const auto& c : cases)                                                   // value, unit, published
        EXPECT_EQ(temperatureProbe::convertThreshold(c[0], c[1], 10), c[2]) << c[0] << " unit " << c[1];
}

// A name the query answered is published, cut to 127 characters, an empty one included;
// only a sensor without an answer gets the placeholder.
TEST(SensorTableSupport, DescriptionsAreTheAnsweredNameOrThePlaceholder) {
    // Answered, name, description.
    const std::tuple<bool, std::string, std::string> cases[] = {
        {true, "CPU1 Temp", "CPU1 Temp"},
        {true, "", ""},
        {false, "", "PX_VoltageSensor"},
        {true, std::string(133, 'D'), std::string(127, 'D')}};
    for (const auto& [answered, name, description] : cases) {
        CSensorInfo info;
        info.bNamePresent = answered;
        info.stName = CString(answered ? name.c_str() : nullptr);
        char text[kSensorDescriptionSize];
        size_t length = 99;
        EXPECT_EQ(describeSensor(info, "PX_VoltageSensor", text, &length), answered);
        EXPECT_EQ(std::string(text), description);
        EXPECT_EQ(length, answered ? description.size() : 0u);
    }
}

// The rows, statuses and health seeding shared by every table, over containers filled here.
// A container filled by the test: (id, status, description) per row.
template <class XInfo> class FilledTable : public BaseContainer<XInfo> {
public:
    struct Row {
        uint32_t id;
        int32_t status;
        const char* description;
    };
    explicit FilledTable(const std::vector<Row>& rows) {
        this->m_nCount = static_cast<int32_t>(rows.size());
        EXPECT_EQ(CLIENT_SUCCESS, this->allocTable(this->m_nCount));
        for (size_t i = 0; i < rows.size(); ++i) {
            XInfo& row = this->m_pRows[i];
            row.id = rows[i].id;
            row.status = rows[i].status;
            strncpy(row.description, rows[i].description, sizeof row.description - 1);
        }
    }
    uint32_t getIntInfo(int, int, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getIntData(int, int, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrInfo(int, int, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrData(int, int, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t setIntData(int, int, int32_t) override { return CLIENT_ERROR_NOTSUPPORTED; }
    uint32_t init() override { return CLIENT_SUCCESS; }
};

using SensorTable = FilledTable<TemperatureInfo>;
using InventoryTable = FilledTable<ProcessorInfo>;

// mapThresholdsToStatus over (reading, LNR, LC, LNC, UC, UNR, UNC): no reading or no threshold
// is unknown; each threshold itself is inside; UC is tried before LNC; readings are signed.
TEST(BaseContainerTest, ThresholdRule) {
    const struct {
        int32_t reading, lnr, lc, lnc, uc, unr, unc;
        const char* expected;
    } cases[] = {{A, 0, 10, 20, 80, 90, 70, "unknown"},
                 {100, A, A, A, A, 100, A, "ok"},
                 {101, A, A, A, A, 100, A, "critical"},
                 {4, A, 5, A, A, A, A, "critical"},
                 {81, A, A, A, 80, A, A, "critical"},
                 {4, 5, A, A, A, A, A, "critical"},
                 {71, 0, 10, 20, 80, 90, 70, "nonCritical"},
                 {19, 0, 10, 20, 80, 90, 70, "nonCritical"},
                 {-5, A, A, 0, A, A, A, "nonCritical"},
                 {20, A, A, A, A, A, A, "unknown"},
                 {20, A, A, A, A, A, 50, "ok"},
                 {60, A, A, 80, 50, A, A, "critical"},
                 {20, 0, 10, 20, 80, 90, 70, "ok"},
                 {70, 0, 10, 20, 80, 90, 70, "ok"},
                 {80, A, A, A, 80, A, A, "ok"},
                 {10, A, 10, A, A, A, A, "ok"},
                 {0, 0, A, A, A, A, A, "ok"}};
    SensorTable table({});
    for (const auto& c : cases)
        EXPECT_STREQ(c.expected,
                     table.mapThresholdsToStatus(c.reading, c.lnr, c.lc, c.lnc, c.uc, c.unr, c.unc))
            << "case " << &c - cases;
}

// The six names both ways; any other name or value is unknown.
TEST(BaseContainerTest, StatusVocabulary) {
    SensorTable table({});
    const std::pair<const char*, int32_t> names[] = {
        {"other", 1}, {"unknown", 2}, {"ok", 3}, {"nonCritical", 4}, {"critical", 5}, {"nonRecoverable", 6}};
    char buffer[HM_STATUS_NAME_SIZE];
    for (const auto& [text, value] : names) {
        memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(value, table.mapStatusStringToEnum(text));
        EXPECT_EQ(0u, table.mapStatusEnumToString(value, buffer));
        EXPECT_STREQ(text, buffer);
    }
    for (const char* text :
         {"ok ", "OK", "okay", "noncritical", "", "criticalx", static_cast<const char*>(nullptr)})
        EXPECT_EQ(2, table.mapStatusStringToEnum(text)) << (text ? text : "null");
    for (int32_t value : {0, 7, -1}) {
        EXPECT_EQ(0u, table.mapStatusEnumToString(value, buffer));
        EXPECT_STREQ("unknown", buffer) << value;
    }
}

TEST(BaseContainerTest, RowsIdsDescriptionsAndMaxStatusInBothLayouts) {
    SensorTable sensors({{10, 3, "CPU temp"}, {11, 5, "Inlet temp"}, {10, 4, "c"}});
    InventoryTable processors({{1, 6, "CPU1"}, {2, 3, ""}});
    SensorTable empty({});
    // Positions from 1, the first row of an id; 0 when absent.
    EXPECT_EQ((std::vector<int>{1, 2, 0, 0}),
              (std::vector<int>{sensors.findIndexById(10), sensors.findIndexById(11),
                                sensors.findIndexById(8), empty.findIndexById(0)}));
    EXPECT_EQ((std::vector<int>{5, 3, 6, 0}),
              (std::vector<int>{sensors.getMaxStatus(),
                                SensorTable({{1, 1, ""}, {2, 3, ""}, {3, 2, ""}}).getMaxStatus(),
                                processors.getMaxStatus(), empty.getMaxStatus()}));
    EXPECT_EQ(3, sensors.getCount());
    EXPECT_STREQ("Inlet temp", sensors.getDescription(1));
    EXPECT_STREQ("CPU1", processors.getDescription(0));
    ASSERT_NE(nullptr, sensors.getRow(1));
    EXPECT_EQ(11u, static_cast<TemperatureInfo*>(sensors.getRow(1))->id);
    for (const void* outside :
         std::initializer_list<const void*>{sensors.getDescription(3), sensors.getDescription(-1),
                                            sensors.getRow(3), empty.getRow(0), empty.getDescription(0)})
        EXPECT_EQ(nullptr, outside);
}

// Rows that are not "ok" go to the health lists; nothing to seed leaves them empty. A row of
// unknown status is offered too: the handler keeps no list for it and answers 9.
TEST(BaseContainerTest, SeedHealth) {
    eventHandler handler;
    ASSERT_EQ(0u, handler.init());
    EXPECT_EQ((std::vector<uint32_t>{0, 9, 0, 0}),
              (std::vector<uint32_t>{SensorTable({{10, 3, ""}, {11, 3, ""}}).seedHealth(&handler),
                                     SensorTable({{10, 2, ""}}).seedHealth(&handler),
                                     SensorTable({}).seedHealth(&handler),
                                     SensorTable({{10, 5, ""}}).seedHealth(nullptr)}));
    EXPECT_TRUE(handler.nonCriticalList().empty() && handler.criticalList().empty() &&
                handler.nonRecoverableList().empty());
    EXPECT_EQ(0u, SensorTable({{10, 3, ""}, {11, 4, ""}, {12, 6, ""}, {13, 5, ""}}).seedHealth(&handler));
    EXPECT_EQ(0u, InventoryTable({{20, 5, ""}, {21, 3, ""}}).seedHealth(&handler));
    EXPECT_EQ((std::list<int32_t>{11}), handler.nonCriticalList());
    EXPECT_EQ((std::list<int32_t>{13, 20}), handler.criticalList());
    EXPECT_EQ((std::list<int32_t>{12}), handler.nonRecoverableList());
}

} // namespace
