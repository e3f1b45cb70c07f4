// The sensor event decoders. Every decoder follows one pattern: take the record,
// check the event type it serves, name the sensor through the SDR, choose the status
// word and description of the event, fill an event wrapper and hand it to the event
// interface under the decoder's type code, retrying while the interface refuses it.
#include "events/eventDecoders.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "core/debugLog.h"
#include "events/eventDescriptions.h"
#include "events/eventInterface.h"
#include "events/selPoller.h"
#include "platform/queryService.h"

namespace {

constexpr uint8_t kThresholdType = 0x01;
constexpr uint8_t kPresenceType = 0x08;
constexpr uint8_t kSensorSpecificType = 0x6F;
constexpr uint8_t kRedundancyType = 0x0B;
constexpr const char* kSdrPath = "/BMC/SDR";
constexpr const char* kSdrSensorTypeStem = "/BMC/SDR/SENSOR_TYPE[";
constexpr const char* kSdrQueryFailed = "Query Failed to get the SDR's ";
// SDR bytes (1-based) the decoders read.
constexpr int kSdrOwnerByte = 6;
constexpr int kSdrLunByte = 7;
constexpr int kSdrNumberByte = 8;
constexpr int kSdrCapabilitiesByte = 12;
constexpr int kSdrEventTypeByte = 14;
// Sensor capabilities bit 7: the sensor is ignored while its entity is absent.
constexpr uint8_t kPresenceFlag = 0x80;

std::atomic<void (*)(DWORD)> g_retrySleep{nullptr};
ThresholdEventCounts g_counts = {0, 0, 0};

// The trace texts of one decoder.
struct DecoderTexts {
    const char* entry;          // first line
    const char* beforeStatus;   // after the event type was accepted
    const char* interfaceCheck; // before each hand-off attempt
    const char* endOk;          // after the hand-off
};

const DecoderTexts kTemperatureTexts = {
    "\n Inside Temperature_EventOccurred Function",
    "\n-->Temperature Event Occurred, passed event type, before setting status<--\n",
    "\n-->Temperature Event Occurred inside interface check<--\n",
    "\n-->Temperature Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kVoltageTexts = {
    "\n Inside Voltage_EventOccurred Function",
    "\n-->Voltage Event Occurred, passed event type, before setting status<--\n",
    "\n-->Voltage Event Occurred inside interface check<--\n",
    "\n-->Voltage Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kFanTexts = {
    "\n Inside Fan_EventOccurred Function",
    "\n-->Fan Event Occurred, passed event type, before setting status<--\n",
    "\n-->Fan Event Occurred inside interface check<--\n",
    "\n-->Fan Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kCoolingRedundancyTexts = {
    "\n Inside CoolingRedundancy_EventOccurred Function",
    "\n-->CoolingRedundancy Event Occurred, passed event type, before setting status<--\n",
    "\n-->CoolingRedundancy Event Occurred inside interface check<--\n",
    "\n-->CoolingRedundancy Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kIntrusionTexts = {
    "\n Inside Intrusion_EventOccurred Function",
    "\n-->Intrusion Event Occurred, passed event type, before setting status<--\n",
    "\n-->Intrusion Event Occurred inside interface check<--\n",
    "\n-->Intrusion Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kPlatformSecurityTexts = {
    "\n Inside PlatformSecurity_EventOccurred Function",
    "\n-->PlatformSecurity Event Occurred, passed event type, before setting status<--\n",
    "\n-->PlatformSecurity Event Occurred inside interface check<--\n",
    "\n-->PlatformSecurity Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kProcessorTexts = {
    "\n Inside Processor_EventOccurred Function",
    "\n-->Processor Event Occurred, passed event type, before setting status<--\n",
    "\n-->Processor Event Occurred inside interface check<--\n",
    "\n-->Processor Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kPowerSupplyTexts = {
    "\n Inside PowerSupply_EventOccurred Function",
    "\n-->PowerSupply Event Occurred, passed event type, before setting status<--\n",
    "\n-->PowerSupply Event Occurred inside interface check<--\n",
    "\n-->PowerSupply Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kPowerUnitRedundancyTexts = {
    "\n Inside PowerUnitRedundancy_EventOccurred Function",
    "\n-->PowerUnitRedundancy Event Occurred, passed event type, before setting status<--\n",
    "\n-->PowerUnitRedundancy Event Occurred inside interface check<--\n",
    "\n-->PowerUnitRedundancy Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kMemoryTexts = {
    "\n Inside Memory_EventOccurred Function",
    "\n-->Memory Event Occurred, passed event type, before setting status<--\n",
    "\n-->Memory Event Occurred inside interface check<--\n",
    "\n-->Memory Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kDriveSlotTexts = {
    "\n Inside DriveSlot_EventOccurred Function",
    "\n-->DriveSlot Event Occurred, passed event type, before setting status<--\n",
    "\n-->DriveSlot Event Occurred inside interface check<--\n",
    "\n-->DriveSlot Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kSystemEventTexts = {
    "\n Inside SystemEvent_EventOccurred Function",
    "\n-->SystemEvent Event Occurred, passed event type, before setting status<--\n",
    "\n-->SystemEvent Event Occurred inside interface check<--\n",
    "\n-->SystemEvent Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kWatchDogTexts = {
    "\n Inside WatchDog_EventOccurred Function",
    "\n-->WatchDog Event Occurred, passed event type, before setting status<--\n",
    "\n-->WatchDog Event Occurred inside interface check<--\n",
    "\n-->WatchDog Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kPhpSlotTexts = {
    "\n Inside PhpSlot_EventOccurred Function",
    "\n-->PhpSlot Event Occurred, passed event type, before setting status<--\n",
    "\n-->PhpSlot Event Occurred inside interface check<--\n",
    "\n-->PhpSlot Event Occurred End sucessfully!<--\n",
};
const DecoderTexts kGenericTexts = {
    "\n Inside Generic_EventOccurred Function",
    "\n-->Generic Event Occurred, passed event type, before setting status<--\n",
    "\n-->Generic Event Occurred inside interface check<--\n",
    "\n-->Generic Event Occurred End sucessfully!<--\n",
};

// The facts of a record every decoder starts from.
struct SelEvent {
    SelRecord record;
    uint8_t offset;    // event data 1, low nibble
    uint8_t eventType; // event/reading type code
    bool asserted;     // direction bit clear
    uint8_t ownerId;   // generator ID, low byte
    uint8_t lun;       // generator ID, LUN bits of the high byte
};

// Copies the record and releases the caller's.
SelEvent takeRecord(std::unique_ptr<SelRecord> record) {
    SelEvent e;
    std::memcpy(&e.record, record.get(), sizeof(SelRecord));
    record.reset();
    e.offset = static_cast<uint8_t>(e.record.ucEventData1 & 0x0F);
    e.eventType = static_cast<uint8_t>(e.record.ucEventDirType & 0x7F);
    e.asserted = (e.record.ucEventDirType & 0x80) == 0;
    e.ownerId = static_cast<uint8_t>(e.record.usGeneratorID & 0xFF);
    e.lun = static_cast<uint8_t>((e.record.usGeneratorID >> 8) & 0x03);
    return e;
}

// The sensor's SDR record as found by a look-up.
struct SensorRecord {
    bool found = false;
    int index = -1; // repository index: the instance of "/BMC/SENSOR[" n "]/NAME"
    uint8_t lunByte = 0;
    uint8_t capabilities = 0;
    uint8_t eventType = 0;
};

// Reads up to `count` hexadecimal byte tokens of an SDR text into bytes[0..count).
void sdrBytes(const std::string& text, uint8_t* bytes, int count) {
    std::memset(bytes, 0, static_cast<size_t>(count));
    const char* p = text.c_str();
    for (int i = 0; i < count; ++i) {
        while (*p == ' ') {
            ++p;
        }
        if (*p == '\0') {
            return;
        }
        char* end = nullptr;
        bytes[i] = static_cast<uint8_t>(strtol(p, &end, 16));
        if (end == p) {
            // Not a number: skip the token.
            while (*end != '\0' && *end != ' ') {
                ++end;
            }
        }
        p = end;
    }
}

// The instance number in a result key "/BMC/SDR[12]", or -1.
int keyIndex(const std::string& key) {
    const size_t open = key.rfind('[');
    if (open == std::string::npos) {
        return -1;
    }
    char* end = nullptr;
    const long n = strtol(key.c_str() + open + 1, &end, 10);
    return end != nullptr && *end == ']' && n >= 0 && n < 0x7FFFFFFF ? static_cast<int>(n) : -1;
}

// Searches the records answered for `path` for the event's sensor (number, owner ID
// and LUN). Of several matches the lowest repository index wins. False when the
// query failed (traced with failText).
bool findSensorRecord(SDK::System& system, const char* path, const SelEvent& e, SensorRecord& out,
                      const char* failText) {
    QueryResult result;
    try {
        system.Get(path, result);
    } catch (const ResultStatus& status) {
        debugLog("%s", failText);
        logQueryFailure(status, path, QUERY_FAILURE_SCAN);
        return false;
    }
    for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
        if (it->second.NodeType != 0 || it->second.Values.empty()) {
            continue;
        }
        uint8_t bytes[kSdrEventTypeByte];
        sdrBytes(it->second.Values[0], bytes, kSdrEventTypeByte);
        if (bytes[kSdrNumberByte - 1] != e.record.ucSensorNumber || bytes[kSdrOwnerByte - 1] != e.ownerId ||
            (bytes[kSdrLunByte - 1] & 0x03) != e.lun) {
            continue;
        }
        const int index = keyIndex(it->first);
        if (out.found && index >= out.index) {
            continue;
        }
        out.found = true;
        out.index = index;
        out.lunByte = bytes[kSdrLunByte - 1];
        out.capabilities = bytes[kSdrCapabilitiesByte - 1];
        out.eventType = bytes[kSdrEventTypeByte - 1];
    }
    if (!out.found) {
        debugLog("\n No SDR record of sensor number %d, owner %d, LUN %d\n", e.record.ucSensorNumber,
                 e.ownerId, e.lun);
    }
    return true;
}

// Queries "/BMC/SENSOR[" index "]/NAME"; false when the query failed (traced with
// failText). A sensor not found in the SDR keeps an empty name.
bool querySensorName(SDK::System& system, const SensorRecord& sensor, CString& name, const char* failText,
                     QueryResult* keep = nullptr) {
    if (!sensor.found || sensor.index < 0) {
        return true;
    }
    char path[64];
    composePath(path, sizeof(path), "/BMC/SENSOR[", sensor.index, "]/NAME");
    QueryResult result;
    try {
        system.Get(path, result);
    } catch (const ResultStatus& status) {
        debugLog("%s", failText);
        logQueryFailure(status, path, QUERY_FAILURE_VALUE);
        return false;
    }
    QueryResult::const_iterator it = result.find(path);
    if (it == result.end()) {
        it = result.begin();
    }
    if (it != result.end() && !it->second.Values.empty()) {
        name.assign(it->second.Values[0].c_str());
    }
    if (keep != nullptr) {
        keep->swap(result);
    }
    return true;
}

// Traces the identity of the sensor an event is about.
void traceSensorIdentity(const SelEvent& e) {
    debugLog("\n AfterEventTrigger = %d:", e.eventType);
    debugLog("\n After the calculation \n ");
    debugLog("\n LunNumber is %d:", e.lun);
    debugLog("\n SensorNUmber is %d:", e.record.ucSensorNumber);
    debugLog("\n GetOwnerId is %d:", e.ownerId);
    debugLog("\n The value of deviceid is %d:", e.record.ucSensorNumber);
    debugLog("\n Event Direction is %d:", e.asserted ? 0 : 1);
}

// Counts a threshold event by the severity class of its offset.
void countThresholdEvent(uint8_t offset) {
    switch (offset) {
    case 0:
    case 1:
    case 6:
    case 7:
        ++g_counts.nonCritical;
        break;
    case 2:
    case 3:
    case 8:
    case 9:
        ++g_counts.critical;
        break;
    case 4:
    case 5:
    case 10:
    case 11:
        ++g_counts.nonRecoverable;
        break;
    default:
        break;
    }
}

// Hands the event to a fresh event interface: at most kHandOffAttempts attempts, with
// a kHandOffRetryMs sleep after every refused one (the interface refuses events until
// the agent has started); a close of the agent ends the sleep and drops the event.
// Returns 1 when an attempt was accepted.
int handOff(CEventWrapper& wrapper, int type, const DecoderTexts& texts) {
    SNMP_EventInterface* sink = new (std::nothrow) SNMP_EventInterface();
    if (sink == nullptr) {
        return 0;
    }
    int accepted = 0;
    for (int attempt = 0; attempt < kHandOffAttempts && accepted == 0; ++attempt) {
        debugLog("%s", texts.interfaceCheck);
        accepted = sink->HandleEvent(wrapper, type);
        if (accepted == 0) {
            // A close ends the wait and the retries: the event is dropped.
            void (*sleepFn)(DWORD) = g_retrySleep.load();
            if (sleepFn != nullptr) {
                sleepFn(kHandOffRetryMs);
                if (selPollerClosing()) {
                    break;
                }
            } else if (!waitUnlessClosing(kHandOffRetryMs)) {
                break;
            }
        }
    }
    debugLog("%s", texts.endOk);
    delete sink;
    return accepted != 0 ? 1 : 0;
}

// Fills the wrapper and hands it on.
int deliver(const DecoderTexts& texts, int type, const SelEvent& e, const CString& name, const char* kind,
            const char* status, const char* description) {
    debugLog("%s", texts.beforeStatus);
    const SelEventFields& fields = selCurrentEventFields();
    CEventWrapper wrapper;
    wrapper.setDeviceId(e.record.ucSensorNumber);
    wrapper.setSensorName(name);
    if (kind != nullptr) {
        wrapper.setKind(kind);
    }
    wrapper.setStatus(status == nullptr ? "" : status);
    wrapper.setDescription(description == nullptr ? "" : description);
    wrapper.SetAsserted(e.asserted);
    wrapper.setTimeStamp(fields.stTimeStamp);
    wrapper.setSensorType(fields.stSensorType);
    const char* text = description == nullptr ? "" : description;
    debugLog("\nEvent description %s, and length = %d", text, static_cast<int>(strlen(text)));
    debugLog("\n Before calling Event clone\n");
    debugLog(" \n Sensor wrapper details---\n");
    debugLog("\n Status = %s\n ", status == nullptr ? "" : status);

    return handOff(wrapper, type, texts);
}

// The shared query object in the mode the decoders use.
SDK::System& decoderQueries() {
    SDK::System& system = queryService();
    system.SetFlags(1);
    return system;
}

// Sensor-specific events of the decoders that name their sensor through "/BMC/SDR":
// the description and status word come from the offset table.
int decodeSensorSpecificEvent(const SelEvent& e, const DecoderTexts& texts, int type, const char* kind,
                              bool lookUp) {
    if (e.eventType != kSensorSpecificType) {
        return 0;
    }
    const EventOffsetDescription* row = findOffsetDescription(e.record.ucSensorType, e.offset);
    if (row == nullptr) {
        return 0;
    }
    CString name;
    if (lookUp) {
        SDK::System& system = decoderQueries();
        SensorRecord sensor;
        if (!findSensorRecord(system, kSdrPath, e, sensor, kSdrQueryFailed) ||
            !querySensorName(system, sensor, name, kSdrQueryFailed)) {
            return 0;
        }
        traceSensorIdentity(e);
    }
    return deliver(texts, type, e, name, kind, offsetDescriptionStatus(*row, e.asserted),
                   offsetDescriptionText(*row, e.asserted));
}

int decodeSensorSpecific(std::unique_ptr<SelRecord> record, const DecoderTexts& texts, int type,
                         const char* kind, bool lookUp) {
    debugLog("%s", texts.entry);
    return decodeSensorSpecificEvent(takeRecord(std::move(record)), texts, type, kind, lookUp);
}

} // namespace

const char* thresholdStatusWord(uint8_t offset, bool asserted) {
    if (offset > 11) {
        return nullptr;
    }
    if (!asserted) {
        return "OK";
    }
    switch (offset) {
    case 0:
    case 1:
    case 6:
    case 7:
        return "Degraded";
    case 2:
    case 3:
    case 8:
    case 9:
        return "Error";
    default:
        return "Fatal";
    }
}

TemperatureDescription temperatureDescription(uint8_t offset, bool asserted) {
    switch (offset) {
    case 5:
        return {nullptr, nullptr};
    case 7:
        return asserted ? TemperatureDescription{"Status Changed from OK to Upper Non-Critical", "Degraded"}
                        : TemperatureDescription{"Status Changed to OK", "OK"};
    case 9:
        return asserted ? TemperatureDescription{"Status Changed to Upper Critical", "Error"}
                        : TemperatureDescription{"Status Changed from Critical to Upper Non-Critical", "OK"};
    case 11:
        return asserted ? TemperatureDescription{"Status is Critical", "Fatal"}
                        : TemperatureDescription{"Status is Critical", "OK"};
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
    case 6:
    case 8:
    case 10:
        // The lower thresholds share the upper non-critical wording.
        return {asserted ? "Status Changed from OK to Upper Non-Critical" : "Status Changed to OK",
                thresholdStatusWord(offset, asserted)};
    default:
        return {nullptr, nullptr};
    }
}

const char* redundancyStatusWord(uint8_t offset, bool asserted) {
    if (!asserted) {
        return "OK";
    }
    switch (offset) {
    case 0:
        return "OK";
    case 2:
    case 6:
    case 7:
        return "Degraded";
    default:
        return "Error";
    }
}

ThresholdEventCounts thresholdEventCounts() {
    return g_counts;
}

void setHandOffRetrySleep(void (*sleepFn)(DWORD milliseconds)) {
    g_retrySleep.store(sleepFn);
}

int Temperature_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kTemperatureTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    if (e.eventType != kThresholdType) {
        return 0;
    }
    const char* failText = "\n Temperature_EventOccurred SensorNamequery failed";
    SDK::System& system = decoderQueries();
    char path[64];
    composePath(path, sizeof(path), kSdrSensorTypeStem, e.record.ucSensorType, "]");
    SensorRecord sensor;
    CString name;
    if (!findSensorRecord(system, path, e, sensor, failText) ||
        !querySensorName(system, sensor, name, failText)) {
        return 0;
    }
    traceSensorIdentity(e);
    const TemperatureDescription d = temperatureDescription(e.offset, e.asserted);
    countThresholdEvent(e.offset);
    return deliver(kTemperatureTexts, SEL_EVENT_TEMPERATURE, e, name, "Temperature", d.status, d.description);
}

int Voltage_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kVoltageTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    SDK::System& system = decoderQueries();
    SensorRecord sensor;
    CString name;
    if (e.eventType == kThresholdType) {
        if (!findSensorRecord(system, kSdrFullRecordsPath, e, sensor, kSdrQueryFailed) ||
            !querySensorName(system, sensor, name, kSdrQueryFailed)) {
            return 0;
        }
        traceSensorIdentity(e);
        countThresholdEvent(e.offset);
        return deliver(kVoltageTexts, SEL_EVENT_VOLTAGE, e, name, nullptr,
                       thresholdStatusWord(e.offset, e.asserted), thresholdEventDescription(e.offset));
    }
    // Discrete voltage sensors: "state asserted" (0x03) and "limit exceeded" (0x05).
    if (e.eventType != 0x03 && e.eventType != 0x05) {
        return 0;
    }
    if (!findSensorRecord(system, kSdrCompactRecordsPath, e, sensor, kSdrQueryFailed) ||
        !querySensorName(system, sensor, name, kSdrQueryFailed)) {
        return 0;
    }
    traceSensorIdentity(e);
    const char* status = e.asserted && e.offset == 1 ? "Error" : "OK";
    return deliver(kVoltageTexts, SEL_EVENT_VOLTAGE, e, name, nullptr, status, e.record.stDescription);
}

int Fan_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kFanTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    if (e.eventType != kThresholdType && e.eventType != kPresenceType) {
        return 0;
    }
    // The fan decoder runs its queries on an object of its own.
    SDK::System system;
    system.SetFlags(1);
    SensorRecord sensor;
    CString name;
    const char* status = nullptr;
    const char* description = nullptr;
    if (e.eventType == kThresholdType) {
        if (!findSensorRecord(system, kSdrFullRecordsPath, e, sensor, kSdrQueryFailed) ||
            !querySensorName(system, sensor, name, kSdrQueryFailed)) {
            return 0;
        }
        traceSensorIdentity(e);
        status = thresholdStatusWord(e.offset, e.asserted);
        description = thresholdEventDescription(e.offset);
        countThresholdEvent(e.offset);
    } else {
        if (!findSensorRecord(system, kSdrCompactRecordsPath, e, sensor, kSdrQueryFailed)) {
            return 0;
        }
        debugLog("\n The value of SensorNumber is %d:", e.record.ucSensorNumber);
        debugLog("\n The sensor Number is :%d", e.record.ucSensorNumber);
        QueryResult names;
        if (!querySensorName(system, sensor, name, kSdrQueryFailed, &names)) {
            return 0;
        }
        debugLog("\n---------SENSOR NAME RESULTMAP DUMP START--------------\n");
        dumpResultMap(names);
        debugLog("\n---------SENSOR NAME RESULTMAP DUMP END--------------\n");
        char narrow[CString::kLogBufferSize];
        debugLog("\nFan event: After the name CR query %s RESULTS map size= %d \n", name.NarrowForLog(narrow),
                 static_cast<int>(names.size()));
        if (name.IsEmpty()) {
            debugLog("\nName size is zero!\n");
        }
        debugLog("\n Fan_EventOccurred, t_EventStruct.ucRecordType=2, ucEventOffset= %d\n ", e.offset);
        const bool present = (sensor.capabilities & kPresenceFlag) != 0;
        if (e.offset == 0) {
            status = present ? "OK" : (e.asserted ? "Error" : "OK");
        } else if (e.offset == 1) {
            status = present && !e.asserted ? "Error" : "OK";
        } else {
            status = "OK";
        }
        description = presenceEventDescription(e.offset);
        if (description == nullptr) {
            description = e.record.stDescription;
        }
    }
    return deliver(kFanTexts, SEL_EVENT_FAN, e, name, "Fan", status, description);
}

int CoolingRedundancy_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kCoolingRedundancyTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    SDK::System& system = decoderQueries();
    char path[64];
    composePath(path, sizeof(path), kSdrSensorTypeStem, e.record.ucSensorType, "]");
    SensorRecord sensor;
    if (!findSensorRecord(system, path, e, sensor, kSdrQueryFailed)) {
        return 0;
    }
    traceSensorIdentity(e);
    debugLog("\n  CoolingRedundancy_EventOccurred : ucEventOffset = %d,  \n", e.offset);
    // The redundancy flag: the sensor's record describes a redundancy sensor.
    const bool redundant = sensor.found && sensor.eventType == kRedundancyType;
    const char* status;
    switch (e.offset) {
    case 0:
        status = redundant && !e.asserted ? "Error" : "OK";
        break;
    case 1:
    case 3:
    case 4:
    case 5:
        status = redundant ? "OK" : redundancyStatusWord(e.offset, e.asserted);
        break;
    case 2:
    case 6:
    case 7:
        if (redundant) {
            status = redundancyStatusWord(e.offset, e.asserted);
        } else {
            status = "OK";
            fprintf(stderr, "REDUNDANCY_LOST: cooling redundancy offset %d on sensor %d\n", e.offset,
                    e.record.ucSensorNumber);
        }
        break;
    default:
        status = redundancyStatusWord(e.offset, e.asserted);
        break;
    }
    const char* description = redundancyEventDescription(e.offset);
    return deliver(kCoolingRedundancyTexts, SEL_EVENT_COOLING_REDUNDANCY, e, CString(), nullptr, status,
                   description == nullptr ? e.record.stDescription : description);
}

int Intrusion_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kIntrusionTexts, SEL_EVENT_CHASSIS, "Intrusion", true);
}

int PlatformSecurity_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kPlatformSecurityTexts, SEL_EVENT_PLATFORM_SECURITY,
                                nullptr, false);
}

int Processor_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kProcessorTexts, SEL_EVENT_PROCESSOR, nullptr, false);
}

int PowerSupply_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kPowerSupplyTexts, SEL_EVENT_POWER_SUPPLY, "PowerSupply",
                                true);
}

int PowerUnitRedundancy_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kPowerUnitRedundancyTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    SDK::System& system = decoderQueries();
    SensorRecord sensor;
    CString name;
    if (!findSensorRecord(system, kSdrPath, e, sensor, kSdrQueryFailed) ||
        !querySensorName(system, sensor, name, kSdrQueryFailed)) {
        return 0;
    }
    traceSensorIdentity(e);
    // State count: the states the sensor's current reading asserts.
    int states = 0;
    if (sensor.found) {
        char path[128];
        composeSensorPath(path, sizeof(path), e.record.ucSensorNumber, e.ownerId, sensor.lunByte,
                          "]/INTERPRET_SENSOR_VALUE");
        QueryResult result;
        try {
            system.Get(path, result);
            QueryResult::const_iterator it = result.find(path);
            if (it != result.end() && !it->second.Values.empty()) {
                const std::string& text = it->second.Values[0];
                if (!text.empty() && text != "ALL_DEASSERTED" && text != "READING_UNAVAILABLE") {
                    states = 1;
                    for (char c : text) {
                        states += c == ',' ? 1 : 0;
                    }
                }
            }
        } catch (const ResultStatus& status) {
            debugLog("%s", kSdrQueryFailed);
            logQueryFailure(status, path, QUERY_FAILURE_VALUE);
        }
    }
    const char* status = states == 0 ? "OK" : redundancyStatusWord(e.offset, e.asserted);
    const char* description = redundancyEventDescription(e.offset);
    return deliver(kPowerUnitRedundancyTexts, SEL_EVENT_POWER_REDUNDANCY, e, name, nullptr, status,
                   description == nullptr ? e.record.stDescription : description);
}

int Memory_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kMemoryTexts, SEL_EVENT_MEMORY, "Memory", true);
}

int DriveSlot_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kDriveSlotTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    if (e.eventType != kSensorSpecificType) {
        // clang-format off
        debugLog("CDriveSlotEvent::EventOccurred Event is not triggered for Drive Slot Presence Sensor with EventType Value %d. Returning FALSE.", e.eventType);
        // clang-format on
        return 0;
    }
    debugLog("\n ucEventOffset= %d \n", e.offset);
    if (findOffsetDescription(e.record.ucSensorType, e.offset) == nullptr) {
        debugLog("\n The sensor specific drive slot events were not handled. \n");
        return 0;
    }
    return decodeSensorSpecificEvent(e, kDriveSlotTexts, SEL_EVENT_DRIVE_SLOT, nullptr, true);
}

int SystemEvent_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kSystemEventTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    SDK::System& system = decoderQueries();
    char path[64];
    composePath(path, sizeof(path), kSdrSensorTypeStem, e.record.ucSensorType, "]");
    SensorRecord sensor;
    if (!findSensorRecord(system, path, e, sensor, kSdrQueryFailed)) {
        return 0;
    }
    traceSensorIdentity(e);
    const EventOffsetDescription* row =
        e.eventType == kSensorSpecificType ? findOffsetDescription(e.record.ucSensorType, e.offset) : nullptr;
    if (row != nullptr) {
        return deliver(kSystemEventTexts, SEL_EVENT_SYSTEM, e, CString(), nullptr,
                       offsetDescriptionStatus(*row, e.asserted), offsetDescriptionText(*row, e.asserted));
    }
    // An offset without a meaning of its own: the entry's own description.
    return deliver(kSystemEventTexts, SEL_EVENT_SYSTEM, e, CString(), nullptr,
                   e.asserted ? "Information" : "OK", e.record.stDescription);
}

int WatchDog_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kWatchDogTexts, SEL_EVENT_WATCHDOG, "WatchDog", true);
}

int PhpSlot_EventOccurred(std::unique_ptr<SelRecord> record) {
    return decodeSensorSpecific(std::move(record), kPhpSlotTexts, SEL_EVENT_PHP_SLOT, "PhpSlot", true);
}

int Generic_EventOccurred(std::unique_ptr<SelRecord> record) {
    debugLog("%s", kGenericTexts.entry);
    const SelEvent e = takeRecord(std::move(record));
    return deliver(kGenericTexts, SEL_EVENT_GENERIC, e, CString(), nullptr, e.asserted ? "Information" : "OK",
                   e.record.stDescription);
}
