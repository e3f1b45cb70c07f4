#include "tables/coolingDevice.h"

// Rows are not discovered yet: init finds no fan until the BMC's fan sensors are read from the
// SDR; live status, reading, thresholds, resolution and threshold writes come with it.

coolingDevice::coolingDevice() = default;

coolingDevice::~coolingDevice() = default;

uint32_t coolingDevice::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t coolingDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const CoolingDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    if (attribute == coolingDeviceIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingDevice::getStrInfo(int attribute, int index, char** value) {
    const CoolingDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    if (attribute == coolingDeviceDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingDevice::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingDevice::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingDevice::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
