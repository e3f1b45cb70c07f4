// hmagentd over a BMC that answers slowly or not at all: the daemon's query
// service reads OpenIPMI's BMC simulator over IPMI LAN through a UDP relay that
// can hold the commands back or drop them. Every SNMP request through the daemon
// is timed; none may take longer than 1 second (the AgentX time-out) whatever the
// BMC does, and a walk of the agent's tree sends no IPMI command. Every process is
// started on loopback and stopped by a guard, also when a check fails.
#include <sys/stat.h>

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
// Row 1 of the temperature table (the BMC's "CPU Temp"): name and reading.
const std::string kTempName = kTables + ".600.40.1.3.1";
const std::string kTempReading = kTables + ".600.40.1.6.1";
const std::string kVoltageTable = kTables + ".400.30";
const std::string kFanTable = kTables + ".600.20";
// Row 1 of the power supply table (a discrete sensor): its state text.
const std::string kSupplyState = kTables + ".400.20.1.4.1";
// The overall status of the sensors.
const std::string kOverall = kTables + ".200.1.0";

// The source reads the BMC every 2 s and treats values older than 2 periods as failures.
constexpr auto kRefresh = 2000ms;
constexpr auto kBound = 4000ms;
// How long the relay holds back every command in the slow phase.
constexpr auto kSlowDelay = 2500ms;
// The AgentX time-out no request may exceed.
constexpr auto kAgentxTimeout = 1000ms;

// One SNMP request through the daemon, timed from the manager's side.
struct Timed {
    std::string command;
    Result result;
    Clock::time_point start, end;
    // Over the bound: the tool's own 1 s time-out fired, or the request took longer.
    bool overBound() const {
        return end - start > kAgentxTimeout || result.output.find("Timeout") != std::string::npos;
    }
};

class SlowBmcE2e : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveProgram("ipmi_sim") || !haveProgram("snmpget"))
            GTEST_SKIP() << "ipmi_sim (openipmi) or net-snmp's tools are not installed";
        ASSERT_TRUE(m_sim.start());
        m_proxy = std::make_unique<UdpDelayProxy>(m_sim.port());
        ASSERT_TRUE(m_proxy->running());
        const std::string dir = m_sim.dir();
        writeBmcConfig(dir, m_proxy->port(),
                       "ipmi-refresh-ms=" + std::to_string(kRefresh.count()) + "\nipmi-stale-after=" +
                           std::to_string(kBound / kRefresh) + "\nipmi-slow-every=1000\n");
        writeRegistryFile(dir + "/registry.reg", HM_TEST_DATA_DIR "/ipmi/agent.conf", dir + "/agent.log");
        m_endpoint = "127.0.0.1:" + std::to_string(freePort());
        std::ofstream(dir + "/hmagentd.conf") << "agentLibrary " HM_SUBAGENT_LIBRARY "\n"
                                              << "agentRegistry " << dir << "/registry.reg\n"
                                              << "agentRole master\n"
                                              << "agentaddress udp:" << m_endpoint << "\n"
                                              << "rocommunity public 127.0.0.1\n";
        mkdir((dir + "/snmp").c_str(), 0700);
        setenv("SNMP_PERSISTENT_DIR", (dir + "/snmp").c_str(), 1);
        setenv("MIBS", "", 1);
        setenv("KELVARN_CONFIG", (dir + "/kelvarn.conf").c_str(), 1);
        m_daemon = std::make_unique<Process>(
            std::vector<std::string>{HM_AGENTD, "-c", dir + "/hmagentd.conf"}, dir + "/hmagentd.out");
        unsetenv("KELVARN_CONFIG");
        ASSERT_TRUE(m_daemon->waitFor("serving ", 20s)) << m_daemon->output();
    }
    void TearDown() override {
        // The daemon first: it must not see the relay vanish under it while stopping.
        if (m_daemon)
            m_daemon->stop();
        m_proxy.reset();
    }

    Timed request(const std::string& tool, const std::string& oid) {
        Timed t;
        t.command = tool + " " + oid;
        t.start = Clock::now();
        t.result = runCommand("MIBS= " + tool + " -v2c -c public -On -t 1 -r 0 " + m_endpoint + " " + oid);
        t.end = Clock::now();
        return t;
    }

    // The value text of a one-variable answer ("INTEGER: 450", "No Such Instance ...").
    static std::string value(const Timed& t) {
        const size_t at = t.result.output.find(" = ");
        std::string v = at == std::string::npos ? t.result.output : t.result.output.substr(at + 3);
        while (!v.empty() && (v.back() == '\n' || v.back() == '\r'))
            v.pop_back();
        return v;
    }

    // The gets and getnexts of one round over the sensor tables, in this order.
    std::vector<Timed> round() {
        return {request("snmpget", kTempName),         request("snmpget", kTempReading),
                request("snmpgetnext", kVoltageTable), request("snmpgetnext", kFanTable),
                request("snmpget", kSupplyState),      request("snmpget", kOverall)};
    }

    // Waits until the source has just finished a sweep over the BMC: the last
    // datagram was the BMC's answer and nothing followed it for 800 ms (the
    // source sends a sweep's commands back to back). Its next
    // sweep then starts no earlier than one refresh period after that answer.
    // Returns the time of that answer.
    Clock::time_point afterASweep() {
        const auto deadline = Clock::now() + 10s;
        while (Clock::now() < deadline) {
            const auto seen = m_proxy->forwarded();
            if (!seen.empty() && !seen.back().toServer && Clock::now() - seen.back().at >= 800ms)
                return seen.back().at;
            std::this_thread::sleep_for(20ms);
        }
        ADD_FAILURE() << "the source never went quiet";
        return Clock::now();
    }

    static size_t over(const std::vector<Timed>& requests) {
        size_t n = 0;
        for (const Timed& t : requests)
            n += t.overBound();
        return n;
    }

    IpmiSimGuard m_sim;
    std::unique_ptr<UdpDelayProxy> m_proxy;
    std::unique_ptr<Process> m_daemon;
    std::string m_endpoint;
};

TEST_F(SlowBmcE2e, RequestsNeverWaitForTheBmc) {
    // Up: the agent walks and the temperature row carries the BMC's reading.
    const auto up = Clock::now() + 20s;
    std::string reading;
    while (Clock::now() < up && reading.rfind("INTEGER: ", 0) != 0) {
        reading = value(request("snmpget", kTempReading));
        if (reading.rfind("INTEGER: ", 0) != 0)
            std::this_thread::sleep_for(200ms);
    }
    ASSERT_EQ(reading.rfind("INTEGER: ", 0), 0u) << reading << "\n" << m_daemon->output();

    // What one round answers with the BMC healthy: CPU Temp at 45 degrees in
    // tenths, the first index of the voltage and fan tables, the power supply's
    // presence and an overall status of 3 (normal).
    const std::vector<std::string> healthy{"STRING: \"CPU Temp\"",
                                           "INTEGER: 450",
                                           "INTEGER: 1",
                                           "INTEGER: 1",
                                           "STRING: \"power supply's presence has been detected\"",
                                           "INTEGER: 3"};
    // What it answers once the BMC's values are older than the bound: the rows of
    // the threshold sensors keep what they last read, the discrete sensor's state
    // becomes unavailable and the overall status 2 (unknown).
    const std::vector<std::string> failed{
        "STRING: \"CPU Temp\"",          "INTEGER: 450", "INTEGER: 1", "INTEGER: 1",
        "STRING: \"State Unavailable\"", "INTEGER: 2"};
    auto answers = [](const std::vector<Timed>& one) {
        std::vector<std::string> values;
        for (const Timed& t : one)
            values.push_back(value(t));
        return values;
    };

    // Normal: a walk of the whole tree, started right after a sweep, ends before
    // the next sweep may start, and the relay forwards nothing meanwhile.
    std::vector<Timed> normal;
    const auto sweepEnd = afterASweep();
    const Timed walk = request("snmpwalk", kPrivate);
    normal.push_back(walk);
    const auto quietUntil = sweepEnd + kRefresh;
    size_t duringWalk = 0;
    for (const auto& f : m_proxy->forwarded())
        duringWalk += f.at >= walk.start && f.at < std::min(walk.end, quietUntil);
    EXPECT_EQ(duringWalk, 0u);
    EXPECT_LT(walk.end, quietUntil) << "the walk outlasted the quiet period; only part of it was checked";
    const size_t walked = linesOf(walk.result.output).size();
    EXPECT_GT(walked, 50u);
    EXPECT_NE(walk.result.output.find(kTempReading + " = INTEGER: 450\n"), std::string::npos);
    for (int i = 0; i < 3; ++i) {
        const std::vector<Timed> one = round();
        normal.insert(normal.end(), one.begin(), one.end());
        EXPECT_EQ(answers(one), healthy);
    }

    // Slow: every command reaches the BMC 2.5 s late, longer than the AgentX
    // time-out, so no sweep completes any more. Requests keep answering from
    // memory until the last values read are older than the bound, then with the
    // failure behaviour. The values were read between the sweep's last answer
    // and the delay's start; requests close to the bound are not classified.
    std::vector<Timed> slow;
    const auto lastAnswer = afterASweep();
    m_proxy->setDelay(kSlowDelay);
    const auto slowStart = Clock::now();
    size_t fromMemory = 0, afterBound = 0;
    while (Clock::now() < slowStart + kBound + 2500ms) {
        const std::vector<Timed> one = round();
        slow.insert(slow.end(), one.begin(), one.end());
        if (one.back().end < lastAnswer + kBound - 300ms) {
            ++fromMemory;
            EXPECT_EQ(answers(one), healthy);
        } else if (one.front().start > slowStart + kBound + 300ms) {
            ++afterBound;
            EXPECT_EQ(answers(one), failed);
        }
        std::this_thread::sleep_for(200ms);
    }
    EXPECT_GE(fromMemory, 3u);
    EXPECT_GE(afterBound, 3u);
    const Timed slowWalk = request("snmpwalk", kPrivate);
    slow.push_back(slowWalk);
    EXPECT_EQ(linesOf(slowWalk.result.output).size(), walked) << slowWalk.result.output;

    // Silent: the BMC answers nothing at all; the source's attempts to reach it
    // are dropped and every request still answers with the failure behaviour.
    std::vector<Timed> silent;
    m_proxy->setSilent(true);
    m_proxy->setDelay(0ms);
    const auto silentStart = Clock::now();
    while (Clock::now() < silentStart + 4s) {
        const std::vector<Timed> one = round();
        silent.insert(silent.end(), one.begin(), one.end());
        EXPECT_EQ(answers(one), failed);
        std::this_thread::sleep_for(200ms);
    }
    const Timed silentWalk = request("snmpwalk", kPrivate);
    silent.push_back(silentWalk);
    EXPECT_EQ(linesOf(silentWalk.result.output).size(), walked) << silentWalk.result.output;
    EXPECT_GT(m_proxy->dropped(), 0u);

    // Back: the source opens a new session by itself and the values return,
    // while requests keep answering at once.
    std::vector<Timed> back;
    m_proxy->setSilent(false);
    const auto backStart = Clock::now();
    bool recovered = false;
    while (!recovered && Clock::now() < backStart + 15s) {
        const std::vector<Timed> one = round();
        back.insert(back.end(), one.begin(), one.end());
        recovered = answers(one) == healthy;
        if (!recovered)
            std::this_thread::sleep_for(200ms);
    }
    EXPECT_TRUE(recovered);
    const auto recovery = Clock::now() - backStart;

    // No request in any phase took longer than the AgentX time-out, and every
    // one was answered.
    EXPECT_EQ(over(normal), 0u);
    EXPECT_EQ(over(slow), 0u);
    EXPECT_EQ(over(silent), 0u);
    EXPECT_EQ(over(back), 0u);
    for (const auto* phase : {&normal, &slow, &silent, &back})
        for (const Timed& t : *phase)
            EXPECT_EQ(t.result.status, 0) << t.command << ": " << t.result.output;
    auto slowest = [](const std::vector<Timed>& v) {
        long long ms = 0;
        for (const Timed& t : v)
            ms = std::max<long long>(
                ms, std::chrono::duration_cast<std::chrono::milliseconds>(t.end - t.start).count());
        return ms;
    };
    std::printf(
        "requests (slowest, ms): normal %zu (%lld), slow %zu (%lld), silent %zu (%lld), back %zu (%lld); "
        "values back after %lld ms; walk of %zu variables in %lld ms\n",
        normal.size(), slowest(normal), slow.size(), slowest(slow), silent.size(), slowest(silent),
        back.size(), slowest(back),
        static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(recovery).count()),
        walked,
        static_cast<long long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(walk.end - walk.start).count()));
}

} // namespace
