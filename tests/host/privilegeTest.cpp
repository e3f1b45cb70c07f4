// hmagentd's privilege drop: the plan for each start-up situation, the reading
// of /proc/PID/status, the verification of a drop, the persistent directory, and
// the daemon itself started as root with agentuser nobody (skipped when the test
// does not run as root).
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/privilege.h"
#include "support/e2e.h"

namespace hmhost {
namespace {

using Action = PrivilegePlan::Action;

struct PlanCase {
    const char* name;
    uid_t euid;
    gid_t egid;
    std::optional<uid_t> user;
    std::optional<gid_t> group;
    std::optional<Account> account;
    Action action;
    uid_t uid;
    gid_t gid;
    const char* message;
};

TEST(PrivilegePlan, EachStartUpSituation) {
    const PlanCase cases[] = {
        {"root, nothing configured", 0, 0, std::nullopt, std::nullopt, std::nullopt, Action::Keep, 0, 0, ""},
        {"root, user with its primary group", 0, 0, 65534, std::nullopt, Account{"nobody", 65534},
         Action::Drop, 65534, 65534, ""},
        {"root, user and another group", 0, 0, 1000, 50, Account{"alice", 100}, Action::Drop, 1000, 50, ""},
        {"root, user without password entry but with a group", 0, 0, 4321, 4321, std::nullopt, Action::Drop,
         4321, 4321, ""},
        {"root, user without password entry nor group", 0, 0, 4321, std::nullopt, std::nullopt,
         Action::Refuse, 0, 0,
         "agentuser 4321 has no entry in the password database to take its group from; set agentgroup"},
        {"root, group alone", 0, 0, std::nullopt, 65534, std::nullopt, Action::Refuse, 0, 0,
         "agentgroup without agentuser would leave the daemon running as root; set agentuser too"},
        {"already the configured user", 1000, 1000, 1000, std::nullopt, Account{"alice", 1000}, Action::Keep,
         0, 0, ""},
        {"already the configured user and group", 1000, 27, 1000, 27, Account{"alice", 1000}, Action::Keep, 0,
         0, ""},
        {"not root, another user", 1000, 1000, 65534, std::nullopt, Account{"nobody", 65534}, Action::NotRoot,
         1000, 1000,
         "agentuser/agentgroup ignored: not started as root, so the user and group cannot be changed; "
         "running as uid 1000, gid 1000"},
        {"not root, same user, another group", 1000, 1000, 1000, 27, Account{"alice", 1000}, Action::NotRoot,
         1000, 1000,
         "agentuser/agentgroup ignored: not started as root, so the user and group cannot be changed; "
         "running as uid 1000, gid 1000"},
    };
    for (const PlanCase& c : cases) {
        SCOPED_TRACE(c.name);
        PrivilegeRequest request;
        request.euid = c.euid;
        request.egid = c.egid;
        request.user = c.user;
        request.group = c.group;
        request.userAccount = c.account;
        const PrivilegePlan plan = planPrivilegeDrop(request);
        EXPECT_EQ(plan.action, c.action);
        EXPECT_EQ(plan.message, c.message);
        if (c.action == Action::Drop || c.action == Action::NotRoot) {
            EXPECT_EQ(plan.uid, c.uid);
            EXPECT_EQ(plan.gid, c.gid);
        }
    }
}

const char kStatusAfterDrop[] = "Name:\thmagentd\n"
                                "Umask:\t0077\n"
                                "State:\tS (sleeping)\n"
                                "Uid:\t65534\t65534\t65534\t65534\n"
                                "Gid:\t65533\t65533\t65533\t65533\n"
                                "FDSize:\t64\n"
                                "Groups:\t \n"
                                "CapInh:\t0000000000000000\n"
                                "CapPrm:\t0000000000000000\n"
                                "CapEff:\t0000000000000000\n"
                                "CapBnd:\t000001ffffffffff\n"
                                "CapAmb:\t0000000000000000\n";

TEST(PrivilegeStatus, ReadsIdsGroupsAndCapabilities) {
    ProcessIds ids;
    ASSERT_TRUE(parseProcessIds(kStatusAfterDrop, ids));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(ids.uid[i], 65534u);
        EXPECT_EQ(ids.gid[i], 65533u);
    }
    EXPECT_TRUE(ids.groups.empty());
    EXPECT_EQ(ids.capPermitted, 0u);

    ProcessIds root;
    ASSERT_TRUE(
        parseProcessIds("Uid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nGroups:\t0 4 27 \n"
                        "CapPrm:\t000001ffffffffff\nCapEff:\t0000000000000400\nCapAmb:\t0000000000000000\n",
                        root));
    EXPECT_EQ(root.groups, (std::vector<gid_t>{0, 4, 27}));
    EXPECT_EQ(root.capPermitted, 0x1ffffffffffull);
    EXPECT_EQ(root.capEffective, 0x400u);

    const std::string bad[] = {
        "Uid:\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n", // three uids
        "Uid:\t1\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n", // five
        "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\tstaff\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",
        "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\tzz\nCapEff:\t0\nCapAmb:\t0\n",
        "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\n", // no CapAmb
        "Uid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",       // no Gid
        "Uid:\t1\t1\t99999999999\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",
    };
    for (const std::string& text : bad) {
        ProcessIds ids2;
        EXPECT_FALSE(parseProcessIds(text, ids2)) << text;
    }
}

TEST(PrivilegeStatus, DropIsCheckedOnEveryField) {
    struct Case {
        const char* name;
        void (*spoil)(ProcessIds&);
        const char* expected;
    };
    const Case cases[] = {
        {"clean", [](ProcessIds&) {}, ""},
        {"real uid", [](ProcessIds& ids) { ids.uid[0] = 0; }, "real user id is 0, not 65534"},
        {"saved uid", [](ProcessIds& ids) { ids.uid[2] = 0; }, "saved user id is 0, not 65534"},
        {"fs uid", [](ProcessIds& ids) { ids.uid[3] = 0; }, "file system user id is 0, not 65534"},
        {"effective gid", [](ProcessIds& ids) { ids.gid[1] = 0; }, "effective group id is 0, not 65533"},
        {"groups",
         [](ProcessIds& ids) {
             ids.groups = {0, 27};
         },
         "2 supplementary group(s) left"},
        {"ambient capability", [](ProcessIds& ids) { ids.capAmbient = 0x400; },
         "capabilities left (permitted 0, effective 0, ambient 1024)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ProcessIds ids;
        ASSERT_TRUE(parseProcessIds(kStatusAfterDrop, ids));
        c.spoil(ids);
        EXPECT_EQ(checkDropped(ids, 65534, 65533), c.expected);
    }
}

TEST(PrivilegeDirectory, HandedOverWithoutFollowingALink) {
    const hmtest::TempDir tmp("hmpriv");
    const std::string& dir = tmp.path();
    ASSERT_TRUE(tmp.made());
    const uid_t uid = geteuid() == 0 ? 65534 : geteuid();
    const gid_t gid = geteuid() == 0 ? 65533 : getegid();
    std::string error;

    // Missing: created 0700 and owned by the daemon's user.
    ASSERT_TRUE(handOverDirectory(dir + "/state", uid, gid, error)) << error;
    struct stat st {};
    ASSERT_EQ(stat((dir + "/state").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, uid);
    EXPECT_EQ(st.st_gid, gid);
    EXPECT_EQ(st.st_mode & 07777, 0700u);

    // Writable by others: that write access is taken away.
    ASSERT_EQ(mkdir((dir + "/open").c_str(), 0700), 0);
    ASSERT_EQ(chmod((dir + "/open").c_str(), 0777), 0);
    ASSERT_TRUE(handOverDirectory(dir + "/open", uid, gid, error)) << error;
    ASSERT_EQ(stat((dir + "/open").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);

    // A link is refused and its target left alone.
    ASSERT_EQ(mkdir((dir + "/target").c_str(), 0700), 0);
    ASSERT_EQ(symlink((dir + "/target").c_str(), (dir + "/link").c_str()), 0);
    EXPECT_FALSE(handOverDirectory(dir + "/link", uid, gid, error));
    EXPECT_EQ(error.rfind(dir + "/link: open: ", 0), 0u) << error;
    ASSERT_EQ(stat((dir + "/target").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, geteuid());
}

// The real drop, in a child process so that the test keeps its own identity.
TEST(PrivilegeDrop, RootBecomesTheUserForGood) {
    if (geteuid() != 0) {
        std::string error;
        EXPECT_FALSE(applyPrivilegeDrop(65534, 65534, error));
        EXPECT_EQ(error, "setgroups: Operation not permitted");
        GTEST_SKIP() << "the drop itself needs root; only its refusal was checked";
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string error;
        if (!applyPrivilegeDrop(65534, 65533, error))
            _exit(2);
        uid_t r, e, s;
        gid_t rg, eg, sg;
        if (getresuid(&r, &e, &s) != 0 || r != 65534 || e != 65534 || s != 65534)
            _exit(3);
        if (getresgid(&rg, &eg, &sg) != 0 || rg != 65533 || eg != 65533 || sg != 65533)
            _exit(4);
        if (getgroups(0, nullptr) != 0)
            _exit(5);
        if (setuid(0) == 0 || setresuid(0, 0, 0) == 0)
            _exit(6);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// ------------------------------------------------------------------ the daemon

using hmtest::Process;

// The daemon started with `config`.
std::unique_ptr<Process> startDaemon(const std::string& config, const std::string& output) {
    return std::make_unique<Process>(std::vector<std::string>{HM_AGENTD, "-c", config}, output);
}

// The process id of the daemon started with `config`, found by its command line.
pid_t pidOf(const std::string& config) {
    const std::string wanted = std::string(HM_AGENTD) + '\0' + "-c" + '\0' + config + '\0';
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos &&
            hmtest::readFile(entry.path().string() + "/cmdline") == wanted)
            return std::stoi(name);
    }
    return -1;
}

class PrivilegeE2e : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "starting hmagentd as root and dropping to nobody needs root";
        const passwd* nobody = getpwnam("nobody");
        if (nobody == nullptr)
            GTEST_SKIP() << "this system has no user nobody";
        m_uid = nobody->pw_uid;
        m_gid = nobody->pw_gid;
        ASSERT_TRUE(m_tmp.made());
        // The dropped daemon saves net-snmp's state under it at exit.
        setenv("SNMP_PERSISTENT_DIR", (m_dir + "/state").c_str(), 1);
        setenv("MIBS", "", 1);
        // The kernel makes a process that changed its user undumpable, and
        // LeakSanitizer's tracer then cannot always attach to the daemon at its
        // exit; the daemon's leaks are checked by the end-to-end tests that do
        // not drop.
        const char* asan = std::getenv("ASAN_OPTIONS");
        m_changedAsan = true;
        m_savedAsan = asan != nullptr ? std::optional<std::string>(asan) : std::nullopt;
        setenv("ASAN_OPTIONS",
               ((asan != nullptr ? std::string(asan) + ":" : std::string()) + "detect_leaks=0").c_str(), 1);
        write("agent.conf", "platformdescription = Privilege test\ntrapsenabled = 1\ndebugenabled = 1\n");
        write("registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n"
                              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                              "\"ConfigFile\"=\"" +
                                  m_dir + "/agent.conf\"\r\n\"LogFile\"=\"" + m_dir + "/agent.log\"\r\n");
        m_port = hmtest::freePort();
    }
    void TearDown() override {
        unsetenv("SNMP_PERSISTENT_DIR");
        unsetenv("KELVARN_CONFIG");
        if (m_changedAsan && m_savedAsan)
            setenv("ASAN_OPTIONS", m_savedAsan->c_str(), 1);
        else if (m_changedAsan)
            unsetenv("ASAN_OPTIONS");
    }
    void write(const std::string& name, const std::string& text) {
        std::ofstream(m_dir + "/" + name) << text;
    }
    std::string config(const std::string& extra,
                       const std::string& access = "rocommunity public 127.0.0.1\n") {
        write("hmagentd.conf", "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                                   "/registry.reg\nagentaddress udp:127.0.0.1:" + std::to_string(m_port) +
                                   "\n" + access + extra);
        return m_dir + "/hmagentd.conf";
    }
    std::string get(const std::string& oid) {
        return hmtest::runCommand("snmpget -v2c -c public -On -r 1 -t 2 127.0.0.1:" + std::to_string(m_port) +
                                  " " + oid)
            .output;
    }
    // hmSystemHealthStatus.0 asked with SNMPv3 (authentication and privacy) or
    // SNMPv2c at `port`.
    static std::string healthV3(int port) {
        return hmtest::runCommand("snmpget -v3 -l authPriv -u monitor -a SHA -A monitor-auth-pass -x AES -X "
                                  "monitor-priv-pass -On -r 1 -t 2 127.0.0.1:" +
                                  std::to_string(port) + " " + kHealth)
            .output;
    }
    static std::string healthV2c(int port) {
        return hmtest::runCommand("snmpget -v2c -c public -On -r 0 -t 1 127.0.0.1:" + std::to_string(port) +
                                  " " + kHealth)
            .output;
    }
    static constexpr const char* kHealth = ".1.3.6.1.4.1.64999.2.10.3.5.100.1.0";
    static constexpr const char* kV3User =
        "createUser monitor SHA \"monitor-auth-pass\" AES \"monitor-priv-pass\"\n"
        "rouser monitor priv .1.3.6.1.4.1.64999\n";

    uid_t m_uid = 0;
    gid_t m_gid = 0;
    bool m_changedAsan = false;
    std::optional<std::string> m_savedAsan;
    hmtest::TempDir m_tmp{"hmprivd", 0755};
    std::string m_dir = m_tmp.path();
    int m_port = 0;
};

std::vector<std::string> statusLines(pid_t pid) {
    std::vector<std::string> wanted;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("Uid:", 0) == 0 || line.rfind("Gid:", 0) == 0 || line.rfind("Groups:", 0) == 0)
            wanted.push_back(line.find_last_not_of(" \t") == std::string::npos
                                 ? line
                                 : line.substr(0, line.find_last_not_of(" \t") + 1));
    return wanted;
}

// How many TCP sockets the process listens on (net-snmp's SMUX port 199 would
// be one).
int tcpListeners(pid_t pid) {
    std::vector<std::string> held;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (target.rfind("socket:[", 0) == 0)
            held.push_back(target.substr(8, target.size() - 9));
    }
    int listening = 0;
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::istringstream lines(hmtest::readFile(table));
        std::string line;
        std::getline(lines, line); // column names
        while (std::getline(lines, line)) {
            std::istringstream fields(line);
            std::string field[10];
            for (std::string& f : field)
                fields >> f;
            if (field[3] == "0A" && std::find(held.begin(), held.end(), field[9]) != held.end())
                ++listening;
        }
    }
    return listening;
}

TEST_F(PrivilegeE2e, StartedAsRootServesAsNobody) {
    // Also on TCP (agentaddress adds to the list): the one TCP socket it then
    // listens on is that one, not SMUX's.
    const std::string p = std::to_string(m_port);
    auto daemon = startDaemon(config("agentuser nobody\nagentaddress tcp:127.0.0.1:" + p + "\n"),
                              m_dir + "/daemon.out");
    ASSERT_TRUE(hmtest::waitForText(m_dir + "/daemon.out", "serving 14 regions", std::chrono::seconds(30)))
        << daemon->output();
    const std::string u = std::to_string(m_uid);
    const std::string g = std::to_string(m_gid);
    EXPECT_EQ(statusLines(pidOf(m_dir + "/hmagentd.conf")),
              (std::vector<std::string>{"Uid:\t" + u + "\t" + u + "\t" + u + "\t" + u,
                                        "Gid:\t" + g + "\t" + g + "\t" + g + "\t" + g, "Groups:"}));
    EXPECT_EQ(tcpListeners(pidOf(m_dir + "/hmagentd.conf")), 1);
    EXPECT_NE(daemon->output().find("hmagentd: running as user nobody (uid " + u + "), group "),
              std::string::npos)
        << daemon->output();
    // hmSystemPlatformDescription.0, read from the agent's configuration at start-up.
    EXPECT_EQ(get(".1.3.6.1.4.1.64999.2.10.3.5.100.2.0"),
              ".1.3.6.1.4.1.64999.2.10.3.5.100.2.0 = STRING: \"Privilege test\"\n");
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
    // net-snmp's state was saved by the dropped daemon.
    struct stat st {};
    ASSERT_EQ(stat((m_dir + "/state/hmagentd.conf").c_str(), &st), 0) << daemon->output();
    EXPECT_EQ(st.st_uid, m_uid);
}

TEST_F(PrivilegeE2e, ConfigurationsThatCannotBeHonouredStopTheDaemon) {
    struct Case {
        const char* extra;
        const char* error;
    };
    const Case cases[] = {
        {"agentgroup nogroup\n", "hmagentd: error: agentgroup without agentuser would leave the daemon "
                                 "running as root; set agentuser too"},
        {"agentuser no-such-user-hm\n", "User not found in passwd database"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.extra);
        if (std::string(c.extra) == "agentgroup nogroup\n" && getgrnam("nogroup") == nullptr)
            continue;
        auto daemon = startDaemon(config(c.extra), m_dir + "/daemon.out");
        EXPECT_EQ(daemon->wait(std::chrono::seconds(30)), 1) << daemon->output();
        EXPECT_NE(daemon->output().find(c.error), std::string::npos) << daemon->output();
        EXPECT_EQ(daemon->output().find("serving"), std::string::npos) << daemon->output();
    }
}

// The SNMPv3-only master of security.md, as nobody: v3 with privacy is
// answered, v2c is not, and a hardware event reaches a v3 trap receiver as an
// inform sent after the drop.
TEST_F(PrivilegeE2e, V3OnlyMasterSendsInformsAfterTheDrop) {
    const int trapPort = hmtest::freePort();
    write("snmptrapd.conf", "createUser trapper SHA \"trapper-auth-pass\" AES \"trapper-priv-pass\"\n"
                            "authUser log trapper priv\n");
    Process receiver({hmtest::daemonPath("snmptrapd"), "-f", "-C", "-c", m_dir + "/snmptrapd.conf", "-Lf",
                      m_dir + "/traps.log", "-On", "udp:127.0.0.1:" + std::to_string(trapPort)},
                     m_dir + "/snmptrapd.out");
    ASSERT_TRUE(hmtest::waitForText(m_dir + "/traps.log", "NET-SNMP version", std::chrono::seconds(10)))
        << receiver.output();
    write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
    setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    auto daemon = startDaemon(
        config("agentuser nobody\n"
               "createUser trapper SHA \"trapper-auth-pass\" AES \"trapper-priv-pass\"\n"
               "trapsess -v3 -Ci -u trapper -l authPriv -a SHA -A \"trapper-auth-pass\" -x AES -X "
               "\"trapper-priv-pass\" udp:127.0.0.1:" +
                   std::to_string(trapPort) + "\n",
               kV3User),
        m_dir + "/daemon.out");
    ASSERT_TRUE(hmtest::waitForText(m_dir + "/daemon.out", "serving 14 regions", std::chrono::seconds(30)))
        << daemon->output();
    EXPECT_EQ(healthV3(m_port), std::string(kHealth) + " = INTEGER: 4\n");
    EXPECT_EQ(healthV2c(m_port), "Timeout: No Response from 127.0.0.1:" + std::to_string(m_port) + ".\n");

    // Entries already in the SEL at the poller's first read are not events.
    ASSERT_TRUE(
        hmtest::waitForText(m_dir + "/agent.log", "Using /BMC/SEL/TRANSLATED", std::chrono::seconds(10)));
    const hmtest::Result added = hmtest::runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9");
    unsetenv("KELVARN_CONFIG");
    ASSERT_EQ(added.status, 0) << added.output;
    EXPECT_TRUE(hmtest::waitForText(m_dir + "/traps.log", "STRING: \"Status Changed to Upper Critical\"",
                                    std::chrono::seconds(15)))
        << hmtest::readFile(m_dir + "/traps.log") << daemon->output();
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

// The subagent of security.md behind a v3-only snmpd: after the drop it can
// still reconnect when snmpd restarts, because agentXPerms gives the socket to
// its group.
TEST_F(PrivilegeE2e, SubagentReconnectsAsNobodyThroughAgentXPerms) {
    const group* primary = getgrgid(m_gid);
    ASSERT_NE(primary, nullptr);
    const std::string socket = m_dir + "/agentx/master";
    write("snmpd.conf", "master agentx\nagentXSocket unix:" + socket + "\nagentXPerms 0660 0755 root " +
                            primary->gr_name + "\nagentaddress udp:127.0.0.1:" + std::to_string(m_port) +
                            "\n" + kV3User);
    const std::vector<std::string> snmpd = {hmtest::daemonPath("snmpd"), "-f", "-C", "-c",
                                            m_dir + "/snmpd.conf",       "-Lo"};
    auto master = std::make_unique<Process>(snmpd, m_dir + "/snmpd.out");
    ASSERT_TRUE(hmtest::waitForText(m_dir + "/snmpd.out", "NET-SNMP version", std::chrono::seconds(10)))
        << master->output();
    write("subagent.conf", "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                               "/registry.reg\nagentRole subagent\nagentXSocket unix:" + socket +
                               "\nagentXPingInterval 1\nagentuser nobody\n");
    auto daemon = startDaemon(m_dir + "/subagent.conf", m_dir + "/daemon.out");
    ASSERT_TRUE(hmtest::waitForText(m_dir + "/daemon.out", "serving 14 regions", std::chrono::seconds(30)))
        << daemon->output();
    EXPECT_NE(daemon->output().find("hmagentd: running as user nobody"), std::string::npos)
        << daemon->output();
    EXPECT_EQ(healthV3(m_port), std::string(kHealth) + " = INTEGER: 4\n");
    EXPECT_EQ(healthV2c(m_port), "Timeout: No Response from 127.0.0.1:" + std::to_string(m_port) + ".\n");

    master->stop(SIGKILL);
    master = std::make_unique<Process>(snmpd, m_dir + "/snmpd2.out");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::string answer;
    while ((answer = healthV3(m_port)) != std::string(kHealth) + " = INTEGER: 4\n" &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(answer, std::string(kHealth) + " = INTEGER: 4\n") << daemon->output();
    const std::string u = std::to_string(m_uid);
    EXPECT_EQ(statusLines(pidOf(m_dir + "/subagent.conf"))[0], "Uid:\t" + u + "\t" + u + "\t" + u + "\t" + u);
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

} // namespace
} // namespace hmhost
