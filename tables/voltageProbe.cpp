#include "tables/voltageProbe.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "core/debugLog.h"
#include "platform/sdrDiscovery.h"
#include "platform/sensorReading.h"
#include "platform/sensorTableSupport.h"

namespace {

CDatabase<CSensorWrapper> g_voltageSensors;

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

} // namespace

CDatabase<CSensorWrapper>& voltageSensorDatabase() {
    return g_voltageSensors;
}

voltageProbe::voltageProbe() = default;

voltageProbe::~voltageProbe() = default;

void voltageProbe::loadWorkingValues(const CSensorWrapper& record) {
    const CSensorData& data = record.m_SensorData;
    m_nCurrentReading = data.nReading;
    m_nUpperNonRec = data.nUpperNonRecoverable;
    m_nUpperCritical = data.nUpperCritical;
    m_nUpperNonCri = data.nUpperNonCritical;
    m_nLowerNonCri = data.nLowerNonCritical;
    m_nLowerCritical = data.nLowerCritical;
    m_nLowerNonRec = data.nLowerNonRecoverable;
}

const char* voltageProbe::workingStatus() {
    // Lower critical and lower non-recoverable go in each other's places; both count as
    // critical, so the order does not change the result.
    return mapThresholdsToStatus(m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri,
                                 m_nUpperCritical, m_nUpperNonRec, m_nUpperNonCri);
}

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

    int entry = 0;
    int rowIndex = 0;
    while (entry < sensors.GetCount()) {
        const CSensorInfo& info = sensors.GetAt(entry)->m_SensorInfo;
        if (info.nLinearization != 0) {
            // The entries behind move up: the pass goes on at the same index.
            sensors.RemoveAt(entry);
            debugLog("\n Removing the object %d", entry);
            continue;
        }
        if (rowIndex >= m_nCount) {
            break;
        }
        VoltageInfo& row = m_pRows[rowIndex];
        row.id = static_cast<uint32_t>(info.nSensorNumber);
        row.resolution = info.nResolution;
        row.tolerance = info.nTolerance;
        row.accuracy = info.nAccuracy;
        debugLog("\n In voltage probe the Resolution=%d,Tolerance=%d,Accuracy=%d", row.resolution,
                 row.tolerance, row.accuracy);
        debugLog("\n In voltage probe the value of unit is %d", info.nBaseUnit);
        // Volts (unit 4) or not, the scale stays 1.
        if (info.nBaseUnit == 4) {
            m_nScale = 1;
        } else {
            m_nScale = m_nScale / m_nScale;
        }
        describeSensor(info.stName, "PX_VoltageSensor", row.description);

        CSensorWrapper record = workingRecord(sensors, entry, row.id, m_nReserved);
        GetSensorData2(&record, m_nMultiplier);
        loadWorkingValues(record);
        // clang-format off
        debugLog("\n Inside voltage Threshold %s values is LC =%d,LNC =%d,LNR =%d,UC= %d,UNC = %d,UR =%d,Resolution = %d,UnitType = %d",
                 row.description, m_nLowerCritical, m_nLowerNonCri, m_nLowerNonRec, m_nUpperCritical, m_nUpperNonCri,
                 m_nUpperNonRec, row.resolution, info.nBaseUnit);
        // clang-format on
        // clang-format off
        debugLog("\n-- Status m_nCurrentReading=%d,\tm_nLowerCritical =%d, m_nLowerNonRec=%d,\n \t\t\t\t          m_nLowerNonCri =%d , m_nUpperCritical =%d, m_nUpperNonRec =%d, m_nUpperNonCri =%d",
                 m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
                 m_nUpperNonRec, m_nUpperNonCri);
        // clang-format on
        const int32_t status = statusValueOf(*this, workingStatus());
        if (status < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        row.status = status;
        debugLog("Voltage:Status[%d]=%d\n", rowIndex, row.status);
        ++rowIndex;
        ++entry;
    }
    debugLog("\n End of VoltageProbe init()");
    return CLIENT_SUCCESS;
}

bool voltageProbe::readLive(int index, bool forString) {
    const VoltageInfo* row = typedRow(index);
    if (row == nullptr) {
        return false;
    }
    CSensorWrapper record = workingRecord(voltageSensorDatabase(), index, row->id, m_nReserved);
    GetSensorData2(&record, m_nMultiplier);
    loadWorkingValues(record);
    if (forString) {
        // clang-format off
        debugLog("\n\n---Voltage Proble getStrData---\n  \t\t\t\t\t CR = %d, LC =%d, LNR = %d, LNC =%d ,UC=%d, UNR%d, UNC = %d \n\n",
                 m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
                 m_nUpperNonRec, m_nUpperNonCri);
        // clang-format on
    } else {
        // clang-format off
        debugLog("\n\n---Voltage Proble getIntData---\n  \t\t\t\t\t CR = %d, LC =%d, LNR = %d, LNC =%d ,UC=%d, UNR%d, UNC = %d \n\n",
                 m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec, m_nLowerNonCri, m_nUpperCritical,
                 m_nUpperNonRec, m_nUpperNonCri);
        // clang-format on
    }
    return true;
}

uint32_t voltageProbe::getIntInfo(int attribute, int index, int32_t* value) {
    const VoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    switch (attribute) {
    case voltageProbeIdAttr:
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    case voltageProbeResolutionAttr:
        *value = scaledOrAbsent(row->resolution, m_nScale);
        return CLIENT_SUCCESS;
    case voltageProbeToleranceAttr:
        *value = scaledOrAbsent(row->tolerance, m_nScale);
        return CLIENT_SUCCESS;
    case voltageProbeAccuracyAttr:
        *value = row->accuracy;
        return CLIENT_SUCCESS;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}

uint32_t voltageProbe::getStrInfo(int attribute, int index, char** value) {
    const VoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    if (attribute == voltageProbeDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t voltageProbe::getIntData(int attribute, int index, int32_t* value) {
    *value = -1;
    if (!readLive(index, false)) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    int32_t result;
    switch (attribute) {
    case voltageProbeStatusAttr:
        result = statusValueOf(*this, workingStatus());
        if (result < 0) {
            return CLIENT_ERROR_NOMEMORY;
        }
        break;
    case voltageProbeReadingAttr:
        result = m_nCurrentReading;
        break;
    case voltageProbeUpperNonRecoverableAttr:
        result = m_nUpperNonRec;
        break;
    case voltageProbeUpperCriticalAttr:
        result = m_nUpperCritical;
        break;
    case voltageProbeUpperNonCriticalAttr:
        result = m_nUpperNonCri;
        break;
    case voltageProbeLowerNonCriticalAttr:
        result = m_nLowerNonCri;
        break;
    case voltageProbeLowerCriticalAttr:
        result = m_nLowerCritical;
        break;
    case voltageProbeLowerNonRecoverableAttr:
        result = m_nLowerNonRec;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    // Every value is published times the scale (which is 1).
    *value = result == NO_VALUE ? NO_VALUE : scaledOrAbsent(result, m_nScale);
    return CLIENT_SUCCESS;
}

uint32_t voltageProbe::getStrData(int attribute, int index, char** value) {
    *value = nullptr;
    if (!readLive(index, true)) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    if (attribute != voltageProbeStatusStringAttr) {
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return copyOutText(workingStatus(), value);
}

uint32_t voltageProbe::setIntData(int attribute, int index, int32_t value) {
    CSensorWrapper* fresh = new (std::nothrow) CSensorWrapper();
    if (fresh == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    const VoltageInfo* row = typedRow(index);
    if (row == nullptr) {
        delete fresh;
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    const int32_t quotient = value / m_nScale;
    // Accepted into a working copy only: the platform keeps its thresholds.
    CSensorData& data = fresh->m_SensorData;
    switch (attribute) {
    case voltageProbeUpperNonRecoverableAttr:
        data.nUpperNonRecoverable = quotient;
        break;
    case voltageProbeUpperCriticalAttr:
        data.nUpperCritical = quotient;
        break;
    case voltageProbeUpperNonCriticalAttr:
        data.nUpperNonCritical = quotient;
        break;
    case voltageProbeLowerNonCriticalAttr:
        data.nLowerNonCritical = quotient;
        break;
    case voltageProbeLowerCriticalAttr:
        data.nLowerCritical = quotient;
        break;
    case voltageProbeLowerNonRecoverableAttr:
        data.nLowerNonRecoverable = quotient;
        break;
    default:
        delete fresh;
        return CLIENT_ERROR_NOSUCHNAME;
    }
    delete fresh;
    return CLIENT_SUCCESS;
}
