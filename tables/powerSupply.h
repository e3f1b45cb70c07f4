// The table of power supplies (entity 5).
#ifndef HM_TABLES_POWERSUPPLY_H
#define HM_TABLES_POWERSUPPLY_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum PowerSupplyAttribute : int {
    powerSupplyIdAttr = 50,
    powerSupplyDescriptionAttr = 51,
};

class powerSupply : public BaseContainer<PowerSupplyInfo> {
public:
    powerSupply();
    ~powerSupply() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
