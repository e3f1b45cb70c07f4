// The table of voltage sensors (entity 6): one row per linear threshold sensor of
// IPMI sensor type 2, values in millivolts. Ids, descriptions and resolutions are
// fixed at start-up; the reading, thresholds and status are read at every request.
#ifndef HM_TABLES_VOLTAGEPROBE_H
#define HM_TABLES_VOLTAGEPROBE_H

#include "platform/sensorWrapper.h"
#include "tables/thresholdSensorTable.h"

enum VoltageProbeAttribute : int {
    voltageProbeIdAttr = 55,
    voltageProbeDescriptionAttr = 56,
    voltageProbeStatusStringAttr = 57,
    voltageProbeStatusAttr = 58,
    voltageProbeReadingAttr = 59,
    voltageProbeUpperNonRecoverableAttr = 60,
    voltageProbeUpperCriticalAttr = 61,
    voltageProbeUpperNonCriticalAttr = 62,
    voltageProbeLowerNonCriticalAttr = 63,
    voltageProbeLowerCriticalAttr = 64,
    voltageProbeLowerNonRecoverableAttr = 65,
    voltageProbeResolutionAttr = 66,
    voltageProbeToleranceAttr = 67,
    voltageProbeAccuracyAttr = 68,
};

// The discovered linear voltage sensors, index-aligned with the table's rows.
CDatabase<CSensorWrapper>& voltageSensorDatabase();

inline constexpr ThresholdTableTraits kVoltageProbeTraits = {
    voltageProbeIdAttr,
    voltageProbeDescriptionAttr,
    voltageProbeStatusStringAttr,
    voltageProbeStatusAttr,
    voltageProbeReadingAttr,
    {voltageProbeUpperNonRecoverableAttr, voltageProbeUpperCriticalAttr, voltageProbeUpperNonCriticalAttr,
     voltageProbeLowerNonCriticalAttr, voltageProbeLowerCriticalAttr, voltageProbeLowerNonRecoverableAttr},
    voltageProbeResolutionAttr,
    voltageProbeToleranceAttr,
    voltageProbeAccuracyAttr,
    VOLTAGEPROBE_ERROR_NOROW,
    1,
    &voltageSensorDatabase,
};

class voltageProbe : public thresholdSensorTable<VoltageInfo, kVoltageProbeTraits> {
public:
    voltageProbe();
    ~voltageProbe() override;

    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

protected:
    int32_t m_nMultiplier = 1000; // the service's volts, published in millivolts
};

#endif
