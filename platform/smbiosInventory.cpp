#include "platform/smbiosInventory.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/debugLog.h"
#include "platform/hmVocabulary.h"
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

// How a record field is filled from its sub-key's first value.
enum class FieldKind {
    Text,       // bounded copy; traced with %s
    Number,     // atoi; traced with %d
    CodeOrKeep, // name table; an unmatched name keeps the previous value
    CodeOr2,    // name table; an unmatched name gives 2 (Unknown)
    Millivolts, // text without its unit letter, atof * 1000, truncated; traced with %f
    Location,   // always the system board, whatever the name
    TypeDetail, // "TypeDetail/" + each name of the table; "Supported" stores its bit
};

// One field of a record: where it lies (offset and width in bytes, or text size), its
// sub-key, how it is converted and the trace printed after it is set.
struct FieldRule {
    const char* subKey;
    FieldKind kind;
    size_t offset;
    size_t size;
    const SmbiosNameCode* names;
    const char* trace;
};

#define HM_FIELD(Record, member, subKey, kind, names, trace)                                                 \
    { subKey, FieldKind::kind, offsetof(Record, member), sizeof(Record::member), names, trace }

// Unsigned integer fields of 1, 2 or 4 bytes.
uint32_t loadUnsigned(const unsigned char* field, size_t size) {
    if (size == sizeof(uint8_t)) {
        return *field;
    }
    if (size == sizeof(uint16_t)) {
        uint16_t value;
        memcpy(&value, field, sizeof value);
        return value;
    }
    uint32_t value;
    memcpy(&value, field, sizeof value);
    return value;
}

void storeUnsigned(unsigned char* field, size_t size, uint32_t value) {
    if (size == sizeof(uint8_t)) {
        *field = static_cast<uint8_t>(value);
    } else if (size == sizeof(uint16_t)) {
        const uint16_t narrow = static_cast<uint16_t>(value);
        memcpy(field, &narrow, sizeof narrow);
    } else {
        memcpy(field, &value, sizeof value);
    }
}

// Fills one field of the record at `base` from `result`; a missing entry leaves it as it was.
void applyField(const FieldRule& rule, const QueryResult& result, const char* path, unsigned char* base) {
    unsigned char* field = base + rule.offset;
    char* text = reinterpret_cast<char*>(field);
    if (rule.kind == FieldKind::TypeDetail) {
        // Each supported name stores its bit: the field ends with the last supported one.
        for (const SmbiosNameCode* row = rule.names; row->name != nullptr; ++row) {
            std::string subKey(rule.subKey);
            subKey += row->name;
            const char* v = fieldValue(result, path, subKey.c_str());
            if (v != nullptr && strcmp(v, "Supported") == 0) {
                storeUnsigned(field, rule.size, row->code);
                debugLog(rule.trace, static_cast<int>(loadUnsigned(field, rule.size)));
            }
        }
        return;
    }
    const char* v = fieldValue(result, path, rule.subKey);
    if (v == nullptr) {
        return;
    }
    switch (rule.kind) {
    case FieldKind::Text: // cut to fit, always terminated
        snprintf(text, rule.size, "%s", v);
        debugLog(rule.trace, text);
        return;
    case FieldKind::Millivolts: {
        std::string number(v);
        if (!number.empty()) {
            number.erase(number.size() - 1);
        }
        const double millivolts = atof(number.c_str()) * 1000.0;
        storeUnsigned(field, rule.size, static_cast<uint32_t>(millivolts));
        debugLog(rule.trace, millivolts);
        return;
    }
    case FieldKind::Number:
        storeUnsigned(field, rule.size, static_cast<uint32_t>(atoi(v)));
        break;
    case FieldKind::CodeOrKeep:
        storeUnsigned(field, rule.size, codeOr(rule.names, v, loadUnsigned(field, rule.size)));
        break;
    case FieldKind::CodeOr2:
        storeUnsigned(field, rule.size, codeOr(rule.names, v, kSmbiosUnknown));
        break;
    case FieldKind::Location: {
        // Every location is published as the system board.
        uint32_t location = kLocationSystemBoard;
        if (strcmp(v, "System board or motherboard") == 0) {
            location = kLocationSystemBoard;
        }
        storeUnsigned(field, rule.size, location);
        break;
    }
    case FieldKind::TypeDetail:
        return; // filled above
    }
    debugLog(rule.trace, static_cast<int>(loadUnsigned(field, rule.size)));
}

// The record queries' fields, in the order they are filled and traced.
const FieldRule kProcessorFields[] = {
    HM_FIELD(SmbiosProcessorRecord, SocketDesignation, "SocketDesignation", Text, nullptr,
             "SocketDesignation=%s\n"),
    HM_FIELD(SmbiosProcessorRecord, ProcessorType, "ProcessorType", CodeOrKeep, kProcessorTypeNames,
             "ProcessorType is %d:"),
    HM_FIELD(SmbiosProcessorRecord, ProcessorFamily, "ProcessorFamily", CodeOrKeep, kProcessorFamilyNames,
             "ProcessorFamily is %d:"),
    HM_FIELD(SmbiosProcessorRecord, ProcessorManufacturer, "ProcessorManufacturer", Text, nullptr,
             "ProcessorManufacturerName=%s\n"),
    HM_FIELD(SmbiosProcessorRecord, ProcessorId, "ProcessorId", Text, nullptr, "ProcessorId is %s:"),
    HM_FIELD(SmbiosProcessorRecord, Version, "ProcessorVersion", Text, nullptr, "\n Version=%s\n"),
    HM_FIELD(SmbiosProcessorRecord, Voltage, "VoltageCapability", Millivolts, nullptr, "\n Voltage =%f\n"),
    HM_FIELD(SmbiosProcessorRecord, ExternalClock, "ClockFrequency", Number, nullptr, "\n Clock =%d:"),
    HM_FIELD(SmbiosProcessorRecord, MaxSpeed, "MaxSpeed", Number, nullptr, "\n MaxSpeed = %d"),
    HM_FIELD(SmbiosProcessorRecord, CurrentSpeed, "CurrentSpeed", Number, nullptr, "\n Current Speed = %d:"),
    HM_FIELD(SmbiosProcessorRecord, Upgrade, "Upgrade", CodeOr2, kProcessorUpgradeNames,
             "\n Processor Upgrade Method = :%d"),
    HM_FIELD(SmbiosProcessorRecord, PartNumber, "PartNumber", Text, nullptr, "PartNumber=%s\n"),
};

const FieldRule kMemoryDeviceFields[] = {
    HM_FIELD(SmbiosMemoryDeviceRecord, DeviceLocator, "DeviceLocator", Text, nullptr, "Device locator=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, BankLocator, "BankLocator", Text, nullptr, "BankLocator=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, FormFactor, "FormFactor", CodeOr2, kMemoryFormFactorNames,
             "FormFactor=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, MemoryType, "MemoryType", CodeOr2, kMemoryTypeNames,
             "MemoryType=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, TypeDetail, "TypeDetail/", TypeDetail, kMemoryTypeDetailNames,
             "TypeDetail=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, Speed, "Speed", Number, nullptr, "Speed=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, Size, "Size", Number, nullptr, "Size=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, Manufacturer, "Manufacturer", Text, nullptr, "Manufacturer=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, SerialNumber, "SerialNumber", Text, nullptr, "SerialNumber=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, AssetTag, "AssetTag", Text, nullptr, "AssetTag=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, PartNumber, "PartNumber", Text, nullptr, "PartNumber=%s\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, TotalWidth, "TotalWidth", Number, nullptr, "TotalWidth=%d\n"),
    HM_FIELD(SmbiosMemoryDeviceRecord, DataWidth, "DataWidth", Number, nullptr, "DataWidth=%d\n"),
};

const FieldRule kMemoryArrayFields[] = {
    HM_FIELD(SmbiosMemoryArrayRecord, Location, "Location", Location, nullptr, "Locationcode=%d\n"),
    HM_FIELD(SmbiosMemoryArrayRecord, Use, "Use", CodeOrKeep, kMemoryArrayUseNames, "MemoryArrayUse=%d\n"),
    HM_FIELD(SmbiosMemoryArrayRecord, MemoryErrorCorrection, "MemoryErrorCorrection", CodeOr2,
             kMemoryErrorCorrectionNames, "\n MemoryErrorCorrection = %d:"),
    HM_FIELD(SmbiosMemoryArrayRecord, MaxCapacity, "MaxCapacity", Number, nullptr,
             "Value of maxMemoryCapacity=%d\n"),
    HM_FIELD(SmbiosMemoryArrayRecord, MemoryErrorInfoHandle, "MemoryErrorInfoHandle", Number, nullptr,
             "Inside MemoryErrorInfoHandle=%d\n"),
    HM_FIELD(SmbiosMemoryArrayRecord, NumMemoryDevices, "NumMemoryDevices", Number, nullptr,
             "\n Inside MemoryArray Number of Devices = %d"),
    HM_FIELD(SmbiosMemoryArrayRecord, TotalNoOfDevicePresent, "TotalNoOfDevicePresent", Number, nullptr,
             "TotalNoOfDevicePresent=%d\n"),
};

#undef HM_FIELD

// One record query: the Get of `path`, then every field of `rules` in order.
template <typename Record, size_t N>
void runRecordQuery(const char* path, Record* record, const FieldRule (&rules)[N], const char* startTrace) {
    if (path == nullptr || record == nullptr) {
        return;
    }
    QueryResult result;
    if (!getRecord(path, result)) {
        return;
    }
    if (startTrace != nullptr) {
        debugLog(startTrace, path);
    }
    unsigned char* base = reinterpret_cast<unsigned char*>(record);
    for (const FieldRule& rule : rules) {
        applyField(rule, result, path, base);
    }
}

} // namespace

// ---------------------------------------------------------------------------------------
// Record queries.

void ExeProcessorInfoQuery(const char* path, SmbiosProcessorRecord* record) {
    runRecordQuery(path, record, kProcessorFields, "ExeProcessorInfoQuery = %s\n");
}

void ExeMemoryDeviceQuery(const char* path, SmbiosMemoryDeviceRecord* record) {
    runRecordQuery(path, record, kMemoryDeviceFields, nullptr);
}

void ExeMemoryArrayQuery(const char* path, SmbiosMemoryArrayRecord* record) {
    runRecordQuery(path, record, kMemoryArrayFields, nullptr);
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
