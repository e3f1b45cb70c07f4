// The SMBIOS processor and memory inventory: the records filled from the query service's
// "/SMBIOS" paths, the exported inventory functions and the start-up load.
#ifndef HM_PLATFORM_SMBIOSINVENTORY_H
#define HM_PLATFORM_SMBIOSINVENTORY_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/hmVocabulary.h"

// Size of every text field of the inventory records; copies are cut to fit.
constexpr size_t kInventoryTextSize = 512;

// One processor socket (SMBIOS type 4), filled by ExeProcessorInfoQuery.
struct SmbiosProcessorRecord {
    uint32_t nReserved;                         // not written by the query
    uint8_t bFlag;                              // not written by the query
    char SocketDesignation[kInventoryTextSize]; // "CPU1"
    uint32_t ProcessorType;                     // SMBIOS processor type code
    uint32_t ProcessorFamily;                   // SMBIOS processor family code
    char ProcessorManufacturer[kInventoryTextSize];
    char ProcessorId[kInventoryTextSize];
    char Version[kInventoryTextSize];
    uint32_t Voltage;       // millivolts
    uint16_t ExternalClock; // MHz
    uint32_t MaxSpeed;      // MHz
    uint32_t CurrentSpeed;  // MHz
    uint32_t Upgrade;       // SMBIOS processor upgrade (socket) code
    char PartNumber[kInventoryTextSize];
};

// One memory device (SMBIOS type 17).
struct SmbiosMemoryDeviceRecord {
    char DeviceLocator[kInventoryTextSize];
    char BankLocator[kInventoryTextSize];
    uint32_t FormFactor; // SMBIOS form factor code
    uint32_t MemoryType; // SMBIOS memory type code
    uint32_t TypeDetail; // one SMBIOS type-detail bit
    uint32_t Speed;      // MHz
    uint32_t Size;       // MiB
    char Manufacturer[kInventoryTextSize];
    char SerialNumber[kInventoryTextSize];
    char AssetTag[kInventoryTextSize];
    char PartNumber[kInventoryTextSize];
    uint32_t TotalWidth; // bits
    uint32_t DataWidth;  // bits
};

// One physical memory array (SMBIOS type 16).
struct SmbiosMemoryArrayRecord {
    uint8_t Location;              // SMBIOS location code
    uint8_t Use;                   // SMBIOS use code
    uint8_t MemoryErrorCorrection; // SMBIOS error correction code
    uint32_t MaxCapacity;          // KiB
    uint32_t MemoryErrorInfoHandle;
    uint32_t NumMemoryDevices;       // device slots
    uint32_t TotalNoOfDevicePresent; // populated slots
};

// One row of a name-to-code table.
struct SmbiosNameCode {
    const char* name;
    uint32_t code;
};

// The name-to-code tables, in search order, each ending with a null name.
extern const SmbiosNameCode kProcessorTypeNames[];
extern const SmbiosNameCode kProcessorFamilyNames[];
extern const SmbiosNameCode kProcessorUpgradeNames[];
extern const SmbiosNameCode kMemoryFormFactorNames[];
extern const SmbiosNameCode kMemoryTypeNames[];
extern const SmbiosNameCode kMemoryTypeDetailNames[];
extern const SmbiosNameCode kMemoryArrayUseNames[];
extern const SmbiosNameCode kMemoryErrorCorrectionNames[];

// The code of the first row whose name equals `name` exactly; false when none does.
bool smbiosCodeOfName(const SmbiosNameCode* table, const char* name, uint32_t* code);
// The name of the first row with `code`, or null.
const char* smbiosNameOfCode(const SmbiosNameCode* table, uint32_t code);

// Record queries: one Get of `path`, then one field per sub-key found; missing
// sub-keys and failures leave fields as they were.
void ExeProcessorInfoQuery(const char* path, SmbiosProcessorRecord* record);
void ExeMemoryDeviceQuery(const char* path, SmbiosMemoryDeviceRecord* record);
void ExeMemoryArrayQuery(const char* path, SmbiosMemoryArrayRecord* record);

// Each memory array (zero-based index) with the zero-based indexes of its present devices.
typedef std::vector<std::pair<int, std::vector<int>>> MemoryArrayDetails;
MemoryArrayDetails GetMemoryArrayDetails();

// Device `deviceIndex` of array `arrayIndex` into *record; returns 0.
int32_t getMemoryDeviceInfo(uint32_t arrayIndex, uint32_t deviceIndex, SmbiosMemoryDeviceRecord* record);

// Exported inventory functions: each returns 0, success or failure; the result comes
// back through the pointer, which keeps the caller's value when the query fails.
extern "C" {
HM_EXPORT int32_t getNumberOfPhysicalMemoryArray(uint32_t* count);
HM_EXPORT int32_t getPhyMemDevArrayInfo(int32_t arrayIndex, SmbiosMemoryArrayRecord* record);
HM_EXPORT int32_t getNumberOfMemoryDevice(uint32_t arrayIndex, uint32_t* count);
HM_EXPORT int32_t getNumberOfMemoryDevicePresent(uint32_t arrayIndex, uint32_t* count);
HM_EXPORT int32_t getNumberOfProcessor(uint32_t* count);
HM_EXPORT int32_t getNumberOfProcessorPresent(uint32_t* count);
HM_EXPORT int32_t getProcessorPresentInfo(int32_t processorIndex, SmbiosProcessorRecord* record);
}

// Returned by loadSmbiosInventory when the query service answered neither the processor
// count nor the memory array count (service unreachable, or no SMBIOS data at all).
constexpr uint32_t SMBIOS_ERROR_UNAVAILABLE = 5;

// Loads the inventory's counts at start-up (called twice). CLIENT_SUCCESS when at least
// one of the two counts was answered, SMBIOS_ERROR_UNAVAILABLE otherwise.
uint32_t loadSmbiosInventory();

#endif
