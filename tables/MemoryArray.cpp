#include "tables/MemoryArray.h"

// Rows are not discovered yet: init finds no memory array until the SMBIOS inventory is read; the
// columns beyond the id and the description come with it.

MemoryArray::MemoryArray() = default;

MemoryArray::~MemoryArray() = default;

uint32_t MemoryArray::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t MemoryArray::getIntInfo(int attribute, int index, int32_t* value) {
    const MemoryArrayInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYARRAY_ERROR_NOROW;
    }
    if (attribute == MemoryArrayIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t MemoryArray::getStrInfo(int attribute, int index, char** value) {
    const MemoryArrayInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYARRAY_ERROR_NOROW;
    }
    if (attribute == MemoryArrayDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

// Inventory facts are static: the table offers no live data.
uint32_t MemoryArray::getIntData(int, int, int32_t*) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t MemoryArray::getStrData(int, int, char**) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t MemoryArray::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
