#include "tables/coolingUnit.h"

// Rows are not discovered yet: init finds no cooling unit until the BMC's cooling redundancy
// sensors are read; live status and state columns come with them.

coolingUnit::coolingUnit() = default;

coolingUnit::~coolingUnit() = default;

uint32_t coolingUnit::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t coolingUnit::getIntInfo(int attribute, int index, int32_t* value) {
    const CoolingUnitInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGUNIT_ERROR_NOROW;
    }
    if (attribute == coolingUnitIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingUnit::getStrInfo(int attribute, int index, char** value) {
    const CoolingUnitInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGUNIT_ERROR_NOROW;
    }
    if (attribute == coolingUnitDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingUnit::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return COOLINGUNIT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingUnit::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return COOLINGUNIT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingUnit::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
