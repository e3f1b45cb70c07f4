// The BMC event-log poller: every 3000 ms it reads the newest System Event Log
// entries through the query service, decodes each new entry and routes it by
// IPMI sensor type to its event decoder.
#ifndef HM_EVENTS_SELPOLLER_H
#define HM_EVENTS_SELPOLLER_H

#include <cstddef>
#include <cstdint>
#include <windows.h>

// The poller thread, started by the front end once start-up is done: reads the newest BMC
// event-log entries every 3000 ms and routes them to the event decoders.
DWORD WINAPI PollForEvent(LPVOID lpParameter);

#pragma pack(push, 1)
// One decoded SEL system-event record and the entry's description (1045 bytes).
struct SelRecord {
    uint16_t usRecordID;    // RAW bytes 0-1, little-endian
    uint8_t ucRecordType;   // byte 2; 2 = system event record
    int64_t llTimeStamp;    // bytes 3-6, little-endian
    uint16_t usGeneratorID; // bytes 7-8: owner ID in the low byte, channel and LUN in the high byte
    uint8_t ucEvMRevision;  // byte 9
    uint8_t ucSensorType;   // byte 10
    uint8_t ucSensorNumber; // byte 11
    uint8_t ucEventDirType; // byte 12: bit 7 deassertion, bits 0-6 event/reading type
    uint8_t ucEventData1;   // byte 13: event offset in the low nibble
    uint8_t ucEventData2;   // byte 14
    uint8_t ucEventData3;   // byte 15
    char stDescription[1024];
    char cTerminator; // always 0: the description reads as text even when it fills its field
};
#pragma pack(pop)
static_assert(sizeof(SelRecord) == 1045, "the decoded SEL record is 1045 bytes");

// The facts of the entry being routed that the decoders read besides the record.
struct SelEventFields {
    char stTimeStamp[128];  // the entry's TIMESTAMP text
    char stSensorType[8];   // the sensor type as decimal text
    uint8_t ucEventTrigger; // the event/reading type code
    uint8_t ucRecordType;
};

// Value of the last record ID that asks the query service for the newest entry.
constexpr int32_t kSelLastEntry = 65535;
// Status code of a RECORD_ID the SEL does not hold (the SEL was cleared).
constexpr uint16_t kSelRecordNotValid = 1089;
// Entries asked for per poll.
constexpr const char* kSelRange = "3000";

// One poll: 1 when new entries were walked, 0 otherwise.
int CheckForNewSELEntry();

// Routes a record to the decoder of its sensor type; 0 for a null record or when
// no copy can be made, otherwise 1 (the decoder's own result is not looked at).
int routeEvent(const SelRecord* record);

// Decodes RAW text ("01 00 02 ..." up to 16 hexadecimal tokens; missing bytes are 0,
// further tokens ignored) into `record`, keeping its description, and moves
// `lastRecordId` forward (or out of kSelLastEntry) to the record's ID.
void decodeSelEntry(const char* text, SelRecord& record, int32_t& lastRecordId);

// Parks every poller thread running now, for when the agent closes: waits for
// the poll under way (which stops routing at its next entry) and makes those
// threads skip every later poll. The threads are not stopped; they keep
// sleeping until the process ends, and touch no agent state any more. A poller
// started afterwards polls normally.
void parkSelPoller();

// Waits `milliseconds` on the poller thread, or less when parking begins: returns
// false when the wait was cut short because the agent is closing. selPollerClosing
// tells the same without waiting.
bool waitUnlessClosing(DWORD milliseconds);
bool selPollerClosing();

// Read-only views of the poller state, for diagnostics and tests.
int32_t selLastRecordId();
const SelRecord& selCurrentRecord();
const SelEventFields& selCurrentEventFields();

// Test seams, never used by the product: forget everything the poller has seen, and
// replace the 3000 ms sleep of PollForEvent (null restores Sleep).
void resetSelPoller();
void setSelPollSleep(void (*sleepFn)(DWORD milliseconds));

#endif
