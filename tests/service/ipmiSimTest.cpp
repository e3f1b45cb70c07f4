// The IPMI source against a real BMC simulator (OpenIPMI's ipmi_sim) over
// IPMI 2.0 LAN on loopback, through the query service, checked against
// ipmitool, an independent IPMI client.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "support/ipmiSim.h"
#include "kelvarn/Errors.h"
#include "kelvarn/Ipmi.h"
#include "serviceTestUtil.h"

namespace {

using hmtest::haveProgram;
using hmtest::IpmiSimGuard;
using hmtest::sensorList;

using Clock = std::chrono::steady_clock;

template <typename F> bool eventually(F check, int limitMs) {
    auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    while (Clock::now() < end) {
        if (check())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return check();
}

// "Key : value" lines of ipmitool's fru print and mc info.
std::string field(const std::string& text, const std::string& key) {
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        size_t colon = line.find(" : ");
        if (colon == std::string::npos)
            continue;
        std::string k = line.substr(0, colon);
        k.erase(0, k.find_first_not_of(' '));
        k.erase(k.find_last_not_of(' ') + 1);
        if (k == key)
            return line.substr(colon + 3);
    }
    return "<absent>";
}

class IpmiSim : public ::testing::Test {
protected:
    void SetUp() override {
        if (!haveProgram("ipmi_sim") || !haveProgram("ipmitool"))
            GTEST_SKIP() << "ipmi_sim (openipmi) or ipmitool is not installed";
        ASSERT_TRUE(m_sim.start()) << "ipmi_sim did not start; see " << m_sim.dir() << "/ipmi_sim.log";
        const std::string pass = m_sim.dir() + "/bmc.pass";
        std::ofstream(pass) << "test\n";
        chmod(pass.c_str(), 0600);
    }

    kelvarn::IpmiSettings settings(unsigned refreshMs) const {
        kelvarn::IpmiSettings s;
        s.mode = kelvarn::IpmiSettings::Mode::Lan;
        s.host = "127.0.0.1";
        s.port = m_sim.port();
        s.user = "ipmiusr";
        s.passwordFile = m_sim.dir() + "/bmc.pass";
        s.privilege = 2;
        s.cipherSuite = 3;
        s.workarounds = 0x10; // opensesspriv: ipmi_sim's answer to Open Session
        s.refreshMs = refreshMs;
        s.sdrCacheDir = m_sim.dir() + "/cache";
        return s;
    }

    IpmiSimGuard m_sim;
};

const std::map<std::string, int> kThresholdSensors = {{"CPU Temp", 1}, {"12V", 2}, {"FAN1", 3}};
const char* const kThresholdNames[6] = {"LOWER_NONRECOVERABLE", "LOWER_CRITICAL", "LOWER_NONCRITICAL",
                                        "UPPER_NONCRITICAL",    "UPPER_CRITICAL", "UPPER_NONRECOVERABLE"};

TEST_F(IpmiSim, ThroughTheConfiguredServiceValuesEqualIpmitools) {
    const std::string conf = m_sim.dir() + "/kelvarn.conf";
    std::ofstream(conf)
        << "bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=" << m_sim.port()
        << "\nipmi-user=ipmiusr\nipmi-password-file=bmc.pass\nipmi-cipher-suite=3\n"
           "ipmi-workarounds=opensesspriv\nipmi-refresh-ms=300\nipmi-slow-every=3\nipmi-sdr-cache=cache\n";
    const char* old = std::getenv("KELVARN_CONFIG");
    const std::string saved = old ? old : "";
    setenv("KELVARN_CONFIG", conf.c_str(), 1);
    kelvarn::setProcessResponder(nullptr);
    {
        SDK::System sys;
        auto rows = sensorList(m_sim.ipmitool("sensor list"));
        ASSERT_EQ(rows.size(), 5u);
        for (const auto& s : kThresholdSensors) {
            SCOPED_TRACE(s.first);
            const std::string base = "/BMC/SENSOR[" + std::to_string(s.second) + "]/OWNER[32]/LUN[0]";
            const auto& row = rows.at(s.first);
            EXPECT_EQ(valueOf(sys, base + "/NAME"), s.first);
            EXPECT_NEAR(std::stod(valueOf(sys, base + "/INTERPRET_SENSOR_VALUE")), std::stod(row[0]), 1e-6);
            for (int t = 0; t < 6; ++t) {
                const std::string raw = valueOf(sys, base + "/THRESHOLD/" + kThresholdNames[t]);
                if (row[3 + t] == "na") {
                    EXPECT_EQ(raw, "NOT SUPPORTED") << kThresholdNames[t];
                    continue;
                }
                const std::string converted = valueOf(sys, base + "/INTERPRET_SENSOR_VALUE[" + raw + "]");
                EXPECT_NEAR(std::stod(converted), std::stod(row[3 + t]), 1e-6) << kThresholdNames[t];
            }
        }
        // Discrete states: ipmitool's words for the state keywords.
        const std::string elist = m_sim.ipmitool("sdr elist");
        EXPECT_NE(elist.find("Presence detected"), std::string::npos);
        EXPECT_EQ(valueOf(sys, "/BMC/SENSOR[4]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"),
                  "PRESENCE_DETECTED");
        EXPECT_NE(elist.find("Fully Redundant"), std::string::npos);
        EXPECT_EQ(valueOf(sys, "/BMC/SENSOR[5]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"), "FULLY_REDUNDANT");

        const std::string fru = m_sim.ipmitool("fru print 0");
        const std::string f = "/BMC/FRU[0]/RECORD/DECODED/";
        EXPECT_EQ(valueOf(sys, f + "CHASSISAREA/PART_NUMBER"), field(fru, "Chassis Part Number"));
        EXPECT_EQ(valueOf(sys, f + "CHASSISAREA/SERIAL_NUMBER"), field(fru, "Chassis Serial"));
        EXPECT_EQ(field(fru, "Chassis Type"), "Rack Mount Chassis");
        EXPECT_EQ(valueOf(sys, f + "CHASSISAREA/TYPE"), "23");
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/MANUFACTURER"), field(fru, "Product Manufacturer"));
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/NAME"), field(fru, "Product Name"));
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/PART_NUMBER"), field(fru, "Product Part Number"));
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/VERSION"), field(fru, "Product Version"));
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/SERIAL_NUMBER"), field(fru, "Product Serial"));
        EXPECT_EQ(valueOf(sys, f + "PRODUCTAREA/ASSET_TAG"), field(fru, "Product Asset Tag"));
        const std::string mc = m_sim.ipmitool("mc info");
        EXPECT_EQ(valueOf(sys, "/BMC/OEM/PRODUCTID"), field(mc, "Product ID").substr(0, 4));
        EXPECT_EQ(valueOf(sys, "/BMC/OEM/MANUFACTURERID"), field(mc, "Manufacturer ID"));
        EXPECT_EQ(valueOf(sys, "/BMC/OEM/FIRMWAREREVISION"), field(mc, "Firmware Revision"));

        // A new reading and a new SEL entry reach the service's answers.
        m_sim.console("sensor_set_value 0x20 0 1 60 0");
        EXPECT_TRUE(eventually(
            [&] { return valueOf(sys, "/BMC/SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE") == "60"; },
            5000));
        EXPECT_EQ(sensorList(m_sim.ipmitool("sensor list")).at("CPU Temp")[0], "60.000");
        EXPECT_NE(m_sim.console("sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x01 0x01 0x01 0x59 0x5b 0x5a")
                      .find("Added record"),
                  std::string::npos);
        EXPECT_TRUE(eventually(
            [&] {
                Result r;
                sys.Get("/BMC/SEL/TRANSLATED", r);
                return r["/BMC/SEL/TRANSLATED"].Values.size() == 2;
            },
            5000));
        EXPECT_EQ(valueOf(sys, "/BMC/SEL/TRANSLATED[1]/RAW").substr(7 * 3), "20 00 04 01 01 01 59 5b 5a");
        EXPECT_EQ(valueOf(sys, "/BMC/SEL/TRANSLATED[1]/DESCR"),
                  "Temperature CPU Temp | Upper Critical going high | Asserted");
        std::string selList = m_sim.ipmitool("sel list");
        EXPECT_NE(selList.find("Upper Critical going high"), std::string::npos) << selList;
        // The SDR cache is on disk, and rebuilt when the BMC's repository changes:
        // a compact record "Intrusion" (sensor 6) added through the console.
        const std::string cache = m_sim.dir() + "/cache/sdr-cache-127.0.0.1-" + std::to_string(m_sim.port());
        EXPECT_TRUE(std::filesystem::exists(cache));
        const auto built = std::filesystem::last_write_time(cache);
        const std::string added = m_sim.console(
            "main_sdr_add 0x20 0x06 0x00 0x51 0x02 0x24 0x20 0x00 0x06 0x17 0x01 0x7f 0x40 0x05 0x6f "
            "0x01 0x00 0x01 0x00 0x01 0x00 0xc0 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 "
            "0xc9 0x49 0x6e 0x74 0x72 0x75 0x73 0x69 0x6f 0x6e");
        EXPECT_TRUE(eventually(
            [&] {
                return failuresOf(sys, "/BMC/SENSOR[5]/NAME").empty() &&
                       valueOf(sys, "/BMC/SENSOR[5]/NAME") == "Intrusion";
            },
            10000))
            << added;
        EXPECT_NE(std::filesystem::last_write_time(cache), built);
        EXPECT_NE(m_sim.ipmitool("sdr elist").find("Intrusion"), std::string::npos);
    }
    if (old)
        setenv("KELVARN_CONFIG", saved.c_str(), 1);
    else
        unsetenv("KELVARN_CONFIG");
    kelvarn::setProcessResponder(nullptr);
}

TEST_F(IpmiSim, QueriesSendNoIpmiCommand) {
    auto source =
        std::make_shared<kelvarn::IpmiSource>(settings(60000), kelvarn::makeFreeIpmiBackend(settings(60000)));
    SDK::System sys(kelvarn::makePlatformResponder(source));
    ASSERT_EQ(valueOf(sys, "/BMC/SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"), "45")
        << source->lastError();
    const uint64_t before = source->commandsSent();
    EXPECT_GT(before, 10u);
    for (int i = 0; i < 100; ++i) {
        Result r;
        sys.Get("/BMC/SDR", r);
        sys.Get("/BMC/SENSOR[" + std::to_string(1 + i % 5) + "]/OWNER[32]/LUN[0]", r);
        sys.Get("/BMC/SEL/TRANSLATED", r);
        sys.Get("/BMC/FRU", r);
        sys.Get("/BMC/OEM", r);
    }
    EXPECT_EQ(source->commandsSent(), before);
    EXPECT_EQ(source->sweeps(), 1u);
}

TEST_F(IpmiSim, SimulatorStoppedAndRestarted) {
    auto s = settings(300); // stale after 3 x 300 ms
    auto source = std::make_shared<kelvarn::IpmiSource>(s, kelvarn::makeFreeIpmiBackend(s));
    SDK::System sys(kelvarn::makePlatformResponder(source));
    const std::string path = "/BMC/SENSOR[2]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE";
    ASSERT_EQ(valueOf(sys, path), "12") << source->lastError();
    m_sim.stop();
    // From memory at first...
    EXPECT_EQ(valueOf(sys, path), "12");
    // ...then failed queries once nothing could be read within the bound.
    std::vector<RStatus> failure;
    EXPECT_TRUE(eventually(
        [&] {
            failure = failuresOf(sys, path);
            return !failure.empty();
        },
        10000));
    ASSERT_EQ(failure.size(), 1u);
    EXPECT_EQ(failure[0].Code, kelvarn::kSourceUnavailable);
    EXPECT_NE(failure[0].Message.find("BMC data unavailable"), std::string::npos) << failure[0].Message;
    ASSERT_TRUE(m_sim.start());
    EXPECT_TRUE(eventually([&] { return failuresOf(sys, path).empty(); }, 30000)) << source->lastError();
    EXPECT_EQ(valueOf(sys, path), "12");
}

// In-band through a device that is not there: a failed query naming the
// device and FreeIPMI's reason, not a hang or a crash.
TEST(IpmiInband, MissingDeviceIsAFailedQuery) {
    kelvarn::IpmiSettings s;
    s.mode = kelvarn::IpmiSettings::Mode::Inband;
    s.device = "/nonexistent/ipmi0";
    s.sdrCacheDir = "/nonexistent";
    auto source = std::make_shared<kelvarn::IpmiSource>(s, kelvarn::makeFreeIpmiBackend(s));
    SDK::System sys(kelvarn::makePlatformResponder(source));
    auto f = failuresOf(sys, "/BMC/SDR");
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].Code, kelvarn::kSourceUnavailable);
    EXPECT_EQ(
        f[0].Message.rfind("BMC data unavailable: nothing read yet from in-band IPMI on /nonexistent/ipmi0: "
                           "in-band IPMI not opened on /nonexistent/ipmi0: ",
                           0),
        0u)
        << f[0].Message;
}

} // namespace
