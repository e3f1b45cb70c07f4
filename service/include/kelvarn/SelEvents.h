// SEL entries as a BMC's tools print them, and the hardware events a simulated
// server can be told to log by name.
//
// Entry text, in the manner of ipmitool's event list: the sensor type, the sensor
// name, the event and its direction, separated by " | ":
//   "Temperature CPU2 Temp | Upper Critical going high | Asserted"
//   "Physical Security #0x80 | General Chassis intrusion | Deasserted"  (no SDR record)
// Time stamps read "YYYY-MM-DD HH:MM:SS" (ISO 8601 date and time), UTC.
#ifndef KELVARN_SELEVENTS_H
#define KELVARN_SELEVENTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kelvarn/Api.h"
#include "kelvarn/Platform.h"
#include "kelvarn/Sdr.h"

namespace kelvarn {

// The name of an IPMI sensor type ("Temperature", "Drive Slot / Bay", ...).
KELVARN_API std::string selSensorTypeName(uint8_t sensorType);

// The event of one offset ("Upper Critical going high", "Correctable ECC", ...): by
// event/reading type, or for sensor-specific events (0x6F) by sensor type. Offsets
// without a text read "Unknown event offset 0xN".
KELVARN_API std::string selEventText(uint8_t sensorType, uint8_t eventReadingType, unsigned offset);

// The text of a system event record (record type 2) given the name of its sensor
// (empty: the sensor is not in the SDR); other record types read "OEM record type 0xNN".
KELVARN_API std::string selEntryText(const std::array<uint8_t, 16>& raw, const std::string& sensorName);

// The record's time stamp ("YYYY-MM-DD HH:MM:SS", UTC); empty for OEM records
// without one (record types 0xE0-0xFF).
KELVARN_API std::string selTimestampText(const std::array<uint8_t, 16>& raw);

// One hardware event a simulated server can log by name.
struct NamedEvent {
    const char* name;         // "processor-ierr"
    uint8_t sensorType;       // IPMI sensor type of the sensor that logs it
    uint8_t eventReadingType; // 0x01 threshold, 0x08 presence, 0x0B redundancy, 0x6F sensor-specific
    uint8_t offset;           // event offset 0-14
    bool deassertion;
};

// The table of named events, in the order `kelvarn-sim list-events` prints it.
KELVARN_API const NamedEvent* namedEvents(size_t& count);
// The event of that name, or nullptr.
KELVARN_API const NamedEvent* findNamedEvent(const std::string& name);

// The sensor named by `spec`: its name, its number (owner 0x20, LUN 0) or
// OWNER:LUN:NUMBER. Throws PlatformFileError naming the problem when none is.
KELVARN_API SdrFields findSensorBySpec(const PlatformModel& model, const std::string& spec);

// The journal line ("sel-add ...") that logs `event` at `time` against a sensor of the
// platform: the one named by `sensorSpec` (a name, a number, or OWNER:LUN:NUMBER)
// when given, otherwise the first sensor of the event's sensor type whose SDR has
// the event's event/reading type, otherwise the first of that sensor type.
// `invert` logs the opposite direction. Throws PlatformFileError when no sensor fits.
KELVARN_API std::string namedEventJournalLine(const PlatformModel& model, const NamedEvent& event,
                                              const std::string& sensorSpec, uint32_t time,
                                              bool invert = false);

} // namespace kelvarn

#endif
