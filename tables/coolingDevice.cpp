#include "tables/coolingDevice.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "core/debugLog.h"
#include "core/hmClient.h"
#include "platform/sdrDiscovery.h"
#include "platform/sensorReading.h"
#include "platform/sensorTableSupport.h"

namespace {

CDatabase<CSensorWrapper> g_coolingSensors;

// Status value of a status name, through a zero-filled scratch copy; -1 when the
// scratch buffer cannot be allocated.
int32_t statusValueOf(BaseAccessor& table, const char* name) {
    char* scratch = static_cast<char*>(calloc(HM_TEXT_SIZE, 1));
    if (scratch == nullptr) {
        return -1;
    }
    strncpy(scratch, name, HM_TEXT_SIZE - 1);
    const int32_t status = table.mapStatusStringToEnum(scratch);
    free(scratch);
    return status;
}

// The record's threshold that a working threshold attribute stands for: with the
// inverse-linearization flag set, upper and lower trade places.
int32_t CSensorData::*recordThreshold(int attribute, bool inverse) {
    switch (attribute) {
    case coolingDeviceUpperNonRecoverableAttr:
        return inverse ? &CSensorData::nLowerNonRecoverable : &CSensorData::nUpperNonRecoverable;
    case coolingDeviceUpperCriticalAttr:
        return inverse ? &CSensorData::nLowerCritical : &CSensorData::nUpperCritical;
    case coolingDeviceUpperNonCriticalAttr:
        return inverse ? &CSensorData::nLowerNonCritical : &CSensorData::nUpperNonCritical;
    case coolingDeviceLowerNonCriticalAttr:
        return inverse ? &CSensorData::nUpperNonCritical : &CSensorData::nLowerNonCritical;
    case coolingDeviceLowerCriticalAttr:
        return inverse ? &CSensorData::nUpperCritical : &CSensorData::nLowerCritical;
    case coolingDeviceLowerNonRecoverableAttr:
        return inverse ? &CSensorData::nUpperNonRecoverable : &CSensorData::nLowerNonRecoverable;
    default:
        return nullptr;
    }
}

} // namespace

CDatabase<CSensorWrapper>& coolingSensorDatabase() {
    return g_coolingSensors;
}

coolingDevice::coolingDevice() = default;

coolingDevice::~coolingDevice() = default;

void coolingDevice::loadWorkingValues(const CSensorWrapper& record) {
    const CSensorData& data = record.m_SensorData;
    const bool inverse = hmClient::bInverseLinearization;
    if (inverse) {
        debugLog("hmClient::bInverseLinearization\n");
    }
    m_nCurrentReading = data.nReading;
    m_nUpperNonRec = data.*recordThreshold(coolingDeviceUpperNonRecoverableAttr, inverse);
    m_nUpperCritical = data.*recordThreshold(coolingDeviceUpperCriticalAttr, inverse);
    m_nUpperNonCri = data.*recordThreshold(coolingDeviceUpperNonCriticalAttr, inverse);
    m_nLowerNonCri = data.*recordThreshold(coolingDeviceLowerNonCriticalAttr, inverse);
    m_nLowerCritical = data.*recordThreshold(coolingDeviceLowerCriticalAttr, inverse);
    m_nLowerNonRec = data.*recordThreshold(coolingDeviceLowerNonRecoverableAttr, inverse);
}

const char* coolingDevice::workingStatus() {
    // Lower critical and lower non-recoverable go in each other's places; both count as
    // critical, so the order does not change the result.
    return mapThresholdsToStatus(m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri,
                                 m_nUpperCritical, m_nUpperNonRec, m_nUpperNonCri);
}

uint32_t coolingDevice::init() {
    debugLog("coolingDevice::init() called.\n");
    CDatabase<CSensorWrapper>& sensors = coolingSensorDatabase();
    sensors.RemoveAll();
    GetSDRData(m_nSensorType, &sensors, m_nMultiplier);
    debugLog("\n The value of nCount is %d:", sensors.GetCount());

    // Only linear sensors become rows.
    m_nCount = 0;
    for (int i = 0; i < sensors.GetCount(); ++i) {
        const int32_t linearization = sensors.GetAt(i)->m_SensorInfo.nLinearization;
        debugLog("\n This cooling device is linear value = %d, count =%d\n", linearization, m_nCount);
        if (linearization == 0) {
            ++m_nCount;
            debugLog("\n This cooling device is linear\n");
        } else {
            debugLog("\n This cooling device is Non-linear\n");
        }
    }
    debugLog("\n Inside cooling value of m_nCount is %d:", m_nCount);
    uint32_t result = allocTable(m_nCount);
    debugLog("\n Inside the cooling Device value of ret is %d:", static_cast<int>(result));
    if (result != CLIENT_SUCCESS) {
        return result;
    }

    int entry = 0;
    int rowIndex = 0;
    while (entry < sensors.GetCount()) {
        const CSensorWrapper& sensor = *sensors.GetAt(entry);
        const CSensorInfo& info = sensor.m_SensorInfo;
        if (info.nLinearization != 0) {
            // The entries behind move up: the pass goes on at the same index.
            sensors.RemoveAt(entry);
            debugLog("\n Removing the object %d", entry);
            continue;
        }
        if (rowIndex >= m_nCount) {
            break;
        }
        CoolingDeviceInfo& row = m_pRows[rowIndex];
        row.id = static_cast<uint32_t>(info.nSensorNumber);
        row.resolution = info.nResolution;
        row.tolerance = info.nTolerance;
        row.accuracy = info.nAccuracy;
        debugLog("\n Inside coolingDevice value of Resolution = %d,Accuracy = %d,Tolerance = %d",
                 row.resolution, row.accuracy, row.tolerance);
        describeSensor(info.stName, "PX_CoolingDevice", row.description);

        // The values found by discovery: no live read at start-up.
        loadWorkingValues(sensor);
        // clang-format off
        debugLog(" Inside cooling Device Threshold values is LC =%d,LNC =%d,LNR =%d,UC= %d,UNC = %d,UR =%d,Resolution = %d,UnitType = %d",
                 m_nLowerCritical, m_nLowerNonCri, m_nLowerNonRec, m_nUpperCritical, m_nUpperNonCri, m_nUpperNonRec,
                 row.resolution, info.nBaseUnit);
        // clang-format on
        const int32_t status = statusValueOf(*this, workingStatus());
        if (status < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        row.status = status;
        ++rowIndex;
        ++entry;
    }
    return CLIENT_SUCCESS;
}

bool coolingDevice::readLive(int attribute, int index) {
    const CoolingDeviceInfo* row = typedRow(index);
    if (row == nullptr) {
        return false;
    }
    CSensorWrapper record = workingRecord(coolingSensorDatabase(), index, row->id, m_nReserved);
    GetSensorData2(&record, m_nMultiplier);
    loadWorkingValues(record);
    debugLog("getIntData called: %d,%d\n", attribute, index);
    return true;
}

uint32_t coolingDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const CoolingDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    switch (attribute) {
    case coolingDeviceIdAttr:
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    case coolingDeviceResolutionAttr:
        *value = scaledOrAbsent(row->resolution, static_cast<int64_t>(m_nScale) * 10);
        return CLIENT_SUCCESS;
    case coolingDeviceToleranceAttr:
        *value = scaledOrAbsent(row->tolerance, m_nScale);
        return CLIENT_SUCCESS;
    case coolingDeviceAccuracyAttr:
        *value = row->accuracy;
        return CLIENT_SUCCESS;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}

uint32_t coolingDevice::getStrInfo(int attribute, int index, char** value) {
    const CoolingDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    if (attribute == coolingDeviceDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t coolingDevice::getIntData(int attribute, int index, int32_t* value) {
    *value = -1;
    if (!readLive(attribute, index)) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    switch (attribute) {
    case coolingDeviceStatusAttr: {
        const int32_t status = statusValueOf(*this, workingStatus());
        if (status < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        *value = status;
        return CLIENT_SUCCESS;
    }
    case coolingDeviceReadingAttr:
        *value = m_nCurrentReading;
        return CLIENT_SUCCESS;
    case coolingDeviceUpperNonRecoverableAttr:
        *value = m_nUpperNonRec;
        return CLIENT_SUCCESS;
    case coolingDeviceUpperCriticalAttr:
        *value = m_nUpperCritical;
        return CLIENT_SUCCESS;
    case coolingDeviceUpperNonCriticalAttr:
        *value = m_nUpperNonCri;
        return CLIENT_SUCCESS;
    case coolingDeviceLowerNonCriticalAttr:
        *value = m_nLowerNonCri;
        return CLIENT_SUCCESS;
    case coolingDeviceLowerCriticalAttr:
        *value = m_nLowerCritical;
        return CLIENT_SUCCESS;
    case coolingDeviceLowerNonRecoverableAttr:
        *value = m_nLowerNonRec;
        return CLIENT_SUCCESS;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}

uint32_t coolingDevice::getStrData(int attribute, int index, char** value) {
    *value = nullptr;
    if (!readLive(attribute, index)) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    if (attribute != coolingDeviceStatusStringAttr) {
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return copyOutText(workingStatus(), value);
}

uint32_t coolingDevice::setIntData(int attribute, int index, int32_t value) {
    CSensorWrapper* fresh = new (std::nothrow) CSensorWrapper();
    if (fresh == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    if (typedRow(index) == nullptr) {
        delete fresh;
        return COOLINGDEVICE_ERROR_NOROW;
    }
    const int32_t quotient = value / m_nScale;
    // Accepted into a working copy only, in the slot the flag picks: the platform keeps
    // its thresholds.
    int32_t CSensorData::*slot = recordThreshold(attribute, hmClient::bInverseLinearization);
    if (slot == nullptr) {
        delete fresh;
        return CLIENT_ERROR_NOSUCHNAME;
    }
    fresh->m_SensorData.*slot = quotient;
    delete fresh;
    return CLIENT_SUCCESS;
}
