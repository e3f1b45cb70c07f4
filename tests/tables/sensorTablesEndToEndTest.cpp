// The temperature, voltage and fan tables through the built agent library, loaded
// and driven as the SNMP service drives it: start-up against a platform file (or
// the demo server), then a GETNEXT walk of each table's subtree.
#include <dlfcn.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>
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

// Column c of instance k of one table, as text.
using Table = std::map<std::pair<UINT, UINT>, std::string>;
using Rows = std::vector<std::vector<std::string>>;

// The listed columns of every instance, in instance order ("-" where a cell is missing).
Rows rowsOf(const Table& t, const std::vector<UINT>& columns) {
    UINT count = 0;
    for (const auto& cell : t)
        count = std::max(count, cell.first.second);
    Rows rows(count);
    for (UINT k = 1; k <= count; ++k)
        for (UINT c : columns)
            rows[k - 1].push_back(t.count({c, k}) ? t.at({c, k}) : "-");
    return rows;
}

void* library() {
    static void* handle = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <class F> F entry(const char* name) {
    return reinterpret_cast<F>(dlsym(library(), name));
}

class SensorTablesEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(library(), nullptr) << dlerror();
        m_init = entry<PFNSNMPEXTENSIONINIT>("SnmpExtensionInit");
        m_query = entry<PFNSNMPEXTENSIONQUERYEX>("SnmpExtensionQueryEx");
        m_close = entry<PFNSNMPEXTENSIONCLOSE>("SnmpExtensionClose");
        ASSERT_TRUE(m_init && m_query && m_close);
        writeRegistryFile(m_tmp / "registry.reg", HM_TEST_DATA_DIR "/sensors/agent.conf", m_log);
        setenv("HMSUBAGENT_REGISTRY", (m_tmp / "registry.reg").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("HMSUBAGENT_REGISTRY");
        unsetenv("KELVARN_CONFIG");
        kelvarn::setProcessResponder(nullptr);
    }

    // The query service serves the platform file tests/data/sensors/<name>.
    void usePlatform(const std::string& name) {
        writeFile(m_tmp / "kelvarn.conf",
                  "source = simulated\nplatform = " HM_TEST_DATA_DIR "/sensors/" + name + "\n");
        setenv("KELVARN_CONFIG", (m_tmp / "kelvarn.conf").c_str(), 1);
        kelvarn::setProcessResponder(nullptr); // forget any source opened before
    }

    void start() {
        HANDLE event = nullptr;
        AsnObjectIdentifier region{0, nullptr};
        ASSERT_TRUE(m_init(0, &event, &region));
    }

    // Walks subtree `root` with GETNEXT and returns what it holds, by (column, instance).
    Table walk(const Arcs& root) {
        Table t;
        Bindings b({root});
        for (int steps = 0; steps < 1000; ++steps) {
            AsnInteger32 status = -1;
            AsnInteger32 index = -1;
            m_query(SNMP_EXTENSION_GET_NEXT, 1, b.list(), nullptr, &status, &index);
            EXPECT_EQ(status, 0) << dotted(b.name(0));
            const Arcs name = b.name(0);
            if (status != 0 || name.size() != root.size() + 3 ||
                !std::equal(root.begin(), root.end(), name.begin()))
                break;
            const UINT column = name[root.size() + 1];
            const UINT instance = name[root.size() + 2];
            t[{column, instance}] = b[0].value.asnType == ASN_OCTETSTRING
                                        ? b.text(0)
                                        : std::to_string(b[0].value.asnValue.number);
        }
        return t;
    }

    int32_t getInteger(const Arcs& name) {
        Bindings b({name});
        AsnInteger32 status = -1;
        AsnInteger32 index = -1;
        m_query(SNMP_EXTENSION_GET, 1, b.list(), nullptr, &status, &index);
        EXPECT_EQ(status, 0) << dotted(name);
        return b[0].value.asnValue.number;
    }

    // Health-list insertions made while the lists were seeded at start-up.
    size_t seededInsertions(const std::string& log) {
        const size_t from = log.find("seedHealthLists() called\n");
        const size_t to = log.find("\n End of seedHealthLists()");
        if (from == std::string::npos || to == std::string::npos)
            return 0;
        size_t n = 0;
        for (size_t at = log.find("insertElementByDeviceId() called \n", from); at < to;
             at = log.find("insertElementByDeviceId() called \n", at + 1))
            ++n;
        return n;
    }

    PFNSNMPEXTENSIONINIT m_init = nullptr;
    PFNSNMPEXTENSIONQUERYEX m_query = nullptr;
    PFNSNMPEXTENSIONCLOSE m_close = nullptr;
    TempDir m_tmp{"hm-sensors-e2e-"};
    std::string m_log = m_tmp / "agent.log";
};

const Arcs kVoltage = P({400, 30});
const Arcs kFans = P({600, 20});
const Arcs kTemperature = P({600, 40});
const Arcs kHealth = P({100, 1, 0});

// endtoend.json, worked by hand:
//   temperatures in tenths of a degree C, judged on the upper thresholds;
//   voltages in millivolts (M x raw x 10^-3 V), judged on all six, "P1V1 Curve" dropped (non-linear);
//   fans in RPM (M x raw), resolution published x 10.
TEST_F(SensorTablesEndToEnd, WalkPublishesTheValuesOfThePlatformFile) {
    usePlatform("endtoend.json");
    start();
    // Every cell of the 15 columns, and nothing else.
    auto whole = [this](const Arcs& root) {
        const Table t = walk(root);
        const Rows rows = rowsOf(t, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
        EXPECT_EQ(t.size(), 15 * rows.size());
        return rows;
    };
    EXPECT_EQ(whole(kTemperature), (Rows{{"1", "1", "Board Temp", "ok", "3", "350", "800", "700", "600", "20",
                                          "50", "100", "100", "30", "20"},
                                         {"2", "2", "Hot Spot", "critical", "5", "800", A, "700", "600", A, A,
                                          A, "200", "0", "0"}}));
    EXPECT_EQ(whole(kVoltage), (Rows{{"1", "16", "P3V3", "ok", "3", "3294", A, "3618", "3492", "3096", "2934",
                                      A, "18", "1", "0"},
                                     {"2", "18", "P12V", "critical", "5", "10710", A, "13230", "12600",
                                      "11403", "10773", A, "63", "2", "150"}}));
    EXPECT_EQ(whole(kFans),
              (Rows{{"1", "48", "FAN1", "critical", "5", "750", A, A, A, "1500", "975", A, "750", "1", "0"},
                    {"2", "49", "FAN2", "ok", "3", "5000", A, "10000", A, "2000", A, A, "500", "0", "0"}}));
    // The overall health is the worst row found at start-up; each of the three rows that
    // are not "ok" went into the health lists.
    EXPECT_EQ(getInteger(kHealth), 5);
    m_close();
    const std::string log = readFile(m_log);
    EXPECT_TRUE(traced(log, "\n\n After VoltageProbe Healthstatus is 5:"));
    EXPECT_EQ(seededInsertions(log), 3u);
}

// The built-in demo server (no service configuration), from service/data/demo-platform.json.
TEST_F(SensorTablesEndToEnd, DemoServerRowsMatchTheDemoPlatform) {
    if (access("/etc/kelvarn/kelvarn.conf", F_OK) == 0)
        GTEST_SKIP() << "a system-wide service configuration replaces the demo server";
    unsetenv("KELVARN_CONFIG");
    kelvarn::setProcessResponder(nullptr);
    start();

    // Each table's ids in walk order: "P1V1 PCH" (25) and "FAN6 Rear" (53), non-linear, are dropped.
    const Rows temperatures = rowsOf(walk(kTemperature), {2, 3, 5, 6, 8, 11}),
               voltages = rowsOf(walk(kVoltage), {2, 3, 5, 6, 8, 11}),
               fans = rowsOf(walk(kFans), {2, 3, 5, 6, 8, 11});
    auto ids = [](const Rows& rows) {
        std::string out;
        for (const auto& row : rows)
            out += row[0] + " ";
        return out;
    };
    EXPECT_EQ(ids(temperatures), "1 2 3 4 5 6 7 8 9 10 ");
    EXPECT_EQ(ids(voltages), "16 17 18 19 20 21 22 23 24 26 27 ");
    EXPECT_EQ(ids(fans), "48 49 50 51 52 56 57 ");
    // Columns id, description, status, reading, upper and lower critical of the rows with a rule
    // of their own: tenths of a degree ("PCH Temp" counts 0.5 degree per raw step), millivolts,
    // RPM (75 per raw step); the compact records of a table's sensor type are rows without
    // reading or thresholds.
    EXPECT_EQ((Rows{temperatures[0], temperatures[3], temperatures[6], voltages[4], voltages[9], voltages[10],
                    fans[3], fans[6]}),
              (Rows{{"1", "Inlet Temp", "3", "240", "420", "30"},
                    {"4", "CPU2 Temp", "4", "870", "900", A},
                    {"7", "PCH Temp", "3", "550", "950", A},
                    {"20", "P12V", "4", "11214", "13230", "10773"},
                    {"26", "PSU1 Vin", "3", "230000", "270000", "170000"},
                    {"27", "VRM Status", "2", "0", A, A},
                    {"51", "FAN4", "4", "1350", A, "975"},
                    {"57", "FAN6 Presence", "2", "0", A, A}}));
    EXPECT_GE(getInteger(kHealth), 4);
    m_close();
    // CPU2 Temp, P12V, VRM Status, FAN4, Fan Redundancy and FAN6 Presence are not "ok".
    EXPECT_GE(seededInsertions(readFile(m_log)), 6u);
}

} // namespace
} // namespace hmtest
