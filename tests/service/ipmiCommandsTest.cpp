// The command backend over a scripted transport: completion codes, short
// responses and a cancelled reservation, with the bytes written by hand.
#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "kelvarn/IpmiCommands.h"
#include "kelvarn/Sdr.h"
#include "support/files.h"

namespace {

using kelvarn::Bytes;

// One expected request (netfn, cmd, request bytes) and the answer to give.
struct Step {
    uint8_t netFn, cmd;
    Bytes request;
    uint8_t cc;
    Bytes response;
};

class Scripted : public kelvarn::IpmiTransport {
public:
    explicit Scripted(std::deque<Step>* steps) : m_steps(steps) {}
    kelvarn::ipmi::Response send(uint8_t netFn, uint8_t, uint8_t cmd, const Bytes& request) override {
        EXPECT_FALSE(m_steps->empty());
        if (m_steps->empty())
            return {0xFF, {}};
        const Step s = m_steps->front();
        m_steps->pop_front();
        EXPECT_EQ(netFn, s.netFn);
        EXPECT_EQ(cmd, s.cmd);
        EXPECT_EQ(request, s.request);
        return {s.cc, s.response};
    }

private:
    std::deque<Step>* m_steps;
};

struct Case {
    const char* name;
    std::deque<Step> steps;
    std::function<std::string(kelvarn::IpmiBackend&)> call; // what it returned, as text
    std::string expected;                                   // that text, or the IpmiFailure's message
};

std::string bytes(const std::vector<Bytes>& records) {
    std::string s;
    for (const Bytes& r : records)
        s += kelvarn::hexBytes(r.data(), r.size()) + "|";
    return s;
}

TEST(IpmiCommands, ScriptedExchanges) {
    const hmtest::TempDir dir("hm-ipmicmd-");
    const Bytes info = {0x51, 0x01, 0x00, 0x00, 0x10, 0x11, 0x22, 0x33, 0x44, 0, 0, 0, 0, 0};
    Case cases[] = {
        {"completion code",
         {{0x06, 0x01, {}, 0xC1, {}}},
         [](kelvarn::IpmiBackend& b) { return std::to_string(b.getDeviceId().deviceId); },
         "Get Device ID: completion code 0xC1"},
        {"short response",
         {{0x0A, 0x40, {}, 0x00, {0x51, 0x02, 0x00, 0x00, 0x10}}},
         [](kelvarn::IpmiBackend& b) { return std::to_string(b.getSelInfo().entries); },
         "Get SEL Info: response of 5 bytes is too short"},
        {"thresholds (LNC 10, LC 5, UNC 80, UC 90 readable)",
         {{0x04, 0x27, {0x01}, 0x00, {0x1b, 10, 5, 0, 80, 90, 0}}},
         [](kelvarn::IpmiBackend& b) {
             kelvarn::IpmiThresholds t;
             b.getThresholds(1, t);
             return std::to_string(t.readable) + ":" + kelvarn::hexBytes(t.values.data(), 6);
         },
         "27:00 5a 50 00 05 0a"},
        {"reservation cancelled, then the record read again under a new one",
         {{0x0A, 0x20, {}, 0x00, info},
          {0x0A, 0x22, {}, 0x00, {0x01, 0x00}},
          {0x0A, 0x23, {0x01, 0x00, 0x00, 0x00, 0x00, 0x05}, 0xC5, {}},
          {0x0A, 0x22, {}, 0x00, {0x02, 0x00}},
          {0x0A,
           0x23,
           {0x02, 0x00, 0x00, 0x00, 0x00, 0x05},
           0x00,
           {0xFF, 0xFF, 0x07, 0x00, 0x51, 0xC0, 0x02}},
          {0x0A, 0x23, {0x02, 0x00, 0x00, 0x00, 0x05, 0x02}, 0x00, {0xFF, 0xFF, 0xAA, 0xBB}}},
         [&](kelvarn::IpmiBackend& b) { return bytes(b.readSdr(dir.path() + "/sdr")); },
         "07 00 51 c0 02 aa bb|"},
        {"a BMC returning at most 8 bytes of a record at a time",
         {{0x0A, 0x20, {}, 0x00, info},
          {0x0A, 0x22, {}, 0x00, {0x01, 0x00}},
          {0x0A,
           0x23,
           {0x01, 0x00, 0x00, 0x00, 0x00, 0x05},
           0x00,
           {0xFF, 0xFF, 0x08, 0x00, 0x51, 0x12, 0x12}},
          {0x0A, 0x23, {0x01, 0x00, 0x00, 0x00, 0x05, 0x10}, 0xCA, {}},
          {0x0A, 0x23, {0x01, 0x00, 0x00, 0x00, 0x05, 0x08}, 0x00, {0xFF, 0xFF, 1, 2, 3, 4, 5, 6, 7, 8}},
          {0x0A,
           0x23,
           {0x01, 0x00, 0x00, 0x00, 0x0D, 0x08},
           0x00,
           {0xFF, 0xFF, 9, 10, 11, 12, 13, 14, 15, 16}},
          {0x0A, 0x23, {0x01, 0x00, 0x00, 0x00, 0x15, 0x02}, 0x00, {0xFF, 0xFF, 17, 18}}},
         [&](kelvarn::IpmiBackend& b) { return bytes(b.readSdr(dir.path() + "/sdr2")); },
         "08 00 51 12 12 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12|"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto backend = kelvarn::makeCommandBackend([&] { return std::make_unique<Scripted>(&c.steps); });
        backend->open();
        std::string got;
        try {
            got = c.call(*backend);
        } catch (const kelvarn::IpmiFailure& e) {
            EXPECT_FALSE(e.lost());
            got = e.what();
        }
        EXPECT_EQ(got, c.expected);
        EXPECT_TRUE(c.steps.empty());
    }
}

// A board area in 6-bit ASCII ("IPMI"), binary and BCD plus, as FreeIPMI reads them.
TEST(IpmiCommands, FruFieldTypes) {
    const Bytes inventory = {0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFE, 0x01, 0x03, 0x19,
                             0x00, 0x00, 0x00, 0x83, 0x29, 0xDC, 0xA6, 0x02, 0x01, 0x02, 0x43,
                             0x04, 0x0B, 0x02, 0xC1, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    const kelvarn::FruInfo f = kelvarn::ipmi::decodeFru(inventory);
    EXPECT_EQ(std::vector<std::string>(
                  {f.boardManufacturer, f.boardProductName, f.boardSerialNumber, f.boardPartNumber}),
              std::vector<std::string>({"IPMI", "01h 02h", "4-2", ""}));
}

} // namespace
