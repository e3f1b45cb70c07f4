// The per-offset meaning of hardware events. The texts are the ones the trap
// selection searches for (events/eventOids.cpp), so a row here decides which trap an
// event becomes; docs/events.md lists the SEL entry behind each trap.
#include "events/eventDescriptions.h"

namespace {

constexpr const char* OK = "OK";
constexpr const char* DEGRADED = "Degraded";
constexpr const char* ERROR_ = "Error";
constexpr const char* FATAL = "Fatal";
constexpr const char* INFO = "Information";

// Sensor types (IPMI table 42-3).
enum : uint8_t {
    kPhysicalSecurity = 0x05,
    kPlatformSecurity = 0x06,
    kProcessor = 0x07,
    kPowerSupply = 0x08,
    kMemory = 0x0C,
    kDriveSlot = 0x0D,
    kFirmwareProgress = 0x0F,
    kEventLogging = 0x10,
    kWatchdog1 = 0x11,
    kSystemEvent = 0x12,
    kCriticalInterrupt = 0x13,
    kChipSet = 0x19,
    kSlotConnector = 0x21,
    kWatchdog2 = 0x23,
};

const EventOffsetDescription kDescriptions[] = {
    // Physical security (chassis intrusion).
    {kPhysicalSecurity, 0, "there has been a chassis intrusion", ERROR_, "Chassis OK", OK},
    {kPhysicalSecurity, 1, "there has been a drive bay intrusion", ERROR_, "drive bay intrusion has cleared",
     OK},
    {kPhysicalSecurity, 2, "there has been an I/O card area intrusion", ERROR_,
     "I/O card area intrusion has cleared", OK},
    {kPhysicalSecurity, 3, "there has been a processor area intrusion", ERROR_,
     "processor area intrusion has cleared", OK},
    {kPhysicalSecurity, 4, "the LAN leash has been lost", ERROR_, "the LAN leash has been restored", OK},
    {kPhysicalSecurity, 5, "there has been an unauthorized dock or undock", ERROR_,
     "unauthorized dock or undock has cleared", OK},
    {kPhysicalSecurity, 6, "there has been a fan area intrusion", ERROR_, "fan area intrusion has cleared",
     OK},

    // Platform security violation attempts.
    {kPlatformSecurity, 0, "secure mode violation attempt", INFO, nullptr, OK},
    {kPlatformSecurity, 1, "pre-boot user password violation attempt", INFO, nullptr, OK},
    {kPlatformSecurity, 2, "pre-boot setup password violation attempt", INFO, nullptr, OK},
    {kPlatformSecurity, 3, "pre-boot network boot password violation attempt", INFO, nullptr, OK},
    {kPlatformSecurity, 4, "other pre-boot password violation attempt", INFO, nullptr, OK},
    {kPlatformSecurity, 5, "out-of-band access password violation attempt", INFO, nullptr, OK},

    // Processor.
    {kProcessor, 0, "IERR (Internal Error)", FATAL, nullptr, OK},
    {kProcessor, 1, "Thermal Trip", FATAL, nullptr, OK},
    {kProcessor, 2, "FRB1/BIST Failure", ERROR_, nullptr, OK},
    {kProcessor, 3, "FRB2/Hang in POST Failure", ERROR_, nullptr, OK},
    {kProcessor, 4, "FRB3/Processor Startup/Initialization Failure", ERROR_, nullptr, OK},
    {kProcessor, 5, "Configuration Error", ERROR_, nullptr, OK},
    {kProcessor, 6, "SM BIOS 'Uncorrectable CPU-Complex Error'", FATAL, nullptr, OK},
    {kProcessor, 7, "processor's presence has been detected", INFO, "processor is no longer present", OK},
    {kProcessor, 8, "processor has been disabled", DEGRADED, "processor has been enabled", OK},
    {kProcessor, 9, "terminator's presence has been detected", INFO, "terminator is no longer present", OK},
    {kProcessor, 10, "processor has been automatically throttled", DEGRADED, "processor throttling has ended",
     OK},
    {kProcessor, 11, "machine check exception (uncorrectable)", FATAL, nullptr, OK},
    {kProcessor, 12, "correctable machine check error", DEGRADED, nullptr, OK},

    // Power supply.
    {kPowerSupply, 0, "power supply's presence has been detected", OK,
     "power supply's presence has been lost", ERROR_},
    {kPowerSupply, 1, "power supply has suffered a failure", ERROR_, "power supply failure has cleared", OK},
    {kPowerSupply, 2, "predictive failure has been detected for the power supply", DEGRADED,
     "predictive failure of the power supply has cleared", OK},
    {kPowerSupply, 3, "power supply's input (AC/DC) has been lost", ERROR_,
     "power supply's input (AC/DC) has been regained", OK},
    {kPowerSupply, 4, "power supply's input (AC/DC) has been lost or is out of range", ERROR_,
     "power supply's input (AC/DC) has been regained", OK},
    {kPowerSupply, 5, "power supply's input is out of range but present", DEGRADED,
     "power supply's input is back in range", OK},
    {kPowerSupply, 6, "power supply configuration error", ERROR_,
     "power supply configuration error has cleared", OK},

    // Memory.
    {kMemory, 0, "correctable ECC error has been detected", DEGRADED, nullptr, OK},
    {kMemory, 1, "uncorrectable ECC error has been detected", FATAL, nullptr, OK},
    {kMemory, 2, "Parity Error has been detected", ERROR_, nullptr, OK},
    {kMemory, 3, "memory scrub failed", ERROR_, nullptr, OK},
    {kMemory, 4, "memory device has been disabled", DEGRADED, "memory device has been enabled", OK},
    {kMemory, 5, "correctable memory error logging has been disabled", DEGRADED,
     "correctable memory error logging has been enabled", OK},
    {kMemory, 6, "memory device's presence has been detected", INFO, "memory device is no longer present",
     OK},
    {kMemory, 7, "memory configuration error", ERROR_, "memory configuration error has cleared", OK},
    {kMemory, 8, "memory spare", INFO, nullptr, OK},
    {kMemory, 9, "memory has been automatically throttled", DEGRADED, "memory throttling has ended", OK},
    {kMemory, 10, "memory critical overtemperature", FATAL, "memory temperature is back to normal", OK},

    // Drive slot (bay): presence and fault.
    {kDriveSlot, 0, "drive slot reports the device has been inserted or is present", OK,
     "drive slot reports the device has been removed or is absent", ERROR_},
    {kDriveSlot, 1, "drive slot reports a drive fault", ERROR_,
     "drive slot reports the drive fault has cleared", OK},

    // System firmware progress.
    {kFirmwareProgress, 0, "system firmware error (POST error)", ERROR_, nullptr, OK},
    {kFirmwareProgress, 1, "system firmware hang", FATAL, nullptr, OK},
    {kFirmwareProgress, 2, "system firmware progress", INFO, nullptr, OK},

    // Event logging.
    {kEventLogging, 0, "correctable memory error logging has been disabled", DEGRADED, nullptr, OK},
    {kEventLogging, 1, "event type logging has been disabled", INFO, nullptr, OK},
    {kEventLogging, 2, "the event log has been cleared", INFO, nullptr, OK},
    {kEventLogging, 3, "all event logging has been disabled", DEGRADED, nullptr, OK},
    {kEventLogging, 4, "the event log is full", DEGRADED, nullptr, OK},
    {kEventLogging, 5, "the event log is almost full", DEGRADED, nullptr, OK},

    // System event.
    {kSystemEvent, 0, "system has been reconfigured", INFO, nullptr, OK},
    {kSystemEvent, 1, "system boot event has occurred", INFO, nullptr, OK},
    {kSystemEvent, 2, "undetermined system hardware failure", FATAL, nullptr, OK},
    {kSystemEvent, 3, "an entry has been added to the auxiliary log", INFO, nullptr, OK},
    {kSystemEvent, 4, "a platform event filter action has been taken", INFO, nullptr, OK},
    {kSystemEvent, 5, "the system clock has been synchronised", INFO, nullptr, OK},

    // Critical interrupt.
    {kCriticalInterrupt, 0, "front panel NMI or diagnostic interrupt", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 1, "bus timeout", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 2, "I/O channel check NMI", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 3, "software NMI", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 4, "PCI PERR", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 5, "PCI SERR", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 6, "EISA fail-safe timeout", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 7, "bus correctable error", DEGRADED, nullptr, OK},
    {kCriticalInterrupt, 8, "bus uncorrectable error", ERROR_, nullptr, OK},
    {kCriticalInterrupt, 9, "fatal NMI", FATAL, nullptr, OK},
    {kCriticalInterrupt, 10, "bus fatal error", FATAL, nullptr, OK},
    {kCriticalInterrupt, 11, "bus degraded", DEGRADED, nullptr, OK},

    // Chip set.
    {kChipSet, 0, "chip set soft power control failure", ERROR_, nullptr, OK},
    {kChipSet, 1, "chip set thermal trip", FATAL, nullptr, OK},

    // Watchdog 1 and watchdog 2.
    {kWatchdog1, 0, "BIOS watchdog reset", INFO, nullptr, OK},
    {kWatchdog1, 1, "OS watchdog reset", INFO, nullptr, OK},
    {kWatchdog1, 2, "OS watchdog shut down", INFO, nullptr, OK},
    {kWatchdog1, 3, "OS watchdog power down", INFO, nullptr, OK},
    {kWatchdog1, 4, "OS watchdog power cycle", INFO, nullptr, OK},
    {kWatchdog1, 5, "OS watchdog NMI or diagnostic interrupt", INFO, nullptr, OK},
    {kWatchdog1, 6, "OS watchdog expired, status only", INFO, nullptr, OK},
    {kWatchdog1, 7, "OS watchdog pre-timeout interrupt", INFO, nullptr, OK},
    {kWatchdog2, 0, "watchdog timer expired, status only", INFO, nullptr, OK},
    {kWatchdog2, 1, "watchdog hard reset", INFO, nullptr, OK},
    {kWatchdog2, 2, "watchdog power down", INFO, nullptr, OK},
    {kWatchdog2, 3, "watchdog power cycle", INFO, nullptr, OK},
    {kWatchdog2, 8, "watchdog timer interrupt", INFO, nullptr, OK},

    // Slot/connector (hot-plug PCI slot). The trap selection looks for the upper-case
    // words "ON" and "OFF", so only the slot power texts carry them.
    {kSlotConnector, 0, "slot fault status asserted", ERROR_, "slot fault status cleared", OK},
    {kSlotConnector, 1, "slot identify status asserted", OK, "slot identify status cleared", OK},
    {kSlotConnector, 2, "device installed in the slot", OK, "device removed from the slot", OK},
    {kSlotConnector, 3, "slot ready for device installation", OK, nullptr, OK},
    {kSlotConnector, 4, "slot ready for device removal", OK, nullptr, OK},
    {kSlotConnector, 5, "slot power is OFF", OK, "slot power is ON", OK},
    {kSlotConnector, 6, "device removal requested for the slot", OK, nullptr, OK},
    {kSlotConnector, 7, "slot interlock asserted", OK, "slot interlock cleared", OK},
    {kSlotConnector, 8, "slot is disabled", ERROR_, "slot is enabled", OK},
    {kSlotConnector, 9, "slot holds a spare device", OK, nullptr, OK},
};

const char* const kThresholdEvents[12] = {
    "Lower Non-critical going low", "Lower Non-critical going high",   "Lower Critical going low",
    "Lower Critical going high",    "Lower Non-recoverable going low", "Lower Non-recoverable going high",
    "Upper Non-critical going low", "Upper Non-critical going high",   "Upper Critical going low",
    "Upper Critical going high",    "Upper Non-recoverable going low", "Upper Non-recoverable going high",
};

const char* const kPresenceEvents[2] = {"Device Removed/Device Absent", "Device Inserted/Device Present"};

const char* const kRedundancyEvents[8] = {
    "Fully Redundant",
    "Redundancy Lost",
    "Redundancy Degraded",
    "Non-redundant: Sufficient Resources from Redundant",
    "Non-redundant: Sufficient Resources from Insufficient Resources",
    "Non-redundant: Insufficient Resources",
    "Redundancy Degraded from Fully Redundant",
    "Redundancy Degraded from Non-redundant",
};

} // namespace

const EventOffsetDescription* findOffsetDescription(uint8_t sensorType, uint8_t offset) {
    for (const EventOffsetDescription& row : kDescriptions) {
        if (row.sensorType == sensorType && row.offset == offset) {
            return &row;
        }
    }
    return nullptr;
}

const char* offsetDescriptionText(const EventOffsetDescription& row, bool asserted) {
    return asserted || row.deassertion == nullptr ? row.assertion : row.deassertion;
}

const char* offsetDescriptionStatus(const EventOffsetDescription& row, bool asserted) {
    return asserted ? row.assertionStatus : row.deassertionStatus;
}

const EventOffsetDescription* offsetDescriptions(size_t* count) {
    if (count != nullptr) {
        *count = sizeof(kDescriptions) / sizeof(kDescriptions[0]);
    }
    return kDescriptions;
}

const char* thresholdEventDescription(uint8_t offset) {
    return offset < 12 ? kThresholdEvents[offset] : nullptr;
}

const char* presenceEventDescription(uint8_t offset) {
    return offset < 2 ? kPresenceEvents[offset] : nullptr;
}

const char* redundancyEventDescription(uint8_t offset) {
    return offset < 8 ? kRedundancyEvents[offset] : nullptr;
}
