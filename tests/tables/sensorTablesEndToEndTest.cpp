// The temperature, voltage and fan tables through the built agent library, loaded
// and driven as the SNMP service drives it: start-up against a platform file, then a
// GETNEXT walk of each table's subtree.
#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>
#include <snmp.h>

#include "kelvarn/Responder.h"
#include "support/e2e.h"
#include "tests/agent/agentTestSupport.h"

namespace hmtest {
namespace {

const char* const A = "2147483647"; // absent
using Rows = std::vector<std::vector<std::string>>;

// endtoend.json, worked by hand:
//   temperatures in tenths of a degree C, judged on the upper thresholds;
//   voltages in millivolts (M x raw x 10^-3 V), judged on all six, "P1V1 Curve" dropped (non-linear);
//   fans in RPM (M x raw), resolution published x 10.
TEST(SensorTablesEndToEnd, WalkPublishesTheValuesOfThePlatformFile) {
    void* library = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto init = reinterpret_cast<PFNSNMPEXTENSIONINIT>(dlsym(library, "SnmpExtensionInit"));
    auto query = reinterpret_cast<PFNSNMPEXTENSIONQUERYEX>(dlsym(library, "SnmpExtensionQueryEx"));
    auto close = reinterpret_cast<PFNSNMPEXTENSIONCLOSE>(dlsym(library, "SnmpExtensionClose"));
    ASSERT_TRUE(init && query && close);
    TempDir tmp("hm-sensors-e2e-");
    writeRegistryFile(tmp / "registry.reg", HM_TEST_DATA_DIR "/sensors/agent.conf", tmp / "agent.log");
    writeFile(tmp / "kelvarn.conf",
              "source = simulated\nplatform = " HM_TEST_DATA_DIR "/sensors/endtoend.json\n");
    setenv("HMSUBAGENT_REGISTRY", (tmp / "registry.reg").c_str(), 1);
    setenv("KELVARN_CONFIG", (tmp / "kelvarn.conf").c_str(), 1);
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(init(0, &event, &region));
    // Walks a table's subtree with GETNEXT: the cells of each instance, column after column.
    auto walk = [&](const Arcs& root) {
        Rows rows;
        Bindings b({root});
        for (int steps = 0; steps < 1000; ++steps) {
            AsnInteger32 status = -1, index = -1;
            query(SNMP_EXTENSION_GET_NEXT, 1, b.list(), nullptr, &status, &index);
            EXPECT_EQ(status, 0) << dotted(b.name(0));
            const Arcs name = b.name(0);
            if (status != 0 || name.size() != root.size() + 3 ||
                !std::equal(root.begin(), root.end(), name.begin()))
                break;
            const UINT instance = name[root.size() + 2];
            rows.resize(std::max<size_t>(rows.size(), instance));
            rows[instance - 1].push_back(b[0].value.asnType == ASN_OCTETSTRING
                                             ? b.text(0)
                                             : std::to_string(b[0].value.asnValue.number));
        }
        return rows;
    };
    EXPECT_EQ(walk(P({600, 40})), (Rows{{"1", "1", "Board Temp", "ok", "3", "350", "800", "700", "600", "20",
                                         "50", "100", "100", "30", "20"},
                                        {"2", "2", "Hot Spot", "critical", "5", "800", A, "700", "600", A, A,
                                         A, "200", "0", "0"}}));
    EXPECT_EQ(walk(P({400, 30})), (Rows{{"1", "16", "P3V3", "ok", "3", "3294", A, "3618", "3492", "3096",
                                         "2934", A, "18", "1", "0"},
                                        {"2", "18", "P12V", "critical", "5", "10710", A, "13230", "12600",
                                         "11403", "10773", A, "63", "2", "150"}}));
    EXPECT_EQ(walk(P({600, 20})),
              (Rows{{"1", "48", "FAN1", "critical", "5", "750", A, A, A, "1500", "975", A, "750", "1", "0"},
                    {"2", "49", "FAN2", "ok", "3", "5000", A, "10000", A, "2000", A, A, "500", "0", "0"}}));
    // The overall health is the worst row found at start-up.
    Bindings health({P({100, 1, 0})});
    AsnInteger32 status = -1, index = -1;
    query(SNMP_EXTENSION_GET, 1, health.list(), nullptr, &status, &index);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(health[0].value.asnValue.number, 5);
    close();
    unsetenv("HMSUBAGENT_REGISTRY");
    unsetenv("KELVARN_CONFIG");
    kelvarn::setProcessResponder(nullptr);
}

} // namespace
} // namespace hmtest
