// The table of power units: power unit sensors (IPMI sensor type 0x09), power redundancy included (entity 4).
#ifndef HM_TABLES_POWERUNIT_H
#define HM_TABLES_POWERUNIT_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum PowerUnitAttribute : int {
    powerUnitIdAttr = 44,
    powerUnitDescriptionAttr = 45,
    powerUnitStatusTextAttr = 46,
    powerUnitStatusAttr = 47,
    powerUnitStateMaskAttr = 48,
};

class powerUnit : public discreteSensorTable<PowerUnitInfo> {
public:
    powerUnit();
    ~powerUnit() override;
};

#endif
