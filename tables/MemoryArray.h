// The memory-array table of the SMBIOS inventory (entity 8).
#ifndef HM_TABLES_MEMORYARRAY_H
#define HM_TABLES_MEMORYARRAY_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum MemoryArrayAttribute : int {
    MemoryArrayIdAttr = 76,
    MemoryArrayDescriptionAttr = 77,
};

class MemoryArray : public BaseContainer<MemoryArrayInfo> {
public:
    MemoryArray();
    ~MemoryArray() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
