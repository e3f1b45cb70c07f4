// Discovery of the sensors of one IPMI sensor type from the BMC's SDR repository.
#ifndef HM_PLATFORM_SDRDISCOVERY_H
#define HM_PLATFORM_SDRDISCOVERY_H

#include <cstdint>

#include "platform/sensorWrapper.h"

// Bounds of the SDR text taken from one record.
constexpr size_t kSdrTextSize = 1024;   // the text is cut to 1,023 characters
constexpr int kSdrTokenSlots = 129;     // bytes 1 to 129 of the record are kept
constexpr int kSdrFullRecordBytes = 48; // bytes up to the ID string type/length byte

// The composite key of a sensor, as other components build it.
uint32_t makeSensorKey(uint32_t lunByte, uint32_t sensorNumber, uint32_t ownerId);

// Scans the SDR records of `sensorType` and appends one record per sensor to
// `database`, with its name, thresholds and current reading converted with
// `multiplier`. A record the scan cannot finish is left out; nothing is thrown.
void GetSDRData(uint32_t sensorType, CDatabase<CSensorWrapper>* database, int32_t multiplier);

#endif
