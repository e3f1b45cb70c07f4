// hmagentd under faults, end to end with net-snmp's own tools: a BMC that does not
// answer, a SEL cleared under the poller, a trace folder that goes away or cannot
// be written, registry and configuration files that cannot be read, a master
// snmpd killed under its subagent, and SIGTERM in the middle of a walk and of a
// burst of traps. Each test says what the daemon and its agent must do. Every
// server started here listens on loopback only and is stopped by a guard that
// kills its process group, also when a check fails.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"
#include "support/ipmiSim.h"
#include "support/udpRelay.h"

namespace {

using namespace hmtest;
using namespace std::chrono_literals;

const std::string kPrivate = "1.3.6.1.4.1.64999";
const std::string kTables = "1.3.6.1.4.1.64999.2.10.3.5";
const std::string kPlatformId = kTables + ".100.3.0";
const std::string kPlatformIdLine = "." + kPlatformId + " = INTEGER: 4242";
// The agent's trace lines carry "hh:mm:ss: (thread) " before the message.
const std::string kFirstPoll = "Using /BMC/SEL/TRANSLATED";
const std::string kPollStart = "Inside the CheckForNewSELEntry function::";
const std::string kEndLog = "*********** End Log ****************";

// Runs a net-snmp command-line tool; MIB files are not read, output is numeric.
Result run(const std::string& command) {
    return runCommand("MIBS= " + command);
}

// What a sanitizer or the C++ runtime prints when something went wrong.
bool reportsAProblem(const std::string& output) {
    for (const char* sign : {"Sanitizer", "runtime error:", "terminate called", "Segmentation fault"})
        if (output.find(sign) != std::string::npos)
            return true;
    return false;
}

class FaultE2e : public DaemonTest {
protected:
    FaultE2e() : DaemonTest("hmfault", 0755) {}
    void SetUp() override {
        DaemonTest::SetUp();
        chmod((m_dir + "/state").c_str(), 0777);
        setenv("MIBS", "", 1);
        write("agent.conf", "platformid = 4242\ntrapsenabled = 1\ndebugenabled = 1\n");
        mkdir((m_dir + "/logs").c_str(), 0755);
        m_log = m_dir + "/logs/agent.log";
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_log);
        write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
        setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    }
    void TearDown() override {
        m_daemon.reset();
        DaemonTest::TearDown();
    }

    std::string masterConfig(const std::string& extra = "", const std::string& registry = "") const {
        return "agentLibrary " + m_library + "\nagentRegistry " +
               (registry.empty() ? m_dir + "/registry.reg" : registry) +
               "\nagentRole master\nagentaddress udp:" + endpoint() + "\nrocommunity public 127.0.0.1\n" +
               extra;
    }
    // Starts the daemon with `config`, or the command `asUser` gives. True once it
    // serves the agent's 14 regions.
    bool startDaemon(const std::string& config, const std::vector<std::string>& command = {HM_AGENTD}) {
        write("hmagentd.conf", config);
        std::vector<std::string> argv = command;
        argv.push_back("-c");
        argv.push_back(m_dir + "/hmagentd.conf");
        m_daemon = std::make_unique<Process>(argv, m_dir + "/hmagentd.out");
        return m_daemon->waitFor("serving 14 regions", 30s);
    }
    // The command that starts the daemon as the unprivileged user 65534 (as root only;
    // without setpriv, nothing). It runs copies of the build's daemon and libraries in
    // the test's folder, which that user can reach wherever the build lives (a checkout
    // in root's home folder is closed to others); later configurations load the copy.
    std::vector<std::string> asUser() {
        if (geteuid() != 0)
            return {HM_AGENTD};
        if (!haveProgram("setpriv"))
            return {};
        const std::string staged = m_dir + "/staged";
        const std::string libraries =
            std::string(HM_SUBAGENT_LIBRARY).substr(0, std::string(HM_SUBAGENT_LIBRARY).rfind('/'));
        const Result copied = run("mkdir -p " + staged + " && cp " HM_AGENTD " " + libraries + "/*.so* " +
                                  staged + " && chmod -R a+rX " + staged);
        EXPECT_EQ(copied.status, 0) << copied.output;
        m_library = staged + "/libhmSubagent.so";
        return {"setpriv",           "--reuid=65534", "--regid=65534",
                "--clear-groups",    "env",           "LD_LIBRARY_PATH=" + staged,
                staged + "/hmagentd"};
    }
    // snmptrapd on a free port; returns the "127.0.0.1:PORT" to send to.
    std::string startTrapReceiver() {
        const int port = freePort();
        m_receiver = launchTrapReceiver(port);
        return "127.0.0.1:" + std::to_string(port);
    }
    // The query service reads a BMC over IPMI LAN at `port` (ipmi_sim's user),
    // every second; SMBIOS facts come from the built-in demo server.
    // `startupWaitMs`: how long the agent's first queries wait for the first read.
    void useBmcAt(unsigned port, int staleAfter, int startupWaitMs = 10000) {
        writeBmcConfig(m_dir, port,
                       "ipmi-refresh-ms=1000\nipmi-stale-after=" + std::to_string(staleAfter) +
                           "\nipmi-startup-wait-ms=" + std::to_string(startupWaitMs) + "\n");
    }
    // ipmi_sim behind a relay that can slow or silence it, read by the query service
    // as useBmcAt says; skips the test when ipmi_sim is not installed.
    void startRelayedBmc(int staleAfter, int startupWaitMs = 10000) {
        if (!haveProgram("ipmi_sim"))
            GTEST_SKIP() << "ipmi_sim (openipmi) is not installed";
        m_bmc = std::make_unique<IpmiSimGuard>();
        ASSERT_TRUE(m_bmc->start());
        m_relay = std::make_unique<UdpDelayProxy>(m_bmc->port());
        ASSERT_TRUE(m_relay->running());
        useBmcAt(m_relay->port(), staleAfter, startupWaitMs);
    }
    std::string get(const std::string& oid) {
        return lastLineOf(run("snmpget -v2c -c public -On -t 1 -r 0 " + endpoint() + " " + oid).output);
    }
    // GETs of the platform id for `period`, each answered within the tool's 1 s
    // time-out; the number of those that did not answer with 4242.
    size_t unansweredGets(std::chrono::milliseconds period) {
        size_t failed = 0;
        const auto until = Clock::now() + period;
        while (Clock::now() < until) {
            failed += get(kPlatformId) != kPlatformIdLine;
            std::this_thread::sleep_for(100ms);
        }
        return failed;
    }
    Result sim(const std::string& arguments) {
        return runCommand(std::string(HM_KELVARN_SIM) + " " + arguments);
    }
    // Waits until the poller has started `polls` more polls than now and the
    // last of them has had time to finish.
    bool waitForPolls(size_t polls) {
        const size_t target = countIn(m_log, kPollStart) + polls;
        const auto deadline = Clock::now() + std::chrono::seconds(4 * polls + 2);
        while (countIn(m_log, kPollStart) < target)
            if (Clock::now() > deadline)
                return false;
            else
                std::this_thread::sleep_for(50ms);
        std::this_thread::sleep_for(300ms);
        return true;
    }
    std::vector<std::string> temperatureTraps() {
        std::vector<std::string> names;
        for (const std::string& line : trapLines(m_dir + "/traps.log"))
            if (!temperatureTrapSensor(line).empty())
                names.push_back(temperatureTrapSensor(line));
        return names;
    }
    bool waitForTemperatureTraps(size_t count, std::chrono::milliseconds limit) {
        const auto deadline = Clock::now() + limit;
        while (temperatureTraps().size() < count && Clock::now() < deadline)
            std::this_thread::sleep_for(100ms);
        return temperatureTraps().size() >= count;
    }

    std::string m_log;
    std::string m_library = HM_SUBAGENT_LIBRARY; // the agent library the configurations load
    std::unique_ptr<IpmiSimGuard> m_bmc;
    std::unique_ptr<UdpDelayProxy> m_relay;
    std::unique_ptr<Process> m_receiver;
    std::unique_ptr<Process> m_daemon;
};

// A BMC that answers nothing from the start: the sensor tables find their rows
// once, at start-up, and the processor and memory inventory comes through the
// same query service, so the agent refuses to start rather than run for good
// with empty tables. The daemon says so and exits with status 1 once the query
// service's start-up wait is over (the service manager starts it again); with
// the BMC answering again, the next start serves the BMC's sensors.
TEST_F(FaultE2e, BmcUnreachableAtStartUp) {
    startRelayedBmc(2, 2000);
    if (IsSkipped() || HasFatalFailure())
        return;
    UdpDelayProxy& relay = *m_relay;
    relay.setSilent(true);
    write("hmagentd.conf", masterConfig());
    const auto started = Clock::now();
    Process refused({HM_AGENTD, "-c", m_dir + "/hmagentd.conf"}, m_dir + "/refused.out");
    EXPECT_EQ(refused.wait(30s), 1);
    const auto took = Clock::now() - started;
    EXPECT_LT(took, 15s);
    RecordProperty("refused_after_ms",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));
    EXPECT_EQ(lastLineOf(refused.output()),
              "hmagentd: error: SnmpExtensionInit failed: the agent did not start");
    EXPECT_FALSE(reportsAProblem(refused.output())) << refused.output();
    EXPECT_GT(relay.dropped(), 0u);

    relay.setSilent(false);
    ASSERT_TRUE(startDaemon(masterConfig())) << m_daemon->output();
    const std::string cpuTemp = kTables + ".600.40.1.3.1";
    EXPECT_EQ(get(cpuTemp), "." + cpuTemp + " = STRING: \"CPU Temp\"");
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// A BMC whose answers stop after start-up: every request is answered at once
// from what was last read, and the event poller ends each failed SEL read as
// that poll and tries again three seconds later.
TEST_F(FaultE2e, BmcSilentAfterStartUp) {
    startRelayedBmc(2);
    if (IsSkipped() || HasFatalFailure())
        return;
    UdpDelayProxy& relay = *m_relay;
    ASSERT_TRUE(startDaemon(masterConfig())) << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, "First time reading the SEL.", 15s)) << readFile(m_log);
    relay.setSilent(true);
    EXPECT_TRUE(waitForText(m_log, "\nGet Last SEL record error\n", 15s)) << readFile(m_log);
    const size_t failures = countIn(m_log, "\nQuery Failed to get the Last Record\n");
    EXPECT_TRUE(waitForPolls(1));
    EXPECT_GT(countIn(m_log, "\nQuery Failed to get the Last Record\n"), failures);
    EXPECT_EQ(unansweredGets(500ms), 0u);
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// A BMC that goes silent while a walk is under way: the walk still ends with
// every variable once and no request waits for the BMC.
TEST_F(FaultE2e, BmcSilencedInTheMiddleOfAWalk) {
    startRelayedBmc(2);
    if (IsSkipped() || HasFatalFailure())
        return;
    UdpDelayProxy& relay = *m_relay;
    ASSERT_TRUE(startDaemon(masterConfig())) << m_daemon->output();
    // One variable per request makes the walk long enough to be cut in two.
    const std::string walk = "snmpbulkwalk -v2c -c public -On -Cr1 -t 1 -r 0 " + endpoint() + " " + kPrivate;
    const Result healthy = run(walk);
    ASSERT_EQ(healthy.status, 0) << healthy.output;
    const size_t variables = linesOf(healthy.output).size();
    ASSERT_GT(variables, 50u);

    Result cut;
    const auto start = Clock::now();
    std::thread walker([&] { cut = run(walk); });
    std::this_thread::sleep_for(100ms);
    relay.setSilent(true);
    walker.join();
    const auto took = Clock::now() - start;
    EXPECT_EQ(cut.status, 0) << cut.output;
    EXPECT_EQ(cut.output.find("Timeout"), std::string::npos) << cut.output;
    EXPECT_EQ(linesOf(cut.output).size(), variables) << cut.output;
    EXPECT_GT(took, 100ms) << "the walk ended before the BMC went silent";
    EXPECT_EQ(unansweredGets(500ms), 0u);
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// The SEL cleared while the agent runs: the poller's read from the remembered
// record fails with "record not valid", so it forgets that record and asks for
// the newest entry again. The first entry it then finds is where it starts
// again (no trap, like the entries found at start-up); every later entry is an
// event and gives its trap. The daemon keeps serving throughout.
TEST_F(FaultE2e, SelClearedWhileTheAgentRuns) {
    const std::string sink = startTrapReceiver();
    ASSERT_TRUE(startDaemon(masterConfig("trapsink " + sink + " public\n"))) << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, kFirstPoll, 10s)) << readFile(m_log);

    // Upper critical going high (offset 9) of a temperature probe: one trap.
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9").status, 0);
    ASSERT_TRUE(waitForTemperatureTraps(1, 10s)) << readFile(m_dir + "/traps.log");

    ASSERT_EQ(sim("sel-clear").status, 0);
    EXPECT_TRUE(waitForText(m_log, " is not valid. SEL may be cleared.", 10s)) << readFile(m_log);
    EXPECT_TRUE(waitForText(m_log, "No SEL record found!", 10s)) << readFile(m_log);
    EXPECT_EQ(unansweredGets(300ms), 0u);

    // The first entry after the clear: the poller's new starting point.
    ASSERT_EQ(sim("sel-add \"CPU1 Temp\" 9").status, 0);
    ASSERT_TRUE(waitForPolls(2));
    // The next one is an event.
    ASSERT_EQ(sim("sel-add \"PCH Temp\" 9").status, 0);
    EXPECT_TRUE(waitForTemperatureTraps(2, 10s)) << readFile(m_dir + "/traps.log");
    ASSERT_TRUE(waitForPolls(1));
    EXPECT_EQ(temperatureTraps(), (std::vector<std::string>{"CPU2 Temp", "PCH Temp"}))
        << readFile(m_dir + "/traps.log");
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// The same over a BMC simulator whose SEL is cleared with ipmitool: the source
// reads the emptied SEL at its next refresh, the poller starts again from the
// newest entry, and the entry after that gives its trap.
TEST_F(FaultE2e, BmcSelClearedWithIpmitool) {
    if (!haveProgram("ipmi_sim") || !haveProgram("ipmitool"))
        GTEST_SKIP() << "ipmi_sim (openipmi) or ipmitool is not installed";
    IpmiSimGuard bmc;
    ASSERT_TRUE(bmc.start());
    useBmcAt(bmc.port(), 4);
    const std::string sink = startTrapReceiver();
    ASSERT_TRUE(startDaemon(masterConfig("trapsink " + sink + " public\n"))) << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, "First time reading the SEL.", 15s)) << readFile(m_log);

    bmc.ipmitool("sel clear");
    EXPECT_TRUE(waitForText(m_log, " is not valid. SEL may be cleared.", 10s)) << readFile(m_log);
    EXPECT_TRUE(waitForText(m_log, "No SEL record found!", 10s)) << readFile(m_log);
    EXPECT_EQ(unansweredGets(300ms), 0u);
    // Upper critical going high (event data 1 0x59: offset 9) of sensor 1, "CPU
    // Temp", added as raw SEL records: the first is the new starting point, the
    // second an event.
    const std::string entry =
        "raw 0x0a 0x44 0x00 0x00 0x02 0x00 0x00 0x00 0x00 0x20 0x00 0x04 0x01 0x01 0x01 "
        "0x59 0xff 0xff";
    bmc.ipmitool(entry);
    ASSERT_TRUE(waitForPolls(2));
    bmc.ipmitool(entry);
    EXPECT_TRUE(waitForTemperatureTraps(1, 10s)) << readFile(m_dir + "/traps.log");
    ASSERT_TRUE(waitForPolls(1));
    EXPECT_EQ(temperatureTraps(), std::vector<std::string>{"CPU Temp"}) << readFile(m_dir + "/traps.log");
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// The trace file's folder made read-only, then removed, while the agent runs: the
// trace is a diagnostic only, so requests and traps go on as before (the open
// trace file keeps taking lines), and the daemon still stops cleanly.
TEST_F(FaultE2e, TraceFolderMadeReadOnlyThenRemovedWhileRunning) {
    const std::string sink = startTrapReceiver();
    ASSERT_TRUE(startDaemon(masterConfig("trapsink " + sink + " public\n"))) << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, kFirstPoll, 10s)) << readFile(m_log);

    chmod((m_dir + "/logs").c_str(), 0555);
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9").status, 0);
    EXPECT_TRUE(waitForTemperatureTraps(1, 10s)) << readFile(m_dir + "/traps.log");
    EXPECT_EQ(unansweredGets(500ms), 0u);

    ASSERT_EQ(run("rm -rf " + m_dir + "/logs").status, 0);
    ASSERT_EQ(sim("sel-add \"PCH Temp\" 9").status, 0);
    EXPECT_TRUE(waitForTemperatureTraps(2, 10s)) << readFile(m_dir + "/traps.log");
    EXPECT_EQ(unansweredGets(3500ms), 0u); // across a poll that traces into the removed file
    EXPECT_EQ(temperatureTraps(), (std::vector<std::string>{"CPU2 Temp", "PCH Temp"}));
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// A trace file that cannot be opened at start-up never stops the agent: the
// trace goes to standard output, after two lines that say so and the banner.
TEST_F(FaultE2e, TraceFileThatCannotBeOpenedGoesToStandardOutput) {
    write("a-file", "not a folder\n");
    struct Case {
        const char* name;
        std::string log;
        bool unprivileged;
    } cases[] = {
        {"folder missing", m_dir + "/no-such-folder/agent.log", false},
        {"folder is a file", m_dir + "/a-file/agent.log", false},
        // Write permission does not bind root: this one runs as an unprivileged user.
        {"folder read-only", m_dir + "/logs/agent.log", true},
    };
    chmod((m_dir + "/logs").c_str(), 0555);
    const std::vector<std::string> unprivileged = asUser();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.unprivileged && unprivileged.empty())
            continue;
        m_port = freePort();
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", c.log);
        ASSERT_TRUE(
            startDaemon(masterConfig(), c.unprivileged ? unprivileged : std::vector<std::string>{HM_AGENTD}))
            << m_daemon->output();
        EXPECT_EQ(unansweredGets(300ms), 0u);
        EXPECT_TRUE(m_daemon->waitFor(kFirstPoll, 10s));
        const std::string output = m_daemon->output();
        EXPECT_NE(output.find("Error opening File \"" + c.log +
                              "\"\nAll messages will go to stdout\n*********** New Log ****************\n"),
                  std::string::npos)
            << output;
        EXPECT_NE(output.find("END of clSystemManagement::init. m_nTrapsEnabled is: 1 \n"),
                  std::string::npos);
        EXPECT_EQ(access(c.log.c_str(), F_OK), -1);
        EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
        EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
    }
}

// A registry file or configuration file that cannot be read: the agent starts
// with its defaults (platform id 0, traps off) and its trace stays closed, so no
// trace is written anywhere.
TEST_F(FaultE2e, UnreadableRegistryOrConfigurationStartsWithDefaults) {
    mkdir((m_dir + "/a-folder").c_str(), 0755);
    write("locked.reg", readFile(m_dir + "/registry.reg"));
    write("locked.conf", readFile(m_dir + "/agent.conf"));
    chmod((m_dir + "/locked.reg").c_str(), 0);
    chmod((m_dir + "/locked.conf").c_str(), 0);
    const std::vector<std::string> unprivileged = asUser();
    struct Case {
        const char* name;
        std::string registry;
        std::string config;
        bool unprivileged;
    } cases[] = {
        {"registry missing", m_dir + "/none.reg", "", false},
        {"registry is a folder", m_dir + "/a-folder", "", false},
        {"registry unreadable", m_dir + "/locked.reg", "", true},
        {"configuration missing", "", m_dir + "/none.conf", false},
        {"configuration is a folder", "", m_dir + "/a-folder", false},
        {"configuration unreadable", "", m_dir + "/locked.conf", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Read permission does not bind root: the unreadable cases run as an
        // unprivileged user.
        if (c.unprivileged && unprivileged.empty())
            continue;
        std::string registry = c.registry;
        if (!c.config.empty()) {
            registry = m_dir + "/case.reg";
            writeRegistryFile(registry, c.config, m_log);
        }
        unlink(m_log.c_str());
        m_port = freePort();
        ASSERT_TRUE(startDaemon(masterConfig("", registry),
                                c.unprivileged ? unprivileged : std::vector<std::string>{HM_AGENTD}))
            << m_daemon->output();
        EXPECT_EQ(get(kPlatformId), "." + kPlatformId + " = INTEGER: 0");
        EXPECT_EQ(get(kTables + ".100.4.0"), "." + kTables + ".100.4.0 = INTEGER: 0"); // traps enabled
        EXPECT_EQ(access(m_log.c_str(), F_OK), -1);
        const std::string output = m_daemon->output();
        EXPECT_EQ(output.find("New Log"), std::string::npos) << output;
        EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << output;
        EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
    }
}

// The master snmpd killed outright and started again on the same socket: the
// subagent notices at its next ping, connects again and registers its regions,
// and its traps reach the master's sinks again.
TEST_F(FaultE2e, SubagentOutlivesAMasterKilledWithSigkill) {
    const std::string sink = startTrapReceiver();
    const std::string socket = "unix:" + m_dir + "/agentx";
    write("snmpd.conf", "master agentx\nagentXSocket " + socket + "\nagentaddress udp:" + endpoint() +
                            "\nrocommunity public 127.0.0.1\ntrapsink " + sink + " public\n");
    const std::vector<std::string> snmpd{daemonPath("snmpd"), "-f", "-C", "-c", m_dir + "/snmpd.conf", "-Lo"};
    auto master = std::make_unique<Process>(snmpd, m_dir + "/snmpd.out");
    ASSERT_TRUE(master->waitFor("NET-SNMP version", 10s)) << master->output();
    ASSERT_TRUE(startDaemon("agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                            "/registry.reg\nagentRole subagent\nagentXSocket " + socket + "\n"))
        << m_daemon->output();
    auto answering = [&](std::chrono::seconds limit) {
        const auto deadline = Clock::now() + limit;
        while (get(kPlatformId) != kPlatformIdLine)
            if (Clock::now() > deadline)
                return false;
            else
                std::this_thread::sleep_for(200ms);
        return true;
    };
    ASSERT_TRUE(answering(15s));
    ASSERT_TRUE(waitForText(m_log, kFirstPoll, 10s));
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9").status, 0);
    ASSERT_TRUE(waitForTemperatureTraps(1, 10s)) << readFile(m_dir + "/traps.log");

    EXPECT_EQ(master->stop(SIGKILL), 128 + SIGKILL);
    EXPECT_TRUE(m_daemon->running());
    master = std::make_unique<Process>(snmpd, m_dir + "/snmpd2.out");
    ASSERT_TRUE(master->waitFor("NET-SNMP version", 10s)) << master->output();
    const auto restarted = Clock::now();
    ASSERT_TRUE(answering(20s)) << m_daemon->output() << master->output();
    RecordProperty(
        "reconnect_ms",
        static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - restarted).count()));
    ASSERT_EQ(sim("sel-add \"PCH Temp\" 9").status, 0);
    EXPECT_TRUE(waitForTemperatureTraps(2, 10s)) << readFile(m_dir + "/traps.log");
    EXPECT_EQ(temperatureTraps(), (std::vector<std::string>{"CPU2 Temp", "PCH Temp"}));
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
    EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
}

// SIGTERM while requests or traps are in flight: the daemon closes the agent,
// saves net-snmp's state and exits with status 0 within 5 seconds, with no
// sanitizer report; the trace ends with its whole closing banner and the state
// file net-snmp writes is whole.
class SigtermE2e : public FaultE2e {
protected:
    void expectCleanExit() {
        const auto signalled = Clock::now();
        EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
        EXPECT_LT(Clock::now() - signalled, 5s);
        EXPECT_FALSE(reportsAProblem(m_daemon->output())) << m_daemon->output();
        const std::string trace = readFile(m_log);
        // Trace messages carry their own line ends (many begin with one), so the
        // banner may follow a message on its line; the file ends with it whole.
        ASSERT_GT(trace.size(), kEndLog.size() + 1);
        EXPECT_EQ(trace.substr(trace.size() - kEndLog.size() - 1), kEndLog + "\n");
        // (The entry the poller was routing may still add its lines after this one.)
        EXPECT_NE(trace.find(") SNMP Extension Agent closing\n"), std::string::npos);
        // net-snmp's persistent state: whole lines, the engine's boot count among them.
        const std::string state = readFile(m_dir + "/state/hmagentd.conf");
        ASSERT_FALSE(state.empty());
        EXPECT_EQ(state.back(), '\n');
        EXPECT_NE(state.find("\nengineBoots "), std::string::npos) << state;
    }
};

TEST_F(SigtermE2e, DuringAWalk) {
    ASSERT_TRUE(startDaemon(masterConfig())) << m_daemon->output();
    std::atomic<bool> stop{false};
    std::atomic<int> walks{0};
    std::thread walker([&] {
        while (!stop) {
            run("snmpbulkwalk -v2c -c public -On -Cr1 -t 1 -r 0 " + endpoint() + " " + kPrivate);
            ++walks;
        }
    });
    std::this_thread::sleep_for(700ms);
    expectCleanExit();
    stop = true;
    walker.join();
    EXPECT_EQ(walks.load() >= 1, true);
}

TEST_F(SigtermE2e, DuringABurstOfTraps) {
    constexpr int kBurst = 400;
    const std::string sink = startTrapReceiver();
    ASSERT_TRUE(startDaemon(masterConfig("trapsink " + sink + " public\n"))) << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, kFirstPoll, 10s)) << readFile(m_log);
    // Many entries within one poll: the poller routes them one after the other
    // while the daemon sends their traps. One entry through the tool gives the
    // journal's line for it; the other entries are that line again, appended at once.
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9").status, 0);
    const std::string line = lastLineOf(readFile(m_dir + "/demo.journal")) + "\n";
    ASSERT_EQ(line.rfind("sel-add ", 0), 0u) << line;
    std::string burst;
    for (int i = 1; i < kBurst; ++i)
        burst += line;
    std::ofstream(m_dir + "/demo.journal", std::ios::app) << burst << std::flush;
    ASSERT_TRUE(waitForTemperatureTraps(2, 10s)) << readFile(m_dir + "/traps.log");
    expectCleanExit();
    RecordProperty("traps_before_exit", static_cast<int>(temperatureTraps().size()));
    EXPECT_LT(temperatureTraps().size(), static_cast<size_t>(kBurst))
        << "the burst was over before the signal";
}

} // namespace
