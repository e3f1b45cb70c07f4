// The MIB module as an operator uses it with net-snmp's tools: installed with
// `cmake --install` (the module in share/snmp/mibs, the base-module stand-ins in their
// own folder), loaded with -M/-m, it names every variable of a walk of hmagentd and
// every trap the daemon sends to snmptrapd (the SEL trap of a new event and the
// health-change trap that follows it, in their SNMPv1 and SNMPv2c forms).
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace {

using namespace hmtest;

const std::string kPrivate = "1.3.6.1.4.1.64999";

// One named trap per line: the enterprise and specific trap of an SNMPv1 trap, or the
// bindings of an SNMPv2c one (sysUpTime.0 first, snmpTrapOID.0 second).
const char kTrapReceiverConfig[] = "authCommunity log public\n"
                                   "format1 V1 %V|%N|%q|%v\\n\n"
                                   "format2 V2 %V|%v\\n\n";

class MibNamesE2e : public DaemonTest {
protected:
    MibNamesE2e() : DaemonTest("hmmib") {}
    void SetUp() override {
        DaemonTest::SetUp();
        write("agent.conf", "platformid = 4242\ntrapsenabled = 1\ndebugenabled = 1\n");
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/agent.log");
        write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
        setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);

        // The MIB files where an installation puts them.
        const Result installed = runCommand(std::string(HM_CMAKE) + " --install " HM_BINARY_DIR " --prefix " +
                                            m_dir + "/prefix --component mibs");
        ASSERT_EQ(installed.status, 0) << installed.output;
        const std::string share = m_dir + "/prefix/" HM_INSTALL_DATADIR;
        m_mibOptions = "-M +" + share + "/snmp/mibs:" + share + "/hmsubagent/mibs -m HM-SUBAGENT-MIB";
    }
    void TearDown() override { DaemonTest::TearDown(); }

    std::unique_ptr<Process> startDaemon(const std::string& extra = "") const {
        write("hmagentd.conf", "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                                   "/registry.reg\nagentaddress udp:" + endpoint() +
                                   "\nrocommunity public 127.0.0.1\n" + extra);
        return std::make_unique<Process>(std::vector<std::string>{HM_AGENTD, "-c", m_dir + "/hmagentd.conf"},
                                         m_dir + "/hmagentd.out");
    }

    std::string m_mibOptions;
};

// The part of a line after its first '|' (what follows the receiver's time stamp).
std::string afterFirstBar(const std::string& line) {
    const size_t bar = line.find('|');
    return bar == std::string::npos ? line : line.substr(bar + 1);
}

TEST_F(MibNamesE2e, WalkNamesEveryVariable) {
    auto daemon = startDaemon();
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();

    const Result named =
        runCommand("snmpwalk -v2c -c public " + m_mibOptions + " " + endpoint() + " " + kPrivate);
    const Result numeric = runCommand("MIBS= snmpwalk -v2c -c public -On " + endpoint() + " " + kPrivate);
    ASSERT_EQ(named.status, 0) << named.output;
    ASSERT_EQ(numeric.status, 0) << numeric.output;
    const std::vector<std::string> names = linesOf(named.output);
    const std::vector<std::string> oids = linesOf(numeric.output);
    ASSERT_GE(oids.size(), 156u);
    ASSERT_EQ(names.size(), oids.size()) << named.output;

    // Every variable is an object of the module and one instance arc (0 for scalars,
    // the row for table columns): a name only partly resolved keeps more arcs. No
    // error about a module that cannot be found is printed either.
    const std::regex fullyNamed(R"(HM-SUBAGENT-MIB::hm[A-Za-z0-9]+\.[0-9]+ = .*)");
    std::string objects;
    for (const std::string& line : names) {
        EXPECT_TRUE(std::regex_match(line, fullyNamed)) << line;
        objects += " " + line.substr(0, line.find(" = "));
    }
    // Each name stands for the OID the agent answered at the same place of the walk.
    const std::vector<std::string> translated =
        linesOf(runCommand("snmptranslate -On " + m_mibOptions + objects).output);
    ASSERT_EQ(translated.size(), oids.size());
    for (size_t i = 0; i < oids.size(); ++i)
        EXPECT_EQ(translated[i], oids[i].substr(0, oids[i].find(" = "))) << names[i];

    // Values are shown with the module's syntax: enumerations by label, texts bare.
    for (const std::string expected : {
             "HM-SUBAGENT-MIB::hmSystemHealthStatus.0 = INTEGER: nonCritical(4)",
             "HM-SUBAGENT-MIB::hmSystemPlatformId.0 = INTEGER: 4242",
             "HM-SUBAGENT-MIB::hmSystemTrapsEnabled.0 = INTEGER: 1",
             "HM-SUBAGENT-MIB::hmTemperatureProbeDescription.4 = STRING: CPU2 Temp",
         })
        EXPECT_NE(std::find(names.begin(), names.end(), expected), names.end()) << expected;
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

TEST_F(MibNamesE2e, TrapReceiverNamesTheSelAndHealthNotifications) {
    const std::string sink = "127.0.0.1:" + std::to_string(freePort());
    write("snmptrapd.conf", kTrapReceiverConfig);
    const std::string traps = m_dir + "/traps.log";
    std::vector<std::string> receiverArgs{daemonPath("snmptrapd"),   "-f",  "-C", "-c",
                                          m_dir + "/snmptrapd.conf", "-Lf", traps};
    std::istringstream options(m_mibOptions);
    for (std::string option; options >> option;)
        receiverArgs.push_back(option);
    receiverArgs.push_back("udp:" + sink);
    Process receiver(receiverArgs, m_dir + "/snmptrapd.out");
    ASSERT_TRUE(waitForText(traps, "NET-SNMP version", 10s)) << receiver.output();

    auto daemon = startDaemon("trapsink " + sink + " public\ntrap2sink " + sink + " public\n");
    ASSERT_TRUE(daemon->waitFor("serving 14 regions", 20s)) << daemon->output();
    // Entries already in the SEL when the poller first reads it are not events.
    ASSERT_TRUE(waitForText(m_dir + "/agent.log", "Using /BMC/SEL/TRANSLATED", 10s));
    const Result added = runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9");
    ASSERT_EQ(added.status, 0) << added.output;

    // Two traps, each to both sinks; the poller reads the SEL every 3 s.
    std::vector<std::string> v1;
    std::vector<std::string> v2;
    const auto deadline = Clock::now() + 15s;
    while ((v1.size() < 2 || v2.size() < 2) && Clock::now() < deadline) {
        std::this_thread::sleep_for(100ms);
        v1.clear();
        v2.clear();
        for (const std::string& line : linesOf(readFile(traps))) {
            if (line.rfind("V1 ", 0) == 0)
                v1.push_back(line);
            else if (line.rfind("V2 ", 0) == 0)
                v2.push_back(afterFirstBar(line));
        }
    }
    ASSERT_EQ(v1.size(), 2u) << readFile(traps);
    ASSERT_EQ(v2.size(), 2u) << readFile(traps);

    // A probe above its upper critical threshold: the cooling group's temperature
    // notification, then the health going from nonCritical to critical.
    const std::string selBindings =
        "HM-SUBAGENT-MIB::hmEventDescription = STRING: Status Changed to Upper "
        "Critical|HM-SUBAGENT-MIB::hmTemperatureProbeStatus.4 = INTEGER: "
        "critical(5)|HM-SUBAGENT-MIB::hmTemperatureProbeDescription.4 = STRING: CPU2 "
        "Temp|HM-SUBAGENT-MIB::hmTemperatureProbeId.4 = INTEGER: 4";
    const std::string healthBindings = "HM-SUBAGENT-MIB::hmEventDescription = STRING: System health was "
                                       "changed from nonCritical to critical.|HM-SUBAGENT-MIB::"
                                       "hmSystemHealthStatus.0 = INTEGER: critical(5)";
    EXPECT_EQ(v1[0], "V1 HM-SUBAGENT-MIB::hmCoolingEvents|HM-SUBAGENT-MIB::hmTemperatureUpperCritical|" +
                         selBindings);
    EXPECT_EQ(v1[1],
              "V1 HM-SUBAGENT-MIB::hmHealthEvents|HM-SUBAGENT-MIB::hmHealthCritical|" + healthBindings);
    // snmpTrapOID.0 (named by its place under SNMPv2-SMI: SNMPv2-MIB is not loaded).
    EXPECT_EQ(v2[0], "SNMPv2-SMI::snmpModules.1.1.4.1.0 = OID: HM-SUBAGENT-MIB::hmTemperatureUpperCritical|" +
                         selBindings);
    EXPECT_EQ(v2[1],
              "SNMPv2-SMI::snmpModules.1.1.4.1.0 = OID: HM-SUBAGENT-MIB::hmHealthCritical|" + healthBindings);
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

} // namespace
