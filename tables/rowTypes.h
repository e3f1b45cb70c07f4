// Row records of the hardware tables. Every row begins with its id, status and
// description in one of two fixed layouts, which the shared container operations rely on:
//   sensor rows:    id, status, description[128], ...
//   inventory rows: id, description[128], second text[128], status, ...
#ifndef HM_TABLES_ROWTYPES_H
#define HM_TABLES_ROWTYPES_H

#include <cstddef>
#include <cstdint>

// Threshold sensors: temperature probes, voltage probes, cooling devices (fans).
struct TemperatureInfo {
    uint32_t id;    // sensor number
    int32_t status; // status value at start-up
    char description[128];
    int32_t resolution;
    int32_t tolerance;
    int32_t accuracy;
};

struct VoltageInfo {
    uint32_t id;
    int32_t status;
    char description[128];
    int32_t resolution;
    int32_t tolerance;
    int32_t accuracy;
};

struct CoolingDeviceInfo {
    uint32_t id;
    int32_t status;
    char description[128];
    int32_t resolution;
    int32_t tolerance;
    int32_t accuracy;
};

// Discrete sensors and the power, cooling-unit, drive-slot and chassis groups.
struct CoolingUnitInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct DiscreteCoolingInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct DiscreteVoltageInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct DriveSlotInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct PowerSupplyInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct PowerUnitInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

struct ChassisInfo {
    uint32_t id;
    int32_t status;
    char description[128];
};

// SMBIOS inventory: memory arrays, memory devices, processors.
struct MemoryArrayInfo {
    uint32_t id;
    char description[128];
    char detail[128]; // second text
    int32_t status;
};

struct MemoryDeviceInfo {
    uint32_t id;
    char description[128];
    char detail[128];
    int32_t status;
};

struct ProcessorInfo {
    uint32_t id;
    char description[128];
    char detail[128];
    int32_t status;
};

// The two layouts, checked.
#define HM_SENSOR_ROW_LAYOUT(T)                                                                              \
    static_assert(offsetof(T, id) == 0 && offsetof(T, status) == 4 && offsetof(T, description) == 8,         \
                  #T " has the sensor row layout")
#define HM_INVENTORY_ROW_LAYOUT(T)                                                                           \
    static_assert(offsetof(T, id) == 0 && offsetof(T, description) == 4 && offsetof(T, detail) == 132 &&     \
                      offsetof(T, status) == 260,                                                            \
                  #T " has the inventory row layout")

HM_SENSOR_ROW_LAYOUT(TemperatureInfo);
HM_SENSOR_ROW_LAYOUT(VoltageInfo);
HM_SENSOR_ROW_LAYOUT(CoolingDeviceInfo);
HM_SENSOR_ROW_LAYOUT(CoolingUnitInfo);
HM_SENSOR_ROW_LAYOUT(DiscreteCoolingInfo);
HM_SENSOR_ROW_LAYOUT(DiscreteVoltageInfo);
HM_SENSOR_ROW_LAYOUT(DriveSlotInfo);
HM_SENSOR_ROW_LAYOUT(PowerSupplyInfo);
HM_SENSOR_ROW_LAYOUT(PowerUnitInfo);
HM_SENSOR_ROW_LAYOUT(ChassisInfo);
HM_INVENTORY_ROW_LAYOUT(MemoryArrayInfo);
HM_INVENTORY_ROW_LAYOUT(MemoryDeviceInfo);
HM_INVENTORY_ROW_LAYOUT(ProcessorInfo);

#undef HM_SENSOR_ROW_LAYOUT
#undef HM_INVENTORY_ROW_LAYOUT

#endif
