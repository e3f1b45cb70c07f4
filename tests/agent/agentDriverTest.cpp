// Drives the built agent library the way the SNMP service does: loaded by path,
// entry points resolved by name, regions collected, the whole view walked with
// GETNEXT, a SET tried, closed and started again.
#include <dlfcn.h>

#include "agentTestSupport.h"

namespace hmtest {
namespace {

// Loaded once per process and never unloaded: the agent's event poller thread keeps
// running in it after close, as it does under the SNMP service.
TEST(AgentDriver, ServesTheViewAsTheSnmpServiceDrivesIt) {
    void* library = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto init = reinterpret_cast<PFNSNMPEXTENSIONINIT>(dlsym(library, "SnmpExtensionInit"));
    auto initEx = reinterpret_cast<PFNSNMPEXTENSIONINITEX>(dlsym(library, "SnmpExtensionInitEx"));
    auto queryEx = reinterpret_cast<PFNSNMPEXTENSIONQUERYEX>(dlsym(library, "SnmpExtensionQueryEx"));
    auto close = reinterpret_cast<PFNSNMPEXTENSIONCLOSE>(dlsym(library, "SnmpExtensionClose"));
    ASSERT_TRUE(init && initEx && queryEx && close && dlsym(library, "SnmpExtensionTrap") &&
                dlsym(library, "AssertTrap"));
    auto query = [&](UINT type, Bindings& bindings) {
        Answer answer;
        queryEx(type, 1, bindings.list(), nullptr, &answer.status, &answer.index);
        return answer.status;
    };
    TempDir dir("hmagent-driver-");
    writeFile(dir / "registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n"
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                                    "\"ConfigFile\"=\"" HM_TEST_DATA_DIR "/agent/hmSubagent.conf\"\r\n"
                                    "\"LogFile\"=\"" +
                                        (dir / "agent.log") + "\"\r\n");
    setenv("HMSUBAGENT_REGISTRY", (dir / "registry.reg").c_str(), 1);

    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(init(12345, &event, &region));
    EXPECT_GE(HmCompatEventFd(event), 0);
    std::vector<Arcs> regions{arcsOf(region)};
    while (regions.size() < 20 && initEx(&region))
        regions.push_back(arcsOf(region));
    EXPECT_EQ(regions, std::vector<Arcs>(std::begin(kBases), std::end(kBases)));

    // Walk the whole view: the names strictly increase up to the end of the view.
    Bindings walk({Arcs{1, 3, 6, 1, 4, 1, 64999}});
    std::map<UINT, std::string> system; // the system group's values, integers in decimal
    Arcs previous;
    for (int steps = 0; walk.name(0) != kEndOfView; ++steps) {
        ASSERT_LT(steps, 5000);
        ASSERT_EQ(query(SNMP_EXTENSION_GET_NEXT, walk), 0) << dotted(walk.name(0));
        const Arcs name = walk.name(0);
        ASSERT_TRUE(previous < name) << dotted(previous) << " then " << dotted(name);
        previous = name;
        if (name.size() == 14 && name[11] == 100)
            system[name[12]] = walk.value(0);
    }
    // The system group as the configuration gives it, texts cut to 63 characters.
    EXPECT_TRUE(system[1] >= "1" && system[1] <= "6") << system[1];
    system.erase(1);
    EXPECT_EQ(system, (std::map<UINT, std::string>{
                          {2, "Two-socket rack server"},
                          {3, "42"},
                          {4, "1"},
                          {5, "0"},
                          {6, "Example Systems"},
                          {7, "Fleet Server " + std::string(50, 'X')},
                          {8, "3.1.4"},
                          {9, "2026.11.21"},
                          {10, "Hardware monitoring agent for rack servers and blades of the ex"}}));
    // Sets stay disabled whatever the file says: a write answers readOnly.
    Bindings set({P({100, 3, 0})});
    set.setInteger(0, 7);
    EXPECT_EQ(query(SNMP_EXTENSION_SET_TEST, set), SNMP_ERRORSTATUS_READONLY);
    close();
    EXPECT_TRUE(
        tracedAll(readFile(dir / "agent.log"), {"\n\n InitDone \n\n", "SNMP Extension Agent closing\n"}));

    // It starts again after close, as often as the service restarts it.
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(init(0, &event, &region)) << round;
        Bindings get({P({100, 6, 0})});
        EXPECT_EQ(query(SNMP_EXTENSION_GET, get), 0);
        EXPECT_EQ(get.text(0), "Example Systems");
        close();
    }
    unsetenv("HMSUBAGENT_REGISTRY");
}

} // namespace
} // namespace hmtest
