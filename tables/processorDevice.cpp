#include "tables/processorDevice.h"

// Rows are not discovered yet: init finds no processor until the SMBIOS inventory is read; the
// columns beyond the id and the description come with it.

processorDevice::processorDevice() = default;

processorDevice::~processorDevice() = default;

uint32_t processorDevice::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t processorDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const ProcessorInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return PROCESSOR_ERROR_NOROW;
    }
    if (attribute == processorDeviceIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t processorDevice::getStrInfo(int attribute, int index, char** value) {
    const ProcessorInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return PROCESSOR_ERROR_NOROW;
    }
    if (attribute == processorDeviceDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

// Inventory facts are static: the table offers no live data.
uint32_t processorDevice::getIntData(int, int, int32_t*) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t processorDevice::getStrData(int, int, char**) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t processorDevice::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
