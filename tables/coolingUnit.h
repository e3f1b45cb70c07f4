// The table of cooling units: redundancy sensors (event/reading type 0x0B) of fans (0x04) and cooling devices
// (0x0A) (entity 10).
#ifndef HM_TABLES_COOLINGUNIT_H
#define HM_TABLES_COOLINGUNIT_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum CoolingUnitAttribute : int {
    coolingUnitIdAttr = 110,
    coolingUnitDescriptionAttr = 111,
    coolingUnitStatusTextAttr = 112,
    coolingUnitStatusAttr = 113,
    coolingUnitStateMaskAttr = 114,
    coolingUnitEntityAttr = 115,
};

class coolingUnit : public discreteSensorTable<CoolingUnitInfo> {
public:
    coolingUnit();
    ~coolingUnit() override;
};

#endif
