#include "kelvarn/PlatformFile.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "kelvarn/Errors.h"
#include "kelvarn/Sdr.h"
#include "kelvarn/SensorStates.h"

namespace kelvarn {
namespace {

using nlohmann::json;

// Reads one JSON object field by field and refuses the fields it was not asked for.
class Reader {
public:
    Reader(const json& object, std::string pointer, const std::string& origin)
        : m_obj(object), m_ptr(std::move(pointer)), m_origin(origin) {
        if (!m_obj.is_object())
            fail(m_ptr, "expected an object");
    }

    [[noreturn]] void fail(const std::string& pointer, const std::string& problem) const {
        throw PlatformFileError(m_origin + ": " + (pointer.empty() ? "/" : pointer) + ": " + problem);
    }

    std::string at(const std::string& key) const { return m_ptr + "/" + key; }
    bool has(const std::string& key) const { return m_obj.contains(key); }

    const json* get(const std::string& key) {
        m_used.insert(key);
        auto it = m_obj.find(key);
        return it == m_obj.end() ? nullptr : &*it;
    }

    // An integer, or a string "0x..." in hexadecimal, within [lo, hi].
    long long number(const std::string& key, long long def, long long lo, long long hi) {
        const json* v = get(key);
        if (!v)
            return def;
        long long n;
        if (v->is_number_integer()) {
            n = v->get<long long>();
        } else if (v->is_string() && v->get<std::string>().rfind("0x", 0) == 0 &&
                   v->get<std::string>().size() > 2 && v->get<std::string>().size() <= 10) {
            const std::string s = v->get<std::string>();
            char* end = nullptr;
            n = std::strtoll(s.c_str() + 2, &end, 16);
            if (*end)
                fail(at(key), "\"" + s + "\" is not a hexadecimal number");
        } else {
            fail(at(key), "expected an integer");
        }
        if (n < lo || n > hi)
            fail(at(key),
                 std::to_string(n) + " is out of range " + std::to_string(lo) + ".." + std::to_string(hi));
        return n;
    }

    std::string text(const std::string& key, const std::string& def, size_t maxLength = 256) {
        const json* v = get(key);
        if (!v)
            return def;
        if (!v->is_string())
            fail(at(key), "expected a string");
        std::string s = v->get<std::string>();
        if (s.size() > maxLength)
            fail(at(key), "longer than " + std::to_string(maxLength) + " characters");
        return s;
    }

    std::string choice(const std::string& key, const std::string& def,
                       std::initializer_list<const char*> allowed) {
        std::string s = text(key, def);
        std::string list;
        for (const char* a : allowed) {
            if (s == a)
                return s;
            list += std::string(list.empty() ? "" : ", ") + "\"" + a + "\"";
        }
        fail(at(key), "\"" + s + "\" is not one of " + list);
    }

    bool flag(const std::string& key, bool def) {
        const json* v = get(key);
        if (!v)
            return def;
        if (!v->is_boolean())
            fail(at(key), "expected true or false");
        return v->get<bool>();
    }

    const json& array(const std::string& key) {
        static const json empty = json::array();
        const json* v = get(key);
        if (!v)
            return empty;
        if (!v->is_array())
            fail(at(key), "expected an array");
        return *v;
    }

    // Refuses every field that was not read.
    void finish() const {
        for (auto it = m_obj.begin(); it != m_obj.end(); ++it)
            if (!m_used.count(it.key()))
                fail(at(it.key()), "unknown field");
    }

    const std::string& pointer() const { return m_ptr; }
    const std::string& origin() const { return m_origin; }

private:
    const json& m_obj;
    std::string m_ptr;
    const std::string& m_origin;
    std::set<std::string> m_used;
};

Bytes parseHex(Reader& r, const std::string& key, const std::string& text) {
    Bytes out;
    std::istringstream in(text);
    std::string token;
    while (in >> token) {
        char* end = nullptr;
        long v = std::strtol(token.c_str(), &end, 16);
        if (token.size() > 4 || *end || v < 0 || v > 0xFF)
            r.fail(r.at(key), "\"" + token + "\" is not a byte (00 to ff)");
        out.push_back(static_cast<uint8_t>(v));
    }
    return out;
}

const char* const kThresholdNames[6] = {"LOWER_NONCRITICAL", "LOWER_CRITICAL", "LOWER_NONRECOVERABLE",
                                        "UPPER_NONCRITICAL", "UPPER_CRITICAL", "UPPER_NONRECOVERABLE"};

uint8_t thresholdMask(Reader& r, const std::string& key, uint8_t def) {
    const json* v = r.get(key);
    if (!v)
        return def;
    if (!v->is_array())
        r.fail(r.at(key), "expected an array of threshold names");
    uint8_t mask = 0;
    for (size_t i = 0; i < v->size(); ++i) {
        const json& e = (*v)[i];
        int bit = -1;
        for (int b = 0; b < 6; ++b)
            if (e.is_string() && e.get<std::string>() == kThresholdNames[b])
                bit = b;
        if (bit < 0)
            r.fail(r.at(key) + "/" + std::to_string(i), "not a threshold name (LOWER_NONCRITICAL ...)");
        mask |= static_cast<uint8_t>(1u << bit);
    }
    return mask;
}

uint16_t readStates(Reader& r, const SdrFields& f) {
    const json* v = r.get("states");
    if (!v)
        return 0;
    if (!v->is_array())
        r.fail(r.at("states"), "expected an array of state offsets or keywords");
    uint16_t states = 0;
    for (size_t i = 0; i < v->size(); ++i) {
        const json& e = (*v)[i];
        int offset = -1;
        if (e.is_number_integer() && e.get<long long>() >= 0 && e.get<long long>() <= 14)
            offset = static_cast<int>(e.get<long long>());
        else if (e.is_string())
            offset = stateOffset(f.eventReadingType, f.sensorType, e.get<std::string>());
        if (offset < 0)
            r.fail(r.at("states") + "/" + std::to_string(i),
                   "not a state offset 0..14 nor a state keyword of this sensor");
        states |= static_cast<uint16_t>(1u << offset);
    }
    return states;
}

SdrFields engineeringFields(Reader& r, size_t index) {
    SdrFields f;
    std::string record = r.choice("record", "full", {"full", "compact"});
    f.recordType = record == "full" ? kSdrFullSensor : kSdrCompactSensor;
    f.recordId = static_cast<uint16_t>(r.number("recordId", static_cast<long long>(index + 1), 0, 0xFFFE));
    f.name = r.text("name", "", 16);
    if (f.name.empty())
        r.fail(r.at("name"), "a sensor needs a name of 1 to 16 characters");
    f.number = static_cast<uint8_t>(r.number("number", -1, 0, 0xFE));
    if (!r.has("number"))
        r.fail(r.at("number"), "a sensor needs a number");
    f.owner = static_cast<uint8_t>(r.number("owner", 0x20, 0, 0xFF));
    f.lun = static_cast<uint8_t>(r.number("lun", 0, 0, 0xFF));
    f.sensorType = static_cast<uint8_t>(r.number("sensorType", 0, 0, 0xFF));
    f.eventReadingType = static_cast<uint8_t>(r.number("eventReadingType", 1, 0, 0x7F));
    f.entityId = static_cast<uint8_t>(r.number("entityId", 0, 0, 0xFF));
    f.entityInstance = static_cast<uint8_t>(r.number("entityInstance", 1, 0, 0xFF));
    const bool threshold = f.eventReadingType == kEventReadingThreshold;
    f.initialization = static_cast<uint8_t>(r.number("initialization", threshold ? 0x7F : 0x63, 0, 0xFF));
    f.capabilities = static_cast<uint8_t>(r.number("capabilities", threshold ? 0x68 : 0x40, 0, 0xFF));
    f.assertionMask = static_cast<uint16_t>(r.number("assertionMask", 0, 0, 0xFFFF));
    f.deassertionMask = static_cast<uint16_t>(r.number("deassertionMask", 0, 0, 0xFFFF));
    f.baseUnit = static_cast<uint8_t>(r.number("units", 0, 0, 0xFF));
    f.modifierUnit = static_cast<uint8_t>(r.number("modifierUnit", 0, 0, 0xFF));
    f.rateUnit = static_cast<uint8_t>(r.number("rateUnit", 0, 0, 7));
    f.percentage = r.flag("percentage", false) ? 1 : 0;
    std::string analog = r.choice("analogFormat", threshold ? "unsigned" : "none",
                                  {"unsigned", "1s-complement", "2s-complement", "none"});
    f.analogFormat = analog == "unsigned"        ? AnalogFormat::Unsigned
                     : analog == "1s-complement" ? AnalogFormat::OnesComplement
                     : analog == "2s-complement" ? AnalogFormat::TwosComplement
                                                 : AnalogFormat::None;
    f.shareCount = static_cast<uint8_t>(r.number("shareCount", 0, 0, 15));
    if (f.recordType == kSdrFullSensor) {
        f.linearization = static_cast<uint8_t>(r.number("linearization", 0, 0, 0x7F));
        if (f.linearization > 11 && f.linearization < 0x70)
            r.fail(r.at("linearization"), "linearization " + std::to_string(f.linearization) +
                                              " is not defined (0..11 or 0x70..0x7f)");
        f.m = static_cast<int16_t>(r.number("m", 1, -512, 511));
        f.b = static_cast<int16_t>(r.number("b", 0, -512, 511));
        f.bExp = static_cast<int8_t>(r.number("bExp", 0, -8, 7));
        f.rExp = static_cast<int8_t>(r.number("rExp", 0, -8, 7));
        f.tolerance = static_cast<uint8_t>(r.number("tolerance", 0, 0, 63));
        f.accuracy = static_cast<uint16_t>(r.number("accuracy", 0, 0, 1023));
        f.accuracyExp = static_cast<uint8_t>(r.number("accuracyExp", 0, 0, 3));
        f.nominal = static_cast<uint8_t>(r.number("nominal", 0, 0, 0xFF));
        if (r.has("nominal"))
            f.analogFlags |= 0x01;
        const bool isSigned =
            f.analogFormat == AnalogFormat::OnesComplement || f.analogFormat == AnalogFormat::TwosComplement;
        f.sensorMax = static_cast<uint8_t>(r.number("sensorMax", isSigned ? 0x7F : 0xFF, 0, 0xFF));
        f.sensorMin = static_cast<uint8_t>(r.number("sensorMin", isSigned ? 0x80 : 0, 0, 0xFF));
        uint8_t given = 0;
        if (const json* t = r.get("thresholds")) {
            Reader tr(*t, r.at("thresholds"), r.origin());
            for (int b = 0; b < 6; ++b)
                if (tr.has(kThresholdNames[b])) {
                    f.thresholds[b] = static_cast<uint8_t>(tr.number(kThresholdNames[b], 0, 0, 0xFF));
                    given |= static_cast<uint8_t>(1u << b);
                }
            tr.finish();
        }
        if (threshold) {
            f.readableMask = thresholdMask(r, "readableThresholds", given);
            f.settableMask = thresholdMask(r, "settableThresholds", f.readableMask);
            for (int b = 0; b < 6; ++b)
                if ((f.readableMask & (1u << b)) && !(given & (1u << b)))
                    r.fail(r.at("readableThresholds"), std::string(kThresholdNames[b]) +
                                                           " is readable but has no value in \"thresholds\"");
        }
    }
    if (r.has("hysteresis")) {
        const json& h = r.array("hysteresis");
        if (h.size() != 2 || !h[0].is_number_integer() || !h[1].is_number_integer() ||
            h[0].get<long long>() < 0 || h[0].get<long long>() > 255 || h[1].get<long long>() < 0 ||
            h[1].get<long long>() > 255)
            r.fail(r.at("hysteresis"), "expected [positive, negative], two raw values 0..255");
        f.positiveHysteresis = static_cast<uint8_t>(h[0].get<long long>());
        f.negativeHysteresis = static_cast<uint8_t>(h[1].get<long long>());
    }
    if (!threshold) {
        uint16_t readingMask = static_cast<uint16_t>(r.number("readingMask", 0x7FFF, 0, 0x7FFF));
        f.readableMask = static_cast<uint8_t>(readingMask & 0xFF);
        f.settableMask = static_cast<uint8_t>(readingMask >> 8);
    }
    return f;
}

void readSensor(const json& j, const std::string& ptr, const std::string& origin, size_t index,
                PlatformModel& m, std::map<SensorAddress, std::string>& seen) {
    Reader r(j, ptr, origin);
    SdrFields f;
    Bytes bytes;
    if (r.has("sdr")) {
        const std::string text = r.text("sdr", "", 4096);
        bytes = parseHex(r, "sdr", text);
        if (bytes.size() < 5 || bytes.size() != static_cast<size_t>(bytes[4]) + 5)
            r.fail(r.at("sdr"), "record length byte (byte 5) does not match the " +
                                    std::to_string(bytes.size()) + " bytes given");
        if (!decodeSdr(bytes, f))
            r.fail(r.at("sdr"), "not a full (01) or compact (02) sensor record of full size");
    } else {
        f = engineeringFields(r, index);
        bytes = encodeSdr(f);
    }
    SensorAddress a{f.owner, f.lun, f.number};
    auto dup = seen.find(a);
    if (dup != seen.end())
        r.fail(r.at(r.has("sdr") ? "sdr" : "number"),
               "duplicate sensor number " + std::to_string(f.number) + " (owner " + std::to_string(f.owner) +
                   ", LUN byte " + std::to_string(f.lun) + ") already used at " + dup->second);
    seen[a] = ptr;
    SensorReading reading;
    reading.available = r.flag("available", true);
    reading.raw = static_cast<uint8_t>(r.number("reading", 0, 0, 0xFF));
    reading.states = readStates(r, f);
    r.finish();
    m.sdr.push_back(std::move(bytes));
    m.readings[a] = reading;
}

// A repository written by "ipmitool sdr dump FILE": the records back to back,
// each a 5-byte header and its body. Sensors get their nominal reading when the
// record gives one, otherwise none ("reading unavailable") until bmc.readings says.
void readSdrDump(Reader& bmc, const std::string& name, PlatformModel& m,
                 std::map<SensorAddress, std::string>& seen) {
    std::string path = name;
    const std::string& origin = bmc.origin();
    if (path[0] != '/' && origin.rfind('/') != std::string::npos)
        path = origin.substr(0, origin.rfind('/') + 1) + path;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        bmc.fail(bmc.at("sdrDump"), "\"" + path + "\" cannot be opened");
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t at = 0;
    while (at < data.size()) {
        if (data.size() - at < 5)
            bmc.fail(bmc.at("sdrDump"), path + ": record at byte " + std::to_string(at) + " is cut short");
        const size_t length = 5 + static_cast<uint8_t>(data[at + 4]);
        if (data.size() - at < length)
            bmc.fail(bmc.at("sdrDump"), path + ": record at byte " + std::to_string(at) + " is cut short");
        Bytes rec(data.begin() + static_cast<long>(at), data.begin() + static_cast<long>(at + length));
        SdrFields f;
        if (decodeSdr(rec, f)) {
            SensorAddress a{f.owner, f.lun, f.number};
            // Real repositories share numbers between records of other owners or LUNs
            // but never within one; the first record of a sensor answers.
            if (!seen.count(a)) {
                seen[a] = bmc.at("sdrDump") + " byte " + std::to_string(at);
                SensorReading r;
                if (f.eventReadingType == kEventReadingThreshold) {
                    r.available = f.recordType == kSdrFullSensor && (f.analogFlags & 0x01);
                    r.raw = f.nominal;
                }
                m.readings[a] = r;
            }
        }
        m.sdr.push_back(std::move(rec));
        at += length;
    }
}

void readReading(const json& j, const std::string& ptr, const std::string& origin, PlatformModel& m) {
    Reader r(j, ptr, origin);
    SensorAddress a;
    a.number = static_cast<uint8_t>(r.number("number", 0, 0, 0xFF));
    a.owner = static_cast<uint8_t>(r.number("owner", 0x20, 0, 0xFF));
    a.lun = static_cast<uint8_t>(r.number("lun", 0, 0, 0xFF));
    auto it = m.readings.find(a);
    if (it == m.readings.end())
        r.fail(r.at("number"), "no sensor " + std::to_string(a.number) + " (owner " +
                                   std::to_string(a.owner) + ", LUN byte " + std::to_string(a.lun) +
                                   ") is described");
    SdrFields f;
    for (const Bytes& rec : m.sdr)
        if (decodeSdr(rec, f) && f.number == a.number && f.owner == a.owner && f.lun == a.lun)
            break;
    it->second.available = r.flag("available", true);
    it->second.raw = static_cast<uint8_t>(r.number("reading", 0, 0, 0xFF));
    it->second.states = readStates(r, f);
    r.finish();
}

void readSel(const json& j, const std::string& ptr, const std::string& origin, size_t index,
             PlatformModel& m) {
    Reader r(j, ptr, origin);
    SelEntry e;
    e.description = r.text("description", "", 1000);
    if (r.has("raw")) {
        Bytes b = parseHex(r, "raw", r.text("raw", ""));
        if (b.size() != 16)
            r.fail(r.at("raw"), "a SEL entry is 16 bytes, " + std::to_string(b.size()) + " given");
        std::copy(b.begin(), b.end(), e.raw.begin());
    } else {
        unsigned id =
            static_cast<unsigned>(r.number("recordId", static_cast<long long>(index + 1), 1, 0xFFFE));
        unsigned ts = static_cast<unsigned>(r.number("timestamp", 0, 0, 0xFFFFFFFFll));
        unsigned sensor = static_cast<unsigned>(r.number("sensor", 0, 0, 0xFF));
        unsigned generator = static_cast<unsigned>(r.number("generator", 0x20, 0, 0xFFFF));
        // Sensor type and event type default to the sensor's own record.
        SdrFields f;
        bool known = false;
        for (const Bytes& rec : m.sdr)
            if (decodeSdr(rec, f) && f.number == sensor && f.owner == (generator & 0xFF)) {
                known = true;
                break;
            }
        unsigned sensorType =
            static_cast<unsigned>(r.number("sensorType", known ? f.sensorType : 0, 0, 0xFF));
        unsigned eventType =
            static_cast<unsigned>(r.number("eventReadingType", known ? f.eventReadingType : 0, 0, 0x7F));
        if (!known && (!r.has("sensorType") || !r.has("eventReadingType")))
            r.fail(r.at("sensor"), "no sensor " + std::to_string(sensor) +
                                       " is described: give \"sensorType\" and \"eventReadingType\"");
        unsigned offset = static_cast<unsigned>(r.number("offset", 0, 0, 14));
        bool deassertion = r.flag("deassertion", false);
        unsigned data2 = static_cast<unsigned>(r.number("data2", 0xFF, 0, 0xFF));
        unsigned data3 = static_cast<unsigned>(r.number("data3", 0xFF, 0, 0xFF));
        unsigned data1 = offset | (data2 != 0xFF ? 0x40u : 0u) | (data3 != 0xFF ? 0x10u : 0u);
        const uint8_t raw[16] = {static_cast<uint8_t>(id),
                                 static_cast<uint8_t>(id >> 8),
                                 0x02,
                                 static_cast<uint8_t>(ts),
                                 static_cast<uint8_t>(ts >> 8),
                                 static_cast<uint8_t>(ts >> 16),
                                 static_cast<uint8_t>(ts >> 24),
                                 static_cast<uint8_t>(generator),
                                 static_cast<uint8_t>(generator >> 8),
                                 0x04,
                                 static_cast<uint8_t>(sensorType),
                                 static_cast<uint8_t>(sensor),
                                 static_cast<uint8_t>(eventType | (deassertion ? 0x80u : 0u)),
                                 static_cast<uint8_t>(data1),
                                 static_cast<uint8_t>(data2),
                                 static_cast<uint8_t>(data3)};
        std::copy(raw, raw + 16, e.raw.begin());
    }
    r.finish();
    m.sel.push_back(std::move(e));
}

const std::initializer_list<const char*> kStates = {"Other",   "Unknown",  "Safe",
                                                    "Warning", "Critical", "Non-recoverable"};
const std::initializer_list<const char*> kPasswordStates = {"Disabled", "Enabled", "Not Implemented",
                                                            "Unknown"};

void readInventory(Reader& bmc, Reader& smbios, Inventory& inv) {
    if (const json* o = bmc.get("oem")) {
        Reader r(*o, bmc.at("oem"), bmc.origin());
        inv.oem.manufacturerId = static_cast<unsigned>(r.number("manufacturerId", 0, 0, 0xFFFFF));
        inv.oem.productId = static_cast<unsigned>(r.number("productId", 0, 0, 0xFFFF));
        inv.oem.deviceId = static_cast<unsigned>(r.number("deviceId", 0x20, 0, 0xFF));
        inv.oem.firmwareRevision = r.text("firmwareRevision", "");
        inv.oem.ipmiVersion = r.text("ipmiVersion", "2.0");
        r.finish();
    }
    if (const json* o = bmc.get("fru")) {
        Reader r(*o, bmc.at("fru"), bmc.origin());
        FruInfo& f = inv.fru;
        f.chassisType = static_cast<unsigned>(r.number("chassisType", 23, 0, 0xFF));
        f.chassisPartNumber = r.text("chassisPartNumber", "");
        f.chassisSerialNumber = r.text("chassisSerialNumber", "");
        f.boardManufacturer = r.text("boardManufacturer", "");
        f.boardProductName = r.text("boardProductName", "");
        f.boardSerialNumber = r.text("boardSerialNumber", "");
        f.boardPartNumber = r.text("boardPartNumber", "");
        f.productManufacturer = r.text("productManufacturer", "");
        f.productName = r.text("productName", "");
        f.productPartNumber = r.text("productPartNumber", "");
        f.productVersion = r.text("productVersion", "");
        f.productSerialNumber = r.text("productSerialNumber", "");
        f.productAssetTag = r.text("productAssetTag", "");
        r.finish();
    }
    if (const json* o = smbios.get("chassis")) {
        Reader r(*o, smbios.at("chassis"), smbios.origin());
        ChassisInfo& c = inv.chassis;
        c.manufacturer = r.text("manufacturer", "");
        c.type = r.text("type", c.type);
        c.version = r.text("version", "");
        c.serialNumber = r.text("serialNumber", "");
        c.assetTag = r.text("assetTag", "");
        c.bootupState = r.choice("bootupState", c.bootupState, kStates);
        c.powerSupplyState = r.choice("powerSupplyState", c.powerSupplyState, kStates);
        c.thermalState = r.choice("thermalState", c.thermalState, kStates);
        c.securityStatus = r.choice(
            "securityStatus", c.securityStatus,
            {"Other", "Unknown", "None", "External interface locked out", "External interface enabled"});
        c.powerOnPassword = r.choice("powerOnPassword", c.powerOnPassword, kPasswordStates);
        c.keyboardPassword = r.choice("keyboardPassword", c.keyboardPassword, kPasswordStates);
        c.administratorPassword = r.choice("administratorPassword", c.administratorPassword, kPasswordStates);
        c.frontPanelReset = r.choice("frontPanelReset", c.frontPanelReset, kPasswordStates);
        r.finish();
    }
    const json& procs = smbios.array("processors");
    for (size_t i = 0; i < procs.size(); ++i) {
        Reader r(procs[i], smbios.at("processors") + "/" + std::to_string(i), smbios.origin());
        ProcessorInfo p;
        p.populated = r.flag("populated", true);
        p.socketDesignation = r.text("socketDesignation", "");
        p.type = r.text("type", p.type);
        p.family = r.text("family", "");
        p.manufacturer = r.text("manufacturer", "");
        p.id = r.text("id", "");
        p.version = r.text("version", "");
        p.voltage = r.text("voltage", p.voltage);
        p.clockMHz = static_cast<unsigned>(r.number("clockMHz", 0, 0, 0xFFFF));
        p.maxSpeedMHz = static_cast<unsigned>(r.number("maxSpeedMHz", 0, 0, 0xFFFF));
        p.currentSpeedMHz = static_cast<unsigned>(r.number("currentSpeedMHz", 0, 0, 0xFFFF));
        p.upgrade = r.text("upgrade", "");
        p.partNumber = r.text("partNumber", "");
        p.serialNumber = r.text("serialNumber", "");
        p.coreCount = static_cast<unsigned>(r.number("coreCount", 0, 0, 0xFFFF));
        p.threadCount = static_cast<unsigned>(r.number("threadCount", 0, 0, 0xFFFF));
        r.finish();
        inv.processors.push_back(std::move(p));
    }
    const json& arrays = smbios.array("memoryArrays");
    for (size_t a = 0; a < arrays.size(); ++a) {
        const std::string ap = smbios.at("memoryArrays") + "/" + std::to_string(a);
        Reader r(arrays[a], ap, smbios.origin());
        MemoryArrayInfo m;
        m.location = r.text("location", m.location);
        m.use = r.text("use", m.use);
        m.errorCorrection = r.text("errorCorrection", m.errorCorrection);
        m.maxCapacityKB = static_cast<unsigned>(r.number("maxCapacityKB", 0, 0, 0xFFFFFFFFll));
        m.errorInfoHandle = static_cast<unsigned>(r.number("errorInfoHandle", 0xFFFE, 0, 0xFFFF));
        const json& devs = r.array("devices");
        for (size_t d = 0; d < devs.size(); ++d) {
            Reader dr(devs[d], r.at("devices") + "/" + std::to_string(d), smbios.origin());
            MemoryDeviceInfo dev;
            dev.present = dr.flag("present", true);
            dev.deviceLocator = dr.text("deviceLocator", "");
            dev.bankLocator = dr.text("bankLocator", "");
            dev.formFactor = dr.text("formFactor", dev.formFactor);
            dev.memoryType = dr.text("memoryType", dev.memoryType);
            const json& td = dr.array("typeDetail");
            for (size_t t = 0; t < td.size(); ++t) {
                if (!td[t].is_string())
                    dr.fail(dr.at("typeDetail") + "/" + std::to_string(t), "expected a type-detail name");
                dev.typeDetail.push_back(td[t].get<std::string>());
            }
            dev.speedMHz = static_cast<unsigned>(dr.number("speedMHz", 0, 0, 0xFFFF));
            dev.sizeMB = static_cast<unsigned>(dr.number("sizeMB", 0, 0, 0x7FFFFFFF));
            dev.manufacturer = dr.text("manufacturer", "");
            dev.serialNumber = dr.text("serialNumber", "");
            dev.assetTag = dr.text("assetTag", "");
            dev.partNumber = dr.text("partNumber", "");
            dev.totalWidth = static_cast<unsigned>(dr.number("totalWidth", 72, 0, 0xFFFF));
            dev.dataWidth = static_cast<unsigned>(dr.number("dataWidth", 64, 0, 0xFFFF));
            dr.finish();
            m.devices.push_back(std::move(dev));
        }
        r.finish();
        inv.memoryArrays.push_back(std::move(m));
    }
}

} // namespace

PlatformModel parsePlatform(const std::string& text, const std::string& origin) {
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::parse_error& e) {
        size_t line = 1, column = 1;
        for (size_t i = 0; i + 1 < e.byte && i < text.size(); ++i) {
            if (text[i] == '\n') {
                ++line;
                column = 1;
            } else {
                ++column;
            }
        }
        std::string what = e.what();
        size_t cut = what.find("syntax error");
        throw PlatformFileError(origin + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                                (cut == std::string::npos ? what : what.substr(cut)));
    }
    Reader top(doc, "", origin);
    if (top.text("format", "") != "kelvarn-platform")
        top.fail("/format", "expected \"kelvarn-platform\"");
    long long version = top.number("version", 0, 0, 1000);
    if (version != kPlatformFileVersion)
        top.fail("/version", "version " + std::to_string(version) + " is not supported (this service reads " +
                                 std::to_string(kPlatformFileVersion) + ")");
    top.text("description", "", 4096);
    PlatformModel m;
    static const json emptyObject = json::object();
    const json* bmcJson = top.get("bmc");
    const json* smbiosJson = top.get("smbios");
    top.finish();
    Reader bmc(bmcJson ? *bmcJson : emptyObject, "/bmc", origin);
    Reader smbios(smbiosJson ? *smbiosJson : emptyObject, "/smbios", origin);
    std::map<SensorAddress, std::string> seen;
    const std::string dump = bmc.text("sdrDump", "", 4096);
    if (!dump.empty())
        readSdrDump(bmc, dump, m, seen);
    const json& sensors = bmc.array("sensors");
    for (size_t i = 0; i < sensors.size(); ++i)
        readSensor(sensors[i], "/bmc/sensors/" + std::to_string(i), origin, i, m, seen);
    const json& readings = bmc.array("readings");
    for (size_t i = 0; i < readings.size(); ++i)
        readReading(readings[i], "/bmc/readings/" + std::to_string(i), origin, m);
    const json& sel = bmc.array("sel");
    for (size_t i = 0; i < sel.size(); ++i)
        readSel(sel[i], "/bmc/sel/" + std::to_string(i), origin, i, m);
    readInventory(bmc, smbios, m.inventory);
    bmc.finish();
    smbios.finish();
    return m;
}

PlatformModel loadPlatformFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw PlatformFileError(path + ": cannot be opened");
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        throw PlatformFileError(path + ": cannot be read");
    return parsePlatform(text.str(), path);
}

ServiceConfig parseServiceConfig(const std::string& text, const std::string& origin) {
    ServiceConfig c;
    c.origin = origin;
    std::istringstream in(text);
    std::string line;
    int n = 0;
    auto trim = [](std::string s) {
        size_t a = s.find_first_not_of(" \t\r");
        size_t b = s.find_last_not_of(" \t\r");
        return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
    };
    while (std::getline(in, line)) {
        ++n;
        line = trim(line);
        if (line.empty() || line[0] == '#')
            continue;
        size_t eq = line.find('=');
        if (eq == std::string::npos)
            throw PlatformFileError(origin + ":" + std::to_string(n) + ": expected key=value");
        std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        if (key == "source") {
            if (value != "demo" && value != "simulated")
                throw PlatformFileError(origin + ":" + std::to_string(n) + ": source \"" + value +
                                        "\" is not \"simulated\" or \"demo\"");
            c.source = value;
        } else if (key == "platform") {
            if (!value.empty() && value[0] != '/') {
                size_t slash = origin.rfind('/');
                if (slash != std::string::npos)
                    value = origin.substr(0, slash + 1) + value;
            }
            c.platform = value;
        } else if (key == "journal") {
            if (!value.empty() && value[0] != '/') {
                size_t slash = origin.rfind('/');
                if (slash != std::string::npos)
                    value = origin.substr(0, slash + 1) + value;
            }
            c.journal = value;
        } else if (key == "bmc") {
            if (value != "demo" && value != "simulated" && value != "ipmi-inband" && value != "ipmi-lan")
                throw PlatformFileError(origin + ":" + std::to_string(n) + ": bmc \"" + value +
                                        "\" is not \"simulated\", \"demo\", \"ipmi-inband\" or \"ipmi-lan\"");
            c.bmc = value;
        } else if (key.compare(0, 5, "ipmi-") == 0) {
            if ((key == "ipmi-password-file" || key == "ipmi-sdr-cache") && !value.empty() &&
                value[0] != '/') {
                size_t slash = origin.rfind('/');
                if (slash != std::string::npos)
                    value = origin.substr(0, slash + 1) + value;
            }
            c.ipmi[key] = value;
        } else if (key == "smbios") {
            bool dump = value.compare(0, 5, "dump:") == 0, sysfs = value.compare(0, 6, "sysfs:") == 0;
            if (value != "demo" && value != "simulated" && value != "sysfs" && value != "firmware" && !dump &&
                !sysfs)
                throw PlatformFileError(origin + ":" + std::to_string(n) + ": smbios \"" + value +
                                        "\" is not \"simulated\", \"demo\", \"sysfs\", \"sysfs:DIR\", "
                                        "\"dump:FILE\" or \"firmware\"");
            size_t at = dump ? 5 : sysfs ? 6 : 0;
            if (at && value.size() == at)
                throw PlatformFileError(origin + ":" + std::to_string(n) + ": smbios \"" + value +
                                        "\" names no path");
            if (at && value[at] != '/') {
                size_t slash = origin.rfind('/');
                if (slash != std::string::npos)
                    value = value.substr(0, at) + origin.substr(0, slash + 1) + value.substr(at);
            }
            c.smbios = value;
        } else {
            throw PlatformFileError(origin + ":" + std::to_string(n) + ": unknown key \"" + key + "\"");
        }
    }
    if (c.bmc.empty())
        c.bmc = c.source;
    if (c.smbios.empty())
        c.smbios = c.source;
    const bool simulated = c.source == "simulated" || c.bmc == "simulated" || c.smbios == "simulated";
    if (simulated && c.platform.empty())
        throw PlatformFileError(origin + ": source=simulated needs platform=<file>");
    if (simulated && c.journal.empty())
        c.journal = c.platform + ".journal";
    return c;
}

ServiceConfig readServiceConfig() {
    const char* env = std::getenv("KELVARN_CONFIG");
    std::string path = env && *env ? env : "/etc/kelvarn/kelvarn.conf";
    std::ifstream in(path);
    if (!in) {
        if (env && *env)
            throw PlatformFileError(path + ": cannot be opened (named by KELVARN_CONFIG)");
        ServiceConfig none;
#ifdef _WIN32
        // No configuration on Windows: the server's own BMC and SMBIOS table.
        none.bmc = "ipmi-inband";
        none.smbios = "firmware";
#endif
        return none; // elsewhere the demo server
    }
    std::ostringstream text;
    text << in.rdbuf();
    return parseServiceConfig(text.str(), path);
}

} // namespace kelvarn
