#include "core/hmClient.h"

#include <cstdio>
#include <cstring>
#include <new>

#include <windows.h>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "core/systemManagement.h"
#include "events/eventHandler.h"
#include "platform/smbiosInventory.h"
#include "tables/MemoryArray.h"
#include "tables/MemoryDevice.h"
#include "tables/chassisInfo.h"
#include "tables/coolingDevice.h"
#include "tables/coolingUnit.h"
#include "tables/discreteCooling.h"
#include "tables/discreteVoltage.h"
#include "tables/driveSlot.h"
#include "tables/powerSupply.h"
#include "tables/powerUnit.h"
#include "tables/processorDevice.h"
#include "tables/temperatureProbe.h"
#include "tables/voltageProbe.h"

subagentBase* gSubagent = nullptr;

subagentBase::~subagentBase() = default;

namespace {

// Creates the group, stores it and runs its init. Returns the init result; a group that
// cannot be allocated counts as an init failure and leaves the slot empty.
template <class Group, class... Args> uint32_t createGroup(BaseAccessor*& slot, Args... args) {
    Group* group = new (std::nothrow) Group(args...);
    slot = group;
    return group == nullptr ? CLIENT_ERROR_NOMEMORY : group->init();
}

// Starts one table group; a failure is traced with the group's own line and start-up goes on.
template <class Group, class... Args>
void startGroup(BaseAccessor*& slot, const char* failureTrace, Args... args) {
    if (createGroup<Group>(slot, args...) != CLIENT_SUCCESS) {
        debugLog("%s", failureTrace);
    }
}

template <class T> void destroy(T*& group) {
    delete group;
    group = nullptr;
}

} // namespace

hmClient::hmClient() {
    m_stLogFile[0] = '\0';
    m_stConfigFile[0] = '\0';
}

hmClient::~hmClient() {
    releaseTables();
}

uint32_t hmClient::readRegistryParams() {
    m_stConfigFile[0] = '\0';
    m_stLogFile[0] = '\0';
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, HM_REGISTRY_KEY, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) {
        debugLog("Error opening SNMP Parameters registry key\n");
        return 0;
    }
    DWORD size = HM_PATH_SIZE;
    if (RegQueryValueExA(key, HM_REGISTRY_CONFIGFILE, nullptr, nullptr,
                         reinterpret_cast<LPBYTE>(m_stConfigFile), &size) != ERROR_SUCCESS) {
        m_stConfigFile[0] = '\0';
        debugLog("Error retrieving ConfigFile registry key value\n");
        RegCloseKey(key);
        return 0;
    }
    m_stConfigFile[HM_PATH_SIZE - 1] = '\0';
    size = HM_PATH_SIZE;
    if (RegQueryValueExA(key, HM_REGISTRY_LOGFILE, nullptr, nullptr, reinterpret_cast<LPBYTE>(m_stLogFile),
                         &size) != ERROR_SUCCESS) {
        m_stLogFile[0] = '\0';
        debugLog("Error retrieving LogFile registry key value\n");
        RegCloseKey(key);
        return 0;
    }
    m_stLogFile[HM_PATH_SIZE - 1] = '\0';
    RegCloseKey(key);
    return 1;
}

bool hmClient::bInverseLinearization = false;

void hmClient::readInverseLinearization() {
    bInverseLinearization = false;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, HM_REGISTRY_KEY, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) {
        return;
    }
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof value;
    if (RegQueryValueExA(key, HM_REGISTRY_INVERSELINEARIZATION, nullptr, &type,
                         reinterpret_cast<LPBYTE>(&value), &size) == ERROR_SUCCESS &&
        type == REG_DWORD && size == sizeof value) {
        bInverseLinearization = value != 0;
    }
    RegCloseKey(key);
}

uint32_t hmClient::init() {
    releaseTables();
    // A failed read leaves both paths empty: the configuration file then cannot be opened.
    readRegistryParams();
    readInverseLinearization();

    m_bGroupsInPlace = true;
    m_pSystemManagement = new (std::nothrow) systemManagement();
    if (m_pSystemManagement == nullptr ||
        m_pSystemManagement->init(m_stConfigFile, m_stLogFile) != CLIENT_SUCCESS) {
        debugLog("\nhmClient::init about to init systemManagement exited with no data\n");
    }

    if (loadSmbiosInventory() != CLIENT_SUCCESS) {
        debugLog("\nHMClient::init about to init smbios() exited with no data\n");
    }

    startGroup<processorDevice>(m_pProcessorDevice,
                                "\nhmClient::init about to init processorDevice exited with no data\n");
    startGroup<MemoryArray>(m_pMemoryArray,
                            "\nhmClient::init about to init MemoryArray exited with no data\n");
    startGroup<MemoryDevice>(m_pMemoryDevice,
                             "\nhmClient::init about to init MemoryDevice exited with no data\n");
    startGroup<temperatureProbe>(m_pTemperatureProbe,
                                 "\nhmClient::init about to init temperatureProbe exited with no data\n");
    startGroup<chassisInfo>(m_pChassisInfo,
                            "\nhmClient::init about to init chassisInfo exited with no data\n");
    startGroup<powerUnit>(m_pPowerUnit, "\nhmClient::init about to init powerUnit exited with no data\n");
    startGroup<powerSupply>(m_pPowerSupply,
                            "\nhmClient::init about to init powerSupply exited with no data\n");
    startGroup<voltageProbe>(m_pVoltageProbe,
                             "\nhmClient::init about to init voltageProbe exited with no data\n");
    startGroup<discreteVoltage>(m_pDiscreteVoltage,
                                "\nhmClient::init about to init discreteVoltage exited with no data\n");
    startGroup<coolingDevice>(m_pCoolingDevice,
                              "\nhmClient::init about to init coolingDevice exited with no data\n",
                              bInverseLinearization);
    startGroup<coolingUnit>(m_pCoolingUnit,
                            "\nhmClient::init about to init coolingUnit exited with no data\n");

    // The one group whose failure goes to standard output rather than to the trace.
    uint32_t status = createGroup<discreteCooling>(m_pDiscreteCooling);
    if (status != CLIENT_SUCCESS) {
        printf("\nError initializing discreteCooling: %d\n", static_cast<int>(status));
        fflush(stdout);
    }

    startGroup<driveSlot>(m_pDriveSlot, "\nhmClient::init about to init driveSlot exited with no data\n");

    status = loadSmbiosInventory();
    if (status != CLIENT_SUCCESS) {
        debugLog("\nHMClient::init smbios() failed on its second load: %u\n", status);
        return status;
    }

    computeHealthStatus();

    m_pEventHandler = new (std::nothrow) eventHandler();
    if (m_pEventHandler == nullptr) {
        debugLog("\nhmClient::init could not allocate the event handler\n");
        return CLIENT_ERROR_NOMEMORY;
    }
    status = m_pEventHandler->init();
    if (status != CLIENT_SUCCESS) {
        debugLog("\nhmClient::init eventHandler init failed: %u\n", status);
        return status;
    }

    seedHealthLists();
    return CLIENT_SUCCESS;
}

void hmClient::computeHealthStatus() {
    if (m_pSystemManagement == nullptr) {
        return;
    }
    // Chassis (2), discrete voltage (7) and cooling units (10) take no part in the health.
    struct Step {
        uint32_t entity;
        const char* trace;
    };
    static const Step steps[] = {
        {processorDeviceEntity, "\n\n After Processor Healthstatus is %d:"},
        {powerSupplyEntity, "\n\n After PowerSupply Healthstatus is %d:"},
        {powerUnitEntity, "\n\n After PowerUnit Healthstatus is %d:"},
        {voltageProbeEntity, "\n\n After VoltageProbe Healthstatus is %d:"},
        {memoryArrayEntity, "\n\n After MemoryArray Healthstatus is %d:"},
        {memoryDeviceEntity, "\n\n After MemoryDevice Healthstatus is %d:"},
        {coolingDeviceEntity, "\n\n After CoolingDevice Healthstatus is %d:"},
        {discreteCoolingEntity, "\n\n After DiscreteCooling Healthstatus is %d:"},
        {temperatureProbeEntity, "\n\n After TemperatureProbe Healthstatus is %d:"},
        {driveSlotEntity, "\n\n After DriveSlot Healthstatus is %d:"},
    };
    int32_t health = HM_STATUS_UNKNOWN;
    m_pSystemManagement->setStatus(health);
    for (const Step& step : steps) {
        // Values of 7 and above are not statuses (8 stands for a missing group).
        uint32_t status = getTableStatus(step.entity);
        if (status < 7 && static_cast<int32_t>(status) > health) {
            health = static_cast<int32_t>(status);
            m_pSystemManagement->setStatus(health);
        }
        debugLog(step.trace, health);
    }
}

void hmClient::seedHealthLists() {
    debugLog("seedHealthLists() called\n");
    // Drive slots count in the health but are not seeded.
    static const uint32_t seeded[] = {processorDeviceEntity, powerSupplyEntity,     powerUnitEntity,
                                      voltageProbeEntity,    memoryArrayEntity,     memoryDeviceEntity,
                                      coolingDeviceEntity,   discreteCoolingEntity, temperatureProbeEntity};
    for (uint32_t entity : seeded) {
        seedHealth(entity);
    }
    debugLog("\n End of seedHealthLists()");
}

void hmClient::releaseTables() {
    m_bGroupsInPlace = false;
    destroy(m_pSystemManagement);
    destroy(m_pChassisInfo);
    destroy(m_pPowerSupply);
    destroy(m_pPowerUnit);
    destroy(m_pVoltageProbe);
    destroy(m_pDiscreteVoltage);
    destroy(m_pCoolingDevice);
    destroy(m_pCoolingUnit);
    destroy(m_pDiscreteCooling);
    destroy(m_pTemperatureProbe);
    destroy(m_pMemoryArray);
    destroy(m_pMemoryDevice);
    destroy(m_pProcessorDevice);
    destroy(m_pDriveSlot);
    destroy(m_pEventHandler);
}

BaseAccessor* hmClient::getTable(uint32_t entity) {
    switch (entity) {
    case systemManagementEntity:
        return m_pSystemManagement;
    case chassisInfoEntity:
        return m_pChassisInfo;
    case processorDeviceEntity:
        return m_pProcessorDevice;
    case powerUnitEntity:
        return m_pPowerUnit;
    case powerSupplyEntity:
        return m_pPowerSupply;
    case voltageProbeEntity:
        return m_pVoltageProbe;
    case discreteVoltageEntity:
        return m_pDiscreteVoltage;
    case memoryArrayEntity:
        return m_pMemoryArray;
    case memoryDeviceEntity:
        return m_pMemoryDevice;
    case coolingUnitEntity:
        return m_pCoolingUnit;
    case coolingDeviceEntity:
        return m_pCoolingDevice;
    case discreteCoolingEntity:
        return m_pDiscreteCooling;
    case temperatureProbeEntity:
        return m_pTemperatureProbe;
    case driveSlotEntity:
        return m_pDriveSlot;
    default:
        return nullptr;
    }
}

eventHandler* hmClient::getEventHandler() {
    return m_pEventHandler;
}

uint32_t hmClient::getIntInfo(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->getIntInfo(static_cast<int>(attribute), static_cast<int>(index), value);
}

uint32_t hmClient::getIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->getIntData(static_cast<int>(attribute), static_cast<int>(index), value);
}

uint32_t hmClient::getStrInfo(uint32_t entity, uint32_t attribute, uint32_t index, char** value) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->getStrInfo(static_cast<int>(attribute), static_cast<int>(index), value);
}

uint32_t hmClient::getStrData(uint32_t entity, uint32_t attribute, uint32_t index, char** value) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->getStrData(static_cast<int>(attribute), static_cast<int>(index), value);
}

uint32_t hmClient::setIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t value) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->setIntData(static_cast<int>(attribute), static_cast<int>(index), value);
}

// A group whose object could not be made at start-up stays in place, empty: it has no
// rows, and an element looked up in it is at position 0. Entities outside 1..14, and
// every entity once the groups are released, have no group.
bool hmClient::isEmptyGroup(uint32_t entity) {
    return m_bGroupsInPlace && entity >= systemManagementEntity && entity <= driveSlotEntity &&
           getTable(entity) == nullptr;
}

uint32_t hmClient::getTableSize(uint32_t entity) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return isEmptyGroup(entity) ? 0 : CLIENT_ERROR_NOGROUP;
    }
    int count = table->getCount();
    return count > 0 ? static_cast<uint32_t>(count) : 0;
}

uint32_t hmClient::findElementById(uint32_t entity, uint32_t id) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return isEmptyGroup(entity) ? 0 : CLIENT_ERROR_NOGROUP;
    }
    return static_cast<uint32_t>(table->findIndexById(id));
}

uint32_t hmClient::getTableStatus(uint32_t entity) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return static_cast<uint32_t>(table->getMaxStatus());
}

uint32_t hmClient::seedHealth(uint32_t entity) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return table->seedHealth(m_pEventHandler);
}

const char* hmClient::getElementName(uint32_t entity, uint32_t index) {
    BaseAccessor* table = getTable(entity);
    if (table == nullptr) {
        return nullptr;
    }
    return table->getDescription(static_cast<int>(index));
}

uint32_t hmClient::processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                                SnmpVarBindList* varBinds, int32_t* trapToSend) {
    if (m_pEventHandler == nullptr) {
        return CLIENT_ERROR_NOGROUP;
    }
    return m_pEventHandler->processEvent(enterprise, specificTrap, varBinds, trapToSend);
}

void hmClient::addEvent(eventData event) {
    if (m_pEventHandler != nullptr) {
        m_pEventHandler->addEvent(event);
    }
}

void hmClient::setHealthstatus(int32_t status) {
    if (m_pSystemManagement != nullptr) {
        m_pSystemManagement->setStatus(status);
    }
}

int32_t hmClient::getHealthstatus() {
    return m_pSystemManagement == nullptr ? HM_STATUS_UNKNOWN : m_pSystemManagement->getStatus();
}

bool hmClient::isDebugEnabled() {
    return m_pSystemManagement != nullptr && m_pSystemManagement->isDebugEnabled();
}

bool hmClient::isTrapsEnabled() {
    return m_pSystemManagement != nullptr && m_pSystemManagement->isTrapsEnabled();
}

bool hmClient::isSetsEnabled() {
    return m_pSystemManagement != nullptr && m_pSystemManagement->isSetsEnabled();
}
