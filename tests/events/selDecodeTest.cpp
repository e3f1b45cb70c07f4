// Decoding of SEL RAW text into the decoded record, with the record-ID bookkeeping,
// and the status and description rules of threshold events.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "events/eventDecoders.h"
#include "events/eventDescriptions.h"
#include "events/selPoller.h"

namespace {

// Record ID, record type, time stamp, generator, revision, sensor type and number,
// event direction and type, event data 1 to 3.
using Fields = std::array<int64_t, 11>;

Fields fieldsOf(const SelRecord& r) {
    return {r.usRecordID,     r.ucRecordType,   static_cast<int64_t>(r.llTimeStamp),
            r.usGeneratorID,  r.ucEvMRevision,  r.ucSensorType,
            r.ucSensorNumber, r.ucEventDirType, r.ucEventData1,
            r.ucEventData2,   r.ucEventData3};
}

// The last record ID moves forward only, except out of the newest marker, which gives
// way to any ID.
TEST(SelDecode, RawTextBecomesTheRecordFieldsAndMovesTheLastRecordId) {
    const struct {
        const char* name;
        std::string text;
        Fields fields;
        int32_t last, expectedLast; // before and after
    } rows[] = {
        {"full entry",
         "2a 01 02 10 32 54 fe 20 01 04 07 50 6f a7 10 ff",
         {0x012a, 2, 0xfe543210, 0x0120, 4, 7, 0x50, 0x6f, 0xa7, 0x10, 0xff},
         kSelLastEntry,
         0x012a},
        {"upper-case digits",
         "0A 00 02 00 00 00 80 20 00 04 01 01 81 09 FF FF",
         {10, 2, 0x80000000, 0x20, 4, 1, 1, 0x81, 9, 0xff, 0xff},
         kSelLastEntry,
         10},
        {"five tokens: the rest reads as 0", "05 00 02 11 22", {5, 2, 0x2211, 0, 0, 0, 0, 0, 0, 0, 0}, 4, 5},
        {"forty tokens: the first sixteen count",
         "01 00 02 00 00 00 00 20 00 04 0c 60 6f 02 ff ff ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee ee "
         "ee "
         "ee ee ee ee ee ee",
         {1, 2, 0, 0x20, 4, 0x0c, 0x60, 0x6f, 2, 0xff, 0xff},
         kSelLastEntry,
         1},
        {"non-hexadecimal tokens read as strtol reads them",
         "zz 1g 02 -1 0x10 12345 ab",
         {0x0100, 2, static_cast<int64_t>(0xab4510ff), 0, 0, 0, 0, 0, 0, 0, 0},
         kSelLastEntry,
         0x0100},
        {"runs of blanks separate one token", "  03  00   02 ", {3, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 3, 3},
        {"empty text", "", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, kSelLastEntry, 0},
        {"the SEL restarted its numbering", "03 00 02", {3, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 7, 7},
        {"a record numbered 0xffff", "ff ff 02", {65535, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 300, 65535},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SelRecord record;
        std::memset(&record, 0x5a, sizeof(record));
        std::strcpy(record.stDescription, "kept");
        int32_t last = row.last;
        decodeSelEntry(row.text.c_str(), record, last);
        EXPECT_EQ(fieldsOf(record), row.fields);
        EXPECT_STREQ(record.stDescription, "kept");
        EXPECT_EQ(last, row.expectedLast);
    }
}

TEST(SelDecode, ThresholdOffsetsGiveTheirStatusWords) {
    const char* asserted[] = {"Degraded", "Degraded", "Error", "Error", "Fatal", "Fatal",
                              "Degraded", "Degraded", "Error", "Error", "Fatal", "Fatal"};
    for (uint8_t offset = 0; offset < 12; ++offset) {
        EXPECT_STREQ(thresholdStatusWord(offset, true), asserted[offset]) << int(offset);
        EXPECT_STREQ(thresholdStatusWord(offset, false), "OK") << int(offset);
    }
    for (uint8_t offset : {12, 13, 15}) {
        EXPECT_EQ(thresholdStatusWord(offset, true), nullptr);
        EXPECT_EQ(thresholdStatusWord(offset, false), nullptr);
    }
}

// The offsets the named temperature events reach are theirs, end to end.
TEST(SelDecode, TemperatureDescriptionsKeepTheSharedWording) {
    const struct {
        uint8_t offset;
        bool asserted;
        const char* description;
        const char* status;
    } rows[] = {
        {0, true, "Status Changed from OK to Upper Non-Critical", "Degraded"},
        {6, false, "Status Changed to OK", "OK"},
        {7, false, "Status Changed to OK", "OK"},
        {10, true, "Status Changed from OK to Upper Non-Critical", "Fatal"},
        {11, false, "Status is Critical", "OK"},
        {5, true, nullptr, nullptr},
        {12, true, nullptr, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.offset) + (row.asserted ? " asserted" : " deasserted"));
        const TemperatureDescription d = temperatureDescription(row.offset, row.asserted);
        if (row.description == nullptr) {
            EXPECT_EQ(d.description, nullptr);
            EXPECT_EQ(d.status, nullptr);
        } else {
            EXPECT_STREQ(d.description, row.description);
            EXPECT_STREQ(d.status, row.status);
        }
    }
}

// Each sensor-specific offset is described once: a row pasted with a wrong offset shadows
// another and leaves its own offset without a description.
TEST(SelDecode, EachSensorSpecificOffsetHasOneDescription) {
    size_t count = 0;
    const EventOffsetDescription* rows = offsetDescriptions(&count);
    ASSERT_GT(count, 0u);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(findOffsetDescription(rows[i].sensorType, rows[i].offset), &rows[i])
            << "sensor type " << int(rows[i].sensorType) << " offset " << int(rows[i].offset);
    }
    const EventOffsetDescription* uncorrectable = findOffsetDescription(0x07, 11); // processor
    ASSERT_NE(uncorrectable, nullptr);
    EXPECT_STREQ(uncorrectable->assertion, "machine check exception (uncorrectable)");
}

TEST(SelDecode, RoutingOfANullRecordIsRefused) {
    EXPECT_EQ(routeEvent(nullptr), 0);
}

} // namespace
