// The processor table of the SMBIOS inventory (entity 3).
#ifndef HM_TABLES_PROCESSORDEVICE_H
#define HM_TABLES_PROCESSORDEVICE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum ProcessorDeviceAttribute : int {
    processorDeviceIdAttr = 27,
    processorDeviceDescriptionAttr = 28,
};

class processorDevice : public BaseContainer<ProcessorInfo> {
public:
    processorDevice();
    ~processorDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
