// The temperature, voltage and fan tables through the built agent library, loaded
// and driven as the SNMP service drives it: start-up against a platform file (or
// the demo server), then a GETNEXT walk of each table's subtree.
#include <dlfcn.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>
#include <snmp.h>

#include "kelvarn/Responder.h"
#include "tests/agent/agentTestSupport.h"

namespace hmtest {
namespace {

const std::string A = "2147483647"; // absent

// Column c (1 to 15) of instance k of one table, as text.
using Table = std::map<std::pair<UINT, UINT>, std::string>;

// Expected rows, columns 1 to 15 in order: index, id, description, status name,
// status, reading, then the thresholds in MIB order, resolution, tolerance, accuracy.
Table expectedTable(const std::vector<std::vector<std::string>>& rows) {
    Table t;
    for (size_t k = 0; k < rows.size(); ++k)
        for (size_t c = 0; c < rows[k].size(); ++c)
            t[{static_cast<UINT>(c + 1), static_cast<UINT>(k + 1)}] = rows[k][c];
    return t;
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
        m_registry = scratchPath("registry.reg");
        m_log = scratchPath("agent.log");
        std::ofstream reg(m_registry);
        reg << "Windows Registry Editor Version 5.00\r\n\r\n"
            << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
            << "\"ConfigFile\"=\"" << HM_TEST_DATA_DIR << "/sensors/agent.conf\"\r\n"
            << "\"LogFile\"=\"" << m_log << "\"\r\n";
        reg.close();
        setenv("HMSUBAGENT_REGISTRY", m_registry.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("HMSUBAGENT_REGISTRY");
        unsetenv("KELVARN_CONFIG");
        kelvarn::setProcessResponder(nullptr);
        unlink(m_registry.c_str());
        unlink(m_log.c_str());
        if (!m_serviceConfig.empty())
            unlink(m_serviceConfig.c_str());
    }

    // The query service serves the platform file tests/data/sensors/<name>.
    void usePlatform(const std::string& name) {
        m_serviceConfig = scratchPath("kelvarn.conf");
        std::ofstream conf(m_serviceConfig);
        conf << "source = simulated\nplatform = " << HM_TEST_DATA_DIR << "/sensors/" << name << "\n";
        conf.close();
        setenv("KELVARN_CONFIG", m_serviceConfig.c_str(), 1);
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
        const std::string part = log.substr(from, to - from);
        size_t n = 0;
        for (size_t at = part.find("insertElementByDeviceId() called \n"); at != std::string::npos;
             at = part.find("insertElementByDeviceId() called \n", at + 1))
            ++n;
        return n;
    }

    PFNSNMPEXTENSIONINIT m_init = nullptr;
    PFNSNMPEXTENSIONQUERYEX m_query = nullptr;
    PFNSNMPEXTENSIONCLOSE m_close = nullptr;
    std::string m_registry, m_log, m_serviceConfig;
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
    EXPECT_EQ(walk(kTemperature),
              expectedTable({
                  {"1", "1", "Board Temp", "ok", "3", "350", "800", "700", "600", "20", "50", "100", "100",
                   "30", "20"},
                  {"2", "2", "Hot Spot", "critical", "5", "800", A, "700", "600", A, A, A, "200", "0", "0"},
              }));
    EXPECT_EQ(walk(kVoltage), expectedTable({
                                  {"1", "16", "P3V3", "ok", "3", "3294", A, "3618", "3492", "3096", "2934", A,
                                   "18", "1", "0"},
                                  {"2", "18", "P12V", "critical", "5", "10710", A, "13230", "12600", "11403",
                                   "10773", A, "63", "2", "150"},
                              }));
    EXPECT_EQ(walk(kFans),
              expectedTable({
                  {"1", "48", "FAN1", "critical", "5", "750", A, A, A, "1500", "975", A, "750", "1", "0"},
                  {"2", "49", "FAN2", "ok", "3", "5000", A, "10000", A, "2000", A, A, "500", "0", "0"},
              }));
    // The overall health is the worst row found at start-up; each of the three rows that
    // are not "ok" went into the health lists.
    EXPECT_EQ(getInteger(kHealth), 5);
    m_close();
    const std::string log = readFile(m_log);
    EXPECT_TRUE(traced(log, "\n\n After VoltageProbe Healthstatus is 5:"));
    EXPECT_EQ(seededInsertions(log), 3u);
}

// The built-in demo server (no service configuration), from service/data/demo-platform.json.
// Columns checked: id, description, status, reading, upper critical, lower critical.
TEST_F(SensorTablesEndToEnd, DemoServerRowsMatchTheDemoPlatform) {
    if (access("/etc/kelvarn/kelvarn.conf", F_OK) == 0)
        GTEST_SKIP() << "a system-wide service configuration replaces the demo server";
    unsetenv("KELVARN_CONFIG");
    kelvarn::setProcessResponder(nullptr);
    start();

    struct Row {
        const char* id;
        const char* description;
        const char* status;
        std::string reading, uc, lc;
    };
    auto check = [](const Table& t, const std::vector<Row>& rows) {
        size_t count = 0;
        for (const auto& cell : t)
            count = std::max<size_t>(count, cell.first.second);
        ASSERT_EQ(count, rows.size());
        for (size_t k = 0; k < rows.size(); ++k) {
            const UINT i = static_cast<UINT>(k + 1);
            const Row& r = rows[k];
            SCOPED_TRACE(r.description);
            EXPECT_EQ(t.at({2, i}), r.id);
            EXPECT_EQ(t.at({3, i}), r.description);
            EXPECT_EQ(t.at({5, i}), r.status);
            EXPECT_EQ(t.at({6, i}), r.reading);
            EXPECT_EQ(t.at({8, i}), r.uc);
            EXPECT_EQ(t.at({11, i}), r.lc);
        }
    };
    // Tenths of a degree; "PCH Temp" counts 0.5 degree per raw step.
    check(walk(kTemperature), {
                                  {"1", "Inlet Temp", "3", "240", "420", "30"},
                                  {"2", "Exhaust Temp", "3", "380", "700", A},
                                  {"3", "CPU1 Temp", "3", "520", "900", A},
                                  {"4", "CPU2 Temp", "4", "870", "900", A},
                                  {"5", "DIMM Zone1 Temp", "3", "410", "850", A},
                                  {"6", "DIMM Zone2 Temp", "3", "430", "850", A},
                                  {"7", "PCH Temp", "3", "550", "950", A},
                                  {"8", "PSU1 Temp", "3", "360", "650", A},
                                  {"9", "PSU2 Temp", "3", "370", "650", A},
                                  {"10", "Riser Temp", "3", "450", "750", A},
                              });
    // Millivolts; "P1V1 PCH" is non-linear and dropped; the compact "VRM Status" record
    // of the same sensor type is a row without reading or thresholds.
    check(walk(kVoltage), {
                              {"16", "CPU1 Vcore", "3", "1200", "1400", "1000"},
                              {"17", "CPU2 Vcore", "3", "1216", "1400", "1000"},
                              {"18", "P3V3", "3", "3294", "3618", "2934"},
                              {"19", "P5V", "3", "4992", "5746", "4238"},
                              {"20", "P12V", "4", "11214", "13230", "10773"},
                              {"21", "P1V5 DIMM", "3", "1504", "1704", "1304"},
                              {"22", "P1V8 AUX", "3", "1800", "2070", "1530"},
                              {"23", "P3V3 STBY", "3", "3312", "3618", "2934"},
                              {"24", "VBAT", "3", "3040", A, "2496"},
                              {"26", "PSU1 Vin", "3", "230000", "270000", "170000"},
                              {"27", "VRM Status", "2", "0", A, A},
                          });
    // RPM, 75 per raw step; "FAN6 Rear" is non-linear and dropped; the compact redundancy
    // and presence records are rows without thresholds.
    check(walk(kFans), {
                           {"48", "FAN1", "3", "6000", A, "975"},
                           {"49", "FAN2", "3", "6150", A, "975"},
                           {"50", "FAN3", "3", "5925", A, "975"},
                           {"51", "FAN4", "4", "1350", A, "975"},
                           {"52", "FAN5", "3", "6075", A, "975"},
                           {"56", "Fan Redundancy", "2", "0", A, A},
                           {"57", "FAN6 Presence", "2", "0", A, A},
                       });
    EXPECT_GE(getInteger(kHealth), 4);
    m_close();
    // CPU2 Temp, P12V, VRM Status, FAN4, Fan Redundancy and FAN6 Presence are not "ok".
    EXPECT_GE(seededInsertions(readFile(m_log)), 6u);
}

} // namespace
} // namespace hmtest
