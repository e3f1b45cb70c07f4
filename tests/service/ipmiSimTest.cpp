// The IPMI source against a real BMC simulator (OpenIPMI's ipmi_sim) over IPMI 2.0 LAN on
// loopback, through the query service; the FRU and controller fields checked against
// ipmitool, an independent IPMI client.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "kelvarn/Ipmi.h"
#include "kelvarn/IpmiCommands.h"
#include "serviceTestUtil.h"
#include "support/ipmiSim.h"

namespace {

// "Key : value" lines of ipmitool's fru print and mc info.
std::string field(const std::string& text, const std::string& key) {
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const size_t colon = line.find(" : "), from = line.find_first_not_of(' ');
        if (colon != std::string::npos &&
            line.substr(from, line.find_last_not_of(' ', colon) + 1 - from) == key)
            return line.substr(colon + 3);
    }
    return "<absent>";
}

TEST(IpmiSim, ThroughTheConfiguredServiceAndTheCommandBackend) {
    if (!hmtest::haveProgram("ipmi_sim") || !hmtest::haveProgram("ipmitool"))
        GTEST_SKIP() << "ipmi_sim (openipmi) or ipmitool is not installed";
    hmtest::IpmiSimGuard sim;
    ASSERT_TRUE(sim.start()) << "ipmi_sim did not start; see " << sim.dir() << "/ipmi_sim.log";
    hmtest::writeBmcConfig(sim.dir(), sim.port(),
                           "ipmi-cipher-suite=3\nipmi-refresh-ms=300\nipmi-slow-every=3\n");
    ScopedConfig config(sim.dir() + "/kelvarn.conf");
    SDK::System sys;
    // The readings and thresholds of tests/data/ipmi/bmc.emu (their agreement with ipmitool's
    // is checked through the agent in tests/host); discrete states (ipmitool's "Presence
    // detected", "Fully Redundant") and the chassis type (its "Rack Mount Chassis").
    expectValues(
        sys,
        "SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=45|SENSOR[1]/OWNER[32]/LUN[0]/THRESHOLD/"
        "UPPER_CRITICAL=90|"
        "SENSOR[2]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=12|FRU[0]/RECORD/DECODED/CHASSISAREA/TYPE=23|"
        "SENSOR[4]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=PRESENCE_DETECTED|"
        "SENSOR[5]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=FULLY_REDUNDANT|",
        "/BMC/");
    // Our path below /BMC/, and ipmitool's key in "fru print 0" (or, for OEM/, in "mc info").
    const std::string fruText = sim.ipmitool("fru print 0"), mc = sim.ipmitool("mc info");
    for (const auto& [path, key] :
         pairsOf("CHASSISAREA/PART_NUMBER=Chassis Part Number|CHASSISAREA/SERIAL_NUMBER=Chassis Serial|"
                 "PRODUCTAREA/MANUFACTURER=Product Manufacturer|PRODUCTAREA/NAME=Product Name|"
                 "PRODUCTAREA/PART_NUMBER=Product Part Number|PRODUCTAREA/VERSION=Product Version|"
                 "PRODUCTAREA/SERIAL_NUMBER=Product Serial|PRODUCTAREA/ASSET_TAG=Product Asset Tag|"
                 "OEM/MANUFACTURERID=Manufacturer ID|OEM/FIRMWAREREVISION=Firmware "
                 "Revision|OEM/IPMIVERSION=IPMI Version|"))
        EXPECT_EQ(valueOf(sys, (path.rfind("OEM/", 0) ? "/BMC/FRU[0]/RECORD/DECODED/" : "/BMC/") + path),
                  field(path.rfind("OEM/", 0) ? fruText : mc, key));
    EXPECT_EQ(valueOf(sys, "/BMC/OEM/PRODUCTID"), field(mc, "Product ID").substr(0, 4));

    // A new reading and a new SEL entry reach the service's answers.
    sim.console("sensor_set_value 0x20 0 1 60 0");
    EXPECT_TRUE(eventually(
        [&] { return valueOf(sys, "/BMC/SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE") == "60"; }));
    sim.console("sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x01 0x01 0x01 0x59 0x5b 0x5a");
    EXPECT_TRUE(eventually([&] { return selSize(sys) == 2; }));
    EXPECT_EQ(valueOf(sys, "/BMC/SEL/TRANSLATED[1]/RAW").substr(7 * 3), "20 00 04 01 01 01 59 5b 5a");

    // The backend made of the command layer over FreeIPMI's raw call reads what the FreeIPMI
    // backend reads: the device ID, every SDR record (built and then from its cache), every
    // reading and threshold, the SEL entries and the FRU fields.
    const std::string conf = sim.dir() + "/kelvarn.conf";
    const kelvarn::IpmiSettings s =
        kelvarn::parseIpmiSettings(kelvarn::IpmiSettings::Mode::Lan,
                                   kelvarn::parseServiceConfig(hmtest::readFile(conf), conf).ipmi, conf);
    auto freeIpmi = kelvarn::makeFreeIpmiBackend(s);
    auto ours = kelvarn::makeCommandBackend([&] { return kelvarn::makeFreeIpmiRawTransport(s); });
    freeIpmi->open();
    ours->open();
    auto id = [](const kelvarn::IpmiDeviceId& d) {
        return std::vector<unsigned>({d.deviceId, d.manufacturerId, d.productId, d.firmwareMajor,
                                      d.firmwareMinor, d.ipmiMajor, d.ipmiMinor});
    };
    EXPECT_EQ(id(freeIpmi->getDeviceId()), id(ours->getDeviceId()));
    const auto sdr = freeIpmi->readSdr(sim.dir() + "/freeipmi/sdr");
    ASSERT_EQ(sdr.size(), 5u);
    EXPECT_EQ(ours->readSdr(sim.dir() + "/ours/sdr"), sdr);
    const uint64_t sent = ours->commandsSent(); // read again: the repository's time stamps only
    EXPECT_EQ(ours->readSdr(sim.dir() + "/ours/sdr"), sdr);
    EXPECT_EQ(ours->commandsSent(), sent + 1);
    for (const auto& r : sdr) {
        kelvarn::SensorReading x, y;
        kelvarn::IpmiThresholds t, u;
        ASSERT_TRUE(freeIpmi->readSensor(r, x) && ours->readSensor(r, y)) << int(r[7]);
        EXPECT_EQ(std::make_pair(x.raw, x.states), std::make_pair(y.raw, y.states)) << int(r[7]);
        EXPECT_TRUE(r[3] != 0x01 ||
                    (freeIpmi->getThresholds(r[7], t) && ours->getThresholds(r[7], u) &&
                     std::make_pair(t.readable, t.values) == std::make_pair(u.readable, u.values)))
            << int(r[7]); // the full records' thresholds
    }
    EXPECT_TRUE(freeIpmi->getSelInfo() == ours->getSelInfo());
    EXPECT_EQ(ours->readSel(), freeIpmi->readSel());
    auto fruOf = [](const kelvarn::FruInfo& f) {
        return std::vector<std::string>(
            {std::to_string(f.chassisType), f.chassisPartNumber, f.chassisSerialNumber, f.boardManufacturer,
             f.boardProductName, f.boardSerialNumber, f.boardPartNumber, f.productManufacturer, f.productName,
             f.productPartNumber, f.productVersion, f.productSerialNumber, f.productAssetTag});
    };
    EXPECT_EQ(fruOf(ours->readFru()), fruOf(freeIpmi->readFru()));
    EXPECT_EQ(fruOf(ours->readFru())[8], "KV-1000");
    // The SDR cache is on disk, and rebuilt when the BMC's repository changes:
    // a compact record "Intrusion" (sensor 6) added through the console.
    const std::string cache = sim.dir() + "/cache/sdr-cache-127.0.0.1-" + std::to_string(sim.port());
    ASSERT_TRUE(std::filesystem::exists(cache));
    const auto built = std::filesystem::last_write_time(cache);
    sim.console("main_sdr_add 0x20 0x06 0x00 0x51 0x02 0x24 0x20 0x00 0x06 0x17 0x01 0x7f 0x40 0x05 0x6f "
                "0x01 0x00 0x01 0x00 0x01 0x00 0xc0 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 "
                "0xc9 0x49 0x6e 0x74 0x72 0x75 0x73 0x69 0x6f 0x6e");
    EXPECT_TRUE(eventually([&] { return valueOf(sys, "/BMC/SENSOR[5]/NAME") == "Intrusion"; }));
    EXPECT_NE(std::filesystem::last_write_time(cache), built);
}

// In-band through a device that is not there: a failed query naming the
// device and FreeIPMI's reason, not a hang or a crash.
TEST(IpmiInband, MissingDeviceIsAFailedQuery) {
    kelvarn::IpmiSettings s;
    s.mode = kelvarn::IpmiSettings::Mode::Inband;
    s.device = "/nonexistent/ipmi0";
    s.sdrCacheDir = "/nonexistent";
    SDK::System sys(kelvarn::makePlatformResponder(
        std::make_shared<kelvarn::IpmiSource>(s, kelvarn::makeFreeIpmiBackend(s))));
    EXPECT_EQ(failureOf(sys, "/BMC/SDR")
                  .rfind("1086: BMC data unavailable: nothing read yet from in-band IPMI on "
                         "/nonexistent/ipmi0: ",
                         0),
              0u);
}

} // namespace
