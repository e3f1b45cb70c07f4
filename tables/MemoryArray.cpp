#include "tables/MemoryArray.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "core/debugLog.h"
#include "platform/smbiosInventory.h"

MemoryArray::MemoryArray() = default;

MemoryArray::~MemoryArray() = default;

uint32_t MemoryArray::init() {
    debugLog("\n MemoryArray::init() called\n");
    uint32_t arrays = 0;
    getNumberOfPhysicalMemoryArray(&arrays);
    if (arrays > kMaxMemoryArrays) {
        arrays = kMaxMemoryArrays;
    }
    m_nCount = static_cast<int32_t>(arrays);
    uint32_t status = allocTable(m_nCount);
    if (status != CLIENT_SUCCESS) {
        return status;
    }
    for (int a = 0; a < m_nCount; ++a) {
        // Codes the service does not answer read "unknown" (2).
        SmbiosMemoryArrayRecord record = {};
        record.Use = 2;
        record.MemoryErrorCorrection = 2;
        record.Location = 2;
        getPhyMemDevArrayInfo(a, &record);
        MemoryArrayInfo& row = m_pRows[a];
        row = MemoryArrayInfo();
        row.id = static_cast<uint32_t>(a + 1);
        snprintf(row.description, sizeof row.description, "Memory Array %d", a + 1);
        const char* useName = smbiosNameOfCode(kMemoryArrayUseNames, record.Use);
        copyRowText(row.detail, useName != nullptr ? useName : "Unknown");
        row.location = record.Location;
        row.use = record.Use;
        row.errorCorrection = record.MemoryErrorCorrection;
        // The column is an Integer32: arrays of 2 TiB and more read its largest value.
        row.maxCapacity = static_cast<int32_t>(std::min<uint32_t>(record.MaxCapacity, INT32_MAX));
        row.errorInfoHandle = static_cast<int32_t>(record.MemoryErrorInfoHandle);
        row.numDevices = static_cast<int32_t>(record.NumMemoryDevices);
        row.devicesPresent = static_cast<int32_t>(record.TotalNoOfDevicePresent);
        const char* eccName = smbiosNameOfCode(kMemoryErrorCorrectionNames, record.MemoryErrorCorrection);
        copyRowText(row.errorCorrectionName, eccName != nullptr ? eccName : "Unknown");
        // An array without any memory in it is not a fault, but not "ok" either.
        row.status = row.devicesPresent > 0 ? HM_STATUS_OK : HM_STATUS_OTHER;
        debugLog("\n MemoryArray: array %d, %d of %d devices present\n", a + 1, row.devicesPresent,
                 row.numDevices);
    }
    return CLIENT_SUCCESS;
}

uint32_t MemoryArray::getIntInfo(int attribute, int index, int32_t* value) {
    const MemoryArrayInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYARRAY_ERROR_NOROW;
    }
    switch (attribute) {
    case memoryArrayIdAttr:
        *value = static_cast<int32_t>(row->id);
        break;
    case memoryArrayStatusAttr:
        *value = row->status;
        break;
    case memoryArrayLocationAttr:
        *value = row->location;
        break;
    case memoryArrayUseAttr:
        *value = row->use;
        break;
    case memoryArrayErrorCorrectionAttr:
        *value = row->errorCorrection;
        break;
    case memoryArrayMaxCapacityAttr:
        *value = row->maxCapacity;
        break;
    case memoryArrayErrorInfoHandleAttr:
        *value = row->errorInfoHandle;
        break;
    case memoryArrayNumDevicesAttr:
        *value = row->numDevices;
        break;
    case memoryArrayDevicesPresentAttr:
        *value = row->devicesPresent;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return CLIENT_SUCCESS;
}

uint32_t MemoryArray::getStrInfo(int attribute, int index, char** value) {
    const MemoryArrayInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYARRAY_ERROR_NOROW;
    }
    switch (attribute) {
    case memoryArrayDescriptionAttr:
        return copyOutText(row->description, value);
    case memoryArrayUseNameAttr:
        return copyOutText(row->detail, value);
    case memoryArrayErrorCorrectionNameAttr:
        return copyOutText(row->errorCorrectionName, value);
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}
