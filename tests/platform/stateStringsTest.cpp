// State keywords to display texts: the single-keyword table and the mapping of
// comma-separated reading texts.
#include <gtest/gtest.h>

#include <string>

#include "platform/stateStrings.h"

namespace {

// Known keywords map to their display texts (the ones management stations know, odd
// spellings included); anything else comes back as the very pointer passed in (null below).
TEST(StateStrings, KeywordsMapToTheirDisplayTexts) {
    const struct {
        const char* keyword;
        const char* display;
    } cases[] = {{"FULLY_REDUNDANT", "Full Redundancy"},
                 {"I/O_CARD_AREA_INTRUSION", "I//O_CARD_AREA_INTRUSION"},
                 {"CPU_DIDNT_START", "FRB3:"},
                 {"THREMAL_PRESENCE_DETECTED", "Terminator Presence Detected"},
                 {"ALL_DEASSERTED", "All Deasserted"},
                 // A keyword used by several sensor kinds answers with its first row only.
                 {"PREDICTIVE_FAILURE", "predictive failure has been detected for the power supply"},
                 {"D3_POWER_STATE", "D3_POWER_STATE"}, // a row whose text is the keyword itself
                 // Unknown: case, blanks and readings are not keywords.
                 {"fully_redundant", nullptr},
                 {"FULLY_REDUNDANT ", nullptr},
                 {"", nullptr},
                 {"42.5", nullptr}};
    for (const auto& c : cases) {
        if (c.display == nullptr)
            EXPECT_EQ(MapCRStrToSNMPStr(c.keyword), c.keyword) << "\"" << c.keyword << "\"";
        else
            EXPECT_STREQ(MapCRStrToSNMPStr(c.keyword), c.display) << c.keyword;
    }
}

// (Keyword lists through a sensor reading: sensorReadingTest.) Texts of 128 characters or
// more are cut to 127 before they are mapped.
TEST(StateStrings, MultipleKeywordsJoinTheirTexts) {
    const struct {
        std::string reading, mapped;
    } cases[] = {
        {"  IERR  ", "IERR  "}, // leading spaces go, trailing ones stay (and the keyword is then unknown)
        {"STATE_ASSERTED,,STATE_DEASSERTED", "State Asserted,State Deasserted"},
        {"STATE_ASSERTED, ,STATE_DEASSERTED", "State Asserted,,State Deasserted"},
        {"PARITY,", "Parity Error"},
        {"", ""},
        {",,,", ",,,"}, // no keyword: the text as it came
        {"STATE_ASSERTED," + std::string(112, 'A'), "State Asserted," + std::string(112, 'A')}, // 127: whole
        {"FULLY_REDUNDANT," + std::string(184, 'B'), "Full Redundancy," + std::string(111, 'B')},
        {std::string(300, ','), std::string(127, ',')}};
    for (const auto& c : cases) {
        std::string out;
        MapMultipleCRStrToSNMPStr(c.reading.c_str(), out);
        EXPECT_EQ(out, c.mapped) << "\"" << c.reading << "\"";
    }
}

} // namespace
