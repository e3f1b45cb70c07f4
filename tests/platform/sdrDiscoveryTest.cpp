// SDR discovery (GetSDRData): decoding of the record bytes, the queries made for
// each sensor and their order, the failure paths and malformed service data.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "platform/sdrDiscovery.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::containsInOrder;
using sensortest::node;

// An SDR text of `count` bytes, byte n (from 1) taken from `bytes`, 0 elsewhere.
std::string sdrText(const std::map<int, int>& bytes, int count = 48) {
    std::string text;
    char token[8];
    for (int n = 1; n <= count; ++n) {
        std::snprintf(token, sizeof token, " %02x", bytes.count(n) ? bytes.at(n) : 0);
        text += token;
    }
    return text.substr(1);
}

// Owner 0x20, LUN byte 0x21, sensor 0x30 (48), entity 3 instance 2, type 1, event/reading type 3,
// settable thresholds 0x10, unit 4, linearization 0x70 (read, not applied here), and raw
// thresholds UNR 100, UC 90, UNC 80, LNR 2, LC 5, LNC 10 in bytes 37 to 42.
std::map<int, int> probeBytes(int number = 0x30) {
    return {{4, 0x01},  {6, 0x20},  {7, 0x21},  {8, number}, {9, 0x03},  {10, 0x02},
            {13, 0x01}, {14, 0x03}, {20, 0x10}, {22, 0x04},  {24, 0x70}, {37, 100},
            {38, 90},   {39, 80},   {40, 2},    {41, 5},     {42, 10}};
}

const std::string kProbe = "/BMC/SENSOR[48]/OWNER[32]/LUN[33]";

class SdrDiscoveryTest : public sensortest::ScriptedTest {
protected:
    // The scan of type 1 answers with one entry per text; the database is emptied.
    void scan(const std::vector<std::string>& texts) {
        QueryResult r;
        for (size_t i = 0; i < texts.size(); ++i)
            r["/BMC/SDR[" + std::to_string(i) + "]"] = node({texts[i]});
        script->answers["/BMC/SDR/SENSOR_TYPE[1]"] = r;
        db.RemoveAll();
    }
    CDatabase<CSensorWrapper> db;
};

// LUN byte, sensor, owner, key: the low LUN bits do not reach the top byte.
TEST(SensorKey, PacksLunBitsSensorOwnerAndLunByte) {
    const uint32_t rows[][4] = {
        {0x21, 0x30, 0x20, 0x01302021u}, {0xE3, 0xFF, 0xFF, 0x07FFFFE3u}, {0x1F, 0x05, 0x82, 0x0005821Fu}};
    for (const auto& r : rows)
        EXPECT_EQ(makeSensorKey(r[0], r[1], r[2]), r[3]) << std::hex << r[0] << " " << r[1];
}

// No records, a container node or an entry without values, a failed scan: nothing is added.
TEST_F(SdrDiscoveryTest, ScansThatAddNothing) {
    script->answers["/BMC/SDR/SENSOR_TYPE[4]"] = {{"a", node({sdrText(probeBytes())}, 1)}, {"b", node({})}};
    script->failures["/BMC/SDR/SENSOR_TYPE[1]"] = {sensortest::failure(12, 6, "BMC not responding")};
    for (int type : {7, 4, 1}) {
        GetSDRData(type, &db, 1);
        EXPECT_EQ(db.GetCount(), 0) << type;
    }
}

// Each value comes from its own query: the nine thresholds (interpreted), accuracy,
// tolerance, resolution, the name (kept whole) and the reading.
TEST_F(SdrDiscoveryTest, QueriesNineValuesNameAndReading) {
    scan({sdrText(probeBytes())});
    // No threshold answers: the SDR bytes are interpreted (value = raw byte + 0.5).
    for (int raw : {100, 90, 80, 2, 5, 10})
        script->value(kProbe + "/INTERPRET_SENSOR_VALUE[" + std::to_string(raw) + "]",
                      std::to_string(raw) + ".5");
    for (const auto& kv :
         {std::make_pair("/ACCURACY", "100"), std::make_pair("/TOLERANCE", "2"),
          std::make_pair("/RESOLUTION", "1"), std::make_pair("/INTERPRET_SENSOR_VALUE", "45")})
        script->value(kProbe + kv.first, kv.second);
    script->value(kProbe + "/NAME", std::string(300, 'N'));
    GetSDRData(1, &db, 10);

    ASSERT_EQ(db.GetCount(), 1);
    const CSensorInfo& info = db.GetAt(0)->m_SensorInfo;
    const CSensorData& data = db.GetAt(0)->m_SensorData;
    EXPECT_EQ(info.SensorKey, 0x01302021u);
    // Entity, instance, type, event/reading type, mask, unit, linearization, LC, LNC, UC, UNC,
    // LNR, UNR, accuracy, tolerance, resolution, reading.
    EXPECT_EQ(
        (std::vector<int32_t>{info.nEntityID, info.nEntityInstance, info.nSensorType, info.nEventReadingType,
                              info.nThresholdMask, info.nBaseUnit, info.nLinearization, data.nLowerCritical,
                              data.nLowerNonCritical, data.nUpperCritical, data.nUpperNonCritical,
                              data.nLowerNonRecoverable, data.nUpperNonRecoverable, info.nAccuracy,
                              info.nTolerance, info.nResolution, data.nReading}),
        (std::vector<int32_t>{3, 2, 1, 3, 0x10, 4, 0x70, 55, 105, 905, 805, 25, 1005, 100, 2, 1, 450}));
    EXPECT_EQ(info.stName.GetLength(), 300u);
    EXPECT_EQ(trace().find("SDR record"), std::string::npos); // a full record: not short, not cut
}

TEST_F(SdrDiscoveryTest, MalformedRecordTextsAreBounded) {
    const std::string fewer = " bytes, fewer than the 48 of a full sensor record";
    // 667 tokens, 2,000 characters: 341 tokens are kept, of which bytes 1 to 129 are used.
    std::string longText = sdrText(probeBytes());
    while (longText.size() < 2000)
        longText += " ff";
    // One decoded field per case: byte 6 (owner), 7 (LUN byte) and 8 (sensor number).
    const struct {
        std::string text;
        int32_t owner, lun, number;
        std::vector<std::string> traced;
    } cases[] = {{"01 00 51 01 10 20 00 30", 0x20, 0, 0x30, {"\n SDR record has 8" + fewer}},
                 {sdrText({{6, 0x20}}, 5) + " zz 1g 3x " + sdrText({}, 40), 0, 1, 3, {}}, // non-hex tokens
                 {longText, 0x20, 0x21, 0x30, {"cut to 1023\n", "has 341 bytes, the 212 beyond byte 129"}},
                 {std::string(1500, 'f'), 0, 0, 0, {"\n SDR record has 1" + fewer}}}; // one huge token
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        scan({c.text});
        const size_t mark = trace().size();
        GetSDRData(1, &db, 1);
        ASSERT_EQ(db.GetCount(), 1);
        const CSensorInfo& info = db.GetAt(0)->m_SensorInfo;
        EXPECT_EQ((std::vector<int32_t>{info.nOwnerID, info.nLUN, info.nSensorNumber}),
                  (std::vector<int32_t>{c.owner, c.lun, c.number}));
        EXPECT_TRUE(containsInOrder(trace().substr(mark), c.traced));
    }
}

// A failed threshold query abandons only that record; a failed (or unanswered) name query
// does not.
TEST_F(SdrDiscoveryTest, DatabaseGrowsByOneRecordPerSensorInScanOrder) {
    scan({sdrText(probeBytes(1)), sdrText(probeBytes(2)), sdrText(probeBytes(3))});
    script->failures["/BMC/SENSOR[2]/OWNER[32]/LUN[33]/THRESHOLD/UPPER_CRITICAL"] = {
        sensortest::failure(3, 1, "timeout")};
    script->failures["/BMC/SENSOR[3]/OWNER[32]/LUN[33]/NAME"] = {sensortest::failure(5, 9, "no name")};
    GetSDRData(1, &db, 1);
    GetSDRData(1, &db, 1); // a second scan appends again: the caller clears before a rescan
    ASSERT_EQ(db.GetCount(), 4);
    db.RemoveAt(0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(db.GetAt(i)->m_SensorInfo.nSensorNumber, i % 2 == 0 ? 3 : 1);
    EXPECT_EQ(db.GetAt(3), nullptr);
}

} // namespace
