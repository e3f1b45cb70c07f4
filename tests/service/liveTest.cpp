// Live changes through the journal (also from another thread), one query object
// shared by two threads, SDR repositories replayed from "ipmitool sdr
// dump" files, and platform files converted from "ipmitool -v sdr" listings: a
// listing written here, and the 95-sensor listing of a real server from the shared
// real-data set.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <sstream>
#include <thread>

#include "kelvarn/IpmitoolListing.h"
#include "kelvarn/Journal.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

using kelvarn::PlatformModel;

// The demo server with a journal in a temporary folder.
class JournalTest : public ::testing::Test {
protected:
    hmtest::TempDir dir;
    std::string journal = dir / "journal";
    std::shared_ptr<kelvarn::SimulatedSource> source = std::make_shared<kelvarn::SimulatedSource>(
        "demo", kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"), journal);
    std::unique_ptr<SDK::System> system =
        std::make_unique<SDK::System>(kelvarn::makePlatformResponder(source));
};

const char* const kCpu2 = "/BMC/SENSOR[4]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE";
const char* const kPsu2 = "/BMC/SENSOR[65]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE";

// Changes apply in order; SEL entries number on from the newest and a clear empties the SEL;
// a half-written line waits for its end; bad lines are skipped and counted; a shrunk or
// removed journal starts again from the platform.
TEST_F(JournalTest, ChangesSelEntriesAndBrokenJournals) {
    std::ofstream(journal, std::ios::app) << "reading 32 0 4 93\nstates 32 0 65 0x3\n";
    EXPECT_EQ(valueOf(*system, kCpu2), "93");
    EXPECT_EQ(valueOf(*system, kPsu2), "PRESENCE_DETECTED,POWER_SUPPLY_FAILURE_DETECTED");
    std::ofstream(journal, std::ios::app) << "available 32 0 4 0\nreading 32 0 4 60\n";
    EXPECT_EQ(valueOf(*system, kCpu2), "READING_UNAVAILABLE");
    kelvarn::appendJournal(journal, "available 32 0 4 1");
    EXPECT_EQ(valueOf(*system, kCpu2), "60");
    // CPU2 Temp, upper critical going high: 1763700000 = 0x691FED20; event data 1 = 0x50 | offset 9.
    std::ofstream(journal, std::ios::app) << "sel-add 1763700000 32 4 9 assert 92 90\n"
                                             "sel-raw 07 00 02 00 00 00 00 20 00 04 05 80 6f 00 ff ff\n";
    expectValues(*system,
                 "5]/RAW=06 00 02 20 ed 1f 69 20 00 04 01 04 01 59 5c 5a|6]/RAW=07 00 02 00 00 00 00 20 00 "
                 "04 05 80 6f 00 ff ff|",
                 "/BMC/SEL/TRANSLATED[");
    kelvarn::appendJournal(journal, "sel-clear");
    EXPECT_EQ(selSize(*system), 0u);
    kelvarn::appendJournal(journal, "sel-add 1763700100 32 4 9 deassert 255 255");
    EXPECT_EQ(valueOf(*system, "/BMC/SEL/TRANSLATED[0]/VALUE"), "0001");
    std::ofstream(journal, std::ios::trunc) << "reading 32 0 4 9";
    EXPECT_EQ(valueOf(*system, kCpu2), "87");
    std::ofstream(journal, std::ios::app) << "1\n";
    EXPECT_EQ(valueOf(*system, kCpu2), "91");
    std::ofstream(journal, std::ios::app)
        << "reading 32 0 200 5\nreading 32 0 4 300\nfly away\n# a note\nreading 32 0 4 70\n";
    EXPECT_EQ(valueOf(*system, kCpu2), "70");
    std::string why;
    EXPECT_EQ(source->rejectedChanges(&why), 3u);
    EXPECT_EQ(why, "unknown change \"fly away\"");
    EXPECT_THROW(kelvarn::appendJournal(journal, "two\nlines"), kelvarn::PlatformFileError);
    EXPECT_THROW(kelvarn::appendJournal("/nonexistent/dir/journal", "sel-clear"), kelvarn::PlatformFileError);
    std::remove(journal.c_str());
    EXPECT_EQ(valueOf(*system, kCpu2), "87");
}

// One query object shared by two threads, as the request thread and the SEL
// poller share it.
TEST(SharedSystemTest, TwoThreadsQueryOneObject) {
    auto system = systemOver(kelvarn::demoPlatformText());
    std::atomic<int> wrong{0};
    auto tables = [&] {
        for (int i = 0; i < 150; ++i) {
            system->SetFlags(i % 2 ? 1 : 14);
            wrong += resultOf(*system, "/BMC/SDR/SENSOR_TYPE[1]").size() != 10;
            wrong += valueOf(*system, "/BMC/SENSOR[3]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE") != "52";
            wrong += failuresOf(*system, "/BMC/SENSOR[3]/OWNER[32]/LUN[0]/NOPE").size() != 1;
        }
    };
    auto poller = [&] {
        for (int i = 0; i < 150; ++i) {
            system->SetFlags(1);
            wrong += selQuery(*system, "ffff")["/BMC/SEL/TRANSLATED"].Values.size() != 1;
            wrong += valueOf(*system, "/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent") != "4";
        }
    };
    std::thread a(tables), b(poller);
    a.join();
    b.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Changes written in quick succession by one thread while another queries:
// every change is kept, in order.
TEST_F(JournalTest, QuickChangesFromAnotherThreadAreAllKept) {
    const int changes = 200;
    std::thread writer([&] {
        for (int i = 0; i < changes; ++i)
            kelvarn::appendJournal(journal,
                                   "sel-add " + std::to_string(1763700000 + i) + " 32 4 7 assert 255 255");
    });
    size_t seen = 0, shrinks = 0;
    for (size_t i = 0, now; i < 200; ++i, seen = now)
        shrinks += (now = selSize(*system)) < seen;
    writer.join();
    EXPECT_EQ(shrinks, 0u);
    Result r = resultOf(*system, "/BMC/SEL/TRANSLATED");
    ASSERT_EQ(r["/BMC/SEL/TRANSLATED"].Values.size(), 5u + changes);
    EXPECT_EQ(source->rejectedChanges(), 0u);
    // Record IDs run on from the demo's five without a gap.
    EXPECT_EQ(r["/BMC/SEL/TRANSLATED[204]/VALUE"].Values.at(0), "00cd");
}

// An "ipmitool sdr dump" file: records back to back, here a full sensor record with a
// nominal reading, a compact one and a management controller locator (type 0x12).
TEST(SdrDumpTest, ReplaysTheRepositoryWithNominalReadings) {
    // Full "Temp" (48): nominal 40 given, upper critical 90; compact "Bay" (49): drive slot.
    const kelvarn::Bytes records = bytesOf("01 00 51 01 2f 20 00 30 00 01 7f 68 01 01 00 00 00 00 10 00 00 "
                                           "00 00 00 01 00 00 00 00 00 01 28 00 00 "
                                           "ff 00 00 5a 00 00 00 00 00 00 00 00 00 c4 54 65 6d 70 "
                                           "02 00 51 02 1e 20 00 31 00 01 7f 68 0d 6f 00 00 00 00 00 00 c0 "
                                           "00 00 00 00 00 00 00 00 00 00 c3 42 61 79 "
                                           "03 00 51 12 0b 20 00 00 00 00 00 00 00 00 00 c0");
    hmtest::TempDir dir;
    const std::string dump = dir / "sdr.bin", platform = dir / "p.json";
    hmtest::writeFile(dump, std::string(records.begin(), records.end()));
    hmtest::writeFile(platform,
                      R"({"format": "kelvarn-platform", "version": 1, "bmc": {"sdrDump": "sdr.bin",)"
                      R"( "readings": [{"number": 49, "states": ["DRIVE_FAULT"]}]}})");
    auto source = std::make_shared<kelvarn::SimulatedSource>("dump", kelvarn::loadPlatformFile(platform));
    SDK::System system(kelvarn::makePlatformResponder(source));
    Result all = resultOf(system, "/BMC/SDR");
    EXPECT_EQ(all.size(), 3u);
    EXPECT_EQ(all["/BMC/SDR[2]"].Values.at(0), "03 00 51 12 0b 20 00 00 00 00 00 00 00 00 00 c0");
    expectValues(
        system,
        "48]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=40|48]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_CRITICAL=90|"
        "49]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=DRIVE_FAULT|",
        "/BMC/SENSOR[");

    // A dump cut inside a record is refused.
    { std::ofstream(dump, std::ios::binary | std::ios::app) << std::string("\x04\x00\x51\x01\x30\x20", 6); }
    const std::string why = refusal<kelvarn::PlatformFileError>([&] { kelvarn::loadPlatformFile(platform); });
    EXPECT_NE(why.find("record at byte"), std::string::npos) << why;
}

const char* const kListing = R"(Sensor ID              : Inlet (0x01)
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

TEST(IpmitoolListingTest, ListingsWrittenHereAndOfARealServer) {
    auto system = systemOver(kelvarn::platformFromIpmitoolListing(kListing, "listing.txt"));
    // Negative temperatures: two's complement, M 5: raw -1 and -4.
    expectValues(
        *system,
        "1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=-5|1]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL=252|"
        "224]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=PRESENCE_DETECTED,POWER_SUPPLY_FAILURE_DETECTED|"
        "240]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=READING_UNAVAILABLE|",
        "/BMC/SENSOR[");
    // The record's units: two's complement (0x80), degrees C (1).
    EXPECT_EQ(valueOf(*system, "/BMC/SDR[0]").substr(20 * 3, 5), "80 01");
    for (const char* bad : {"Entity ID : 7.1\n", "Sensor ID : NoNumber\n Sensor Type (Discrete): X (0x01)\n",
                            "Sensor ID : A (0x10)\n Sensor Reading : 0h\n"}) {
        const std::string why = refusal<kelvarn::PlatformFileError>(
            [&] { kelvarn::platformFromIpmitoolListing(bad, "bad.txt"); });
        EXPECT_EQ(why.rfind("bad.txt:1: ", 0), 0u) << why;
    }

    // The real server's listing lives in the shared real-data set beside the
    // repository; it is read from there, not copied.
    const std::string path = std::string(HM_SOURCE_DIR) + "/../shared/realdata/rackhd/ipmi-sdr-v-output";
    const std::string text = hmtest::readFile(path);
    if (text.empty())
        GTEST_SKIP() << path << " is not available";
    auto real = systemOver(kelvarn::platformFromIpmitoolListing(text, path));
    EXPECT_EQ(resultOf(*real, "/BMC/SDR").size(), 95u);
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
            valueOf(*real, "/BMC/SENSOR[" + number + "]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE");
        EXPECT_NEAR(std::stod(ours), listed, 0.01 * std::fabs(listed) + 1e-9) << "sensor " << number;
        ++checked;
    }
    EXPECT_EQ(checked, 48);
}

} // namespace
