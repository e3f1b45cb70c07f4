// The IPMI command layer: the command backend over a scripted transport (completion codes,
// short responses, a cancelled reservation, with the bytes written by hand), and the WMI
// transport over a double of its COM calls (the in-parameters a request puts, the response
// read from the out-parameters, each failing call).
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>

#include "kelvarn/IpmiCommands.h"
#include "kelvarn/Sdr.h"
#include "kelvarn/WmiIpmi.h"
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

TEST(IpmiCommands, ScriptedExchangesAndFruFieldTypes) {
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

    // A board area in 6-bit ASCII ("IPMI"), binary and BCD plus, as FreeIPMI reads them.
    const Bytes inventory = {0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFE, 0x01, 0x03, 0x19,
                             0x00, 0x00, 0x00, 0x83, 0x29, 0xDC, 0xA6, 0x02, 0x01, 0x02, 0x43,
                             0x04, 0x0B, 0x02, 0xC1, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    const kelvarn::FruInfo f = kelvarn::ipmi::decodeFru(inventory);
    EXPECT_EQ(std::vector<std::string>(
                  {f.boardManufacturer, f.boardProductName, f.boardSerialNumber, f.boardPartNumber}),
              std::vector<std::string>({"IPMI", "01h 02h", "4-2", ""}));
}

using kelvarn::HResult;
using kelvarn::WmiValue;

std::string text(const WmiValue& v) {
    if (v.type == WmiValue::Type::Bytes)
        return "[" + kelvarn::hexBytes(v.bytes.data(), v.bytes.size()) + "]";
    return (v.type == WmiValue::Type::Byte ? "u8 " : "u32 ") + std::to_string(v.number);
}

// Answers each call with S_OK unless it is `failing`; logs the calls that
// carry arguments.
struct Script {
    std::string failing;
    HResult hr = 0;
    bool instance = true;
    std::map<std::string, WmiValue> out; // out-parameters
    std::string log;
    int released = 0;
};

class FakeCom : public kelvarn::WmiCom {
public:
    explicit FakeCom(Script& s) : m_s(s) {}
    HResult coInitializeEx() override { return answer("coInitializeEx"); }
    HResult coCreateLocator() override { return answer("coCreateLocator"); }
    HResult connectServer(const std::string& ns) override { return answer("connectServer", ns); }
    HResult coSetProxyBlanket() override { return answer("coSetProxyBlanket"); }
    HResult execQuery(const std::string& q) override { return answer("execQuery", q); }
    HResult next(bool& found) override {
        found = m_s.instance;
        return answer("next");
    }
    HResult getInstanceProperty(const std::string& name, WmiValue& v) override {
        v = name == "__RELPATH" ? WmiValue::string("Microsoft_IPMI.InstanceName=\"ROOT\\\\SYSTEM\\\\0001_0\"")
                                : WmiValue::byte(0x22);
        return answer("getInstanceProperty", name);
    }
    HResult getObject(const std::string& c) override { return answer("getObject", c); }
    HResult getMethod(const std::string& m) override { return answer("getMethod", m); }
    HResult spawnInstance() override { return answer("spawnInstance"); }
    HResult put(const std::string& name, const WmiValue& v) override {
        return answer("put", name + " " + text(v));
    }
    HResult execMethod(const std::string& path, const std::string& m) override {
        return answer("execMethod", path + " " + m);
    }
    HResult get(const std::string& name, WmiValue& v) override {
        v = m_s.out[name];
        return answer("get", name);
    }
    void release() override { ++m_s.released; }

private:
    HResult answer(const std::string& call, const std::string& args = "") {
        if (!args.empty())
            m_s.log += call + " " + args + "\n";
        return call == m_s.failing || call + " " + args == m_s.failing ? m_s.hr : 0;
    }
    Script& m_s;
};

std::map<std::string, WmiValue> answer(uint8_t cc, uint32_t size, Bytes data) {
    return {{"CompletionCode", WmiValue::byte(cc)},
            {"ResponseDataSize", WmiValue::uint32(size)},
            {"ResponseData", WmiValue::array(std::move(data))}};
}

TEST(WmiIpmi, RequestBuiltResponseReadAndFailuresByKind) {
    Script s;
    s.out = answer(0x00, 4, {0x00, 0x20, 0x81, 0x05, 0xEE});
    auto transport = kelvarn::makeWmiIpmiTransport(std::make_unique<FakeCom>(s));
    const kelvarn::ipmi::Response r = transport->send(0x04, 1, 0x2D, {0x30});
    // The request's in-parameters (the responder from the instance's BMCAddress), the method on the
    // instance's path, the out-parameters read.
    EXPECT_EQ(s.log.substr(s.log.find("put ")),
              "put Command u8 45\nput Lun u8 1\n"
              "put NetworkFunction u8 4\nput ResponderAddress u8 34\nput RequestDataSize u32 1\n"
              "put RequestData [30]\n"
              "execMethod Microsoft_IPMI.InstanceName=\"ROOT\\\\SYSTEM\\\\0001_0\" RequestResponse\n"
              "get CompletionCode\nget ResponseDataSize\nget ResponseData\n");
    EXPECT_EQ(std::make_pair(r.completionCode, r.data), std::make_pair(uint8_t(0), Bytes{0x20, 0x81, 0x05}));

    // An empty request still carries an array; a failing command has only its completion code.
    s.log.clear();
    s.out = answer(0xCB, 1, {0xCB});
    const kelvarn::ipmi::Response none = transport->send(0x0A, 0, 0x20, {});
    EXPECT_NE(s.log.find("put RequestDataSize u32 0\nput RequestData [00]\n"), std::string::npos) << s.log;
    EXPECT_EQ(std::make_pair(none.completionCode, none.data), std::make_pair(uint8_t(0xCB), Bytes{}));
    transport.reset();
    EXPECT_EQ(s.released, 1);

    // Each call failing with its result, and what follows: the request answers (0), the driver is away
    // (1: "Microsoft_IPMI not available: ", lost) or this one request failed (2); the result is named.
    // CoInitializeEx's "another threading mode" is no failure; ExecMethod timing out fails one request,
    // not finding the instance or a disconnected server is the driver gone.
    // "call hresult kind|"
    std::istringstream rows(
        "coInitializeEx 80010106 0|coInitializeEx 80004005 1|coCreateLocator 80040154 1|"
        "connectServer 8004100E 1|coSetProxyBlanket 80070005 1|execQuery 80041010 1|"
        "next 80041001 1|no instance 0 1|getInstanceProperty __RELPATH 80041002 1|"
        "getInstanceProperty BMCAddress 80041002 0|getObject 80041013 1|"
        "getMethod 8004102E 1|spawnInstance 80041006 2|put RequestData [01 02] 80041008 2|"
        "execMethod 80041069 2|execMethod 80041002 1|execMethod 80010108 1|"
        "get ResponseData 80041004 2|ResponseDataSize 5 0 2|CompletionCode text 0 2");
    for (std::string line; std::getline(rows, line, '|');) {
        SCOPED_TRACE(line);
        const size_t k = line.rfind(' '), h = line.rfind(' ', k - 1);
        const std::string hr = "0x" + line.substr(h + 1, k - h - 1), kind = line.substr(k + 1);
        Script s;
        s.failing = line.substr(0, h);
        s.hr = HResult(std::stoul(hr, nullptr, 16));
        s.instance = s.failing != "no instance";
        s.out = s.failing == "CompletionCode text"
                    ? std::map<std::string, WmiValue>{{"CompletionCode", WmiValue::string("0")}}
                    : answer(0x00, s.failing == "ResponseDataSize 5" ? 5 : 2, {0x00, 0x51});
        const std::string why = refusal<kelvarn::IpmiFailure>([&] {
            EXPECT_EQ(kelvarn::makeWmiIpmiTransport(std::make_unique<FakeCom>(s))->send(6, 0, 1, {1, 2}).data,
                      Bytes{0x51});
        });
        const char* start = kind == "1"   ? "Microsoft_IPMI not available: "
                            : kind == "2" ? "Microsoft_IPMI RequestResponse: "
                                          : "<accepted>";
        EXPECT_EQ(why.rfind(start, 0), 0u) << why;
        EXPECT_TRUE(hr == "0x0" || kind == "0" || why.find(hr) != std::string::npos) << why;
        EXPECT_EQ(s.released, 1);
    }
}

} // namespace
