// One query object shared by two threads, as the request thread and the SEL
// poller share it.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kelvarn/Journal.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

TEST(SharedSystemTest, TwoThreadsQueryOneObject) {
    auto system = demoSystem();
    std::atomic<int> wrong{0};
    auto tables = [&] {
        for (int i = 0; i < 150; ++i) {
            system->SetFlags(i % 2 ? 1 : 14);
            Result r;
            system->Get("/BMC/SDR/SENSOR_TYPE[1]", r);
            if (r.size() != 10)
                ++wrong;
            if (valueOf(*system, "/BMC/SENSOR[3]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE") != "52")
                ++wrong;
            try {
                system->Get("/BMC/SENSOR[3]/OWNER[32]/LUN[0]/NOPE", r);
                ++wrong;
            } catch (const ResultStatus&) {
            }
        }
    };
    auto poller = [&] {
        for (int i = 0; i < 150; ++i) {
            system->SetFlags(1);
            if (selQuery(*system, "ffff")["/BMC/SEL/TRANSLATED"].Values.size() != 1)
                ++wrong;
            if (valueOf(*system, "/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent") != "4")
                ++wrong;
        }
    };
    std::thread a(tables), b(poller);
    a.join();
    b.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Changes written in quick succession by one thread while another queries:
// every change is kept, in order.
TEST(SharedSystemTest, QuickChangesAreAllKept) {
    hmtest::TempDir dir;
    const std::string journal = dir / "journal";
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "demo", kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"), journal);
    SDK::System system(kelvarn::makePlatformResponder(source));
    const int changes = 200;
    std::thread writer([&] {
        for (int i = 0; i < changes; ++i)
            kelvarn::appendJournal(journal,
                                   "sel-add " + std::to_string(1763700000 + i) + " 32 4 7 assert 255 255");
    });
    size_t seen = 0;
    int shrinks = 0;
    for (int i = 0; i < 200; ++i) {
        Result r;
        system.Get("/BMC/SEL/TRANSLATED", r);
        size_t now = r["/BMC/SEL/TRANSLATED"].Values.size();
        if (now < seen)
            ++shrinks;
        seen = now;
    }
    writer.join();
    Result r;
    system.Get("/BMC/SEL/TRANSLATED", r);
    ASSERT_EQ(r["/BMC/SEL/TRANSLATED"].Values.size(), 5u + changes);
    EXPECT_EQ(shrinks, 0);
    EXPECT_EQ(source->rejectedChanges(), 0u);
    // Record IDs run on from the demo's five without a gap.
    EXPECT_EQ(r["/BMC/SEL/TRANSLATED[204]/VALUE"].Values.at(0), "00cd");
}

} // namespace
