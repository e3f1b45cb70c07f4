#include "tables/processorDevice.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "core/debugLog.h"
#include "platform/queryService.h"
#include "platform/smbiosInventory.h"

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

} // namespace

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

// Inventory facts are read once at start-up: the table offers no live data.
uint32_t processorDevice::getIntData(int, int, int32_t* value) {
    *value = -1;
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t processorDevice::getStrData(int, int, char** value) {
    *value = nullptr;
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t processorDevice::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
