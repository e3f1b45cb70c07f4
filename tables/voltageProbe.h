// The table of voltage sensors (entity 6): one row per linear threshold sensor of
// IPMI sensor type 2, values in millivolts. Ids, descriptions and resolutions are
// fixed at start-up; the reading, thresholds and status are read at every request.
#ifndef HM_TABLES_VOLTAGEPROBE_H
#define HM_TABLES_VOLTAGEPROBE_H

#include "platform/sensorWrapper.h"
#include "tables/BaseContainer.h"

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

class voltageProbe : public BaseContainer<VoltageInfo> {
public:
    voltageProbe();
    ~voltageProbe() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

protected:
    void loadWorkingValues(const CSensorWrapper& record);
    // Status name of the working values against all six thresholds.
    const char* workingStatus();
    // Reads row `index` live into the working values; false when there is no row.
    bool readLive(int index, bool forString);

    int32_t m_nScale = 1;
    uint32_t m_nReserved = 0;
    int32_t m_nUpperNonRec = NO_VALUE;
    int32_t m_nUpperCritical = NO_VALUE;
    int32_t m_nUpperNonCri = NO_VALUE;
    int32_t m_nLowerNonCri = NO_VALUE;
    int32_t m_nLowerCritical = NO_VALUE;
    int32_t m_nLowerNonRec = NO_VALUE;
    int32_t m_nCurrentReading = NO_VALUE;
    uint32_t m_nSensorType = 2;
    int32_t m_nMultiplier = 1000; // the service's volts, published in millivolts
};

#endif
