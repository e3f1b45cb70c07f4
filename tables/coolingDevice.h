// The table of cooling devices, the fans (entity 11): one row per linear threshold
// sensor of IPMI sensor type 4. Ids, descriptions and resolutions are fixed at
// start-up; the reading, thresholds and status are read at every request. With the
// facade's inverse-linearization flag set, upper and lower thresholds trade places
// (fans whose raw value falls as the speed rises).
#ifndef HM_TABLES_COOLINGDEVICE_H
#define HM_TABLES_COOLINGDEVICE_H

#include "platform/sensorWrapper.h"
#include "tables/thresholdSensorTable.h"

enum CoolingDeviceAttribute : int {
    coolingDeviceIdAttr = 117,
    coolingDeviceDescriptionAttr = 118,
    coolingDeviceStatusStringAttr = 119,
    coolingDeviceStatusAttr = 120,
    coolingDeviceReadingAttr = 121,
    coolingDeviceUpperNonRecoverableAttr = 122,
    coolingDeviceUpperCriticalAttr = 123,
    coolingDeviceUpperNonCriticalAttr = 124,
    coolingDeviceLowerNonCriticalAttr = 125,
    coolingDeviceLowerCriticalAttr = 126,
    coolingDeviceLowerNonRecoverableAttr = 127,
    coolingDeviceResolutionAttr = 128,
    coolingDeviceToleranceAttr = 129,
    coolingDeviceAccuracyAttr = 130,
};

// The discovered linear fan sensors, index-aligned with the table's rows.
CDatabase<CSensorWrapper>& coolingSensorDatabase();

inline constexpr ThresholdTableTraits kCoolingDeviceTraits = {
    coolingDeviceIdAttr,
    coolingDeviceDescriptionAttr,
    coolingDeviceStatusStringAttr,
    coolingDeviceStatusAttr,
    coolingDeviceReadingAttr,
    {coolingDeviceUpperNonRecoverableAttr, coolingDeviceUpperCriticalAttr, coolingDeviceUpperNonCriticalAttr,
     coolingDeviceLowerNonCriticalAttr, coolingDeviceLowerCriticalAttr, coolingDeviceLowerNonRecoverableAttr},
    coolingDeviceResolutionAttr,
    coolingDeviceToleranceAttr,
    coolingDeviceAccuracyAttr,
    COOLINGDEVICE_ERROR_NOROW,
    10,
    &coolingSensorDatabase,
};

class coolingDevice : public thresholdSensorTable<CoolingDeviceInfo, kCoolingDeviceTraits> {
public:
    // `inverseLinearization`: the facade's flag, read from the registry before the groups
    // are made.
    explicit coolingDevice(bool inverseLinearization = false);
    ~coolingDevice() override;

    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

protected:
    // Loads the working reading and thresholds, swapped pairwise when the facade's
    // inverse-linearization flag is set.
    void loadWorkingValues(const CSensorWrapper& record);
    // The live read of row `index` into the working values; false when there is no row.
    bool readLive(int attribute, int index);

    int32_t m_nMultiplier = 1;
    bool m_bInverseLinearization = false;
};

#endif
