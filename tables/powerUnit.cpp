#include "tables/powerUnit.h"

// Rows are not discovered yet: init finds no power unit until the BMC's power sensors are read;
// live status and state columns come with them.

powerUnit::powerUnit() = default;

powerUnit::~powerUnit() = default;

uint32_t powerUnit::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t powerUnit::getIntInfo(int attribute, int index, int32_t* value) {
    const PowerUnitInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return POWERUNIT_ERROR_NOROW;
    }
    if (attribute == powerUnitIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerUnit::getStrInfo(int attribute, int index, char** value) {
    const PowerUnitInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return POWERUNIT_ERROR_NOROW;
    }
    if (attribute == powerUnitDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerUnit::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return POWERUNIT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerUnit::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return POWERUNIT_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t powerUnit::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
