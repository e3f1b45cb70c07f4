// hmagentd end to end, with net-snmp's own tools: the daemon started on a free
// loopback port, walked, queried and refused; traps received by snmptrapd; the
// daemon as AgentX subagent of a real snmpd that is restarted; bad configurations.
// Every server started here listens on loopback only and is stopped by a guard
// that kills its process group, also when a check fails.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"
#include "support/udpRelay.h"

#include <windows.h>
#include <snmp.h>

namespace {

using namespace hmtest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const std::string kPrivate = "1.3.6.1.4.1.64999";
const std::string kSystem = "1.3.6.1.4.1.64999.2.10.3.5.100";

std::string lastLine(const std::string& text) {
    const std::vector<std::string> lines = linesOf(text);
    return lines.empty() ? "" : lines.back();
}

// The lines of a snmptrapd log written with the formats of trapReceiverConfig().
std::vector<std::string> trapsIn(const std::string& path) {
    std::vector<std::string> traps;
    for (const std::string& line : linesOf(readFile(path)))
        if (line.rfind("V1 ", 0) == 0 || line.rfind("V2 ", 0) == 0)
            traps.push_back(line);
    return traps;
}

// Runs a net-snmp command-line tool; MIB files are not read, output is numeric.
Result run(const std::string& command) {
    return runCommand("MIBS= " + command);
}

// The agent library driven in this process through its entry points: the view
// walked with GETNEXT, each variable rendered as snmpwalk -On prints it.
class LibraryWalk {
    static std::vector<UINT> arcsOf(const AsnObjectIdentifier& oid) {
        UINT* ids = nullptr;
        std::memcpy(&ids, reinterpret_cast<const char*>(&oid) + offsetof(AsnObjectIdentifier, ids),
                    sizeof ids);
        return ids == nullptr ? std::vector<UINT>{} : std::vector<UINT>(ids, ids + oid.idLength);
    }
    static std::string render(const std::vector<UINT>& name, const AsnAny& value) {
        std::string line;
        for (UINT arc : name)
            line += "." + std::to_string(arc);
        if (value.asnType == ASN_INTEGER)
            return line + " = INTEGER: " + std::to_string(value.asnValue.number);
        AsnOctetString text;
        std::memcpy(&text, &value.asnValue.string, sizeof text);
        return line + " = STRING: \"" + std::string(reinterpret_cast<char*>(text.stream), text.length) + "\"";
    }

public:
    // Walks in a child process, which ends right after SnmpExtensionClose: the
    // agent's event poller thread is never stopped and must not outlive the agent
    // in the test process.
    static std::vector<std::string> walk(const std::string& registry) {
        int fds[2];
        if (pipe(fds) != 0)
            return {};
        const pid_t child = fork();
        if (child == 0) {
            close(fds[0]);
            std::string text;
            for (const std::string& line : walkHere(registry))
                text += line + "\n";
            size_t done = 0;
            while (done < text.size()) {
                const ssize_t n = ::write(fds[1], text.data() + done, text.size() - done);
                if (n <= 0)
                    break;
                done += static_cast<size_t>(n);
            }
            _exit(done == text.size() ? 0 : 1);
        }
        close(fds[1]);
        std::string text;
        char buffer[4096];
        ssize_t got = 0;
        while ((got = read(fds[0], buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<size_t>(got));
        close(fds[0]);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "library walk failed";
        return linesOf(text);
    }

private:
    static std::vector<std::string> walkHere(const std::string& registry) {
        void* library = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            return {};
        auto init = reinterpret_cast<PFNSNMPEXTENSIONINIT>(dlsym(library, "SnmpExtensionInit"));
        auto initEx = reinterpret_cast<PFNSNMPEXTENSIONINITEX>(dlsym(library, "SnmpExtensionInitEx"));
        auto query = reinterpret_cast<PFNSNMPEXTENSIONQUERYEX>(dlsym(library, "SnmpExtensionQueryEx"));
        auto close = reinterpret_cast<PFNSNMPEXTENSIONCLOSE>(dlsym(library, "SnmpExtensionClose"));
        setenv("HMSUBAGENT_REGISTRY", registry.c_str(), 1);
        HANDLE event = nullptr;
        AsnObjectIdentifier region{0, nullptr};
        std::vector<std::string> lines;
        if (!init(0, &event, &region))
            return lines;
        // The regions in the order they are handed out, each walked from its root
        // as the SNMP service walks them: an answer outside the region (the next
        // region's first variable, or the end of the view) ends that region.
        std::vector<std::vector<UINT>> regions{arcsOf(region)};
        AsnObjectIdentifier next{0, nullptr};
        while (initEx(&next))
            regions.push_back(arcsOf(next));
        SnmpVarBindList list{nullptr, 1};
        auto* binding = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind)));
        std::memset(binding, 0, sizeof *binding);
        std::memcpy(reinterpret_cast<char*>(&list) + offsetof(SnmpVarBindList, list), &binding,
                    sizeof binding);
        for (const std::vector<UINT>& root : regions) {
            SnmpUtilOidFree(&binding->name);
            AsnObjectIdentifier start{static_cast<UINT>(root.size()), const_cast<UINT*>(root.data())};
            SnmpUtilOidCpy(&binding->name, &start);
            std::vector<UINT> previous = root;
            for (int step = 0; step < 20000; ++step) {
                AsnInteger32 status = 0;
                AsnInteger32 index = 0;
                query(SNMP_EXTENSION_GET_NEXT, 0, &list, nullptr, &status, &index);
                const std::vector<UINT> name = arcsOf(binding->name);
                if (status != 0 || name.size() < root.size() ||
                    !std::equal(root.begin(), root.end(), name.begin()) || !(previous < name))
                    break;
                previous = name;
                lines.push_back(render(name, binding->value));
            }
        }
        SnmpUtilVarBindListFree(&list);
        close();
        return lines;
    }
};

class HostE2e : public DaemonTest {
protected:
    HostE2e() : DaemonTest("hmhost") {}
    void SetUp() override {
        DaemonTest::SetUp();
        setenv("MIBS", "", 1);
        write("agent.conf", "platformdescription = Host test platform\n"
                            "platformid = 4242\n"
                            "trapsenabled = 1\n"
                            "setsenabled = 1\n"
                            "debugenabled = 1\n"
                            "manufacturer = Test Works\n"
                            "productname = HT-1\n"
                            "productversion = 9.8\n"
                            "productbuildnumber = 77\n"
                            "productdescription = Host end-to-end test\n");
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/daemon-agent.log");
        writeRegistryFile(m_dir + "/walk.reg", m_dir + "/agent.conf", m_dir + "/walk-agent.log");
    }
    void TearDown() override {
        unsetenv("HMFAKE_TRAPS");
        DaemonTest::TearDown();
    }

    // The daemon's configuration for the master role with the real library.
    std::string masterConfig(const std::string& extra = "") const {
        return "agentLibrary " HM_SUBAGENT_LIBRARY "\n"
               "agentRegistry " +
               m_dir +
               "/registry.reg\n"
               "agentRole master\n"
               "agentaddress udp:" +
               endpoint() +
               "\n"
               "rocommunity public 127.0.0.1\n"
               "rwcommunity private 127.0.0.1\n"
               "createUser tester SHA \"tester-auth-pass\" AES \"tester-priv-pass\"\n"
               "rouser tester priv\n" +
               extra;
    }
    std::unique_ptr<Process> startDaemon(const std::string& config, const std::string& name = "hmagentd") {
        write(name + ".conf", config);
        return std::make_unique<Process>(
            std::vector<std::string>{HM_AGENTD, "-c", m_dir + "/" + name + ".conf"},
            m_dir + "/" + name + ".out");
    }
    std::vector<std::string> libraryWalk() const { return LibraryWalk::walk(m_dir + "/walk.reg"); }
};

TEST_F(HostE2e, WalkAndBulkWalkEqualTheLibrarysOwnWalk) {
    auto daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    const std::vector<std::string> expected = libraryWalk();
    ASSERT_GE(expected.size(), 10u);

    const Result walk = run("snmpwalk -v2c -c public -On -t 5 -r 1 " + endpoint() + " " + kPrivate);
    EXPECT_EQ(walk.status, 0) << walk.output;
    EXPECT_EQ(linesOf(walk.output), expected);

    const Result bulk = run("snmpbulkwalk -v2c -c public -On -Cr7 -t 5 -r 1 " + endpoint() + " " + kPrivate);
    EXPECT_EQ(bulk.status, 0) << bulk.output;
    EXPECT_EQ(linesOf(bulk.output), expected);
}

TEST_F(HostE2e, AnswersGetsAndRefusesSets) {
    auto daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    const std::string get = "snmpget -On -t 2 -r 1 -c public ";

    const Result known = run(get + "-v2c " + endpoint() + " " + kSystem + ".2.0 " + kSystem + ".3.0 " +
                             kSystem + ".5.0 " + kSystem + ".6.0 " + kSystem + ".10.0");
    EXPECT_EQ(linesOf(known.output),
              (std::vector<std::string>{
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.2.0 = STRING: \"Host test platform\"",
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.3.0 = INTEGER: 4242",
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.5.0 = INTEGER: 0",
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.6.0 = STRING: \"Test Works\"",
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.10.0 = STRING: \"Host end-to-end test\"",
              }));

    const Result missing =
        run(get + "-v2c " + endpoint() + " " + kSystem + ".3.1 " + kSystem + ".99.0 " + kPrivate + ".5.0");
    EXPECT_EQ(linesOf(missing.output),
              (std::vector<std::string>{
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.3.1 = No Such Instance currently exists at this OID",
                  ".1.3.6.1.4.1.64999.2.10.3.5.100.99.0 = No Such Object available on this agent at this OID",
                  ".1.3.6.1.4.1.64999.5.0 = No Such Object available on this agent at this OID",
              }));

    const Result v1 = run(get + "-v1 " + endpoint() + " " + kSystem + ".7.0");
    EXPECT_EQ(lastLine(v1.output), ".1.3.6.1.4.1.64999.2.10.3.5.100.7.0 = STRING: \"HT-1\"");
    const Result v1Missing = run(get + "-v1 " + endpoint() + " " + kSystem + ".3.1");
    EXPECT_NE(v1Missing.output.find("Reason: (noSuchName)"), std::string::npos) << v1Missing.output;

    // Thresholds and every other variable are read-only: the read-only community
    // is stopped by access control, the read-write one by the agent.
    const std::string set = "snmpset -On -t 2 -r 1 ";
    const std::string threshold = " 1.3.6.1.4.1.64999.2.10.3.5.600.40.1.11.1 i 50";
    const std::string scalar = " " + kSystem + ".3.0 i 5";
    EXPECT_NE(run(set + "-v2c -c public " + endpoint() + scalar).output.find("Reason: noAccess"),
              std::string::npos);
    const Result notWritable = run(set + "-v2c -c private " + endpoint() + scalar);
    EXPECT_NE(notWritable.output.find("Reason: notWritable"), std::string::npos) << notWritable.output;
    // A temperature probe's upper critical threshold (column 11, row 1): writable in
    // the MIB, refused while sets are disabled.
    const Result thresholdSet = run(set + "-v2c -c private " + endpoint() + threshold);
    EXPECT_NE(thresholdSet.status, 0);
    EXPECT_NE(thresholdSet.output.find("Reason: notWritable"), std::string::npos) << thresholdSet.output;
    const Result v1Set = run(set + "-v1 -c private " + endpoint() + scalar);
    EXPECT_NE(v1Set.output.find("Reason: (noSuchName)"), std::string::npos) << v1Set.output;
    EXPECT_EQ(lastLine(run(get + "-v2c " + endpoint() + " " + kSystem + ".3.0").output),
              ".1.3.6.1.4.1.64999.2.10.3.5.100.3.0 = INTEGER: 4242");
}

// The SNMPv3 engine keeps its ID and counts its boots across a restart, so a message
// captured before the restart is refused after it (outside its time window), while a
// fresh one is answered.
TEST_F(HostE2e, SnmpV3EngineStateOutlivesARestart) {
    auto daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    UdpDelayProxy relay(static_cast<unsigned>(m_port));
    // snmpEngineID (a hexadecimal string over several lines), snmpEngineBoots and
    // usmStatsNotInTimeWindows, values only.
    struct Engine {
        std::string id;
        long boots = -1, notInTimeWindow = -1;
    };
    auto engine = [this](const std::string& at) {
        std::vector<std::string> lines = linesOf(
            run("snmpget -On -Oqv -t 2 -r 1 -v3 -l authPriv -u tester -a SHA -A tester-auth-pass -x AES "
                "-X tester-priv-pass " +
                at + " 1.3.6.1.6.3.10.2.1.1.0 1.3.6.1.6.3.10.2.1.2.0 1.3.6.1.6.3.15.1.1.2.0")
                .output);
        Engine e;
        if (lines.size() < 3)
            return e;
        for (size_t i = 0; i + 2 < lines.size(); ++i)
            e.id += lines[i];
        e.boots = std::stol(lines[lines.size() - 2]);
        e.notInTimeWindow = std::stol(lines.back());
        return e;
    };
    const Engine before = engine("127.0.0.1:" + std::to_string(relay.port()));
    ASSERT_GE(before.boots, 1) << before.id;
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();

    daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    const Engine after = engine(endpoint());
    EXPECT_EQ(after.id, before.id);
    EXPECT_GE(after.id.size(), 10u);
    EXPECT_EQ(after.boots, before.boots + 1);
    // A fresh manager's own time synchronisation may count as out of the window too:
    // measure it, then the replay must add one more.
    const long base = engine(endpoint()).notInTimeWindow;
    const long perQuery = base - after.notInTimeWindow;
    ASSERT_TRUE(relay.resendLastToServer());
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(engine(endpoint()).notInTimeWindow - base, perQuery + 1);
}

TEST_F(HostE2e, SnmpV3UsersAndCommunitiesAreChecked) {
    auto daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    const std::string v3 = "snmpget -On -t 2 -r 1 -v3 -l authPriv -u tester -a SHA -x AES ";
    const Result good =
        run(v3 + "-A tester-auth-pass -X tester-priv-pass " + endpoint() + " " + kSystem + ".6.0");
    EXPECT_EQ(lastLine(good.output), ".1.3.6.1.4.1.64999.2.10.3.5.100.6.0 = STRING: \"Test Works\"");
    const Result badPass =
        run(v3 + "-A wrong-auth-pass -X tester-priv-pass " + endpoint() + " " + kSystem + ".6.0");
    EXPECT_NE(badPass.status, 0);
    EXPECT_NE(badPass.output.find("Authentication failure"), std::string::npos) << badPass.output;

    const Result wrong =
        run("snmpget -On -t 1 -r 0 -v2c -c nosuchcommunity " + endpoint() + " " + kSystem + ".6.0");
    EXPECT_NE(wrong.status, 0);
    EXPECT_EQ(lastLine(wrong.output), "Timeout: No Response from " + endpoint() + ".");
}

TEST_F(HostE2e, StopsCleanlyOnSigtermAndClosesTheAgent) {
    auto daemon = startDaemon(masterConfig());
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
    EXPECT_NE(readFile(m_dir + "/daemon-agent.log").find("SNMP Extension Agent closing\n"),
              std::string::npos);
}

// The agent's traps with the scripted agent (two traps queued at start-up): each
// reaches the SNMPv1 sink as an enterprise-specific trap and the SNMPv2c sink in
// its converted form, bindings included.
TEST_F(HostE2e, TrapsReachTheConfiguredSinks) {
    const int trapPort = freePort();
    const auto receiver = launchTrapReceiver(trapPort);

    setenv("HMFAKE_TRAPS", "2", 1);
    const std::string sink = "127.0.0.1:" + std::to_string(trapPort);
    auto daemon = startDaemon("agentLibrary " HM_FAKE_AGENT_LIBRARY "\n"
                              "agentaddress udp:" +
                              endpoint() +
                              "\n"
                              "rocommunity public 127.0.0.1\n"
                              "trapsink " +
                              sink +
                              " public\n"
                              "trap2sink " +
                              sink + " public\n");
    ASSERT_TRUE(daemon->waitFor("serving 3 regions", 20s)) << daemon->output();

    const auto deadline = Clock::now() + 10s;
    std::vector<std::string> received;
    while ((received = trapsIn(m_dir + "/traps.log")).size() < 4 && Clock::now() < deadline)
        std::this_thread::sleep_for(100ms);
    ASSERT_EQ(received.size(), 4u) << readFile(m_dir + "/traps.log");
    auto has = [&](const std::string& line) {
        return std::find(received.begin(), received.end(), line) != received.end();
    };
    // SNMPv1: enterprise, generic trap 6, specific trap, the agent's time stamp
    // (4200 hundredths = 42 s) and the agent's two bindings.
    const std::string bindings1 =
        "|.1.3.6.1.4.1.64999.7.1.1.0 = INTEGER: 1|.1.3.6.1.4.1.64999.7.1.2.0 = STRING: \"trap 1\"";
    const std::string bindings2 =
        "|.1.3.6.1.4.1.64999.7.1.1.0 = INTEGER: 2|.1.3.6.1.4.1.64999.7.1.2.0 = STRING: \"trap 2\"";
    // (snmptrapd prints the specific trap number with a leading dot.)
    EXPECT_TRUE(has("V1 .1.3.6.1.4.1.64999.7.1000 6 .22 4200" + bindings2)) << readFile(m_dir + "/traps.log");
    EXPECT_TRUE(has("V1 .1.3.6.1.4.1.64999.7.1000 6 .21 4200" + bindings1)) << readFile(m_dir + "/traps.log");
    // SNMPv2c: sysUpTime.0, snmpTrapOID.0 = enterprise.0.specific, the bindings
    // and nothing else.
    EXPECT_TRUE(has("V2 .1.3.6.1.2.1.1.3.0 = Timeticks: (4200) 0:00:42.00|.1.3.6.1.6.3.1.1.4.1.0 = OID: "
                    ".1.3.6.1.4.1.64999.7.1000.0.21" +
                    bindings1))
        << readFile(m_dir + "/traps.log");
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

// The real agent on the demo server: a SEL entry added with the live-change tool
// becomes the temperature trap, and the health change it causes the health trap.
TEST_F(HostE2e, SelEntryAndHealthChangeReachTheTrapSink) {
    write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
    setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    const int trapPort = freePort();
    const auto receiver = launchTrapReceiver(trapPort);
    auto daemon = startDaemon(masterConfig("trapsink 127.0.0.1:" + std::to_string(trapPort) + " public\n"));
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();

    // Entries already in the SEL when the poller first reads it are not events:
    // add the new one after that first read.
    ASSERT_TRUE(waitForText(m_dir + "/daemon-agent.log", "Using /BMC/SEL/TRANSLATED", 10s));
    const Result added = run(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9");
    unsetenv("KELVARN_CONFIG");
    ASSERT_EQ(added.status, 0) << added.output;

    // The poller reads the SEL every 3 s.
    const auto deadline = Clock::now() + 15s;
    std::vector<std::string> received;
    while ((received = trapsIn(m_dir + "/traps.log")).size() < 2 && Clock::now() < deadline)
        std::this_thread::sleep_for(100ms);
    ASSERT_EQ(received.size(), 2u) << readFile(m_dir + "/traps.log");
    // CPU2 Temp is the fourth temperature probe (instance 4, device ID 4); offset 9
    // is "upper critical going high": severity 5 (critical), event OID P.1000.70.18.
    const std::string p = ".1.3.6.1.4.1.64999.2.10.3.5";
    auto split = [](const std::string& line) {
        const size_t bar = line.find('|');
        const size_t stamp = line.rfind(' ', bar);
        return std::make_pair(line.substr(0, stamp + 1), line.substr(bar));
    };
    EXPECT_EQ(split(received[0]),
              std::make_pair("V1 " + p + ".1000.70 6 .18 ",
                             "|" + p + ".1000.10.1 = STRING: \"Status Changed to Upper Critical\"|" + p +
                                 ".600.40.1.5.4 = INTEGER: 5|" + p +
                                 ".600.40.1.3.4 = STRING: \"CPU2 Temp\"|" + p +
                                 ".600.40.1.2.4 = INTEGER: 4"));
    // The demo server starts with a non-critical sensor: the health goes from
    // nonCritical to critical (P.1000.20.5).
    EXPECT_EQ(split(received[1]),
              std::make_pair("V1 " + p + ".1000.20 6 .5 ",
                             "|" + p +
                                 ".1000.10.1 = STRING: \"System health was changed from nonCritical to "
                                 "critical.\"|" +
                                 p + ".100.1.0 = INTEGER: 5"));
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

TEST_F(HostE2e, AgentxSubagentOfSnmpdSurvivesAMasterRestart) {
    const std::string socket = "unix:" + m_dir + "/agentx";
    write("snmpd.conf", "master agentx\n"
                        "agentXSocket " +
                            socket +
                            "\n"
                            "agentaddress udp:" +
                            endpoint() +
                            "\n"
                            "rocommunity public 127.0.0.1\n");
    const std::vector<std::string> snmpd{daemonPath("snmpd"),   "-f",  "-C", "-c",
                                         m_dir + "/snmpd.conf", "-Lo", "-p", m_dir + "/snmpd.pid"};
    auto master = std::make_unique<Process>(snmpd, m_dir + "/snmpd.out");
    ASSERT_TRUE(master->waitFor("NET-SNMP version", 10s)) << master->output();

    auto daemon = startDaemon("agentLibrary " HM_SUBAGENT_LIBRARY "\n"
                              "agentRegistry " +
                              m_dir +
                              "/registry.reg\n"
                              "agentRole subagent\n"
                              "agentXSocket " +
                              socket + "\n");
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    const std::vector<std::string> expected = libraryWalk();
    ASSERT_GE(expected.size(), 10u);

    const std::string walk = "snmpwalk -v2c -c public -On -t 5 -r 1 " + endpoint() + " " + kPrivate;
    auto walkable = [&] { return linesOf(run(walk).output) == expected; };
    const auto connectDeadline = Clock::now() + 15s;
    while (!walkable() && Clock::now() < connectDeadline)
        std::this_thread::sleep_for(200ms);
    EXPECT_EQ(linesOf(run(walk).output), expected);

    // The master goes away and comes back on the same socket.
    master->stop(SIGTERM);
    master = std::make_unique<Process>(snmpd, m_dir + "/snmpd2.out");
    ASSERT_TRUE(master->waitFor("NET-SNMP version", 10s)) << master->output();
    const auto restarted = Clock::now();
    const std::string probe = "snmpget -On -t 1 -r 0 -v2c -c public " + endpoint() + " " + kSystem + ".3.0";
    bool back = false;
    while (!back && Clock::now() - restarted < 15s) {
        back = lastLine(run(probe).output) == ".1.3.6.1.4.1.64999.2.10.3.5.100.3.0 = INTEGER: 4242";
        if (!back)
            std::this_thread::sleep_for(250ms);
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - restarted);
    RecordProperty("reconnect_ms", static_cast<int>(took.count()));
    ASSERT_TRUE(back) << daemon->output();
    EXPECT_EQ(linesOf(run(walk).output), expected);
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

// In the subagent role the agent's traps go to the master over AgentX, and the
// master sends them to its own sinks.
TEST_F(HostE2e, SubagentTrapsGoThroughTheMaster) {
    const int trapPort = freePort();
    const auto receiver = launchTrapReceiver(trapPort);
    const std::string socket = "unix:" + m_dir + "/agentx";
    write("snmpd.conf", "master agentx\nagentXSocket " + socket + "\nagentaddress udp:" + endpoint() +
                            "\ntrap2sink 127.0.0.1:" + std::to_string(trapPort) + " public\n");
    Process master({daemonPath("snmpd"), "-f", "-C", "-c", m_dir + "/snmpd.conf", "-Lo"},
                   m_dir + "/snmpd.out");
    ASSERT_TRUE(master.waitFor("NET-SNMP version", 10s)) << master.output();

    setenv("HMFAKE_TRAPS", "1", 1);
    auto daemon = startDaemon("agentLibrary " HM_FAKE_AGENT_LIBRARY "\nagentRole subagent\nagentXSocket " +
                              socket + "\n");
    ASSERT_TRUE(daemon->waitFor("serving 3 regions", 20s)) << daemon->output();
    const std::string expected =
        "V2 .1.3.6.1.2.1.1.3.0 = Timeticks: (4200) 0:00:42.00|.1.3.6.1.6.3.1.1.4.1.0 = OID: "
        ".1.3.6.1.4.1.64999.7.1000.0.21|.1.3.6.1.4.1.64999.7.1.1.0 = INTEGER: "
        "1|.1.3.6.1.4.1.64999.7.1.2.0 = STRING: \"trap 1\"";
    EXPECT_TRUE(waitForText(m_dir + "/traps.log", expected, 10s)) << readFile(m_dir + "/traps.log");
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

TEST_F(HostE2e, BadConfigurationsStopTheDaemonWithTheirMessage) {
    // Holds the port the transport case asks for.
    const int busy = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(busy, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    getsockname(busy, reinterpret_cast<sockaddr*>(&address), &length);
    const std::string busyPort = std::to_string(ntohs(address.sin_port));

    const std::string base = "agentaddress udp:" + endpoint() + "\nrocommunity public 127.0.0.1\n";
    struct Case {
        std::string name;
        std::string config;
        std::string message;
    } cases[] = {
        {"missing-library", base + "agentLibrary " + m_dir + "/libnothing.so\n",
         "hmagentd: error: agent library " + m_dir + "/libnothing.so does not exist"},
        {"no-entry-points", base + "agentLibrary " HM_COMPAT_LIBRARY "\n",
         "hmagentd: error: agent library " HM_COMPAT_LIBRARY " does not export SnmpExtensionInit"},
        {"init-fails", base + "agentLibrary " HM_FAKE_AGENT_LIBRARY "\n",
         "hmagentd: error: SnmpExtensionInit failed: the agent did not start"},
        {"transport-in-use",
         "agentaddress udp:127.0.0.1:" + busyPort + "\nagentLibrary " HM_SUBAGENT_LIBRARY "\n",
         "hmagentd: error: cannot listen on udp:127.0.0.1:" + busyPort +
             " (address in use or not available)"},
        {"unknown-directive", base + "agentLibrary " HM_SUBAGENT_LIBRARY "\nbogusDirective 12\n",
         "hmagentd: error: " + m_dir + "/unknown-directive.conf: line 4: Unknown token: bogusDirective."},
        {"bad-role", base + "agentRole boss\n",
         "hmagentd: error: " + m_dir + "/bad-role.conf: line 3: agentRole must be master or subagent"},
    };
    for (const Case& c : cases) {
        // The scripted agent refuses to start when told so.
        if (c.name == "init-fails")
            setenv("HMFAKE_FAIL_INIT", "1", 1);
        auto daemon = startDaemon(c.config, c.name);
        unsetenv("HMFAKE_FAIL_INIT");
        const int status = daemon->wait(20s);
        EXPECT_NE(status, 0) << c.name;
        EXPECT_EQ(lastLine(daemon->output()), c.message) << c.name << ":\n" << daemon->output();
    }
    close(busy);

    Process missing({HM_AGENTD, "-c", m_dir + "/none.conf"}, m_dir + "/none.out");
    EXPECT_EQ(missing.wait(20s), 1);
    EXPECT_EQ(lastLine(missing.output()),
              "hmagentd: error: configuration file " + m_dir + "/none.conf cannot be read");
}

} // namespace
