// The agent's temperature, voltage and fan tables over a BMC simulator
// (OpenIPMI's ipmi_sim) read through the IPMI source: the built agent library
// driven through its entry points, values checked against ipmitool.
#include <dlfcn.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
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
using hmtest::sensorList;

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

// A value as the tables publish it: the number times the table's multiplier,
// taken in single precision and truncated; "na" is the absent value.
std::string scaled(const std::string& ipmitoolValue, float multiplier) {
    if (ipmitoolValue == "na")
        return "2147483647";
    return std::to_string(
        static_cast<int32_t>(static_cast<float>(std::atof(ipmitoolValue.c_str())) * multiplier));
}

// Column `column` of the table's first row.
std::string cell(const Table& t, UINT column) {
    auto it = t.find({column, 1});
    return it == t.end() ? "<absent>" : it->second;
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
        std::ofstream(dir + "/bmc.pass") << "test\n";
        chmod((dir + "/bmc.pass").c_str(), 0600);
        std::ofstream(dir + "/kelvarn.conf")
            << "bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=" << m_sim.port()
            << "\nipmi-user=ipmiusr\nipmi-password-file=bmc.pass\nipmi-workarounds=opensesspriv\n"
               "ipmi-refresh-ms=300\nipmi-sdr-cache=cache\n";
        std::ofstream(dir + "/registry.reg")
            << "Windows Registry Editor Version 5.00\r\n\r\n"
            << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
            << "\"ConfigFile\"=\"" << HM_TEST_DATA_DIR << "/ipmi/agent.conf\"\r\n"
            << "\"LogFile\"=\"" << dir << "/agent.log\"\r\n";
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

TEST_F(AgentOverIpmiSim, SensorTablesEqualIpmitoolAndKeepAnsweringWhileTheBmcIsAway) {
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(m_init(0, &event, &region));
    const auto rows = sensorList(m_sim.ipmitool("sensor list"));
    ASSERT_EQ(rows.size(), 5u);
    struct Expect {
        Arcs table;
        const char* sensor;
        float multiplier;
    };
    // Temperatures in tenths of a degree, voltages in millivolts, fans in RPM;
    // column 3 the name, 6 the reading, 8 the upper and 11 the lower critical threshold.
    const Expect expected[] = {
        {P({600, 40}), "CPU Temp", 10.0f}, {P({400, 30}), "12V", 1000.0f}, {P({600, 20}), "FAN1", 1.0f}};
    for (const Expect& e : expected) {
        SCOPED_TRACE(e.sensor);
        int errors = 0;
        Table t = walk(e.table, errors);
        EXPECT_EQ(errors, 0);
        const auto& row = rows.at(e.sensor);
        EXPECT_EQ(cell(t, 3), e.sensor);
        EXPECT_EQ(cell(t, 6), scaled(row[0], e.multiplier));
        EXPECT_EQ(cell(t, 8), scaled(row[7], e.multiplier));
        EXPECT_EQ(cell(t, 11), scaled(row[4], e.multiplier));
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
    bool seen = false;
    for (int i = 0; i < 300 && !seen; ++i) {
        int errors = 0;
        seen = cell(walk(P({600, 40}), errors), 6) == "520";
        if (!seen)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_TRUE(seen);
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
    const std::string log = m_sim.dir() + "/agent.log";
    auto traced = [&](const std::string& text) {
        std::ifstream in(log);
        std::stringstream all;
        all << in.rdbuf();
        return all.str().find(text) != std::string::npos;
    };
    bool first = false;
    for (int i = 0; i < 200 && !first; ++i) {
        first = traced("First time reading the SEL. Structures related to SEL are initialized now.\n");
        if (!first)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_TRUE(first);
    ASSERT_NE(
        m_sim.console("sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x01 0x01 0x01 0x59 0x5b 0x5a").find("Added"),
        std::string::npos);
    const std::string enterprise = ::dotted(P({1000, 70}));
    bool found = false;
    for (int i = 0; i < 200 && !found; ++i) {
        for (;;) {
            AsnObjectIdentifier ent{0, nullptr};
            AsnInteger32 generic = -1, specific = -1;
            AsnTimeticks stamp = 0;
            SnmpVarBindList list{nullptr, 0};
            if (!m_trap(&ent, &generic, &specific, &stamp, &list))
                break;
            if (::dotted(hmtest::arcsOf(ent)) == enterprise && specific == 18) {
                found = true;
                EXPECT_EQ(generic, 6);
                ASSERT_EQ(list.len, 4u);
                EXPECT_EQ(::dotted(hmtest::arcsOf(list.list[0].name)), ::dotted(P({1000, 10, 1})));
                EXPECT_EQ(::dotted(hmtest::arcsOf(list.list[1].name)), ::dotted(P({600, 40, 1, 5, 1})));
                EXPECT_EQ(list.list[1].value.asnValue.number, 5);
                EXPECT_EQ(::dotted(hmtest::arcsOf(list.list[2].name)), ::dotted(P({600, 40, 1, 3, 1})));
                EXPECT_EQ(
                    std::string(reinterpret_cast<const char*>(list.list[2].value.asnValue.string.stream),
                                list.list[2].value.asnValue.string.length),
                    "CPU Temp");
                EXPECT_EQ(::dotted(hmtest::arcsOf(list.list[3].name)), ::dotted(P({600, 40, 1, 2, 1})));
            }
            SnmpUtilVarBindListFree(&list);
        }
        if (!found)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_TRUE(found);
    m_close();
}

} // namespace
