// Current readings (GetSensorData2) and thresholds (GetThresholdValue) against
// scripted answers of the query service.
#include <gtest/gtest.h>

#include <string>

#include "platform/sensorReading.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::narrow;
using sensortest::ScriptedResponder;
using sensortest::TracedTest;

const char* const kReadingPath = "/BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE";

CSensorWrapper fanRecord() {
    CSensorWrapper w;
    w.m_SensorInfo.nSensorNumber = 48;
    w.m_SensorInfo.nOwnerID = 32;
    w.m_SensorInfo.nLUN = 0;
    w.m_SensorInfo.nSensorType = 4;
    w.m_SensorInfo.stName = CString("FAN1");
    w.m_SensorData.nReading = -5;
    w.m_SensorData.stReadingText = CString("before");
    return w;
}

class SensorReadingTest : public TracedTest {
protected:
    void SetUp() override {
        TracedTest::SetUp();
        script = useScript();
    }
    std::shared_ptr<ScriptedResponder> script;
};

TEST_F(SensorReadingTest, ConvertsTheAnswerInSinglePrecision) {
    struct Case {
        std::string answer;
        int32_t multiplier;
        int32_t reading;
        std::string text;
    } cases[] = {{"37.9", 1, 37, "37.9"},
                 {"37.9", 10, 379, "37.9"},
                 {"25.5", 10, 255, "25.5"},
                 {"4.35", 100, 435, "4.35"}, // 434 in double precision
                 {"0.29", 100, 29, "0.29"},  // 28 in double precision
                 {"-3.7", 1, -3, "-3.7"},    // toward zero
                 {"12.6", 1000, 12600, "12.6"},
                 {"READING_UNAVAILABLE", 1000, NO_VALUE, "READING_UNAVAILABLE"},
                 {"DEVICE_PRESENT,  DRIVE_FAULT", 1, 0, "Device Inserted/Present,Drive Fault"},
                 {"FULLY_REDUNDANT", 1, 0, "Full Redundancy"},
                 {"1e12", 1000, NO_VALUE, "1e12"}}; // does not fit 32 bits (long texts: stateStringsTest)
    for (const Case& c : cases) {
        script->value(kReadingPath, c.answer);
        CSensorWrapper w = fanRecord();
        GetSensorData2(&w, c.multiplier);
        EXPECT_EQ(w.m_SensorData.nReading, c.reading) << c.answer << " x" << c.multiplier;
        EXPECT_EQ(narrow(w.m_SensorData.stReadingText), c.text) << c.answer;
    }
}

TEST_F(SensorReadingTest, TracesTheQueryTheValueAndTheResult) {
    script->value(kReadingPath, "37.9");
    CSensorWrapper w = fanRecord();
    GetSensorData2(&w, 10);
    EXPECT_EQ(trace(), "\n\n Entering GetSensorData2 for sensor FAN1 with sensor number 48 and type 4\n\n "
                       "\nSensor Value Querry = /BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE\n"
                       "\n Sensor value querry /BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE, \n"
                       " provided value = 37.9\n"
                       "\n MapMultipleCRStrToSNMPStr returns  =37.9"
                       "\n Sensor value aftermap = 37.9"
                       "\n End of value 379, \n "
                       "Key = \"/BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE\"\n"
                       "\tNodeType = 0\n"
                       "\t\tValue[0] = 37.9\n"
                       "\n End of the GetSensorData2 Function");
}

// No usable answer, or a failed query (traced): the record stays as it was.
TEST_F(SensorReadingTest, NoUsableAnswerLeavesTheRecordAsItWas) {
    const QueryResult answers[] = {{}, // nothing
                                   {{"/BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[0]",
                                     ScriptedResponder::node({"5"})}},                  // other key
                                   {{kReadingPath, ScriptedResponder::node({"5"}, 1)}}, // not a value node
                                   {{kReadingPath, ScriptedResponder::node({})}},       // no value
                                   {{kReadingPath, ScriptedResponder::node({"5"})}}};   // failed, see below
    for (const QueryResult& answer : answers) {
        script->answers[kReadingPath] = answer;
        if (&answer == &answers[4])
            script->failures[kReadingPath] = {sensortest::failure(7, 3, "no such sensor"),
                                              sensortest::failure(8, 4, "BMC busy")};
        CSensorWrapper w = fanRecord();
        GetSensorData2(&w, 10);
        EXPECT_EQ(w.m_SensorData.nReading, -5);
        EXPECT_EQ(narrow(w.m_SensorData.stReadingText), "before");
    }
    EXPECT_TRUE(sensortest::containsInOrder(
        trace(), {"\n Failed for SensorReadingquery\n", "Operation: 7", std::string("on :") + kReadingPath,
                  " failed. 3", ": no such sensor", "Operation: 8", std::string("on :") + kReadingPath,
                  " failed. 4", ": BMC busy", "\n End of the GetSensorData2 Function"}));
}

const char* const kThresholdBase = "/BMC/SENSOR[48]/OWNER[32]/LUN[0]";

std::string at(const std::string& tail) {
    return kThresholdBase + tail;
}

TEST_F(SensorReadingTest, ThresholdKindsQueryTheirKeysAndConvertOnlyThresholds) {
    struct Case {
        int32_t kind;
        const char* queried; // first query, after the sensor path
        const char* answer;
        const char* interpreted; // the interpretation query, or null when none is expected
        const char* interpretation;
        int32_t multiplier;
        int32_t expected;
    } cases[] = {
        {1, "/THRESHOLD/UPPER_CRITICAL", "200", "/INTERPRET_SENSOR_VALUE[200]", "1.25", 100, 125},
        {2, "/THRESHOLD/UPPER_NONCRITICAL", "180", "/INTERPRET_SENSOR_VALUE[180]", "90", 10, 900},
        {3, "/THRESHOLD/UPPER_NONRECOVERABLE", "4", "/INTERPRET_SENSOR_VALUE[4]", "4.35", 100, 434}, // double
        {4, "/THRESHOLD/LOWER_NONCRITICAL", "11", "/INTERPRET_SENSOR_VALUE[11]", "-2.5", 1, -2},
        {5, "/THRESHOLD/LOWER_NONRECOVERABLE", "NOT SUPPORTED", nullptr, nullptr, 10, NO_VALUE},
        {6, "/THRESHOLD/LOWER_CRITICAL", "13", "/INTERPRET_SENSOR_VALUE[13]", "975", 1, 975},
        {7, "/TOLERANCE", "3", nullptr, nullptr, 100, 3},
        {8, "/RESOLUTION", "75", nullptr, nullptr, 1000, 75},
        {9, "/ACCURACY", "NOT SUPPORTED", nullptr, nullptr, 1, NO_VALUE},
        {0, "/THRESHOLD/UPPER_CRITICAL", "9", "/INTERPRET_SENSOR_VALUE[9]", "9", 2, 18},
        {11, "/UPPER_CRITICAL", "9", nullptr, nullptr, 2, 9}};
    // Kind 10 asks nothing.
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 10, 10), NO_VALUE);
    EXPECT_TRUE(script->calls.empty());
    EXPECT_EQ(trace(), "Thresholdquery completed with 2147483647\n");
    for (const Case& c : cases) {
        script->answers.clear();
        script->calls.clear();
        script->value(at(c.queried), c.answer);
        if (c.interpreted != nullptr)
            script->value(at(c.interpreted), c.interpretation);
        EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, c.multiplier, c.kind), c.expected) << "kind " << c.kind;
        std::vector<std::string> expectedCalls = {at(c.queried)};
        if (c.interpreted != nullptr)
            expectedCalls.push_back(at(c.interpreted));
        EXPECT_EQ(script->calls, expectedCalls) << "kind " << c.kind;
    }
}

TEST_F(SensorReadingTest, EmptyThresholdAnswerFallsBackToTheSdrByte) {
    // No threshold answer: the SDR byte is interpreted.
    script->value(at("/INTERPRET_SENSOR_VALUE[77]"), "7.7");
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 10, 6), 77);

    // Nothing interpreted either: no value.
    script->answers.clear();
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 10, 6), NO_VALUE);

    // An interpretation entry without a value gives 0.
    script->answers[at("/INTERPRET_SENSOR_VALUE[77]")] = {
        {at("/INTERPRET_SENSOR_VALUE[77]"), ScriptedResponder::node({})}};
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 10, 6), 0);
    EXPECT_NE(trace().find("Error: No Value, so Value is 0\n"), std::string::npos);
}

TEST_F(SensorReadingTest, LastThresholdEntryWins) {
    script->answers[at("/THRESHOLD/UPPER_CRITICAL")] = {{"a", ScriptedResponder::node({"10"})},
                                                        {"b", ScriptedResponder::node({"20"})}};
    script->value(at("/INTERPRET_SENSOR_VALUE[20]"), "40");
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 1, 1), 40);

    // A "NOT SUPPORTED" after a value clears it, and nothing is interpreted.
    script->calls.clear();
    script->answers[at("/THRESHOLD/UPPER_CRITICAL")] = {{"a", ScriptedResponder::node({"10"})},
                                                        {"b", ScriptedResponder::node({"NOT SUPPORTED"})}};
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 1, 1), NO_VALUE);
    EXPECT_EQ(script->calls.size(), 1u);
}

TEST_F(SensorReadingTest, ThresholdTraceIsExact) {
    script->value(at("/THRESHOLD/UPPER_CRITICAL"), "200");
    script->value(at("/INTERPRET_SENSOR_VALUE[200]"), "1.25");
    GetThresholdValue(48, 32, 0, 77, 100, 1);
    EXPECT_EQ(trace(),
              "\nThresholdquery = /BMC/SENSOR[48]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_CRITICAL\n"
              "\nThresholdquery results Map returns = 1\n"
              "\n----->Thresholdquery Value = 200 <-----\n"
              "Thresholdquery Value = 200\n"
              "Thresholdquery = /BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[200]<END>\n"
              "Key: /BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[200] Value : 125.000000\n"
              "Thresholdquery completed with 125\n"
              "Key = \"/BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[200]\"\n"
              "\tNodeType = 0\n"
              "\t\tValue[0] = 1.25\n");

    clearTrace();
    script->value(at("/THRESHOLD/LOWER_CRITICAL"), "NOT SUPPORTED");
    GetThresholdValue(48, 32, 0, 77, 100, 6);
    EXPECT_EQ(trace(), "\nThresholdquery = /BMC/SENSOR[48]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL\n"
                       "\nThresholdquery results Map returns = 1\n"
                       "\nThreshold Querry returns no value, so NO_VALUE_PRSENT is set\n"
                       "Thresholdquery completed with 2147483647\n"
                       "Key = \"/BMC/SENSOR[48]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL\"\n"
                       "\tNodeType = 0\n"
                       "\t\tValue[0] = NOT SUPPORTED\n");
}

TEST_F(SensorReadingTest, ThresholdFailuresReachTheCaller) {
    script->failures[at("/THRESHOLD/UPPER_CRITICAL")] = {sensortest::failure(1, 2, "gone")};
    EXPECT_THROW(GetThresholdValue(48, 32, 0, 77, 1, 1), ResultStatus);

    script->value(at("/THRESHOLD/LOWER_CRITICAL"), "5");
    script->failures[at("/INTERPRET_SENSOR_VALUE[5]")] = {sensortest::failure(1, 2, "gone")};
    EXPECT_THROW(GetThresholdValue(48, 32, 0, 77, 1, 6), ResultStatus);
}

} // namespace
