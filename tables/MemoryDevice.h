// The memory device table (entity 9): one row per present memory device of the SMBIOS
// inventory, array by array.
#ifndef HM_TABLES_MEMORYDEVICE_H
#define HM_TABLES_MEMORYDEVICE_H

#include "tables/BaseContainer.h"

// Attribute codes of the table's columns (column 1, the index, is answered by the front end).
enum MemoryDeviceAttribute : int {
    memoryDeviceIdAttr = 89,
    memoryDeviceDescriptionAttr = 90, // device locator
    memoryDeviceBankLocatorAttr = 91,
    memoryDeviceStatusAttr = 92,
    memoryDeviceManufacturerAttr = 93,
    memoryDeviceFormFactorAttr = 94,
    memoryDeviceTypeAttr = 95,
    memoryDeviceTypeDetailAttr = 96,
    memoryDeviceSpeedAttr = 97,
    memoryDeviceSizeAttr = 98,
    memoryDeviceTotalWidthAttr = 99,
    memoryDeviceSerialNumberAttr = 100,
    memoryDevicePartNumberAttr = 101,
    memoryDeviceDataWidthAttr = 102,
    memoryDeviceArrayAttr = 103,
    memoryDeviceSlotAttr = 104,
    memoryDeviceAssetTagAttr = 105,
    memoryDeviceFormFactorNameAttr = 106,
    memoryDeviceTypeNameAttr = 107,
    memoryDeviceTypeDetailNameAttr = 108,
};

// Most devices a table takes.
constexpr int kMaxMemoryDevices = 4096;

class MemoryDevice : public inventoryContainer<MemoryDeviceInfo> {
public:
    MemoryDevice();
    ~MemoryDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t init() override;
};

#endif
