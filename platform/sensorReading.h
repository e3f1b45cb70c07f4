// The current reading and the thresholds of one sensor, in the owning table's units.
#ifndef HM_PLATFORM_SENSORREADING_H
#define HM_PLATFORM_SENSORREADING_H

#include <cstdint>

#include "platform/sensorWrapper.h"

// Which value GetThresholdValue fetches.
enum ThresholdKind : int32_t {
    THRESHOLD_UPPER_CRITICAL = 1,
    THRESHOLD_UPPER_NONCRITICAL = 2,
    THRESHOLD_UPPER_NONRECOVERABLE = 3,
    THRESHOLD_LOWER_NONCRITICAL = 4,
    THRESHOLD_LOWER_NONRECOVERABLE = 5,
    THRESHOLD_LOWER_CRITICAL = 6,
    THRESHOLD_TOLERANCE = 7,
    THRESHOLD_RESOLUTION = 8,
    THRESHOLD_ACCURACY = 9,
    THRESHOLD_NONE = 10, // no query: the result is NO_VALUE
};

// Reads the sensor's current value and state text into `sensor`: the reading is the
// service's value times `multiplier` (single precision, truncated), NO_VALUE for
// "READING_UNAVAILABLE"; the text is the mapped state text. A failed or empty
// answer leaves both as they were. Nothing is thrown.
void GetSensorData2(CSensorWrapper* sensor, int32_t multiplier);

// Fetches one threshold (kinds 1 to 6, converted through the sensor's own
// interpretation and scaled by `multiplier` in double precision) or the
// tolerance, resolution or accuracy (kinds 7 to 9, the service's integer as it is).
// `rawSdrByte` is the threshold's byte from the SDR record, used when the service
// gives no raw value. NO_VALUE when absent or not supported. Failures of the
// service are thrown as ResultStatus.
int32_t GetThresholdValue(uint32_t sensorNumber, uint32_t ownerId, uint32_t lun, int32_t rawSdrByte,
                          int32_t multiplier, int32_t kind);

#endif
