// kelvarn-sim: changes the simulated server that a running agent queries, by
// appending one line to the journal of the configured platform (see
// docs/platform-file.md). Usage:
//   kelvarn-sim set-reading SENSOR RAW
//   kelvarn-sim set-states SENSOR [STATE ...]      keywords or offsets; none: all deasserted
//   kelvarn-sim set-available SENSOR yes|no
//   kelvarn-sim sel-add SENSOR OFFSET [assert|deassert] [DATA2 DATA3]
//   kelvarn-sim sel-add-raw B0 ... B15
//   kelvarn-sim sel-clear
// SENSOR is a sensor name ("CPU2 Temp"), a number (owner 0x20, LUN 0) or OWNER:LUN:NUMBER.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "kelvarn/Errors.h"
#include "kelvarn/Journal.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Sdr.h"
#include "kelvarn/SensorStates.h"

namespace {

using namespace kelvarn;

struct Failure {
    std::string message;
};

int usage() {
    std::fprintf(stderr,
                 "usage: kelvarn-sim COMMAND ...\n"
                 "  set-reading SENSOR RAW\n"
                 "  set-states SENSOR [STATE ...]\n"
                 "  set-available SENSOR yes|no\n"
                 "  sel-add SENSOR OFFSET [assert|deassert] [DATA2 DATA3]\n"
                 "  sel-add-raw B0 ... B15\n"
                 "  sel-clear\n"
                 "SENSOR: a sensor name, a number, or OWNER:LUN:NUMBER. The platform and its journal\n"
                 "come from the file named in KELVARN_CONFIG (default /etc/kelvarn/kelvarn.conf).\n");
    return 2;
}

long parseNumber(const std::string& text, long lo, long hi, const char* what) {
    char* end = nullptr;
    long v = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end || v < lo || v > hi)
        throw Failure{std::string(what) + " \"" + text + "\" is not a number from " + std::to_string(lo) +
                      " to " + std::to_string(hi)};
    return v;
}

SdrFields findSensor(const PlatformModel& model, const std::string& spec) {
    std::vector<SdrFields> sensors;
    for (const Bytes& rec : model.sdr) {
        SdrFields f;
        if (decodeSdr(rec, f))
            sensors.push_back(f);
    }
    for (const SdrFields& f : sensors)
        if (f.name == spec)
            return f;
    SensorAddress a;
    size_t c1 = spec.find(':'), c2 = c1 == std::string::npos ? c1 : spec.find(':', c1 + 1);
    if (c2 != std::string::npos) {
        a.owner = static_cast<uint8_t>(parseNumber(spec.substr(0, c1), 0, 255, "owner"));
        a.lun = static_cast<uint8_t>(parseNumber(spec.substr(c1 + 1, c2 - c1 - 1), 0, 255, "LUN"));
        a.number = static_cast<uint8_t>(parseNumber(spec.substr(c2 + 1), 0, 255, "sensor number"));
    } else {
        char* end = nullptr;
        long n = std::strtol(spec.c_str(), &end, 0);
        if (spec.empty() || *end || n < 0 || n > 255)
            throw Failure{"no sensor is named \"" + spec + "\""};
        a.number = static_cast<uint8_t>(n);
    }
    for (const SdrFields& f : sensors)
        if (f.owner == a.owner && f.lun == a.lun && f.number == a.number)
            return f;
    throw Failure{"no sensor " + spec + " in the platform"};
}

std::string address(const SdrFields& f) {
    return std::to_string(f.owner) + " " + std::to_string(f.lun) + " " + std::to_string(f.number);
}

std::string change(const PlatformModel& model, const std::vector<std::string>& a) {
    const std::string& cmd = a[0];
    if (cmd == "set-reading" && a.size() == 3)
        return "reading " + address(findSensor(model, a[1])) + " " +
               std::to_string(parseNumber(a[2], 0, 255, "RAW"));
    if (cmd == "set-available" && a.size() == 3 && (a[2] == "yes" || a[2] == "no"))
        return "available " + address(findSensor(model, a[1])) + (a[2] == "yes" ? " 1" : " 0");
    if (cmd == "set-states" && a.size() >= 2) {
        SdrFields f = findSensor(model, a[1]);
        unsigned mask = 0;
        for (size_t i = 2; i < a.size(); ++i) {
            int offset = stateOffset(f.eventReadingType, f.sensorType, a[i]);
            if (offset < 0)
                offset = static_cast<int>(parseNumber(a[i], 0, 14, "state"));
            mask |= 1u << offset;
        }
        return "states " + address(f) + " " + std::to_string(mask);
    }
    if (cmd == "sel-add" && (a.size() == 3 || a.size() == 4 || a.size() == 6)) {
        SdrFields f = findSensor(model, a[1]);
        long offset = parseNumber(a[2], 0, 14, "OFFSET");
        std::string direction = a.size() >= 4 ? a[3] : "assert";
        if (direction != "assert" && direction != "deassert")
            throw Failure{"expected assert or deassert, not \"" + direction + "\""};
        long d2 = a.size() == 6 ? parseNumber(a[4], 0, 255, "DATA2") : 0xFF;
        long d3 = a.size() == 6 ? parseNumber(a[5], 0, 255, "DATA3") : 0xFF;
        return "sel-add " + std::to_string(static_cast<unsigned long>(std::time(nullptr))) + " " +
               std::to_string(f.owner) + " " + std::to_string(f.number) + " " + std::to_string(offset) + " " +
               direction + " " + std::to_string(d2) + " " + std::to_string(d3);
    }
    if (cmd == "sel-add-raw" && a.size() == 17) {
        std::string line = "sel-raw";
        for (size_t i = 1; i < 17; ++i) {
            char* end = nullptr;
            long v = std::strtol(a[i].c_str(), &end, 16);
            if (a[i].empty() || a[i].size() > 2 || *end || v < 0)
                throw Failure{"\"" + a[i] + "\" is not a hexadecimal byte"};
            line += " " + a[i];
        }
        return line;
    }
    if (cmd == "sel-clear" && a.size() == 1)
        return "sel-clear";
    throw Failure{""};
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        return usage();
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        ServiceConfig config = readServiceConfig();
        if (config.journal.empty())
            throw Failure{
                "the configured source has no journal: use source=simulated, or journal=FILE" +
                (config.origin.empty() ? std::string(" in a configuration file") : " in " + config.origin)};
        PlatformModel model = config.source == "simulated"
                                  ? loadPlatformFile(config.platform)
                                  : parsePlatform(demoPlatformText(), "built-in demo platform");
        std::string line = change(model, args);
        // Refuse what the running source would refuse, before anyone sees it.
        std::string why;
        if (!applyJournalLine(model, line, why))
            throw Failure{why};
        appendJournal(config.journal, line);
        std::printf("%s: %s\n", config.journal.c_str(), line.c_str());
        return 0;
    } catch (const Failure& f) {
        if (f.message.empty())
            return usage();
        std::fprintf(stderr, "kelvarn-sim: %s\n", f.message.c_str());
    } catch (const PlatformFileError& e) {
        std::fprintf(stderr, "kelvarn-sim: %s\n", e.what());
    } catch (const QueryError& e) {
        std::fprintf(stderr, "kelvarn-sim: %s\n", e.what());
    }
    return 1;
}
