#include "tables/processorDevice.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "core/debugLog.h"
#include "platform/queryService.h"
#include "platform/smbiosInventory.h"
#include "tables/discreteSensorTable.h"

namespace {

// The socket's "Status" and "SerialNumber" entries, which the processor record does not carry.
void readSocketExtras(int socket, ProcessorInfo& row) {
    char path[128];
    snprintf(path, sizeof path, "%s%d%s", "/SMBIOS/ProcessorInfo[", socket, "]");
    try {
        QueryResult result;
        queryService().SetFlags(1);
        queryService().Get(path, result);
        const std::string base(path);
        QueryResult::const_iterator it = result.find(base + "/Status");
        if (it != result.end() && !it->second.Values.empty()) {
            copyRowText(row.socketStatus, it->second.Values[0].c_str());
        }
        it = result.find(base + "/SerialNumber");
        if (it != result.end() && !it->second.Values.empty()) {
            copyRowText(row.serialNumber, it->second.Values[0].c_str());
        }
    } catch (const ResultStatus& failure) {
        debugLog("\n processorDevice: socket query failed\n");
        logQueryFailure(failure, path, QUERY_FAILURE_VALUE);
    } catch (...) {
        debugLog("\n processorDevice: socket query failed\n");
    }
}

int32_t statusOfSocket(const char* socketStatus) {
    if (strcmp(socketStatus, "Populated") == 0) {
        return HM_STATUS_OK;
    }
    if (strcmp(socketStatus, "Unpopulated") == 0) {
        return HM_STATUS_OTHER; // an empty socket is not a fault
    }
    return HM_STATUS_UNKNOWN;
}

// SDR bytes (counting from 1) of a compact sensor record that identify a processor sensor.
constexpr int kSdrOwnerByte = 6;
constexpr int kSdrLunByte = 7;
constexpr int kSdrNumberByte = 8;
constexpr int kSdrEntityIdByte = 9;
constexpr int kSdrEntityInstanceByte = 10;
constexpr int kSdrSensorTypeByte = 13;
constexpr int kSensorTypeProcessor = 0x07;
constexpr int kEntityProcessor = 0x03;

// The asserted state keywords of one sensor; empty when it cannot be read.
std::string processorStates(int number, int owner, int lun) {
    char path[256];
    composeSensorPath(path, sizeof path, number, owner, lun, "]/INTERPRET_SENSOR_VALUE");
    try {
        QueryResult result;
        queryService().Get(path, result);
        QueryResult::const_iterator it = result.find(path);
        if (it != result.end() && it->second.NodeType == 0 && !it->second.Values.empty()) {
            return it->second.Values[0];
        }
    } catch (const ResultStatus& failure) {
        debugLog("\n processorDevice: sensor state query failed\n");
        logQueryFailure(failure, path, QUERY_FAILURE_VALUE);
    } catch (...) {
        debugLog("\n processorDevice: sensor state query failed\n");
    }
    return std::string();
}

} // namespace

// The BMC's processor sensors (compact records of sensor type 7 on processor entities) name
// the populated sockets by entity instance: such a socket takes the sensor's number as its
// id, so that the controller's processor events find their row, and the sensor's states as
// its status.
void processorDevice::matchProcessorSensors() {
    SDK::System& system = queryService();
    QueryResult records;
    try {
        system.SetFlags(1);
        system.SetFlags(14);
        system.Get(kSdrCompactRecordsPath, records);
    } catch (const ResultStatus& failure) {
        debugLog("\n processorDevice: SDR query failed\n");
        logQueryFailure(failure, kSdrCompactRecordsPath, QUERY_FAILURE_SCAN);
        return;
    } catch (...) {
        debugLog("\n processorDevice: SDR query failed\n");
        return;
    }
    for (QueryResult::const_iterator it = records.begin(); it != records.end(); ++it) {
        if (it->second.NodeType != 0 || it->second.Values.empty()) {
            continue;
        }
        std::vector<long> bytes;
        std::istringstream tokens(it->second.Values[0]);
        std::string token;
        while (tokens >> token && bytes.size() < static_cast<size_t>(kSdrSensorTypeByte)) {
            bytes.push_back(strtol(token.c_str(), nullptr, 16));
        }
        if (bytes.size() < static_cast<size_t>(kSdrSensorTypeByte) ||
            bytes[kSdrSensorTypeByte - 1] != kSensorTypeProcessor ||
            bytes[kSdrEntityIdByte - 1] != kEntityProcessor) {
            continue;
        }
        const int socket = static_cast<int>(bytes[kSdrEntityInstanceByte - 1] & 0x7F) - 1;
        if (socket < 0 || socket >= m_nCount || m_pRows[socket].status != HM_STATUS_OK) {
            continue;
        }
        ProcessorInfo& row = m_pRows[socket];
        const int number = static_cast<int>(bytes[kSdrNumberByte - 1]);
        const std::string states = processorStates(number, static_cast<int>(bytes[kSdrOwnerByte - 1]),
                                                   static_cast<int>(bytes[kSdrLunByte - 1]));
        row.id = static_cast<uint32_t>(number);
        if (!states.empty()) {
            row.status = discrete::statusOfKeywords(states, HM_STATUS_OK);
        }
        debugLog("\n processorDevice: socket %d has sensor %d (%s), status %d\n", socket + 1, number,
                 states.c_str(), static_cast<int>(row.status));
    }
}

processorDevice::processorDevice() = default;

processorDevice::~processorDevice() = default;

uint32_t processorDevice::init() {
    debugLog("\n processorDevice::init() called\n");
    uint32_t sockets = 0;
    getNumberOfProcessor(&sockets);
    if (sockets > kMaxProcessorSockets) {
        sockets = kMaxProcessorSockets;
    }
    m_nCount = static_cast<int32_t>(sockets);
    uint32_t status = allocTable(m_nCount);
    if (status != CLIENT_SUCCESS) {
        return status;
    }
    std::unique_ptr<SmbiosProcessorRecord> record(new (std::nothrow) SmbiosProcessorRecord());
    if (record == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    for (int i = 0; i < m_nCount; ++i) {
        *record = SmbiosProcessorRecord();
        getProcessorPresentInfo(i, record.get());
        ProcessorInfo& row = m_pRows[i];
        row = ProcessorInfo();
        row.id = static_cast<uint32_t>(i + 1);
        copyRowText(row.description, record->SocketDesignation);
        copyRowText(row.detail, record->ProcessorManufacturer);
        row.processorType = static_cast<int32_t>(record->ProcessorType);
        row.family = static_cast<int32_t>(record->ProcessorFamily);
        row.voltage = static_cast<int32_t>(record->Voltage);
        row.externalClock = record->ExternalClock;
        row.maxSpeed = static_cast<int32_t>(record->MaxSpeed);
        row.currentSpeed = static_cast<int32_t>(record->CurrentSpeed);
        row.upgrade = static_cast<int32_t>(record->Upgrade);
        copyRowText(row.version, record->Version);
        copyRowText(row.processorId, record->ProcessorId);
        copyRowText(row.partNumber, record->PartNumber);
        readSocketExtras(i, row);
        row.status = statusOfSocket(row.socketStatus);
        debugLog("\n processorDevice: socket %d \"%s\" status %d\n", i + 1, row.description,
                 static_cast<int>(row.status));
    }
    matchProcessorSensors();
    return CLIENT_SUCCESS;
}

uint32_t processorDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const ProcessorInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return PROCESSOR_ERROR_NOROW;
    }
    switch (attribute) {
    case processorDeviceIdAttr:
        *value = static_cast<int32_t>(row->id);
        break;
    case processorDeviceStatusAttr:
        *value = row->status;
        break;
    case processorDeviceTypeAttr:
        *value = row->processorType;
        break;
    case processorDeviceFamilyAttr:
        *value = row->family;
        break;
    case processorDeviceVoltageAttr:
        *value = row->voltage;
        break;
    case processorDeviceExternalClockAttr:
        *value = row->externalClock;
        break;
    case processorDeviceMaxSpeedAttr:
        *value = row->maxSpeed;
        break;
    case processorDeviceCurrentSpeedAttr:
        *value = row->currentSpeed;
        break;
    case processorDeviceUpgradeAttr:
        *value = row->upgrade;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return CLIENT_SUCCESS;
}

uint32_t processorDevice::getStrInfo(int attribute, int index, char** value) {
    const ProcessorInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return PROCESSOR_ERROR_NOROW;
    }
    switch (attribute) {
    case processorDeviceDescriptionAttr:
        return copyOutText(row->description, value);
    case processorDeviceManufacturerAttr:
        return copyOutText(row->detail, value);
    case processorDeviceVersionAttr:
        return copyOutText(row->version, value);
    case processorDeviceProcessorIdAttr:
        return copyOutText(row->processorId, value);
    case processorDevicePartNumberAttr:
        return copyOutText(row->partNumber, value);
    case processorDeviceSocketStatusAttr:
        return copyOutText(row->socketStatus, value);
    case processorDeviceSerialNumberAttr:
        return copyOutText(row->serialNumber, value);
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}
