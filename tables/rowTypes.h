// Row records of the hardware tables. Every row begins with its id, status and
// description in one of two fixed layouts, which the shared container operations rely on:
//   sensor rows:    id, status, description[128], ...
//   inventory rows: id, description[128], second text[128], status, ...
#ifndef HM_TABLES_ROWTYPES_H
#define HM_TABLES_ROWTYPES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// Copies `text` into a row's text field, cut to fit and always terminated; null gives "".
template <size_t N> inline void copyRowText(char (&field)[N], const char* text) {
    size_t length = text != nullptr ? strnlen(text, N - 1) : 0;
    if (length > 0) {
        memcpy(field, text, length);
    }
    field[length] = '\0';
}

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

// Discrete sensors: power units, power supplies, discrete voltage, cooling units,
// discrete cooling, drive slots. After the common fields: where the sensor is found
// and what kind of sensor it is, from its SDR record.
#define HM_DISCRETE_SENSOR_ROW_FIELDS                                                                        \
    uint32_t id;    /* sensor number */                                                                      \
    int32_t status; /* status value at start-up */                                                           \
    char description[128];                                                                                   \
    int32_t ownerId;          /* sensor owner ID */                                                          \
    int32_t lun;              /* owner-LUN byte */                                                           \
    int32_t sensorType;       /* IPMI sensor type */                                                         \
    int32_t eventReadingType; /* IPMI event/reading type */                                                  \
    int32_t entityId;                                                                                        \
    int32_t entityInstance

struct CoolingUnitInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

struct DiscreteCoolingInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

struct DiscreteVoltageInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

struct DriveSlotInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

struct PowerSupplyInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

struct PowerUnitInfo {
    HM_DISCRETE_SENSOR_ROW_FIELDS;
};

#undef HM_DISCRETE_SENSOR_ROW_FIELDS

// The chassis group's one element: FRU, BMC and SMBIOS chassis facts read at start-up.
struct ChassisInfo {
    uint32_t id;
    int32_t status; // worst of the bootup, power supply and thermal states
    char description[128];
    int32_t chassisType; // FRU chassis type (SMBIOS chassis type code)
    int32_t bmcProductId;
    int32_t powerOnPassword; // hardware security settings, 1 disabled .. 4 unknown
    int32_t keyboardPassword;
    int32_t administratorPassword;
    char partNumber[128];
    char serialNumber[128];
    char assetTag[128];
    char manufacturer[128];
};

// SMBIOS inventory: memory arrays, memory devices, processors.
struct MemoryArrayInfo {
    uint32_t id;           // array number, from 1
    char description[128]; // "Memory Array n"
    char detail[128];      // use, as its SMBIOS name
    int32_t status;
    int32_t location; // SMBIOS codes
    int32_t use;
    int32_t errorCorrection;
    int32_t maxCapacity; // KiB
    int32_t errorInfoHandle;
    int32_t numDevices;     // slots
    int32_t devicesPresent; // populated slots
    char errorCorrectionName[128];
};

struct MemoryDeviceInfo {
    uint32_t id;           // device number over all arrays, from 1
    char description[128]; // device locator
    char detail[128];      // bank locator
    int32_t status;
    int32_t formFactor; // SMBIOS codes
    int32_t memoryType;
    int32_t typeDetail;
    int32_t speed;      // MHz
    int32_t size;       // MiB
    int32_t totalWidth; // bits
    int32_t dataWidth;  // bits
    int32_t arrayId;    // id of the array row
    int32_t slot;       // position in its array, from 1
    char manufacturer[128];
    char serialNumber[128];
    char partNumber[128];
    char assetTag[128];
};

struct ProcessorInfo {
    uint32_t id;           // socket number, from 1
    char description[128]; // socket designation
    char detail[128];      // manufacturer
    int32_t status;
    int32_t processorType; // SMBIOS codes
    int32_t family;
    int32_t voltage;       // millivolts
    int32_t externalClock; // MHz
    int32_t maxSpeed;      // MHz
    int32_t currentSpeed;  // MHz
    int32_t upgrade;
    char version[128];
    char processorId[128];
    char partNumber[128];
    char socketStatus[128]; // "Populated" or "Unpopulated"
    char serialNumber[128];
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
