// hmagentd under faults, end to end with net-snmp's own tools (a BMC that does not
// answer: slowBmcE2eTest): a SEL cleared under the poller, a trace folder that goes away or cannot
// be written, registry and configuration files that cannot be read, and SIGTERM
// in the middle of walks and of a burst of traps. Every server listens on loopback
// only and is stopped by a guard, also when a check fails.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include <gtest/gtest.h>

#include "hostE2e.h"

namespace {

using namespace hmtest;

const std::string kPlatformId = "1.3.6.1.4.1.64999.2.10.3.5.100.3.0";
const std::string kFirstPoll = "Using /BMC/SEL/TRANSLATED";
const std::string kPollStart = "Inside the CheckForNewSELEntry function::";
const std::string kEndLog = "*********** End Log ****************";

class FaultE2e : public DaemonTest {
protected:
    FaultE2e() : DaemonTest("hmfault", 0755) {}
    void SetUp() override {
        DaemonTest::SetUp();
        chmod((m_dir + "/state").c_str(), 0777);
        setenv("MIBS", "", 1);
        write("agent.conf", "platformid = 4242\ntrapsenabled = 1\ndebugenabled = 1\n");
        mkdir((m_dir + "/logs").c_str(), 0755);
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
    // True once the daemon started with `config` (by `command`) serves the agent's 14 regions.
    bool startDaemon(const std::string& config, const std::vector<std::string>& command = {HM_AGENTD}) {
        write("hmagentd.conf", config);
        std::vector<std::string> argv = command;
        argv.insert(argv.end(), {"-c", m_dir + "/hmagentd.conf"});
        m_daemon = std::make_unique<Process>(argv, m_dir + "/hmagentd.out");
        return m_daemon->waitFor("serving 14 regions", 30s);
    }
    // A sanitizer's report, a crash or an uncaught exception ends the daemon with another status.
    void stopCleanly() { EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output(); }
    // The command that starts the daemon as user 65534 (as root; without setpriv,
    // nothing): copies of the build's daemon and libraries in the test's folder,
    // which that user can reach wherever the build lives; configurations then load
    // the copy.
    std::vector<std::string> asUser() {
        if (geteuid() != 0)
            return {HM_AGENTD};
        if (!haveProgram("setpriv"))
            return {};
        const std::string staged = m_dir + "/staged", library = HM_SUBAGENT_LIBRARY;
        const Result copied = runCommand("mkdir -p " + staged + " && cp " HM_AGENTD " " +
                                         library.substr(0, library.rfind('/')) + "/*.so* " + staged +
                                         " && chmod -R a+rX " + staged);
        EXPECT_EQ(copied.status, 0) << copied.output;
        m_library = staged + "/libhmSubagent.so";
        return {"setpriv",           "--reuid=65534", "--regid=65534",
                "--clear-groups",    "env",           "LD_LIBRARY_PATH=" + staged,
                staged + "/hmagentd"};
    }
    std::string get(const std::string& oid) {
        return lastLineOf(
            runCommand("snmpget -v2c -c public -On -t 1 -r 0 " + endpoint() + " " + oid).output);
    }
    // GETs of the platform id for `period`; how many did not answer 4242 within 1 s.
    size_t unansweredGets(std::chrono::milliseconds period) {
        size_t failed = 0;
        for (const auto until = Clock::now() + period; Clock::now() < until;) {
            failed += get(kPlatformId) != "." + kPlatformId + " = INTEGER: 4242";
            std::this_thread::sleep_for(100ms);
        }
        return failed;
    }
    int sim(const std::string& arguments) {
        return runCommand(std::string(HM_KELVARN_SIM) + " " + arguments).status;
    }
    // Waits until the poller has started `polls` more polls and the last has had time to finish.
    bool waitForPolls(size_t polls) {
        const size_t target = countIn(m_log, kPollStart) + polls;
        const bool done = waitUntil([&] { return countIn(m_log, kPollStart) >= target; },
                                    std::chrono::seconds(4 * polls + 2));
        std::this_thread::sleep_for(300ms);
        return done;
    }
    std::vector<std::string> traps(size_t count = 0) { return temperatureTraps(m_dir + "/traps.log", count); }

    std::string m_log = m_dir + "/logs/agent.log";
    std::string m_library = HM_SUBAGENT_LIBRARY; // the agent library the configurations load
    std::unique_ptr<Process> m_daemon;
};

// The SEL cleared while the agent runs: the read from the remembered record fails
// with "record not valid", so the poller asks for the newest entry again; the first
// entry it then finds is where it starts again (no trap), every later one gives its
// trap. Then the trace folder made read-only, then gone: the trace is a diagnostic
// only, so requests and traps go on (the open file keeps taking lines). Then
// SIGTERM while walks are under way and the poller routes a burst of SEL entries
// whose traps are being sent: the daemon closes the agent, saves net-snmp's state
// and exits with status 0, with no sanitizer report; the trace ends with its whole
// closing banner and the state file net-snmp writes is whole.
TEST_F(FaultE2e, SelClearedTraceFolderGoneThenSigtermDuringWalksAndABurstOfTraps) {
    const int port = freePort();
    const auto receiver = launchTrapReceiver(port);
    ASSERT_TRUE(startDaemon(masterConfig("trapsink 127.0.0.1:" + std::to_string(port) + " public\n")))
        << m_daemon->output();
    ASSERT_TRUE(waitForText(m_log, kFirstPoll, 10s)) << readFile(m_log);
    // Upper critical going high (offset 9) of a temperature probe: one trap.
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9"), 0);
    ASSERT_EQ(traps(1).size(), 1u) << readFile(m_dir + "/traps.log");
    ASSERT_EQ(sim("sel-clear"), 0);
    EXPECT_TRUE(waitForText(m_log, " is not valid. SEL may be cleared.", 10s)) << readFile(m_log);
    EXPECT_TRUE(waitForText(m_log, "No SEL record found!", 10s)) << readFile(m_log);
    ASSERT_EQ(sim("sel-add \"CPU1 Temp\" 9"), 0); // the new starting point
    ASSERT_TRUE(waitForPolls(2));
    ASSERT_EQ(sim("sel-add \"PCH Temp\" 9"), 0);
    traps(2);
    ASSERT_TRUE(waitForPolls(1));
    EXPECT_EQ(traps(), (std::vector<std::string>{"CPU2 Temp", "PCH Temp"}));

    chmod((m_dir + "/logs").c_str(), 0555);
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9"), 0);
    EXPECT_EQ(traps(3).size(), 3u);
    // Gone from its path (moved away, so that its file can still be read at the end).
    ASSERT_EQ(rename((m_dir + "/logs").c_str(), (m_dir + "/gone").c_str()), 0);
    ASSERT_EQ(sim("sel-add \"PCH Temp\" 9"), 0);
    EXPECT_EQ(traps(4), (std::vector<std::string>{"CPU2 Temp", "PCH Temp", "CPU2 Temp", "PCH Temp"}));
    EXPECT_EQ(unansweredGets(3500ms), 0u); // across a poll that traces into the file gone

    constexpr size_t kBurst = 400;
    std::atomic<bool> stop{false};
    std::atomic<int> walks{0};
    std::thread walker([&] {
        for (; !stop; ++walks)
            runCommand("snmpbulkwalk -v2c -c public -On -Cr1 -t 1 -r 0 " + endpoint() + " 1.3.6.1.4.1.64999");
    });
    // One entry through the tool gives the journal's line for it; the other entries
    // are that line again, appended at once: the poller routes them in one poll.
    ASSERT_EQ(sim("sel-add \"CPU2 Temp\" 9"), 0);
    const std::string line = lastLineOf(readFile(m_dir + "/demo.journal")) + "\n";
    std::string burst;
    for (size_t i = 1; i < kBurst; ++i)
        burst += line;
    std::ofstream(m_dir + "/demo.journal", std::ios::app) << burst << std::flush;
    EXPECT_GE(traps(6).size(), 6u) << readFile(m_dir + "/traps.log");
    stopCleanly();
    stop = true;
    walker.join();
    EXPECT_GE(walks.load(), 1);
    EXPECT_LT(traps().size(), kBurst + 4) << "the burst was over before the signal";
    // Trace messages carry their own line ends, so the banner may follow a message
    // on its line; the file ends with it whole.
    const std::string trace = readFile(m_dir + "/gone/agent.log");
    ASSERT_GT(trace.size(), kEndLog.size() + 1);
    EXPECT_EQ(trace.substr(trace.size() - kEndLog.size() - 1), kEndLog + "\n");
    EXPECT_NE(trace.find(") SNMP Extension Agent closing\n"), std::string::npos);
    const std::string state = readFile(m_dir + "/state/hmagentd.conf");
    ASSERT_FALSE(state.empty());
    EXPECT_EQ(state.back(), '\n');
    EXPECT_NE(state.find("\nengineBoots "), std::string::npos) << state;
}

// Files the agent cannot use at start-up never stop it. A trace file that cannot
// be opened: the trace goes to standard output, after two lines that say so. A
// registry or configuration file that cannot be read: the agent starts with its
// defaults (platform id 0) and no trace anywhere. Access
// rights do not bind root: those cases run as an unprivileged user.
TEST_F(FaultE2e, UnusableTraceRegistryOrConfigurationFiles) {
    mkdir((m_dir + "/a-folder").c_str(), 0755);
    mkdir((m_dir + "/read-only").c_str(), 0555);
    write("locked.reg", readFile(m_dir + "/registry.reg"));
    write("locked.conf", readFile(m_dir + "/agent.conf"));
    chmod((m_dir + "/locked.reg").c_str(), 0);
    chmod((m_dir + "/locked.conf").c_str(), 0);
    const std::vector<std::string> unprivileged = asUser();
    const struct {
        const char* name;
        std::string registry, config, trace;
        bool unprivileged;
    } cases[] = {
        {"trace folder missing", "", "", m_dir + "/no-such-folder/agent.log", false},
        {"trace folder read-only", "", "", m_dir + "/read-only/agent.log", true},
        {"registry missing", m_dir + "/none.reg", "", "", false},
        {"registry is a folder", m_dir + "/a-folder", "", "", false},
        {"registry unreadable", m_dir + "/locked.reg", "", "", true},
        {"configuration missing", "", m_dir + "/none.conf", "", false},
        {"configuration is a folder", "", m_dir + "/a-folder", "", false},
        {"configuration unreadable", "", m_dir + "/locked.conf", "", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.unprivileged && unprivileged.empty())
            continue;
        const std::string trace = c.trace.empty() ? m_log : c.trace;
        std::string registry = c.registry;
        if (registry.empty()) {
            registry = m_dir + "/case.reg";
            writeRegistryFile(registry, c.config.empty() ? m_dir + "/agent.conf" : c.config, trace);
        }
        unlink(m_log.c_str());
        m_port = freePort();
        ASSERT_TRUE(startDaemon(masterConfig("", registry),
                                c.unprivileged ? unprivileged : std::vector<std::string>{HM_AGENTD}))
            << m_daemon->output();
        if (!c.trace.empty()) {
            EXPECT_TRUE(m_daemon->waitFor(kFirstPoll, 10s));
            EXPECT_NE(m_daemon->output().find("Error opening File \"" + trace +
                                              "\"\nAll messages will go to stdout"),
                      std::string::npos)
                << m_daemon->output();
        } else {
            EXPECT_EQ(get(kPlatformId), "." + kPlatformId + " = INTEGER: 0");
            EXPECT_EQ(m_daemon->output().find("New Log"), std::string::npos) << m_daemon->output();
        }
        EXPECT_EQ(access(trace.c_str(), F_OK), -1);
        stopCleanly();
    }
}

} // namespace
