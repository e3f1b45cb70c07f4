// Current readings (GetSensorData2) and thresholds (GetThresholdValue) against
// scripted answers of the query service.
#include <gtest/gtest.h>

#include <string>

#include "platform/sensorReading.h"
#include "sensorTestSupport.h"

namespace {

using Texts = std::vector<std::string>;
using sensortest::node;

const char* const kReadingPath = "/BMC/SENSOR[48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE";

CSensorWrapper fanRecord() {
    CSensorWrapper w;
    w.m_SensorInfo.nSensorNumber = 48;
    w.m_SensorInfo.nOwnerID = 32;
    w.m_SensorData.nReading = -5;
    w.m_SensorData.stReadingText = CString("before");
    return w;
}

using SensorReadingTest = sensortest::ScriptedTest;

TEST_F(SensorReadingTest, ConvertsTheAnswerInSinglePrecision) {
    const struct {
        std::string answer;
        int32_t multiplier, reading;
        std::string text;
    } cases[] = {{"37.9", 1, 37, "37.9"},
                 {"37.9", 10, 379, "37.9"},
                 {"4.35", 100, 435, "4.35"}, // 434 in double precision
                 {"0.29", 100, 29, "0.29"},  // 28 in double precision
                 {"-3.7", 1, -3, "-3.7"},    // toward zero
                 {"12.6", 1000, 12600, "12.6"},
                 {"READING_UNAVAILABLE", 1000, NO_VALUE, "READING_UNAVAILABLE"},
                 {"DEVICE_PRESENT,  DRIVE_FAULT", 1, 0, "Device Inserted/Present,Drive Fault"},
                 {"1e12", 1000, NO_VALUE, "1e12"}}; // does not fit 32 bits (long texts: stateStringsTest)
    for (const auto& c : cases) {
        script->value(kReadingPath, c.answer);
        CSensorWrapper w = fanRecord();
        GetSensorData2(&w, c.multiplier);
        EXPECT_EQ(w.m_SensorData.nReading, c.reading) << c.answer << " x" << c.multiplier;
        EXPECT_TRUE(w.m_SensorData.stReadingText.Equals(c.text.c_str())) << c.answer;
    }
}

// No usable answer, or a failed query: the record stays as it was.
TEST_F(SensorReadingTest, NoUsableAnswerLeavesTheRecordAsItWas) {
    const QueryResult answers[] = {{},                                                 // nothing
                                   {{kReadingPath + std::string("[0]"), node({"5"})}}, // other key
                                   {{kReadingPath, node({"5"}, 1)}},                   // not a value node
                                   {{kReadingPath, node({})}},                         // no value
                                   {{kReadingPath, node({"5"})}}};                     // failed, see below
    for (const QueryResult& answer : answers) {
        script->answers[kReadingPath] = answer;
        if (&answer == &answers[4])
            script->failures[kReadingPath] = {sensortest::failure(7, 3, "no such sensor"),
                                              sensortest::failure(8, 4, "BMC busy")};
        CSensorWrapper w = fanRecord();
        GetSensorData2(&w, 10);
        EXPECT_EQ(w.m_SensorData.nReading, -5);
        EXPECT_TRUE(w.m_SensorData.stReadingText.Equals("before"));
    }
}

std::string at(const std::string& tail) {
    return "/BMC/SENSOR[48]/OWNER[32]/LUN[0]" + tail;
}

// Each kind queries its key; only the threshold forms have the answer interpreted (and scaled).
// A failed query reaches the caller.
TEST_F(SensorReadingTest, ThresholdKindsQueryTheirKeysAndConvertOnlyThresholds) {
    const struct {
        int32_t kind;
        const char* queried; // first query, after the sensor path
        const char* answer;
        const char* interpretation; // of INTERPRET_SENSOR_VALUE[answer], or null when not asked
        int32_t multiplier, expected;
    } cases[] = {{1, "/THRESHOLD/UPPER_CRITICAL", "200", "1.25", 100, 125},
                 {2, "/THRESHOLD/UPPER_NONCRITICAL", "180", "90", 10, 900},
                 {3, "/THRESHOLD/UPPER_NONRECOVERABLE", "4", "4.35", 100, 434}, // double precision
                 {4, "/THRESHOLD/LOWER_NONCRITICAL", "11", "-2.5", 1, -2},
                 {5, "/THRESHOLD/LOWER_NONRECOVERABLE", "NOT SUPPORTED", nullptr, 10, NO_VALUE},
                 {6, "/THRESHOLD/LOWER_CRITICAL", "13", "975", 1, 975},
                 {7, "/TOLERANCE", "3", nullptr, 100, 3},
                 {8, "/RESOLUTION", "75", nullptr, 1000, 75},
                 {9, "/ACCURACY", "NOT SUPPORTED", nullptr, 1, NO_VALUE},
                 {0, "/THRESHOLD/UPPER_CRITICAL", "9", "9", 2, 18},
                 {11, "/UPPER_CRITICAL", "9", nullptr, 2, 9}};
    EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 10, 10), NO_VALUE); // kind 10 asks nothing
    EXPECT_TRUE(script->calls.empty());
    for (const auto& c : cases) {
        script->answers.clear();
        script->calls.clear();
        std::vector<std::string> expectedCalls = {at(c.queried)};
        script->value(at(c.queried), c.answer);
        if (c.interpretation != nullptr) {
            expectedCalls.push_back(at(std::string("/INTERPRET_SENSOR_VALUE[") + c.answer + "]"));
            script->value(expectedCalls.back(), c.interpretation);
        }
        EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, c.multiplier, c.kind), c.expected) << "kind " << c.kind;
        EXPECT_EQ(script->calls, expectedCalls) << "kind " << c.kind;
    }
    // A failed threshold or interpretation query reaches the caller.
    for (const char* failing : {"/THRESHOLD/UPPER_CRITICAL", "/INTERPRET_SENSOR_VALUE[9]"}) {
        script->value(at("/THRESHOLD/UPPER_CRITICAL"), "9");
        script->failures = {{at(failing), {sensortest::failure(1, 2, "gone")}}};
        EXPECT_THROW(GetThresholdValue(48, 32, 0, 77, 1, 1), ResultStatus) << failing;
    }
}

// The last threshold entry wins ("NOT SUPPORTED" clears a value and nothing is interpreted);
// no entry at all interprets the SDR byte (77); an interpretation without a value gives 0.
TEST_F(SensorReadingTest, ThresholdAnswerShapes) {
    const struct {
        std::vector<std::string> entries;
        const char* interpreted;    // the raw value interpreted
        const char* interpretation; // null: no answer, "": an entry without a value
        int32_t expected;
        size_t calls;
    } rows[] = {{{"10", "20"}, "20", "40", 40, 2},
                {{"10", "NOT SUPPORTED"}, "10", "7", NO_VALUE, 1},
                {{}, "77", "7.7", 7, 2},
                {{}, "77", nullptr, NO_VALUE, 2},
                {{}, "77", "", 0, 2}};
    for (const auto& r : rows) {
        script->answers.clear();
        script->calls.clear();
        for (const std::string& e : r.entries)
            script->answers[at("/THRESHOLD/UPPER_CRITICAL")]["k" + e] = node({e});
        const std::string interpreted = at(std::string("/INTERPRET_SENSOR_VALUE[") + r.interpreted + "]");
        if (r.interpretation != nullptr)
            script->answers[interpreted][interpreted] =
                node(*r.interpretation ? Texts{r.interpretation} : Texts{});
        EXPECT_EQ(GetThresholdValue(48, 32, 0, 77, 1, 1), r.expected) << r.interpreted;
        EXPECT_EQ(script->calls.size(), r.calls) << r.interpreted;
    }
}

} // namespace
