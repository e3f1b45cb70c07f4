// What each IPMI event offset means to the agent: the description and status word a
// decoder hands on for an assertion and for a deassertion, as data.
#ifndef HM_EVENTS_EVENTDESCRIPTIONS_H
#define HM_EVENTS_EVENTDESCRIPTIONS_H

#include <cstddef>
#include <cstdint>

// One event offset of a sensor-specific sensor type (event/reading type 0x6F).
// A null deassertion text reuses the assertion text.
struct EventOffsetDescription {
    uint8_t sensorType;
    uint8_t offset;
    const char* assertion;
    const char* assertionStatus;
    const char* deassertion;
    const char* deassertionStatus;
};

// The row for a sensor type and offset, or null when the offset means nothing there.
const EventOffsetDescription* findOffsetDescription(uint8_t sensorType, uint8_t offset);

// The description of a row for the given direction.
const char* offsetDescriptionText(const EventOffsetDescription& row, bool asserted);
const char* offsetDescriptionStatus(const EventOffsetDescription& row, bool asserted);

// All rows, for documentation checks.
const EventOffsetDescription* offsetDescriptions(size_t* count);

// Threshold events (event/reading type 0x01), offsets 0-11: "Lower Non-critical going low" ...
// Null for an offset of 12 and above.
const char* thresholdEventDescription(uint8_t offset);

// Device presence events (event/reading type 0x08), offsets 0 and 1; null for the others.
const char* presenceEventDescription(uint8_t offset);

// Redundancy-state events (event/reading type 0x0B), offsets 0-7; null for the others.
const char* redundancyEventDescription(uint8_t offset);

#endif
