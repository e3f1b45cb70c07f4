// The words every folder of the agent shares: the export mark, the entity codes, the
// client status codes and the absence sentinel. It sits at the bottom of the agent and
// includes nothing of it.
#ifndef HM_PLATFORM_HMVOCABULARY_H
#define HM_PLATFORM_HMVOCABULARY_H

#include <cstdint>

// Marks the names the agent library exports; everything else stays hidden.
#if defined(_WIN32)
#define HM_EXPORT __declspec(dllexport)
#else
#define HM_EXPORT __attribute__((visibility("default")))
#endif

// Hardware groups; the entity code equals the MIB subtree index plus one.
enum HMEntity : uint32_t {
    systemManagementEntity = 1,
    chassisInfoEntity = 2,
    processorDeviceEntity = 3,
    powerUnitEntity = 4,
    powerSupplyEntity = 5,
    voltageProbeEntity = 6,
    discreteVoltageEntity = 7,
    memoryArrayEntity = 8,
    memoryDeviceEntity = 9,
    coolingUnitEntity = 10,
    coolingDeviceEntity = 11,
    discreteCoolingEntity = 12,
    temperatureProbeEntity = 13,
    driveSlotEntity = 14,
};

// Client status codes returned by the facade and the groups.
constexpr uint32_t CLIENT_SUCCESS = 0;
constexpr uint32_t CLIENT_ERROR_NOMEMORY = 2;
constexpr uint32_t CLIENT_ERROR_NOTSUPPORTED = 4;
constexpr uint32_t CLIENT_ERROR_NOGROUP = 8;
constexpr uint32_t CLIENT_ERROR_NOSUCHNAME = 9;
constexpr uint32_t CLIENT_ERROR_NOCONFIGFILE = 10;
constexpr uint32_t CLIENT_ERROR_NOELEMENT = 32;

// Absence sentinel of every reading and threshold.
constexpr int32_t NO_VALUE = 2147483647;

#endif
