#include "tables/voltageProbe.h"

#include "core/debugLog.h"
#include "platform/sdrDiscovery.h"
#include "platform/sensorReading.h"
#include "platform/sensorTableSupport.h"

namespace {

CDatabase<CSensorWrapper> g_voltageSensors;

} // namespace

CDatabase<CSensorWrapper>& voltageSensorDatabase() {
    return g_voltageSensors;
}

voltageProbe::voltageProbe() : thresholdSensorTable(1, 2) {}

voltageProbe::~voltageProbe() = default;

uint32_t voltageProbe::init() {
    debugLog("\n Voltager probe init() called:");
    CDatabase<CSensorWrapper>& sensors = voltageSensorDatabase();
    sensors.RemoveAll();
    GetSDRData(m_nSensorType, &sensors, m_nMultiplier);
    debugLog("\n The value of m_nCount is %d:", sensors.GetCount());

    // Only linear sensors become rows.
    m_nCount = 0;
    for (int i = 0; i < sensors.GetCount(); ++i) {
        if (sensors.GetAt(i)->m_SensorInfo.nLinearization == 0) {
            ++m_nCount;
        }
    }
    uint32_t result = allocTable(m_nCount);
    if (result != CLIENT_SUCCESS) {
        return result;
    }

    result = fillLinearRows(sensors, [&](VoltageInfo& row, int entry, int rowIndex) {
        const CSensorInfo& info = sensors.GetAt(entry)->m_SensorInfo;
        fillStaticFields(row, info);
        debugLog("\n In voltage probe the Resolution=%d,Tolerance=%d,Accuracy=%d", row.resolution,
                 row.tolerance, row.accuracy);
        debugLog("\n In voltage probe the value of unit is %d", info.nBaseUnit);
        // Volts (unit 4) or not, the scale stays 1.
        if (info.nBaseUnit == 4) {
            m_nScale = 1;
        } else {
            m_nScale = m_nScale / m_nScale;
        }
        describeSensor(info, "PX_VoltageSensor", row.description);

        CSensorWrapper record = workingRecord(sensors, entry, row.id, m_nReserved);
        GetSensorData2(&record, m_nMultiplier);
        loadRecordValues(record.m_SensorData, false);
        // clang-format off
        debugLog("\n Inside voltage Threshold %s values is LC =%d,LNC =%d,LNR =%d,UC= %d,UNC = %d,UR =%d,Resolution = %d,UnitType = %d",
                 row.description, m_nLowerCritical, m_nLowerNonCri, m_nLowerNonRec, m_nUpperCritical, m_nUpperNonCri,
                 m_nUpperNonRec, row.resolution, info.nBaseUnit);
        debugLog("\n-- Status m_nCurrentReading=%d,\tm_nLowerCritical =%d, m_nLowerNonRec=%d,\n \t\t\t\t          m_nLowerNonCri =%d , m_nUpperCritical =%d, m_nUpperNonRec =%d, m_nUpperNonCri =%d",
                 m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
                 m_nUpperNonRec, m_nUpperNonCri);
        // clang-format on
        const int32_t status = statusValueOf(workingStatus());
        if (status < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        row.status = status;
        debugLog("Voltage:Status[%d]=%d\n", rowIndex, row.status);
        return CLIENT_SUCCESS;
    });
    if (result != CLIENT_SUCCESS) {
        return result;
    }
    debugLog("\n End of VoltageProbe init()");
    return CLIENT_SUCCESS;
}

uint32_t voltageProbe::getIntData(int attribute, int index, int32_t* value) {
    *value = -1;
    CSensorWrapper record;
    if (!readRowLive(index, m_nMultiplier, &record)) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    loadRecordValues(record.m_SensorData, false);
    // clang-format off
    debugLog("\n\n---Voltage Proble getIntData---\n  \t\t\t\t\t CR = %d, LC =%d, LNR = %d, LNC =%d ,UC=%d, UNR%d, UNC = %d \n\n",
             m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
             m_nUpperNonRec, m_nUpperNonCri);
    // clang-format on
    int32_t result = -1;
    const uint32_t code = workingValue(attribute, &result);
    if (code == CLIENT_SUCCESS) {
        // Every value is published times the scale (which is 1).
        *value = scaledOrAbsent(result, m_nScale);
    }
    return code;
}

uint32_t voltageProbe::getStrData(int attribute, int index, char** value) {
    *value = nullptr;
    CSensorWrapper record;
    if (!readRowLive(index, m_nMultiplier, &record)) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    loadRecordValues(record.m_SensorData, false);
    // clang-format off
    debugLog("\n\n---Voltage Proble getStrData---\n  \t\t\t\t\t CR = %d, LC =%d, LNR = %d, LNC =%d ,UC=%d, UNR%d, UNC = %d \n\n",
             m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
             m_nUpperNonRec, m_nUpperNonCri);
    // clang-format on
    if (attribute != voltageProbeStatusStringAttr) {
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return copyOutText(workingStatus(), value);
}

uint32_t voltageProbe::setIntData(int attribute, int index, int32_t value) {
    return acceptThresholdWrite(attribute, index, value, false);
}
