// State keywords to display texts: the single-keyword table and the mapping of
// comma-separated reading texts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/stateStrings.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::TracedTest;

// Known keywords map to their display texts; anything else comes back as the very
// pointer passed in (display null below).
TEST(StateStrings, KeywordsMapToTheirDisplayTexts) {
    struct Case {
        const char* keyword;
        const char* display;
    } cases[] = {{"FULLY_REDUNDANT", "Full Redundancy"},
                 {"I/O_CARD_AREA_INTRUSION", "I//O_CARD_AREA_INTRUSION"},
                 {"IERR", "IERR (Internal Error"},
                 {"CPU_DIDNT_START", "FRB3:"},
                 {"THREMAL_PRESENCE_DETECTED", "Terminator Presence Detected"},
                 {"MEMORY_DEVICE_DISABLED", "has been disabled"},
                 {"NON_REDUNDANT_INSUFFICENT_RESOURCES", "Non-Redundancy with Insufficient Resources"},
                 {"NON_REDUNDANT_INSUFFICIENT_TO_SUFFICIENT_RESOURCES",
                  "State changed from Insufficient Resources to Non-Redundancy with Sufficient Resources"},
                 {"LIMIT_EXCEEDED", "performance is lagging"},
                 {"DEVICE_REMOVED/DEVICE_ABSENT", "Device Removed/Absent"},
                 {"DEVICE_PRESENT", "Device Inserted/Present"},
                 {"ALL_DEASSERTED", "All Deasserted"},
                 // A keyword used by several sensor kinds answers with its first row only.
                 {"PREDICTIVE_FAILURE", "predictive failure has been detected for the power supply"},
                 {"PRESENCE_DETECTED", "power supply's presence has been detected"},
                 {"DRIVE_PRESENCE", "DRIVE_PRESENCE"},
                 {"DRIVE_FAULT", "Drive Fault"},
                 // Rows whose text is the keyword itself.
                 {"GENERAL_CHASSIS_INTRUSION", "GENERAL_CHASSIS_INTRUSION"},
                 {"D3_POWER_STATE", "D3_POWER_STATE"},
                 // Unknown: case, blanks and readings are not keywords.
                 {"fully_redundant", nullptr},
                 {"FULLY_REDUNDANT ", nullptr},
                 {" IERR", nullptr},
                 {"", nullptr},
                 {"READING_UNAVAILABLE", nullptr},
                 {"42.5", nullptr}};
    for (const Case& c : cases) {
        if (c.display == nullptr)
            EXPECT_EQ(MapCRStrToSNMPStr(c.keyword), c.keyword) << "\"" << c.keyword << "\"";
        else
            EXPECT_STREQ(MapCRStrToSNMPStr(c.keyword), c.display) << c.keyword;
    }
}

class MapMultipleTest : public TracedTest {};

TEST_F(MapMultipleTest, JoinsTheTextsOfEveryKeyword) {
    struct Case {
        const char* reading;
        const char* mapped;
    } cases[] = {
        // (Keyword lists and readings through a sensor reading: sensorReadingTest.)
        {"  IERR  ", "IERR  "}, // leading spaces go, trailing ones stay (and the keyword is then unknown)
        {"STATE_ASSERTED,,STATE_DEASSERTED", "State Asserted,State Deasserted"},
        {"STATE_ASSERTED, ,STATE_DEASSERTED", "State Asserted,,State Deasserted"},
        {"PARITY,", "Parity Error"},
        {"", ""},
        {",,,", ",,,"}}; // no keyword: the text as it came
    for (const Case& c : cases) {
        std::string out;
        MapMultipleCRStrToSNMPStr(c.reading, out);
        EXPECT_EQ(out, c.mapped) << "\"" << c.reading << "\"";
    }
}

TEST_F(MapMultipleTest, ReadingTextsOf128CharactersOrMoreAreCutTo127) {
    // 127 characters: taken whole, no trace of a cut.
    const std::string fits = "STATE_ASSERTED," + std::string(112, 'A');
    ASSERT_EQ(fits.size(), 127u);
    std::string out;
    MapMultipleCRStrToSNMPStr(fits.c_str(), out);
    EXPECT_EQ(out, "State Asserted," + std::string(112, 'A'));
    EXPECT_EQ(trace().find("only the first"), std::string::npos);

    // 200 characters: the first 127 are mapped.
    const std::string longText = "FULLY_REDUNDANT," + std::string(184, 'B');
    ASSERT_EQ(longText.size(), 200u);
    out.clear();
    MapMultipleCRStrToSNMPStr(longText.c_str(), out);
    EXPECT_EQ(out, "Full Redundancy," + std::string(111, 'B'));

    // Commas only, 300 of them: no keyword, the cut text is returned.
    const std::string commas(300, ',');
    out.clear();
    MapMultipleCRStrToSNMPStr(commas.c_str(), out);
    EXPECT_EQ(out, std::string(127, ','));

    EXPECT_EQ(sensortest::countOf(
                  trace(), "\n Reading text of more than 127 characters, only the first 127 are mapped\n"),
              2u);
}

} // namespace
