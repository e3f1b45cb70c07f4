// The fixed-size record of one event, copied whole by value.
#ifndef HM_EVENTS_EVENTDATA_H
#define HM_EVENTS_EVENTDATA_H

#include <cstdint>

struct eventData {
    int32_t nInstIndex;     // 1-based instance of the device in its MIB table
    int32_t nDeviceID;      // device (sensor) id, key of the health lists
    char stDeviceDesc[128]; // device description
    char stEventDesc[1024]; // event description; the trap is selected by searching it
    int32_t nSeverity;      // status code: 1 other .. 6 nonRecoverable
    char stTimeStamp[128];  // time stamp text
    char stSensorType[128]; // sensor-type text
    int32_t nEventType;     // logged only
    int32_t nEventGroup;    // event group: decides the trap family and health accounting
};

#endif
