// The table of discrete voltage sensors: voltage sensors (IPMI sensor type 0x02) that report states rather
// than readings (entity 7).
#ifndef HM_TABLES_DISCRETEVOLTAGE_H
#define HM_TABLES_DISCRETEVOLTAGE_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum DiscreteVoltageAttribute : int {
    discreteVoltageIdAttr = 70,
    discreteVoltageDescriptionAttr = 71,
    discreteVoltageStatusTextAttr = 72,
    discreteVoltageStatusAttr = 73,
    discreteVoltageStateMaskAttr = 74,
};

class discreteVoltage : public discreteSensorTable<DiscreteVoltageInfo> {
public:
    discreteVoltage();
    ~discreteVoltage() override;
};

#endif
