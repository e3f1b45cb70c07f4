// State keywords of discrete sensors: the name of each state offset by event/
// reading type (generic types 0x02-0x0C) or by sensor type (sensor-specific
// type 0x6F).
#ifndef KELVARN_SENSORSTATES_H
#define KELVARN_SENSORSTATES_H

#include <cstdint>
#include <string>

#include "kelvarn/Api.h"

namespace kelvarn {

// The keyword of one state offset, or nullptr when none is defined.
KELVARN_API const char* stateKeyword(uint8_t eventReadingType, uint8_t sensorType, unsigned offset);
// The offset of a keyword for that sensor, or -1.
KELVARN_API int stateOffset(uint8_t eventReadingType, uint8_t sensorType, const std::string& keyword);
// The comma-separated keywords of the asserted bits ("ALL_DEASSERTED" when none;
// "STATE_<n>" for an offset without a keyword).
KELVARN_API std::string stateText(uint8_t eventReadingType, uint8_t sensorType, uint16_t states);
// The threshold event of offset 0-11 ("Lower Non-critical going low", ...), or nullptr.
KELVARN_API const char* thresholdEventText(unsigned offset);

} // namespace kelvarn

#endif
