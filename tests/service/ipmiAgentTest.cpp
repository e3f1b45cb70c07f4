// The agent's temperature, voltage and fan tables over a BMC simulator
// (OpenIPMI's ipmi_sim) read through the IPMI source: the built agent library
// driven through its entry points.
#include <dlfcn.h>

#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>
#include <snmp.h>

#include "support/ipmiSim.h"
#include "kelvarn/Responder.h"
#include "tests/agent/agentTestSupport.h"

namespace {

using hmtest::haveProgram;
using hmtest::IpmiSimGuard;

using hmtest::Arcs;
using hmtest::Bindings;
using hmtest::P;

void* library() {
    static void* handle = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <class F> F entry(const char* name) {
    return reinterpret_cast<F>(dlsym(library(), name));
}

// (column, instance) -> value text of one table.
using Table = std::map<std::pair<UINT, UINT>, std::string>;

// Column `column` of the table's first row.
std::string cell(const Table& t, UINT column) {
    auto it = t.find({column, 1});
    return it == t.end() ? "<absent>" : it->second;
}

// Polls `check` every 100 ms for up to 30 s.
template <class F> bool poll(F check) {
    for (int i = 0; i < 300; ++i) {
        if (check())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

class AgentOverIpmiSim : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveProgram("ipmi_sim") || !haveProgram("ipmitool"))
            GTEST_SKIP() << "ipmi_sim (openipmi) or ipmitool is not installed";
        ASSERT_NE(library(), nullptr) << dlerror();
        m_init = entry<PFNSNMPEXTENSIONINIT>("SnmpExtensionInit");
        m_query = entry<PFNSNMPEXTENSIONQUERYEX>("SnmpExtensionQueryEx");
        m_close = entry<PFNSNMPEXTENSIONCLOSE>("SnmpExtensionClose");
        m_initEx = entry<PFNSNMPEXTENSIONINITEX>("SnmpExtensionInitEx");
        m_trap = entry<PFNSNMPEXTENSIONTRAP>("SnmpExtensionTrap");
        ASSERT_TRUE(m_init && m_query && m_close && m_initEx && m_trap);
        ASSERT_TRUE(m_sim.start());
        const std::string dir = m_sim.dir();
        hmtest::writeBmcConfig(dir, m_sim.port(), "ipmi-refresh-ms=300\n");
        hmtest::writeRegistryFile(dir + "/registry.reg", std::string(HM_TEST_DATA_DIR) + "/ipmi/agent.conf",
                                  dir + "/agent.log");
        setenv("HMSUBAGENT_REGISTRY", (dir + "/registry.reg").c_str(), 1);
        setenv("KELVARN_CONFIG", (dir + "/kelvarn.conf").c_str(), 1);
        kelvarn::setProcessResponder(nullptr);
    }
    void TearDown() override {
        unsetenv("HMSUBAGENT_REGISTRY");
        unsetenv("KELVARN_CONFIG");
    }

    // GETNEXT walk of one table; counts the answers that were not noError.
    Table walk(const Arcs& root, int& errors) {
        Table t;
        Bindings b({root});
        for (int steps = 0; steps < 1000; ++steps) {
            AsnInteger32 status = -1, index = -1;
            m_query(SNMP_EXTENSION_GET_NEXT, 1, b.list(), nullptr, &status, &index);
            const Arcs name = b.name(0);
            if (status != 0)
                ++errors;
            if (status != 0 || name.size() != root.size() + 3 ||
                !std::equal(root.begin(), root.end(), name.begin()))
                break;
            t[{name[root.size() + 1], name[root.size() + 2]}] =
                b[0].value.asnType == ASN_OCTETSTRING ? b.text(0)
                                                      : std::to_string(b[0].value.asnValue.number);
        }
        return t;
    }

    IpmiSimGuard m_sim;
    PFNSNMPEXTENSIONINIT m_init = nullptr;
    PFNSNMPEXTENSIONQUERYEX m_query = nullptr;
    PFNSNMPEXTENSIONCLOSE m_close = nullptr;
    PFNSNMPEXTENSIONINITEX m_initEx = nullptr;
    PFNSNMPEXTENSIONTRAP m_trap = nullptr;
};

TEST_F(AgentOverIpmiSim, SensorTablesOverTheBmcKeepAnsweringWhileItIsAway) {
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(m_init(0, &event, &region));
    // Temperatures in tenths of a degree, voltages in millivolts, fans in RPM, from bmc.emu (the
    // BMC's values as the service reads them are checked against ipmitool in ipmiSimTest);
    // column 3 the name, 6 the reading, 8 the upper and 11 the lower critical threshold.
    const std::pair<Arcs, std::vector<std::string>> expected[] = {
        {P({600, 40}), {"CPU Temp", "450", "900", "50"}},
        {P({400, 30}), {"12V", "12000", "12900", "11100"}},
        {P({600, 20}), {"FAN1", "5000", "2147483647", "1000"}}};
    for (const auto& e : expected) {
        SCOPED_TRACE(e.second[0]);
        int errors = 0;
        Table t = walk(e.first, errors);
        EXPECT_EQ(errors, 0);
        EXPECT_EQ((std::vector<std::string>{cell(t, 3), cell(t, 6), cell(t, 8), cell(t, 11)}), e.second);
    }
    // The BMC goes away: every walk still answers, with the last values.
    m_sim.stop();
    for (int round = 0; round < 4; ++round) {
        int errors = 0;
        Table t = walk(P({600, 40}), errors);
        EXPECT_EQ(errors, 0);
        EXPECT_EQ(cell(t, 3), "CPU Temp");
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
    }
    // It comes back with a new reading, which the agent then publishes.
    ASSERT_TRUE(m_sim.start());
    m_sim.console("sensor_set_value 0x20 0 1 52 0");
    EXPECT_TRUE(poll([&] {
        int errors = 0;
        return cell(walk(P({600, 40}), errors), 6) == "520";
    }));
    m_close();
}

// A SEL entry added on the BMC becomes the agent's trap: the temperature
// "upper critical going high" assertion of sensor 1 (row 1 of the temperature
// table), severity 5 without "Lower" in its text, is specific trap 18 under
// P.1000.70 with the row's status, name and ID as objects.
TEST_F(AgentOverIpmiSim, SelEntryAddedOnTheBmcBecomesATrap) {
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(m_init(0, &event, &region));
    for (int i = 0; i < 20 && m_initEx(&region); ++i) {
    }
    // The poller's first look at the SEL only notes where it ends.
    ASSERT_TRUE(
        hmtest::waitForText(m_sim.dir() + "/agent.log",
                            "First time reading the SEL. Structures related to SEL are initialized now.\n",
                            std::chrono::seconds(20)));
    ASSERT_NE(
        m_sim.console("sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x01 0x01 0x01 0x59 0x5b 0x5a").find("Added"),
        std::string::npos);
    // The trap's generic number, then each binding's name and value.
    std::vector<std::string> trap;
    EXPECT_TRUE(poll([&] {
        AsnObjectIdentifier ent{0, nullptr};
        AsnInteger32 generic = -1, specific = -1;
        AsnTimeticks stamp = 0;
        SnmpVarBindList list{nullptr, 0};
        while (trap.empty() && m_trap(&ent, &generic, &specific, &stamp, &list)) {
            if (::dotted(hmtest::arcsOf(ent)) == ::dotted(P({1000, 70})) && specific == 18) {
                trap.push_back(std::to_string(generic));
                for (UINT i = 0; i < list.len; ++i) {
                    const AsnAny& v = list.list[i].value;
                    trap.push_back(::dotted(hmtest::arcsOf(list.list[i].name)));
                    trap.push_back(v.asnType == ASN_OCTETSTRING
                                       ? std::string(reinterpret_cast<const char*>(v.asnValue.string.stream),
                                                     v.asnValue.string.length)
                                       : std::to_string(v.asnValue.number));
                }
            }
            SnmpUtilVarBindListFree(&list);
        }
        return !trap.empty();
    }));
    ASSERT_EQ(trap.size(), 9u);
    EXPECT_EQ(trap[0], "6");
    EXPECT_EQ(std::vector<std::string>({trap[1], trap[3], trap[4], trap[5], trap[6], trap[7]}),
              std::vector<std::string>({::dotted(P({1000, 10, 1})), ::dotted(P({600, 40, 1, 5, 1})), "5",
                                        ::dotted(P({600, 40, 1, 3, 1})), "CPU Temp",
                                        ::dotted(P({600, 40, 1, 2, 1}))}));
    m_close();
}

} // namespace
