// The keyword table and the mapping of reading texts to display texts.
#include "platform/stateStrings.h"

#include <cstring>

#include "core/debugLog.h"

namespace {

// Searched from the top; only the first row of a repeated keyword can match, so
// the later rows of PREDICTIVE_FAILURE, PRESENCE_DETECTED, DRIVE_PRESENCE and
// DRIVE_FAULT are never reached. The texts are the ones the management stations
// know, odd spellings included.
const StateStringRow kStateStrings[] = {
    {"FULLY_REDUNDANT", "Full Redundancy"},                                                          // 1
    {"GENERAL_CHASSIS_INTRUSION", "GENERAL_CHASSIS_INTRUSION"},                                      // 2
    {"DRIVE_BAY_INTRUSION", "DRIVE_BAY_INTRUSION"},                                                  // 3
    {"I/O_CARD_AREA_INTRUSION", "I//O_CARD_AREA_INTRUSION"},                                         // 4
    {"PROCESSOR_AREA_INTRUSION", "PROCESSOR_AREA_INTRUSION"},                                        // 5
    {"LAN_LEASH_LOST", "LAN_LEASH_LOST"},                                                            // 6
    {"UNAUTHORIZED_DOCK", "UNAUTHORIZED_DOCK"},                                                      // 7
    {"FAN_AREA_INTRUSION", "FAN_AREA_INTRUSION"},                                                    // 8
    {"IERR", "IERR (Internal Error"},                                                                // 9
    {"THERMAL_TRIP", "Thermal Trip"},                                                                // 10
    {"FRB1/BIST_FAILURE", "FRB1: BIST Failure"},                                                     // 11
    {"FRB2/HANG_IN_POST_FAILURE", "FRB2: Hang in POST Failure"},                                     // 12
    {"CPU_DIDNT_START", "FRB3:"},                                                                    // 13
    {"CONFIGURATION_ERROR", "Configuration Error"},                                                  // 14
    {"SMBIOS_UNCORRECTABLE_CPU-COMPLEX_ERROR", "SMBIOS Uncorrectable CPU-Complex Error"},            // 15
    {"PROCESSOR_PRESENCE_DETECTED", "Processor Presence Detected"},                                  // 16
    {"PROCESSOR_DISABLED", "Processor Disabled"},                                                    // 17
    {"THREMAL_PRESENCE_DETECTED", "Terminator Presence Detected"},                                   // 18
    {"PROCESSOR_AUTOMATICALLY_THROTTLED", "PROCESSOR_AUTOMATICALLY_THROTTLED"},                      // 19
    {"PRESENCE_DETECTED", "power supply's presence has been detected"},                              // 20
    {"POWER_SUPPLY_FAILURE_DETECTED", "power supply has suffered a failure"},                        // 21
    {"PREDICTIVE_FAILURE", "predictive failure has been detected for the power supply"},             // 22
    {"POWER_SUPPLY_INPUT_LOST", "Power Supply Input (AC/DC) Lost"},                                  // 23
    {"POWER_SUPPLY_INPUT_LOST_OUT_OF_RANGE", "POWER_SUPPLY_INPUT_LOST_OUT_OF_RANGE"},                // 24
    {"POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT", "POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT"},  // 25
    {"POWER_OFF_POWER_DOWN", "POWER_OFF_POWER_DOWN"},                                                // 26
    {"POWER_CYCLE", "POWER_CYCLE"},                                                                  // 27
    {"240VA_POWER_DOWN", "240VA_POWER_DOWN"},                                                        // 28
    {"INTERLOCK_POWER_DOWN", "INTERLOCK_POWER_DOWN"},                                                // 29
    {"AC_LOST", "AC_LOST"},                                                                          // 30
    {"SOFT_POWER_CONTROL_FAILURE", "SOFT_POWER_CONTROL_FAILURE"},                                    // 31
    {"POWER_UNIT_FAILURE_DETECTED", "POWER_UNIT_FAILURE_DETECTED"},                                  // 32
    {"PREDICTIVE_FAILURE", "predictive failure has been detected for the power supply"},             // 33
    {"CORRECTABLE_ECC", "correctable ECC"},                                                          // 34
    {"UNCORRECTABLE_ECC", "uncorrectable ECC"},                                                      // 35
    {"PARITY", "Parity Error"},                                                                      // 36
    {"MEMORY_SCRUB_FAILED", "memory scrub failed"},                                                  // 37
    {"MEMORY_DEVICE_DISABLED", "has been disabled"},                                                 // 38
    {"CORRECTABLE_ECC_LOGGING_LIMIT_REACHED", "correctable memory error logging has been disabled"}, // 39
    {"PRESENCE_DETECTED", "power supply's presence has been detected"},                              // 40
    {"SPARE", "SPARE"},                                                                              // 41
    {"DRIVE_PRESENCE", "DRIVE_PRESENCE"},                                                            // 42
    {"DRIVE_FAULT", "Drive Fault"},                                                                  // 43
    {"PREDICTIVE_FAILURE", "PREDICTIVE_FAILURE"},                                                    // 44
    {"HOT_SPARE", "HOT_SPARE"},                                                                      // 45
    {"CONSISTENCY_CHECK/PARITY_CHECK_IN_PROGRESS", "CONSISTENCY_CHECK/PARITY_CHECK_IN_PROGRESS"},    // 46
    {"IN_CRITICAL_ARRAY", "IN_CRITICAL_ARRAY"},                                                      // 47
    {"IN_FAILED_ARRAY", "IN_FAILED_ARRAY"},                                                          // 48
    {"REBUILD/REMAP_IN_PROGRESS", "REBUILD/REMAP_IN_PROGRESS"},                                      // 49
    {"REBUILD/REMAP_ABORTED_(WAS_NOT_COMPLETED_NORMALLY)",
     "REBUILD/REMAP_ABORTED_(WAS_NOT_COMPLETED_NORMALLY)"},                             // 50
    {"POWER_BUTTON_PRESSED", "POWER_BUTTON_PRESSED"},                                   // 51
    {"SLEEP_BUTTON_PRESSED", "SLEEP_BUTTON_PRESSED"},                                   // 52
    {"RESET_BUTTON_PRESSED", "RESET_BUTTON_PRESSED"},                                   // 53
    {"FRU_LATCH_OPEN", "FRU_LATCH_OPEN"},                                               // 54
    {"FRU_SERVICE_REQUEST_BUTTON_PRESSED", "FRU_SERVICE_REQUEST_BUTTON_PRESSED"},       // 55
    {"ENTITY_PRESENT", "ENTITY_PRESENT"},                                               // 56
    {"ENTITY_ABSENT", "ENTITY_ABSENT"},                                                 // 57
    {"ENTITY_DISABLED", "ENTITY_DISABLED"},                                             // 58
    {"LAN_HEARTBEAT_LOST", "LAN_HEARTBEAT_LOST"},                                       // 59
    {"LAN_HEARTBEAT", "LAN_HEARTBEAT"},                                                 // 60
    {"REDUNDANCY_LOST", "Redundancy Lost"},                                             // 61
    {"REDUNDANT_DEGRADED", "Redundancy Degraded"},                                      // 62
    {"NON_REDUNDANT_SUFFICIENT_RESOURCES", "Non-Redundancy with Sufficient Resources"}, // 63
    {"NON_REDUNDANT_INSUFFICIENT_TO_SUFFICIENT_RESOURCES",
     "State changed from Insufficient Resources to Non-Redundancy with Sufficient Resources"}, // 64
    {"NON_REDUNDANT_INSUFFICENT_RESOURCES", "Non-Redundancy with Insufficient Resources"},     // 65
    {"REDUNDANCY_DEGRADED_FROM_FULLY_REDUNDANT_UNIT",
     "State changed from Full Redundancy to Redundancy Degraded"}, // 66
    {"REDUNDANCY_DEGRADED_FROM_NON_REDUNDANT_UNIT",
     "State changed from Redundancy Lost to Redundancy Degraded"},                          // 67
    {"IDLE", "IDLE"},                                                                       // 68
    {"ACTIVE", "ACTIVE"},                                                                   // 69
    {"BUSY", "BUSY"},                                                                       // 70
    {"STATE_DEASSERTED", "State Deasserted"},                                               // 71
    {"STATE_ASSERTED", "State Asserted"},                                                   // 72
    {"PREDICTIVE_FAILURE_DEASSERTED", "PREDICTIVE_FAILURE_DEASSERTED"},                     // 73
    {"PREDICTIVE_FAILURE_ASSERTED", "PREDICTIVE_FAILURE_ASSERTED"},                         // 74
    {"LIMIT_NOT_EXCEEDED", "performance has been met"},                                     // 75
    {"LIMIT_EXCEEDED", "performance is lagging"},                                           // 76
    {"PERFORMANCE_MET", "performance has been met"},                                        // 77
    {"PERFORMANCE_LAGS", "performance is lagging"},                                         // 78
    {"TRANSITION_TO_OK", "TRANSITION_TO_OK"},                                               // 79
    {"TRANSITION_TO_NON_CRITICAL_FROM_OK", "TRANSITION_TO_NON_CRITICAL_FROM_OK"},           // 80
    {"TRANSITION_TO_CRITICAL_FROM_LESS_SEVERE", "TRANSITION_TO_CRITICAL_FROM_LESS_SEVERE"}, // 81
    {"TRANSITION_TO_NON_RECOVERABLE_FROM_LESS_SEVERE",
     "TRANSITION_TO_NON_RECOVERABLE_FROM_LESS_SEVERE"},                                             // 82
    {"TRANSITION_TO_NON_CRITICAL_FROM_MORE_SEVERE", "TRANSITION_TO_NON_CRITICAL_FROM_MORE_SEVERE"}, // 83
    {"TRANSITION_TO_CRITICAL_FROM_NON_RECOVERABLE", "TRANSITION_TO_CRITICAL_FROM_NON_RECOVERABLE"}, // 84
    {"TRANSITION_TO_NON_RECOVERABLE", "TRANSITION_TO_NON_RECOVERABLE"},                             // 85
    {"MONITOR", "MONITOR"},                                                                         // 86
    {"INFORMATIONAL", "INFORMATIONAL"},                                                             // 87
    {"DEVICE_REMOVED/DEVICE_ABSENT", "Device Removed/Absent"},                                      // 88
    {"DEVICE_REMOVED_ABSENT", "Device Removed/Absent"},                                             // 89
    {"DEVICE_INSERTED/DEVICE_PRESENT", "Device Inserted/Present"},                                  // 90
    {"DEVICE_INSERTED", "Device Inserted/Present"},                                                 // 91
    {"DEVICE_INSERTED_PRESENT", "Device Inserted/Present"},                                         // 92
    {"DEVICE_PRESENT", "Device Inserted/Present"},                                                  // 93
    {"DRIVE_PRESENCE", "Device Inserted/Present"},                                                  // 94
    {"DEVICE_DISABLED", "DEVICE_DISABLED"},                                                         // 95
    {"DEVICE_ENABLED", "DEVICE_ENABLED"},                                                           // 96
    {"TRANSITION_TO_RUNNING", "TRANSITION_TO_RUNNING"},                                             // 97
    {"TRANSITION_TO_IN_TEST", "TRANSITION_TO_IN_TEST"},                                             // 98
    {"TRANSITION_TO_POWER_OFF", "TRANSITION_TO_POWER_OFF"},                                         // 99
    {"TRANSITION_TO_ON_LINE", "TRANSITION_TO_ON_LINE"},                                             // 100
    {"TRANSITION_TO_OFF_LINE", "TRANSITION_TO_OFF_LINE"},                                           // 101
    {"TRANSITION_TO_OFF_DUTY", "TRANSITION_TO_OFF_DUTY"},                                           // 102
    {"TRANSITION_TO_DEGRADED", "TRANSITION_TO_DEGRADED"},                                           // 103
    {"TRANSITION_TO_POWER_SAVE", "TRANSITION_TO_POWER_SAVE"},                                       // 104
    {"INSTALL_ERROR", "INSTALL_ERROR"},                                                             // 105
    {"D0_POWER_STATE", "D0_POWER_STATE"},                                                           // 106
    {"D1_POWER_STATE", "D1_POWER_STATE"},                                                           // 107
    {"D2_POWER_STATE", "D2_POWER_STATE"},                                                           // 108
    {"D3_POWER_STATE", "D3_POWER_STATE"},                                                           // 109
    {"DRIVE_FAULT", "Drive Fault"},                                                                 // 110
    {"STATE_UNAVAILABLE", "State Unavailable"},                                                     // 111
    {"ALL_DEASSERTED", "All Deasserted"},                                                           // 112
};

constexpr size_t kStateStringCount = sizeof kStateStrings / sizeof kStateStrings[0];
static_assert(kStateStringCount == 112, "the keyword table has 112 rows");

} // namespace

const char* MapCRStrToSNMPStr(const char* keyword) {
    if (keyword == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < kStateStringCount; ++i) {
        if (std::strcmp(kStateStrings[i].keyword, keyword) == 0) {
            return kStateStrings[i].display;
        }
    }
    return keyword;
}

void MapMultipleCRStrToSNMPStr(const char* text, std::string& out) {
    char buffer[kStateTextLimit] = {};
    if (text == nullptr) {
        text = "";
    }
    const size_t length = strnlen(text, kStateTextLimit);
    if (length >= kStateTextLimit) {
        debugLog("\n Reading text of more than %d characters, only the first %d are mapped\n",
                 static_cast<int>(kStateTextLimit - 1), static_cast<int>(kStateTextLimit - 1));
    }
    std::memcpy(buffer, text, length < kStateTextLimit ? length : kStateTextLimit - 1);

    char* save = nullptr;
    char* token = strtok_r(buffer, ",", &save);
    while (token != nullptr) {
        char* next = strtok_r(nullptr, ",", &save);
        while (*token == ' ') {
            ++token;
        }
        out.append(MapCRStrToSNMPStr(token));
        if (next != nullptr) {
            out.append(",");
        }
        token = next;
    }
    if (out.empty()) {
        // No keyword at all (an empty text or commas only): the text itself, as far as it was taken.
        std::memcpy(buffer, text, length < kStateTextLimit ? length : kStateTextLimit - 1);
        out.append(buffer);
    }
    debugLog("\n MapMultipleCRStrToSNMPStr returns  =%s", out.c_str());
}

size_t stateStringRowCount() {
    return kStateStringCount;
}

const StateStringRow& stateStringRow(size_t index) {
    return kStateStrings[index < kStateStringCount ? index : kStateStringCount - 1];
}
