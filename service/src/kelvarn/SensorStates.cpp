#include "kelvarn/SensorStates.h"

#include "kelvarn/Sdr.h"

namespace kelvarn {
namespace {

struct StateSet {
    uint8_t eventReadingType; // 0x6F: sensor-specific, selected by sensorType
    uint8_t sensorType;       // 0 for the generic types
    const char* offsets[15];
};

const StateSet kStateSets[] = {
    {0x02, 0, {"IDLE", "ACTIVE", "BUSY"}},
    {0x03, 0, {"STATE_DEASSERTED", "STATE_ASSERTED"}},
    {0x04, 0, {"PREDICTIVE_FAILURE_DEASSERTED", "PREDICTIVE_FAILURE_ASSERTED"}},
    {0x05, 0, {"LIMIT_NOT_EXCEEDED", "LIMIT_EXCEEDED"}},
    {0x06, 0, {"PERFORMANCE_MET", "PERFORMANCE_LAGS"}},
    {0x07,
     0,
     {"TRANSITION_TO_OK", "TRANSITION_TO_NON_CRITICAL_FROM_OK", "TRANSITION_TO_CRITICAL_FROM_LESS_SEVERE",
      "TRANSITION_TO_NON_RECOVERABLE_FROM_LESS_SEVERE", "TRANSITION_TO_NON_CRITICAL_FROM_MORE_SEVERE",
      "TRANSITION_TO_CRITICAL_FROM_NON_RECOVERABLE", "TRANSITION_TO_NON_RECOVERABLE", "MONITOR",
      "INFORMATIONAL"}},
    {0x08, 0, {"DEVICE_REMOVED/DEVICE_ABSENT", "DEVICE_INSERTED/DEVICE_PRESENT"}},
    {0x09, 0, {"DEVICE_DISABLED", "DEVICE_ENABLED"}},
    {0x0A,
     0,
     {"TRANSITION_TO_RUNNING", "TRANSITION_TO_IN_TEST", "TRANSITION_TO_POWER_OFF", "TRANSITION_TO_ON_LINE",
      "TRANSITION_TO_OFF_LINE", "TRANSITION_TO_OFF_DUTY", "TRANSITION_TO_DEGRADED",
      "TRANSITION_TO_POWER_SAVE", "INSTALL_ERROR"}},
    {0x0B,
     0,
     {"FULLY_REDUNDANT", "REDUNDANCY_LOST", "REDUNDANT_DEGRADED", "NON_REDUNDANT_SUFFICIENT_RESOURCES",
      "NON_REDUNDANT_INSUFFICIENT_TO_SUFFICIENT_RESOURCES", "NON_REDUNDANT_INSUFFICENT_RESOURCES",
      "REDUNDANCY_DEGRADED_FROM_FULLY_REDUNDANT_UNIT", "REDUNDANCY_DEGRADED_FROM_NON_REDUNDANT_UNIT"}},
    {0x0C, 0, {"D0_POWER_STATE", "D1_POWER_STATE", "D2_POWER_STATE", "D3_POWER_STATE"}},
    {0x6F,
     0x05, // physical security
     {"GENERAL_CHASSIS_INTRUSION", "DRIVE_BAY_INTRUSION", "I/O_CARD_AREA_INTRUSION",
      "PROCESSOR_AREA_INTRUSION", "LAN_LEASH_LOST", "UNAUTHORIZED_DOCK", "FAN_AREA_INTRUSION"}},
    {0x6F,
     0x07, // processor
     {"IERR", "THERMAL_TRIP", "FRB1/BIST_FAILURE", "FRB2/HANG_IN_POST_FAILURE", "CPU_DIDNT_START",
      "CONFIGURATION_ERROR", "SMBIOS_UNCORRECTABLE_CPU-COMPLEX_ERROR", "PROCESSOR_PRESENCE_DETECTED",
      "PROCESSOR_DISABLED", "THREMAL_PRESENCE_DETECTED", "PROCESSOR_AUTOMATICALLY_THROTTLED"}},
    {0x6F,
     0x08, // power supply
     {"PRESENCE_DETECTED", "POWER_SUPPLY_FAILURE_DETECTED", "PREDICTIVE_FAILURE", "POWER_SUPPLY_INPUT_LOST",
      "POWER_SUPPLY_INPUT_LOST_OUT_OF_RANGE", "POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT",
      "CONFIGURATION_ERROR"}},
    {0x6F,
     0x09, // power unit
     {"POWER_OFF_POWER_DOWN", "POWER_CYCLE", "240VA_POWER_DOWN", "INTERLOCK_POWER_DOWN", "AC_LOST",
      "SOFT_POWER_CONTROL_FAILURE", "POWER_UNIT_FAILURE_DETECTED", "PREDICTIVE_FAILURE"}},
    {0x6F,
     0x0C, // memory
     {"CORRECTABLE_ECC", "UNCORRECTABLE_ECC", "PARITY", "MEMORY_SCRUB_FAILED", "MEMORY_DEVICE_DISABLED",
      "CORRECTABLE_ECC_LOGGING_LIMIT_REACHED", "PRESENCE_DETECTED", "CONFIGURATION_ERROR", "SPARE"}},
    {0x6F,
     0x0D, // drive slot
     {"DRIVE_PRESENCE", "DRIVE_FAULT", "PREDICTIVE_FAILURE", "HOT_SPARE",
      "CONSISTENCY_CHECK/PARITY_CHECK_IN_PROGRESS", "IN_CRITICAL_ARRAY", "IN_FAILED_ARRAY",
      "REBUILD/REMAP_IN_PROGRESS", "REBUILD/REMAP_ABORTED_(WAS_NOT_COMPLETED_NORMALLY)"}},
    {0x6F,
     0x14, // button / switch
     {"POWER_BUTTON_PRESSED", "SLEEP_BUTTON_PRESSED", "RESET_BUTTON_PRESSED", "FRU_LATCH_OPEN",
      "FRU_SERVICE_REQUEST_BUTTON_PRESSED"}},
    {0x6F, 0x25, {"ENTITY_PRESENT", "ENTITY_ABSENT", "ENTITY_DISABLED"}}, // entity presence
    {0x6F, 0x27, {"LAN_HEARTBEAT_LOST", "LAN_HEARTBEAT"}},                // LAN
};

const StateSet* findSet(uint8_t eventReadingType, uint8_t sensorType) {
    for (const StateSet& s : kStateSets) {
        if (s.eventReadingType != eventReadingType)
            continue;
        if (eventReadingType != kEventReadingSensorSpecific || s.sensorType == sensorType)
            return &s;
    }
    return nullptr;
}

const char* const kThresholdEvents[12] = {
    "Lower Non-critical going low", "Lower Non-critical going high",   "Lower Critical going low",
    "Lower Critical going high",    "Lower Non-recoverable going low", "Lower Non-recoverable going high",
    "Upper Non-critical going low", "Upper Non-critical going high",   "Upper Critical going low",
    "Upper Critical going high",    "Upper Non-recoverable going low", "Upper Non-recoverable going high",
};

} // namespace

const char* stateKeyword(uint8_t eventReadingType, uint8_t sensorType, unsigned offset) {
    const StateSet* set = findSet(eventReadingType, sensorType);
    if (!set || offset >= 15)
        return nullptr;
    return set->offsets[offset];
}

int stateOffset(uint8_t eventReadingType, uint8_t sensorType, const std::string& keyword) {
    const StateSet* set = findSet(eventReadingType, sensorType);
    if (!set)
        return -1;
    for (int i = 0; i < 15; ++i)
        if (set->offsets[i] && keyword == set->offsets[i])
            return i;
    return -1;
}

std::string stateText(uint8_t eventReadingType, uint8_t sensorType, uint16_t states) {
    std::string out;
    for (unsigned bit = 0; bit < 15; ++bit) {
        if (!(states & (1u << bit)))
            continue;
        if (!out.empty())
            out += ",";
        const char* k = stateKeyword(eventReadingType, sensorType, bit);
        out += k ? k : "STATE_" + std::to_string(bit);
    }
    return out.empty() ? "ALL_DEASSERTED" : out;
}

const char* thresholdEventText(unsigned offset) {
    return offset < 12 ? kThresholdEvents[offset] : nullptr;
}

} // namespace kelvarn
