// The memory-device table of the SMBIOS inventory (entity 9).
#ifndef HM_TABLES_MEMORYDEVICE_H
#define HM_TABLES_MEMORYDEVICE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum MemoryDeviceAttribute : int {
    MemoryDeviceIdAttr = 89,
    MemoryDeviceDescriptionAttr = 90,
};

class MemoryDevice : public BaseContainer<MemoryDeviceInfo> {
public:
    MemoryDevice();
    ~MemoryDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
