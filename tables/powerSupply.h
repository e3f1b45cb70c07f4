// The table of power supplies: power supply sensors (IPMI sensor type 0x08) (entity 5).
#ifndef HM_TABLES_POWERSUPPLY_H
#define HM_TABLES_POWERSUPPLY_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum PowerSupplyAttribute : int {
    powerSupplyIdAttr = 50,
    powerSupplyDescriptionAttr = 51,
    powerSupplyStatusTextAttr = 52,
    powerSupplyStatusAttr = 53,
};

class powerSupply : public discreteSensorTable<PowerSupplyInfo> {
public:
    powerSupply();
    ~powerSupply() override;
};

#endif
