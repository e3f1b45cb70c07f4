// The command backend over a scripted transport: completion codes, short
// responses and a cancelled reservation, with the bytes written by hand.
#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "kelvarn/IpmiCommands.h"
#include "kelvarn/Sdr.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

using kelvarn::Bytes;

// Answers each request with the next scripted exchange, "netfn cmd: request: completion code:
// response" in hex, after checking the request against it.
class Scripted : public kelvarn::IpmiTransport {
public:
    explicit Scripted(std::deque<std::string>* steps) : m_steps(steps) {}
    kelvarn::ipmi::Response send(uint8_t netFn, uint8_t, uint8_t cmd, const Bytes& request) override {
        if (m_steps->empty()) {
            ADD_FAILURE() << "unexpected request";
            return {0xFF, {}};
        }
        std::vector<Bytes> p;
        std::istringstream in(m_steps->front());
        m_steps->pop_front();
        for (std::string part; std::getline(in, part, ':');)
            p.push_back(bytesOf(part));
        p.resize(4);
        EXPECT_EQ(Bytes({netFn, cmd}), p[0]);
        EXPECT_EQ(request, p[1]);
        return {p[2].at(0), p[3]};
    }

private:
    std::deque<std::string>* m_steps;
};

struct Case {
    const char* name;
    std::deque<std::string> steps;
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
    const char* const info = "0a 20::00: 51 01 00 00 10 11 22 33 44 00 00 00 00 00";
    Case cases[] = {
        {"completion code",
         {"06 01::c1"},
         [](kelvarn::IpmiBackend& b) { return std::to_string(b.getDeviceId().deviceId); },
         "Get Device ID: completion code 0xC1"},
        {"short response",
         {"0a 40::00: 51 02 00 00 10"},
         [](kelvarn::IpmiBackend& b) { return std::to_string(b.getSelInfo().entries); },
         "Get SEL Info: response of 5 bytes is too short"},
        {"thresholds (LNC 10, LC 5, UNC 80, UC 90 readable)",
         {"04 27: 01: 00: 1b 0a 05 00 50 5a 00"},
         [](kelvarn::IpmiBackend& b) {
             kelvarn::IpmiThresholds t;
             b.getThresholds(1, t);
             return std::to_string(t.readable) + ":" + kelvarn::hexBytes(t.values.data(), 6);
         },
         "27:00 5a 50 00 05 0a"},
        {"reservation cancelled, then the record read again under a new one",
         {info, "0a 22::00: 01 00", "0a 23: 01 00 00 00 00 05: c5", "0a 22::00: 02 00",
          "0a 23: 02 00 00 00 00 05: 00: ff ff 07 00 51 c0 02", "0a 23: 02 00 00 00 05 02: 00: ff ff aa bb"},
         [&](kelvarn::IpmiBackend& b) { return bytes(b.readSdr(dir.path() + "/sdr")); },
         "07 00 51 c0 02 aa bb|"},
        {"a BMC returning at most 8 bytes of a record at a time",
         {info, "0a 22::00: 01 00", "0a 23: 01 00 00 00 00 05: 00: ff ff 08 00 51 12 12",
          "0a 23: 01 00 00 00 05 10: ca", "0a 23: 01 00 00 00 05 08: 00: ff ff 01 02 03 04 05 06 07 08",
          "0a 23: 01 00 00 00 0d 08: 00: ff ff 09 0a 0b 0c 0d 0e 0f 10",
          "0a 23: 01 00 00 00 15 02: 00: ff ff 11 12"},
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
