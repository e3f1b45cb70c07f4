// The processor table (entity 3): one row per processor socket of the SMBIOS inventory.
#ifndef HM_TABLES_PROCESSORDEVICE_H
#define HM_TABLES_PROCESSORDEVICE_H

#include "tables/BaseContainer.h"

// Attribute codes of the table's columns (column 1, the index, is answered by the front end).
enum ProcessorDeviceAttribute : int {
    processorDeviceIdAttr = 27,
    processorDeviceDescriptionAttr = 28, // socket designation
    processorDeviceManufacturerAttr = 29,
    processorDeviceStatusAttr = 30,
    processorDeviceTypeAttr = 31,
    processorDeviceVersionAttr = 32,
    processorDeviceProcessorIdAttr = 33,
    processorDeviceFamilyAttr = 34,
    processorDevicePartNumberAttr = 35,
    processorDeviceVoltageAttr = 36,
    processorDeviceExternalClockAttr = 37,
    processorDeviceMaxSpeedAttr = 38,
    processorDeviceCurrentSpeedAttr = 39,
    processorDeviceUpgradeAttr = 40,
    processorDeviceSocketStatusAttr = 41,
    processorDeviceSerialNumberAttr = 42,
};

// Most sockets a table takes; larger counts from the service are cut to it.
constexpr uint32_t kMaxProcessorSockets = 256;

class processorDevice : public inventoryContainer<ProcessorInfo> {
public:
    processorDevice();
    ~processorDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t init() override;

private:
    void matchProcessorSensors();
};

#endif
