// The IPMI source's settings from the service configuration, and the
// password file.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "kelvarn/Ipmi.h"

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
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    if (!S_ISREG(st.st_mode))
        throw std::runtime_error(path + ": not a regular file");
    if (st.st_mode & (S_IRWXG | S_IRWXO))
        throw std::runtime_error(path +
                                 ": the password file is open to group or others; allow only its owner "
                                 "(chmod 600)");
    std::ifstream in(path);
    if (!in)
        throw std::runtime_error(path + ": cannot be opened");
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    if (line.size() > kMaxPassword)
        throw std::runtime_error(path + ": the password is longer than 20 bytes");
    return line;
}

} // namespace kelvarn
