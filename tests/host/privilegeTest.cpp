// hmagentd's privilege drop: the plan for each start-up situation, the reading
// of /proc/PID/status, the verification of a drop, the persistent directory, and
// the daemon itself started as root with agentuser nobody (skipped when the test
// does not run as root).
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "host/privilege.h"
#include "support/e2e.h"

namespace hmhost {
namespace {

using Action = PrivilegePlan::Action;
using namespace hmtest;

TEST(PrivilegePlan, EachStartUpSituation) {
    const auto none = std::nullopt;
    const Account nobody{"nobody", 65534}, alice{"alice", 1000};
    const struct {
        const char* name;
        PrivilegeRequest request;
        Action action;
        uid_t uid;
        gid_t gid;
        const char* message; // a part of it
    } cases[] = {
        {"root, nothing configured", {0, 0, none, none, none}, Action::Keep, 0, 0, ""},
        {"root, user, its primary group", {0, 0, 65534, none, nobody}, Action::Drop, 65534, 65534, ""},
        {"root, user, another group", {0, 0, 1000, 50, Account{"alice", 100}}, Action::Drop, 1000, 50, ""},
        {"root, unknown user, a group", {0, 0, 4321, 4321, none}, Action::Drop, 4321, 4321, ""},
        {"root, unknown user, no group", {0, 0, 4321, none, none}, Action::Refuse, 0, 0, "4321 has no entry"},
        {"root, group alone", {0, 0, none, 65534, none}, Action::Refuse, 0, 0, "set agentuser too"},
        {"already the user", {1000, 1000, 1000, none, alice}, Action::Keep, 0, 0, ""},
        {"already the user and group", {1000, 27, 1000, 27, alice}, Action::Keep, 0, 0, ""},
        {"not root, other user", {1000, 1000, 65534, none, nobody}, Action::NotRoot, 1000, 1000, "as root"},
        {"not root, another group", {1000, 7, 1000, 27, alice}, Action::NotRoot, 1000, 7, "uid 1000, gid 7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const PrivilegePlan plan = planPrivilegeDrop(c.request);
        EXPECT_EQ(plan.action, c.action);
        EXPECT_EQ(plan.message.empty(), *c.message == 0) << plan.message;
        EXPECT_NE(plan.message.find(c.message), std::string::npos) << plan.message;
        if (c.action == Action::Drop || c.action == Action::NotRoot) {
            EXPECT_EQ(std::make_pair(plan.uid, plan.gid), std::make_pair(c.uid, c.gid));
        }
    }
}

// /proc/PID/status read, malformed texts refused, and a drop checked on every field.
TEST(PrivilegeStatus, ReadAndDropCheckedOnEveryField) {
    const std::string dropped =
        "Name:\thmagentd\nUid:\t65534\t65534\t65534\t65534\nGid:\t65533\t65533\t65533\t"
        "65533\nGroups:\t \nCapPrm:\t0000000000000000\nCapEff:\t0000000000000000\n"
        "CapBnd:\t000001ffffffffff\nCapAmb:\t0000000000000000\n";
    ProcessIds root;
    ASSERT_TRUE(
        parseProcessIds("Uid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nGroups:\t0 4 27 \nCapPrm:\t000001ffffffffff\n"
                        "CapEff:\t0000000000000400\nCapAmb:\t0000000000000000\n",
                        root));
    EXPECT_EQ(root.groups, (std::vector<gid_t>{0, 4, 27}));
    EXPECT_EQ(std::make_pair(root.capPermitted, root.capEffective),
              std::make_pair(uint64_t{0x1ffffffffff}, uint64_t{0x400}));
    const std::string ok = "Gid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",
                      uid = "Uid:\t1\t1\t1\t1\n";
    for (const std::string& text :
         {"Uid:\t1\t1\t1\n" + ok, "Uid:\t1\t1\t1\t1\t1\n" + ok,
          uid + "Gid:\t1\t1\t1\t1\nGroups:\tstaff\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",
          uid + "Gid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\tzz\nCapEff:\t0\nCapAmb:\t0\n",
          uid + "Gid:\t1\t1\t1\t1\nGroups:\t\nCapPrm:\t0\nCapEff:\t0\n", // no CapAmb
          uid + "Groups:\t\nCapPrm:\t0\nCapEff:\t0\nCapAmb:\t0\n",       // no Gid
          "Uid:\t1\t1\t99999999999\t1\n" + ok}) {
        ProcessIds bad;
        EXPECT_FALSE(parseProcessIds(text, bad)) << text;
    }
    const struct {
        void (*spoil)(ProcessIds&);
        const char* expected; // a part of the complaint
    } cases[] = {
        {[](ProcessIds&) {}, ""},
        {[](ProcessIds& ids) { ids.uid[0] = 0; }, "real user id is 0, not 65534"},
        {[](ProcessIds& ids) { ids.uid[1] = 0; }, "effective user id"},
        {[](ProcessIds& ids) { ids.uid[2] = 0; }, "saved user id"},
        {[](ProcessIds& ids) { ids.uid[3] = 0; }, "file system user id"},
        {[](ProcessIds& ids) { ids.gid[1] = 0; }, "effective group id is 0, not 65533"},
        {[](ProcessIds& ids) { ids.groups.assign(2, 27); }, "2 supplementary group(s)"},
        {[](ProcessIds& ids) { ids.capAmbient = 0x400; }, "ambient 1024"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        ProcessIds ids;
        ASSERT_TRUE(parseProcessIds(dropped, ids));
        c.spoil(ids);
        const std::string complaint = checkDropped(ids, 65534, 65533);
        EXPECT_EQ(complaint.empty(), *c.expected == 0);
        EXPECT_NE(complaint.find(c.expected), std::string::npos) << complaint;
    }
}

TEST(PrivilegeDirectory, HandedOverWithoutFollowingALink) {
    const TempDir tmp("hmpriv");
    const uid_t uid = geteuid() == 0 ? 65534 : geteuid();
    const gid_t gid = geteuid() == 0 ? 65533 : getegid();
    std::string error;
    struct stat st {};
    // Missing: created 0700 and owned by the daemon's user.
    ASSERT_TRUE(handOverDirectory(tmp / "state", uid, gid, error)) << error;
    ASSERT_EQ(stat((tmp / "state").c_str(), &st), 0);
    EXPECT_EQ(std::make_tuple(st.st_uid, st.st_gid, st.st_mode & 07777), std::make_tuple(uid, gid, 0700u));
    // Writable by others: that write access is taken away.
    ASSERT_EQ(mkdir((tmp / "open").c_str(), 0777) + chmod((tmp / "open").c_str(), 0777), 0);
    ASSERT_TRUE(handOverDirectory(tmp / "open", uid, gid, error)) << error;
    ASSERT_EQ(stat((tmp / "open").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    // A link is refused and its target left alone.
    ASSERT_EQ(
        mkdir((tmp / "target").c_str(), 0700) + symlink((tmp / "target").c_str(), (tmp / "link").c_str()), 0);
    EXPECT_FALSE(handOverDirectory(tmp / "link", uid, gid, error));
    EXPECT_EQ(error.rfind(tmp / "link: open: ", 0), 0u) << error;
    ASSERT_EQ(stat((tmp / "target").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, geteuid());
}

// The daemon started as root. A group without a user cannot be honoured: the
// daemon stops with status 1. An SNMPv3-only master with agentuser nobody: every id is nobody's, with
// no supplementary group; it listens on TCP too (agentaddress adds to the list) and
// that is its one TCP socket, not SMUX's; v3 with privacy is answered, v2c is not; a
// hardware event reaches a v3 trap receiver as an inform sent after the drop;
// net-snmp's state is saved by the dropped daemon (the drop itself: every id,
// including the saved ones, checked on the running daemon). The kernel makes a process that
// changed its user undumpable, and LeakSanitizer's tracer then cannot always
// attach at its exit: leaks are checked by the tests that do not drop.
class PrivilegeE2e : public DaemonTest {
protected:
    PrivilegeE2e() : DaemonTest("hmprivd", 0755) {}
    std::unique_ptr<Process> start(const std::string& config) {
        write("hmagentd.conf",
              "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir + "/registry.reg\n" + config);
        const char* asan = std::getenv("ASAN_OPTIONS");
        return std::make_unique<Process>(
            std::vector<std::string>{"env",
                                     "ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":detect_leaks=0",
                                     HM_AGENTD, "-c", m_dir + "/hmagentd.conf"},
            m_dir + "/daemon.out");
    }
};

TEST_F(PrivilegeE2e, RefusalsThenAV3OnlyMasterAsNobody) {
    const passwd* nobody = getpwnam("nobody");
    if (geteuid() != 0 || nobody == nullptr)
        GTEST_SKIP() << "starting hmagentd as root and dropping to nobody needs root and a user nobody";
    rmdir((m_dir + "/state").c_str()); // the dropped daemon makes it and saves its state there
    setenv("MIBS", "", 1);
    write("agent.conf", "trapsenabled = 1\ndebugenabled = 1\n");
    writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/agent.log");
    const std::string v3User = "createUser monitor SHA \"monitor-auth-pass\" AES \"monitor-priv-pass\"\n"
                               "rouser monitor priv .1.3.6.1.4.1.64999\n",
                      master = "agentaddress udp:" + endpoint() + "\n";
    if (getgrnam("nogroup") != nullptr) {
        auto refused = start(master + "agentgroup nogroup\n");
        EXPECT_EQ(refused->wait(30s), 1) << refused->output();
        EXPECT_NE(refused->output().find("hmagentd: error: agentgroup without agentuser"), std::string::npos)
            << refused->output();
    }

    const std::string sink = "udp:127.0.0.1:" + std::to_string(freePort()),
                      trapper = "createUser trapper SHA \"trapper-auth-pass\" AES \"trapper-priv-pass\"\n";
    write("snmptrapd.conf", trapper + "authUser log trapper priv\n");
    Process receiver({daemonPath("snmptrapd"), "-f", "-C", "-c", m_dir + "/snmptrapd.conf", "-Lf",
                      m_dir + "/traps.log", "-On", sink},
                     m_dir + "/snmptrapd.out");
    ASSERT_TRUE(waitForText(m_dir + "/traps.log", "NET-SNMP version", 10s)) << receiver.output();
    write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
    setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    auto daemon =
        start(master + "agentuser nobody\nagentaddress tcp:" + endpoint() + "\n" + v3User + trapper +
              "trapsess -v3 -Ci -u trapper -l authPriv -a SHA -A \"trapper-auth-pass\" -x AES -X "
              "\"trapper-priv-pass\" " +
              sink + "\n");
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 30s)) << daemon->output();
    ProcessIds ids; // every id nobody's, no supplementary group, no capability
    ASSERT_TRUE(parseProcessIds(readFile("/proc/" + std::to_string(daemon->pid()) + "/status"), ids));
    EXPECT_EQ(checkDropped(ids, nobody->pw_uid, nobody->pw_gid), "");
    EXPECT_EQ(runCommand("ss -Hltnp | grep -c 'pid=" + std::to_string(daemon->pid()) + ",'").output, "1\n");
    const std::string v3Get =
        "snmpget -On -r 1 -t 2 -v3 -l authPriv -u monitor -a SHA -A monitor-auth-pass -x "
        "AES -X monitor-priv-pass ";
    // hmSystemHealthStatus.0: SNMPv3 with privacy is answered, SNMPv2c is not.
    const std::string health = " .1.3.6.1.4.1.64999.2.10.3.5.100.1.0";
    EXPECT_EQ(runCommand(v3Get + endpoint() + health).output, health.substr(1) + " = INTEGER: 4\n");
    EXPECT_EQ(runCommand("snmpget -On -r 0 -t 1 -v2c -c public " + endpoint() + health).output,
              "Timeout: No Response from " + endpoint() + ".\n");
    // Entries already in the SEL at the poller's first read are not events.
    ASSERT_TRUE(waitForText(m_dir + "/agent.log", "Using /BMC/SEL/TRANSLATED", 10s));
    ASSERT_EQ(runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9").status, 0);
    EXPECT_TRUE(waitForText(m_dir + "/traps.log", "STRING: \"Status Changed to Upper Critical\"", 15s))
        << readFile(m_dir + "/traps.log") << daemon->output();
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
    struct stat st {};
    ASSERT_EQ(stat((m_dir + "/state/hmagentd.conf").c_str(), &st), 0) << daemon->output();
    EXPECT_EQ(st.st_uid, nobody->pw_uid);
}

} // namespace
} // namespace hmhost
