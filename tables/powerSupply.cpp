#include "tables/powerSupply.h"

// Rows are not discovered yet: init finds no power supply until the BMC's power-supply sensors are
// read; live status and state columns come with them.

powerSupply::powerSupply() = default;

powerSupply::~powerSupply() = default;

uint32_t powerSupply::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t powerSupply::getIntInfo(int attribute, int index, int32_t* value) {
    const PowerSupplyInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return POWERSUPPLY_ERROR_NOROW;
    }
    if (attribute == powerSupplyIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerSupply::getStrInfo(int attribute, int index, char** value) {
    const PowerSupplyInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return POWERSUPPLY_ERROR_NOROW;
    }
    if (attribute == powerSupplyDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerSupply::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return POWERSUPPLY_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerSupply::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return POWERSUPPLY_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerSupply::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
