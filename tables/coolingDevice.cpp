#include "tables/coolingDevice.h"

#include "core/debugLog.h"
#include "platform/sdrDiscovery.h"
#include "platform/sensorReading.h"
#include "platform/sensorTableSupport.h"

namespace {

CDatabase<CSensorWrapper> g_coolingSensors;

} // namespace

CDatabase<CSensorWrapper>& coolingSensorDatabase() {
    return g_coolingSensors;
}

coolingDevice::coolingDevice(bool inverseLinearization)
    : thresholdSensorTable(1, 4), m_bInverseLinearization(inverseLinearization) {}

coolingDevice::~coolingDevice() = default;

void coolingDevice::loadWorkingValues(const CSensorWrapper& record) {
    const bool inverse = m_bInverseLinearization;
    if (inverse) {
        debugLog("hmClient::bInverseLinearization\n");
    }
    loadRecordValues(record.m_SensorData, inverse);
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

    return fillLinearRows(sensors, [&](CoolingDeviceInfo& row, int entry, int) {
        const CSensorWrapper& sensor = *sensors.GetAt(entry);
        const CSensorInfo& info = sensor.m_SensorInfo;
        fillStaticFields(row, info);
        debugLog("\n Inside coolingDevice value of Resolution = %d,Accuracy = %d,Tolerance = %d",
                 row.resolution, row.accuracy, row.tolerance);
        describeSensor(info, "PX_CoolingDevice", row.description);

        // The values found by discovery: no live read at start-up.
        loadWorkingValues(sensor);
        // clang-format off
        debugLog(" Inside cooling Device Threshold values is LC =%d,LNC =%d,LNR =%d,UC= %d,UNC = %d,UR =%d,Resolution = %d,UnitType = %d",
                 m_nLowerCritical, m_nLowerNonCri, m_nLowerNonRec, m_nUpperCritical, m_nUpperNonCri, m_nUpperNonRec,
                 row.resolution, info.nBaseUnit);
        // clang-format on
        const int32_t status = statusValueOf(workingStatus());
        if (status < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        row.status = status;
        return CLIENT_SUCCESS;
    });
}

bool coolingDevice::readLive(int attribute, int index) {
    CSensorWrapper record;
    if (!readRowLive(index, m_nMultiplier, &record)) {
        return false;
    }
    loadWorkingValues(record);
    debugLog("getIntData called: %d,%d\n", attribute, index);
    return true;
}

uint32_t coolingDevice::getIntData(int attribute, int index, int32_t* value) {
    *value = -1;
    if (!readLive(attribute, index)) {
        return COOLINGDEVICE_ERROR_NOROW;
    }
    return workingValue(attribute, value);
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
    // The slot the flag picks, as the table loads it.
    return acceptThresholdWrite(attribute, index, value, m_bInverseLinearization);
}
