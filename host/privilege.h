// Least privilege for hmagentd: started as root (for port 161 or the IPMI
// device), the daemon opens what it needs and then becomes the user and group
// named by net-snmp's agentuser and agentgroup directives.
//
// The decision (planPrivilegeDrop) and the reading of /proc/self/status
// (parseProcessIds, checkDropped) are pure; applyPrivilegeDrop makes the calls.
#ifndef HM_HOST_PRIVILEGE_H
#define HM_HOST_PRIVILEGE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hmhost {

// One account as the password and group databases know it.
struct Account {
    std::string name;
    gid_t primaryGroup = 0; // users only
};

// What the daemon was started as and what its configuration asks for.
struct PrivilegeRequest {
    uid_t euid = 0;
    gid_t egid = 0;
    std::optional<uid_t> user;  // agentuser, resolved to a number
    std::optional<gid_t> group; // agentgroup, resolved to a number
    // The configured user's entry in the password database, when it has one.
    std::optional<Account> userAccount;
};

struct PrivilegePlan {
    enum class Action {
        Keep,    // nothing configured, or already running as the configured ids
        Drop,    // root: become uid/gid with no supplementary groups
        NotRoot, // not root and the configured ids differ: go on as we are, say so
        Refuse,  // the configuration cannot be honoured: stop
    };
    Action action = Action::Keep;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string message; // NotRoot and Refuse: the reason, one line
};

// Decides what to do. Root with agentuser drops to that user and to agentgroup,
// or to the user's primary group when agentgroup is absent; agentgroup alone
// (root would keep every power) and a user with neither agentgroup nor a
// password entry are refused.
PrivilegePlan planPrivilegeDrop(const PrivilegeRequest& request);

// The identity of a process as /proc/PID/status gives it.
struct ProcessIds {
    uid_t uid[4] = {0, 0, 0, 0}; // real, effective, saved, file system
    gid_t gid[4] = {0, 0, 0, 0};
    std::vector<gid_t> groups;
    uint64_t capPermitted = 0;
    uint64_t capEffective = 0;
    uint64_t capAmbient = 0;
};

// Parses the Uid, Gid, Groups, CapPrm, CapEff and CapAmb lines of a status
// text. Returns false when one of them is missing or malformed.
bool parseProcessIds(const std::string& statusText, ProcessIds& ids);

// Checks that `ids` are exactly uid/gid on all four fields, with no
// supplementary group and no capability left. Returns an empty string when they
// are, else what is wrong.
std::string checkDropped(const ProcessIds& ids, uid_t uid, gid_t gid);

// Clears the supplementary groups, then sets the real, effective and saved group
// and user ids (in that order: the group calls need the privilege the user call
// gives up), then checks /proc/self/status and that neither setuid(0) nor
// setgid(0) succeeds any more. Returns false with the reason when any step
// fails; the caller must then stop.
bool applyPrivilegeDrop(uid_t uid, gid_t gid, std::string& error);

// Gives `directory` (net-snmp's persistent state: SNMPv3 engine boots and
// users) to uid/gid so that the daemon can still save it after the drop;
// creates it (mode 0700) when missing. Returns false with the reason.
bool handOverDirectory(const std::string& directory, uid_t uid, gid_t gid, std::string& error);

// "name (uid N)" and "name (gid N)", or the bare number without a database entry.
std::string describeUser(uid_t uid);
std::string describeGroup(gid_t gid);

// Looks the user up in the password database.
std::optional<Account> lookUpUser(uid_t uid);

// The daemon's step once its transports, the AgentX connection and the agent's
// files and devices are open: takes agentuser and agentgroup from net-snmp's
// settings, hands net-snmp's persistent directory over, drops and logs what it
// did. Returns false with the reason when the daemon must stop.
bool dropConfiguredPrivileges(const char* app, std::string& error);

} // namespace hmhost

#endif
