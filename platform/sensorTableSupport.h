// Small helpers the threshold-sensor tables share: scaling with an absence
// sentinel, the row description of a sensor record, and the working copy of a
// database record that a live read starts from.
#ifndef HM_PLATFORM_SENSORTABLESUPPORT_H
#define HM_PLATFORM_SENSORTABLESUPPORT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/sensorWrapper.h"

// value x factor; NO_VALUE stays NO_VALUE, and so does a product that does not fit
// a signed 32-bit integer.
inline int32_t scaledOrAbsent(int32_t value, int64_t factor) {
    if (value == NO_VALUE) {
        return NO_VALUE;
    }
    const int64_t product = static_cast<int64_t>(value) * factor;
    if (product > INT32_MAX || product < INT32_MIN) {
        return NO_VALUE;
    }
    return static_cast<int32_t>(product);
}

// Size of a row description, terminating NUL included.
constexpr size_t kSensorDescriptionSize = 128;

// Writes the row description of a sensor: its name narrowed (the low byte of each
// character, at most 127 of them) whenever the name query answered, an empty name
// included, or `fallback` when it did not or the scratch buffer cannot be allocated.
// True when the description is the sensor's own name. `length` receives the narrowed
// length (0 for the fallback).
inline bool describeSensor(const CSensorInfo& info, const char* fallback,
                           char (&description)[kSensorDescriptionSize], size_t* length = nullptr) {
    std::memset(description, 0, sizeof description);
    if (length != nullptr) {
        *length = 0;
    }
    char* buffer = info.bNamePresent ? static_cast<char*>(std::calloc(kSensorDescriptionSize, 1)) : nullptr;
    if (buffer == nullptr) {
        std::strncpy(description, fallback, sizeof description - 1);
        return false;
    }
    const size_t n = info.stName.Narrow(buffer, kSensorDescriptionSize, kSensorDescriptionSize - 1);
    std::memcpy(description, buffer, n);
    description[n] = '\0';
    std::free(buffer);
    if (length != nullptr) {
        *length = n;
    }
    return true;
}

// The record a live read works on: a copy of database record `index` (an empty
// record when there is none) carrying the row's sensor number and the table's
// reserved value.
inline CSensorWrapper workingRecord(const CDatabase<CSensorWrapper>& database, int index,
                                    uint32_t sensorNumber, uint32_t reserved) {
    CSensorWrapper record;
    const CSensorWrapper* stored = database.GetAt(index);
    if (stored != nullptr) {
        record = *stored;
    }
    record.m_SensorInfo.nSensorNumber = static_cast<int32_t>(sensorNumber);
    record.m_SensorInfo.nReserved[0] = static_cast<int32_t>(reserved);
    return record;
}

#endif
