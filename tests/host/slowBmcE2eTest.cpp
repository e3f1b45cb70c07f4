// hmagentd over a BMC that answers slowly or not at all: the daemon's query
// service reads OpenIPMI's BMC simulator over IPMI LAN through a UDP relay that
// can hold the commands back or drop them. A BMC silent from the start stops the
// daemon; once it runs, no SNMP request through the daemon may go unanswered
// within net-snmp's tools' 1 second time-out (the AgentX time-out) whatever the
// BMC does, a walk of the agent's tree sends no IPMI command, the SEL poller
// survives failed reads and a cleared SEL. Every process is started on loopback
// and stopped by a guard.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "hostE2e.h"
#include "support/ipmiSim.h"
#include "support/udpRelay.h"

namespace {

using namespace hmtest;

const std::string kPrivate = "1.3.6.1.4.1.64999";
const std::string kTables = "1.3.6.1.4.1.64999.2.10.3.5";
const std::string kTempReading = kTables + ".600.40.1.6.1"; // row 1, the BMC's "CPU Temp"
// The source reads the BMC every 2 s and treats values older than 2 periods as failures.
constexpr auto kBound = 4000ms;

// One SNMP request through the daemon, timed from the manager's side, and the
// value text of its one-variable answer ("INTEGER: 450", "No Such Instance ...").
struct Timed {
    Result result;
    Clock::time_point start, end;
    std::string value;
};

class SlowBmcE2e : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveProgram("ipmi_sim") || !haveProgram("snmpget") || !haveProgram("ipmitool"))
            GTEST_SKIP() << "ipmi_sim (openipmi), ipmitool or net-snmp's tools are not installed";
        ASSERT_TRUE(m_sim.start());
        m_proxy = std::make_unique<UdpDelayProxy>(m_sim.port());
        ASSERT_TRUE(m_proxy->running());
        writeBmcConfig(m_dir, m_proxy->port(),
                       "ipmi-refresh-ms=2000\nipmi-stale-after=2\nipmi-slow-every=1000\n"
                       "ipmi-startup-wait-ms=2000\n");
        writeRegistryFile(m_dir + "/registry.reg", HM_TEST_DATA_DIR "/ipmi/agent.conf", m_log);
        m_endpoint = "127.0.0.1:" + std::to_string(freePort());
        writeFile(m_dir + "/hmagentd.conf", "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                                                "/registry.reg\nagentRole master\nagentaddress udp:" +
                                                m_endpoint + "\nrocommunity public 127.0.0.1\n");
        mkdir((m_dir + "/snmp").c_str(), 0700);
        setenv("SNMP_PERSISTENT_DIR", (m_dir + "/snmp").c_str(), 1);
        setenv("MIBS", "", 1);
        setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    }
    void TearDown() override {
        // The daemon first: it must not see the relay vanish under it while stopping.
        if (m_daemon)
            m_daemon->stop();
        m_proxy.reset();
        unsetenv("KELVARN_CONFIG");
    }
    std::unique_ptr<Process> startDaemon(const std::string& out) {
        return std::make_unique<Process>(std::vector<std::string>{HM_AGENTD, "-c", m_dir + "/hmagentd.conf"},
                                         m_dir + "/" + out);
    }

    Timed request(const std::string& tool, const std::string& oid) {
        Timed t;
        t.start = Clock::now();
        t.result = runCommand(tool + " -v2c -c public -On -t 1 -r 0 " + m_endpoint + " " + oid);
        t.end = Clock::now();
        const std::string line = lastLineOf(t.result.output);
        t.value = line.find(" = ") == std::string::npos ? line : line.substr(line.find(" = ") + 3);
        // Answered within the tools' 1 s time-out, the AgentX time-out.
        EXPECT_TRUE(t.result.status == 0 && t.result.output.find("Timeout") == std::string::npos)
            << t.result.output;
        return t;
    }
    // The values of one round over the sensor tables: temperature row 1's name and
    // reading, power supply row 1's state text (a discrete sensor), the overall
    // status of the sensors.
    std::vector<std::string> round() {
        return {request("snmpget", kTables + ".600.40.1.3.1").value, request("snmpget", kTempReading).value,
                request("snmpget", kTables + ".400.20.1.4.1").value,
                request("snmpget", kTables + ".200.1.0").value};
    }
    // Waits until the source has just finished a sweep over the BMC: the last
    // datagram was the BMC's answer and nothing followed it for 800 ms (a sweep's
    // commands go back to back), so the next sweep starts no earlier than one
    // refresh period after that answer. Returns the time of that answer.
    Clock::time_point afterASweep() {
        for (const auto deadline = Clock::now() + 10s; Clock::now() < deadline;
             std::this_thread::sleep_for(20ms)) {
            const auto seen = m_proxy->forwarded();
            if (!seen.empty() && !seen.back().toServer && Clock::now() - seen.back().at >= 800ms)
                return seen.back().at;
        }
        ADD_FAILURE() << "the source never went quiet";
        return Clock::now();
    }

    IpmiSimGuard m_sim;
    std::string m_dir = m_sim.dir(), m_log = m_dir + "/agent.log";
    std::unique_ptr<UdpDelayProxy> m_proxy;
    std::unique_ptr<Process> m_daemon;
    std::string m_endpoint;
};

TEST_F(SlowBmcE2e, RequestsNeverWaitForTheBmc) {
    // Silent from the start: the sensor tables find their rows once, at start-up, so
    // the agent refuses to start rather than run with empty tables; the daemon exits
    // with status 1 once the start-up wait is over.
    m_proxy->setSilent(true);
    auto refused = startDaemon("refused.out");
    EXPECT_EQ(refused->wait(30s), 1);
    EXPECT_EQ(lastLineOf(refused->output()),
              "hmagentd: error: SnmpExtensionInit failed: the agent did not start");
    EXPECT_GT(m_proxy->dropped(), 0u);
    m_proxy->setSilent(false);
    m_daemon = startDaemon("hmagentd.out");
    ASSERT_TRUE(m_daemon->waitFor("serving ", 20s)) << m_daemon->output();
    // Up: the temperature row carries the BMC's reading.
    ASSERT_TRUE(
        waitUntil([&] { return request("snmpget", kTempReading).value.rfind("INTEGER: ", 0) == 0; }, 20s))
        << m_daemon->output();
    // With the BMC healthy: CPU Temp at 45 degrees in tenths, the
    // power supply's presence and an overall status of 3 (normal). Once the BMC's
    // values are older than the bound: the threshold sensors keep what they last
    // read, the discrete sensor's state becomes unavailable, the overall status 2 (unknown).
    const std::vector<std::string> healthy{"STRING: \"CPU Temp\"", "INTEGER: 450",
                                           "STRING: \"power supply's presence has been detected\"",
                                           "INTEGER: 3"};
    std::vector<std::string> failed = healthy;
    failed[2] = "STRING: \"State Unavailable\"", failed[3] = "INTEGER: 2";

    // Normal: a walk of the whole tree, started right after a sweep, ends before the
    // next sweep may start, and the relay forwards nothing meanwhile.
    const auto quietUntil = afterASweep() + 2000ms; // one refresh period
    const Timed walk = request("snmpwalk", kPrivate);
    size_t duringWalk = 0;
    for (const auto& f : m_proxy->forwarded())
        duringWalk += f.at >= walk.start && f.at < std::min(walk.end, quietUntil);
    EXPECT_EQ(duringWalk, 0u);
    EXPECT_LT(walk.end, quietUntil) << "the walk outlasted the quiet period; only part of it was checked";
    const size_t variables = linesOf(walk.result.output).size();
    EXPECT_GT(variables, 50u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(round(), healthy);

    // Slow: every command reaches the BMC 2.5 s late, longer than the AgentX
    // time-out, so no sweep completes any more. Requests keep answering from memory
    // until the last values read are older than the bound, then with the failure
    // behaviour. Rounds close to the bound are not classified.
    const auto lastAnswer = afterASweep();
    m_proxy->setDelay(2500ms);
    const auto slowStart = Clock::now();
    size_t fromMemory = 0, afterBound = 0;
    while (Clock::now() < slowStart + kBound + 2500ms) {
        const auto roundStart = Clock::now();
        const std::vector<std::string> values = round();
        if (Clock::now() < lastAnswer + kBound - 300ms) {
            ++fromMemory;
            EXPECT_EQ(values, healthy);
        } else if (roundStart > slowStart + kBound + 300ms) {
            ++afterBound;
            EXPECT_EQ(values, failed);
        }
        std::this_thread::sleep_for(200ms);
    }
    EXPECT_GE(fromMemory, 3u);
    EXPECT_GE(afterBound, 3u);
    EXPECT_EQ(linesOf(request("snmpwalk", kPrivate).result.output).size(), variables);

    // Silenced while a walk of one variable per request is under way: the walk
    // still ends with every variable once; every request answers with the failure
    // behaviour, and the SEL poller ends each failed read as that poll and tries
    // again at the next.
    m_proxy->setDelay(0ms);
    Timed cut;
    std::thread walker([&] { cut = request("snmpbulkwalk -Cr1", kPrivate); });
    std::this_thread::sleep_for(100ms);
    m_proxy->setSilent(true);
    walker.join();
    EXPECT_EQ(linesOf(cut.result.output).size(), variables) << cut.result.output;
    for (const auto until = Clock::now() + 4s; Clock::now() < until; std::this_thread::sleep_for(200ms))
        EXPECT_EQ(round(), failed);
    EXPECT_TRUE(waitForText(m_log, "\nGet Last SEL record error\n", 15s)) << readFile(m_log);
    const size_t failures = countIn(m_log, "\nQuery Failed to get the Last Record\n");
    EXPECT_TRUE(
        waitUntil([&] { return countIn(m_log, "\nQuery Failed to get the Last Record\n") > failures; }, 10s));

    // Back: the source opens a new session by itself and the values return. Then
    // the SEL cleared with ipmitool: the source reads the emptied SEL at a later
    // refresh and the poller starts again from the newest entry.
    m_proxy->setSilent(false);
    EXPECT_TRUE(waitUntil([&] { return round() == healthy; }, 15s));
    ASSERT_EQ(countIn(m_log, " is not valid."), 0u) << readFile(m_log);
    m_sim.ipmitool("sel clear");
    EXPECT_TRUE(waitForText(m_log, " is not valid. SEL may be cleared.", 20s)) << readFile(m_log);
    EXPECT_TRUE(waitForText(m_log, "No SEL record found!", 10s)) << readFile(m_log);
    EXPECT_EQ(round(), healthy);
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
}

} // namespace
