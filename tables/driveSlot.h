// The table of drive slots (entity 14).
#ifndef HM_TABLES_DRIVESLOT_H
#define HM_TABLES_DRIVESLOT_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum DriveSlotAttribute : int {
    driveSlotIdAttr = 153,
    driveSlotDescriptionAttr = 154,
};

class driveSlot : public BaseContainer<DriveSlotInfo> {
public:
    driveSlot();
    ~driveSlot() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
