// The memory array table (entity 8): one row per physical memory array of the SMBIOS inventory.
#ifndef HM_TABLES_MEMORYARRAY_H
#define HM_TABLES_MEMORYARRAY_H

#include "tables/BaseContainer.h"

// Attribute codes of the table's columns (column 1, the index, is answered by the front end).
enum MemoryArrayAttribute : int {
    memoryArrayIdAttr = 76,
    memoryArrayDescriptionAttr = 77,
    memoryArrayUseNameAttr = 78,
    memoryArrayStatusAttr = 79,
    memoryArrayLocationAttr = 80,
    memoryArrayUseAttr = 81,
    memoryArrayErrorCorrectionAttr = 82,
    memoryArrayMaxCapacityAttr = 83,
    memoryArrayErrorInfoHandleAttr = 84,
    memoryArrayNumDevicesAttr = 85,
    memoryArrayErrorCorrectionNameAttr = 86,
    memoryArrayDevicesPresentAttr = 87,
};

// Most arrays a table takes; larger counts from the service are cut to it.
constexpr uint32_t kMaxMemoryArrays = 256;

class MemoryArray : public inventoryContainer<MemoryArrayInfo> {
public:
    MemoryArray();
    ~MemoryArray() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t init() override;
};

#endif
