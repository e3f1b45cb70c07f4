#include "platform/smbiosInventory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "platform/queryService.h"

// ---------------------------------------------------------------------------------------
// Name-to-code tables. The service answers SMBIOS enumerations by name; these give the
// code numbers back. Search is in table order, exact and case-sensitive.

const SmbiosNameCode kProcessorTypeNames[] = {
    {"other", 1},        {"Central processor", 3}, {"mathProcessor", 4},
    {"dspProcessor", 5}, {"videoProcessor", 6},    {nullptr, 0},
};

// The server processor family of the maker.
const SmbiosNameCode kProcessorFamilyNames[] = {
    {"Xeon", 179},
    {nullptr, 0},
};

const SmbiosNameCode kProcessorUpgradeNames[] = {
    {"Other", 1},
    {"Unknown", 2},
    {"Daughter Board", 3},
    {"ZIF Socket", 4},
    {"Replaceable Piggy Back", 5},
    {"None", 6},
    {"LIF Socket", 7},
    {"Slot 1", 8},
    {"Slot 2", 9},
    {"370-pin socket", 10},
    {"Slot A", 11},
    {"Slot M", 12},
    {"Socket 423", 13},
    {"Socket A", 14},
    {"Socket 478", 15},
    {"Socket 754", 16},
    {"Socket 940", 17},
    {"Socket 939", 18},
    {"Socket mPGA604", 19},
    {"Socket LGA771", 20},
    {"Socket LGA775", 21},
    {"Socket S1", 22},
    {"Socket AM2", 23},
    {"Socket F", 24},
    {nullptr, 0},
};

// "Reserved" 16 is kept so that published values stay as they always were.
const SmbiosNameCode kMemoryFormFactorNames[] = {
    {"Other", 1},   {"Unknown", 2}, {"SIMM", 3},        {"SIP", 4},
    {"Chip", 5},    {"DIP", 6},     {"ZIP", 7},         {"ProprietaryCard", 8},
    {"DIMM", 9},    {"TSOP", 10},   {"RowOfChips", 11}, {"RIMM", 12},
    {"SODIMM", 13}, {"SRIMM", 14},  {"FB-DIMM", 15},    {"Reserved", 16},
    {nullptr, 0},
};

// "DDR3" keeps 21, the code it has always been published with.
const SmbiosNameCode kMemoryTypeNames[] = {
    {"Other", 1},         {"DRAM", 3},   {"EDRAM", 4},   {"VRAM", 5},    {"SRAM", 6},   {"RAM", 7},
    {"ROM", 8},           {"FLASH", 9},  {"EEPROM", 10}, {"FEPROM", 11}, {"EPROM", 12}, {"CDRAM", 13},
    {"3DRAM", 14},        {"SDRAM", 15}, {"SGRAM", 16},  {"RDRAM", 17},  {"DDR", 18},   {"DDR2", 19},
    {"DDR2 FB-DIMM", 20}, {"DDR3", 21},  {nullptr, 0},
};

const SmbiosNameCode kMemoryTypeDetailNames[] = {
    {"Fast-paged", 8},    {"Static column", 16},  {"Pseudo-static", 32}, {"RAMBUS", 64},
    {"Synchronous", 128}, {"CMOS", 256},          {"EDO", 512},          {"Window DRAM", 1024},
    {"Cache DRAM", 2048}, {"Non-volatile", 4096}, {nullptr, 0},
};

const SmbiosNameCode kMemoryArrayUseNames[] = {
    {"Unknown", 2},      {"System memory", 3},       {"Video memory", 4},
    {"Flash memory", 5}, {"Non Volatile memory", 6}, {"Cache memory", 7},
    {nullptr, 0},
};

const SmbiosNameCode kMemoryErrorCorrectionNames[] = {
    {"Other", 1},          {"Unknown", 2},       {"None", 3}, {"Parity", 4},
    {"Single-bit ECC", 5}, {"Multi-bit ECC", 6}, {"CRC", 7},  {nullptr, 0},
};

bool smbiosCodeOfName(const SmbiosNameCode* table, const char* name, uint32_t* code) {
    if (table == nullptr || name == nullptr) {
        return false;
    }
    for (const SmbiosNameCode* row = table; row->name != nullptr; ++row) {
        if (strcmp(row->name, name) == 0) {
            *code = row->code;
            return true;
        }
    }
    return false;
}

const char* smbiosNameOfCode(const SmbiosNameCode* table, uint32_t code) {
    if (table == nullptr) {
        return nullptr;
    }
    for (const SmbiosNameCode* row = table; row->name != nullptr; ++row) {
        if (row->code == code) {
            return row->name;
        }
    }
    return nullptr;
}

namespace {

constexpr uint32_t kSmbiosUnknown = 2;
constexpr uint8_t kLocationSystemBoard = 3;
constexpr size_t kPathSize = 256;

// The first value of the entry `base` + "/" + `subKey`, or null when the entry is
// missing or has no value.
const char* fieldValue(const QueryResult& result, const char* base, const char* subKey) {
    std::string key(base);
    key += "/";
    key += subKey;
    QueryResult::const_iterator it = result.find(key);
    if (it == result.end() || it->second.Values.empty()) {
        return nullptr;
    }
    return it->second.Values[0].c_str();
}

// Bounded copy into a text field: cut to fit, always terminated.
template <size_t N> void copyText(char (&field)[N], const char* text) {
    snprintf(field, N, "%s", text);
}

// Enumeration by name: the matching code, or `fallback` when no row matches.
uint32_t codeOr(const SmbiosNameCode* table, const char* name, uint32_t fallback) {
    uint32_t code = fallback;
    smbiosCodeOfName(table, name, &code);
    return code;
}

// Runs the Get of a record query; false (after the failure trace) when it failed.
bool getRecord(const char* path, QueryResult& result) {
    SDK::System& system = queryService();
    try {
        system.SetFlags(1);
        system.Get(path, result);
        return true;
    } catch (const ResultStatus& status) {
        debugLog("\n Query Failed:%s", path);
        logQueryFailure(status, path, QUERY_FAILURE_VALUE);
    } catch (...) {
        debugLog("\n Query Failed:%s", path);
    }
    result.clear();
    return false;
}

} // namespace

// ---------------------------------------------------------------------------------------
// Record queries.

void ExeProcessorInfoQuery(const char* path, SmbiosProcessorRecord* record) {
    if (path == nullptr || record == nullptr) {
        return;
    }
    QueryResult result;
    if (!getRecord(path, result)) {
        return;
    }
    debugLog("ExeProcessorInfoQuery = %s\n", path);
    const char* v;
    if ((v = fieldValue(result, path, "SocketDesignation")) != nullptr) {
        copyText(record->SocketDesignation, v);
        debugLog("SocketDesignation=%s\n", record->SocketDesignation);
    }
    if ((v = fieldValue(result, path, "ProcessorType")) != nullptr) {
        record->ProcessorType = codeOr(kProcessorTypeNames, v, record->ProcessorType);
        debugLog("ProcessorType is %d:", static_cast<int>(record->ProcessorType));
    }
    if ((v = fieldValue(result, path, "ProcessorFamily")) != nullptr) {
        record->ProcessorFamily = codeOr(kProcessorFamilyNames, v, record->ProcessorFamily);
        debugLog("ProcessorFamily is %d:", static_cast<int>(record->ProcessorFamily));
    }
    if ((v = fieldValue(result, path, "ProcessorManufacturer")) != nullptr) {
        copyText(record->ProcessorManufacturer, v);
        debugLog("ProcessorManufacturerName=%s\n", record->ProcessorManufacturer);
    }
    if ((v = fieldValue(result, path, "ProcessorId")) != nullptr) {
        copyText(record->ProcessorId, v);
        debugLog("ProcessorId is %s:", record->ProcessorId);
    }
    if ((v = fieldValue(result, path, "ProcessorVersion")) != nullptr) {
        copyText(record->Version, v);
        debugLog("\n Version=%s\n", record->Version);
    }
    if ((v = fieldValue(result, path, "VoltageCapability")) != nullptr) {
        // The number without its unit letter, in millivolts.
        std::string number(v);
        if (!number.empty()) {
            number.erase(number.size() - 1);
        }
        const double millivolts = atof(number.c_str()) * 1000.0;
        record->Voltage = static_cast<uint32_t>(millivolts);
        debugLog("\n Voltage =%f\n", millivolts);
    }
    if ((v = fieldValue(result, path, "ClockFrequency")) != nullptr) {
        record->ExternalClock = static_cast<uint16_t>(atoi(v));
        debugLog("\n Clock =%d:", static_cast<int>(record->ExternalClock));
    }
    if ((v = fieldValue(result, path, "MaxSpeed")) != nullptr) {
        record->MaxSpeed = static_cast<uint32_t>(atoi(v));
        debugLog("\n MaxSpeed = %d", static_cast<int>(record->MaxSpeed));
    }
    if ((v = fieldValue(result, path, "CurrentSpeed")) != nullptr) {
        record->CurrentSpeed = static_cast<uint32_t>(atoi(v));
        debugLog("\n Current Speed = %d:", static_cast<int>(record->CurrentSpeed));
    }
    if ((v = fieldValue(result, path, "Upgrade")) != nullptr) {
        record->Upgrade = codeOr(kProcessorUpgradeNames, v, kSmbiosUnknown);
        debugLog("\n Processor Upgrade Method = :%d", static_cast<int>(record->Upgrade));
    }
    if ((v = fieldValue(result, path, "PartNumber")) != nullptr) {
        copyText(record->PartNumber, v);
        debugLog("PartNumber=%s\n", record->PartNumber);
    }
}

void ExeMemoryDeviceQuery(const char* path, SmbiosMemoryDeviceRecord* record) {
    if (path == nullptr || record == nullptr) {
        return;
    }
    QueryResult result;
    if (!getRecord(path, result)) {
        return;
    }
    const char* v;
    if ((v = fieldValue(result, path, "DeviceLocator")) != nullptr) {
        copyText(record->DeviceLocator, v);
        debugLog("Device locator=%s\n", record->DeviceLocator);
    }
    if ((v = fieldValue(result, path, "BankLocator")) != nullptr) {
        copyText(record->BankLocator, v);
        debugLog("BankLocator=%s\n", record->BankLocator);
    }
    if ((v = fieldValue(result, path, "FormFactor")) != nullptr) {
        record->FormFactor = codeOr(kMemoryFormFactorNames, v, kSmbiosUnknown);
        debugLog("FormFactor=%d\n", static_cast<int>(record->FormFactor));
    }
    if ((v = fieldValue(result, path, "MemoryType")) != nullptr) {
        record->MemoryType = codeOr(kMemoryTypeNames, v, kSmbiosUnknown);
        debugLog("MemoryType=%d\n", static_cast<int>(record->MemoryType));
    }
    // Each supported name stores its bit: the field ends with the last supported one.
    for (const SmbiosNameCode* row = kMemoryTypeDetailNames; row->name != nullptr; ++row) {
        std::string subKey("TypeDetail/");
        subKey += row->name;
        v = fieldValue(result, path, subKey.c_str());
        if (v != nullptr && strcmp(v, "Supported") == 0) {
            record->TypeDetail = row->code;
            debugLog("TypeDetail=%d\n", static_cast<int>(record->TypeDetail));
        }
    }
    if ((v = fieldValue(result, path, "Speed")) != nullptr) {
        record->Speed = static_cast<uint32_t>(atoi(v));
        debugLog("Speed=%d\n", static_cast<int>(record->Speed));
    }
    if ((v = fieldValue(result, path, "Size")) != nullptr) {
        record->Size = static_cast<uint32_t>(atoi(v));
        debugLog("Size=%d\n", static_cast<int>(record->Size));
    }
    if ((v = fieldValue(result, path, "Manufacturer")) != nullptr) {
        copyText(record->Manufacturer, v);
        debugLog("Manufacturer=%s\n", record->Manufacturer);
    }
    if ((v = fieldValue(result, path, "SerialNumber")) != nullptr) {
        copyText(record->SerialNumber, v);
        debugLog("SerialNumber=%s\n", record->SerialNumber);
    }
    if ((v = fieldValue(result, path, "AssetTag")) != nullptr) {
        copyText(record->AssetTag, v);
        debugLog("AssetTag=%s\n", record->AssetTag);
    }
    if ((v = fieldValue(result, path, "PartNumber")) != nullptr) {
        copyText(record->PartNumber, v);
        debugLog("PartNumber=%s\n", record->PartNumber);
    }
    if ((v = fieldValue(result, path, "TotalWidth")) != nullptr) {
        record->TotalWidth = static_cast<uint32_t>(atoi(v));
        debugLog("TotalWidth=%d\n", static_cast<int>(record->TotalWidth));
    }
    if ((v = fieldValue(result, path, "DataWidth")) != nullptr) {
        record->DataWidth = static_cast<uint32_t>(atoi(v));
        debugLog("DataWidth=%d\n", static_cast<int>(record->DataWidth));
    }
}

void ExeMemoryArrayQuery(const char* path, SmbiosMemoryArrayRecord* record) {
    if (path == nullptr || record == nullptr) {
        return;
    }
    QueryResult result;
    if (!getRecord(path, result)) {
        return;
    }
    const char* v;
    if ((v = fieldValue(result, path, "Location")) != nullptr) {
        // Every location is published as the system board.
        uint32_t location = kLocationSystemBoard;
        if (strcmp(v, "System board or motherboard") == 0) {
            location = kLocationSystemBoard;
        }
        record->Location = static_cast<uint8_t>(location);
        debugLog("Locationcode=%d\n", static_cast<int>(record->Location));
    }
    if ((v = fieldValue(result, path, "Use")) != nullptr) {
        record->Use = static_cast<uint8_t>(codeOr(kMemoryArrayUseNames, v, record->Use));
        debugLog("MemoryArrayUse=%d\n", static_cast<int>(record->Use));
    }
    if ((v = fieldValue(result, path, "MemoryErrorCorrection")) != nullptr) {
        record->MemoryErrorCorrection =
            static_cast<uint8_t>(codeOr(kMemoryErrorCorrectionNames, v, kSmbiosUnknown));
        debugLog("\n MemoryErrorCorrection = %d:", static_cast<int>(record->MemoryErrorCorrection));
    }
    if ((v = fieldValue(result, path, "MaxCapacity")) != nullptr) {
        record->MaxCapacity = static_cast<uint32_t>(atoi(v));
        debugLog("Value of maxMemoryCapacity=%d\n", static_cast<int>(record->MaxCapacity));
    }
    if ((v = fieldValue(result, path, "MemoryErrorInfoHandle")) != nullptr) {
        record->MemoryErrorInfoHandle = static_cast<uint32_t>(atoi(v));
        debugLog("Inside MemoryErrorInfoHandle=%d\n", static_cast<int>(record->MemoryErrorInfoHandle));
    }
    if ((v = fieldValue(result, path, "NumMemoryDevices")) != nullptr) {
        record->NumMemoryDevices = static_cast<uint32_t>(atoi(v));
        debugLog("\n Inside MemoryArray Number of Devices = %d", static_cast<int>(record->NumMemoryDevices));
    }
    if ((v = fieldValue(result, path, "TotalNoOfDevicePresent")) != nullptr) {
        record->TotalNoOfDevicePresent = static_cast<uint32_t>(atoi(v));
        debugLog("TotalNoOfDevicePresent=%d\n", static_cast<int>(record->TotalNoOfDevicePresent));
    }
}

// ---------------------------------------------------------------------------------------
// Memory array details: which devices of which array are present.

MemoryArrayDetails GetMemoryArrayDetails() {
    MemoryArrayDetails details;
    debugLog("\nExecuting Get Memory Array Details \n");
    try {
        SDK::System& system = queryService();
        QueryResult result;
        system.SetFlags(1);
        system.Get("/SMBIOS/MemoryArray", result);
        debugLog("Size of resultMap is = %d\n ", static_cast<int>(result.size()));
        const char* total = fieldValue(result, "/SMBIOS/MemoryArray", "TotalNoOfArray");
        const int arrays = total != nullptr ? atoi(total) : 0;
        debugLog("Total Memory array = %d\n ", arrays);
        char key[kPathSize];
        for (int a = 0; a < arrays; ++a) {
            char arrayName[kPathSize];
            snprintf(arrayName, sizeof arrayName, "%s%d%s", "/SMBIOS/MemoryArray[", a, "]");
            debugLog("Array Name[%d] = %s\n ", a, arrayName);
            snprintf(key, sizeof key, "/SMBIOS/MemoryArray[%d]/TotalNoOfDevicePresent", a);
            debugLog("Search string =%s\n ", key);
            const char* present = fieldValue(result, arrayName, "TotalNoOfDevicePresent");
            debugLog("Total Device Present =%s\n ", present != nullptr ? present : "");
            // Every slot of the array is looked at: present devices may follow empty slots.
            const char* slots = fieldValue(result, arrayName, "NumMemoryDevices");
            const int devices = slots != nullptr ? atoi(slots) : 0;
            std::vector<int> presentDevices;
            for (int d = 0; d < devices; ++d) {
                snprintf(key, sizeof key, "/SMBIOS/MemoryArray[%d]/MemoryDevice[%d]/DevicePresent", a, d);
                debugLog("Memory Device find string = %s\n", key);
                QueryResult::const_iterator it = result.find(key);
                const char* value =
                    it != result.end() && !it->second.Values.empty() ? it->second.Values[0].c_str() : "";
                debugLog("\nDevice Present = %s\n ", value);
                if (strcmp(value, "True") == 0) {
                    presentDevices.push_back(d);
                    debugLog("\t Device present %d\n ", d);
                }
            }
            details.emplace_back(a, std::move(presentDevices));
            debugLog("-->  This memory array contains memory = %d\n", a);
        }
    } catch (...) {
        debugLog("\n error in getingf the memory details\n");
    }
    return details;
}

int32_t getMemoryDeviceInfo(uint32_t arrayIndex, uint32_t deviceIndex, SmbiosMemoryDeviceRecord* record) {
    char path[kPathSize];
    snprintf(path, sizeof path, "%s%d%s%d%s", "/SMBIOS/MemoryArray[", static_cast<int>(arrayIndex),
             "]/MemoryDevice[", static_cast<int>(deviceIndex), "]");
    ExeMemoryDeviceQuery(path, record);
    return 0;
}

// ---------------------------------------------------------------------------------------
// Exported functions.

extern "C" {

int32_t getNumberOfPhysicalMemoryArray(uint32_t* count) {
    ExeIntegerQuery("/SMBIOS/MemoryArray/TotalNoOfArray", count);
    return 0;
}

int32_t getPhyMemDevArrayInfo(int32_t arrayIndex, SmbiosMemoryArrayRecord* record) {
    char path[kPathSize];
    snprintf(path, sizeof path, "%s%d%s", "/SMBIOS/MemoryArray[", static_cast<int>(arrayIndex), "]");
    ExeMemoryArrayQuery(path, record);
    return 0;
}

int32_t getNumberOfMemoryDevice(uint32_t arrayIndex, uint32_t* count) {
    char path[kPathSize];
    debugLog("\n The value of PhyArrIndex is %d", static_cast<int>(arrayIndex));
    snprintf(path, sizeof path, "%s%d%s", "/SMBIOS/MemoryArray[", static_cast<int>(arrayIndex),
             "]/NumMemoryDevices");
    ExeIntegerQuery(path, count);
    debugLog("\n getNumberOfMemoryDevice completed for %d and number of devices are %d \n",
             static_cast<int>(arrayIndex), count != nullptr ? static_cast<int>(*count) : 0);
    return 0;
}

int32_t getNumberOfMemoryDevicePresent(uint32_t arrayIndex, uint32_t* count) {
    char path[kPathSize];
    debugLog("\n The value of Index is %d", static_cast<int>(arrayIndex));
    snprintf(path, sizeof path, "%s%d%s", "/SMBIOS/MemoryArray[", static_cast<int>(arrayIndex),
             "]/TotalNoOfDevicePresent");
    ExeIntegerQuery(path, count);
    return 0;
}

int32_t getNumberOfProcessor(uint32_t* count) {
    ExeIntegerQuery("/SMBIOS/ProcessorInfo/TotalNoOfProcessor", count);
    return 0;
}

int32_t getNumberOfProcessorPresent(uint32_t* count) {
    ExeIntegerQuery("/SMBIOS/ProcessorInfo/TotalNoOfProcessorPresent", count);
    return 0;
}

int32_t getProcessorPresentInfo(int32_t processorIndex, SmbiosProcessorRecord* record) {
    char path[kPathSize];
    snprintf(path, sizeof path, "%s%d%s", "/SMBIOS/ProcessorInfo[", static_cast<int>(processorIndex), "]");
    ExeProcessorInfoQuery(path, record);
    return 0;
}

} // extern "C"

// ---------------------------------------------------------------------------------------
// Start-up load.

uint32_t loadSmbiosInventory() {
    // A count the service never answered keeps this marker.
    constexpr uint32_t kNotAnswered = 0xFFFFFFFFu;
    uint32_t processors = kNotAnswered;
    uint32_t arrays = kNotAnswered;
    getNumberOfProcessor(&processors);
    getNumberOfPhysicalMemoryArray(&arrays);
    if (processors == kNotAnswered && arrays == kNotAnswered) {
        debugLog("\nSMBIOS inventory unavailable: neither the processor nor the memory array count was "
                 "answered\n");
        return SMBIOS_ERROR_UNAVAILABLE;
    }
    debugLog("\nSMBIOS inventory: %d processor sockets, %d memory arrays\n",
             processors == kNotAnswered ? 0 : static_cast<int>(processors),
             arrays == kNotAnswered ? 0 : static_cast<int>(arrays));
    return CLIENT_SUCCESS;
}
