// ENTITY-MIB and ENTITY-SENSOR-MIB through hmagentd over OpenIPMI's BMC
// simulator (tests/data/ipmi/entity.emu) behind a UDP relay that can silence the
// IPMI traffic: the rows agree with ipmitool in one tree, a silent BMC makes them
// unavailable until it returns, and the indexes stay the same after a restart as
// AgentX subagent.
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
constexpr long kCpuTemp = 1032000001; // sensor 1 (owner 0x20, LUN 0)

using Walk = std::map<std::string, std::string>; // numeric OID -> value text

std::string column(const Walk& w, const std::string& entry, int col, long index) {
    auto it = w.find(entry + "." + std::to_string(col) + "." + std::to_string(index));
    return it == w.end() ? "(none)" : it->second;
}

TEST(EntityE2e, RowsAgreeWithIpmitoolSurviveASilentBmcAndKeepTheirIndexesAsSubagent) {
    if (!haveProgram("ipmi_sim") || !haveProgram("snmpwalk") || !haveProgram("ipmitool"))
        GTEST_SKIP() << "ipmi_sim (openipmi), ipmitool or net-snmp's tools are not installed";
    IpmiSimGuard sim("entity.emu");
    ASSERT_TRUE(sim.start());
    UdpDelayProxy proxy(sim.port());
    const std::string dir = sim.dir(), endpoint = "127.0.0.1:" + std::to_string(freePort());
    writeBmcConfig(dir, proxy.port(), "ipmi-refresh-ms=2500\nipmi-stale-after=2\nipmi-slow-every=1000\n");
    writeRegistryFile(dir + "/registry.reg", HM_TEST_DATA_DIR "/ipmi/agent.conf", dir + "/agent.log");
    mkdir((dir + "/snmp").c_str(), 0700);
    setenv("SNMP_PERSISTENT_DIR", (dir + "/snmp").c_str(), 1);
    setenv("MIBS", "", 1);
    setenv("KELVARN_CONFIG", (dir + "/kelvarn.conf").c_str(), 1);
    auto startDaemon = [&](const std::string& role) {
        writeFile(dir + "/hmagentd.conf",
                  "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + dir + "/registry.reg\n" + role);
        auto daemon = std::make_unique<Process>(
            std::vector<std::string>{HM_AGENTD, "-c", dir + "/hmagentd.conf"}, dir + "/hmagentd.out");
        EXPECT_TRUE(daemon->waitFor("and the entity tables", 20s)) << daemon->output();
        return daemon;
    };
    auto daemon =
        startDaemon("agentRole master\nagentaddress udp:" + endpoint + "\nrocommunity public 127.0.0.1\n");
    auto walk = [&](const std::string& oid) {
        Walk rows;
        for (const std::string& line : linesOf(
                 runCommand("snmpwalk -v2c -c public -On -Oq -Ot -t 2 -r 1 " + endpoint + " " + oid).output))
            if (line.rfind(".1.3.6", 0) == 0 && line.find(' ') != std::string::npos)
                rows[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
        return rows;
    };
    // Walks the sensors until CPU Temp's OperStatus is `status` (at most `limit`); the last walk.
    auto sensorsWhen = [&](const char* status, std::chrono::milliseconds limit) {
        Walk w;
        waitUntil([&] { return column(w = walk(kSensorEntry), kSensorEntry, 5, kCpuTemp) == status; }, limit);
        return w;
    };

    const struct {
        const char* name;
        long index, parent;
        const char *type, *precision, *status;
    } expected[] = {
        {"CPU Temp", 1032000001, 3001, "8", "0", "1"},   {"12V", 1032000002, 7001, "4", "2", "1"},
        {"FAN1", 1032000003, 29001, "10", "0", "1"},     {"PSU Current", 1032000004, 10001, "5", "1", "1"},
        {"PSU Power", 1032000005, 10001, "6", "0", "1"}, {"Aux Current", 1032000006, 7001, "5", "0", "3"},
    };
    const Walk sensors = sensorsWhen("1", 20s);
    const Walk physical = walk(kPhysicalEntry);
    const auto ipmitool = sensorList(sim.ipmitool("sensor list"));
    ASSERT_EQ(sensors.size(), 6u * 8) << daemon->output();
    for (const auto& e : expected) {
        SCOPED_TRACE(e.name);
        // entPhysicalName, Class (8: sensor), ContainedIn; entPhySensorType, Scale (9:
        // units), Precision, OperStatus, ValueUpdateRate (the refresh period).
        std::vector<std::string> columns;
        for (int col : {7, 5, 4})
            columns.push_back(column(physical, kPhysicalEntry, col, e.index));
        for (int col : {1, 2, 3, 5, 8})
            columns.push_back(column(sensors, kSensorEntry, col, e.index));
        EXPECT_EQ(columns,
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
    // One tree: eleven entries (the chassis, 4 containers, 6 sensors) of 18 columns;
    // the chassis (class 3, the FRU's serial number) is the only root.
    EXPECT_EQ(physical.size(), 11u * 18);
    EXPECT_EQ(column(physical, kPhysicalEntry, 5, 1), "3");
    EXPECT_EQ(column(physical, kPhysicalEntry, 11, 1), "\"CS123\"");
    EXPECT_EQ(column(physical, kPhysicalEntry, 4, 1), "0");

    // A silent BMC: the rows stay, unavailable (2), until it returns.
    proxy.setSilent(true);
    const Walk silent = sensorsWhen("2", 30s);
    proxy.setSilent(false);
    EXPECT_EQ(column(silent, kSensorEntry, 5, kCpuTemp), "2");
    EXPECT_EQ(silent.size(), 6u * 8);
    EXPECT_EQ(column(sensorsWhen("1", 60s), kSensorEntry, 5, kCpuTemp), "1");

    // The same indexes after a restart as AgentX subagent.
    EXPECT_EQ(daemon->stop(), 0) << daemon->output();
    const std::string socket = "unix:" + dir + "/agentx";
    writeFile(dir + "/snmpd.conf", "master agentx\nagentXSocket " + socket +
                                       "\nagentaddress udp:" + endpoint + "\nrocommunity public 127.0.0.1\n");
    Process snmpd({daemonPath("snmpd"), "-f", "-C", "-c", dir + "/snmpd.conf", "-Lo"}, dir + "/snmpd.out");
    ASSERT_TRUE(snmpd.waitFor("NET-SNMP version", 10s)) << snmpd.output();
    daemon = startDaemon("agentRole subagent\nagentXSocket " + socket + "\n");
    Walk after;
    waitUntil([&] { return (after = walk(kPhysicalEntry)).size() == physical.size(); }, 20s);
    EXPECT_EQ(after, physical) << daemon->output();
    EXPECT_EQ(daemon->stop(), 0) << daemon->output();
    unsetenv("KELVARN_CONFIG");
}

} // namespace
