// hmagentd's privilege drop: the plan for each start-up situation, the reading
// of /proc/PID/status, the verification of a drop, the persistent directory, and
// the daemon itself started as root with agentuser nobody (skipped when the test
// does not run as root).
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "host/privilege.h"
#include "support/e2e.h"

namespace hmhost {
namespace {

using Action = PrivilegePlan::Action;
using namespace std::chrono_literals;

TEST(PrivilegePlan, EachStartUpSituation) {
    const auto none = std::nullopt;
    const Account nobody{"nobody", 65534}, alice{"alice", 1000};
    const std::string notRoot = "agentuser/agentgroup ignored: not started as root, so the user and group "
                                "cannot be changed; running as uid 1000, gid 1000",
                      noGroup =
                          "agentuser 4321 has no entry in the password database to take its group from; "
                          "set agentgroup",
                      groupAlone = "agentgroup without agentuser would leave the daemon running as root; set "
                                   "agentuser too";
    const struct {
        const char* name;
        PrivilegeRequest request;
        Action action;
        uid_t uid;
        gid_t gid;
        std::string message;
    } cases[] = {
        {"root, nothing configured", {0, 0, none, none, none}, Action::Keep, 0, 0, ""},
        {"root, user, its primary group", {0, 0, 65534, none, nobody}, Action::Drop, 65534, 65534, ""},
        {"root, user, another group", {0, 0, 1000, 50, Account{"alice", 100}}, Action::Drop, 1000, 50, ""},
        {"root, unknown user, a group", {0, 0, 4321, 4321, none}, Action::Drop, 4321, 4321, ""},
        {"root, unknown user, no group", {0, 0, 4321, none, none}, Action::Refuse, 0, 0, noGroup},
        {"root, group alone", {0, 0, none, 65534, none}, Action::Refuse, 0, 0, groupAlone},
        {"already the user", {1000, 1000, 1000, none, alice}, Action::Keep, 0, 0, ""},
        {"already the user and group", {1000, 27, 1000, 27, alice}, Action::Keep, 0, 0, ""},
        {"not root, another user", {1000, 1000, 65534, none, nobody}, Action::NotRoot, 1000, 1000, notRoot},
        {"not root, another group", {1000, 1000, 1000, 27, alice}, Action::NotRoot, 1000, 1000, notRoot},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const PrivilegePlan plan = planPrivilegeDrop(c.request);
        EXPECT_EQ(plan.action, c.action);
        EXPECT_EQ(plan.message, c.message);
        if (c.action == Action::Drop || c.action == Action::NotRoot) {
            EXPECT_EQ(std::make_pair(plan.uid, plan.gid), std::make_pair(c.uid, c.gid));
        }
    }
}

const char kStatusAfterDrop[] =
    "Name:\thmagentd\nUmask:\t0077\nState:\tS (sleeping)\n"
    "Uid:\t65534\t65534\t65534\t65534\nGid:\t65533\t65533\t65533\t65533\n"
    "FDSize:\t64\nGroups:\t \nCapInh:\t0000000000000000\nCapPrm:\t0000000000000000\n"
    "CapEff:\t0000000000000000\nCapBnd:\t000001ffffffffff\nCapAmb:\t0000000000000000\n";

TEST(PrivilegeStatus, ReadsIdsGroupsAndCapabilities) {
    ProcessIds ids, root;
    ASSERT_TRUE(parseProcessIds(kStatusAfterDrop, ids));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(std::make_pair(ids.uid[i], ids.gid[i]), std::make_pair(65534u, 65533u));
    EXPECT_TRUE(ids.groups.empty());
    EXPECT_EQ(ids.capPermitted, 0u);
    ASSERT_TRUE(
        parseProcessIds("Uid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nGroups:\t0 4 27 \n"
                        "CapPrm:\t000001ffffffffff\nCapEff:\t0000000000000400\nCapAmb:\t0000000000000000\n",
                        root));
    EXPECT_EQ(root.groups, (std::vector<gid_t>{0, 4, 27}));
    EXPECT_EQ(root.capPermitted, 0x1ffffffffffull);
    EXPECT_EQ(root.capEffective, 0x400u);

    const std::string ok = "Gid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n";
    for (const std::string& text : std::vector<std::string>{
             "Uid:\t1\t1\t1\n" + ok,       // three uids
             "Uid:\t1\t1\t1\t1\t1\n" + ok, // five
             "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\tstaff\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",
             "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\tzz\nCapEff:\t0\nCapAmb:\t0\n",
             "Uid:\t1\t1\t1\t1\nGid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\n", // no CapAmb
             "Uid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",       // no Gid
             "Uid:\t1\t1\t99999999999\t1\n" + ok,
         }) {
        ProcessIds bad;
        EXPECT_FALSE(parseProcessIds(text, bad)) << text;
    }
}

TEST(PrivilegeStatus, DropIsCheckedOnEveryField) {
    const struct {
        const char* name;
        void (*spoil)(ProcessIds&);
        const char* expected;
    } cases[] = {
        {"clean", [](ProcessIds&) {}, ""},
        {"real uid", [](ProcessIds& ids) { ids.uid[0] = 0; }, "real user id is 0, not 65534"},
        {"saved uid", [](ProcessIds& ids) { ids.uid[2] = 0; }, "saved user id is 0, not 65534"},
        {"fs uid", [](ProcessIds& ids) { ids.uid[3] = 0; }, "file system user id is 0, not 65534"},
        {"effective gid", [](ProcessIds& ids) { ids.gid[1] = 0; }, "effective group id is 0, not 65533"},
        {"groups", [](ProcessIds& ids) { ids.groups.assign(2, 27); }, "2 supplementary group(s) left"},
        {"ambient capability", [](ProcessIds& ids) { ids.capAmbient = 0x400; },
         "capabilities left (permitted 0, effective 0, ambient 1024)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ProcessIds ids;
        ASSERT_TRUE(parseProcessIds(kStatusAfterDrop, ids));
        c.spoil(ids);
        EXPECT_EQ(checkDropped(ids, 65534, 65533), c.expected);
    }
}

TEST(PrivilegeDirectory, HandedOverWithoutFollowingALink) {
    const hmtest::TempDir tmp("hmpriv");
    ASSERT_TRUE(tmp.made());
    const uid_t uid = geteuid() == 0 ? 65534 : geteuid();
    const gid_t gid = geteuid() == 0 ? 65533 : getegid();
    std::string error;
    struct stat st {};
    // Missing: created 0700 and owned by the daemon's user.
    ASSERT_TRUE(handOverDirectory(tmp / "state", uid, gid, error)) << error;
    ASSERT_EQ(stat((tmp / "state").c_str(), &st), 0);
    EXPECT_EQ(std::make_tuple(st.st_uid, st.st_gid, st.st_mode & 07777), std::make_tuple(uid, gid, 0700u));
    // Writable by others: that write access is taken away.
    ASSERT_EQ(mkdir((tmp / "open").c_str(), 0700), 0);
    ASSERT_EQ(chmod((tmp / "open").c_str(), 0777), 0);
    ASSERT_TRUE(handOverDirectory(tmp / "open", uid, gid, error)) << error;
    ASSERT_EQ(stat((tmp / "open").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    // A link is refused and its target left alone.
    ASSERT_EQ(mkdir((tmp / "target").c_str(), 0700), 0);
    ASSERT_EQ(symlink((tmp / "target").c_str(), (tmp / "link").c_str()), 0);
    EXPECT_FALSE(handOverDirectory(tmp / "link", uid, gid, error));
    EXPECT_EQ(error.rfind(tmp / "link: open: ", 0), 0u) << error;
    ASSERT_EQ(stat((tmp / "target").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, geteuid());
}

// The real drop, in a child process so that the test keeps its own identity.
TEST(PrivilegeDrop, RootBecomesTheUserForGood) {
    std::string error;
    if (geteuid() != 0) {
        EXPECT_FALSE(applyPrivilegeDrop(65534, 65534, error));
        EXPECT_EQ(error, "setgroups: Operation not permitted");
        GTEST_SKIP() << "the drop itself needs root; only its refusal was checked";
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        uid_t r, e, s;
        gid_t rg, eg, sg;
        _exit(!applyPrivilegeDrop(65534, 65533, error)                                     ? 2
              : getresuid(&r, &e, &s) != 0 || r != 65534 || e != 65534 || s != 65534       ? 3
              : getresgid(&rg, &eg, &sg) != 0 || rg != 65533 || eg != 65533 || sg != 65533 ? 4
              : getgroups(0, nullptr) != 0                                                 ? 5
              : setuid(0) == 0 || setresuid(0, 0, 0) == 0                                  ? 6
                                                                                           : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// ------------------------------------------------------------------ the daemon

using namespace hmtest;

// The Uid, Gid and Groups lines of a process's status, without trailing blanks.
std::vector<std::string> statusLines(pid_t pid) {
    std::vector<std::string> wanted;
    for (std::string line : linesOf(readFile("/proc/" + std::to_string(pid) + "/status")))
        if (line.rfind("Uid:", 0) == 0 || line.rfind("Gid:", 0) == 0 || line.rfind("Groups:", 0) == 0)
            wanted.push_back(line.erase(line.find_last_not_of(" \t") + 1));
    return wanted;
}

// How many TCP sockets the process listens on (net-snmp's SMUX port 199 would be one).
int tcpListeners(pid_t pid) {
    return std::stoi(runCommand("ss -Hltnp | grep -c 'pid=" + std::to_string(pid) + ",'").output);
}

class PrivilegeE2e : public DaemonTest {
protected:
    PrivilegeE2e() : DaemonTest("hmprivd", 0755) {}
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "starting hmagentd as root and dropping to nobody needs root";
        const passwd* nobody = getpwnam("nobody");
        if (nobody == nullptr)
            GTEST_SKIP() << "this system has no user nobody";
        m_uid = nobody->pw_uid;
        m_gid = nobody->pw_gid;
        DaemonTest::SetUp();
        rmdir((m_dir + "/state").c_str()); // the dropped daemon makes it and saves its state there
        setenv("MIBS", "", 1);
        write("agent.conf", "platformdescription = Privilege test\ntrapsenabled = 1\ndebugenabled = 1\n");
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/agent.log");
    }
    // The daemon with `config`; true once it serves (when `serving`). The kernel makes
    // a process that changed its user undumpable, and LeakSanitizer's tracer then
    // cannot always attach at its exit: leaks are checked by the tests that do not drop.
    bool start(const std::string& config, bool serving = true) {
        write("hmagentd.conf", config);
        const char* asan = std::getenv("ASAN_OPTIONS");
        m_daemon = std::make_unique<Process>(
            std::vector<std::string>{"env",
                                     "ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":detect_leaks=0",
                                     HM_AGENTD, "-c", m_dir + "/hmagentd.conf"},
            m_dir + "/daemon.out");
        return !serving || m_daemon->waitFor("serving 14 regions", 30s);
    }
    std::string masterConfig(const std::string& extra,
                             const std::string& access = "rocommunity public 127.0.0.1\n") {
        return "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
               "/registry.reg\nagentaddress udp:" + endpoint() + "\n" + access + extra;
    }
    // hmSystemHealthStatus.0 asked with SNMPv3 (authentication and privacy) or SNMPv2c.
    std::string health(bool v3) const {
        return runCommand(std::string(v3 ? kV3Get : "snmpget -On -r 0 -t 1 -v2c -c public ") + endpoint() +
                          " " + kHealth)
            .output;
    }
    void expectV3Only() const {
        EXPECT_EQ(health(true), std::string(kHealth) + " = INTEGER: 4\n");
        EXPECT_EQ(health(false), "Timeout: No Response from " + endpoint() + ".\n");
    }
    static constexpr const char* kV3Get = "snmpget -On -r 1 -t 2 -v3 -l authPriv -u monitor -a SHA -A "
                                          "monitor-auth-pass -x AES -X monitor-priv-pass ";
    static constexpr const char* kHealth = ".1.3.6.1.4.1.64999.2.10.3.5.100.1.0";
    static constexpr const char* kV3User =
        "createUser monitor SHA \"monitor-auth-pass\" AES \"monitor-priv-pass\"\n"
        "rouser monitor priv .1.3.6.1.4.1.64999\n";
    uid_t m_uid = 0;
    gid_t m_gid = 0;
    std::unique_ptr<Process> m_daemon;
};

TEST_F(PrivilegeE2e, ConfigurationsThatCannotBeHonouredStopTheDaemon) {
    for (const auto& [extra, error] : std::vector<std::pair<std::string, std::string>>{
             {"agentgroup nogroup\n", "hmagentd: error: agentgroup without agentuser would leave the daemon "
                                      "running as root; set agentuser too"},
             {"agentuser no-such-user-hm\n", "User not found in passwd database"}}) {
        SCOPED_TRACE(extra);
        if (extra == "agentgroup nogroup\n" && getgrnam("nogroup") == nullptr)
            continue;
        start(masterConfig(extra), false);
        EXPECT_EQ(m_daemon->wait(30s), 1) << m_daemon->output();
        EXPECT_NE(m_daemon->output().find(error), std::string::npos) << m_daemon->output();
        EXPECT_EQ(m_daemon->output().find("serving"), std::string::npos) << m_daemon->output();
    }
}

// The SNMPv3-only master started as root with agentuser nobody: every id is
// nobody's, with no supplementary group; it listens on TCP too (agentaddress adds to
// the list) and that is its one TCP socket, not SMUX's; v3 with privacy is
// answered, v2c is not; a hardware event reaches a v3 trap receiver as an inform
// sent after the drop; net-snmp's state is saved by the dropped daemon.
TEST_F(PrivilegeE2e, V3OnlyMasterServesAndSendsInformsAsNobody) {
    const std::string sink = "udp:127.0.0.1:" + std::to_string(freePort()),
                      trapper = "createUser trapper SHA \"trapper-auth-pass\" AES \"trapper-priv-pass\"\n";
    write("snmptrapd.conf", trapper + "authUser log trapper priv\n");
    Process receiver({daemonPath("snmptrapd"), "-f", "-C", "-c", m_dir + "/snmptrapd.conf", "-Lf",
                      m_dir + "/traps.log", "-On", sink},
                     m_dir + "/snmptrapd.out");
    ASSERT_TRUE(waitForText(m_dir + "/traps.log", "NET-SNMP version", 10s)) << receiver.output();
    write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
    setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    ASSERT_TRUE(
        start(masterConfig("agentuser nobody\nagentaddress tcp:" + endpoint() + "\n" + trapper +
                               "trapsess -v3 -Ci -u trapper -l authPriv -a SHA -A \"trapper-auth-pass\" -x "
                               "AES -X \"trapper-priv-pass\" " +
                               sink + "\n",
                           kV3User)))
        << m_daemon->output();
    const std::string u = std::to_string(m_uid), g = std::to_string(m_gid);
    EXPECT_EQ(statusLines(m_daemon->pid()),
              (std::vector<std::string>{"Uid:\t" + u + "\t" + u + "\t" + u + "\t" + u,
                                        "Gid:\t" + g + "\t" + g + "\t" + g + "\t" + g, "Groups:"}));
    EXPECT_EQ(tcpListeners(m_daemon->pid()), 1);
    EXPECT_NE(m_daemon->output().find("hmagentd: running as user nobody (uid " + u + "), group "),
              std::string::npos)
        << m_daemon->output();
    // hmSystemPlatformDescription.0, read from the agent's configuration at start-up.
    EXPECT_EQ(runCommand(kV3Get + endpoint() + " .1.3.6.1.4.1.64999.2.10.3.5.100.2.0").output,
              ".1.3.6.1.4.1.64999.2.10.3.5.100.2.0 = STRING: \"Privilege test\"\n");
    expectV3Only();
    // Entries already in the SEL at the poller's first read are not events.
    ASSERT_TRUE(waitForText(m_dir + "/agent.log", "Using /BMC/SEL/TRANSLATED", 10s));
    ASSERT_EQ(runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9").status, 0);
    EXPECT_TRUE(waitForText(m_dir + "/traps.log", "STRING: \"Status Changed to Upper Critical\"", 15s))
        << readFile(m_dir + "/traps.log") << m_daemon->output();
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    struct stat st {};
    ASSERT_EQ(stat((m_dir + "/state/hmagentd.conf").c_str(), &st), 0) << m_daemon->output();
    EXPECT_EQ(st.st_uid, m_uid);
}

// The subagent behind a v3-only snmpd: after the drop it can still reconnect when
// snmpd restarts, because agentXPerms gives the socket to its group.
TEST_F(PrivilegeE2e, SubagentReconnectsAsNobodyThroughAgentXPerms) {
    const group* primary = getgrgid(m_gid);
    ASSERT_NE(primary, nullptr);
    const std::string socket = m_dir + "/agentx/master";
    write("snmpd.conf", "master agentx\nagentXSocket unix:" + socket + "\nagentXPerms 0660 0755 root " +
                            primary->gr_name + "\nagentaddress udp:" + endpoint() + "\n" + kV3User);
    const std::vector<std::string> snmpd = {daemonPath("snmpd"),   "-f", "-C", "-c",
                                            m_dir + "/snmpd.conf", "-Lo"};
    auto master = std::make_unique<Process>(snmpd, m_dir + "/snmpd.out");
    ASSERT_TRUE(master->waitFor("NET-SNMP version", 10s)) << master->output();
    ASSERT_TRUE(start("agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                      "/registry.reg\nagentRole subagent\nagentXSocket unix:" + socket +
                      "\nagentXPingInterval 1\nagentuser nobody\n"))
        << m_daemon->output();
    EXPECT_NE(m_daemon->output().find("hmagentd: running as user nobody"), std::string::npos)
        << m_daemon->output();
    expectV3Only();

    master->stop(SIGKILL);
    master = std::make_unique<Process>(snmpd, m_dir + "/snmpd2.out");
    const auto deadline = Clock::now() + 20s;
    while (health(true) != std::string(kHealth) + " = INTEGER: 4\n" && Clock::now() < deadline)
        std::this_thread::sleep_for(200ms);
    EXPECT_EQ(health(true), std::string(kHealth) + " = INTEGER: 4\n") << m_daemon->output();
    const std::string u = std::to_string(m_uid);
    EXPECT_EQ(statusLines(m_daemon->pid())[0], "Uid:\t" + u + "\t" + u + "\t" + u + "\t" + u);
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
}

} // namespace
} // namespace hmhost
