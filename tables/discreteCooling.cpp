#include "tables/discreteCooling.h"

// Rows are not discovered yet: init finds no sensor until the BMC's discrete cooling sensors are
// read; live status and state columns come with them.

discreteCooling::discreteCooling() = default;

discreteCooling::~discreteCooling() = default;

uint32_t discreteCooling::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t discreteCooling::getIntInfo(int attribute, int index, int32_t* value) {
    const DiscreteCoolingInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DISCRETECOOLING_ERROR_NOROW;
    }
    if (attribute == discreteCoolingIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteCooling::getStrInfo(int attribute, int index, char** value) {
    const DiscreteCoolingInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DISCRETECOOLING_ERROR_NOROW;
    }
    if (attribute == discreteCoolingDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteCooling::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return DISCRETECOOLING_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteCooling::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return DISCRETECOOLING_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteCooling::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
