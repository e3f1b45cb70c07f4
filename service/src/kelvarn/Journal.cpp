#include "kelvarn/Journal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include <fcntl.h>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "kelvarn/PlatformFile.h"
#include "kelvarn/Sdr.h"
#include "PortableIo.h"

namespace kelvarn {
namespace {

bool number(const std::string& token, long long lo, long long hi, long long& out, int base = 0) {
    if (token.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(token.c_str(), &end, base);
    if (errno || *end || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

SensorReading* findReading(PlatformModel& m, const std::vector<std::string>& t, std::string& why) {
    long long owner, lun, num;
    if (!number(t[1], 0, 255, owner) || !number(t[2], 0, 255, lun) || !number(t[3], 0, 255, num)) {
        why = "OWNER LUN NUMBER must be bytes";
        return nullptr;
    }
    auto it = m.readings.find(
        SensorAddress{static_cast<uint8_t>(owner), static_cast<uint8_t>(lun), static_cast<uint8_t>(num)});
    if (it == m.readings.end()) {
        why = "no sensor " + t[3] + " with owner " + t[1] + " and LUN byte " + t[2];
        return nullptr;
    }
    return &it->second;
}

unsigned nextRecordId(const PlatformModel& m) {
    if (m.sel.empty())
        return 1;
    const auto& last = m.sel.back().raw;
    unsigned id = static_cast<unsigned>(last[0] | last[1] << 8) + 1;
    return id >= 0xFFFF ? 1 : id;
}

} // namespace

bool applyJournalLine(PlatformModel& m, const std::string& line, std::string& why) {
    std::istringstream in(line);
    std::vector<std::string> t;
    for (std::string token; in >> token;)
        t.push_back(token);
    if (t.empty()) {
        why = "empty line";
        return false;
    }
    const std::string& op = t[0];
    long long v;
    if ((op == "reading" || op == "states" || op == "available") && t.size() == 5) {
        SensorReading* r = findReading(m, t, why);
        if (!r)
            return false;
        if (op == "reading" && number(t[4], 0, 255, v))
            r->raw = static_cast<uint8_t>(v);
        else if (op == "states" && number(t[4], 0, 0x7FFF, v))
            r->states = static_cast<uint16_t>(v);
        else if (op == "available" && number(t[4], 0, 1, v))
            r->available = v == 1;
        else {
            why = "value \"" + t[4] + "\" is out of range";
            return false;
        }
        return true;
    }
    if (op == "sel-add" && (t.size() == 8 || t.size() == 10)) {
        long long ts, generator, sensor, offset, d2, d3, sensorType = -1, eventType = -1;
        if (!number(t[1], 0, 0xFFFFFFFFll, ts) || !number(t[2], 0, 0xFFFF, generator) ||
            !number(t[3], 0, 255, sensor) || !number(t[4], 0, 14, offset) || !number(t[6], 0, 255, d2) ||
            !number(t[7], 0, 255, d3) || (t[5] != "assert" && t[5] != "deassert") ||
            (t.size() == 10 && (!number(t[8], 0, 255, sensorType) || !number(t[9], 0, 0x7F, eventType)))) {
            why = "expected sel-add TIME GENERATOR SENSOR OFFSET assert|deassert DATA2 DATA3 "
                  "[SENSORTYPE EVENTTYPE]";
            return false;
        }
        // The sensor of that number and owner, on the generator's LUN when one is.
        SdrFields f, candidate;
        bool known = false;
        for (const Bytes& rec : m.sdr) {
            if (!decodeSdr(rec, candidate) || candidate.number != sensor ||
                candidate.owner != (generator & 0xFF))
                continue;
            const bool sameLun = (candidate.lun & 0x03) == ((generator >> 8) & 0x03);
            if (!known || sameLun)
                f = candidate;
            known = true;
            if (sameLun)
                break;
        }
        if (!known) {
            why = "no sensor " + t[3] + " owned by " + t[2];
            return false;
        }
        if (sensorType >= 0) {
            f.sensorType = static_cast<uint8_t>(sensorType);
            f.eventReadingType = static_cast<uint8_t>(eventType);
        }
        const unsigned id = nextRecordId(m);
        const unsigned data1 =
            static_cast<unsigned>(offset) | (d2 != 0xFF ? 0x40u : 0u) | (d3 != 0xFF ? 0x10u : 0u);
        SelEntry e;
        e.raw = {static_cast<uint8_t>(id),
                 static_cast<uint8_t>(id >> 8),
                 0x02,
                 static_cast<uint8_t>(ts),
                 static_cast<uint8_t>(ts >> 8),
                 static_cast<uint8_t>(ts >> 16),
                 static_cast<uint8_t>(ts >> 24),
                 static_cast<uint8_t>(generator),
                 static_cast<uint8_t>(generator >> 8),
                 0x04,
                 f.sensorType,
                 f.number,
                 static_cast<uint8_t>(f.eventReadingType | (t[5] == "deassert" ? 0x80 : 0)),
                 static_cast<uint8_t>(data1),
                 static_cast<uint8_t>(d2),
                 static_cast<uint8_t>(d3)};
        m.sel.push_back(e);
        return true;
    }
    if (op == "sel-raw" && t.size() == 17) {
        SelEntry e;
        for (size_t i = 0; i < 16; ++i) {
            if (t[i + 1].size() > 2 || !number(t[i + 1], 0, 255, v, 16)) {
                why = "\"" + t[i + 1] + "\" is not a hexadecimal byte";
                return false;
            }
            e.raw[i] = static_cast<uint8_t>(v);
        }
        m.sel.push_back(e);
        return true;
    }
    if (op == "sel-clear" && t.size() == 1) {
        m.sel.clear();
        return true;
    }
    why = "unknown change \"" + line + "\"";
    return false;
}

void appendJournal(const std::string& journalPath, const std::string& line) {
    if (line.find('\n') != std::string::npos)
        throw PlatformFileError(journalPath + ": a change is one line");
    const std::string text = line + "\n";
    int fd = ::open(journalPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | kOpenNoInherit, 0644);
    if (fd < 0)
        throw PlatformFileError(journalPath + ": cannot be opened: " + std::strerror(errno));
    bool ok = lockWholeFile(fd);
    ok = ok && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int err = errno;
    ::close(fd); // releases the lock
    if (!ok)
        throw PlatformFileError(journalPath + ": cannot be written: " + std::strerror(err));
}

} // namespace kelvarn
