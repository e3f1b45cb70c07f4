// The SDR scan: one sensor record per SDR record of a sensor type.
#include "platform/sdrDiscovery.h"

#include <cstdlib>
#include <cstring>

#include "core/debugLog.h"
#include "platform/queryService.h"
#include "platform/sensorReading.h"

namespace {

constexpr size_t kPathSize = 256;

// The record's bytes, numbered from 1 as in the IPMI full sensor record; a byte
// the text did not reach reads as 0.
class SdrBytes {
public:
    // Splits `text` (at most kSdrTextSize - 1 characters are taken) at spaces and
    // converts each token as a hexadecimal number.
    explicit SdrBytes(const std::string& text) {
        char buffer[kSdrTextSize] = {};
        size_t length = text.size();
        if (length > kSdrTextSize - 1) {
            debugLog("\n SDR record text of %d characters cut to %d\n", static_cast<int>(length),
                     static_cast<int>(kSdrTextSize - 1));
            length = kSdrTextSize - 1;
        }
        std::memcpy(buffer, text.data(), length);
        debugLog("\nssdrreading = %s\n", buffer);

        char* save = nullptr;
        int dropped = 0;
        for (char* token = strtok_r(buffer, " ", &save); token != nullptr;
             token = strtok_r(nullptr, " ", &save)) {
            if (m_nCount == kSdrTokenSlots) {
                ++dropped;
                continue;
            }
            m_bytes[++m_nCount] = static_cast<int32_t>(strtol(token, nullptr, 16));
        }
        if (dropped > 0) {
            debugLog("\n SDR record has %d bytes, the %d beyond byte %d are ignored\n", m_nCount + dropped,
                     dropped, kSdrTokenSlots);
        }
        if (m_nCount < kSdrFullRecordBytes) {
            // clang-format off
            debugLog("\n SDR record has %d bytes, fewer than the %d of a full sensor record; missing bytes read as 0\n",
                     m_nCount, kSdrFullRecordBytes);
            // clang-format on
        }
    }

    int32_t operator[](int byteNumber) const {
        return byteNumber >= 1 && byteNumber <= m_nCount ? m_bytes[byteNumber] : 0;
    }

private:
    int32_t m_bytes[kSdrTokenSlots + 1] = {}; // slot 0 unused
    int m_nCount = 0;
};

// The nine values fetched for every sensor, in fetch order, with the trace lines
// printed after each (they name other thresholds than the one just fetched; the
// trace has always read this way).
struct ThresholdFetch {
    int32_t CSensorData::*dataField; // the field filled, in the reading part ...
    int32_t CSensorInfo::*infoField; // ... or in the SDR part
    int32_t kind;
    int sdrByte;
    const char* traceAfter;
    const char* secondTraceAfter;
};

const ThresholdFetch kThresholdFetches[] = {
    {&CSensorData::nLowerCritical, nullptr, THRESHOLD_LOWER_CRITICAL, 41,
     "Lower Critical threshold for sensor number %d.\n",
     "Get Lower Non Critical threshold for sensor number %d.\n"},
    {&CSensorData::nLowerNonCritical, nullptr, THRESHOLD_LOWER_NONCRITICAL, 42, "\n After the thresholds\n",
     "Get Upper Critical threshold for sensor number %d.\n"},
    {&CSensorData::nUpperCritical, nullptr, THRESHOLD_UPPER_CRITICAL, 38,
     "Get Upper Non Critical threshold for sensor number %d.\n", nullptr},
    {&CSensorData::nUpperNonCritical, nullptr, THRESHOLD_UPPER_NONCRITICAL, 39,
     "Get Lower Non Critical threshold for sensor number %d.\n", nullptr},
    {&CSensorData::nLowerNonRecoverable, nullptr, THRESHOLD_LOWER_NONRECOVERABLE, 40,
     "Get Upper Non Critical threshold for sensor number %d.\n", nullptr},
    {&CSensorData::nUpperNonRecoverable, nullptr, THRESHOLD_UPPER_NONRECOVERABLE, 37, nullptr, nullptr},
    {nullptr, &CSensorInfo::nAccuracy, THRESHOLD_ACCURACY, 28, nullptr, nullptr},
    {nullptr, &CSensorInfo::nTolerance, THRESHOLD_TOLERANCE, 26, nullptr, nullptr},
    {nullptr, &CSensorInfo::nResolution, THRESHOLD_RESOLUTION, 20, nullptr, nullptr},
};

// Traces a line that names the sensor number (a line without a number ignores it).
void traceWithNumber(const char* format, int sensorNumber) {
    if (format != nullptr) {
        debugLog(format, sensorNumber);
    }
}

// The SDR part of a record, from the record's bytes.
void decodeSensorInfo(const SdrBytes& b, CSensorInfo& info) {
    info.nOwnerID = b[6];
    info.nLUN = b[7];
    info.nSensorNumber = b[8];
    info.nEntityID = b[9];
    info.nEntityInstance = static_cast<uint8_t>(b[10]);
    info.nSensorType = b[13];
    info.nEventReadingType = b[14];
    info.nThresholdMask = b[20];
    info.nBaseUnit = b[22];
    info.nLinearization = b[24];
    info.SensorKey =
        makeSensorKey(static_cast<uint32_t>(b[7]), static_cast<uint32_t>(b[8]), static_cast<uint32_t>(b[6]));
}

// Name query: the record keeps an empty name when there is no answer.
void fetchName(CSensorInfo& info) {
    char path[kPathSize];
    composeSensorPath(path, sizeof path, info.nSensorNumber, info.nOwnerID, info.nLUN, "]/NAME");
    debugLog("\n\n Name of the sensorquerry = %s\n", path);
    QueryResult result;
    try {
        queryService().Get(path, result);
        QueryResult::const_iterator it = result.find(path);
        if (it != result.end() && !it->second.Values.empty()) {
            debugLog("\n Name of the sensor = %s\n", it->second.Values[0].c_str());
            info.stName = CString(it->second.Values[0].c_str());
            info.bNamePresent = true;
        }
    } catch (const ResultStatus& status) {
        debugLog("\n FAILED FOR SENSORNAMEQUERY");
        logQueryFailure(status, path, QUERY_FAILURE_VALUE);
    }
    dumpResultMap(result);
}

// Builds the record of one SDR entry and appends it. Failures of the threshold
// queries reach the caller, which leaves the record out.
void addSensor(const std::string& sdrText, CDatabase<CSensorWrapper>* database, int32_t multiplier) {
    const SdrBytes bytes(sdrText);
    CSensorWrapper record;
    CSensorInfo& info = record.m_SensorInfo;
    CSensorData& data = record.m_SensorData;
    decodeSensorInfo(bytes, info);

    debugLog("\n-------------Before Thresholds------------------------------------\n");
    debugLog("SensorNumber %d, Ownerid %d, LUN %d, lByte %d , Multiplier %d\n", info.nSensorNumber,
             info.nOwnerID, info.nLUN, bytes[41], multiplier);
    for (const ThresholdFetch& fetch : kThresholdFetches) {
        const int32_t value =
            GetThresholdValue(static_cast<uint32_t>(info.nSensorNumber), static_cast<uint32_t>(info.nOwnerID),
                              static_cast<uint32_t>(info.nLUN), bytes[fetch.sdrByte], multiplier, fetch.kind);
        if (fetch.dataField != nullptr) {
            data.*fetch.dataField = value;
        } else {
            info.*fetch.infoField = value;
        }
        traceWithNumber(fetch.traceAfter, info.nSensorNumber);
        traceWithNumber(fetch.secondTraceAfter, info.nSensorNumber);
    }

    char name[CString::kLogBufferSize];
    // The accuracy is printed under "Tolarane" and the tolerance under "Accuracy".
    // clang-format off
    debugLog("\n\n Description = %s ,Value = %d, LC = %d, LNC = %d, UC =%d, UNC =%d, Tolarane =%d, Accuracy =%d\n\n",
             info.stName.NarrowForLog(name), 0, data.nLowerCritical, data.nLowerNonCritical, data.nUpperCritical,
             data.nUpperNonCritical, info.nAccuracy, info.nTolerance);
    // clang-format on

    fetchName(info);
    debugLog("\n\n Adding the object for sensor %s with sensor number %d and type %d\n\n ",
             info.stName.NarrowForLog(name), info.nSensorNumber,
             static_cast<unsigned char>(info.nSensorType));
    GetSensorData2(&record, multiplier);
    if (!database->Add(record)) {
        debugLog("\n No memory to add the object for sensor number %d\n", info.nSensorNumber);
    }
}

} // namespace

uint32_t makeSensorKey(uint32_t lunByte, uint32_t sensorNumber, uint32_t ownerId) {
    return (((((lunByte & 0xE0u) << 3) | sensorNumber) << 8 | ownerId) << 8) | lunByte;
}

void GetSDRData(uint32_t sensorType, CDatabase<CSensorWrapper>* database, int32_t multiplier) {
    debugLog("\n Inside GetSDR Data function");
    char path[kPathSize];
    composePath(path, sizeof path, "/BMC/SDR/SENSOR_TYPE[", static_cast<int>(sensorType), "]");
    debugLog("\n %s\n", path);

    QueryResult result;
    try {
        queryService().Get(path, result);
    } catch (const ResultStatus& status) {
        debugLog("\n SensorType Query Failed\n");
        logQueryFailure(status, path, QUERY_FAILURE_SCAN);
        result.clear();
    } catch (...) {
        debugLog("Unknown error: Functions:GetData");
        result.clear();
    }
    debugLog("\nAfter the resultsmap\n");
    try {
        dumpResultMap(result);
    } catch (...) {
        debugLog("\nResultMap dump throws error!!\n\n");
    }
    debugLog("\nAfter the resultsmap\n");

    for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
        debugLog("\n Inside for loop\n");
        if (it->second.NodeType != 0) {
            continue;
        }
        if (it->second.Values.empty()) {
            debugLog("\nNo Data, continue\n");
            continue;
        }
        if (database == nullptr) {
            continue;
        }
        try {
            addSensor(it->second.Values[0], database, multiplier);
        } catch (...) {
            debugLog("Unknown error: Functions:GetData");
        }
    }
    debugLog("\n End of the GetSDRData Function");
}
