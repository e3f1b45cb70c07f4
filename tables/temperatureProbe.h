// The table of temperature sensors (entity 13).
#ifndef HM_TABLES_TEMPERATUREPROBE_H
#define HM_TABLES_TEMPERATUREPROBE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum TemperatureProbeAttribute : int {
    temperatureProbeIdAttr = 138,
    temperatureProbeDescriptionAttr = 139,
};

class temperatureProbe : public BaseContainer<TemperatureInfo> {
public:
    temperatureProbe();
    ~temperatureProbe() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
