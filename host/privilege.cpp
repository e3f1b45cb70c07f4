// Least privilege for hmagentd: the plan, the drop and its verification.
#include "host/privilege.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "host/netSnmp.h"

namespace hmhost {

namespace {

bool parseIdLine(const std::string& rest, uint32_t (&values)[4]) {
    std::istringstream words(rest);
    for (uint32_t& value : values) {
        unsigned long number = 0;
        if (!(words >> number) || number > UINT32_MAX)
            return false;
        value = static_cast<uint32_t>(number);
    }
    std::string extra;
    return !(words >> extra);
}

bool parseHex(const std::string& rest, uint64_t& value) {
    std::istringstream words(rest);
    std::string text;
    if (!(words >> text) || text.empty() || text.size() > 16 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return false;
    value = std::stoull(text, nullptr, 16);
    return true;
}

std::string errnoText(const char* call) {
    return std::string(call) + ": " + std::strerror(errno);
}

} // namespace

PrivilegePlan planPrivilegeDrop(const PrivilegeRequest& request) {
    PrivilegePlan plan;
    if (!request.user && !request.group)
        return plan;
    if (request.euid != 0) {
        const bool sameUser = !request.user || *request.user == request.euid;
        const bool sameGroup = !request.group || *request.group == request.egid;
        if (sameUser && sameGroup)
            return plan;
        plan.action = PrivilegePlan::Action::NotRoot;
        plan.uid = request.euid;
        plan.gid = request.egid;
        plan.message = "agentuser/agentgroup ignored: not started as root, so the user and group cannot "
                       "be changed; running as uid " +
                       std::to_string(request.euid) + ", gid " + std::to_string(request.egid);
        return plan;
    }
    if (!request.user) {
        plan.action = PrivilegePlan::Action::Refuse;
        plan.message = "agentgroup without agentuser would leave the daemon running as root; "
                       "set agentuser too";
        return plan;
    }
    if (!request.group && !request.userAccount) {
        plan.action = PrivilegePlan::Action::Refuse;
        plan.message = "agentuser " + std::to_string(*request.user) +
                       " has no entry in the password database to take its group from; set agentgroup";
        return plan;
    }
    plan.action = PrivilegePlan::Action::Drop;
    plan.uid = *request.user;
    plan.gid = request.group ? *request.group : request.userAccount->primaryGroup;
    return plan;
}

bool parseProcessIds(const std::string& statusText, ProcessIds& ids) {
    bool haveUid = false, haveGid = false, haveGroups = false, havePrm = false, haveEff = false,
         haveAmb = false;
    std::istringstream lines(statusText);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        const std::string name = line.substr(0, colon);
        const std::string rest = line.substr(colon + 1);
        if (name == "Uid") {
            if (!parseIdLine(rest, ids.uid))
                return false;
            haveUid = true;
        } else if (name == "Gid") {
            if (!parseIdLine(rest, ids.gid))
                return false;
            haveGid = true;
        } else if (name == "Groups") {
            ids.groups.clear();
            std::istringstream words(rest);
            std::string word;
            while (words >> word) {
                if (word.find_first_not_of("0123456789") != std::string::npos || word.size() > 10)
                    return false;
                const unsigned long number = std::stoul(word);
                if (number > UINT32_MAX)
                    return false;
                ids.groups.push_back(static_cast<gid_t>(number));
            }
            haveGroups = true;
        } else if (name == "CapPrm") {
            havePrm = parseHex(rest, ids.capPermitted);
            if (!havePrm)
                return false;
        } else if (name == "CapEff") {
            haveEff = parseHex(rest, ids.capEffective);
            if (!haveEff)
                return false;
        } else if (name == "CapAmb") {
            haveAmb = parseHex(rest, ids.capAmbient);
            if (!haveAmb)
                return false;
        }
    }
    return haveUid && haveGid && haveGroups && havePrm && haveEff && haveAmb;
}

std::string checkDropped(const ProcessIds& ids, uid_t uid, gid_t gid) {
    static const char* const kFields[4] = {"real", "effective", "saved", "file system"};
    for (int i = 0; i < 4; ++i) {
        if (ids.uid[i] != uid)
            return std::string(kFields[i]) + " user id is " + std::to_string(ids.uid[i]) + ", not " +
                   std::to_string(uid);
        if (ids.gid[i] != gid)
            return std::string(kFields[i]) + " group id is " + std::to_string(ids.gid[i]) + ", not " +
                   std::to_string(gid);
    }
    if (!ids.groups.empty())
        return std::to_string(ids.groups.size()) + " supplementary group(s) left";
    if (uid != 0 && (ids.capPermitted != 0 || ids.capEffective != 0 || ids.capAmbient != 0))
        return "capabilities left (permitted " + std::to_string(ids.capPermitted) + ", effective " +
               std::to_string(ids.capEffective) + ", ambient " + std::to_string(ids.capAmbient) + ")";
    return "";
}

bool applyPrivilegeDrop(uid_t uid, gid_t gid, std::string& error) {
    // glibc applies each of these to every thread of the process.
    if (setgroups(0, nullptr) != 0) {
        error = errnoText("setgroups");
        return false;
    }
    if (setresgid(gid, gid, gid) != 0) {
        error = errnoText("setresgid");
        return false;
    }
    if (setresuid(uid, uid, uid) != 0) {
        error = errnoText("setresuid");
        return false;
    }
    std::ifstream status("/proc/self/status");
    std::stringstream text;
    text << status.rdbuf();
    ProcessIds ids;
    if (!parseProcessIds(text.str(), ids)) {
        error = "/proc/self/status cannot be read to check the new user and group";
        return false;
    }
    error = checkDropped(ids, uid, gid);
    if (!error.empty())
        return false;
    if (uid != 0 && (setuid(0) == 0 || seteuid(0) == 0)) {
        error = "root could be regained after the drop";
        return false;
    }
    if (uid != 0 && gid != 0 && (setgid(0) == 0 || setegid(0) == 0)) {
        error = "group root could be regained after the drop";
        return false;
    }
    return true;
}

bool handOverDirectory(const std::string& directory, uid_t uid, gid_t gid, std::string& error) {
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        error = directory + ": " + errnoText("mkdir");
        return false;
    }
    // Opened without following a link, so that a link planted there cannot
    // hand some other file to the daemon's user.
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        error = directory + ": " + errnoText("open");
        return false;
    }
    struct stat st {};
    const char* failed = nullptr;
    if (fstat(fd, &st) != 0)
        failed = "fstat";
    else if ((st.st_uid != uid || st.st_gid != gid) && fchown(fd, uid, gid) != 0)
        failed = "fchown";
    else if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 && fchmod(fd, st.st_mode & 0755) != 0)
        failed = "fchmod";
    if (failed != nullptr)
        error = directory + ": " + errnoText(failed);
    close(fd);
    return failed == nullptr;
}

std::optional<Account> lookUpUser(uid_t uid) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return std::nullopt;
    return Account{found->pw_name, found->pw_gid};
}

std::string describeUser(uid_t uid) {
    const std::optional<Account> account = lookUpUser(uid);
    return account ? account->name + " (uid " + std::to_string(uid) + ")" : "uid " + std::to_string(uid);
}

std::string describeGroup(gid_t gid) {
    struct group entry {};
    struct group* found = nullptr;
    std::vector<char> buffer(16384);
    if (getgrgid_r(gid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return "gid " + std::to_string(gid);
    return std::string(found->gr_name) + " (gid " + std::to_string(gid) + ")";
}

bool dropConfiguredPrivileges(const char* app, std::string& error) {
    // net-snmp's agentuser and agentgroup handlers store the resolved numbers;
    // 0 stands for "not set" (as in snmpd, agentuser root changes nothing).
    const int user = netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_USERID);
    const int group = netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_GROUPID);
    PrivilegeRequest request;
    request.euid = geteuid();
    request.egid = getegid();
    if (user > 0) {
        request.user = static_cast<uid_t>(user);
        request.userAccount = lookUpUser(*request.user);
    }
    if (group > 0)
        request.group = static_cast<gid_t>(group);
    const PrivilegePlan plan = planPrivilegeDrop(request);
    switch (plan.action) {
    case PrivilegePlan::Action::Keep:
        if (request.euid == 0 && !request.user)
            snmp_log(LOG_NOTICE, "%s: running as root (no agentuser configured)\n", app);
        return true;
    case PrivilegePlan::Action::NotRoot:
        snmp_log(LOG_WARNING, "%s: %s\n", app, plan.message.c_str());
        return true;
    case PrivilegePlan::Action::Refuse:
        error = plan.message;
        return false;
    case PrivilegePlan::Action::Drop:
        break;
    }
    const char* persistent = get_persistent_directory();
    std::string why;
    if (persistent != nullptr && !handOverDirectory(persistent, plan.uid, plan.gid, why))
        snmp_log(LOG_WARNING, "%s: persistent state will not be saved: %s\n", app, why.c_str());
    // Named before the drop: the databases may not be readable afterwards.
    const std::string userText = describeUser(plan.uid);
    const std::string groupText = describeGroup(plan.gid);
    if (!applyPrivilegeDrop(plan.uid, plan.gid, why)) {
        error = "cannot drop root privileges to user " + userText + ", group " + groupText + ": " + why;
        return false;
    }
    snmp_log(LOG_INFO, "%s: running as user %s, group %s\n", app, userText.c_str(), groupText.c_str());
    return true;
}

} // namespace hmhost
