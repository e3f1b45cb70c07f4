#include "tables/discreteVoltage.h"

// Rows are not discovered yet: init finds no sensor until the BMC's discrete voltage sensors are
// read; live status and state columns come with them.

discreteVoltage::discreteVoltage() = default;

discreteVoltage::~discreteVoltage() = default;

uint32_t discreteVoltage::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t discreteVoltage::getIntInfo(int attribute, int index, int32_t* value) {
    const DiscreteVoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DISCRETEVOLTAGE_ERROR_NOROW;
    }
    if (attribute == discreteVoltageIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteVoltage::getStrInfo(int attribute, int index, char** value) {
    const DiscreteVoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return DISCRETEVOLTAGE_ERROR_NOROW;
    }
    if (attribute == discreteVoltageDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteVoltage::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return DISCRETEVOLTAGE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteVoltage::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return DISCRETEVOLTAGE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t discreteVoltage::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
