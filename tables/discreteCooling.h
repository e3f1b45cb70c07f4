// The table of discrete cooling sensors: state sensors of fans (0x04) and cooling devices (0x0A) other than
// redundancy sensors (entity 12).
#ifndef HM_TABLES_DISCRETECOOLING_H
#define HM_TABLES_DISCRETECOOLING_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum DiscreteCoolingAttribute : int {
    discreteCoolingIdAttr = 132,
    discreteCoolingDescriptionAttr = 133,
    discreteCoolingStatusTextAttr = 134,
    discreteCoolingStatusAttr = 135,
    discreteCoolingStateMaskAttr = 136,
};

class discreteCooling : public discreteSensorTable<DiscreteCoolingInfo> {
public:
    discreteCooling();
    ~discreteCooling() override;
};

#endif
