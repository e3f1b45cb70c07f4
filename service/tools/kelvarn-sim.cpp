// kelvarn-sim: changes the simulated server that a running agent queries, by
// appending one line to the journal of the configured platform (see
// docs/platform-file.md). Usage:
//   kelvarn-sim set-reading SENSOR RAW
//   kelvarn-sim set-states SENSOR [STATE ...]      keywords or offsets; none: all deasserted
//   kelvarn-sim set-available SENSOR yes|no
//   kelvarn-sim sel-add SENSOR OFFSET [assert|deassert] [DATA2 DATA3]
//   kelvarn-sim sel-add-raw B0 ... B15
//   kelvarn-sim sel-add-event NAME [--sensor SENSOR] [--deassert]
//   kelvarn-sim sel-clear
//   kelvarn-sim list-events
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
#include "kelvarn/SelEvents.h"
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
                 "  sel-add-event NAME [--sensor SENSOR] [--deassert]   a hardware event by name\n"
                 "  sel-clear\n"
                 "  list-events                                          the names sel-add-event knows\n"
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
    try {
        return findSensorBySpec(model, spec);
    } catch (const PlatformFileError& e) {
        throw Failure{e.what()};
    }
}

// The table of named events: name, sensor type, event/reading type, offset, direction.
int listEvents() {
    size_t count = 0;
    const NamedEvent* events = namedEvents(count);
    std::printf("%-50s %-22s %-10s %-6s %s\n", "NAME", "SENSOR TYPE", "EVENT TYPE", "OFFSET", "DIRECTION");
    for (size_t i = 0; i < count; ++i) {
        const NamedEvent& e = events[i];
        char type[64];
        std::snprintf(type, sizeof type, "%s (0x%02x)", selSensorTypeName(e.sensorType).c_str(),
                      e.sensorType);
        char eventType[8];
        std::snprintf(eventType, sizeof eventType, "0x%02x", e.eventReadingType);
        std::printf("%-50s %-22s %-10s %-6u %s\n", e.name, type, eventType, e.offset,
                    e.deassertion ? "deassert" : "assert");
    }
    return 0;
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
               std::to_string(f.owner | (f.lun & 0x03) << 8) + " " + std::to_string(f.number) + " " +
               std::to_string(offset) + " " + direction + " " + std::to_string(d2) + " " + std::to_string(d3);
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
    if (cmd == "sel-add-event" && a.size() >= 2) {
        const NamedEvent* event = findNamedEvent(a[1]);
        if (!event)
            throw Failure{"no event is named \"" + a[1] + "\" (kelvarn-sim list-events prints the names)"};
        std::string sensor;
        bool invert = false;
        for (size_t i = 2; i < a.size(); ++i) {
            if (a[i] == "--sensor" && i + 1 < a.size())
                sensor = a[++i];
            else if (a[i] == "--deassert")
                invert = true;
            else
                throw Failure{""};
        }
        try {
            return namedEventJournalLine(model, *event, sensor, static_cast<uint32_t>(std::time(nullptr)),
                                         invert);
        } catch (const PlatformFileError& e) {
            throw Failure{e.what()};
        }
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
    if (args[0] == "list-events")
        return args.size() == 1 ? listEvents() : usage();
    try {
        ServiceConfig config = readServiceConfig();
        if (config.journal.empty())
            throw Failure{
                "the configured source has no journal: use source=simulated, or journal=FILE" +
                (config.origin.empty() ? std::string(" in a configuration file") : " in " + config.origin)};
        // The journal changes the server that answers /BMC: check the change against that one.
        const std::string& bmcSource = config.bmc.empty() ? config.source : config.bmc;
        PlatformModel model = bmcSource == "simulated"
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
