// The IPMI source's settings from the service configuration, and the
// password file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "kelvarn/Ipmi.h"
#include "../kelvarn/PortableIo.h"

namespace kelvarn {
namespace {

// IPMI 2.0 passwords are at most 20 bytes.
constexpr size_t kMaxPassword = 20;

unsigned number(const std::string& key, const std::string& value, unsigned min, unsigned max,
                const std::string& origin) {
    size_t used = 0;
    unsigned long v = 0;
    bool ok = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    if (ok) {
        try {
            v = std::stoul(value, &used);
        } catch (const std::exception&) {
            ok = false;
        }
    }
    if (!ok || v < min || v > max)
        throw std::runtime_error(origin + ": " + key + " \"" + value + "\" is not a number from " +
                                 std::to_string(min) + " to " + std::to_string(max));
    return unsigned(v);
}

// FreeIPMI's names of its IPMI 2.0 workarounds, as its tools take them.
struct Workaround {
    const char* name;
    unsigned flag;
};
const Workaround kWorkarounds[] = {
    {"authcap", 0x01},         {"intel20", 0x02},      {"supermicro20", 0x04},
    {"sun20", 0x08},           {"opensesspriv", 0x10}, {"integritycheckvalue", 0x20},
    {"nochecksumcheck", 0x40},
};

} // namespace

IpmiSettings parseIpmiSettings(IpmiSettings::Mode mode, const std::map<std::string, std::string>& keys,
                               const std::string& origin) {
    IpmiSettings s;
    s.mode = mode;
#ifdef _WIN32
    // Windows has no /var: the SDR cache goes to the folder of machine-wide program data.
    if (const char* data = std::getenv("ProgramData"))
        s.sdrCacheDir = std::string(data) + "\\kelvarn";
#endif
    for (const auto& kv : keys) {
        const std::string& k = kv.first;
        const std::string& v = kv.second;
        if (k == "ipmi-device") {
            s.device = v;
        } else if (k == "ipmi-host") {
            s.host = v;
        } else if (k == "ipmi-port") {
            s.port = number(k, v, 1, 65535, origin);
        } else if (k == "ipmi-user") {
            s.user = v;
        } else if (k == "ipmi-password-file") {
            s.passwordFile = v;
        } else if (k == "ipmi-privilege") {
            if (v == "user")
                s.privilege = 2;
            else if (v == "operator")
                s.privilege = 3;
            else if (v == "admin")
                s.privilege = 4;
            else
                throw std::runtime_error(origin + ": ipmi-privilege \"" + v +
                                         "\" is not \"user\", \"operator\" or \"admin\"");
        } else if (k == "ipmi-cipher-suite") {
            s.cipherSuite = uint8_t(number(k, v, 0, 17, origin));
        } else if (k == "ipmi-workarounds") {
            size_t start = 0;
            while (start <= v.size()) {
                size_t comma = v.find(',', start);
                std::string name =
                    v.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
                bool known = false;
                for (const Workaround& w : kWorkarounds)
                    if (name == w.name) {
                        s.workarounds |= w.flag;
                        known = true;
                    }
                if (!known)
                    throw std::runtime_error(origin + ": ipmi-workarounds: unknown workaround \"" + name +
                                             "\"");
                if (comma == std::string::npos)
                    break;
                start = comma + 1;
            }
        } else if (k == "ipmi-refresh-ms") {
            s.refreshMs = number(k, v, 100, 3600000, origin);
            s.refreshMsSet = true;
        } else if (k == "ipmi-max-commands-per-second") {
            s.maxCommandsPerSecond = number(k, v, 0, 100000, origin);
        } else if (k == "ipmi-startup-commands-per-second") {
            s.startupCommandsPerSecond = number(k, v, 0, 100000, origin);
        } else if (k == "ipmi-slow-every") {
            s.slowEvery = number(k, v, 1, 100000, origin);
        } else if (k == "ipmi-stale-after") {
            s.staleAfter = number(k, v, 1, 1000, origin);
        } else if (k == "ipmi-startup-wait-ms") {
            s.startupWaitMs = number(k, v, 0, 600000, origin);
        } else if (k == "ipmi-sdr-cache") {
            s.sdrCacheDir = v;
        } else {
            throw std::runtime_error(origin + ": unknown key \"" + k + "\"");
        }
    }
    if (mode == IpmiSettings::Mode::Lan) {
        if (s.host.empty())
            throw std::runtime_error(origin + ": bmc=ipmi-lan needs ipmi-host");
        if (s.user.empty())
            throw std::runtime_error(origin + ": bmc=ipmi-lan needs ipmi-user");
        if (s.passwordFile.empty())
            throw std::runtime_error(origin + ": bmc=ipmi-lan needs ipmi-password-file");
    }
    return s;
}

std::string readPasswordFile(const std::string& path) {
    // The checks are made on the open file, so that the file checked is the file
    // read. Execute bits tell nothing about who can learn the password and are
    // not checked.
#ifdef _WIN32
    // Windows keeps who may read a file in its access list, not in mode bits: the
    // installer's access list on the configuration folder is what guards the file.
    const int fd = open(path.c_str(), O_RDONLY | kOpenNoInherit);
    constexpr unsigned kOpenToOthers = 0;
#else
    const int fd = open(path.c_str(), O_RDONLY | kOpenNoInherit | O_NONBLOCK | O_NOCTTY);
    constexpr unsigned kOpenToOthers = S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
#endif
    if (fd < 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    struct stat st {};
    const bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (!regular || (unsigned(st.st_mode) & kOpenToOthers) != 0) {
        close(fd);
        if (!regular)
            throw std::runtime_error(path + ": not a regular file");
        throw std::runtime_error(path +
                                 ": the password file is open to group or others; allow only its owner "
                                 "(chmod 600)");
    }
    // The first line, at most 20 bytes and its line end; the rest is not read.
    char buffer[kMaxPassword + 3];
    size_t got = 0;
    while (got < sizeof buffer) {
        const ssize_t n = read(fd, buffer + got, sizeof buffer - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            close(fd);
            std::fill(buffer, buffer + sizeof buffer, '\0');
            throw std::runtime_error(path + ": " + std::strerror(error));
        }
        if (n == 0)
            break;
        got += size_t(n);
        if (std::memchr(buffer, '\n', got) != nullptr)
            break;
    }
    close(fd);
    const char* end = static_cast<const char*>(std::memchr(buffer, '\n', got));
    size_t length = end != nullptr ? size_t(end - buffer) : got;
    if (length > 0 && buffer[length - 1] == '\r')
        --length;
    const bool tooLong = length > kMaxPassword;
    std::string line(buffer, tooLong ? 0 : length);
    std::fill(buffer, buffer + sizeof buffer, '\0');
    if (tooLong)
        throw std::runtime_error(path + ": the password is longer than 20 bytes");
    return line;
}

} // namespace kelvarn
