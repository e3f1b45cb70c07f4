// The rules of the event path, each tested on its own: decoding of SEL RAW text into
// the decoded record with the record-ID bookkeeping, the descriptions of threshold and
// sensor-specific events, the choice of the event OID for each kind of event record, and
// the wide-text holder (widening, narrowing).
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "events/eventDecoders.h"
#include "events/eventDescriptions.h"
#include "events/eventOids.h"
#include "events/selPoller.h"
#include "platform/CString.h"
#include "support/oids.h"
#include "trapHarness.h"

namespace {

// Record ID, record type, time stamp, generator, revision, sensor type and number,
// event direction and type, event data 1 to 3.
using Fields = std::array<int64_t, 11>;

// The last record ID moves forward only, except out of the newest marker, which gives
// way to any ID.
TEST(SelDecode, RawTextBecomesTheRecordFieldsAndMovesTheLastRecordId) {
    const struct {
        const char* name;
        std::string text;
        Fields fields;
        int32_t last = kSelLastEntry, expectedLast = -1; // before and after (-1: the record's ID)
    } rows[] = {
        {"full entry",
         "2a 01 02 10 32 54 fe 20 01 04 07 50 6f a7 10 ff",
         {0x012a, 2, 0xfe543210, 0x0120, 4, 7, 0x50, 0x6f, 0xa7, 0x10, 0xff}},
        {"five tokens: the rest reads as 0", "05 00 02 11 22", {5, 2, 0x2211, 0, 0, 0, 0, 0, 0, 0, 0}, 4, 5},
        {"forty tokens: the first sixteen count",
         "01 00 02 00 00 00 00 20 00 04 0c 60 6f 02 ff ff ee ee ee ee ee ee ee ee ee ee ee ee "
         "ee ee ee ee ee ee ee ee ee ee ee ee",
         {1, 2, 0, 0x20, 4, 0x0c, 0x60, 0x6f, 2, 0xff, 0xff}},
        {"non-hexadecimal tokens read as strtol reads them",
         "zz 1g 02 -1 0x10 12345 ab",
         {0x0100, 2, static_cast<int64_t>(0xab4510ff), 0, 0, 0, 0, 0, 0, 0, 0}},
        {"runs of blanks separate one token", "  03  00   02 ", {3, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 3, 3},
        {"empty text", "", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
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
        const SelRecord& r = record;
        EXPECT_EQ((Fields{r.usRecordID, r.ucRecordType, static_cast<int64_t>(r.llTimeStamp), r.usGeneratorID,
                          r.ucEvMRevision, r.ucSensorType, r.ucSensorNumber, r.ucEventDirType, r.ucEventData1,
                          r.ucEventData2, r.ucEventData3}),
                  row.fields);
        EXPECT_STREQ(record.stDescription, "kept");
        EXPECT_EQ(last, row.expectedLast == -1 ? row.fields[0] : row.expectedLast);
    }
}

// The offsets the named temperature events reach are theirs, end to end.
TEST(SelDecode, TemperatureDescriptionsKeepTheSharedWording) {
    const struct {
        uint8_t offset;
        bool asserted;
        const char *description, *status;
    } rows[] = {
        {0, true, "Status Changed from OK to Upper Non-Critical", "Degraded"},
        {6, false, "Status Changed to OK", "OK"},
        {7, false, "Status Changed to OK", "OK"},
        {10, true, "Status Changed from OK to Upper Non-Critical", "Fatal"},
        {8, true, "Status Changed from OK to Upper Non-Critical", "Error"},
        {11, false, "Status is Critical", "OK"},
        {5, true, nullptr, nullptr},
        {12, true, nullptr, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.offset) + (row.asserted ? " asserted" : " deasserted"));
        const TemperatureDescription d = temperatureDescription(row.offset, row.asserted);
        EXPECT_STREQ(d.description, row.description); // two null pointers are equal
        EXPECT_STREQ(d.status, row.status);
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
}

// The rules of every group that the named events of the end-to-end test do not reach
// (other wordings, severities, precedence; uncorrectable ECC and logging disabled read
// as .60.1 and .60.5 there), and near misses.
TEST(EventOidSelection, OtherWordingsPrecedenceAndNearMisses) {
    const struct {
        int32_t group, severity;
        const char *description, *expected; // arcs below P.1000, or "" for no trap
    } rows[] = {{1, 1, "", ".20.1"},
                {1, 2, "", ".20.2"},
                {1, 0, "", ""},
                {2, 5, "system boot event has occurred; system has been reconfigured", ".90.1"},
                {3, 3, "Chassis OK ", ""},
                {3, 5, "there has been a chassis intrusion!", ""},
                {4, 6, "Device Inserted Lower", ".70.7"},
                {4, 3, "Lower Non-critical going low", ".70.7"},
                {4, 4, "lower non-critical", ".70.8"},
                {4, 1, "Lower", ""},
                {5, 6, "", ""},
                {8, 4, "Parity Error: correctable ECC", ".60.1"},
                {8, 4, "parity error", ""},
                {9, 3, "ON and OFF", ".80.3"},
                {9, 3, "slot ready", ".80.1"},
                {9, 4, "slot power OFF", ".80.2"},
                {9, 1, "ON", ""},
                {10, 3, "PS1: Power Supply Presence Detected", ".50.4"},
                {10, 3, "the power supply's presence has been detected", ""},
                {10, 5, "Power Supply Input (AC/DC) Lost", ".50.8"},
                {10, 3, "Power Supply A/C is OK", ".50.9"},
                {11, 6, "", ""},
                {12, 6, "CPU Thermal Trip", ".40.2"},
                {12, 6, "Thermal Trip after IERR (Internal Error)", ".40.1"},
                {14, 4, "Lower Non-critical going low", ".70.15"},
                {14, 5, "Lower Critical going low", ".70.14"},
                {14, 6, "Lower Non-recoverable going low", ".70.13"},
                {14, 2, "Lower", ""},
                {15, 1, "", ""},
                {17, 3, "performance has been met", ".50.17"},
                {17, 4, "performance is lagging", ".50.18"},
                {18, 3, "performance has been met", ".70.11"},
                {18, 4, "performance is lagging", ".70.12"},
                {19, 3, "Drive 3 removed", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.group) + "/" + std::to_string(row.severity) + " " + row.description);
        const AsnObjectIdentifier* oid =
            selectEventOID(makeEvent(row.group, row.severity, 0, row.description));
        EXPECT_EQ(oid == nullptr ? "" : dotted(oid),
                  row.expected[0] == '\0' ? "" : kP + ".1000" + row.expected);
    }
    for (int32_t group : {0, 6, 7, 13, 16, 20, -1}) // groups without traps
        EXPECT_EQ(selectEventOID(makeEvent(group, 5, 0, "Lower Critical going low")), nullptr) << group;
}

TEST(EventOidSelection, DescriptionFillingTheWholeFieldIsSearchedWithoutOverread) {
    eventData e = makeEvent(12, 5, 0, "");
    std::memset(e.stEventDesc, 'x', sizeof(e.stEventDesc));
    std::memcpy(e.stEventDesc + sizeof(e.stEventDesc) - 4, "FRB3", 4); // no terminating NUL
    EXPECT_EQ(dotted(getProcessorEventOID(e)), kP + ".1000.40.5");
    std::memset(e.stEventDesc, 'x', sizeof(e.stEventDesc));
    e.nEventGroup = 3;
    EXPECT_EQ(getChassisEventOID(e), nullptr);
}

TEST(CString, NarrowTextIsWidenedByteByByteAndNarrowedToTheLowByteWithinItsBounds) {
    for (const CString& s :
         {CString(), CString(static_cast<const char*>(nullptr)), CString(""), CString(u"")}) {
        EXPECT_EQ(s.GetBuffer(), nullptr);
        EXPECT_TRUE(s.IsEmpty());
    }
    const char narrow[] = {'T', 'e', 'm', 'p', '\xB0', 'C', '\xFF', '\0'};
    const CString s(narrow);
    ASSERT_EQ(s.GetLength(), 7u);
    EXPECT_EQ(std::u16string(s.GetBuffer(), 8), std::u16string(u"Temp\u00B0C\u00FF", 8));
    EXPECT_TRUE(s.Equals(narrow));
    EXPECT_FALSE(s.Equals("Temp"));
    const char16_t wide[] = {u'A', 0x0142, 0x20AC, u'z', 0};
    char out[1024];
    EXPECT_EQ(CString(wide).Narrow(out, sizeof(out), 100), 4u);
    EXPECT_EQ(std::string(out), std::string("A\x42\xACz"));
    const CString d(std::string(300, 'd').c_str());
    EXPECT_EQ(d.Narrow(out, sizeof(out), 128), 128u); // bounded by the count
    EXPECT_EQ(std::string(out), std::string(128, 'd'));
    EXPECT_EQ(d.Narrow(out, 10, 128), 9u); // and by the buffer
    EXPECT_EQ(std::string(out), std::string(9, 'd'));
    EXPECT_EQ(d.Narrow(nullptr, 5, 5), 0u);
    char buffer[CString::kLogBufferSize]; // for the trace: at most 127 characters
    EXPECT_EQ(std::string(d.NarrowForLog(buffer)), std::string(127, 'd'));
    EXPECT_STREQ(CString().NarrowForLog(buffer), "");
}

} // namespace
