// The BMC event-log poller and the routing of new entries to the event decoders.
#include "events/selPoller.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "core/debugLog.h"
#include "events/eventDecoders.h"
#include "platform/queryService.h"

namespace {

constexpr const char* kSelPath = "/BMC/SEL/TRANSLATED";
constexpr const char* kSelEntryStem = "/BMC/SEL/TRANSLATED[";
constexpr int kSelRawBytes = 16;
// The record-type byte the routing compares with: the character code of "2".
constexpr uint8_t kRecordTypeCharTwo = 0x32;
constexpr uint8_t kRedundancyEventType = 0x0B;

// Poller state: written and read only by the poller thread.
struct SelPollerState {
    int32_t lastRecordId = kSelLastEntry;
    std::string lastEntryText;
    std::string currentEntryText;
    std::string description;
    std::string timeStamp;
    SelRecord current{};
    SelRecord previous{};
    SelEventFields fields{};
};

// Never destroyed: the poller thread runs until the process ends, also while the
// process's static objects are being destroyed.
SelPollerState& state() {
    static SelPollerState* const s = new SelPollerState();
    return *s;
}

std::atomic<void (*)(DWORD)> g_pollSleep{nullptr};

// Parking (see parkSelPoller): a poll runs under the poll lock, and a poller
// thread polls only while the generation is the one it started in. Never
// destroyed, like the state.
std::mutex& pollLock() {
    static std::mutex* const lock = new std::mutex();
    return *lock;
}
std::atomic<unsigned> g_pollGeneration{0};
// Set while parkSelPoller waits for the poll under way: that poll stops routing, and
// a hand-off retry wait in it ends at once (waitUnlessClosing).
std::atomic<bool> g_parking{false};
// Wakes the retry waits when parking begins. Never destroyed, like the state.
struct ClosingSignal {
    std::mutex lock;
    std::condition_variable wake;
};
ClosingSignal& closingSignal() {
    static ClosingSignal* const signal = new ClosingSignal();
    return *signal;
}

// Copies text into a fixed field, cut to fit, always terminated.
template <size_t N> void copyText(char (&field)[N], const std::string& text) {
    const size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

// Routing by IPMI sensor type. A row with an event type applies only to records of
// that event/reading type; a row without a decoder drops the record.
struct SelRoute {
    uint8_t sensorType;
    int eventType; // -1: any
    SelDecoder decoder;
};

const SelRoute kRoutes[] = {
    {0x01, -1, Temperature_EventOccurred},
    {0x02, -1, Voltage_EventOccurred},
    {0x04, kRedundancyEventType, CoolingRedundancy_EventOccurred},
    {0x04, -1, Fan_EventOccurred},
    {0x05, -1, Intrusion_EventOccurred},
    {0x06, -1, PlatformSecurity_EventOccurred},
    {0x07, -1, Processor_EventOccurred},
    {0x08, -1, PowerSupply_EventOccurred},
    {0x09, kRedundancyEventType, PowerUnitRedundancy_EventOccurred},
    {0x09, -1, nullptr}, // other power-unit events are dropped
    {0x0A, -1, CoolingRedundancy_EventOccurred},
    {0x0C, -1, Memory_EventOccurred},
    {0x0D, -1, DriveSlot_EventOccurred},
    {0x0F, -1, SystemEvent_EventOccurred},
    {0x10, -1, SystemEvent_EventOccurred},
    {0x12, -1, SystemEvent_EventOccurred},
    {0x13, -1, SystemEvent_EventOccurred},
    {0x16, -1, SystemEvent_EventOccurred},
    {0x19, -1, SystemEvent_EventOccurred},
    {0x11, -1, WatchDog_EventOccurred},
    {0x23, -1, WatchDog_EventOccurred},
    {0x21, -1, PhpSlot_EventOccurred},
};

// The route of a sensor type and event type: found, and its decoder (null = drop).
bool findRoute(uint8_t sensorType, uint8_t eventType, SelDecoder* decoder) {
    for (const SelRoute& route : kRoutes) {
        if (route.sensorType == sensorType && (route.eventType < 0 || route.eventType == eventType)) {
            *decoder = route.decoder;
            return true;
        }
    }
    *decoder = Generic_EventOccurred;
    return false;
}

// Decodes the current entry text into the current record.
void decodeCurrentEntry() {
    SelPollerState& s = state();
    decodeSelEntry(s.currentEntryText.c_str(), s.current, s.lastRecordId);
}

// The first value of a result entry, or null.
const std::string* firstValue(const QueryResult& result, const std::string& key) {
    QueryResult::const_iterator it = result.find(key);
    if (it == result.end() || it->second.Values.empty()) {
        return nullptr;
    }
    return &it->second.Values[0];
}

// Reads the children of one entry into the poller state and routes the record.
void handleNewEntry(const QueryResult& result, const std::string& entryPath) {
    SelPollerState& s = state();
    QueryResult::const_iterator entry = result.find(entryPath);
    if (entry != result.end()) {
        for (const std::string& child : entry->second.Values) {
            const std::string* value = firstValue(result, child);
            const std::string text = value == nullptr ? std::string() : *value;
            if (child.find("RAW") != std::string::npos) {
                s.currentEntryText = text;
                debugLog("\n SelEntry = %s", s.currentEntryText.c_str());
                decodeCurrentEntry();
            }
            debugLog("\nBefore comparing DESCR\n");
            if (child.find("DESCR") != std::string::npos) {
                debugLog("\nInside comparing DESCR\n");
                s.description = text;
                debugLog("\n Discription = %s", s.description.c_str());
            }
            debugLog("\nBefore comparing TIMESTAMP\n");
            if (child.find("TIMESTAMP") != std::string::npos) {
                debugLog("\nInside comparing TIMESTAMP\n");
                s.timeStamp = text;
                debugLog("\n sTimeStamp = %s", s.timeStamp.c_str());
            }
            debugLog("\nEnd of loop\n");
        }
    }
    debugLog("\nGet data is completed!\n");
    copyText(s.fields.stTimeStamp, s.timeStamp);
    debugLog("Time stamp is assigned!");
    snprintf(s.fields.stSensorType, sizeof(s.fields.stSensorType), "%u", s.current.ucSensorType);
    debugLog("Sensor type is assigned!");
    s.fields.ucEventTrigger = static_cast<uint8_t>(s.current.ucEventDirType & 0x7F);
    s.fields.ucRecordType = s.current.ucRecordType;
    debugLog("Event trigger is assigned!");
    copyText(s.current.stDescription, s.description);
    s.current.cTerminator = '\0';

    debugLog("\n Check new SEL entry = %x", s.current.ucEventData1);
    routeEvent(&s.current);
    s.previous = s.current;
    s.lastEntryText = s.currentEntryText;
}

} // namespace

void decodeSelEntry(const char* text, SelRecord& record, int32_t& lastRecordId) {
    debugLog("\n The SEL entry is %s:", text == nullptr ? "" : text);
    uint8_t bytes[kSelRawBytes] = {};
    int count = 0;
    const char* p = text == nullptr ? "" : text;
    while (*p != '\0' && count < kSelRawBytes) {
        while (*p == ' ') {
            ++p;
        }
        if (*p == '\0') {
            break;
        }
        const char* end = p;
        while (*end != '\0' && *end != ' ') {
            ++end;
        }
        // Read as strtol reads it, within the token only.
        char token[32];
        const size_t length = static_cast<size_t>(end - p) < sizeof(token) - 1 ? static_cast<size_t>(end - p)
                                                                               : sizeof(token) - 1;
        std::memcpy(token, p, length);
        token[length] = '\0';
        bytes[count++] = static_cast<uint8_t>(strtol(token, nullptr, 16));
        p = end;
    }

    record.usRecordID = static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
    record.ucRecordType = bytes[2];
    record.llTimeStamp =
        static_cast<int64_t>(static_cast<uint32_t>(bytes[3]) | static_cast<uint32_t>(bytes[4]) << 8 |
                             static_cast<uint32_t>(bytes[5]) << 16 | static_cast<uint32_t>(bytes[6]) << 24);
    record.usGeneratorID = static_cast<uint16_t>(bytes[7] | bytes[8] << 8);
    record.ucEvMRevision = bytes[9];
    record.ucSensorType = bytes[10];
    record.ucSensorNumber = bytes[11];
    record.ucEventDirType = bytes[12];
    record.ucEventData1 = bytes[13];
    record.ucEventData2 = bytes[14];
    record.ucEventData3 = bytes[15];
    debugLog("\n The value of RecordType is %d:", record.ucRecordType);
    debugLog("\n The value of SensorType is %d:", record.ucSensorType);
    debugLog("\n The value of SensorNumber is %d:", record.ucSensorNumber);
    debugLog("\n The value of RecordID is %d:", record.usRecordID);

    const int32_t id = record.usRecordID;
    if (id >= lastRecordId || lastRecordId == kSelLastEntry) {
        lastRecordId = id;
    }
    debugLog("\n Last record = %d this recordID =%d:", lastRecordId, id);
}

int CheckForNewSELEntry() {
    SelPollerState& s = state();
    debugLog("\n\n Inside the CheckForNewSELEntry function::\n\n");

    char recordId[16];
    snprintf(recordId, sizeof(recordId), "%x", static_cast<unsigned>(s.lastRecordId));
    QueryResult result;
    try {
        std::map<std::string, std::map<std::string, std::string>> request;
        std::map<std::string, std::string>& parameters = request[kSelPath];
        parameters["RECORD_ID"] = recordId;
        parameters["RANGE"] = kSelRange;
        debugLog("RECORD_ID = %s.\n", recordId);
        SDK::System& system = queryService();
        system.SetFlags(1);
        debugLog("\n Before CR call\n");
        system.Get(request, result);
        debugLog("\n Using /BMC/SEL/TRANSLATED - %d", static_cast<int>(result.size()));
        dumpResultMap(result);
    } catch (const ResultStatus& status) {
        debugLog("\nGet Last SEL record error\n");
        debugLog("\nQuery Failed to get the Last Record\n");
        for (const RStatus& failure : status.Get()) {
            debugLog("\nOperation: %d", failure.Operation);
            debugLog("\n failed Error code. %d  -", failure.Code);
            if (failure.Code == kSelRecordNotValid) {
                debugLog("\nSel record ID = %d is not valid. SEL may be cleared.", s.lastRecordId);
                s.lastRecordId = kSelLastEntry;
            }
        }
        return 0;
    } catch (const std::bad_alloc&) {
        // No memory for the request or its answer: the next poll tries again.
        return 0;
    }

    QueryResult::const_iterator list = result.find(kSelPath);
    if (list == result.end() || list->second.Values.empty()) {
        debugLog("No SEL record found!");
        return 0;
    }
    const std::vector<std::string>& entries = list->second.Values;
    const int count = static_cast<int>(entries.size());

    char newestKey[64];
    snprintf(newestKey, sizeof(newestKey), "%s%d%s", kSelEntryStem, count - 1, "]/RAW");
    const std::string* newest = firstValue(result, newestKey);
    s.currentEntryText = newest == nullptr ? std::string() : *newest;
    debugLog("Sel[0] = %s.\n", s.currentEntryText.c_str());

    if (s.lastEntryText.empty()) {
        s.lastEntryText = s.currentEntryText;
        decodeCurrentEntry();
        debugLog("First time reading the SEL. Structures related to SEL are initialized now.\n");
        return 0;
    }
    if (s.currentEntryText == s.lastEntryText) {
        debugLog("Last and current SEL entries are equal.\n");
        // After a cleared SEL the poller asks for the newest entry; anchor on it so
        // that the next poll asks from a record the SEL holds.
        if (s.lastRecordId == kSelLastEntry) {
            SelRecord anchor{};
            decodeSelEntry(s.currentEntryText.c_str(), anchor, s.lastRecordId);
        }
        return 0;
    }

    debugLog("\n ------------------- SEL Start -----------------\n");
    for (int k = 0; k < count; ++k) {
        if (k == 0) {
            debugLog("This is last SEL record, so skip\n");
            if (s.lastRecordId == kSelLastEntry) {
                // Asked for the newest entry after a cleared SEL: it becomes the anchor.
                const std::string* anchor = firstValue(result, entries[0] + "/RAW");
                if (anchor != nullptr) {
                    SelRecord scratch{};
                    decodeSelEntry(anchor->c_str(), scratch, s.lastRecordId);
                }
                if (count == 1) {
                    s.lastEntryText = s.currentEntryText;
                }
            }
            continue;
        }
        if (g_parking.load()) {
            break; // the agent is closing: the rest of the entries are not routed
        }
        handleNewEntry(result, entries[static_cast<size_t>(k)]);
    }
    debugLog("\n ------------------- SEL End -----------------\n");
    return 1;
}

int routeEvent(const SelRecord* record) {
    if (record == nullptr) {
        debugLog("\n Not a valid pointer, return");
        return 0;
    }
    debugLog("\n Inside the routeEvent Function:Check event Struct");
    std::unique_ptr<SelRecord> copy(new (std::nothrow) SelRecord);
    if (!copy) {
        return 0;
    }
    debugLog("\n Inside the routeEvent Function:After memory allocation");
    std::memcpy(copy.get(), record, sizeof(SelRecord));
    debugLog("\n Inside the routeEvent Function:After memory Copy =%x\n", copy->ucRecordType);

    // Kept as a trace only: a decoded system event record has type 2, not the character "2".
    if (copy->ucRecordType != kRecordTypeCharTwo) {
        debugLog("\n Inside the routeEvent Function: String comparioson failed!!\n");
    }
    debugLog("\n Inside the routeEvent Function:After comparison\n");
    debugLog("\n Inside RouteEventFunction the value of RecordType is %x:  ", copy->ucRecordType);
    debugLog("\n\n The sensorType inside RouteEvent Function is %x:  ", copy->ucSensorType);
    debugLog("\n The value of SensorType is %x:  ", copy->ucSensorType);
    debugLog("\n Inside the routeEvent Function: Sensor type check switch = %d", copy->ucSensorType);

    const uint8_t eventType = static_cast<uint8_t>(copy->ucEventDirType & 0x7F);
    if (copy->ucSensorType == 0x09) {
        debugLog("Power Unit event occured.\n");
        debugLog("Power Unit ucEventType:= %x \n", copy->ucEventDirType);
        debugLog("Power Unit m_ucEventType:= %x \n", eventType);
        debugLog("Power Unit t_EventStruct.ucEventTrigger:= %x \n", state().fields.ucEventTrigger);
    }
    SelDecoder decoder = nullptr;
    findRoute(copy->ucSensorType, eventType, &decoder);
    if (decoder != nullptr) {
        decoder(std::move(copy));
    }
    return 1;
}

DWORD WINAPI PollForEvent(LPVOID /*lpParameter*/) {
    const unsigned generation = g_pollGeneration.load();
    for (;;) {
        debugLog("\n Inside the PollForEvent Function");
        void (*sleepFn)(DWORD) = g_pollSleep.load();
        if (sleepFn != nullptr) {
            sleepFn(3000);
        } else {
            Sleep(3000);
        }
        std::lock_guard<std::mutex> guard(pollLock());
        if (g_pollGeneration.load() != generation) {
            continue; // parked for good: the thread only sleeps
        }
        try {
            CheckForNewSELEntry();
        } catch (...) {
            // Out of memory inside a poll: the poller keeps its rhythm and tries again.
        }
    }
}

int32_t selLastRecordId() {
    return state().lastRecordId;
}

const SelRecord& selCurrentRecord() {
    return state().current;
}

const SelEventFields& selCurrentEventFields() {
    return state().fields;
}

void parkSelPoller() {
    {
        std::lock_guard<std::mutex> guard(closingSignal().lock);
        g_parking.store(true);
    }
    closingSignal().wake.notify_all();
    {
        std::lock_guard<std::mutex> guard(pollLock());
        g_pollGeneration.fetch_add(1);
    }
    g_parking.store(false);
}

bool waitUnlessClosing(DWORD milliseconds) {
    std::unique_lock<std::mutex> guard(closingSignal().lock);
    return !closingSignal().wake.wait_for(guard, std::chrono::milliseconds(milliseconds),
                                          [] { return g_parking.load(); });
}

bool selPollerClosing() {
    return g_parking.load();
}

void resetSelPoller() {
    state() = SelPollerState();
}

void setSelPollSleep(void (*sleepFn)(DWORD milliseconds)) {
    g_pollSleep.store(sleepFn);
}
