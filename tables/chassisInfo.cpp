#include "tables/chassisInfo.h"

// The chassis facts are not read yet: init finds no element, and no chassis attribute is served
// until they are.

chassisInfo::chassisInfo() = default;

chassisInfo::~chassisInfo() = default;

uint32_t chassisInfo::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t chassisInfo::getIntInfo(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t chassisInfo::getStrInfo(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t chassisInfo::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t chassisInfo::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t chassisInfo::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
