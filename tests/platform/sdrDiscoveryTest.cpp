// SDR discovery (GetSDRData): decoding of the record bytes, the queries made for
// each sensor and their order, the failure paths and malformed service data.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/sdrDiscovery.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::containsInOrder;
using sensortest::narrow;
using sensortest::ScriptedResponder;
using sensortest::TracedTest;

constexpr int32_t A = NO_VALUE; // absent

// An SDR text of `count` bytes, byte n (from 1) taken from `bytes`, 0 elsewhere.
std::string sdrText(const std::map<int, int>& bytes, int count = 48) {
    std::string text;
    for (int n = 1; n <= count; ++n) {
        auto it = bytes.find(n);
        char token[8];
        std::snprintf(token, sizeof token, "%02x", it == bytes.end() ? 0 : it->second);
        text += (n > 1 ? " " : "") + std::string(token);
    }
    return text;
}

// Owner 0x20, LUN byte 0x21, sensor 0x30 (48), entity 3 instance 2, type 1, event/reading type 3,
// settable thresholds 0x10, unit 4, linearization 0x70 (read, not applied here), and raw
// thresholds UNR 100, UC 90, UNC 80, LNR 2, LC 5, LNC 10 in bytes 37 to 42.
std::map<int, int> probeBytes() {
    return {{4, 0x01},  {6, 0x20},  {7, 0x21},  {8, 0x30},  {9, 0x03},  {10, 0x02},
            {13, 0x01}, {14, 0x03}, {20, 0x10}, {22, 0x04}, {24, 0x70}, {37, 100},
            {38, 90},   {39, 80},   {40, 2},    {41, 5},    {42, 10}};
}

const char* const kProbe = "/BMC/SENSOR[48]/OWNER[32]/LUN[33]";

std::string probe(const std::string& tail) {
    return kProbe + tail;
}

class SdrDiscoveryTest : public TracedTest {
protected:
    void SetUp() override {
        TracedTest::SetUp();
        script = useScript();
    }
    // The scan of `type` answers with one entry per text.
    void scanAnswers(int type, const std::vector<std::string>& texts) {
        const std::string path = "/BMC/SDR/SENSOR_TYPE[" + std::to_string(type) + "]";
        QueryResult r;
        for (size_t i = 0; i < texts.size(); ++i)
            r["/BMC/SDR[" + std::to_string(i) + "]"] = ScriptedResponder::node({texts[i]});
        script->answers[path] = r;
    }
    std::shared_ptr<ScriptedResponder> script;
    CDatabase<CSensorWrapper> db;
};

TEST(SensorKey, PacksLunBitsSensorOwnerAndLunByte) {
    struct Case {
        uint32_t lun, number, owner, key;
    } cases[] = {{0x21, 0x30, 0x20, 0x01302021u},
                 {0x00, 0x01, 0x20, 0x00012000u},
                 {0xE3, 0xFF, 0xFF, 0x07FFFFE3u},
                 {0x1F, 0x05, 0x82, 0x0005821Fu}}; // the low LUN bits do not reach the top byte
    for (const Case& c : cases)
        EXPECT_EQ(makeSensorKey(c.lun, c.number, c.owner), c.key) << std::hex << c.lun << " " << c.number;
}

// No records; container nodes skipped silently and empty entries with a trace; a failed scan.
TEST_F(SdrDiscoveryTest, ScansThatAddNothingAreTracedExactly) {
    script->answers["/BMC/SDR/SENSOR_TYPE[4]"] = {{"a", ScriptedResponder::node({"01 02"}, 1)},
                                                  {"b", ScriptedResponder::node({})}};
    script->failures["/BMC/SDR/SENSOR_TYPE[1]"] = {sensortest::failure(12, 6, "BMC not responding")};
    const struct {
        int type;
        std::string middle; // between the scan's path and the end
    } cases[] = {
        {7, "\nAfter the resultsmap\n\nAfter the resultsmap\n"},
        {4, "\nAfter the resultsmap\nKey = \"a\"\n\tNodeType = 1\n\t\tValue[0] = 01 02\nKey = "
            "\"b\"\n\tNodeType = 0\n"
            "\nAfter the resultsmap\n\n Inside for loop\n\n Inside for loop\n\nNo Data, continue\n"},
        {1, "\n SensorType Query Failed\nOperation: 12on :/BMC/SDR/SENSOR_TYPE[1] failed Error code. 6  -"
            "\nAfter the resultsmap\n\nAfter the resultsmap\n"}};
    for (const auto& c : cases) {
        clearTrace();
        GetSDRData(c.type, &db, 1);
        EXPECT_EQ(db.GetCount(), 0);
        EXPECT_EQ(trace(), "\n Inside GetSDR Data function\n /BMC/SDR/SENSOR_TYPE[" + std::to_string(c.type) +
                               "]\n" + c.middle + "\n End of the GetSDRData Function");
    }
}

TEST_F(SdrDiscoveryTest, QueriesNineValuesNameAndReadingInOrder) {
    scanAnswers(1, {sdrText(probeBytes())});
    // No threshold answers: the SDR bytes are interpreted (value = raw byte + 0.5).
    for (int raw : {100, 90, 80, 2, 5, 10})
        script->value(probe("/INTERPRET_SENSOR_VALUE[" + std::to_string(raw) + "]"),
                      std::to_string(raw) + ".5");
    script->value(probe("/ACCURACY"), "100");
    script->value(probe("/TOLERANCE"), "2");
    script->value(probe("/RESOLUTION"), "1");
    script->value(probe("/NAME"), "Probe A");
    script->value(probe("/INTERPRET_SENSOR_VALUE"), "45");
    GetSDRData(1, &db, 10);

    std::string calls;
    for (const std::string& call : script->calls)
        calls += (call.rfind(kProbe, 0) == 0 ? call.substr(strlen(kProbe)) : call) + " ";
    EXPECT_EQ(calls, "/BMC/SDR/SENSOR_TYPE[1] /THRESHOLD/LOWER_CRITICAL /INTERPRET_SENSOR_VALUE[5] "
                     "/THRESHOLD/LOWER_NONCRITICAL /INTERPRET_SENSOR_VALUE[10] /THRESHOLD/UPPER_CRITICAL "
                     "/INTERPRET_SENSOR_VALUE[90] /THRESHOLD/UPPER_NONCRITICAL /INTERPRET_SENSOR_VALUE[80] "
                     "/THRESHOLD/LOWER_NONRECOVERABLE /INTERPRET_SENSOR_VALUE[2] "
                     "/THRESHOLD/UPPER_NONRECOVERABLE /INTERPRET_SENSOR_VALUE[100] /ACCURACY /TOLERANCE "
                     "/RESOLUTION /NAME /INTERPRET_SENSOR_VALUE ");

    ASSERT_EQ(db.GetCount(), 1);
    const CSensorInfo& info = db.GetAt(0)->m_SensorInfo;
    const CSensorData& data = db.GetAt(0)->m_SensorData;
    EXPECT_EQ(info.SensorKey, 0x01302021u);
    EXPECT_EQ(
        (std::vector<int32_t>{info.nEntityID, info.nEntityInstance, info.nSensorType, info.nEventReadingType,
                              info.nThresholdMask, info.nBaseUnit, info.nLinearization}),
        (std::vector<int32_t>{3, 2, 1, 3, 0x10, 4, 0x70}));
    // LC, LNC, UC, UNC, LNR, UNR, accuracy, tolerance, resolution, reading.
    EXPECT_EQ(
        (std::vector<int32_t>{data.nLowerCritical, data.nLowerNonCritical, data.nUpperCritical,
                              data.nUpperNonCritical, data.nLowerNonRecoverable, data.nUpperNonRecoverable,
                              info.nAccuracy, info.nTolerance, info.nResolution, data.nReading}),
        (std::vector<int32_t>{55, 105, 905, 805, 25, 1005, 100, 2, 1, 450}));
    EXPECT_EQ(narrow(info.stName), "Probe A");

    EXPECT_TRUE(containsInOrder(
        trace(), {"\n Inside for loop\n",
                  "\nssdrreading = " + sdrText(probeBytes()) + "\n",
                  "\n-------------Before Thresholds------------------------------------\n",
                  "SensorNumber 48, Ownerid 32, LUN 33, lByte 5 , Multiplier 10\n",
                  "Thresholdquery completed with 55\n",
                  "Lower Critical threshold for sensor number 48.\n",
                  "Get Lower Non Critical threshold for sensor number 48.\n",
                  "Thresholdquery completed with 105\n",
                  "\n After the thresholds\n",
                  "Get Upper Critical threshold for sensor number 48.\n",
                  "Thresholdquery completed with 905\n",
                  "Get Upper Non Critical threshold for sensor number 48.\n",
                  "Thresholdquery completed with 805\n",
                  "Get Lower Non Critical threshold for sensor number 48.\n",
                  "Thresholdquery completed with 25\n",
                  "Get Upper Non Critical threshold for sensor number 48.\n",
                  "Thresholdquery completed with 1005\n",
                  "\n\n Description =  ,Value = 0, LC = 55, LNC = 105, UC =905, UNC =805, Tolarane =100, "
                  "Accuracy =2\n\n",
                  "\n\n Name of the sensorquerry = /BMC/SENSOR[48]/OWNER[32]/LUN[33]/NAME\n",
                  "\n Name of the sensor = Probe A\n",
                  "\n\n Adding the object for sensor Probe A with sensor number 48 and type 1\n\n ",
                  "\n\n Entering GetSensorData2 for sensor Probe A",
                  "\n End of the GetSDRData Function"}));
    // A full record gives no trace of a short or long text.
    EXPECT_EQ(trace().find("SDR record"), std::string::npos);
}

TEST_F(SdrDiscoveryTest, SensorWithoutNameIsAddedWithAnEmptyName) {
    scanAnswers(1, {sdrText(probeBytes())});
    GetSDRData(1, &db, 1);
    ASSERT_EQ(db.GetCount(), 1);
    EXPECT_TRUE(db.GetAt(0)->m_SensorInfo.stName.IsEmpty());

    db.RemoveAll();
    script->failures[probe("/NAME")] = {sensortest::failure(5, 9, "no name")};
    clearTrace();
    GetSDRData(1, &db, 1);
    ASSERT_EQ(db.GetCount(), 1);
    EXPECT_TRUE(db.GetAt(0)->m_SensorInfo.stName.IsEmpty());
    EXPECT_TRUE(
        containsInOrder(trace(), {"\n FAILED FOR SENSORNAMEQUERY", "Operation: 5",
                                  "on :/BMC/SENSOR[48]/OWNER[32]/LUN[33]/NAME", " failed. 9", ": no name",
                                  "\n\n Adding the object for sensor  with sensor number 48 and type 1"}));
}

TEST_F(SdrDiscoveryTest, ThresholdFailureAbandonsOnlyThatRecord) {
    std::map<int, int> second = probeBytes();
    second[8] = 0x31; // sensor 49
    scanAnswers(1, {sdrText(probeBytes()), sdrText(second)});
    script->failures[probe("/THRESHOLD/UPPER_CRITICAL")] = {sensortest::failure(3, 1, "timeout")};
    GetSDRData(1, &db, 1);
    ASSERT_EQ(db.GetCount(), 1);
    EXPECT_EQ(db.GetAt(0)->m_SensorInfo.nSensorNumber, 49);
    const std::string t = trace();
    EXPECT_EQ(sensortest::countOf(t, "Unknown error: Functions:GetData"), 1u);
    EXPECT_EQ(sensortest::countOf(t, "\n\n Adding the object for sensor"), 1u);
}

TEST_F(SdrDiscoveryTest, MalformedRecordTextsAreBounded) {
    const std::string fewer = " bytes, fewer than the 48 of a full sensor record; missing bytes read as 0\n";
    // 667 tokens, 2,000 characters: 48 record bytes and 619 bytes of padding; 341 tokens are
    // kept, of which bytes 1 to 129 are used.
    std::string longText = sdrText(probeBytes());
    while (longText.size() < 2000)
        longText += " ff";
    ASSERT_EQ(longText.size(), 2000u);
    const std::vector<std::string> longTraces = {
        "\n SDR record text of 2000 characters cut to 1023\n",
        "\nssdrreading = " + longText.substr(0, 1023) + "\n",
        "\n SDR record has 341 bytes, the 212 beyond byte 129 are ignored\n"};
    // One decoded field per case: byte 6 (owner), 7 (LUN byte) and 8 (sensor number).
    const struct {
        std::string text;
        int32_t owner, lun, number;
        std::vector<std::string> traced;
    } cases[] = {{"01 00 51 01 10 20 00 30", 0x20, 0, 0x30, {"\n SDR record has 8" + fewer}},
                 {sdrText({{6, 0x20}}, 5) + " zz 1g 3x " + sdrText({}, 40), 0, 1, 3, {}}, // non-hex tokens
                 {longText, 0x20, 0x21, 0x30, longTraces},
                 {std::string(1500, 'f'), 0, 0, 0, {"\n SDR record has 1" + fewer}}}; // one huge token
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        db.RemoveAll();
        clearTrace();
        scanAnswers(1, {c.text});
        GetSDRData(1, &db, 1);
        ASSERT_EQ(db.GetCount(), 1);
        const CSensorInfo& info = db.GetAt(0)->m_SensorInfo;
        EXPECT_EQ((std::vector<int32_t>{info.nOwnerID, info.nLUN, info.nSensorNumber}),
                  (std::vector<int32_t>{c.owner, c.lun, c.number}));
        EXPECT_TRUE(containsInOrder(trace(), c.traced));
    }
}

// A 300-character name is kept whole, and traced cut to 127 where a buffer holds it.
TEST_F(SdrDiscoveryTest, LongNameIsKeptWithinTheTraceBuffer) {
    scanAnswers(1, {sdrText(probeBytes())});
    const std::string name(300, 'N');
    script->value(probe("/NAME"), name);
    GetSDRData(1, &db, 1);
    ASSERT_EQ(db.GetCount(), 1);
    EXPECT_EQ(db.GetAt(0)->m_SensorInfo.stName.GetLength(), 300u);
    EXPECT_TRUE(containsInOrder(trace(), {"\n Name of the sensor = " + name + "\n",
                                          "\n\n Adding the object for sensor " + std::string(127, 'N') +
                                              " with sensor number 48 and type 1"}));
}

TEST_F(SdrDiscoveryTest, DatabaseGrowsByOneRecordPerSensorInScanOrder) {
    std::vector<std::string> texts;
    for (int n = 1; n <= 5; ++n) {
        std::map<int, int> b = probeBytes();
        b[8] = n;
        texts.push_back(sdrText(b));
    }
    scanAnswers(1, texts);
    GetSDRData(1, &db, 1);
    ASSERT_EQ(db.GetCount(), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(db.GetAt(i)->m_SensorInfo.nSensorNumber, i + 1);
    // A second scan appends again: the caller clears before a rescan.
    GetSDRData(1, &db, 1);
    EXPECT_EQ(db.GetCount(), 10);
    db.RemoveAt(0);
    EXPECT_EQ(db.GetCount(), 9);
    EXPECT_EQ(db.GetAt(0)->m_SensorInfo.nSensorNumber, 2);
    EXPECT_EQ(db.GetAt(9), nullptr);
}

} // namespace
