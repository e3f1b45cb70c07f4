// IPMI v2.0 sensor data records: the byte layouts of the full (type 0x01) and
// compact (type 0x02) sensor records as data tables, an encoder from
// engineering fields, a decoder and the reading conversion.
#ifndef KELVARN_SDR_H
#define KELVARN_SDR_H

#include <cstdint>
#include <string>
#include <vector>

#include "kelvarn/Platform.h"

namespace kelvarn {

constexpr uint8_t kSdrFullSensor = 0x01;
constexpr uint8_t kSdrCompactSensor = 0x02;
constexpr uint8_t kEventReadingThreshold = 0x01;
constexpr uint8_t kEventReadingSensorSpecific = 0x6F;

enum class AnalogFormat : uint8_t { Unsigned = 0, OnesComplement = 1, TwosComplement = 2, None = 3 };

// Threshold bit positions in the readable and settable masks.
enum ThresholdBit : uint8_t {
    kLowerNonCritical = 0,
    kLowerCritical = 1,
    kLowerNonRecoverable = 2,
    kUpperNonCritical = 3,
    kUpperCritical = 4,
    kUpperNonRecoverable = 5,
};

// A sensor record's fields as engineering values (signed fields are signed here).
struct SdrFields {
    uint16_t recordId = 0;
    uint8_t recordType = kSdrFullSensor;
    uint8_t owner = 0x20, lun = 0, number = 0;
    uint8_t entityId = 0, entityInstance = 1;
    uint8_t initialization = 0x7F, capabilities = 0x68;
    uint8_t sensorType = 0, eventReadingType = kEventReadingThreshold;
    uint16_t assertionMask = 0, deassertionMask = 0;
    uint8_t readableMask = 0, settableMask = 0; // threshold sensors; discrete: low/high discrete mask bytes
    AnalogFormat analogFormat = AnalogFormat::Unsigned;
    uint8_t rateUnit = 0, modifierUnitUse = 0, percentage = 0;
    uint8_t baseUnit = 0, modifierUnit = 0;
    uint8_t linearization = 0;
    int16_t m = 1, b = 0;
    int8_t bExp = 0, rExp = 0;
    uint8_t tolerance = 0;
    uint16_t accuracy = 0;
    uint8_t accuracyExp = 0, direction = 0;
    uint8_t analogFlags = 0, nominal = 0, normalMax = 0, normalMin = 0, sensorMax = 0xFF, sensorMin = 0;
    uint8_t thresholds[6] = {0, 0, 0, 0, 0, 0}; // indexed by ThresholdBit
    uint8_t positiveHysteresis = 0, negativeHysteresis = 0;
    uint8_t shareCount = 0, oem = 0;
    std::string name; // at most 16 characters
};

// Builds the record's bytes (header included). Throws QueryError on a name longer than 16.
KELVARN_API Bytes encodeSdr(const SdrFields& fields);
// Reads a full or compact sensor record. Returns false for other record types
// or a record too short for its type.
KELVARN_API bool decodeSdr(const Bytes& record, SdrFields& fields);

// The 1-based byte number of a threshold in the full record (UNR 37 ... LNC 42).
KELVARN_API uint8_t thresholdByte(ThresholdBit bit);

// y = L[(M*x + B*10^Bexp) * 10^Rexp]. Returns false when the record has no
// analog reading or the linearization is unknown or undefined at x.
KELVARN_API bool convertReading(const SdrFields& fields, uint8_t raw, double& value);

// Text forms.
KELVARN_API std::string hexBytes(const uint8_t* data, size_t size); // "01 00 51 ..." (two lower-case digits)
KELVARN_API std::string formatNumber(double value); // shortest decimal, "25.5", "9000", "-3.25"

} // namespace kelvarn

#endif
