// The client facade: owns every data group and the event handler, runs start-up and
// routes (entity, attribute, index) requests to the group of the entity.
#ifndef HM_CORE_HMCLIENT_H
#define HM_CORE_HMCLIENT_H

#include <cstdint>

#include "core/subagentBase.h"

class systemManagement;

// Registry key of the agent's parameters, under HKEY_LOCAL_MACHINE, and its values.
// Key: SOFTWARE\Arveni\FleetwatchSNMP\Parameters
#define HM_REGISTRY_KEY "SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters"
#define HM_REGISTRY_CONFIGFILE "ConfigFile"
#define HM_REGISTRY_LOGFILE "LogFile"
// DWORD; non-zero swaps the upper and lower thresholds of the cooling devices.
#define HM_REGISTRY_INVERSELINEARIZATION "bInverseLinearization"

// Size of each registry path buffer, terminating NUL included.
constexpr uint32_t HM_PATH_SIZE = 128;

class hmClient : public subagentBase {
public:
    hmClient();
    ~hmClient() override;

    uint32_t init() override;
    void releaseTables() override;
    uint32_t getIntInfo(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) override;
    uint32_t getIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value) override;
    uint32_t getStrInfo(uint32_t entity, uint32_t attribute, uint32_t index, char** value) override;
    uint32_t getStrData(uint32_t entity, uint32_t attribute, uint32_t index, char** value) override;
    uint32_t setIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t value) override;
    uint32_t getTableSize(uint32_t entity) override;
    uint32_t findElementById(uint32_t entity, uint32_t id) override;
    uint32_t getTableStatus(uint32_t entity) override;
    uint32_t seedHealth(uint32_t entity) override;
    const char* getElementName(uint32_t entity, uint32_t index) override;
    uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap,
                          SnmpVarBindList* varBinds, int32_t* trapToSend) override;
    void addEvent(eventData event) override;
    void setHealthstatus(int32_t status) override;
    int32_t getHealthstatus() override;
    bool isDebugEnabled() override;
    bool isTrapsEnabled() override;
    bool isSetsEnabled() override;
    uint32_t readRegistryParams() override;
    // Reads the registry value "bInverseLinearization" into the flag below: set when the
    // value is a non-zero DWORD, clear when it is absent, zero or of another type.
    void readInverseLinearization();

    // Fans whose raw value falls as the speed rises: the cooling devices publish and judge
    // their upper thresholds as lower ones and the other way round.
    static bool bInverseLinearization;
    BaseAccessor* getTable(uint32_t entity) override;
    eventHandler* getEventHandler() override;
    // True for an entity of 1..14 whose group object could not be made.
    bool isEmptyGroup(uint32_t entity);

    // Overall health: "unknown", raised to the worst status (below 7) of the counted groups.
    void computeHealthStatus();
    // Puts every element that is not "ok" of the seeded groups into the health lists.
    void seedHealthLists();

    const char* logFilePath() const { return m_stLogFile; }

protected:
    // Groups, owned. The system group is entity 1; the tables are reached through their
    // common interface.
    // Set by init once it starts making the groups, cleared when they are released.
    bool m_bGroupsInPlace = false;
    systemManagement* m_pSystemManagement = nullptr;
    BaseAccessor* m_pChassisInfo = nullptr;
    BaseAccessor* m_pPowerSupply = nullptr;
    BaseAccessor* m_pPowerUnit = nullptr;
    BaseAccessor* m_pVoltageProbe = nullptr;
    BaseAccessor* m_pDiscreteVoltage = nullptr;
    BaseAccessor* m_pCoolingDevice = nullptr;
    BaseAccessor* m_pCoolingUnit = nullptr;
    BaseAccessor* m_pDiscreteCooling = nullptr;
    BaseAccessor* m_pTemperatureProbe = nullptr;
    BaseAccessor* m_pMemoryArray = nullptr;
    BaseAccessor* m_pMemoryDevice = nullptr;
    BaseAccessor* m_pProcessorDevice = nullptr;
    BaseAccessor* m_pDriveSlot = nullptr;
    eventHandler* m_pEventHandler = nullptr;
    char m_stLogFile[HM_PATH_SIZE];
    char m_stConfigFile[HM_PATH_SIZE];
};

#endif
