// The daemon's own configuration directives, read by net-snmp's configuration
// parser from the same file as net-snmp's directives (agentaddress, rocommunity,
// createUser, rouser, trapsink, trap2sink, agentXSocket, agentXPingInterval, ...).
#ifndef HM_HOST_HOSTCONFIG_H
#define HM_HOST_HOSTCONFIG_H

#include <string>

namespace hmhost {

enum class Role { Master, Subagent };

struct HostSettings {
    std::string library;  // agentLibrary: path of the extension agent library
    std::string registry; // agentRegistry: the agent's registry file (HMSUBAGENT_REGISTRY)
    Role role = Role::Master;
    bool entityTables = true; // entityTables: serve ENTITY-MIB and ENTITY-SENSOR-MIB
};

// The role must be known before net-snmp's agent library starts, that is before
// the file is parsed: this reads the last "agentRole" line of `path` alone.
// Returns false with a one-line reason for an unreadable file or a bad value.
bool readRole(const std::string& path, Role& role, std::string& error);

// The files net-snmp reads, comma-separated: the configuration file, then the state
// the daemon saved in `persistentDir` at its last stop (`app`.conf: the SNMPv3 engine
// ID and boots counter, users created at run time) when there is one.
std::string configurationFiles(const std::string& configFile, const std::string& persistentDir,
                               const std::string& app);

// Registers agentLibrary, agentRegistry, agentRole and entityTables with net-snmp's parser for
// the application type `app`; parsed values land in `settings`, which must
// outlive the parsing.
void registerDirectives(const char* app, HostSettings& settings);

} // namespace hmhost

#endif
