// Current readings and thresholds of a sensor, read through the query service.
#include "platform/sensorReading.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "core/debugLog.h"
#include "platform/queryService.h"
#include "platform/stateStrings.h"

namespace {

// Room for the longest sensor path: five numbers and the longest key.
constexpr size_t kPathSize = 256;

// The service's answer for one kind: its key and whether it is a threshold
// ("]/THRESHOLD/" + key) or an attribute of the sensor ("]/" + key).
const char* thresholdKey(int32_t kind) {
    switch (kind) {
    case THRESHOLD_UPPER_CRITICAL:
        return "UPPER_CRITICAL";
    case THRESHOLD_UPPER_NONCRITICAL:
        return "UPPER_NONCRITICAL";
    case THRESHOLD_UPPER_NONRECOVERABLE:
        return "UPPER_NONRECOVERABLE";
    case THRESHOLD_LOWER_NONCRITICAL:
        return "LOWER_NONCRITICAL";
    case THRESHOLD_LOWER_NONRECOVERABLE:
        return "LOWER_NONRECOVERABLE";
    case THRESHOLD_LOWER_CRITICAL:
        return "LOWER_CRITICAL";
    case THRESHOLD_TOLERANCE:
        return "TOLERANCE";
    case THRESHOLD_RESOLUTION:
        return "RESOLUTION";
    case THRESHOLD_ACCURACY:
        return "ACCURACY";
    default:
        return "UPPER_CRITICAL";
    }
}

bool isThresholdForm(int32_t kind) {
    return kind <= THRESHOLD_LOWER_CRITICAL;
}

// Truncation toward zero of a product that must fit a signed 32-bit integer;
// NO_VALUE (with a trace line) when it does not.
template <class Real> int32_t truncateProduct(Real product) {
    if (!(product > static_cast<Real>(-2147483649.0) && product < static_cast<Real>(2147483648.0))) {
        debugLog("\n Converted value %f is out of range, NO_VALUE is set\n", static_cast<double>(product));
        return NO_VALUE;
    }
    return static_cast<int32_t>(product);
}

} // namespace

void GetSensorData2(CSensorWrapper* sensor, int32_t multiplier) {
    if (sensor == nullptr) {
        return;
    }
    CSensorInfo& info = sensor->m_SensorInfo;
    CSensorData& data = sensor->m_SensorData;
    char name[CString::kLogBufferSize];
    debugLog("\n\n Entering GetSensorData2 for sensor %s with sensor number %d and type %d\n\n ",
             info.stName.NarrowForLog(name), info.nSensorNumber, info.nSensorType);

    char path[kPathSize];
    composeSensorPath(path, sizeof path, info.nSensorNumber, info.nOwnerID, info.nLUN,
                      "]/INTERPRET_SENSOR_VALUE");
    debugLog("\nSensor Value Querry = %s\n", path);

    QueryResult result;
    try {
        queryService().Get(path, result);
        QueryResult::const_iterator it = result.find(path);
        if (it != result.end() && it->second.NodeType == 0 && !it->second.Values.empty()) {
            const char* value = it->second.Values[0].c_str();
            debugLog("\n Sensor value querry %s, \n provided value = %s\n", path, value);
            std::string mapped;
            MapMultipleCRStrToSNMPStr(value, mapped);
            debugLog("\n Sensor value aftermap = %s", mapped.c_str());
            data.stReadingText = CString(mapped.c_str());
            if (data.stReadingText.Equals("READING_UNAVAILABLE")) {
                data.nReading = NO_VALUE;
            } else {
                const double parsed = atof(value);
                if (std::fabs(parsed) <= FLT_MAX) {
                    const float reading = static_cast<float>(parsed);
                    data.nReading = truncateProduct<float>(reading * static_cast<float>(multiplier));
                } else {
                    data.nReading = truncateProduct<double>(parsed); // out of range (or not a number)
                }
            }
            debugLog("\n End of value %d, \n ", data.nReading);
        }
    } catch (const ResultStatus& status) {
        debugLog("\n Failed for SensorReadingquery\n");
        logQueryFailure(status, path, QUERY_FAILURE_VALUE);
    }
    dumpResultMap(result);
    debugLog("\n End of the GetSensorData2 Function");
}

int32_t GetThresholdValue(uint32_t sensorNumber, uint32_t ownerId, uint32_t lun, int32_t rawSdrByte,
                          int32_t multiplier, int32_t kind) {
    int32_t value = NO_VALUE;
    int32_t raw = rawSdrByte;
    const int sensor = static_cast<int>(sensorNumber);
    const int owner = static_cast<int>(ownerId);
    const int lunByte = static_cast<int>(lun);
    QueryResult result;
    char path[kPathSize];

    if (kind != THRESHOLD_NONE) {
        composeSensorPath(path, sizeof path, sensor, owner, lunByte,
                          isThresholdForm(kind) ? "]/THRESHOLD/" : "]/", thresholdKey(kind));
        debugLog("\nThresholdquery = %s\n", path);
        queryService().Get(path, result);
        debugLog("\nThresholdquery results Map returns = %d\n", static_cast<int>(result.size()));
        for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
            if (it->second.Values.empty()) {
                continue;
            }
            const std::string& text = it->second.Values[0];
            if (text != "NOT SUPPORTED") {
                debugLog("\n----->Thresholdquery Value = %s <-----\n", text.c_str());
                value = raw = atoi(text.c_str());
                debugLog("Thresholdquery Value = %d\n", value);
            } else {
                debugLog("\nThreshold Querry returns no value, so NO_VALUE_PRSENT is set\n");
                value = raw = NO_VALUE;
            }
        }

        if (isThresholdForm(kind) && raw != NO_VALUE) {
            composeSensorValuePath(path, sizeof path, sensor, owner, lunByte, raw);
            debugLog("Thresholdquery = %s<END>\n", path);
            result.clear();
            queryService().Get(path, result);
            for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
                if (!it->second.Values.empty()) {
                    value = truncateProduct<double>(atof(it->second.Values[0].c_str()) * multiplier);
                    debugLog("Key: %s Value : %f\n", it->first.c_str(), static_cast<double>(value));
                } else {
                    value = 0;
                    debugLog("Error: No Value, so Value is 0\n");
                }
            }
        }
    }
    debugLog("Thresholdquery completed with %d\n", value);
    dumpResultMap(result);
    return value;
}
