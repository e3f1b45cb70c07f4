// The event interface and the event clones, one per kind of hardware event.
#include "events/eventInterface.h"

#include <atomic>
#include <cstring>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "events/eventData.h"
#include "events/eventSink.h"

namespace {

// The sink the front end installs at start-up (one atomic per call: a poller from an earlier
// start may read it while a new start installs it).
std::atomic<void (*)(eventData)> g_sinkQueue{nullptr};
std::atomic<int (*)()> g_sinkWake{nullptr};
std::atomic<unsigned char (*)()> g_sinkStarted{nullptr};

bool startUpDone() {
    unsigned char (*started)() = g_sinkStarted.load();
    return started != nullptr && started() != 0;
}

// Copies at most maxChars characters of text and a NUL into a field of size N.
template <size_t N> void copyField(char (&field)[N], const char* text, size_t maxChars) {
    size_t n = text == nullptr ? 0 : strnlen(text, maxChars);
    if (n > N - 1) {
        n = N - 1;
    }
    if (n > 0) {
        std::memcpy(field, text, n);
    }
    field[n] = '\0';
}

constexpr EventClone SNMP_BiosEventClone = {
    2,
    "SNMP_BiosEventClone",
    {0, 0},
    "SNMP_BiosEventClone::HandleEvent() called\n",
    "SNMP_BiosEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_BiosEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_ChassisEventClone = {
    3,
    "SNMP_ChassisEventClone",
    {0, 0},
    "SNMP_ChassisEventClone::HandleEvent() called\n",
    "SNMP_ChassisEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_ChassisEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_CoolingSensorEventClone = {
    4,
    "SNMP_CoolingSensorEventClone",
    {coolingDeviceEntity, discreteCoolingEntity},
    "SNMP_CoolingSensorEventClone::HandleEvent() called\n",
    "SNMP_CoolingSensorEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_CoolingSensorEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_CoolingSpareEventClone = {
    5,
    "SNMP_CoolingSpareEventClone",
    {coolingUnitEntity, discreteCoolingEntity},
    "SNMP_CoolingSpareEventClone::HandleEvent() called\n",
    "SNMP_CoolingSpareEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_CoolingSpareEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_MemoryEventClone = {
    8,
    "SNMP_MemoryEventClone",
    {memoryDeviceEntity, 0},
    "SNMP_MemoryEventClone::HandleEvent() called\n",
    "SNMP_MemoryEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_MemoryEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_PhpSlotEventClone = {
    9,
    "SNMP_PhpSlotEventClone",
    {0, 0},
    "SNMP_PhpSlotEventClone::HandleEvent() called\n",
    "SNMP_PhpSlotEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_PhpSlotEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_PowerSupplyEventClone = {
    10,
    "SNMP_PowerSupplyEventClone",
    {powerSupplyEntity, 0},
    "SNMP_PowerSupplyEventClone::HandleEvent() called\n",
    "SNMP_PowerSupplyEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_PowerSupplyEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_PowerSpareEventClone = {
    11,
    "SNMP_PowerSpareEventClone",
    {0, 0},
    "SNMP_PowerSpareEventClone::HandleEvent() called\n",
    "SNMP_PowerSpareEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_PowerSpareEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_ProcessorEventClone = {
    12,
    "SNMP_ProcessorEventClone",
    {processorDeviceEntity, 0},
    "SNMP_ProcessorEventClone::HandleEvent() called\n",
    "SNMP_ProcessorEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_ProcessorEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_TemperatureSensorEventClone = {
    14,
    "SNMP_TemperatureSensorEventClone",
    {temperatureProbeEntity, 0},
    "\n SNMP_TemperatureSensorEventClone::HandleEvent Called:",
    "SNMP_TemperatureSensorEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_TemperatureEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_VoltageSensorEventClone = {
    15,
    "SNMP_VoltageSensorEventClone",
    {voltageProbeEntity, discreteVoltageEntity},
    "SNMP_VoltageSensorEventClone::HandleEvent() called\n",
    "SNMP_VoltageSensorEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_VoltageSensorEventClone EventGroup : %d:",
};
constexpr EventClone SNMP_DriveSlotEventClone = {
    19,
    "SNMP_DriveSlotEventClone",
    {driveSlotEntity, 0},
    "SNMP_DriveSlotEventClone::HandleEvent() called\n",
    "SNMP_DriveSlotEventClone::HandleEvent GetDescription:%s:\n",
    "\n Inside SNMP_DriveSlotEventClone EventGroup : %d:",
};

constexpr const EventClone* kClones[] = {
    &SNMP_BiosEventClone,          &SNMP_ChassisEventClone,
    &SNMP_CoolingSensorEventClone, &SNMP_CoolingSpareEventClone,
    &SNMP_MemoryEventClone,        &SNMP_PhpSlotEventClone,
    &SNMP_PowerSupplyEventClone,   &SNMP_PowerSpareEventClone,
    &SNMP_ProcessorEventClone,     &SNMP_TemperatureSensorEventClone,
    &SNMP_VoltageSensorEventClone, &SNMP_DriveSlotEventClone,
};

} // namespace

const EventClone* findEventClone(int type) {
    for (const EventClone* clone : kClones) {
        if (clone->type == type) {
            return clone;
        }
    }
    return nullptr;
}

int runEventClone(const EventClone& clone, CEventWrapper& event) {
    debugLog("%s", clone.calledLog);
    eventData record;
    std::memset(&record, 0, sizeof(record));

    debugLog("\n The value of IsAsserted is %d:", event.IsAsserted() ? 1 : 0);
    record.nDeviceID = event.getDeviceId();
    debugLog("\n\n The value of deviceId is %d:", record.nDeviceID);

    // The device's row: the first entity whose table knows the id.
    for (uint32_t entity : clone.entities) {
        if (entity == 0) {
            break;
        }
        const uint32_t position = findElementById(entity, static_cast<uint32_t>(record.nDeviceID));
        if (position == 0) {
            continue;
        }
        record.nInstIndex = static_cast<int32_t>(position);
        copyField(record.stDeviceDesc, getElementName(entity, position - 1), sizeof(record.stDeviceDesc) - 1);
        break;
    }

    debugLog("\n\n The value of nInstIndex is %d:", record.nInstIndex);

    const CString& description = event.getDescription();
    debugLog("\n The value of getLength is :%d :", static_cast<int>(description.GetLength()));
    description.Narrow(record.stEventDesc, sizeof(record.stEventDesc), kEventDescriptionChars);
    debugLog(clone.descriptionLog, record.stEventDesc);

    const std::string& status = event.getStatus();
    debugLog("\n The length of getStatus is :%d :", static_cast<int>(status.size()));
    record.nSeverity = mapHealthNameToStatus(status.c_str());

    copyField(record.stTimeStamp, event.getTimeStamp().c_str(), sizeof(record.stTimeStamp) - 1);
    copyField(record.stSensorType, event.getSensorType().c_str(), sizeof(record.stSensorType) - 1);

    // The event type carries the direction: 1 assertion, 0 deassertion.
    record.nEventType = event.IsAsserted() ? 1 : 0;
    record.nEventGroup = clone.type;
    debugLog(clone.groupLog, record.nEventGroup);
    // Installed at start-up, which HandleEvent checked was done before calling here.
    void (*queue)(eventData) = g_sinkQueue.load();
    int (*wake)() = g_sinkWake.load();
    if (queue != nullptr) {
        queue(record);
    }
    if (wake != nullptr) {
        wake();
    }
    return 1;
}

CEventInterface::CEventInterface() = default;

CEventInterface::~CEventInterface() = default;

CEventInterface& CEventInterface::operator=(const CEventInterface&) = default;

SNMP_EventInterface::SNMP_EventInterface() = default;

SNMP_EventInterface::~SNMP_EventInterface() = default;

int SNMP_EventInterface::HandleEvent(CEventWrapper& event, int type) {
    debugLog("\nSNMP_EventInterface::HandleEvent starting\n");
    if (!startUpDone()) {
        debugLog("initialzation not complete yet\n");
        return 0;
    }
    if (!isTrapsEnabled()) {
        debugLog("traps disabled...\n");
        return 0;
    }
    debugLog("traps enabled\n");
    const EventClone* clone = findEventClone(type);
    if (clone == nullptr) {
        return 0;
    }
    return runEventClone(*clone, event);
}

void setEventSink(const EventSink& sink) {
    g_sinkQueue.store(sink.queue);
    g_sinkWake.store(sink.wake);
    g_sinkStarted.store(sink.started);
}
