#include "tables/MemoryDevice.h"

#include <cstdio>
#include <memory>
#include <new>

#include "core/debugLog.h"
#include "platform/smbiosInventory.h"

namespace {

const char* nameOr(const SmbiosNameCode* table, uint32_t code, const char* fallback) {
    const char* name = smbiosNameOfCode(table, code);
    return name != nullptr ? name : fallback;
}

} // namespace

MemoryDevice::MemoryDevice() = default;

MemoryDevice::~MemoryDevice() = default;

uint32_t MemoryDevice::init() {
    debugLog("\n MemoryDevice::init() called\n");
    const MemoryArrayDetails details = GetMemoryArrayDetails();
    int count = 0;
    for (const auto& array : details) {
        count += static_cast<int>(array.second.size());
    }
    if (count > kMaxMemoryDevices) {
        count = kMaxMemoryDevices;
    }
    m_nCount = count;
    uint32_t status = allocTable(m_nCount);
    if (status != CLIENT_SUCCESS) {
        return status;
    }
    std::unique_ptr<SmbiosMemoryDeviceRecord> record(new (std::nothrow) SmbiosMemoryDeviceRecord());
    if (record == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    int r = 0;
    for (const auto& array : details) {
        for (int device : array.second) {
            if (r >= m_nCount) {
                break;
            }
            // Codes the service does not answer read "unknown" (2); no type detail is none.
            *record = SmbiosMemoryDeviceRecord();
            record->FormFactor = 2;
            record->MemoryType = 2;
            getMemoryDeviceInfo(static_cast<uint32_t>(array.first), static_cast<uint32_t>(device),
                                record.get());
            MemoryDeviceInfo& row = m_pRows[r];
            row = MemoryDeviceInfo();
            row.id = static_cast<uint32_t>(r + 1);
            copyRowText(row.description, record->DeviceLocator);
            copyRowText(row.detail, record->BankLocator);
            row.status = HM_STATUS_OK;
            row.formFactor = static_cast<int32_t>(record->FormFactor);
            row.memoryType = static_cast<int32_t>(record->MemoryType);
            row.typeDetail = static_cast<int32_t>(record->TypeDetail);
            row.speed = static_cast<int32_t>(record->Speed);
            row.size = static_cast<int32_t>(record->Size);
            row.totalWidth = static_cast<int32_t>(record->TotalWidth);
            row.dataWidth = static_cast<int32_t>(record->DataWidth);
            row.arrayId = array.first + 1;
            row.slot = device + 1;
            copyRowText(row.manufacturer, record->Manufacturer);
            copyRowText(row.serialNumber, record->SerialNumber);
            copyRowText(row.partNumber, record->PartNumber);
            copyRowText(row.assetTag, record->AssetTag);
            ++r;
        }
    }
    debugLog("\n MemoryDevice: %d devices present\n", static_cast<int>(m_nCount));
    return CLIENT_SUCCESS;
}

uint32_t MemoryDevice::getIntInfo(int attribute, int index, int32_t* value) {
    const MemoryDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYDEVICE_ERROR_NOROW;
    }
    switch (attribute) {
    case memoryDeviceIdAttr:
        *value = static_cast<int32_t>(row->id);
        break;
    case memoryDeviceStatusAttr:
        *value = row->status;
        break;
    case memoryDeviceFormFactorAttr:
        *value = row->formFactor;
        break;
    case memoryDeviceTypeAttr:
        *value = row->memoryType;
        break;
    case memoryDeviceTypeDetailAttr:
        *value = row->typeDetail;
        break;
    case memoryDeviceSpeedAttr:
        *value = row->speed;
        break;
    case memoryDeviceSizeAttr:
        *value = row->size;
        break;
    case memoryDeviceTotalWidthAttr:
        *value = row->totalWidth;
        break;
    case memoryDeviceDataWidthAttr:
        *value = row->dataWidth;
        break;
    case memoryDeviceArrayAttr:
        *value = row->arrayId;
        break;
    case memoryDeviceSlotAttr:
        *value = row->slot;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return CLIENT_SUCCESS;
}

uint32_t MemoryDevice::getStrInfo(int attribute, int index, char** value) {
    const MemoryDeviceInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return MEMORYDEVICE_ERROR_NOROW;
    }
    switch (attribute) {
    case memoryDeviceDescriptionAttr:
        return copyOutText(row->description, value);
    case memoryDeviceBankLocatorAttr:
        return copyOutText(row->detail, value);
    case memoryDeviceManufacturerAttr:
        return copyOutText(row->manufacturer, value);
    case memoryDeviceSerialNumberAttr:
        return copyOutText(row->serialNumber, value);
    case memoryDevicePartNumberAttr:
        return copyOutText(row->partNumber, value);
    case memoryDeviceAssetTagAttr:
        return copyOutText(row->assetTag, value);
    case memoryDeviceFormFactorNameAttr:
        return copyOutText(nameOr(kMemoryFormFactorNames, static_cast<uint32_t>(row->formFactor), "Unknown"),
                           value);
    case memoryDeviceTypeNameAttr:
        return copyOutText(nameOr(kMemoryTypeNames, static_cast<uint32_t>(row->memoryType), "Unknown"),
                           value);
    case memoryDeviceTypeDetailNameAttr:
        return copyOutText(nameOr(kMemoryTypeDetailNames, static_cast<uint32_t>(row->typeDetail), "None"),
                           value);
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}
