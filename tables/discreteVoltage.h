// The table of discrete voltage sensors (entity 7).
#ifndef HM_TABLES_DISCRETEVOLTAGE_H
#define HM_TABLES_DISCRETEVOLTAGE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum DiscreteVoltageAttribute : int {
    discreteVoltageIdAttr = 70,
    discreteVoltageDescriptionAttr = 71,
};

class discreteVoltage : public BaseContainer<DiscreteVoltageInfo> {
public:
    discreteVoltage();
    ~discreteVoltage() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
