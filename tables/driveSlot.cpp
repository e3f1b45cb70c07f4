#include "tables/driveSlot.h"

namespace {

const discrete::TableProfile kDriveSlotProfile = {
    "driveSlot",
    {0x0D, 0},
    discrete::Kind::AnyDiscrete,
    DRIVESLOT_ERROR_NOROW,
    HM_STATUS_OTHER,
    "PX_DriveSlot",
    driveSlotIdAttr,
    driveSlotDescriptionAttr,
    driveSlotStatusTextAttr,
    driveSlotStatusAttr,
    discrete::kNoAttribute,
    discrete::kNoAttribute,
};

} // namespace

driveSlot::driveSlot() : discreteSensorTable<DriveSlotInfo>(kDriveSlotProfile) {}

driveSlot::~driveSlot() = default;
