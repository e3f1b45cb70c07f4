// The table of drive slots: drive slot sensors (IPMI sensor type 0x0D) (entity 14).
#ifndef HM_TABLES_DRIVESLOT_H
#define HM_TABLES_DRIVESLOT_H

#include "tables/discreteSensorTable.h"

// Attribute codes of the table's columns.
enum DriveSlotAttribute : int {
    driveSlotIdAttr = 153,
    driveSlotDescriptionAttr = 154,
    driveSlotStatusTextAttr = 155,
    driveSlotStatusAttr = 156,
};

class driveSlot : public discreteSensorTable<DriveSlotInfo> {
public:
    driveSlot();
    ~driveSlot() override;
};

#endif
