#include "tables/MemoryDevice.h"

// Rows are not discovered yet: init finds no memory device until the SMBIOS inventory is read; the
// columns beyond the id and the description come with it.

MemoryDevice::MemoryDevice() = default;

MemoryDevice::~MemoryDevice() = default;

uint32_t MemoryDevice::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t MemoryDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const MemoryDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYDEVICE_ERROR_NOROW;
    }
    if (attribute == MemoryDeviceIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t MemoryDevice::getStrInfo(int attribute, int index, char** value) {
    const MemoryDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYDEVICE_ERROR_NOROW;
    }
    if (attribute == MemoryDeviceDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

// Inventory facts are static: the table offers no live data.
uint32_t MemoryDevice::getIntData(int, int, int32_t*) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t MemoryDevice::getStrData(int, int, char**) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t MemoryDevice::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
