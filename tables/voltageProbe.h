// The table of voltage sensors (entity 6).
#ifndef HM_TABLES_VOLTAGEPROBE_H
#define HM_TABLES_VOLTAGEPROBE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum VoltageProbeAttribute : int {
    voltageProbeIdAttr = 55,
    voltageProbeDescriptionAttr = 56,
};

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
};

#endif
