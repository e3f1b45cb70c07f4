// One query object shared by two threads, as the request thread and the SEL
// poller share it.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "serviceTestUtil.h"

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
            std::map<std::string, std::map<std::string, std::string>> request = {
                {"/BMC/SEL/TRANSLATED", {{"RECORD_ID", "ffff"}, {"RANGE", "3000"}}}};
            Result r;
            system->Get(request, r);
            if (r["/BMC/SEL/TRANSLATED"].Values.size() != 1)
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

} // namespace
