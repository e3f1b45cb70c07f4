// ENTITY-MIB's entPhysicalTable and entLastChangeTime and ENTITY-SENSOR-MIB's
// entPhySensorTable, served with net-snmp's table_dataset and watcher helpers
// from rows rebuilt every refresh period out of the query service's memory: a
// request is answered from the rows and never waits on a query.
#ifndef HM_HOST_ENTITYTABLES_H
#define HM_HOST_ENTITYTABLES_H

#include <memory>
#include <string>
#include <vector>

#include "host/entityModel.h"
#include "host/netSnmp.h"

namespace SDK {
class System;
}

namespace hmhost {

// How often, in milliseconds, the data source refreshes its readings: the
// IPMI source's configured refresh period (ipmi-refresh-ms), else its default.
// The rows are rebuilt that often and entPhySensorValueUpdateRate says so.
unsigned sourceRefreshMs();

// Reads the facts the model is built from. A sensor whose reading cannot be
// had (no reading, stale data, a failed query) is unavailable; a failed
// record query leaves `sensors` and `containers` untouched.
struct EntityFacts {
    ChassisFacts chassis;
    std::vector<SensorFacts> sensors;
    std::vector<std::pair<uint8_t, uint8_t>> containers;
};
bool readSensorRecords(SDK::System& system, EntityFacts& facts);
void readReadings(SDK::System& system, EntityFacts& facts);
void readChassis(SDK::System& system, ChassisFacts& chassis);

class EntityTables {
public:
    EntityTables();
    ~EntityTables();
    EntityTables(const EntityTables&) = delete;
    EntityTables& operator=(const EntityTables&) = delete;

    // Reads the data once, registers the tables and starts the refresh timer.
    bool start(std::string& error);
    void stop();

    // Reads the query service again and replaces the rows.
    void refresh();

private:
    static void onAlarm(unsigned int, void* data);
    void publish(const EntityModel& model, u_long now);

    std::unique_ptr<SDK::System> m_system;
    EntityFacts m_facts;
    netsnmp_table_data_set* m_physical = nullptr;
    netsnmp_table_data_set* m_sensors = nullptr;
    std::vector<netsnmp_handler_registration*> m_registrations;
    std::vector<int32_t> m_indexes; // the entPhysicalIndex values last published
    u_long m_lastChange = 0;        // entLastChangeTime, in hundredths of a second
    unsigned int m_alarm = 0;
    unsigned m_refreshMs = 0;
    unsigned long m_updateRateMs = 0; // entPhySensorValueUpdateRate: source period or table refresh
};

} // namespace hmhost

#endif
