#include "tables/driveSlot.h"

// Rows are not discovered yet: init finds no drive slot until the BMC's drive-slot sensors are
// read; live status columns come with them.

driveSlot::driveSlot() = default;

driveSlot::~driveSlot() = default;

uint32_t driveSlot::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t driveSlot::getIntInfo(int attribute, int index, int32_t* value) {
    const DriveSlotInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DRIVESLOT_ERROR_NOROW;
    }
    if (attribute == driveSlotIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t driveSlot::getStrInfo(int attribute, int index, char** value) {
    const DriveSlotInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DRIVESLOT_ERROR_NOROW;
    }
    if (attribute == driveSlotDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t driveSlot::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return DRIVESLOT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t driveSlot::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return DRIVESLOT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t driveSlot::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
