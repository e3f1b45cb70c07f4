// Interprets a Source's IPMI and SMBIOS facts into query answers.
#include <cstdio>
#include <ctime>
#include <mutex>
#include <unordered_map>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "kelvarn/Errors.h"
#include "kelvarn/Journal.h"
#include "kelvarn/Platform.h"
#include "kelvarn/Responder.h"
#include "kelvarn/Sdr.h"
#include "kelvarn/SelEvents.h"
#include "kelvarn/SensorStates.h"
#include "PortableIo.h"

namespace kelvarn {

Source::~Source() = default;

Inventory Source::inventoryFor(const std::string&) {
    return inventory();
}

std::shared_ptr<const std::vector<Bytes>> Source::sharedSdrRepository() {
    return std::make_shared<const std::vector<Bytes>>(sdrRepository());
}

namespace {

const char* const kNotSupported = "NOT SUPPORTED";
const char* const kReadingUnavailable = "READING_UNAVAILABLE";
const char* const kSelPath = "/BMC/SEL/TRANSLATED";

struct ThresholdKey {
    const char* key;
    ThresholdBit bit;
};
const ThresholdKey kThresholdKeys[] = {
    {"UPPER_NONRECOVERABLE", kUpperNonRecoverable},
    {"UPPER_CRITICAL", kUpperCritical},
    {"UPPER_NONCRITICAL", kUpperNonCritical},
    {"LOWER_NONCRITICAL", kLowerNonCritical},
    {"LOWER_CRITICAL", kLowerCritical},
    {"LOWER_NONRECOVERABLE", kLowerNonRecoverable},
};

// SMBIOS memory type-detail names (type 17, bits 3-12).
const char* const kTypeDetailNames[] = {"Fast-paged",  "Static column", "Pseudo-static", "RAMBUS",
                                        "Synchronous", "CMOS",          "EDO",           "Window DRAM",
                                        "Cache DRAM",  "Non-volatile"};

// Indexed containers of the inventory tree, by shape: an index that names no
// instance below one of these is "no such instance" rather than "unknown path".
const char* const kIndexedShapes[] = {"/BMC/FRU[]", "/SMBIOS/ProcessorInfo[]", "/SMBIOS/MemoryArray[]",
                                      "/SMBIOS/MemoryArray[]/MemoryDevice[]"};

_XNode valueNode(std::string value, const char* form) {
    _XNode n;
    n.NodeType = 0;
    n.Values.push_back(std::move(value));
    n.Form = form;
    return n;
}

_XNode containerNode(std::vector<std::string> children) {
    _XNode n;
    n.NodeType = 1;
    n.Values = std::move(children);
    n.Form = "paths";
    return n;
}

[[noreturn]] void unknownPath(const std::string& path) {
    throw QueryError(kUnknownPath, "unknown path \"" + path + "\"");
}

[[noreturn]] void noInstance(const std::string& what) {
    throw QueryError(kNoSuchInstance, what);
}

struct Sensor {
    size_t index; // position in the SDR repository
    SdrFields fields;
};

uint32_t sensorKey(uint32_t number, uint32_t owner, uint32_t lun) {
    return number << 16 | owner << 8 | lun;
}

// One SDR repository decoded once: its sensor records in repository order, and
// lookups by record position, by (number, owner, LUN byte) and by (number, owner).
struct SdrIndex {
    std::shared_ptr<const std::vector<Bytes>> sdr;
    std::vector<Sensor> sensors;
    std::vector<const Sensor*> byRecord;                                    // nullptr: not a sensor record
    std::unordered_map<uint32_t, const Sensor*> byAddress;                  // first in repository order
    std::unordered_map<uint32_t, std::vector<const Sensor*>> byNumberOwner; // repository order

    explicit SdrIndex(std::shared_ptr<const std::vector<Bytes>> records) : sdr(std::move(records)) {
        for (size_t i = 0; i < sdr->size(); ++i) {
            Sensor s{i, {}};
            if (decodeSdr((*sdr)[i], s.fields))
                sensors.push_back(std::move(s));
        }
        byRecord.assign(sdr->size(), nullptr);
        for (const Sensor& s : sensors) {
            byRecord[s.index] = &s;
            byAddress.emplace(sensorKey(s.fields.number, s.fields.owner, s.fields.lun), &s);
            byNumberOwner[sensorKey(s.fields.number, s.fields.owner, 0)].push_back(&s);
        }
    }
    SdrIndex(const SdrIndex&) = delete;
    SdrIndex& operator=(const SdrIndex&) = delete;

    const Sensor* find(uint32_t number, uint32_t owner, uint32_t lun) const {
        if (number > 0xFF || owner > 0xFF || lun > 0xFF)
            return nullptr;
        auto it = byAddress.find(sensorKey(number, owner, lun));
        return it == byAddress.end() ? nullptr : it->second;
    }
};

class PlatformResponder : public Responder {
public:
    explicit PlatformResponder(std::shared_ptr<Source> source) : m_source(std::move(source)) {}

    void answer(const std::string& path, const std::vector<PathSegment>& seg, const Parameters& params,
                uint8_t /*flags: the answers do not depend on the query mode*/, ResultMap& out) override {
        if (seg[0].is("BMC") && seg.size() >= 2) {
            const PathSegment& s1 = seg[1];
            if (s1.is("SDR") || s1.isIndexed("SDR"))
                return answerSdr(path, seg, out);
            if (s1.isIndexed("SENSOR"))
                return answerSensor(path, seg, out);
            if (s1.is("SEL") && seg.size() >= 3 && seg[2].name == "TRANSLATED")
                return answerSel(path, seg, params, out);
            if (s1.name == "FRU" || s1.is("OEM"))
                return answerTree(path, out);
            if (s1.is("READING_REFRESH_MS") && seg.size() == 2) {
                out[path] = valueNode(std::to_string(m_source->readingRefreshPeriodMs()), "decimal");
                return;
            }
        } else if (seg[0].is("SMBIOS") && seg.size() >= 2) {
            return answerTree(path, out);
        }
        unknownPath(path);
    }

private:
    // The decoded SDR of the source's current repository. It is decoded again
    // only when the source hands out a different repository whose records differ.
    std::shared_ptr<const SdrIndex> sdrIndex() {
        std::shared_ptr<const std::vector<Bytes>> sdr = m_source->sharedSdrRepository();
        std::lock_guard<std::mutex> guard(m_indexLock);
        if (m_index && m_lastSdr != sdr) {
            if (*m_index->sdr == *sdr)
                m_lastSdr = sdr; // same records (a change elsewhere in the platform)
            else
                m_index.reset();
        }
        if (!m_index) {
            m_lastSdr = sdr;
            m_index = std::make_shared<const SdrIndex>(std::move(sdr));
        }
        return m_index;
    }

    static std::string sdrKey(size_t index) { return "/BMC/SDR[" + std::to_string(index) + "]"; }

    // /BMC/SDR, /BMC/SDR[i], /BMC/SDR/SENSOR_TYPE[t], /BMC/SDR/RECORD_TYPE[k]
    void answerSdr(const std::string& path, const std::vector<PathSegment>& seg, ResultMap& out) {
        const std::shared_ptr<const SdrIndex> index = sdrIndex();
        const std::vector<Bytes>& sdr = *index->sdr;
        if (seg.size() == 2 && seg[1].hasIndex) {
            if (seg[1].index >= sdr.size())
                noInstance("SDR record " + std::to_string(seg[1].index) +
                           " does not exist (the repository holds " + std::to_string(sdr.size()) + ")");
            out[path] = valueNode(hexBytes(sdr[seg[1].index].data(), sdr[seg[1].index].size()), "hex");
            return;
        }
        if (seg.size() == 2) {
            for (size_t i = 0; i < sdr.size(); ++i)
                out[sdrKey(i)] = valueNode(hexBytes(sdr[i].data(), sdr[i].size()), "hex");
            return;
        }
        if (seg.size() != 3)
            unknownPath(path);
        const bool bySensorType = seg[2].isIndexed("SENSOR_TYPE");
        if (!bySensorType && !seg[2].isIndexed("RECORD_TYPE"))
            unknownPath(path);
        if (seg[2].index > 0xFF)
            noInstance(seg[2].name + " " + std::to_string(seg[2].index) + " is beyond 255");
        for (size_t i = 0; i < sdr.size(); ++i) {
            const Bytes& r = sdr[i];
            if (r.size() < 5)
                continue;
            bool match;
            if (bySensorType)
                match = (r[3] == kSdrFullSensor || r[3] == kSdrCompactSensor) && r.size() >= 13 &&
                        r[12] == seg[2].index;
            else
                match = r[3] == seg[2].index;
            if (match)
                out[sdrKey(i)] = valueNode(hexBytes(r.data(), r.size()), "hex");
        }
    }

    // /BMC/SENSOR[i]/NAME and /BMC/SENSOR[n]/OWNER[o]/LUN[l][/...]
    void answerSensor(const std::string& path, const std::vector<PathSegment>& seg, ResultMap& out) {
        const std::shared_ptr<const SdrIndex> index = sdrIndex();
        if (seg.size() == 3 && seg[2].is("NAME")) {
            size_t i = seg[1].index;
            if (i >= index->byRecord.size() || !index->byRecord[i])
                noInstance("SDR record " + std::to_string(i) + " is not a sensor record");
            out[path] = valueNode(index->byRecord[i]->fields.name, "text");
            return;
        }
        if (seg.size() < 4 || !seg[2].isIndexed("OWNER") || !seg[3].isIndexed("LUN"))
            unknownPath(path);
        const Sensor* sensor = index->find(seg[1].index, seg[2].index, seg[3].index);
        if (!sensor)
            noInstance("no sensor number " + std::to_string(seg[1].index) + " with owner " +
                       std::to_string(seg[2].index) + " and LUN byte " + std::to_string(seg[3].index));
        const std::string base = "/BMC/SENSOR[" + std::to_string(seg[1].index) + "]/OWNER[" +
                                 std::to_string(seg[2].index) + "]/LUN[" + std::to_string(seg[3].index) + "]";
        if (seg.size() == 4) {
            // Everything known about the sensor.
            out[base + "/NAME"] = valueNode(sensor->fields.name, "text");
            out[base + "/INTERPRET_SENSOR_VALUE"] = currentValue(sensor->fields);
            for (const ThresholdKey& k : kThresholdKeys)
                out[base + "/THRESHOLD/" + k.key] = threshold(sensor->fields, k.bit);
            for (const char* a : {"TOLERANCE", "RESOLUTION", "ACCURACY"})
                out[base + "/" + a] = attribute(sensor->fields, a);
            return;
        }
        const PathSegment& leaf = seg[4];
        if (seg.size() == 5 && leaf.is("NAME")) {
            out[path] = valueNode(sensor->fields.name, "text");
        } else if (seg.size() == 5 && leaf.is("INTERPRET_SENSOR_VALUE")) {
            out[path] = currentValue(sensor->fields);
        } else if (seg.size() == 5 && leaf.isIndexed("INTERPRET_SENSOR_VALUE")) {
            if (leaf.index > 0xFF)
                noInstance("raw value " + std::to_string(leaf.index) + " is beyond 255");
            double v;
            bool ok = sensor->fields.recordType == kSdrFullSensor &&
                      sensor->fields.eventReadingType == kEventReadingThreshold &&
                      convertReading(sensor->fields, static_cast<uint8_t>(leaf.index), v);
            out[path] = ok ? valueNode(formatNumber(v), "decimal") : valueNode(kNotSupported, "text");
        } else if (leaf.is("THRESHOLD") && seg.size() == 5) {
            for (const ThresholdKey& k : kThresholdKeys)
                out[path + "/" + k.key] = threshold(sensor->fields, k.bit);
        } else if (leaf.is("THRESHOLD") && seg.size() == 6) {
            for (const ThresholdKey& k : kThresholdKeys)
                if (seg[5].is(k.key)) {
                    out[path] = threshold(sensor->fields, k.bit);
                    return;
                }
            unknownPath(path);
        } else if (seg.size() == 5 &&
                   (leaf.is("TOLERANCE") || leaf.is("RESOLUTION") || leaf.is("ACCURACY"))) {
            out[path] = attribute(sensor->fields, leaf.name.c_str());
        } else {
            unknownPath(path);
        }
    }

    static bool isAnalog(const SdrFields& f) {
        return f.recordType == kSdrFullSensor && f.eventReadingType == kEventReadingThreshold &&
               f.analogFormat != AnalogFormat::None;
    }

    _XNode currentValue(const SdrFields& f) {
        SensorReading r;
        SensorAddress a{f.owner, f.lun, f.number};
        if (!m_source->sensorReading(a, r) || !r.available)
            return valueNode(kReadingUnavailable, "keywords");
        if (f.eventReadingType == kEventReadingThreshold) {
            if (f.recordType != kSdrFullSensor) // no conversion factors in a compact record
                return valueNode(std::to_string(r.raw), "decimal");
            double v;
            if (!convertReading(f, r.raw, v))
                return valueNode(kReadingUnavailable, "keywords");
            return valueNode(formatNumber(v), "decimal");
        }
        return valueNode(stateText(f.eventReadingType, f.sensorType, r.states), "keywords");
    }

    static _XNode threshold(const SdrFields& f, ThresholdBit bit) {
        if (f.recordType != kSdrFullSensor || f.eventReadingType != kEventReadingThreshold ||
            !(f.readableMask & (1u << bit)))
            return valueNode(kNotSupported, "text");
        return valueNode(std::to_string(f.thresholds[bit]), "decimal");
    }

    // TOLERANCE: +/- half raw counts; RESOLUTION: M, one raw count in units of
    // 10^Rexp; ACCURACY: hundredths of a percent before the accuracy exponent.
    static _XNode attribute(const SdrFields& f, const char* which) {
        if (!isAnalog(f))
            return valueNode(kNotSupported, "text");
        std::string name(which);
        int value = name == "TOLERANCE" ? f.tolerance : name == "RESOLUTION" ? f.m : f.accuracy;
        return valueNode(std::to_string(value), "decimal");
    }

    static int parseRecordId(const std::string& text, bool& last) {
        last = false;
        if (text.empty() || text.size() > 4)
            return -1;
        int v = 0;
        for (char c : text) {
            int d = (c >= '0' && c <= '9')   ? c - '0'
                    : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                             : -1;
            if (d < 0)
                return -1;
            v = v * 16 + d;
        }
        last = v == 0xFFFF;
        return v;
    }

    // DESCR: the entry's own text when it has one, otherwise the BMC tools' event
    // text composed from its bytes and the SDR (kelvarn/SelEvents.h).
    std::string selDescription(const SelEntry& e, const SdrIndex& index) const {
        if (!e.description.empty())
            return e.description;
        const auto& r = e.raw;
        // The sensor of that number and owner, on the generator's LUN when one is.
        std::string name;
        auto it = index.byNumberOwner.find(sensorKey(r[11], r[7], 0));
        if (it != index.byNumberOwner.end())
            for (const Sensor* s : it->second) {
                if (name.empty() || (s->fields.lun & 0x03) == (r[8] & 0x03))
                    name = s->fields.name;
                if ((s->fields.lun & 0x03) == (r[8] & 0x03))
                    break;
            }
        return selEntryText(r, name);
    }

    static std::string selTimestamp(const SelEntry& e) { return selTimestampText(e.raw); }

    // One SEL entry: its node (children RAW, DESCR, TIMESTAMP, VALUE) and the children.
    void addSelEntry(size_t k, const SelEntry& e, const SdrIndex& list, ResultMap& out) const {
        const std::string stem = std::string(kSelPath) + "[" + std::to_string(k);
        const std::string raw = stem + "]/RAW", descr = stem + "]/DESCR", stamp = stem + "]/TIMESTAMP",
                          value = stem + "]/VALUE";
        out[stem + "]"] = containerNode({raw, descr, stamp, value});
        out[raw] = valueNode(hexBytes(e.raw.data(), e.raw.size()), "hex");
        out[descr] = valueNode(selDescription(e, list), "text");
        out[stamp] = valueNode(selTimestamp(e), "text");
        char id[8];
        std::snprintf(id, sizeof id, "%04x", static_cast<unsigned>(e.raw[0] | e.raw[1] << 8));
        out[value] = valueNode(id, "hex");
    }

    // /BMC/SEL/TRANSLATED {RECORD_ID, RANGE} and /BMC/SEL/TRANSLATED[i][/RAW|/DESCR|/TIMESTAMP]
    void answerSel(const std::string& path, const std::vector<PathSegment>& seg, const Parameters& params,
                   ResultMap& out) {
        const std::vector<SelEntry> sel = m_source->selEntries();
        const std::shared_ptr<const SdrIndex> index = sdrIndex();
        const SdrIndex& list = *index;
        if (seg.size() > 4 || (seg.size() == 4 && seg[2].hasIndex == false))
            unknownPath(path);
        if (seg[2].hasIndex) {
            if (seg[2].index >= sel.size())
                noInstance("SEL entry " + std::to_string(seg[2].index) + " does not exist (the SEL holds " +
                           std::to_string(sel.size()) + ")");
            ResultMap entry;
            addSelEntry(seg[2].index, sel[seg[2].index], list, entry);
            if (seg.size() == 3) {
                for (auto& kv : entry)
                    out[kv.first] = std::move(kv.second);
                return;
            }
            auto it = entry.find(path);
            if (it == entry.end() || seg[3].hasIndex || it->second.NodeType != 0)
                unknownPath(path);
            out[path] = std::move(it->second);
            return;
        }
        size_t start = 0;
        size_t range = sel.size();
        for (const auto& p : params) {
            if (p.first == "RECORD_ID") {
                bool last;
                int id = parseRecordId(p.second, last);
                if (id < 0)
                    throw QueryError(kBadParameter,
                                     "RECORD_ID \"" + p.second + "\" is not a hexadecimal record ID");
                if (last) {
                    start = sel.empty() ? 0 : sel.size() - 1;
                } else if (id != 0) {
                    size_t i = 0;
                    while (i < sel.size() && (sel[i].raw[0] | sel[i].raw[1] << 8) != id)
                        ++i;
                    if (i == sel.size()) {
                        char buf[80];
                        std::snprintf(buf, sizeof buf, "SEL record ID 0x%04x is not in the SEL", id);
                        throw QueryError(kSelRecordNotFound, buf);
                    }
                    start = i;
                }
            } else if (p.first == "RANGE") {
                char* end = nullptr;
                unsigned long v = p.second.empty() || p.second[0] < '0' || p.second[0] > '9'
                                      ? 0
                                      : std::strtoul(p.second.c_str(), &end, 10);
                if (v == 0 || v > 65535 || !end || *end)
                    throw QueryError(kBadParameter,
                                     "RANGE \"" + p.second + "\" is not a count from 1 to 65535");
                range = v;
            } else {
                throw QueryError(kBadParameter, "unknown parameter \"" + p.first + "\" for " + kSelPath);
            }
        }
        std::vector<std::string> entries;
        for (size_t k = 0; start + k < sel.size() && k < range; ++k) {
            addSelEntry(k, sel[start + k], list, out);
            entries.push_back(std::string(kSelPath) + "[" + std::to_string(k) + "]");
        }
        out[kSelPath] = containerNode(std::move(entries));
    }

    // FRU, OEM and SMBIOS facts as a tree of leaves.
    static std::vector<std::pair<std::string, std::string>> inventoryLeaves(const Inventory& inv) {
        std::vector<std::pair<std::string, std::string>> l;
        auto add = [&l](std::string k, std::string v) { l.emplace_back(std::move(k), std::move(v)); };
        add("/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/TYPE", std::to_string(inv.fru.chassisType));
        add("/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/PART_NUMBER", inv.fru.chassisPartNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/SERIAL_NUMBER", inv.fru.chassisSerialNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/BOARDAREA/MANUFACTURER", inv.fru.boardManufacturer);
        add("/BMC/FRU[0]/RECORD/DECODED/BOARDAREA/PRODUCT_NAME", inv.fru.boardProductName);
        add("/BMC/FRU[0]/RECORD/DECODED/BOARDAREA/SERIAL_NUMBER", inv.fru.boardSerialNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/BOARDAREA/PART_NUMBER", inv.fru.boardPartNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/MANUFACTURER", inv.fru.productManufacturer);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/NAME", inv.fru.productName);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/PART_NUMBER", inv.fru.productPartNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/VERSION", inv.fru.productVersion);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/SERIAL_NUMBER", inv.fru.productSerialNumber);
        add("/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/ASSET_TAG", inv.fru.productAssetTag);
        add("/BMC/OEM/MANUFACTURERID", std::to_string(inv.oem.manufacturerId));
        add("/BMC/OEM/PRODUCTID", std::to_string(inv.oem.productId));
        add("/BMC/OEM/DEVICEID", std::to_string(inv.oem.deviceId));
        add("/BMC/OEM/FIRMWAREREVISION", inv.oem.firmwareRevision);
        add("/BMC/OEM/IPMIVERSION", inv.oem.ipmiVersion);
        const ChassisInfo& c = inv.chassis;
        add("/SMBIOS/Type3/Manufacturer", c.manufacturer);
        add("/SMBIOS/Type3/Type", c.type);
        add("/SMBIOS/Type3/Version", c.version);
        add("/SMBIOS/Type3/SerialNumber", c.serialNumber);
        add("/SMBIOS/Type3/AssetTag", c.assetTag);
        add("/SMBIOS/Type3/BootupState", c.bootupState);
        add("/SMBIOS/Type3/PowerSupplyState", c.powerSupplyState);
        add("/SMBIOS/Type3/ThermalState", c.thermalState);
        add("/SMBIOS/Type3/SecurityStatus", c.securityStatus);
        auto code = [](const std::string& s) {
            return s == "Disabled" ? 0u : s == "Enabled" ? 1u : s == "Not Implemented" ? 2u : 3u;
        };
        unsigned hss = code(c.powerOnPassword) << 6 | code(c.keyboardPassword) << 4 |
                       code(c.administratorPassword) << 2 | code(c.frontPanelReset);
        const std::string hs = "/SMBIOS/Type24/HardwareSecuritySettings";
        add(hs, std::to_string(hss));
        add(hs + "/PowerOnPassword", c.powerOnPassword);
        add(hs + "/KeyboardPassword", c.keyboardPassword);
        add(hs + "/AdministratorPassword", c.administratorPassword);
        add(hs + "/FrontPanelReset", c.frontPanelReset);
        unsigned present = 0;
        for (const ProcessorInfo& p : inv.processors)
            present += p.populated ? 1 : 0;
        add("/SMBIOS/ProcessorInfo/TotalNoOfProcessor", std::to_string(inv.processors.size()));
        add("/SMBIOS/ProcessorInfo/TotalNoOfProcessorPresent", std::to_string(present));
        for (size_t i = 0; i < inv.processors.size(); ++i) {
            const ProcessorInfo& p = inv.processors[i];
            const std::string b = "/SMBIOS/ProcessorInfo[" + std::to_string(i) + "]/";
            add(b + "SocketDesignation", p.socketDesignation);
            add(b + "ProcessorType", p.type);
            add(b + "ProcessorFamily", p.family);
            add(b + "ProcessorManufacturer", p.manufacturer);
            add(b + "ProcessorId", p.id);
            add(b + "ProcessorVersion", p.version);
            add(b + "VoltageCapability", p.voltage);
            add(b + "ClockFrequency", std::to_string(p.clockMHz));
            add(b + "MaxSpeed", std::to_string(p.maxSpeedMHz));
            add(b + "CurrentSpeed", std::to_string(p.currentSpeedMHz));
            add(b + "Upgrade", p.upgrade);
            add(b + "PartNumber", p.partNumber);
            add(b + "SerialNumber", p.serialNumber);
            add(b + "CoreCount", std::to_string(p.coreCount));
            add(b + "ThreadCount", std::to_string(p.threadCount));
            add(b + "Status", p.populated ? "Populated" : "Unpopulated");
        }
        add("/SMBIOS/MemoryArray/TotalNoOfArray", std::to_string(inv.memoryArrays.size()));
        for (size_t a = 0; a < inv.memoryArrays.size(); ++a) {
            const MemoryArrayInfo& m = inv.memoryArrays[a];
            const std::string b = "/SMBIOS/MemoryArray[" + std::to_string(a) + "]";
            unsigned devPresent = 0;
            for (const MemoryDeviceInfo& d : m.devices)
                devPresent += d.present ? 1 : 0;
            add(b + "/Location", m.location);
            add(b + "/Use", m.use);
            add(b + "/MemoryErrorCorrection", m.errorCorrection);
            add(b + "/MaxCapacity", std::to_string(m.maxCapacityKB));
            add(b + "/MemoryErrorInfoHandle", std::to_string(m.errorInfoHandle));
            add(b + "/NumMemoryDevices", std::to_string(m.devices.size()));
            add(b + "/TotalNoOfDevicePresent", std::to_string(devPresent));
            for (size_t d = 0; d < m.devices.size(); ++d) {
                const MemoryDeviceInfo& dev = m.devices[d];
                const std::string db = b + "/MemoryDevice[" + std::to_string(d) + "]/";
                add(db + "DeviceLocator", dev.deviceLocator);
                add(db + "BankLocator", dev.bankLocator);
                add(db + "FormFactor", dev.formFactor);
                add(db + "MemoryType", dev.memoryType);
                for (const char* name : kTypeDetailNames) {
                    bool supported = false;
                    for (const std::string& t : dev.typeDetail)
                        supported = supported || t == name;
                    add(db + "TypeDetail/" + name, supported ? "Supported" : "Not supported");
                }
                add(db + "Speed", std::to_string(dev.speedMHz));
                add(db + "Size", std::to_string(dev.sizeMB));
                add(db + "Manufacturer", dev.manufacturer);
                add(db + "SerialNumber", dev.serialNumber);
                add(db + "AssetTag", dev.assetTag);
                add(db + "PartNumber", dev.partNumber);
                add(db + "TotalWidth", std::to_string(dev.totalWidth));
                add(db + "DataWidth", std::to_string(dev.dataWidth));
                add(db + "DevicePresent", dev.present ? "True" : "False");
            }
        }
        return l;
    }

    static bool startsWith(const std::string& s, const std::string& prefix, char next) {
        return s.size() > prefix.size() && s.compare(0, prefix.size(), prefix) == 0 &&
               s[prefix.size()] == next;
    }

    static bool nodeExists(const std::vector<std::pair<std::string, std::string>>& leaves,
                           const std::string& node) {
        for (const auto& l : leaves)
            if (l.first == node || startsWith(l.first, node, '/') || startsWith(l.first, node, '['))
                return true;
        return false;
    }

    void answerTree(const std::string& path, ResultMap& out) {
        const auto leaves = inventoryLeaves(m_source->inventoryFor(path));
        for (const auto& l : leaves)
            if (l.first == path) {
                out[path] = valueNode(l.second, "text");
                return;
            }
        bool any = false;
        for (const auto& l : leaves)
            if (startsWith(l.first, path, '/') || startsWith(l.first, path, '[')) {
                out[l.first] = valueNode(l.second, "text");
                any = true;
            }
        if (any)
            return;
        // Find the first indexed step of the path that names no instance.
        for (size_t pos = path.find(']'); pos != std::string::npos; pos = path.find(']', pos + 1)) {
            const std::string prefix = path.substr(0, pos + 1);
            if (nodeExists(leaves, prefix))
                continue;
            const std::string shape = pathShape(prefix);
            for (const char* known : kIndexedShapes)
                if (shape == known)
                    noInstance("\"" + prefix + "\" does not exist");
            break;
        }
        unknownPath(path);
    }

    std::shared_ptr<Source> m_source;
    std::mutex m_indexLock;
    std::shared_ptr<const std::vector<Bytes>> m_lastSdr; // the repository last handed out
    std::shared_ptr<const SdrIndex> m_index;             // decoded from records equal to m_lastSdr
};

} // namespace

std::shared_ptr<Responder> makePlatformResponder(std::shared_ptr<Source> source) {
    return std::make_shared<PlatformResponder>(std::move(source));
}

SimulatedSource::SimulatedSource(std::string name, PlatformModel model, std::string journalPath)
    : m_name(std::move(name)), m_journal(std::move(journalPath)),
      m_base(std::make_shared<const PlatformModel>(std::move(model))), m_model(m_base) {}

std::string SimulatedSource::describe() const {
    return m_name;
}

std::shared_ptr<const PlatformModel> SimulatedSource::snapshot() {
    std::lock_guard<std::mutex> guard(m_lock);
    refreshLocked();
    return m_model;
}

size_t SimulatedSource::rejectedChanges(std::string* lastReason) const {
    std::lock_guard<std::mutex> guard(m_lock);
    if (lastReason)
        *lastReason = m_lastRejection;
    return m_rejected;
}

void SimulatedSource::refreshLocked() {
    if (m_journal.empty())
        return;
    int fd = ::open(m_journal.c_str(), O_RDONLY | kOpenNoInherit);
    struct stat st;
    if (fd < 0 || ::fstat(fd, &st) != 0) {
        if (fd >= 0)
            ::close(fd);
        // No journal (yet, or any more): the platform as described.
        m_model = m_base;
        m_journalOffset = 0;
        return;
    }
    const uint64_t size = static_cast<uint64_t>(st.st_size), inode = static_cast<uint64_t>(st.st_ino);
    if (inode != m_journalInode || size < m_journalOffset) {
        m_model = m_base;
        m_journalOffset = 0;
        m_journalInode = inode;
    }
    if (size == m_journalOffset) {
        ::close(fd);
        return;
    }
    std::string text(static_cast<size_t>(size - m_journalOffset), '\0');
    ssize_t got = readAt(fd, &text[0], text.size(), m_journalOffset);
    ::close(fd);
    if (got <= 0)
        return;
    text.resize(static_cast<size_t>(got));
    const size_t complete = text.rfind('\n');
    if (complete == std::string::npos)
        return; // a line still being written
    PlatformModel next = *m_model;
    size_t start = 0;
    while (start <= complete) {
        size_t end = text.find('\n', start);
        std::string line = text.substr(start, end - start), why;
        if (!line.empty() && line[0] != '#' && !applyJournalLine(next, line, why)) {
            ++m_rejected;
            m_lastRejection = why;
        }
        start = end + 1;
    }
    m_journalOffset += complete + 1;
    m_model = std::make_shared<const PlatformModel>(std::move(next));
}

std::vector<Bytes> SimulatedSource::sdrRepository() {
    return snapshot()->sdr;
}

std::shared_ptr<const std::vector<Bytes>> SimulatedSource::sharedSdrRepository() {
    std::shared_ptr<const PlatformModel> model = snapshot();
    return std::shared_ptr<const std::vector<Bytes>>(model, &model->sdr);
}

bool SimulatedSource::sensorReading(const SensorAddress& address, SensorReading& out) {
    auto model = snapshot();
    auto it = model->readings.find(address);
    if (it == model->readings.end())
        return false;
    out = it->second;
    return true;
}

std::vector<SelEntry> SimulatedSource::selEntries() {
    return snapshot()->sel;
}

Inventory SimulatedSource::inventory() {
    return snapshot()->inventory;
}

} // namespace kelvarn
