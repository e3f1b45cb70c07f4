// The platform description file (JSON, documented in docs/platform-file.md)
// and the service configuration file.
#ifndef KELVARN_PLATFORMFILE_H
#define KELVARN_PLATFORMFILE_H

#include <map>
#include <stdexcept>
#include <string>

#include "kelvarn/Platform.h"

namespace kelvarn {

constexpr int kPlatformFileVersion = 1;

// A refused file: the message names the file, the place and the problem.
class KELVARN_API PlatformFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// `origin` names the text in messages (a file path or "built-in demo platform").
KELVARN_API PlatformModel parsePlatform(const std::string& text, const std::string& origin);
KELVARN_API PlatformModel loadPlatformFile(const std::string& path);

// The built-in demo server's description.
KELVARN_API const std::string& demoPlatformText();

struct ServiceConfig {
    std::string source = "demo"; // "demo" or "simulated"
    std::string platform;        // platform file of the simulated source
    std::string journal;         // live-change journal; simulated: the platform file's + ".journal"
    std::string origin;          // the configuration file read, or empty
    // Where the /BMC and the /SMBIOS facts come from; empty: from `source`.
    std::string bmc;    // "demo", "simulated", "ipmi-inband", "ipmi-lan"
    std::string smbios; // "demo", "simulated", "sysfs" or "sysfs:DIR", "dump:FILE", "firmware"
    std::map<std::string, std::string> ipmi; // the "ipmi-*" keys, for the IPMI source
};

// Reads the configuration named by KELVARN_CONFIG, else /etc/kelvarn/kelvarn.conf
// when it exists; with neither, the demo source, and on Windows the live ones
// (bmc=ipmi-inband, smbios=firmware). Throws PlatformFileError.
KELVARN_API ServiceConfig readServiceConfig();
KELVARN_API ServiceConfig parseServiceConfig(const std::string& text, const std::string& origin);

} // namespace kelvarn

#endif
