// Live changes of a simulated server: an append-only journal of one-line
// changes kept beside the platform file. Writers append whole lines; the
// simulated source applies the complete lines it has not seen yet before it
// answers, so changes made in quick succession are all kept and a line still
// being written is never applied half.
//
// Lines (numbers decimal or 0x-hexadecimal; OWNER LUN NUMBER name a sensor as
// its SDR does):
//   reading OWNER LUN NUMBER RAW          raw reading of a threshold sensor
//   states OWNER LUN NUMBER MASK          asserted state bits of a discrete sensor
//   available OWNER LUN NUMBER 0|1        reading available or not
//   sel-add TIME GENERATOR SENSOR OFFSET assert|deassert DATA2 DATA3 [SENSORTYPE EVENTTYPE]
//                                         system event of the sensor numbered SENSOR
//                                         owned by GENERATOR's low byte (on the LUN of
//                                         its bits 8-9); sensor type and event/reading
//                                         type are the sensor's own unless given; the
//                                         record ID follows the newest entry
//   sel-raw B0 B1 ... B15                 a SEL entry given as its 16 bytes (hex)
//   sel-clear                             empties the SEL
#ifndef KELVARN_JOURNAL_H
#define KELVARN_JOURNAL_H

#include <string>

#include "kelvarn/Platform.h"

namespace kelvarn {

// Applies one line; false (with the reason) for a line that cannot be applied.
KELVARN_API bool applyJournalLine(PlatformModel& model, const std::string& line, std::string& why);

// Appends one line (a newline is added) with a single write under an exclusive
// lock. Throws PlatformFileError when the journal cannot be written.
KELVARN_API void appendJournal(const std::string& journalPath, const std::string& line);

// The journal kept beside a platform file.
inline std::string journalPathFor(const std::string& platformPath) {
    return platformPath + ".journal";
}

} // namespace kelvarn

#endif
