// Platform files converted from "ipmitool -v sdr" listings: a listing written
// here, and the 95-sensor listing of a real server from the shared real-data set.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "kelvarn/IpmitoolListing.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

const char* const kListing = R"(Sensor ID              : Volt_P12V (0xd2)
 Entity ID             : 7.1 (System Board)
 Sensor Type (Threshold)  : Voltage (0x02)
 Sensor Reading        : 12.152 (+/- 0) Volts
 Status                : ok
 Upper critical        : 12.600
 Lower critical        : 11.400
 Readable Thresholds   : lcr ucr
 Settable Thresholds   : lcr ucr

Sensor ID              : Fan_SYS0 (0xa0)
 Entity ID             : 29.1 (Fan Device)
 Sensor Type (Threshold)  : Fan (0x04)
 Sensor Reading        : 5400 (+/- 0) RPM
 Lower critical        : 500.000
 Readable Thresholds   : lcr

Sensor ID              : Inlet (0x01)
 Entity ID             : 55.1 (Air Inlet)
 Sensor Type (Threshold)  : Temperature (0x01)
 Sensor Reading        : -5 (+/- 0) degrees C
 Lower critical        : -20.000
 Upper critical        : 45.000
 Readable Thresholds   : lcr ucr

Sensor ID              : PSU1 Status (0xe0)
 Entity ID             : 10.1 (Power Supply)
 Sensor Type (Discrete): Power Supply (0x08)
 Sensor Reading        : 3h
 Assertions Enabled    : Power Supply
                         [Presence detected]

Sensor ID              : HDD0 (0xf0)
 Entity ID             : 4.1 (Disk or Disk Bay)
 Sensor Type (Discrete): Drive Slot / Bay (0x0d)
 Sensor Reading        : No Reading
)";

TEST(IpmitoolListingTest, ReadingsAndThresholdsComeOutAsListed) {
    expectValues(*systemOver(kelvarn::platformFromIpmitoolListing(kListing, "listing.txt")),
                 {
                     {"/BMC/SENSOR[210]/OWNER[32]/LUN[0]/NAME", "Volt_P12V"},
                     // 12.152 V cannot be held in one byte at 1 mV steps: M 495, Rexp -4, raw 245.
                     {"/BMC/SENSOR[210]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE", "12.1275"},
                     {"/BMC/SENSOR[210]/OWNER[32]/LUN[0]/RESOLUTION", "495"},
                     {"/BMC/SENSOR[210]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_CRITICAL", "255"},
                     {"/BMC/SENSOR[210]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_NONCRITICAL", "NOT SUPPORTED"},
                     // 5400 and 500 RPM: exactly, with M 100.
                     {"/BMC/SENSOR[160]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE", "5400"},
                     {"/BMC/SENSOR[160]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL", "5"},
                     {"/BMC/SENSOR[160]/OWNER[32]/LUN[0]/RESOLUTION", "100"},
                     // Negative temperatures: two's complement, M 5: raw -1 and -4.
                     {"/BMC/SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE", "-5"},
                     {"/BMC/SENSOR[1]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL", "252"},
                     {"/BMC/SENSOR[224]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE",
                      "PRESENCE_DETECTED,POWER_SUPPLY_FAILURE_DETECTED"},
                     {"/BMC/SENSOR[240]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE", "READING_UNAVAILABLE"},
                 });
}

TEST(IpmitoolListingTest, RefusesWhatItCannotRead) {
    for (const char* bad : {"Entity ID : 7.1\n", "Sensor ID : NoNumber\n Sensor Type (Discrete): X (0x01)\n",
                            "Sensor ID : A (0x10)\n Sensor Reading : 0h\n"}) {
        try {
            kelvarn::platformFromIpmitoolListing(bad, "bad.txt");
            ADD_FAILURE() << "accepted: " << bad;
        } catch (const kelvarn::PlatformFileError& e) {
            EXPECT_EQ(std::string(e.what()).rfind("bad.txt:1: ", 0), 0u) << e.what();
        }
    }
}

// The real server's listing lives in the shared real-data set beside the
// repository; it is read from there, not copied.
TEST(IpmitoolListingTest, RealServerListing) {
    const std::string path = std::string(HM_SOURCE_DIR) + "/../shared/realdata/rackhd/ipmi-sdr-v-output";
    const std::string text = hmtest::readFile(path);
    if (text.empty())
        GTEST_SKIP() << path << " is not available";
    auto system = systemOver(kelvarn::platformFromIpmitoolListing(text, path));
    Result sdr;
    system->Get("/BMC/SDR", sdr);
    EXPECT_EQ(sdr.size(), 95u);
    // Every threshold sensor's reading as listed, to within one percent.
    std::istringstream lines(text);
    std::string line, number;
    int checked = 0;
    while (std::getline(lines, line)) {
        if (line.rfind("Sensor ID", 0) == 0)
            number = std::to_string(std::stol(line.substr(line.rfind("(0x") + 1), nullptr, 16));
        if (line.find("Sensor Reading") == std::string::npos || line.find("(+/-") == std::string::npos)
            continue;
        double listed = std::stod(line.substr(line.find(':') + 1));
        std::string ours =
            valueOf(*system, "/BMC/SENSOR[" + number + "]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE");
        EXPECT_NEAR(std::stod(ours), listed, 0.01 * std::fabs(listed) + 1e-9) << "sensor " << number;
        ++checked;
    }
    EXPECT_EQ(checked, 48);
    EXPECT_EQ(valueOf(*system, "/BMC/SENSOR[210]/OWNER[32]/LUN[0]/NAME"), "Volt_P12V");
    EXPECT_EQ(valueOf(*system, "/BMC/SENSOR[210]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE"), "12");
}

} // namespace
