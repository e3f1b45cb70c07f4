// SEL entry texts in the manner of ipmitool's event list, and the named hardware
// events of the simulated server, both as data.
#include "kelvarn/SelEvents.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "kelvarn/PlatformFile.h"

namespace kelvarn {
namespace {

// IPMI sensor types 0x00-0x2C, as ipmitool names them.
const char* const kSensorTypeNames[] = {
    "reserved",
    "Temperature",
    "Voltage",
    "Current",
    "Fan",
    "Physical Security",
    "Platform Security",
    "Processor",
    "Power Supply",
    "Power Unit",
    "Cooling Device",
    "Other",
    "Memory",
    "Drive Slot / Bay",
    "POST Memory Resize",
    "System Firmwares",
    "Event Logging Disabled",
    "Watchdog1",
    "System Event",
    "Critical Interrupt",
    "Button",
    "Module / Board",
    "Microcontroller",
    "Add-in Card",
    "Chassis",
    "Chip Set",
    "Other FRU",
    "Cable / Interconnect",
    "Terminator",
    "System Boot Initiated",
    "Boot Error",
    "OS Boot",
    "OS Critical Stop",
    "Slot / Connector",
    "System ACPI Power State",
    "Watchdog2",
    "Platform Alert",
    "Entity Presence",
    "Monitor ASIC",
    "LAN",
    "Management Subsys Health",
    "Battery",
    "Session Audit",
    "Version Change",
    "FRU State",
};

// Event texts of one event/reading type (generic types 0x01-0x0C) or, for
// sensor-specific events (0x6F), of one sensor type.
struct EventTexts {
    uint8_t eventReadingType;
    uint8_t sensorType; // sensor-specific rows only
    const char* offsets[15];
};

const EventTexts kEventTexts[] = {
    {0x01,
     0,
     {"Lower Non-critical going low", "Lower Non-critical going high", "Lower Critical going low",
      "Lower Critical going high", "Lower Non-recoverable going low", "Lower Non-recoverable going high",
      "Upper Non-critical going low", "Upper Non-critical going high", "Upper Critical going low",
      "Upper Critical going high", "Upper Non-recoverable going low", "Upper Non-recoverable going high"}},
    {0x02, 0, {"Transition to Idle", "Transition to Active", "Transition to Busy"}},
    {0x03, 0, {"State Deasserted", "State Asserted"}},
    {0x04, 0, {"Predictive Failure Deasserted", "Predictive Failure Asserted"}},
    {0x05, 0, {"Limit Not Exceeded", "Limit Exceeded"}},
    {0x06, 0, {"Performance Met", "Performance Lags"}},
    {0x07,
     0,
     {"Transition to OK", "Transition to Non-critical from OK", "Transition to Critical from less severe",
      "Transition to Non-recoverable from less severe", "Transition to Non-critical from more severe",
      "Transition to Critical from Non-recoverable", "Transition to Non-recoverable", "Monitor",
      "Informational"}},
    {0x08, 0, {"Device Removed/Device Absent", "Device Inserted/Device Present"}},
    {0x09, 0, {"Device Disabled", "Device Enabled"}},
    {0x0A,
     0,
     {"Transition to Running", "Transition to In Test", "Transition to Power Off", "Transition to On Line",
      "Transition to Off Line", "Transition to Off Duty", "Transition to Degraded",
      "Transition to Power Save", "Install Error"}},
    {0x0B,
     0,
     {"Fully Redundant", "Redundancy Lost", "Redundancy Degraded", "Non-Redundant: Sufficient from Redundant",
      "Non-Redundant: Sufficient from Insufficient", "Non-Redundant: Insufficient Resources",
      "Redundancy Degraded from Fully Redundant", "Redundancy Degraded from Non-Redundant"}},
    {0x0C, 0, {"D0 Power State", "D1 Power State", "D2 Power State", "D3 Power State"}},
    {0x6F,
     0x05,
     {"General Chassis intrusion", "Drive Bay intrusion", "I/O Card area intrusion",
      "Processor area intrusion", "System unplugged from LAN", "Unauthorized dock", "FAN area intrusion"}},
    {0x6F,
     0x06,
     {"Front Panel Lockout violation attempted", "Pre-boot password violation - user password",
      "Pre-boot password violation - setup password", "Pre-boot password violation - network boot password",
      "Other pre-boot password violation", "Out-of-band access password violation"}},
    {0x6F,
     0x07,
     {"IERR", "Thermal Trip", "FRB1/BIST failure", "FRB2/Hang in POST failure",
      "FRB3/Processor startup/init failure", "Configuration Error", "SM BIOS Uncorrectable CPU-complex Error",
      "Presence detected", "Disabled", "Terminator presence detected", "Throttled",
      "Uncorrectable machine check exception", "Correctable machine check error"}},
    {0x6F,
     0x08,
     {"Presence detected", "Failure detected", "Predictive failure", "Power Supply AC lost",
      "AC lost or out-of-range", "AC out-of-range, but present", "Config Error"}},
    {0x6F,
     0x09,
     {"Power off/down", "Power cycle", "240VA power down", "Interlock power down", "AC lost",
      "Soft-power control failure", "Failure detected", "Predictive failure"}},
    {0x6F,
     0x0C,
     {"Correctable ECC", "Uncorrectable ECC", "Parity", "Memory Scrub Failed", "Memory Device Disabled",
      "Correctable ECC logging limit reached", "Presence Detected", "Configuration Error", "Spare",
      "Throttled", "Critical Overtemperature"}},
    {0x6F,
     0x0D,
     {"Drive Present", "Drive Fault", "Predictive Failure", "Hot Spare", "Parity Check In Progress",
      "In Critical Array", "In Failed Array", "Rebuild In Progress", "Rebuild Aborted"}},
    {0x6F, 0x0F, {"System Firmware Error", "System Firmware Hang", "System Firmware Progress"}},
    {0x6F,
     0x10,
     {"Correctable memory error logging disabled", "Event logging disabled", "Log area reset/cleared",
      "All event logging disabled", "Log full", "Log almost full"}},
    {0x6F,
     0x11,
     {"BIOS Reset", "OS Reset", "OS Shut Down", "OS Power Down", "OS Power Cycle", "OS NMI/Diag Interrupt",
      "OS Expired", "OS pre-timeout Interrupt"}},
    {0x6F,
     0x12,
     {"System Reconfigured", "OEM System boot event", "Undetermined system hardware failure",
      "Entry added to auxiliary log", "PEF Action", "Timestamp Clock Sync"}},
    {0x6F,
     0x13,
     {"NMI/Diag Interrupt", "Bus Timeout", "I/O Channel check NMI", "Software NMI", "PCI PERR", "PCI SERR",
      "EISA failsafe timeout", "Bus Correctable error", "Bus Uncorrectable error", "Fatal NMI",
      "Bus Fatal Error", "Bus Degraded"}},
    {0x6F,
     0x14,
     {"Power Button pressed", "Sleep Button pressed", "Reset Button pressed", "FRU latch open",
      "FRU service request button"}},
    {0x6F, 0x19, {"Soft Power Control Failure", "Thermal Trip"}},
    {0x6F,
     0x21,
     {"Fault Status asserted", "Identify Status asserted", "Slot/Connector Device installed/attached",
      "Slot/Connector ready for device installation", "Slot/Connector ready for device removal",
      "Slot Power is Off", "Slot/Connector device removal request", "Interlock asserted", "Slot is Disabled",
      "Slot holds spare device"}},
    {0x6F,
     0x23,
     {"Timer expired, status only", "Hard reset", "Power down", "Power cycle", nullptr, nullptr, nullptr,
      nullptr, "Timer interrupt"}},
    {0x6F, 0x25, {"Present", "Absent", "Disabled"}},
    {0x6F, 0x27, {"Heartbeat Lost", "Heartbeat"}},
    {0x6F, 0x29, {"Low", "Failed", "Presence Detected"}},
};

constexpr bool kDe = true; // a deassertion

// One named event for each SEL entry that docs/events.md lists as the source of a
// trap; the other direction of any of them is logged with --deassert.
const NamedEvent kNamedEvents[] = {
    {"temperature-upper-non-critical-going-high", 0x01, 0x01, 7, false},
    {"temperature-upper-critical-going-high", 0x01, 0x01, 9, false},
    {"temperature-upper-critical-going-high-deasserted", 0x01, 0x01, 9, kDe},
    {"temperature-upper-non-recoverable-going-high", 0x01, 0x01, 11, false},
    {"voltage-lower-non-critical-going-low", 0x02, 0x01, 0, false},
    {"voltage-upper-non-critical-going-high", 0x02, 0x01, 7, false},
    {"voltage-lower-critical-going-low", 0x02, 0x01, 2, false},
    {"voltage-lower-critical-going-low-deasserted", 0x02, 0x01, 2, kDe},
    {"voltage-upper-critical-going-high", 0x02, 0x01, 9, false},
    {"voltage-lower-non-recoverable-going-low", 0x02, 0x01, 4, false},
    {"voltage-upper-non-recoverable-going-high", 0x02, 0x01, 11, false},
    {"fan-lower-non-critical-going-low", 0x04, 0x01, 0, false},
    {"fan-upper-non-critical-going-high", 0x04, 0x01, 7, false},
    {"fan-lower-critical-going-low", 0x04, 0x01, 2, false},
    {"fan-lower-critical-going-low-deasserted", 0x04, 0x01, 2, kDe},
    {"fan-upper-critical-going-high", 0x04, 0x01, 9, false},
    {"fan-lower-non-recoverable-going-low", 0x04, 0x01, 4, false},
    {"fan-upper-non-recoverable-going-high", 0x04, 0x01, 11, false},
    {"fan-device-removed", 0x04, 0x08, 0, false},
    {"fan-fully-redundant", 0x04, 0x0B, 0, false},
    {"fan-redundancy-degraded", 0x04, 0x0B, 2, false},
    {"fan-fully-redundant-deasserted", 0x04, 0x0B, 0, kDe},
    {"chassis-intrusion", 0x05, 0x6F, 0, false},
    {"chassis-intrusion-deasserted", 0x05, 0x6F, 0, kDe},
    {"processor-ierr", 0x07, 0x6F, 0, false},
    {"processor-thermal-trip", 0x07, 0x6F, 1, false},
    {"processor-frb1-bist-failure", 0x07, 0x6F, 2, false},
    {"processor-frb2-hang-in-post", 0x07, 0x6F, 3, false},
    {"processor-frb3-startup-failure", 0x07, 0x6F, 4, false},
    {"processor-configuration-error", 0x07, 0x6F, 5, false},
    {"processor-uncorrectable-cpu-complex-error", 0x07, 0x6F, 6, false},
    {"processor-presence-detected", 0x07, 0x6F, 7, false},
    {"processor-disabled", 0x07, 0x6F, 8, false},
    {"processor-terminator-presence-detected", 0x07, 0x6F, 9, false},
    {"psu-presence-detected", 0x08, 0x6F, 0, false},
    {"psu-presence-detected-deasserted", 0x08, 0x6F, 0, kDe},
    {"psu-failure-detected", 0x08, 0x6F, 1, false},
    {"psu-predictive-failure", 0x08, 0x6F, 2, false},
    {"psu-input-lost", 0x08, 0x6F, 3, false},
    {"psu-input-lost-deasserted", 0x08, 0x6F, 3, kDe},
    {"power-fully-redundant", 0x09, 0x0B, 0, false},
    {"power-redundancy-lost", 0x09, 0x0B, 1, false},
    {"power-redundancy-degraded", 0x09, 0x0B, 2, false},
    {"memory-correctable-ecc", 0x0C, 0x6F, 0, false},
    {"memory-uncorrectable-ecc", 0x0C, 0x6F, 1, false},
    {"memory-parity", 0x0C, 0x6F, 2, false},
    {"memory-scrub-failed", 0x0C, 0x6F, 3, false},
    {"memory-device-disabled", 0x0C, 0x6F, 4, false},
    {"memory-ecc-logging-limit-reached", 0x0C, 0x6F, 5, false},
    {"drive-present", 0x0D, 0x6F, 0, false},
    {"drive-present-deasserted", 0x0D, 0x6F, 0, kDe},
    {"system-reconfigured", 0x12, 0x6F, 0, false},
    {"system-boot", 0x12, 0x6F, 1, false},
    {"system-hardware-failure", 0x12, 0x6F, 2, false},
    {"slot-fault", 0x21, 0x6F, 0, false},
    {"slot-device-installed", 0x21, 0x6F, 2, false},
    {"slot-power-off", 0x21, 0x6F, 5, false},
    {"slot-power-off-deasserted", 0x21, 0x6F, 5, kDe},
};

const EventTexts* findTexts(uint8_t sensorType, uint8_t eventReadingType) {
    for (const EventTexts& t : kEventTexts)
        if (t.eventReadingType == eventReadingType &&
            (eventReadingType != 0x6F || t.sensorType == sensorType))
            return &t;
    return nullptr;
}

std::vector<SdrFields> sensorsOf(const PlatformModel& model) {
    std::vector<SdrFields> list;
    for (const Bytes& rec : model.sdr) {
        SdrFields f;
        if (decodeSdr(rec, f))
            list.push_back(f);
    }
    return list;
}

bool parseByte(const std::string& text, uint8_t& out) {
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 0);
    if (errno || *end || v < 0 || v > 255)
        return false;
    out = static_cast<uint8_t>(v);
    return true;
}

} // namespace

std::string selSensorTypeName(uint8_t sensorType) {
    if (sensorType < sizeof kSensorTypeNames / sizeof kSensorTypeNames[0])
        return kSensorTypeNames[sensorType];
    return sensorType >= 0xC0 ? "OEM reserved" : "reserved";
}

std::string selEventText(uint8_t sensorType, uint8_t eventReadingType, unsigned offset) {
    const EventTexts* t = findTexts(sensorType, eventReadingType);
    if (t && offset < 15 && t->offsets[offset])
        return t->offsets[offset];
    char buf[40];
    std::snprintf(buf, sizeof buf, "Unknown event offset 0x%x", offset & 0xFFu);
    return buf;
}

std::string selEntryText(const std::array<uint8_t, 16>& raw, const std::string& sensorName) {
    if (raw[2] != 0x02) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "OEM record type 0x%02x", raw[2]);
        return buf;
    }
    std::string name = sensorName;
    if (name.empty()) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "#0x%02x", raw[11]);
        name = buf;
    }
    return selSensorTypeName(raw[10]) + " " + name + " | " +
           selEventText(raw[10], static_cast<uint8_t>(raw[12] & 0x7F), raw[13] & 0x0Fu) + " | " +
           ((raw[12] & 0x80) ? "Deasserted" : "Asserted");
}

std::string selTimestampText(const std::array<uint8_t, 16>& raw) {
    if (raw[2] >= 0xE0) // OEM records without a time stamp
        return "";
    const time_t t = static_cast<time_t>(static_cast<uint32_t>(raw[3] | raw[4] << 8 | raw[5] << 16) |
                                         static_cast<uint32_t>(raw[6]) << 24);
    struct tm tmv;
    char buf[32];
    if (!gmtime_r(&t, &tmv) || !std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tmv))
        return "";
    return buf;
}

const NamedEvent* namedEvents(size_t& count) {
    count = sizeof kNamedEvents / sizeof kNamedEvents[0];
    return kNamedEvents;
}

const NamedEvent* findNamedEvent(const std::string& name) {
    for (const NamedEvent& e : kNamedEvents)
        if (name == e.name)
            return &e;
    return nullptr;
}

SdrFields findSensorBySpec(const PlatformModel& model, const std::string& spec) {
    const std::vector<SdrFields> sensors = sensorsOf(model);
    for (const SdrFields& f : sensors)
        if (f.name == spec)
            return f;
    SensorAddress a;
    const size_t c1 = spec.find(':');
    const size_t c2 = c1 == std::string::npos ? c1 : spec.find(':', c1 + 1);
    bool ok;
    if (c2 != std::string::npos)
        ok = parseByte(spec.substr(0, c1), a.owner) && parseByte(spec.substr(c1 + 1, c2 - c1 - 1), a.lun) &&
             parseByte(spec.substr(c2 + 1), a.number);
    else
        ok = parseByte(spec, a.number);
    if (!ok)
        throw PlatformFileError("no sensor is named \"" + spec + "\"");
    for (const SdrFields& f : sensors)
        if (f.owner == a.owner && f.lun == a.lun && f.number == a.number)
            return f;
    throw PlatformFileError("no sensor " + spec + " in the platform");
}

std::string namedEventJournalLine(const PlatformModel& model, const NamedEvent& event,
                                  const std::string& sensorSpec, uint32_t time, bool invert) {
    SdrFields sensor;
    if (!sensorSpec.empty()) {
        sensor = findSensorBySpec(model, sensorSpec);
        if (sensor.sensorType != event.sensorType)
            throw PlatformFileError("sensor \"" + sensor.name + "\" is of sensor type " +
                                    std::to_string(sensor.sensorType) + ", " + event.name + " needs type " +
                                    std::to_string(event.sensorType));
    } else {
        const std::vector<SdrFields> sensors = sensorsOf(model);
        const SdrFields* pick = nullptr;
        for (const SdrFields& f : sensors)
            if (f.sensorType == event.sensorType && f.eventReadingType == event.eventReadingType) {
                pick = &f;
                break;
            }
        for (size_t i = 0; !pick && i < sensors.size(); ++i)
            if (sensors[i].sensorType == event.sensorType)
                pick = &sensors[i];
        if (!pick)
            throw PlatformFileError(std::string("the platform has no sensor of sensor type ") +
                                    std::to_string(event.sensorType) + " (" +
                                    selSensorTypeName(event.sensorType) + ") for " + event.name);
        sensor = *pick;
    }
    // The generator ID carries the sensor's owner and, in bits 8-9, its LUN.
    const unsigned generator = sensor.owner | (sensor.lun & 0x03u) << 8;
    return "sel-add " + std::to_string(time) + " " + std::to_string(generator) + " " +
           std::to_string(sensor.number) + " " + std::to_string(event.offset) + " " +
           ((event.deassertion != invert) ? "deassert" : "assert") + " 255 255 " +
           std::to_string(event.sensorType) + " " + std::to_string(event.eventReadingType);
}

} // namespace kelvarn
