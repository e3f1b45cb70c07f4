// The table of cooling devices, the fans (entity 11): one row per linear threshold
// sensor of IPMI sensor type 4. Ids, descriptions and resolutions are fixed at
// start-up; the reading, thresholds and status are read at every request. With the
// facade's inverse-linearization flag set, upper and lower thresholds trade places
// (fans whose raw value falls as the speed rises).
#ifndef HM_TABLES_COOLINGDEVICE_H
#define HM_TABLES_COOLINGDEVICE_H

#include "platform/sensorWrapper.h"
#include "tables/BaseContainer.h"

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

class coolingDevice : public BaseContainer<CoolingDeviceInfo> {
public:
    coolingDevice();
    ~coolingDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

protected:
    // Loads the working reading and thresholds, swapped pairwise when the facade's
    // inverse-linearization flag is set.
    void loadWorkingValues(const CSensorWrapper& record);
    const char* workingStatus();
    bool readLive(int attribute, int index);

    int32_t m_nScale = 1;
    uint32_t m_nReserved = 0;
    int32_t m_nUpperNonRec = NO_VALUE;
    int32_t m_nUpperCritical = NO_VALUE;
    int32_t m_nUpperNonCri = NO_VALUE;
    int32_t m_nLowerNonCri = NO_VALUE;
    int32_t m_nLowerCritical = NO_VALUE;
    int32_t m_nLowerNonRec = NO_VALUE;
    int32_t m_nCurrentReading = NO_VALUE;
    uint32_t m_nSensorType = 4;
    int32_t m_nMultiplier = 1;
};

#endif
