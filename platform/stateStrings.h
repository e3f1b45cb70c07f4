// Display texts of the query service's state keywords.
#ifndef HM_PLATFORM_STATESTRINGS_H
#define HM_PLATFORM_STATESTRINGS_H

#include <cstddef>
#include <string>

// Longest reading text the mapping takes: texts of this length or more are cut to
// kStateTextLimit - 1 characters.
constexpr size_t kStateTextLimit = 128;

// One row of the keyword table.
struct StateStringRow {
    const char* keyword;
    const char* display;
};

// The display text of one keyword: the first row whose keyword equals `keyword`
// exactly gives its text; an unknown keyword is returned itself.
const char* MapCRStrToSNMPStr(const char* keyword);

// Maps a comma-separated list of keywords, each stripped of its leading spaces,
// and appends the display texts joined by "," to `out`. A text with no keyword at
// all (empty, or commas only) is appended as it is. Only the first 127 characters
// of the text are taken; a longer text is cut there, with a trace line.
void MapMultipleCRStrToSNMPStr(const char* text, std::string& out);

// The keyword table in search order, for inspection.
size_t stateStringRowCount();
const StateStringRow& stateStringRow(size_t index);

#endif
