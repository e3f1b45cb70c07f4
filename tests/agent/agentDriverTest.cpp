// Drives the built agent library the way the SNMP service does: loaded by path,
// entry points resolved by name, regions collected, the whole view walked with
// GETNEXT, SET phases tried, traps collected, and closed.
#include <dlfcn.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <windows.h>
#include <snmp.h>

#include "agentTestSupport.h"

namespace hmtest {
namespace {

struct Agent {
    PFNSNMPEXTENSIONINIT init = nullptr;
    PFNSNMPEXTENSIONINITEX initEx = nullptr;
    PFNSNMPEXTENSIONQUERYEX query = nullptr;
    PFNSNMPEXTENSIONTRAP trap = nullptr;
    PFNSNMPEXTENSIONCLOSE close = nullptr;
    int (*assertTrap)() = nullptr;
};

// Loaded once per process and never unloaded: the agent's event poller thread keeps
// running in it after close, as it does under the SNMP service.
void* library() {
    static void* handle = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <class F> F entry(const char* name) {
    return reinterpret_cast<F>(dlsym(library(), name));
}

class AgentDriver : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(library(), nullptr) << dlerror();
        m_agent.init = entry<PFNSNMPEXTENSIONINIT>("SnmpExtensionInit");
        m_agent.initEx = entry<PFNSNMPEXTENSIONINITEX>("SnmpExtensionInitEx");
        m_agent.query = entry<PFNSNMPEXTENSIONQUERYEX>("SnmpExtensionQueryEx");
        m_agent.trap = entry<PFNSNMPEXTENSIONTRAP>("SnmpExtensionTrap");
        m_agent.close = entry<PFNSNMPEXTENSIONCLOSE>("SnmpExtensionClose");
        m_agent.assertTrap = entry<int (*)()>("AssertTrap");
        ASSERT_TRUE(m_agent.init && m_agent.initEx && m_agent.query && m_agent.trap && m_agent.close &&
                    m_agent.assertTrap);

        m_registry = scratchPath("registry.reg");
        m_log = scratchPath("agent.log");
        std::ofstream reg(m_registry);
        reg << "Windows Registry Editor Version 5.00\r\n\r\n"
            << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
            << "\"ConfigFile\"=\"" << HM_TEST_DATA_DIR << "/agent/hmSubagent.conf\"\r\n"
            << "\"LogFile\"=\"" << m_log << "\"\r\n";
        reg.close();
        setenv("HMSUBAGENT_REGISTRY", m_registry.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("HMSUBAGENT_REGISTRY");
        unlink(m_registry.c_str());
        unlink(m_log.c_str());
    }

    Answer query(UINT type, Bindings& bindings) {
        Answer answer;
        m_agent.query(type, 1, bindings.list(), nullptr, &answer.status, &answer.index);
        return answer;
    }

    Agent m_agent;
    std::string m_registry;
    std::string m_log;
};

TEST_F(AgentDriver, ServesTheViewAsTheSnmpServiceDrivesIt) {
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(m_agent.init(12345, &event, &region));
    ASSERT_NE(event, nullptr);
    EXPECT_GE(HmCompatEventFd(event), 0);
    std::vector<Arcs> regions{arcsOf(region)};
    AsnObjectIdentifier next{0, nullptr};
    while (regions.size() < 20 && m_agent.initEx(&next))
        regions.push_back(arcsOf(next));
    ASSERT_EQ(regions.size(), 14u);
    EXPECT_EQ(regions.front(), P({100}));
    EXPECT_EQ(regions[12], P({600, 40}));
    EXPECT_EQ(regions.back(), P({700, 10}));

    // Walk the whole view.
    Bindings walk({Arcs{1, 3, 6, 1, 4, 1, 64999}});
    std::set<Arcs> seen;
    std::map<UINT, std::string> texts;
    std::map<UINT, int32_t> numbers;
    Arcs previous;
    int steps = 0;
    for (; steps < 5000; ++steps) {
        Answer a = query(SNMP_EXTENSION_GET_NEXT, walk);
        ASSERT_EQ(a.status, 0) << dotted(walk.name(0));
        Arcs name = walk.name(0);
        if (name == kEndOfView)
            break;
        ASSERT_TRUE(previous < name) << dotted(previous) << " then " << dotted(name);
        ASSERT_TRUE(seen.insert(name).second) << dotted(name);
        previous = name;
        const Arcs system = P({100});
        if (name.size() == system.size() + 2 && std::equal(system.begin(), system.end(), name.begin())) {
            if (walk[0].value.asnType == ASN_OCTETSTRING)
                texts[name[system.size()]] = walk.text(0);
            else
                numbers[name[system.size()]] = walk[0].value.asnValue.number;
        }
    }
    ASSERT_LT(steps, 5000);
    EXPECT_GE(seen.size(), 10u);
    RecordProperty("variables", static_cast<int>(seen.size()));

    // The system group as the configuration gives it, texts cut to 63 characters.
    EXPECT_EQ(texts[2], "Two-socket rack server");
    EXPECT_EQ(numbers[3], 42);
    EXPECT_EQ(numbers[4], 1);
    EXPECT_EQ(numbers[5], 0); // sets stay disabled whatever the file says
    EXPECT_EQ(texts[6], "Example Systems");
    EXPECT_EQ(texts[7], "Fleet Server " + std::string(50, 'X'));
    EXPECT_EQ(texts[8], "3.1.4");
    EXPECT_EQ(texts[9], "2026.11.21");
    EXPECT_EQ(texts[10], "Hardware monitoring agent for rack servers and blades of the ex");
    ASSERT_EQ(numbers.count(1), 1u);
    EXPECT_GE(numbers[1], 1);
    EXPECT_LE(numbers[1], 6);

    // Sets are disabled by the configuration reader: a write answers readOnly.
    Bindings set({P({100, 3, 0})});
    set.setInteger(0, 7);
    Answer a = query(SNMP_EXTENSION_SET_TEST, set);
    EXPECT_EQ(a.status, SNMP_ERRORSTATUS_READONLY);
    EXPECT_EQ(a.index, 1);
    EXPECT_EQ(query(SNMP_EXTENSION_SET_CLEANUP, set).status, 0);

    // Every tenth query wakes the trap path; the host sees it on the event.
    while (WaitForSingleObject(event, 0) == WAIT_OBJECT_0) {
    }
    Bindings none({});
    for (int n = 0; n < 10; ++n)
        query(SNMP_EXTENSION_GET, none);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);

    // Collect whatever traps are queued; each is an enterprise-specific trap under
    // the agent's event tree.
    for (int n = 0; n < 100; ++n) {
        AsnObjectIdentifier enterprise{0, nullptr};
        AsnInteger32 generic = 0;
        AsnInteger32 specific = 0;
        AsnTimeticks stamp = 0;
        SnmpVarBindList bindings{nullptr, 0};
        if (!m_agent.trap(&enterprise, &generic, &specific, &stamp, &bindings))
            break;
        EXPECT_EQ(generic, SNMP_GENERICTRAP_ENTERSPECIFIC);
        Arcs events = P({1000});
        Arcs got = arcsOf(enterprise);
        EXPECT_TRUE(got.size() > events.size() && std::equal(events.begin(), events.end(), got.begin()))
            << dotted(got);
        SnmpUtilVarBindListFree(&bindings);
    }

    m_agent.close();
    const std::string log = readFile(m_log);
    EXPECT_TRUE(traced(log, "Leaving 1 SNMPExtensionInit\n"));
    EXPECT_TRUE(traced(log, "pNextSupportedRegion is 1.3.6.1.4.1.64999.2.10.3.5.700.10\n"));
    EXPECT_TRUE(traced(log, "\n\n InitDone \n\n"));
    EXPECT_TRUE(traced(log, "SNMP Extension Agent closing\n"));
}

TEST_F(AgentDriver, StartsAgainAfterClose) {
    for (int round = 0; round < 3; ++round) {
        HANDLE event = nullptr;
        AsnObjectIdentifier region{0, nullptr};
        ASSERT_TRUE(m_agent.init(0, &event, &region)) << round;
        Bindings get({P({100, 6, 0})});
        Answer a = query(SNMP_EXTENSION_GET, get);
        EXPECT_EQ(a.status, 0);
        EXPECT_EQ(get.text(0), "Example Systems");
        m_agent.close();
    }
}

} // namespace
} // namespace hmtest
