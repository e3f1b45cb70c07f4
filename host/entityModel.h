// The physical tree and the sensor rows the daemon publishes in ENTITY-MIB's
// entPhysicalTable and ENTITY-SENSOR-MIB's entPhySensorTable, built from the
// facts the query service gives: the sensor records, each threshold sensor's
// reading and the chassis's identity. Pure: no query, no net-snmp call.
#ifndef HM_HOST_ENTITYMODEL_H
#define HM_HOST_ENTITYMODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "kelvarn/Sdr.h"

namespace hmhost {

// IANA PhysicalClass values used here.
enum PhysicalClass : int32_t {
    kClassOther = 1,
    kClassChassis = 3,
    kClassPowerSupply = 6,
    kClassFan = 7,
    kClassSensor = 8,
    kClassModule = 9,
    kClassCpu = 12,
};

// ENTITY-SENSOR-MIB's EntitySensorDataType, EntitySensorDataScale and EntitySensorStatus.
enum SensorDataType : int32_t {
    kTypeOther = 1,
    kTypeVoltsDc = 4,
    kTypeAmperes = 5,
    kTypeWatts = 6,
    kTypeHertz = 7,
    kTypeCelsius = 8,
    kTypeRpm = 10,
};
constexpr int32_t kScaleUnits = 9;
enum SensorStatus : int32_t { kStatusOk = 1, kStatusUnavailable = 2, kStatusNonoperational = 3 };

// What the query service said about one threshold sensor's reading.
struct SensorFacts {
    kelvarn::SdrFields sdr;
    enum class State { Read, Unavailable, Disabled } state = State::Unavailable;
    double value = 0; // in the SDR's unit, when Read
};

struct ChassisFacts {
    std::string description, manufacturer, model, serial, partNumber, hardwareRevision, assetTag;
};

struct PhysicalEntry {
    int32_t index = 0;
    std::string description, name, serial, manufacturer, model, hardwareRevision, assetTag;
    int32_t containedIn = 0, parentRelPos = -1;
    int32_t physicalClass = kClassOther;
    bool fru = false;
};

struct SensorRow {
    int32_t index = 0; // the sensor's entPhysicalIndex
    int32_t type = kTypeOther, scale = kScaleUnits, precision = 0, value = 0;
    int32_t status = kStatusUnavailable;
    std::string unitsDisplay;
};

struct EntityModel {
    std::vector<PhysicalEntry> entries; // in index order, the chassis first
    std::vector<SensorRow> sensors;     // in index order
};

// The chassis's fixed index; an entity's index from its SDR entity ID and
// instance (ID·1000 + instance: 10002 is power supply 2); a sensor's from its
// owner, LUN byte and number (10^9 + owner·10^6 + LUN·1000 + number: 1032000016
// is sensor 16 of owner 0x20, LUN 0). The same hardware gives the same indexes
// in every run.
constexpr int32_t kChassisIndex = 1;
int32_t entityIndex(uint8_t entityId, uint8_t instance);
int32_t sensorIndex(uint8_t owner, uint8_t lun, uint8_t number);

// The entPhySensorType for an IPMI base unit code, and the unit's name.
int32_t sensorTypeFor(uint8_t baseUnit);
std::string unitName(uint8_t baseUnit);
// The entPhysicalClass and a name for an IPMI entity ID.
int32_t physicalClassFor(uint8_t entityId);
std::string entityName(uint8_t entityId, uint8_t instance);

// The decimal places that keep every digit of the record's resolution: the
// smallest power of ten in M·x·10^Rexp + B·10^(Bexp+Rexp), 0 or more; 2 for
// records linearized by a function (ln ... cube root), which have no fixed step.
int32_t precisionFor(const kelvarn::SdrFields& sdr);

// Builds the tree and the rows. `sensors` are threshold sensors, `containers`
// the (entity ID, instance) of every sensor record (discrete ones too).
EntityModel buildModel(const ChassisFacts& chassis, const std::vector<SensorFacts>& sensors,
                       const std::vector<std::pair<uint8_t, uint8_t>>& containers);

} // namespace hmhost

#endif
