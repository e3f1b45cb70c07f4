// The sensor event decoders: each names the sensor of a SEL record through the SDR,
// works out the status word and description of the event and hands it to the event
// interface under its type code, retrying while the interface refuses it.
#ifndef HM_EVENTS_EVENTDECODERS_H
#define HM_EVENTS_EVENTDECODERS_H

#include <cstdint>
#include <memory>
#include <windows.h>

#include "events/selPoller.h"
#include "platform/CEventWrapper.h"

// A decoder takes ownership of one record and returns 1 when it handed an event on.
typedef int (*SelDecoder)(std::unique_ptr<SelRecord> record);

int Temperature_EventOccurred(std::unique_ptr<SelRecord> record);
int Voltage_EventOccurred(std::unique_ptr<SelRecord> record);
int Fan_EventOccurred(std::unique_ptr<SelRecord> record);
int CoolingRedundancy_EventOccurred(std::unique_ptr<SelRecord> record);
int Intrusion_EventOccurred(std::unique_ptr<SelRecord> record);
int PlatformSecurity_EventOccurred(std::unique_ptr<SelRecord> record);
int Processor_EventOccurred(std::unique_ptr<SelRecord> record);
int PowerSupply_EventOccurred(std::unique_ptr<SelRecord> record);
int PowerUnitRedundancy_EventOccurred(std::unique_ptr<SelRecord> record);
int Memory_EventOccurred(std::unique_ptr<SelRecord> record);
int DriveSlot_EventOccurred(std::unique_ptr<SelRecord> record);
int SystemEvent_EventOccurred(std::unique_ptr<SelRecord> record);
int WatchDog_EventOccurred(std::unique_ptr<SelRecord> record);
int PhpSlot_EventOccurred(std::unique_ptr<SelRecord> record);
int Generic_EventOccurred(std::unique_ptr<SelRecord> record);

// Event-interface type codes the decoders hand their events on under.
enum SelEventType : int {
    SEL_EVENT_SYSTEM = 2,
    SEL_EVENT_CHASSIS = 3,
    SEL_EVENT_FAN = 4,
    SEL_EVENT_COOLING_REDUNDANCY = 5,
    SEL_EVENT_GENERIC = 6,
    SEL_EVENT_MEMORY = 8,
    SEL_EVENT_PHP_SLOT = 9,
    SEL_EVENT_POWER_SUPPLY = 10,
    SEL_EVENT_POWER_REDUNDANCY = 11,
    SEL_EVENT_PROCESSOR = 12,
    SEL_EVENT_PLATFORM_SECURITY = 13,
    SEL_EVENT_TEMPERATURE = 14,
    SEL_EVENT_VOLTAGE = 15,
    SEL_EVENT_WATCHDOG = 16,
    SEL_EVENT_DRIVE_SLOT = 19,
};

// Status word of a threshold event offset: "Degraded", "Error" or "Fatal" on
// assertion, "OK" on deassertion, null for offsets of 12 and above.
const char* thresholdStatusWord(uint8_t offset, bool asserted);

// Temperature state-change description and status word of a threshold offset;
// either may be null (offset 5 and offsets of 12 and above have neither).
struct TemperatureDescription {
    const char* description;
    const char* status;
};
TemperatureDescription temperatureDescription(uint8_t offset, bool asserted);

// Status word of a redundancy-state offset, grouped the same way by both redundancy
// decoders (the cooling decoder refines it by the sensor's redundancy flag).
const char* redundancyStatusWord(uint8_t offset, bool asserted);

// Threshold events counted so far by severity class.
struct ThresholdEventCounts {
    uint32_t nonCritical;
    uint32_t critical;
    uint32_t nonRecoverable;
};
ThresholdEventCounts thresholdEventCounts();

// The hand-off to the event interface: attempts, and the sleep after each refused one.
constexpr int kHandOffAttempts = 5;
constexpr DWORD kHandOffRetryMs = 30000;

// Test seam, never used by the product: replaces the sleep between hand-off
// attempts (null restores Sleep).
void setHandOffRetrySleep(void (*sleepFn)(DWORD milliseconds));

#endif
