// ENTITY-MIB and ENTITY-SENSOR-MIB through hmagentd over OpenIPMI's BMC
// simulator (tests/data/ipmi/entity.emu) behind a UDP relay that counts and can
// silence the IPMI traffic. One simulator and one daemon serve every case.
#include <sys/stat.h>

#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "hostE2e.h"
#include "support/ipmiSim.h"
#include "support/udpRelay.h"

namespace {

using namespace hmtest;

const std::string kSensorEntry = ".1.3.6.1.2.1.99.1.1.1";
const std::string kPhysicalEntry = ".1.3.6.1.2.1.47.1.1.1.1";
constexpr auto kRefresh = 2500ms; // the source's refresh period; values are stale after two

using Walk = std::map<std::string, std::string>; // numeric OID -> value text

class EntityE2e : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!haveProgram("ipmi_sim") || !haveProgram("snmpwalk") || !haveProgram("ipmitool"))
            return;
        s_sim = std::make_unique<IpmiSimGuard>("entity.emu");
        if (!s_sim->start())
            return;
        s_proxy = std::make_unique<UdpDelayProxy>(s_sim->port());
        const std::string dir = s_sim->dir();
        writeBmcConfig(dir, s_proxy->port(),
                       "ipmi-refresh-ms=2500\nipmi-stale-after=2\nipmi-slow-every=1000\n");
        writeRegistryFile(dir + "/registry.reg", HM_TEST_DATA_DIR "/ipmi/agent.conf", dir + "/agent.log");
        s_endpoint = "127.0.0.1:" + std::to_string(freePort());
        mkdir((dir + "/snmp").c_str(), 0700);
        setenv("SNMP_PERSISTENT_DIR", (dir + "/snmp").c_str(), 1);
        setenv("MIBS", "", 1);
        s_daemon = startDaemon("agentRole master\nagentaddress udp:" + s_endpoint +
                               "\nrocommunity public 127.0.0.1\n");
    }
    static void TearDownTestSuite() {
        s_daemon.reset();
        s_proxy.reset();
        s_sim.reset();
    }
    void SetUp() override {
        if (!s_sim)
            GTEST_SKIP() << "ipmi_sim (openipmi), ipmitool or net-snmp's tools are not installed";
        ASSERT_TRUE(s_daemon && s_daemon->running()) << (s_daemon ? s_daemon->output() : "");
    }

    static std::unique_ptr<Process> startDaemon(const std::string& role) {
        const std::string dir = s_sim->dir();
        writeFile(dir + "/hmagentd.conf",
                  "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + dir + "/registry.reg\n" + role);
        setenv("KELVARN_CONFIG", (dir + "/kelvarn.conf").c_str(), 1);
        auto daemon = std::make_unique<Process>(
            std::vector<std::string>{HM_AGENTD, "-c", dir + "/hmagentd.conf"}, dir + "/hmagentd.out");
        unsetenv("KELVARN_CONFIG");
        daemon->waitFor("and the entity tables", 20s);
        return daemon;
    }

    static Walk walk(const std::string& oid) {
        Walk rows;
        for (const std::string& line :
             linesOf(runCommand("snmpwalk -v2c -c public -On -Oq -Ot -t 2 -r 1 " + s_endpoint + " " + oid)
                         .output))
            if (line.rfind(".1.3.6", 0) == 0 && line.find(' ') != std::string::npos)
                rows[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
        return rows;
    }
    // Polls the sensor walk until `done` holds (at most `limit`); the last walk.
    template <typename Done> static Walk sensorsWhen(Done done, std::chrono::milliseconds limit) {
        Walk w;
        waitUntil([&] { return done(w = walk(kSensorEntry)); }, limit);
        return w;
    }
    static std::string column(const Walk& w, const std::string& entry, int col, long index) {
        auto it = w.find(entry + "." + std::to_string(col) + "." + std::to_string(index));
        return it == w.end() ? "(none)" : it->second;
    }

    inline static std::unique_ptr<IpmiSimGuard> s_sim;
    inline static std::unique_ptr<UdpDelayProxy> s_proxy;
    inline static std::unique_ptr<Process> s_daemon;
    inline static std::string s_endpoint;
};

// Sensor 6 (owner 0x20, LUN 0) is 1032000006; CPU Temp is 1032000001.
constexpr long kCpuTemp = 1032000001;

TEST_F(EntityE2e, OneRowPerThresholdSensorAgreeingWithIpmitoolInOneTree) {
    struct Expected {
        const char* name;
        long index, parent;
        const char *type, *precision, *status;
    };
    const Expected expected[] = {
        {"CPU Temp", 1032000001, 3001, "8", "0", "1"},   {"12V", 1032000002, 7001, "4", "2", "1"},
        {"FAN1", 1032000003, 29001, "10", "0", "1"},     {"PSU Current", 1032000004, 10001, "5", "1", "1"},
        {"PSU Power", 1032000005, 10001, "6", "0", "1"}, {"Aux Current", 1032000006, 7001, "5", "0", "3"},
    };
    const Walk sensors =
        sensorsWhen([](const Walk& w) { return column(w, kSensorEntry, 5, kCpuTemp) == "1"; }, 20s);
    const Walk physical = walk(kPhysicalEntry);
    const auto ipmitool = sensorList(s_sim->ipmitool("sensor list"));
    ASSERT_EQ(sensors.size(), 6u * 8) << s_daemon->output();
    for (const Expected& e : expected) {
        SCOPED_TRACE(e.name);
        // entPhysicalName, Class (8: sensor), ContainedIn; entPhySensorType, Scale (9:
        // units), Precision, OperStatus, ValueUpdateRate (the refresh period).
        auto physicalColumn = [&](int col) { return column(physical, kPhysicalEntry, col, e.index); };
        auto sensorColumn = [&](int col) { return column(sensors, kSensorEntry, col, e.index); };
        EXPECT_EQ((std::vector<std::string>{physicalColumn(7), physicalColumn(5), physicalColumn(4),
                                            sensorColumn(1), sensorColumn(2), sensorColumn(3),
                                            sensorColumn(5), sensorColumn(8)}),
                  (std::vector<std::string>{"\"" + std::string(e.name) + "\"", "8", std::to_string(e.parent),
                                            e.type, "9", e.precision, e.status, "2500"}));
        const std::string reading = ipmitool.count(e.name) != 0 ? ipmitool.at(e.name)[0] : "(missing)";
        if (std::string(e.status) == "1")
            EXPECT_EQ(std::to_string(std::lround(std::stod(reading) * std::pow(10, std::stoi(e.precision)))),
                      column(sensors, kSensorEntry, 4, e.index))
                << "ipmitool reads " << reading;
        else
            EXPECT_EQ(reading, "na");
    }
    // One tree: eleven entries (the chassis, 4 containers, 6 sensors); the chassis
    // (class 3, the FRU's serial number) is the only root and holds the containers.
    size_t entries = 0;
    for (const auto& [oid, value] : physical)
        entries += oid.rfind(kPhysicalEntry + ".4.", 0) == 0;
    EXPECT_EQ(entries, 11u);
    EXPECT_EQ(column(physical, kPhysicalEntry, 5, 1), "3");
    EXPECT_EQ(column(physical, kPhysicalEntry, 11, 1), "\"CS123\"");
    for (const long container : {1L, 3001L, 7001L, 10001L, 29001L})
        EXPECT_EQ(column(physical, kPhysicalEntry, 4, container), container == 1 ? "0" : "1") << container;
}

TEST_F(EntityE2e, AWalkSendsNoIpmiCommand) {
    // Right after a sweep the source is quiet for a refresh period: a walk that
    // starts and ends inside that window and sees no datagram sent no command.
    for (int fitted = 0; fitted < 5; std::this_thread::sleep_for(50ms)) {
        const auto seen = s_proxy->forwarded();
        if (seen.empty() || seen.back().toServer || Clock::now() - seen.back().at < 800ms)
            continue;
        const auto start = Clock::now();
        const size_t rows = walk(kSensorEntry).size() + walk(kPhysicalEntry).size();
        const auto end = Clock::now();
        if (end >= seen.back().at + kRefresh && ++fitted)
            continue; // the next sweep may have started: not attributable
        size_t during = 0;
        for (const auto& f : s_proxy->forwarded())
            during += f.toServer && f.at >= start && f.at <= end;
        EXPECT_EQ(rows, 6u * 8 + 11u * 18);
        EXPECT_EQ(during, 0u);
        return;
    }
    FAIL() << "no walk fitted between two sweeps";
}

TEST_F(EntityE2e, ASilentBmcMakesRowsUnavailableUntilItReturns) {
    auto status = [](const Walk& w) { return column(w, kSensorEntry, 5, kCpuTemp); };
    ASSERT_EQ(status(sensorsWhen([&](const Walk& w) { return status(w) == "1"; }, 20s)), "1");
    s_proxy->setSilent(true);
    const Walk silent = sensorsWhen([&](const Walk& w) { return status(w) == "2"; }, 30s);
    s_proxy->setSilent(false);
    EXPECT_EQ(status(silent), "2");
    EXPECT_EQ(silent.size(), 6u * 8); // the rows stay
    EXPECT_EQ(status(sensorsWhen([&](const Walk& w) { return status(w) == "1"; }, 60s)), "1");
}

TEST_F(EntityE2e, IndexesAreTheSameAfterARestartAsAgentxSubagent) {
    const Walk before = walk(kPhysicalEntry);
    ASSERT_EQ(before.size(), 11u * 18);
    s_daemon->stop();
    const std::string dir = s_sim->dir(), socket = "unix:" + dir + "/agentx";
    writeFile(dir + "/snmpd.conf", "master agentx\nagentXSocket " + socket + "\nagentaddress udp:" +
                                       s_endpoint + "\nrocommunity public 127.0.0.1\n");
    Process snmpd({daemonPath("snmpd"), "-f", "-C", "-c", dir + "/snmpd.conf", "-Lo"}, dir + "/snmpd.out");
    ASSERT_TRUE(snmpd.waitFor("NET-SNMP version", 10s)) << snmpd.output();
    s_daemon = startDaemon("agentRole subagent\nagentXSocket " + socket + "\n");
    Walk after;
    waitUntil([&] { return (after = walk(kPhysicalEntry)).size() == before.size(); }, 20s);
    EXPECT_EQ(after, before) << s_daemon->output();
    s_daemon->stop();
}

} // namespace
