// hmagentd end to end, with net-snmp's own tools: the daemon walked, queried and
// refused; traps received by snmptrapd,
// named by the installed MIB module; the daemon as AgentX subagent of
// a real snmpd that is restarted; the scripted agent served; bad configurations. Every server listens on
// loopback only and is stopped by a guard, also when a check fails.
#include <sys/stat.h>

#include <regex>

#include <gtest/gtest.h>

#include "hostE2e.h"
#include "support/udpRelay.h"

namespace {

using namespace hmtest;

const std::string kPrivate = "1.3.6.1.4.1.64999";
const std::string kSystem = "1.3.6.1.4.1.64999.2.10.3.5.100";
// The variables of the agent's view on the demo server, counted by hand once.
constexpr size_t kViewSize = 728;

class HostE2e : public DaemonTest {
protected:
    HostE2e() : DaemonTest("hmhost") {}
    void SetUp() override {
        DaemonTest::SetUp();
        setenv("MIBS", "", 1);
        write("agent.conf",
              "platformdescription = Host test platform\nplatformid = 4242\ntrapsenabled = 1\n"
              "setsenabled = 1\ndebugenabled = 1\nmanufacturer = Test Works\nproductname = HT-1\n"
              "productdescription = Host end-to-end test\n");
        writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/daemon-agent.log");
        write("kelvarn.conf", "source=demo\njournal=" + m_dir + "/demo.journal\n");
        setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    }
    std::unique_ptr<Process> startDaemon(const std::string& config, const std::string& name = "hmagentd",
                                         const char* serving = "serving 14 regions") {
        write(name + ".conf", config);
        auto daemon =
            std::make_unique<Process>(std::vector<std::string>{HM_AGENTD, "-c", m_dir + "/" + name + ".conf"},
                                      m_dir + "/" + name + ".out");
        EXPECT_TRUE(serving == nullptr || daemon->waitFor(serving, 20s)) << daemon->output();
        return daemon;
    }
    std::unique_ptr<Process> startSnmpd(const std::string& config, const std::string& out = "snmpd.out") {
        write("snmpd.conf", "master agentx\nagentXSocket unix:" + m_dir +
                                "/agentx\nagentaddress udp:" + endpoint() + "\n" + config);
        auto snmpd = std::make_unique<Process>(
            std::vector<std::string>{daemonPath("snmpd"), "-f", "-C", "-c", m_dir + "/snmpd.conf", "-Lo"},
            m_dir + "/" + out);
        EXPECT_TRUE(snmpd->waitFor("NET-SNMP version", 10s)) << snmpd->output();
        return snmpd;
    }
};

// The master on the demo server, its MIB module installed as an operator would
// (cmake --install): the module names every variable of a walk; requests are
// answered or refused; a SEL entry added with the live-change tool becomes the
// temperature trap and the health change it causes the health trap, named in their
// SNMPv1 and SNMPv2c forms. Then the same as AgentX subagent of a real snmpd.
TEST_F(HostE2e, MasterAnswersRefusesSendsNamedTrapsThenServesAsSubagent) {
    const Result installed = runCommand(std::string(HM_CMAKE) + " --install " HM_BINARY_DIR " --prefix " +
                                        m_dir + "/prefix --component mibs");
    ASSERT_EQ(installed.status, 0) << installed.output;
    const std::string share = m_dir + "/prefix/" HM_INSTALL_DATADIR;
    const std::string mibs = "-M +" + share + "/snmp/mibs:" + share + "/hmsubagent/mibs -m HM-SUBAGENT-MIB";
    const std::string np = std::to_string(freePort());
    // One named trap per line: the enterprise and specific trap of an SNMPv1 trap,
    // or the bindings of an SNMPv2c one.
    write("named.conf", "authCommunity log public\nformat1 V1 %V|%N|%q|%v\\n\nformat2 V2 %V|%v\\n\n");
    const Process named({"sh", "-c",
                         "exec " + daemonPath("snmptrapd") + " -f -C -c " + m_dir + "/named.conf -Lf " +
                             m_dir + "/named.log " + mibs + " udp:127.0.0.1:" + np},
                        m_dir + "/named.out");
    ASSERT_TRUE(waitForText(m_dir + "/named.log", "NET-SNMP version", 10s)) << named.output();
    auto daemon = startDaemon(
        "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
        "/registry.reg\nagentRole master\n"
        "agentaddress udp:" +
        endpoint() +
        "\nrocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\n"
        "createUser tester SHA \"tester-auth-pass\" AES \"tester-priv-pass\"\nrouser tester priv\ntrapsink "
        "127.0.0.1:" +
        np + " public\ntrap2sink 127.0.0.1:" + np + " public\n");
    const std::string walkAll = "snmpwalk -v2c -c public -On -t 5 -r 1 " + endpoint() + " " + kPrivate;
    const Result walk = runCommand(walkAll);
    const std::vector<std::string> oids = linesOf(walk.output);
    ASSERT_EQ(oids.size(), kViewSize) << walk.output;
    EXPECT_EQ(walk.status, 0) << walk.output;
    // Every variable is an object of the module and one instance arc: a name only
    // partly resolved keeps more arcs, and each name translates back to the OID the
    // agent answered at the same place.
    const std::vector<std::string> names =
        linesOf(runCommand("snmpwalk -v2c -c public " + mibs + " " + endpoint() + " " + kPrivate).output);
    ASSERT_EQ(names.size(), oids.size());
    const std::regex fullyNamed(R"(HM-SUBAGENT-MIB::hm[A-Za-z0-9]+\.[0-9]+ = .*)");
    std::string objects;
    for (const std::string& line : names) {
        EXPECT_TRUE(std::regex_match(line, fullyNamed)) << line;
        objects += " " + line.substr(0, line.find(" = "));
    }
    const std::vector<std::string> translated =
        linesOf(runCommand("snmptranslate -On " + mibs + objects).output);
    ASSERT_EQ(translated.size(), oids.size());
    for (size_t i = 0; i < oids.size(); ++i)
        EXPECT_EQ(translated[i], oids[i].substr(0, oids[i].find(" = "))) << names[i];

    // Thresholds and every other variable are read-only: the read-only community is
    // stopped by access control, the read-write one by the agent. Rows: the command
    // and its whole output, or (failed commands) a text of it.
    const std::string get = "snmpget -On -t 2 -r 1 -c public -v", set = "snmpset -On -t 2 -r 1 -v",
                      at = " " + endpoint() + " ", s = at + kSystem, out = "." + kSystem;
    const std::string v3 =
        "snmpget -On -t 2 -r 1 -v3 -l authPriv -u tester -a SHA -x AES -X tester-priv-pass -A ";
    const struct {
        std::string command, output;
        bool failed;
    } rows[] = {
        {get + "2c" + s + ".2.0 " + kSystem + ".3.0 " + kSystem + ".10.0",
         out + ".2.0 = STRING: \"Host test platform\"\n" + out + ".3.0 = INTEGER: 4242\n" + out +
             ".10.0 = STRING: \"Host end-to-end test\"\n",
         false},
        {get + "2c" + s + ".3.1 " + kSystem + ".99.0 " + kPrivate + ".5.0",
         out + ".3.1 = No Such Instance currently exists at this OID\n" + out +
             ".99.0 = No Such Object available on this agent at this OID\n"
             ".1.3.6.1.4.1.64999.5.0 = No Such Object available on this agent at this OID\n",
         false},
        {get + "1" + s + ".7.0", out + ".7.0 = STRING: \"HT-1\"\n", false},
        {get + "1" + s + ".3.1", "Reason: (noSuchName)", true},
        {set + "2c -c public" + s + ".3.0 i 5", "Reason: noAccess", true},
        {set + "2c -c private" + s + ".3.0 i 5", "Reason: notWritable", true},
        // A temperature probe's upper critical threshold (column 11, row 1).
        {set + "2c -c private" + at + "1.3.6.1.4.1.64999.2.10.3.5.600.40.1.11.1 i 50", "Reason: notWritable",
         true},
        {set + "1 -c private" + s + ".3.0 i 5", "Reason: (noSuchName)", true},
        {get + "2c" + s + ".3.0", out + ".3.0 = INTEGER: 4242\n", false},
        {v3 + "tester-auth-pass" + s + ".6.0", out + ".6.0 = STRING: \"Test Works\"\n", false},
        {"snmpget -On -t 1 -r 0 -v2c -c nosuchcommunity" + s + ".6.0",
         "Timeout: No Response from " + endpoint() + ".", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const Result r = runCommand(row.command);
        EXPECT_EQ(r.status != 0, row.failed) << r.output;
        EXPECT_TRUE(row.failed ? r.output.find(row.output) != std::string::npos : r.output == row.output)
            << r.output;
    }

    // Entries already in the SEL when the poller first reads it are not events.
    ASSERT_TRUE(waitForText(m_dir + "/daemon-agent.log", "Using /BMC/SEL/TRANSLATED", 10s));
    ASSERT_EQ(runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU2 Temp\" 9").status, 0);
    // The poller reads the SEL every 3 s. CPU2 Temp is the fourth probe; offset 9 is
    // upper critical going high: severity 5. The demo server has a non-critical
    // sensor: the health goes to critical.
    std::vector<std::string> v1, v2;
    waitUntil([&] { return trapLines(m_dir + "/named.log").size() >= 4; }, 10s);
    for (const std::string& line : trapLines(m_dir + "/named.log"))
        (line[1] == '1' ? v1 : v2).push_back(line[1] == '1' ? line : line.substr(line.find('|') + 1));
    const std::string mib = "HM-SUBAGENT-MIB::", trapOid = "SNMPv2-SMI::snmpModules.1.1.4.1.0 = OID: " + mib;
    const std::string sel = mib + "hmEventDescription = STRING: Status Changed to Upper Critical|" + mib +
                            "hmTemperatureProbeStatus.4 = INTEGER: critical(5)|" + mib +
                            "hmTemperatureProbeDescription.4 = STRING: CPU2 Temp|" + mib +
                            "hmTemperatureProbeId.4 = INTEGER: 4";
    const std::string health = mib +
                               "hmEventDescription = STRING: System health was changed from nonCritical to "
                               "critical.|" +
                               mib + "hmSystemHealthStatus.0 = INTEGER: critical(5)";
    EXPECT_EQ(v1, (std::vector<std::string>{
                      "V1 " + mib + "hmCoolingEvents|" + mib + "hmTemperatureUpperCritical|" + sel,
                      "V1 " + mib + "hmHealthEvents|" + mib + "hmHealthCritical|" + health}))
        << readFile(m_dir + "/named.log");
    EXPECT_EQ(v2, (std::vector<std::string>{trapOid + "hmTemperatureUpperCritical|" + sel,
                                            trapOid + "hmHealthCritical|" + health}));

    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();

    // As AgentX subagent of snmpd: it serves the same view through the master and
    // its traps reach the master's sink. The master stopped, or killed outright,
    // and started again on the same socket: the subagent notices at its next ping,
    // connects again and registers its regions, and its traps go through the new master.
    const std::string snmpdConfig = "rocommunity public 127.0.0.1\ntrapsink 127.0.0.1:" + np + " public\n";
    // A state folder of its own: a subagent cannot read the master's saved users.
    mkdir((m_dir + "/substate").c_str(), 0700);
    setenv("SNMP_PERSISTENT_DIR", (m_dir + "/substate").c_str(), 1);
    auto master = startSnmpd(snmpdConfig);
    daemon = startDaemon("agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
                         "/registry.reg\nagentRole subagent\nagentXSocket unix:" + m_dir + "/agentx\n");
    // The whole view (values such as the health have changed since the master's walk).
    auto servesTheView = [&](std::chrono::seconds limit) {
        return waitUntil([&] { return linesOf(runCommand(walkAll).output).size() == kViewSize; }, limit);
    };
    EXPECT_TRUE(servesTheView(15s)) << daemon->output();
    EXPECT_EQ(master->stop(SIGTERM), 0);
    master = startSnmpd(snmpdConfig, "snmpd2.out");
    EXPECT_TRUE(servesTheView(15s)) << daemon->output();
    EXPECT_EQ(master->stop(SIGKILL), 128 + SIGKILL);
    master = startSnmpd(snmpdConfig, "snmpd3.out");
    EXPECT_TRUE(servesTheView(20s)) << daemon->output();
    ASSERT_EQ(runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"CPU1 Temp\" 9").status, 0);
    EXPECT_TRUE(waitForText(m_dir + "/named.log", "STRING: CPU1 Temp|", 10s))
        << readFile(m_dir + "/named.log");
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

// The scripted agent through the daemon: GET tells a missing instance (the object
// exists) from a missing object, except with SNMPv1; a walk goes over the regions
// in order, past the empty one, and ends at the end of the agent's view; sets are
// refused as the agent says; its traps (more than a wake-up takes) all arrive in
// SNMPv2 form. Without the entity tables ("no"), the agent's 3 regions.
TEST_F(HostE2e, TheScriptedAgentIsAnsweredAndItsTrapsSent) {
    const int port = freePort();
    const auto receiver = launchTrapReceiver(port);
    setenv("HMFAKE_TRAPS", "259", 1);
    auto daemon = startDaemon("agentLibrary " HM_FAKE_AGENT_LIBRARY "\nagentaddress udp:" + endpoint() +
                                  "\nrocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\n"
                                  "entityTables no\ntrap2sink 127.0.0.1:" +
                                  std::to_string(port) + " public\n",
                              "hmagentd", "serving 3 regions of " HM_FAKE_AGENT_LIBRARY "\n");
    unsetenv("HMFAKE_TRAPS");
    const std::string at = " -On -t 2 -r 0 " + endpoint() + " ", p = ".1.3.6.1.4.1.64999.7.";
    const struct {
        std::string command, output;
    } rows[] = {
        {"snmpget -v2c -c public" + at + p + "1.2.0 " + p + "1.1.5 " + p + "1.9.0 " + p + "3.2.7",
         p + "1.2.0 = STRING: \"alpha\"\n" + p + "1.1.5 = No Such Instance currently exists at this OID\n" +
             p + "1.9.0 = No Such Object available on this agent at this OID\n" + p +
             "3.2.7 = No Such Instance currently exists at this OID\n"},
        {"snmpget -v1 -c public" + at + p + "1.1.5", "Reason: (noSuchName)"},
        {"snmpwalk -v2c -c public" + at + p.substr(0, p.size() - 1),
         p + "1.1.0 = INTEGER: 42\n" + p + "1.2.0 = STRING: \"alpha\"\n" + p + "1.3.0 = INTEGER: -7\n" + p +
             "3.1.1 = INTEGER: 100\n" + p + "3.1.2 = INTEGER: 200\n" + p + "3.2.1 = STRING: \"row one\"\n"},
        {"snmpset -v2c -c private" + at + p + "1.1.0 i 5", "Reason: notWritable"},
        {"snmpset -v2c -c private" + at + p + "1.7.0 i 5", "Reason: noCreation"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const Result r = runCommand(row.command);
        EXPECT_NE(r.output.find(row.output), std::string::npos) << r.output;
    }
    auto trap = [&](int k) {
        return "V2 .1.3.6.1.2.1.1.3.0 = Timeticks: (4200) 0:00:42.00|.1.3.6.1.6.3.1.1.4.1.0 = OID: " + p +
               "1000.0." + std::to_string(20 + k) + "|" + p + "1.1.0 = INTEGER: " + std::to_string(k) + "|" +
               p + "1.2.0 = STRING: \"trap " + std::to_string(k) + "\"";
    };
    waitUntil([&] { return trapLines(m_dir + "/traps.log").size() >= 259; }, 20s);
    const std::vector<std::string> traps = trapLines(m_dir + "/traps.log");
    ASSERT_EQ(traps.size(), 259u) << daemon->output();
    EXPECT_EQ(traps.front(), trap(259));
    EXPECT_EQ(traps.back(), trap(1));
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->output();
}

TEST_F(HostE2e, BadConfigurationsStopTheDaemonWithTheirMessage) {
    // A relay's own port on loopback: the port the transport case asks for, held.
    const UdpDelayProxy busy(static_cast<unsigned>(freePort()));
    const std::string busyPort = std::to_string(busy.port());
    const std::string base = "agentaddress udp:" + endpoint() + "\nrocommunity public 127.0.0.1\n",
                      error = "hmagentd: error: ";
    const struct {
        std::string name, config, message;
    } cases[] = {
        {"missing-library", base + "agentLibrary " + m_dir + "/libnothing.so\n",
         error + "agent library " + m_dir + "/libnothing.so does not exist"},
        {"no-entry-points", base + "agentLibrary " HM_COMPAT_LIBRARY "\n",
         error + "agent library " HM_COMPAT_LIBRARY " does not export SnmpExtensionInit"},
        // The scripted agent refuses to start when told so.
        {"init-fails", base + "agentLibrary " HM_FAKE_AGENT_LIBRARY "\n",
         error + "SnmpExtensionInit failed: the agent did not start"},
        {"transport-in-use",
         "agentaddress udp:127.0.0.1:" + busyPort + "\nagentLibrary " HM_SUBAGENT_LIBRARY "\n",
         error + "cannot listen on udp:127.0.0.1:" + busyPort + " (address in use or not available)"},
        {"unknown-directive", base + "agentLibrary " HM_SUBAGENT_LIBRARY "\nbogusDirective 12\n",
         error + m_dir + "/unknown-directive.conf: line 4: Unknown token: bogusDirective."},
        {"bad-role", base + "agentRole boss\n",
         error + m_dir + "/bad-role.conf: line 3: agentRole must be master or subagent"},
    };
    for (const auto& c : cases) {
        if (c.name == "init-fails")
            setenv("HMFAKE_FAIL_INIT", "1", 1);
        auto daemon = startDaemon(c.config, c.name, nullptr);
        unsetenv("HMFAKE_FAIL_INIT");
        EXPECT_NE(daemon->wait(20s), 0) << c.name;
        EXPECT_EQ(lastLineOf(daemon->output()), c.message) << c.name << ":\n" << daemon->output();
    }
    Process missing({HM_AGENTD, "-c", m_dir + "/none.conf"}, m_dir + "/none.out");
    EXPECT_EQ(missing.wait(20s), 1);
    EXPECT_EQ(lastLineOf(missing.output()),
              error + "configuration file " + m_dir + "/none.conf cannot be read");
}

} // namespace
