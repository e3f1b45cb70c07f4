#include "kelvarn/IpmitoolListing.h"

#include <cmath>
#include <cstdlib>
#include <numeric>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "kelvarn/PlatformFile.h"

namespace kelvarn {
namespace {

using Json = nlohmann::ordered_json;

struct UnitName {
    const char* text;
    int code;
};
// IPMI base unit codes of the unit texts ipmitool prints.
const UnitName kUnits[] = {{"degrees C", 1}, {"degrees F", 2}, {"degrees K", 3},  {"Volts", 4}, {"Amps", 5},
                           {"Watts", 6},     {"Joules", 7},    {"VA", 9},         {"CFM", 17},  {"RPM", 18},
                           {"Hz", 19},       {"percent", 0},   {"unspecified", 0}};

struct ThresholdName {
    const char* label; // as ipmitool prints it
    const char* abbrev;
    const char* key;
};
const ThresholdName kThresholds[] = {
    {"Lower non-recoverable", "lnr", "LOWER_NONRECOVERABLE"},
    {"Lower critical", "lcr", "LOWER_CRITICAL"},
    {"Lower non-critical", "lnc", "LOWER_NONCRITICAL"},
    {"Upper non-critical", "unc", "UPPER_NONCRITICAL"},
    {"Upper critical", "ucr", "UPPER_CRITICAL"},
    {"Upper non-recoverable", "unr", "UPPER_NONRECOVERABLE"},
};

// Generic event/reading types by the state group ipmitool names first under
// "Assertions Enabled"; any other group is the sensor type's own (0x6F).
struct StateGroup {
    const char* name;
    int type;
};
const StateGroup kGroups[] = {{"DMI-based Usage State", 0x02},
                              {"Digital State", 0x03},
                              {"Digital State Predictive", 0x04},
                              {"Limit", 0x05},
                              {"Performance", 0x06},
                              {"Severity State", 0x07},
                              {"Device Presence", 0x08},
                              {"Device Enabled", 0x09},
                              {"Availability State", 0x0A},
                              {"Redundancy State", 0x0B},
                              {"ACPI Device Power State", 0x0C}};

std::string trim(const std::string& s) {
    size_t a = s.find_first_not_of(" \t\r"), b = s.find_last_not_of(" \t\r");
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

// The last "(0x..)" of a text, or -1.
long lastHex(const std::string& s) {
    size_t at = s.rfind("(0x");
    if (at == std::string::npos)
        return -1;
    return std::strtol(s.c_str() + at + 1, nullptr, 16);
}

struct Block {
    int line = 0;
    std::vector<std::pair<std::string, std::string>> fields; // label, value ("" for continuation lines)
    std::string get(const std::string& label) const {
        for (const auto& f : fields)
            if (f.first == label)
                return f.second;
        return "";
    }
    bool has(const std::string& label) const {
        for (const auto& f : fields)
            if (f.first == label)
                return true;
        return false;
    }
};

std::vector<Block> blocks(const std::string& text) {
    std::vector<Block> out;
    std::istringstream in(text);
    std::string line;
    int n = 0;
    Block current;
    while (std::getline(in, line)) {
        ++n;
        if (trim(line).empty()) {
            if (!current.fields.empty())
                out.push_back(current);
            current = Block();
            continue;
        }
        if (current.fields.empty())
            current.line = n;
        size_t colon = line.find(" : ");
        if (colon == std::string::npos)
            colon = line.find(": ");
        if (colon != std::string::npos && line.compare(0, 3, "   ") != 0)
            current.fields.emplace_back(trim(line.substr(0, colon)),
                                        trim(line.substr(line.find(':', colon) + 1)));
        else
            current.fields.emplace_back("", trim(line));
    }
    if (!current.fields.empty())
        out.push_back(current);
    return out;
}

struct Factors {
    int m = 1, rExp = 0;
    bool isSigned = false;
};

// M and Rexp that represent every value in one raw byte, exactly when possible.
Factors chooseFactors(const std::vector<double>& values) {
    Factors f;
    double maxAbs = 0;
    for (double v : values) {
        maxAbs = std::max(maxAbs, std::fabs(v));
        f.isSigned = f.isSigned || v < 0;
    }
    const double limit = f.isSigned ? 127 : 255;
    for (int rExp = 0; rExp >= -4; --rExp) {
        const double scale = std::pow(10.0, -rExp);
        long long g = 0;
        bool exact = true;
        for (double v : values) {
            double s = v * scale;
            if (std::fabs(s - std::round(s)) > 1e-6) {
                exact = false;
                break;
            }
            g = std::gcd(g, std::llabs(std::llround(s)));
        }
        if (!exact)
            continue;
        if (g == 0)
            g = 1;
        long long m = g;
        for (long long d = 1; m > 511; ++d) // the largest divisor of g that fits M
            if (g % d == 0)
                m = g / d;
        if (maxAbs * scale / static_cast<double>(m) <= limit) {
            f.m = static_cast<int>(m);
            f.rExp = rExp;
            return f;
        }
    }
    // Nearest raw count: the finest step that still reaches the largest value.
    for (int rExp = -4; rExp <= 7; ++rExp) {
        double step = maxAbs * std::pow(10.0, -rExp) / limit;
        if (step <= 511) {
            f.m = std::max(1, static_cast<int>(std::ceil(step)));
            f.rExp = rExp;
            return f;
        }
    }
    return f;
}

int rawOf(double v, const Factors& f) {
    long r = std::lround(v / (f.m * std::pow(10.0, f.rExp)));
    return f.isSigned ? static_cast<int>(r & 0xFF) : static_cast<int>(std::max(0L, std::min(255L, r)));
}

} // namespace

std::string platformFromIpmitoolListing(const std::string& listing, const std::string& origin) {
    Json sensors = Json::array();
    for (const Block& b : blocks(listing)) {
        const std::string where = origin + ":" + std::to_string(b.line) + ": ";
        if (!b.has("Sensor ID"))
            throw PlatformFileError(where + "expected \"Sensor ID\"");
        const std::string id = b.get("Sensor ID");
        const long number = lastHex(id);
        if (number < 0 || number > 0xFE)
            throw PlatformFileError(where + "no sensor number in \"" + id + "\"");
        std::string name = trim(id.substr(0, id.rfind("(0x")));
        if (name.size() > 16)
            name.resize(16);
        Json s;
        s["name"] = name;
        s["number"] = number;
        const bool threshold = b.has("Sensor Type (Threshold)");
        const std::string typeText =
            threshold ? b.get("Sensor Type (Threshold)") : b.get("Sensor Type (Discrete)");
        const long sensorType = lastHex(typeText);
        if (sensorType < 0)
            throw PlatformFileError(where + "no sensor type");
        const std::string entity = b.get("Entity ID");
        char* end = nullptr;
        long entityId = std::strtol(entity.c_str(), &end, 10);
        long instance = *end == '.' ? std::strtol(end + 1, nullptr, 10) : 0;
        const std::string reading = b.get("Sensor Reading");
        if (threshold) {
            s["sensorType"] = sensorType;
            s["eventReadingType"] = 1;
            s["entityId"] = entityId;
            s["entityInstance"] = instance;
            int unit = 0;
            for (const UnitName& u : kUnits)
                if (reading.find(u.text) != std::string::npos) {
                    unit = u.code;
                    break;
                }
            s["units"] = unit;
            std::vector<double> values;
            char* rend = nullptr;
            double value = std::strtod(reading.c_str(), &rend);
            const bool available = rend != reading.c_str();
            if (available)
                values.push_back(value);
            Json thresholds = Json::object();
            std::vector<std::pair<const char*, double>> given;
            for (const ThresholdName& t : kThresholds)
                if (b.has(t.label)) {
                    double v = std::strtod(b.get(t.label).c_str(), nullptr);
                    values.push_back(v);
                    given.emplace_back(t.key, v);
                }
            Factors f = chooseFactors(values);
            if (f.isSigned)
                s["analogFormat"] = "2s-complement";
            if (f.m != 1)
                s["m"] = f.m;
            if (f.rExp != 0)
                s["rExp"] = f.rExp;
            for (const auto& g : given)
                thresholds[g.first] = rawOf(g.second, f);
            s["thresholds"] = thresholds;
            auto mask = [&](const std::string& label) {
                Json names = Json::array();
                std::istringstream words(b.get(label));
                for (std::string w; words >> w;)
                    for (const ThresholdName& t : kThresholds)
                        if (w == t.abbrev && thresholds.contains(t.key))
                            names.push_back(t.key);
                return names;
            };
            if (b.has("Readable Thresholds"))
                s["readableThresholds"] = mask("Readable Thresholds");
            if (b.has("Settable Thresholds"))
                s["settableThresholds"] = mask("Settable Thresholds");
            if (available)
                s["reading"] = rawOf(value, f);
            else
                s["available"] = false;
        } else {
            s["record"] = "compact";
            s["sensorType"] = sensorType;
            int eventType = 0x6F;
            const std::string group = b.get("Assertions Enabled");
            for (const StateGroup& g : kGroups)
                if (group == g.name)
                    eventType = g.type;
            s["eventReadingType"] = eventType;
            s["entityId"] = entityId;
            s["entityInstance"] = instance;
            char* hend = nullptr;
            unsigned long bits = std::strtoul(reading.c_str(), &hend, 16);
            if (hend == reading.c_str() || *hend != 'h') {
                s["available"] = false;
            } else {
                Json states = Json::array();
                for (int bit = 0; bit < 15; ++bit)
                    if (bits & (1ul << bit))
                        states.push_back(bit);
                s["states"] = states;
            }
        }
        sensors.push_back(s);
    }
    Json doc;
    doc["format"] = "kelvarn-platform";
    doc["version"] = kPlatformFileVersion;
    doc["description"] = "Converted from the ipmitool -v sdr listing " + origin;
    doc["bmc"]["sensors"] = sensors;
    // One sensor a line keeps large sets readable.
    std::string out =
        "{\n  \"format\": \"kelvarn-platform\",\n  \"version\": " + std::to_string(kPlatformFileVersion) +
        ",\n  \"description\": " + doc["description"].dump() + ",\n  \"bmc\": {\"sensors\": [\n";
    for (size_t i = 0; i < sensors.size(); ++i)
        out += "    " + sensors[i].dump() + (i + 1 < sensors.size() ? ",\n" : "\n");
    out += "  ]}\n}\n";
    return out;
}

} // namespace kelvarn
