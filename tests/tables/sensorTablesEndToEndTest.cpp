// The temperature, voltage and fan tables through the built agent library, loaded
// and driven as the SNMP service drives it: start-up against a platform file, then a
// GETNEXT walk of each table's subtree.
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
    writeFile(m_tmp / "kelvarn.conf",
              "source = simulated\nplatform = " HM_TEST_DATA_DIR "/sensors/endtoend.json\n");
    setenv("KELVARN_CONFIG", (m_tmp / "kelvarn.conf").c_str(), 1);
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    ASSERT_TRUE(m_init(0, &event, &region));
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

} // namespace
} // namespace hmtest
