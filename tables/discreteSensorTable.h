// The tables of discrete BMC sensors (power units, power supplies, discrete voltage,
// cooling units, discrete cooling, drive slots): one row per sensor found in the SDR,
// its status and status text read live from the sensor's asserted state keywords.
#ifndef HM_TABLES_DISCRETESENSORTABLE_H
#define HM_TABLES_DISCRETESENSORTABLE_H

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/debugLog.h"
#include "platform/queryService.h"
#include "platform/sdrDiscovery.h"
#include "platform/stateStrings.h"
#include "tables/BaseContainer.h"

namespace discrete {

constexpr int kEventReadingThreshold = 0x01;
constexpr int kEventReadingRedundancy = 0x0B;
constexpr int kEventReadingSensorSpecific = 0x6F;
constexpr int kNoAttribute = -1;
constexpr int kStateOffsets = 15;

// Which discrete sensors of the table's sensor types become rows.
enum class Kind {
    AnyDiscrete,   // every sensor that is not a threshold sensor
    Redundancy,    // only redundancy sensors (event/reading type 0x0B)
    NotRedundancy, // discrete sensors other than redundancy sensors
};

// What makes one table: its sensors, codes and attribute codes.
struct TableProfile {
    const char* name;   // for the trace
    int sensorTypes[2]; // IPMI sensor types; 0 marks an unused slot
    Kind kind;
    uint32_t noRowCode;
    int32_t idleStatus;             // status when the sensor asserts no state
    const char* defaultDescription; // for a sensor without a name
    int idAttr;                     // getIntInfo: sensor number
    int descriptionAttr;            // getStrInfo: sensor name
    int statusTextAttr;             // getStrData: asserted states as display texts
    int statusAttr;                 // getIntData: status value
    int stateMaskAttr;              // getIntData: asserted state offsets as bits, or kNoAttribute
    int entityAttr;                 // getStrInfo: "entity ID.instance", or kNoAttribute
};

// The state keywords of one kind of discrete sensor, by state offset.
struct StateSet {
    int eventReadingType; // 0x6F: sensor-specific, selected by sensorType
    int sensorType;
    const char* offsets[kStateOffsets];
};

// IPMI generic and the sensor-specific states of the sensor types these tables keep.
inline const StateSet kStateSets[] = {
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
     0x08, // power supply
     {"PRESENCE_DETECTED", "POWER_SUPPLY_FAILURE_DETECTED", "PREDICTIVE_FAILURE", "POWER_SUPPLY_INPUT_LOST",
      "POWER_SUPPLY_INPUT_LOST_OUT_OF_RANGE", "POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT",
      "CONFIGURATION_ERROR"}},
    {0x6F,
     0x09, // power unit
     {"POWER_OFF_POWER_DOWN", "POWER_CYCLE", "240VA_POWER_DOWN", "INTERLOCK_POWER_DOWN", "AC_LOST",
      "SOFT_POWER_CONTROL_FAILURE", "POWER_UNIT_FAILURE_DETECTED", "PREDICTIVE_FAILURE"}},
    {0x6F,
     0x0D, // drive slot
     {"DRIVE_PRESENCE", "DRIVE_FAULT", "PREDICTIVE_FAILURE", "HOT_SPARE",
      "CONSISTENCY_CHECK/PARITY_CHECK_IN_PROGRESS", "IN_CRITICAL_ARRAY", "IN_FAILED_ARRAY",
      "REBUILD/REMAP_IN_PROGRESS", "REBUILD/REMAP_ABORTED_(WAS_NOT_COMPLETED_NORMALLY)"}},
};

// The status each state keyword stands for. A sensor's status is the largest over its
// asserted states; a keyword not listed stands for "unknown".
struct KeywordStatus {
    const char* keyword;
    int32_t status;
};

inline const KeywordStatus kKeywordStatus[] = {
    // redundancy
    {"FULLY_REDUNDANT", HM_STATUS_OK},
    {"REDUNDANCY_LOST", HM_STATUS_CRITICAL},
    {"REDUNDANT_DEGRADED", HM_STATUS_NONCRITICAL},
    {"NON_REDUNDANT_SUFFICIENT_RESOURCES", HM_STATUS_NONCRITICAL},
    {"NON_REDUNDANT_INSUFFICIENT_TO_SUFFICIENT_RESOURCES", HM_STATUS_NONCRITICAL},
    {"NON_REDUNDANT_INSUFFICENT_RESOURCES", HM_STATUS_CRITICAL},
    {"REDUNDANCY_DEGRADED_FROM_FULLY_REDUNDANT_UNIT", HM_STATUS_NONCRITICAL},
    {"REDUNDANCY_DEGRADED_FROM_NON_REDUNDANT_UNIT", HM_STATUS_NONCRITICAL},
    // generic states
    {"IDLE", HM_STATUS_OK},
    {"ACTIVE", HM_STATUS_OK},
    {"BUSY", HM_STATUS_OK},
    {"STATE_DEASSERTED", HM_STATUS_OK},
    {"STATE_ASSERTED", HM_STATUS_CRITICAL},
    {"PREDICTIVE_FAILURE_DEASSERTED", HM_STATUS_OK},
    {"PREDICTIVE_FAILURE_ASSERTED", HM_STATUS_NONCRITICAL},
    {"LIMIT_NOT_EXCEEDED", HM_STATUS_OK},
    {"LIMIT_EXCEEDED", HM_STATUS_CRITICAL},
    {"PERFORMANCE_MET", HM_STATUS_OK},
    {"PERFORMANCE_LAGS", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_OK", HM_STATUS_OK},
    {"TRANSITION_TO_NON_CRITICAL_FROM_OK", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_CRITICAL_FROM_LESS_SEVERE", HM_STATUS_CRITICAL},
    {"TRANSITION_TO_NON_RECOVERABLE_FROM_LESS_SEVERE", HM_STATUS_NONRECOVERABLE},
    {"TRANSITION_TO_NON_CRITICAL_FROM_MORE_SEVERE", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_CRITICAL_FROM_NON_RECOVERABLE", HM_STATUS_CRITICAL},
    {"TRANSITION_TO_NON_RECOVERABLE", HM_STATUS_NONRECOVERABLE},
    {"MONITOR", HM_STATUS_OTHER},
    {"INFORMATIONAL", HM_STATUS_OTHER},
    {"DEVICE_REMOVED/DEVICE_ABSENT", HM_STATUS_NONCRITICAL},
    {"DEVICE_INSERTED/DEVICE_PRESENT", HM_STATUS_OK},
    {"DEVICE_DISABLED", HM_STATUS_NONCRITICAL},
    {"DEVICE_ENABLED", HM_STATUS_OK},
    {"TRANSITION_TO_RUNNING", HM_STATUS_OK},
    {"TRANSITION_TO_IN_TEST", HM_STATUS_OTHER},
    {"TRANSITION_TO_POWER_OFF", HM_STATUS_OTHER},
    {"TRANSITION_TO_ON_LINE", HM_STATUS_OK},
    {"TRANSITION_TO_OFF_LINE", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_OFF_DUTY", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_DEGRADED", HM_STATUS_NONCRITICAL},
    {"TRANSITION_TO_POWER_SAVE", HM_STATUS_OK},
    {"INSTALL_ERROR", HM_STATUS_CRITICAL},
    {"D0_POWER_STATE", HM_STATUS_OK},
    {"D1_POWER_STATE", HM_STATUS_OK},
    {"D2_POWER_STATE", HM_STATUS_OK},
    {"D3_POWER_STATE", HM_STATUS_OK},
    // power supplies
    {"PRESENCE_DETECTED", HM_STATUS_OK},
    {"POWER_SUPPLY_FAILURE_DETECTED", HM_STATUS_CRITICAL},
    {"PREDICTIVE_FAILURE", HM_STATUS_NONCRITICAL},
    {"POWER_SUPPLY_INPUT_LOST", HM_STATUS_CRITICAL},
    {"POWER_SUPPLY_INPUT_LOST_OUT_OF_RANGE", HM_STATUS_CRITICAL},
    {"POWER_SUPPLY_INPUT_OUT_OF_RANGE_BUT_PRESENT", HM_STATUS_NONCRITICAL},
    {"CONFIGURATION_ERROR", HM_STATUS_CRITICAL},
    // power units
    {"POWER_OFF_POWER_DOWN", HM_STATUS_OTHER},
    {"POWER_CYCLE", HM_STATUS_OK},
    {"240VA_POWER_DOWN", HM_STATUS_CRITICAL},
    {"INTERLOCK_POWER_DOWN", HM_STATUS_CRITICAL},
    {"AC_LOST", HM_STATUS_CRITICAL},
    {"SOFT_POWER_CONTROL_FAILURE", HM_STATUS_CRITICAL},
    {"POWER_UNIT_FAILURE_DETECTED", HM_STATUS_CRITICAL},
    // processors
    {"IERR", HM_STATUS_CRITICAL},
    {"THERMAL_TRIP", HM_STATUS_CRITICAL},
    {"FRB1/BIST_FAILURE", HM_STATUS_CRITICAL},
    {"FRB2/HANG_IN_POST_FAILURE", HM_STATUS_CRITICAL},
    {"CPU_DIDNT_START", HM_STATUS_CRITICAL},
    {"SMBIOS_UNCORRECTABLE_CPU-COMPLEX_ERROR", HM_STATUS_CRITICAL},
    {"PROCESSOR_PRESENCE_DETECTED", HM_STATUS_OK},
    {"PROCESSOR_DISABLED", HM_STATUS_NONCRITICAL},
    {"THREMAL_PRESENCE_DETECTED", HM_STATUS_OK},
    {"PROCESSOR_AUTOMATICALLY_THROTTLED", HM_STATUS_NONCRITICAL},
    // drive slots
    {"DRIVE_PRESENCE", HM_STATUS_OK},
    {"DRIVE_FAULT", HM_STATUS_CRITICAL},
    {"HOT_SPARE", HM_STATUS_OK},
    {"CONSISTENCY_CHECK/PARITY_CHECK_IN_PROGRESS", HM_STATUS_OK},
    {"IN_CRITICAL_ARRAY", HM_STATUS_NONCRITICAL},
    {"IN_FAILED_ARRAY", HM_STATUS_CRITICAL},
    {"REBUILD/REMAP_IN_PROGRESS", HM_STATUS_NONCRITICAL},
    {"REBUILD/REMAP_ABORTED_(WAS_NOT_COMPLETED_NORMALLY)", HM_STATUS_CRITICAL},
};

// The reading answer naming no state, and the one of an unreadable sensor.
inline const char* const kNoStateKeyword = "ALL_DEASSERTED";
inline const char* const kUnavailableKeyword = "READING_UNAVAILABLE";
// Shown when the sensor could not be asked at all.
inline const char* const kStateUnavailableKeyword = "STATE_UNAVAILABLE";

// The keywords of a reading answer: split at commas, blanks around each removed.
inline std::vector<std::string> splitKeywords(const std::string& text) {
    std::vector<std::string> keywords;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(',', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        size_t first = text.find_first_not_of(' ', start);
        std::string keyword;
        if (first != std::string::npos && first < end) {
            size_t last = text.find_last_not_of(' ', end - 1);
            keyword = text.substr(first, last - first + 1);
        }
        if (!keyword.empty()) {
            keywords.push_back(keyword);
        }
        start = end + 1;
    }
    return keywords;
}

// Status of a reading answer: the largest status of its keywords; `idleStatus` when it
// names no state; "unknown" when the reading is unavailable.
inline int32_t statusOfKeywords(const std::string& text, int32_t idleStatus) {
    std::vector<std::string> keywords = splitKeywords(text);
    int32_t status = 0;
    bool anyState = false;
    for (const std::string& keyword : keywords) {
        if (keyword == kNoStateKeyword) {
            continue;
        }
        if (keyword == kUnavailableKeyword) {
            return HM_STATUS_UNKNOWN;
        }
        anyState = true;
        int32_t own = HM_STATUS_UNKNOWN;
        for (const KeywordStatus& row : kKeywordStatus) {
            if (keyword == row.keyword) {
                own = row.status;
                break;
            }
        }
        if (own > status) {
            status = own;
        }
    }
    return anyState ? status : idleStatus;
}

// The asserted state offsets of a reading answer as bits (offset n is bit n); a keyword
// of another kind of sensor, or one the table does not know, adds nothing.
inline int32_t stateMaskOfKeywords(const std::string& text, int eventReadingType, int sensorType) {
    const StateSet* set = nullptr;
    for (const StateSet& s : kStateSets) {
        if (s.eventReadingType == eventReadingType &&
            (eventReadingType != kEventReadingSensorSpecific || s.sensorType == sensorType)) {
            set = &s;
            break;
        }
    }
    int32_t mask = 0;
    for (const std::string& keyword : splitKeywords(text)) {
        int offset = -1;
        if (keyword.compare(0, 6, "STATE_") == 0 && keyword.size() > 6 &&
            keyword.find_first_not_of("0123456789", 6) == std::string::npos && keyword.size() <= 8) {
            offset = atoi(keyword.c_str() + 6);
        } else if (set != nullptr) {
            for (int i = 0; i < kStateOffsets; ++i) {
                if (set->offsets[i] != nullptr && keyword == set->offsets[i]) {
                    offset = i;
                    break;
                }
            }
        }
        if (offset >= 0 && offset < kStateOffsets) {
            mask |= 1 << offset;
        }
    }
    return mask;
}

// True when a sensor of this event/reading type belongs in a table of this kind.
inline bool kindKeeps(Kind kind, int eventReadingType) {
    if (eventReadingType == kEventReadingThreshold) {
        return false;
    }
    switch (kind) {
    case Kind::AnyDiscrete:
        return true;
    case Kind::Redundancy:
        return eventReadingType == kEventReadingRedundancy;
    case Kind::NotRedundancy:
        return eventReadingType != kEventReadingRedundancy;
    }
    return false;
}

} // namespace discrete

template <class XInfo> class discreteSensorTable : public BaseContainer<XInfo> {
public:
    explicit discreteSensorTable(const discrete::TableProfile& profile) : m_profile(profile) {}

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return m_profile.noRowCode;
        }
        if (attribute == m_profile.idAttr) {
            *value = static_cast<int32_t>(row->id);
            return CLIENT_SUCCESS;
        }
        return CLIENT_ERROR_NOSUCHNAME;
    }

    uint32_t getStrInfo(int attribute, int index, char** value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return m_profile.noRowCode;
        }
        if (attribute == m_profile.descriptionAttr) {
            return this->copyOutText(row->description, value);
        }
        if (m_profile.entityAttr != discrete::kNoAttribute && attribute == m_profile.entityAttr) {
            char entity[32];
            snprintf(entity, sizeof entity, "%d.%d", row->entityId, row->entityInstance);
            return this->copyOutText(entity, value);
        }
        return CLIENT_ERROR_NOSUCHNAME;
    }

    uint32_t getIntData(int attribute, int index, int32_t* value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return m_profile.noRowCode;
        }
        if (attribute == m_profile.statusAttr) {
            *value = mapValueToStatus(readStates(*row).c_str());
            return CLIENT_SUCCESS;
        }
        if (m_profile.stateMaskAttr != discrete::kNoAttribute && attribute == m_profile.stateMaskAttr) {
            *value = discrete::stateMaskOfKeywords(readStates(*row), row->eventReadingType, row->sensorType);
            return CLIENT_SUCCESS;
        }
        return CLIENT_ERROR_NOSUCHNAME;
    }

    uint32_t getStrData(int attribute, int index, char** value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return m_profile.noRowCode;
        }
        if (attribute == m_profile.statusTextAttr) {
            std::string text;
            MapMultipleCRStrToSNMPStr(readStates(*row).c_str(), text);
            return this->copyOutText(text.c_str(), value);
        }
        return CLIENT_ERROR_NOSUCHNAME;
    }

    uint32_t setIntData(int, int, int32_t) override { return CLIENT_ERROR_NOTSUPPORTED; }

    // The table's status of a reading answer (comma-separated state keywords).
    virtual int32_t mapValueToStatus(const char* keywords) {
        return discrete::statusOfKeywords(keywords != nullptr ? keywords : "", m_profile.idleStatus);
    }

    uint32_t init() override {
        debugLog("\n %s::init() called\n", m_profile.name);
        std::vector<CSensorWrapper> kept;
        for (int sensorType : m_profile.sensorTypes) {
            if (sensorType == 0) {
                continue;
            }
            CDatabase<CSensorWrapper> found;
            GetSDRData(static_cast<uint32_t>(sensorType), &found, 1);
            for (int i = 0; i < found.GetCount(); ++i) {
                const CSensorWrapper* sensor = found.GetAt(i);
                if (discrete::kindKeeps(m_profile.kind, sensor->m_SensorInfo.nEventReadingType)) {
                    kept.push_back(*sensor);
                }
            }
        }
        this->m_nCount = static_cast<int32_t>(kept.size());
        debugLog("\n %s: %d sensors\n", m_profile.name, this->m_nCount);
        uint32_t status = this->allocTable(this->m_nCount);
        if (status != CLIENT_SUCCESS) {
            return status;
        }
        for (int i = 0; i < this->m_nCount; ++i) {
            const CSensorInfo& info = kept[static_cast<size_t>(i)].m_SensorInfo;
            XInfo& row = this->m_pRows[i];
            row.id = static_cast<uint32_t>(info.nSensorNumber);
            row.ownerId = info.nOwnerID;
            row.lun = info.nLUN;
            row.sensorType = info.nSensorType;
            row.eventReadingType = info.nEventReadingType;
            row.entityId = info.nEntityID;
            row.entityInstance = info.nEntityInstance;
            narrowName(info.stName, row.description);
            if (row.description[0] == '\0') {
                snprintf(row.description, sizeof row.description, "%s", m_profile.defaultDescription);
            }
            row.status = mapValueToStatus(readStates(row).c_str());
            debugLog("\n %s: sensor %d \"%s\" status %d\n", m_profile.name, static_cast<int>(row.id),
                     row.description, static_cast<int>(row.status));
        }
        return CLIENT_SUCCESS;
    }

protected:
    // The sensor's current reading answer: its asserted state keywords. A failed query
    // answers "STATE_UNAVAILABLE" (status "unknown"), a missing answer "READING_UNAVAILABLE".
    std::string readStates(const XInfo& row) {
        char path[256];
        composeSensorPath(path, sizeof path, static_cast<int>(row.id), row.ownerId, row.lun,
                          "]/INTERPRET_SENSOR_VALUE");
        try {
            QueryResult result;
            queryService().Get(path, result);
            QueryResult::const_iterator it = result.find(path);
            if (it == result.end() || it->second.NodeType != 0 || it->second.Values.empty()) {
                return discrete::kUnavailableKeyword;
            }
            return it->second.Values[0];
        } catch (const ResultStatus& failure) {
            debugLog("\n %s: state query failed\n", m_profile.name);
            logQueryFailure(failure, path, QUERY_FAILURE_VALUE);
        } catch (...) {
            debugLog("\n %s: state query failed\n", m_profile.name);
        }
        return discrete::kStateUnavailableKeyword;
    }

    // The sensor's wide name, low byte of each character, cut to the field.
    static void narrowName(const CString& name, char (&out)[128]) {
        out[0] = '\0';
        name.Narrow(out, sizeof out, sizeof out - 1);
    }

    const discrete::TableProfile m_profile;
};

#endif
