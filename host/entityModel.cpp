#include "host/entityModel.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace hmhost {

namespace {

// IPMI base unit codes as ENTITY-SENSOR-MIB data types; every other code is other(1).
const std::map<uint8_t, int32_t> kUnitTypes = {
    {1, kTypeCelsius}, {4, kTypeVoltsDc}, {5, kTypeAmperes},
    {6, kTypeWatts},   {18, kTypeRpm},    {19, kTypeHertz},
};

// IPMI sensor unit type codes 0-92, by code.
const char* const kUnitNames[] = {"unspecified",
                                  "degrees C",
                                  "degrees F",
                                  "degrees K",
                                  "volts",
                                  "amps",
                                  "watts",
                                  "joules",
                                  "coulombs",
                                  "VA",
                                  "nits",
                                  "lumen",
                                  "lux",
                                  "candela",
                                  "kPa",
                                  "PSI",
                                  "newton",
                                  "CFM",
                                  "RPM",
                                  "Hz",
                                  "microsecond",
                                  "millisecond",
                                  "second",
                                  "minute",
                                  "hour",
                                  "day",
                                  "week",
                                  "mil",
                                  "inches",
                                  "feet",
                                  "cu in",
                                  "cu feet",
                                  "mm",
                                  "cm",
                                  "m",
                                  "cu cm",
                                  "cu m",
                                  "liters",
                                  "fluid ounce",
                                  "radians",
                                  "steradians",
                                  "revolutions",
                                  "cycles",
                                  "gravities",
                                  "ounce",
                                  "pound",
                                  "ft-lb",
                                  "oz-in",
                                  "gauss",
                                  "gilberts",
                                  "henry",
                                  "millihenry",
                                  "farad",
                                  "microfarad",
                                  "ohms",
                                  "siemens",
                                  "mole",
                                  "becquerel",
                                  "PPM",
                                  "reserved",
                                  "decibels",
                                  "DbA",
                                  "DbC",
                                  "gray",
                                  "sievert",
                                  "color temp deg K",
                                  "bit",
                                  "kilobit",
                                  "megabit",
                                  "gigabit",
                                  "byte",
                                  "kilobyte",
                                  "megabyte",
                                  "gigabyte",
                                  "word",
                                  "dword",
                                  "qword",
                                  "line",
                                  "hit",
                                  "miss",
                                  "retry",
                                  "reset",
                                  "overrun",
                                  "underrun",
                                  "collision",
                                  "packets",
                                  "messages",
                                  "characters",
                                  "error",
                                  "correctable error",
                                  "uncorrectable error",
                                  "fatal error",
                                  "grams"};

struct EntityKind {
    int32_t physicalClass;
    const char* name;
};
// IPMI entity IDs the tree names; others are other(1), named by number.
const std::map<uint8_t, EntityKind> kEntityKinds = {
    {3, {kClassCpu, "Processor"}},
    {4, {kClassOther, "Disk Bay"}},
    {6, {kClassModule, "Management Module"}},
    {7, {kClassModule, "System Board"}},
    {8, {kClassModule, "Memory Module"}},
    {10, {kClassPowerSupply, "Power Supply"}},
    {11, {kClassModule, "Add-in Card"}},
    {19, {kClassPowerSupply, "Power Unit"}},
    {20, {kClassPowerSupply, "Power Module"}},
    {23, {kClassChassis, "System Chassis"}},
    {26, {kClassOther, "Disk Drive"}},
    {29, {kClassFan, "Fan"}},
    {30, {kClassFan, "Cooling Unit"}},
    {32, {kClassModule, "Memory Device"}},
    {55, {kClassOther, "Air Inlet"}},
    {64, {kClassOther, "Air Inlet"}},
    {65, {kClassCpu, "Processor"}},
    {66, {kClassModule, "Baseboard"}},
};

constexpr uint8_t kSystemChassis = 23;
constexpr int32_t kMaxValue = 1000000000; // entPhySensorValue's range

} // namespace

int32_t entityIndex(uint8_t entityId, uint8_t instance) {
    return entityId * 1000 + instance;
}

int32_t sensorIndex(uint8_t owner, uint8_t lun, uint8_t number) {
    return 1000000000 + owner * 1000000 + lun * 1000 + number;
}

int32_t sensorTypeFor(uint8_t baseUnit) {
    auto it = kUnitTypes.find(baseUnit);
    return it == kUnitTypes.end() ? kTypeOther : it->second;
}

std::string unitName(uint8_t baseUnit) {
    if (baseUnit < sizeof kUnitNames / sizeof kUnitNames[0])
        return kUnitNames[baseUnit];
    return "unit " + std::to_string(baseUnit);
}

int32_t physicalClassFor(uint8_t entityId) {
    auto it = kEntityKinds.find(entityId);
    return it == kEntityKinds.end() ? kClassOther : it->second.physicalClass;
}

std::string entityName(uint8_t entityId, uint8_t instance) {
    auto it = kEntityKinds.find(entityId);
    const std::string kind =
        it == kEntityKinds.end() ? "Entity " + std::to_string(entityId) : it->second.name;
    // Device-relative instances (0x60 and up) keep their number as the record gives it.
    return kind + " " + std::to_string(instance);
}

int32_t precisionFor(const kelvarn::SdrFields& sdr) {
    // Non-linear records (0x70-0x7F) apply the record's factors as they are.
    if (sdr.linearization != 0 && sdr.linearization < 0x70)
        return 2;
    int exponent = sdr.rExp;
    if (sdr.b != 0)
        exponent = std::min(exponent, sdr.rExp + sdr.bExp);
    return std::clamp(-exponent, 0, 9);
}

EntityModel buildModel(const ChassisFacts& chassis, const std::vector<SensorFacts>& sensors,
                       const std::vector<std::pair<uint8_t, uint8_t>>& containers) {
    EntityModel model;
    PhysicalEntry root;
    root.index = kChassisIndex;
    root.physicalClass = kClassChassis;
    root.description = chassis.description.empty() ? "System Chassis" : chassis.description;
    root.name = "System Chassis";
    root.serial = chassis.serial;
    root.manufacturer = chassis.manufacturer;
    root.model = chassis.model.empty() ? chassis.partNumber : chassis.model;
    root.hardwareRevision = chassis.hardwareRevision;
    root.assetTag = chassis.assetTag;
    root.fru = !chassis.serial.empty();

    std::map<int32_t, PhysicalEntry> entries; // by index
    std::set<std::pair<uint8_t, uint8_t>> known(containers.begin(), containers.end());
    for (const SensorFacts& s : sensors)
        known.insert({s.sdr.entityId, s.sdr.entityInstance});
    for (const auto& [id, instance] : known) {
        if (id == kSystemChassis)
            continue;
        PhysicalEntry e;
        e.index = entityIndex(id, instance);
        e.physicalClass = physicalClassFor(id);
        e.name = entityName(id, instance);
        e.description = e.name;
        e.containedIn = kChassisIndex;
        entries[e.index] = e;
    }
    for (const SensorFacts& s : sensors) {
        PhysicalEntry e;
        e.index = sensorIndex(s.sdr.owner, s.sdr.lun, s.sdr.number);
        e.physicalClass = kClassSensor;
        e.name = s.sdr.name;
        e.description = s.sdr.name + " (" + unitName(s.sdr.baseUnit) + ")";
        const int32_t parent = entityIndex(s.sdr.entityId, s.sdr.entityInstance);
        e.containedIn = entries.count(parent) != 0 ? parent : kChassisIndex;
        if (entries.count(e.index) != 0)
            continue; // the first record of an owner, LUN and number answers, as in the query service
        entries[e.index] = e;

        SensorRow row;
        row.index = e.index;
        row.type = sensorTypeFor(s.sdr.baseUnit);
        row.precision = precisionFor(s.sdr);
        row.unitsDisplay = unitName(s.sdr.baseUnit);
        if (s.state == SensorFacts::State::Disabled) {
            row.status = kStatusNonoperational;
        } else if (s.state == SensorFacts::State::Read) {
            const double scaled = std::round(s.value * std::pow(10.0, row.precision));
            if (std::isfinite(scaled) && std::fabs(scaled) <= kMaxValue) {
                row.value = static_cast<int32_t>(scaled);
                row.status = kStatusOk;
            }
        }
        model.sensors.push_back(row);
    }
    // Siblings share a parent and a class; each is numbered from 1 in index order.
    std::map<std::pair<int32_t, int32_t>, int32_t> positions;
    model.entries.push_back(root);
    for (auto& [index, e] : entries) {
        e.parentRelPos = ++positions[{e.containedIn, e.physicalClass}];
        model.entries.push_back(e);
    }
    std::sort(model.sensors.begin(), model.sensors.end(),
              [](const SensorRow& a, const SensorRow& b) { return a.index < b.index; });
    return model;
}

} // namespace hmhost
