// Drives the built agent library the way the SNMP service does: loaded by path,
// entry points resolved by name, regions collected, the whole view walked with
// GETNEXT, a SET tried, closed and started again. The platform is a file of sensors whose
// published values were worked by hand:
//   temperatures in tenths of a degree C, judged on the upper thresholds;
//   voltages in millivolts (M x raw x 10^-3 V), judged on all six, "P1V1 Curve" dropped (non-linear);
//   fans in RPM (M x raw), resolution published x 10.
#include <dlfcn.h>

#include "agentTestSupport.h"
#include "support/e2e.h"

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
    writeRegistryFile(dir / "registry.reg", HM_TEST_DATA_DIR "/agent/hmSubagent.conf", dir / "agent.log");
    writeFile(dir / "kelvarn.conf",
              "source = simulated\nplatform = " HM_TEST_DATA_DIR "/sensors/endtoend.json\n");
    setenv("KELVARN_CONFIG", (dir / "kelvarn.conf").c_str(), 1);
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
    std::vector<std::string> system(10); // the system group's values, integers in decimal
    using Rows = std::vector<std::vector<std::string>>;
    std::map<UINT, Rows> tables; // by the subtree's first arc * 100 + its second
    Arcs previous;
    for (int steps = 0; walk.name(0) != kEndOfView; ++steps) {
        ASSERT_LT(steps, 5000);
        ASSERT_EQ(query(SNMP_EXTENSION_GET_NEXT, walk), 0) << dotted(walk.name(0));
        const Arcs name = walk.name(0);
        ASSERT_TRUE(previous < name) << dotted(previous) << " then " << dotted(name);
        previous = name;
        if (name.size() == 14 && name[11] == 100)
            system.at(name[12] - 1) = walk.value(0);
        if (name.size() == 16) {
            Rows& rows = tables[name[11] * 100 + name[12]];
            rows.resize(std::max<size_t>(rows.size(), name[15]));
            rows[name[15] - 1].push_back(walk.value(0));
        }
    }
    // The system group as the configuration gives it, texts cut to 63 characters; the
    // overall health is the worst row found at start-up.
    EXPECT_EQ(system,
              (std::vector<std::string>{"5", "Two-socket rack server", "42", "1", "0", "Example Systems",
                                        "Fleet Server " + std::string(50, 'X'), "3.1.4", "2026.11.21",
                                        "Hardware monitoring agent for rack servers and blades of the ex"}));
    const char* const A = "2147483647"; // absent
    EXPECT_EQ(
        tables,
        (std::map<UINT, Rows>{
            {60040,
             {{"1", "1", "Board Temp", "ok", "3", "350", "800", "700", "600", "20", "50", "100", "100", "30",
               "20"},
              {"2", "2", "Hot Spot", "critical", "5", "800", A, "700", "600", A, A, A, "200", "0", "0"}}},
            {40030,
             {{"1", "16", "P3V3", "ok", "3", "3294", A, "3618", "3492", "3096", "2934", A, "18", "1", "0"},
              {"2", "18", "P12V", "critical", "5", "10710", A, "13230", "12600", "11403", "10773", A, "63",
               "2", "150"}}},
            {60020,
             {{"1", "48", "FAN1", "critical", "5", "750", A, A, A, "1500", "975", A, "750", "1", "0"},
              {"2", "49", "FAN2", "ok", "3", "5000", A, "10000", A, "2000", A, A, "500", "0", "0"}}}}));
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
    unsetenv("KELVARN_CONFIG");
}

} // namespace
} // namespace hmtest
