#include "host/entityTables.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "kelvarn/Ipmi.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/System.h"

namespace hmhost {

namespace {

const oid kPhysicalTable[] = {1, 3, 6, 1, 2, 1, 47, 1, 1, 1};
const oid kLastChangeTime[] = {1, 3, 6, 1, 2, 1, 47, 1, 4, 1};
const oid kSensorTable[] = {1, 3, 6, 1, 2, 1, 99, 1, 1};

// entPhysicalEntry and entPhySensorEntry columns.
enum PhysicalColumn {
    kDescr = 2,
    kVendorType,
    kContainedIn,
    kClass,
    kParentRelPos,
    kName,
    kHardwareRev,
    kFirmwareRev,
    kSoftwareRev,
    kSerialNum,
    kMfgName,
    kModelName,
    kAlias,
    kAssetId,
    kIsFru,
    kMfgDate,
    kUris,
    kUuid,
};
enum SensorColumn {
    kType = 1,
    kScale,
    kPrecision,
    kValue,
    kOperStatus,
    kUnitsDisplay,
    kTimeStamp,
    kUpdateRate
};

constexpr uint8_t kScanningEnabled = 0x01; // SDR sensor initialization byte: scanning enabled at power-up

std::string valueOf(const std::map<std::string, _XNode>& result, const std::string& key) {
    auto it = result.find(key);
    return it == result.end() || it->second.Values.empty() ? "" : it->second.Values.front();
}

bool parseHex(const std::string& text, kelvarn::Bytes& bytes) {
    bytes.clear();
    const char* p = text.c_str();
    while (*p != '\0') {
        char* end = nullptr;
        const unsigned long byte = std::strtoul(p, &end, 16);
        if (end == p || byte > 0xFF)
            return false;
        bytes.push_back(static_cast<uint8_t>(byte));
        p = end;
        while (*p == ' ')
            ++p;
    }
    return true;
}

void setText(netsnmp_table_row* row, int column, const std::string& text) {
    netsnmp_set_row_column(row, column, ASN_OCTET_STR, text.data(), text.size());
}

void setInteger(netsnmp_table_row* row, int column, long value) {
    netsnmp_set_row_column(row, column, ASN_INTEGER, &value, sizeof value);
}

netsnmp_table_data_set* createSet(const char* name, int firstColumn, int lastColumn) {
    netsnmp_table_data_set* set = netsnmp_create_table_data_set(name);
    netsnmp_table_dataset_add_index(set, ASN_INTEGER);
    for (int column = firstColumn; column <= lastColumn; ++column)
        netsnmp_table_set_add_default_row(set, column, ASN_INTEGER, 0, nullptr, 0);
    return set;
}

} // namespace

unsigned sourceRefreshMs() {
    try {
        const kelvarn::ServiceConfig config = kelvarn::readServiceConfig();
        const std::string bmc = config.bmc.empty() ? config.source : config.bmc;
        if (bmc == "ipmi-inband" || bmc == "ipmi-lan")
            return kelvarn::parseIpmiSettings(bmc == "ipmi-lan" ? kelvarn::IpmiSettings::Mode::Lan
                                                                : kelvarn::IpmiSettings::Mode::Inband,
                                              config.ipmi, config.origin)
                .refreshMs;
    } catch (const std::exception&) {
        // The query service reports its own configuration problems at its first query.
    }
    return kelvarn::IpmiSettings{}.refreshMs;
}

// How often the query service reads every sensor again (0: at each query, or unknown).
unsigned long readingRefreshPeriodMs(SDK::System& system) {
    std::map<std::string, _XNode> result;
    try {
        system.Get("/BMC/READING_REFRESH_MS", result);
    } catch (const ResultStatus&) {
        return 0;
    }
    auto it = result.find("/BMC/READING_REFRESH_MS");
    return it == result.end() || it->second.Values.empty()
               ? 0
               : std::strtoul(it->second.Values[0].c_str(), nullptr, 10);
}

bool readSensorRecords(SDK::System& system, EntityFacts& facts) {
    std::map<std::string, _XNode> result;
    try {
        system.SetFlags(1);
        system.Get("/BMC/SDR", result);
    } catch (const ResultStatus&) {
        return false;
    }
    facts.sensors.clear();
    facts.containers.clear();
    for (const auto& [key, node] : result) {
        kelvarn::Bytes bytes;
        kelvarn::SdrFields sdr;
        if (node.Values.empty() || !parseHex(node.Values.front(), bytes) || !kelvarn::decodeSdr(bytes, sdr))
            continue;
        facts.containers.push_back({sdr.entityId, sdr.entityInstance});
        if (sdr.eventReadingType == kelvarn::kEventReadingThreshold &&
            sdr.recordType == kelvarn::kSdrFullSensor)
            facts.sensors.push_back({sdr, SensorFacts::State::Unavailable, 0});
    }
    return true;
}

void readReadings(SDK::System& system, EntityFacts& facts) {
    for (SensorFacts& s : facts.sensors) {
        const std::string path = "/BMC/SENSOR[" + std::to_string(s.sdr.number) + "]/OWNER[" +
                                 std::to_string(s.sdr.owner) + "]/LUN[" + std::to_string(s.sdr.lun) +
                                 "]/INTERPRET_SENSOR_VALUE";
        s.state = SensorFacts::State::Unavailable;
        std::map<std::string, _XNode> result;
        try {
            system.Get(path, result);
        } catch (const ResultStatus&) {
            continue;
        }
        const std::string text = valueOf(result, path);
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (!text.empty() && end != nullptr && *end == '\0') {
            s.state = SensorFacts::State::Read;
            s.value = value;
        } else if ((s.sdr.initialization & kScanningEnabled) == 0) {
            s.state = SensorFacts::State::Disabled;
        }
    }
}

void readChassis(SDK::System& system, ChassisFacts& chassis) {
    std::map<std::string, _XNode> fru, smbios;
    try {
        system.Get("/BMC/FRU", fru);
    } catch (const ResultStatus&) {
    }
    try {
        system.Get("/SMBIOS/Type3", smbios);
    } catch (const ResultStatus&) {
    }
    const std::string product = "/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/";
    auto first = [](const std::string& a, const std::string& b) { return a.empty() ? b : a; };
    chassis.description = valueOf(fru, product + "NAME");
    chassis.manufacturer =
        first(valueOf(fru, product + "MANUFACTURER"), valueOf(smbios, "/SMBIOS/Type3/Manufacturer"));
    chassis.model = valueOf(fru, product + "PART_NUMBER");
    chassis.partNumber = valueOf(fru, "/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/PART_NUMBER");
    chassis.serial = first(valueOf(fru, "/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/SERIAL_NUMBER"),
                           valueOf(smbios, "/SMBIOS/Type3/SerialNumber"));
    chassis.hardwareRevision =
        first(valueOf(fru, product + "VERSION"), valueOf(smbios, "/SMBIOS/Type3/Version"));
    chassis.assetTag = first(valueOf(fru, product + "ASSET_TAG"), valueOf(smbios, "/SMBIOS/Type3/AssetTag"));
}

EntityTables::EntityTables() : m_system(std::make_unique<SDK::System>()) {}

EntityTables::~EntityTables() {
    stop();
}

bool EntityTables::start(std::string& error) {
    m_physical = createSet("entPhysicalTable", kDescr, kUuid);
    m_sensors = createSet("entPhySensorTable", kType, kUpdateRate);
    m_refreshMs = sourceRefreshMs();
    readChassis(*m_system, m_facts.chassis);
    refresh();

    struct Table {
        const char* name;
        const oid* root;
        size_t length;
        netsnmp_table_data_set* set;
    };
    for (const Table& t : {Table{"entPhysicalTable", kPhysicalTable, OID_LENGTH(kPhysicalTable), m_physical},
                           Table{"entPhySensorTable", kSensorTable, OID_LENGTH(kSensorTable), m_sensors}}) {
        netsnmp_handler_registration* reg =
            netsnmp_create_handler_registration(t.name, nullptr, t.root, t.length, HANDLER_CAN_RONLY);
        if (reg == nullptr || netsnmp_register_table_data_set(reg, t.set, nullptr) != SNMPERR_SUCCESS) {
            error = std::string("cannot register ") + t.name;
            return false;
        }
        m_registrations.push_back(reg);
    }
    netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
        "entLastChangeTime", nullptr, kLastChangeTime, OID_LENGTH(kLastChangeTime), HANDLER_CAN_RONLY);
    netsnmp_watcher_info* watcher =
        netsnmp_create_watcher_info(&m_lastChange, sizeof m_lastChange, ASN_TIMETICKS, WATCHER_FIXED_SIZE);
    if (reg == nullptr || watcher == nullptr ||
        netsnmp_register_watched_scalar2(reg, watcher) != SNMPERR_SUCCESS) {
        error = "cannot register entLastChangeTime";
        return false;
    }
    m_registrations.push_back(reg);

    struct timeval period {};
    period.tv_sec = m_refreshMs / 1000;
    period.tv_usec = (m_refreshMs % 1000) * 1000;
    m_alarm = snmp_alarm_register_hr(period, SA_REPEAT, onAlarm, this);
    return true;
}

void EntityTables::stop() {
    if (m_alarm != 0)
        snmp_alarm_unregister(m_alarm);
    m_alarm = 0;
    for (netsnmp_handler_registration* reg : m_registrations)
        netsnmp_unregister_handler(reg);
    m_registrations.clear();
    for (netsnmp_table_data_set** set : {&m_physical, &m_sensors}) {
        if (*set != nullptr) {
            netsnmp_table_dataset_delete_all_data((*set)->default_row);
            (*set)->default_row = nullptr;
            netsnmp_delete_table_data_set(*set);
        }
        *set = nullptr;
    }
}

void EntityTables::onAlarm(unsigned int, void* data) {
    static_cast<EntityTables*>(data)->refresh();
}

void EntityTables::refresh() {
    const bool recordsRead = readSensorRecords(*m_system, m_facts);
    if (recordsRead) {
        readReadings(*m_system, m_facts);
    } else {
        for (SensorFacts& s : m_facts.sensors)
            s.state = SensorFacts::State::Unavailable; // the rows stay, their values are no longer known
    }
    // A value is at most one source period and one table refresh old.
    m_updateRateMs = std::max<unsigned long>(m_refreshMs, readingRefreshPeriodMs(*m_system));
    publish(buildModel(m_facts.chassis, m_facts.sensors, m_facts.containers),
            static_cast<u_long>(netsnmp_get_agent_uptime()));
}

void EntityTables::publish(const EntityModel& model, u_long now) {
    std::vector<int32_t> indexes;
    for (const PhysicalEntry& e : model.entries)
        indexes.push_back(e.index);
    if (indexes != m_indexes) {
        m_indexes = indexes;
        m_lastChange = now;
    }
    for (netsnmp_table_data_set* set : {m_physical, m_sensors}) {
        while (netsnmp_table_row* row = netsnmp_table_data_set_get_first_row(set))
            netsnmp_table_dataset_remove_and_delete_row(set, row);
    }
    static const oid kZeroDotZero[] = {0, 0};
    static const u_char kNoDate[8] = {};
    for (const PhysicalEntry& e : model.entries) {
        netsnmp_table_row* row = netsnmp_create_table_data_row();
        long index = e.index;
        netsnmp_table_row_add_index(row, ASN_INTEGER, &index, sizeof index);
        setText(row, kDescr, e.description);
        netsnmp_set_row_column(row, kVendorType, ASN_OBJECT_ID, kZeroDotZero, sizeof kZeroDotZero);
        setInteger(row, kContainedIn, e.containedIn);
        setInteger(row, kClass, e.physicalClass);
        setInteger(row, kParentRelPos, e.parentRelPos);
        setText(row, kName, e.name);
        setText(row, kHardwareRev, e.hardwareRevision);
        setText(row, kFirmwareRev, "");
        setText(row, kSoftwareRev, "");
        setText(row, kSerialNum, e.serial);
        setText(row, kMfgName, e.manufacturer);
        setText(row, kModelName, e.model);
        setText(row, kAlias, "");
        setText(row, kAssetId, e.assetTag);
        setInteger(row, kIsFru, e.fru ? 1 : 2);
        netsnmp_set_row_column(row, kMfgDate, ASN_OCTET_STR, kNoDate, sizeof kNoDate);
        setText(row, kUris, "");
        setText(row, kUuid, "");
        netsnmp_table_dataset_add_row(m_physical, row);
    }
    const u_long rate = m_updateRateMs;
    for (const SensorRow& s : model.sensors) {
        netsnmp_table_row* row = netsnmp_create_table_data_row();
        long index = s.index;
        netsnmp_table_row_add_index(row, ASN_INTEGER, &index, sizeof index);
        setInteger(row, kType, s.type);
        setInteger(row, kScale, s.scale);
        setInteger(row, kPrecision, s.precision);
        setInteger(row, kValue, s.value);
        setInteger(row, kOperStatus, s.status);
        setText(row, kUnitsDisplay, s.unitsDisplay);
        netsnmp_set_row_column(row, kTimeStamp, ASN_TIMETICKS, &now, sizeof now);
        netsnmp_set_row_column(row, kUpdateRate, ASN_UNSIGNED, &rate, sizeof rate);
        netsnmp_table_dataset_add_row(m_sensors, row);
    }
}

} // namespace hmhost
