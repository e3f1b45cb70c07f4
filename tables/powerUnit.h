// The table of power units (entity 4).
#ifndef HM_TABLES_POWERUNIT_H
#define HM_TABLES_POWERUNIT_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum PowerUnitAttribute : int {
    powerUnitIdAttr = 44,
    powerUnitDescriptionAttr = 45,
};

class powerUnit : public BaseContainer<PowerUnitInfo> {
public:
    powerUnit();
    ~powerUnit() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
