// The table of temperature sensors (entity 13): one row per threshold sensor of
// IPMI sensor type 1. Ids, descriptions and resolutions are fixed at start-up;
// the reading, thresholds and status are read from the platform at every request.
#ifndef HM_TABLES_TEMPERATUREPROBE_H
#define HM_TABLES_TEMPERATUREPROBE_H

#include "platform/sensorWrapper.h"
#include "tables/thresholdSensorTable.h"

enum TemperatureProbeAttribute : int {
    temperatureProbeIdAttr = 138,
    temperatureProbeDescriptionAttr = 139,
    temperatureProbeStatusStringAttr = 140,
    temperatureProbeStatusAttr = 141,
    temperatureProbeReadingAttr = 142,
    temperatureProbeUpperNonRecoverableAttr = 143,
    temperatureProbeUpperCriticalAttr = 144,
    temperatureProbeUpperNonCriticalAttr = 145,
    temperatureProbeLowerNonRecoverableAttr = 146,
    temperatureProbeLowerCriticalAttr = 147,
    temperatureProbeLowerNonCriticalAttr = 148,
    temperatureProbeResolutionAttr = 149,
    temperatureProbeToleranceAttr = 150,
    temperatureProbeAccuracyAttr = 151,
};

// The discovered temperature sensors, index-aligned with the table's rows.
CDatabase<CSensorWrapper>& temperatureSensorDatabase();

inline constexpr ThresholdTableTraits kTemperatureProbeTraits = {
    temperatureProbeIdAttr,
    temperatureProbeDescriptionAttr,
    temperatureProbeStatusStringAttr,
    temperatureProbeStatusAttr,
    temperatureProbeReadingAttr,
    {temperatureProbeUpperNonRecoverableAttr, temperatureProbeUpperCriticalAttr,
     temperatureProbeUpperNonCriticalAttr, temperatureProbeLowerNonCriticalAttr,
     temperatureProbeLowerCriticalAttr, temperatureProbeLowerNonRecoverableAttr},
    temperatureProbeResolutionAttr,
    temperatureProbeToleranceAttr,
    temperatureProbeAccuracyAttr,
    TEMPERATUREPROBE_ERROR_NOROW,
    10,
    &temperatureSensorDatabase,
};

class temperatureProbe : public thresholdSensorTable<TemperatureInfo, kTemperatureProbeTraits> {
public:
    temperatureProbe();
    ~temperatureProbe() override;

    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

    // A threshold in the table's units: by the sensor's unit type, degrees C
    // scaled, degrees F and K offset by 273 and scaled. NO_VALUE stays NO_VALUE.
    static int32_t convertThreshold(int32_t value, int32_t unitType, int32_t scale);

protected:
    // Loads the working reading and thresholds from `record`, converted.
    void loadWorkingValues(const CSensorWrapper& record);
    // The status of the working values, judged on the upper thresholds only
    // (the working lower thresholds are cleared). -1 when no scratch buffer.
    int32_t upperThresholdStatus(const char** name);

    uint32_t m_nFlag = 1; // constant, not consulted
};

#endif
