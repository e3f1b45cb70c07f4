// Drives the built agent library the way the SNMP service does: loaded by path,
// entry points resolved by name, regions collected, the whole view walked with
// GETNEXT, SET phases tried, traps collected, and closed.
#include <dlfcn.h>

#include <windows.h>

#include "agentTestSupport.h"

namespace hmtest {
namespace {

// Loaded once per process and never unloaded: the agent's event poller thread keeps
// running in it after close, as it does under the SNMP service.
template <class F> F entry(const char* name) {
    static void* handle = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    F f = handle == nullptr ? nullptr : reinterpret_cast<F>(dlsym(handle, name));
    EXPECT_NE(f, nullptr) << name << " " << (handle == nullptr ? dlerror() : "");
    return f;
}

class AgentDriver : public ::testing::Test {
protected:
    void SetUp() override {
        init = entry<PFNSNMPEXTENSIONINIT>("SnmpExtensionInit");
        initEx = entry<PFNSNMPEXTENSIONINITEX>("SnmpExtensionInitEx");
        queryEx = entry<PFNSNMPEXTENSIONQUERYEX>("SnmpExtensionQueryEx");
        trap = entry<PFNSNMPEXTENSIONTRAP>("SnmpExtensionTrap");
        close = entry<PFNSNMPEXTENSIONCLOSE>("SnmpExtensionClose");
        ASSERT_TRUE(init && initEx && queryEx && trap && close && entry<int (*)()>("AssertTrap"));
        writeFile(m_dir / "registry.reg",
                  "Windows Registry Editor Version 5.00\r\n\r\n"
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                  "\"ConfigFile\"=\"" HM_TEST_DATA_DIR "/agent/hmSubagent.conf\"\r\n"
                  "\"LogFile\"=\"" +
                      (m_dir / "agent.log") + "\"\r\n");
        setenv("HMSUBAGENT_REGISTRY", (m_dir / "registry.reg").c_str(), 1);
    }
    void TearDown() override { unsetenv("HMSUBAGENT_REGISTRY"); }

    Answer query(UINT type, Bindings& bindings) {
        Answer answer;
        queryEx(type, 1, bindings.list(), nullptr, &answer.status, &answer.index);
        return answer;
    }

    PFNSNMPEXTENSIONINIT init = nullptr;
    PFNSNMPEXTENSIONINITEX initEx = nullptr;
    PFNSNMPEXTENSIONQUERYEX queryEx = nullptr;
    PFNSNMPEXTENSIONTRAP trap = nullptr;
    PFNSNMPEXTENSIONCLOSE close = nullptr;
    TempDir m_dir{"hmagent-driver-"};
};

TEST_F(AgentDriver, ServesTheViewAsTheSnmpServiceDrivesIt) {
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(init(12345, &event, &region));
    ASSERT_NE(event, nullptr);
    EXPECT_GE(HmCompatEventFd(event), 0);
    std::vector<Arcs> regions{arcsOf(region)};
    AsnObjectIdentifier next{0, nullptr};
    while (regions.size() < 20 && initEx(&next))
        regions.push_back(arcsOf(next));
    ASSERT_EQ(regions.size(), 14u);
    EXPECT_EQ(regions[12], P({600, 40}));

    // Walk the whole view: the names strictly increase up to the end of the view.
    Bindings walk({Arcs{1, 3, 6, 1, 4, 1, 64999}});
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
        previous = name;
        if (name.size() == 14 && name[11] == 100 && walk[0].value.asnType == ASN_OCTETSTRING)
            texts[name[12]] = walk.text(0);
        else if (name.size() == 14 && name[11] == 100)
            numbers[name[12]] = walk[0].value.asnValue.number;
    }
    ASSERT_LT(steps, 5000);
    // The system group as the configuration gives it, texts cut to 63 characters; sets stay
    // disabled whatever the file says.
    EXPECT_EQ(texts, (std::map<UINT, std::string>{
                         {2, "Two-socket rack server"},
                         {6, "Example Systems"},
                         {7, "Fleet Server " + std::string(50, 'X')},
                         {8, "3.1.4"},
                         {9, "2026.11.21"},
                         {10, "Hardware monitoring agent for rack servers and blades of the ex"}}));
    ASSERT_EQ(numbers.size(), 4u);
    EXPECT_TRUE(numbers[1] >= 1 && numbers[1] <= 6) << numbers[1];
    EXPECT_EQ(std::to_string(numbers[3]) + " " + std::to_string(numbers[4]) + " " +
                  std::to_string(numbers[5]),
              "42 1 0");

    // Sets are disabled by the configuration reader: a write answers readOnly.
    Bindings set({P({100, 3, 0})});
    set.setInteger(0, 7);
    EXPECT_EQ(query(SNMP_EXTENSION_SET_TEST, set).status, SNMP_ERRORSTATUS_READONLY);

    // Collect whatever traps are queued; each is an enterprise-specific trap under
    // the agent's event tree.
    for (int n = 0; n < 100; ++n) {
        AsnObjectIdentifier enterprise{0, nullptr};
        AsnInteger32 generic = 0, specific = 0;
        AsnTimeticks stamp = 0;
        SnmpVarBindList bindings{nullptr, 0};
        if (!trap(&enterprise, &generic, &specific, &stamp, &bindings))
            break;
        EXPECT_EQ(generic, SNMP_GENERICTRAP_ENTERSPECIFIC);
        EXPECT_EQ(dotted(enterprise).rfind(kP + ".1000.", 0), 0u) << dotted(enterprise);
        SnmpUtilVarBindListFree(&bindings);
    }

    close();
    EXPECT_TRUE(
        tracedAll(readFile(m_dir / "agent.log"), {"\n\n InitDone \n\n", "SNMP Extension Agent closing\n"}));
    // It starts again after close, as often as the service restarts it.
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(init(0, &event, &region)) << round;
        Bindings get({P({100, 6, 0})});
        EXPECT_EQ(query(SNMP_EXTENSION_GET, get).status, 0);
        EXPECT_EQ(get.text(0), "Example Systems");
        close();
    }
}

} // namespace
} // namespace hmtest
