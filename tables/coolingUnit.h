// The table of cooling units (entity 10).
#ifndef HM_TABLES_COOLINGUNIT_H
#define HM_TABLES_COOLINGUNIT_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum CoolingUnitAttribute : int {
    coolingUnitIdAttr = 110,
    coolingUnitDescriptionAttr = 111,
};

class coolingUnit : public BaseContainer<CoolingUnitInfo> {
public:
    coolingUnit();
    ~coolingUnit() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
