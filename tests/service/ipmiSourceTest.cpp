// The IPMI source over a mock BMC: every /BMC path answered from memory, no BMC call on the
// querying thread, refreshing and pacing, the BMC going away and coming back; the
// configuration keys and the password file.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>
#include <tuple>

#include "kelvarn/Errors.h"
#include "kelvarn/Ipmi.h"
#include "kelvarn/IpmiPacer.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Smbios.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

using kelvarn::Bytes;
using kelvarn::IpmiSettings;
using Clock = std::chrono::steady_clock;
using SelRaw = std::array<uint8_t, 16>;

SelRaw selRaw(const std::string& text) {
    SelRaw a{};
    const Bytes b = bytesOf(text);
    return std::copy(b.begin(), b.end(), a.begin()), a;
}

// What the mock BMC holds; the test changes it while the source runs. The records of
// tests/data/ipmi/bmc.emu: full "CPU Temp" (1), "12V" (2), "FAN1" (3); compact "PSU1 Status"
// (4), "Fan Redund" (5). The BMC's thresholds of sensor 1: UNR, UC, UNC, LNR, LC, LNC.
struct MockBmc {
    std::mutex lock;
    bool reachable = true, absent = false; // absent: unreachable for want of a driver
    int openDelayMs = 0;
    std::vector<Bytes> sdr = {
        bytesOf("01 00 51 01 33 20 00 01 03 01 7f 68 01 01 85 72 85 72 1b 1b 00 01 00 00 01 00 00 00 00 00 "
                "00 00 00 00 ff 00 00 5a 50 00 05 0a 02 02 00 00 00 c8 43 50 55 20 54 65 6d 70"),
        bytesOf("02 00 51 01 2e 20 00 02 07 01 7f 68 02 01 85 72 85 72 1b 1b 00 04 00 00 06 00 00 00 00 e0 "
                "00 00 00 00 ff 00 00 d7 d2 00 b9 be 02 02 00 00 00 c3 31 32 56"),
        bytesOf("03 00 51 01 2f 20 00 03 1d 01 7f 68 04 01 05 70 05 00 03 03 00 12 00 00 32 00 00 00 00 00 "
                "00 00 00 00 ff 00 00 00 00 00 14 1e 02 02 00 00 00 c4 46 41 4e 31"),
        bytesOf(
            "04 00 51 02 26 20 00 04 0a 01 7f 40 08 6f 0f 00 0f 00 0f 00 c0 00 00 00 00 00 00 00 00 00 00 "
            "cb 50 53 55 31 20 53 74 61 74 75 73"),
        bytesOf(
            "05 00 51 02 25 20 00 05 1d 01 7f 40 04 0b ff 00 ff 00 ff 00 c0 00 00 00 00 00 00 00 00 00 00 "
            "ca 46 61 6e 20 52 65 64 75 6e 64")};
    std::map<uint8_t, kelvarn::SensorReading> readings = {
        {1, {true, 45, 0}}, {2, {true, 200, 0}}, {3, {true, 100, 0}}, {4, {true, 0, 1}}, {5, {true, 0, 1}}};
    std::map<uint8_t, kelvarn::IpmiThresholds> thresholds = {{1, {0x1B, {0, 95, 80, 0, 5, 10}}}};
    std::vector<SelRaw> sel = {selRaw("01 00 02 b8 c3 1f 69 20 00 04 02 02 01 50 b2 be")};
    kelvarn::IpmiSelInfo selInfo = {1, 100, 0};
    int opens = 0, sdrReads = 0, selReads = 0;
    std::string calls; // "S" per SEL check, the sensor number per reading
    uint64_t commands = 0;
    std::set<std::thread::id> callers;
};

class MockBackend : public kelvarn::IpmiBackend {
public:
    explicit MockBackend(std::shared_ptr<MockBmc> bmc) : m_bmc(std::move(bmc)) {}
    void open() override {
        int delay = (call(), ++m_bmc->opens, m_bmc->openDelayMs);
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    }
    void close() override {}
    kelvarn::IpmiDeviceId getDeviceId() override { return (call(), kelvarn::IpmiDeviceId{}); }
    std::vector<Bytes> readSdr(const std::string&) override {
        return (call(), ++m_bmc->sdrReads, m_bmc->sdr);
    }
    bool readSensor(const Bytes& record, kelvarn::SensorReading& out) override {
        auto g = call();
        m_bmc->calls += std::to_string(record[7]);
        return find(m_bmc->readings, record[7], out);
    }
    bool getThresholds(uint8_t number, kelvarn::IpmiThresholds& out) override {
        auto g = call();
        return find(m_bmc->thresholds, number, out);
    }
    kelvarn::IpmiSelInfo getSelInfo() override { return (call(), m_bmc->calls += 'S', m_bmc->selInfo); }
    std::vector<SelRaw> readSel() override { return (call(), ++m_bmc->selReads, m_bmc->sel); }
    kelvarn::FruInfo readFru() override { return (call(), kelvarn::FruInfo{}); }
    uint64_t commandsSent() const override {
        std::lock_guard<std::mutex> g(m_bmc->lock);
        return m_bmc->commands;
    }

private:
    template <typename M, typename V> static bool find(const M& map, uint8_t key, V& out) {
        auto it = map.find(key);
        if (it != map.end())
            out = it->second;
        return it != map.end();
    }
    // Every call: counted, its thread noted, refused when the BMC is away; the lock it
    // returns is held to the end of the statement that made the call.
    std::unique_lock<std::mutex> call() {
        std::unique_lock<std::mutex> g(m_bmc->lock);
        ++m_bmc->commands;
        m_bmc->callers.insert(std::this_thread::get_id());
        if (!m_bmc->reachable)
            throw kelvarn::IpmiFailure("no answer from the mock BMC", true, m_bmc->absent);
        return g;
    }
    std::shared_ptr<MockBmc> m_bmc;
};

// LAN settings to "mock": refreshing every `refreshMs`, the SDR every 1000th sweep, stale
// after 3 periods, no command budget.
IpmiSettings fastSettings(unsigned refreshMs) {
    IpmiSettings s;
    std::tie(s.mode, s.host, s.refreshMs, s.slowEvery, s.staleAfter, s.maxCommandsPerSecond, s.startupWaitMs,
             s.sdrCacheDir) =
        std::make_tuple(IpmiSettings::Mode::Lan, "mock", refreshMs, 1000u, 3u, 0u, 5000u, "/nonexistent");
    return s;
}

struct Rig {
    std::shared_ptr<MockBmc> bmc = std::make_shared<MockBmc>();
    std::shared_ptr<kelvarn::IpmiSource> source;
    std::unique_ptr<SDK::System> system;
    void start(const IpmiSettings& s) {
        source = std::make_shared<kelvarn::IpmiSource>(s, std::make_unique<MockBackend>(bmc));
        system = std::make_unique<SDK::System>(kelvarn::makePlatformResponder(source));
    }
    // The mock's lock; held to the end of the statement when not kept.
    std::unique_lock<std::mutex> locked() { return std::unique_lock<std::mutex>(bmc->lock); }
};

const std::string kCpu = "/BMC/SENSOR[1]/OWNER[32]/LUN[0]";
const std::string kCpuValue = kCpu + "/INTERPRET_SENSOR_VALUE";

// Beside a BMC that does not answer, the SMBIOS answers fail too (a start-up then fails
// and is tried again); beside a BMC with no driver at all they come from the SMBIOS source.
TEST(IpmiSource, SmbiosAnswersBesideABmcWithoutDriverOnly) {
    for (bool absent : {false, true}) {
        SCOPED_TRACE(absent ? "no driver" : "no answer");
        auto bmc = std::make_shared<MockBmc>();
        bmc->reachable = false;
        bmc->absent = absent;
        IpmiSettings s = fastSettings(60000);
        s.startupWaitMs = 2000;
        auto ipmi = std::make_shared<kelvarn::IpmiSource>(s, std::make_unique<MockBackend>(bmc));
        auto smbios = std::make_shared<kelvarn::SimulatedSource>(
            "demo", kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"));
        SDK::System sys(
            kelvarn::makePlatformResponder(std::make_shared<kelvarn::CompositeSource>(ipmi, smbios)));
        EXPECT_EQ(failuresOf(sys, "/SMBIOS/ProcessorInfo/TotalNoOfProcessor").empty(), absent);
        EXPECT_EQ(failureOf(sys, "/BMC/OEM/PRODUCTID"),
                  "1086: BMC data unavailable: nothing read yet from IPMI over LAN at mock:623: no answer "
                  "from the mock BMC");
    }
}

// The first query waits for the first sweep, however slow.
TEST(IpmiSource, AnswersEveryBmcPathFromMemory) {
    Rig rig;
    rig.bmc->openDelayMs = 300;
    rig.start(fastSettings(60000));
    SDK::System& sys = *rig.system;
    // The BMC's current thresholds of sensor 1 replace the SDR's (90); sensor 2 has none from the
    // BMC: the SDR's stay.
    expectValues(
        sys,
        "1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=45|1]/OWNER[32]/LUN[0]/NAME=CPU Temp|"
        "1]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_CRITICAL=95|1]/OWNER[32]/LUN[0]/THRESHOLD/LOWER_CRITICAL=5|"
        "1]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_NONRECOVERABLE=NOT SUPPORTED|4]/NAME=Fan Redund|"
        "2]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE=12|2]/OWNER[32]/LUN[0]/THRESHOLD/UPPER_CRITICAL=215|",
        "/BMC/SENSOR[");
    EXPECT_EQ(valueOf(sys, "/BMC/SEL/TRANSLATED[0]/DESCR"),
              "Voltage 12V | Lower Non-critical going low | Asserted");
    // The SDR as stored by the source carries the overlaid threshold.
    EXPECT_EQ(valueOf(sys, "/BMC/SDR[0]").substr(37 * 3, 5), "5f 50");

    // Between sweeps queries send no command, from this thread or any other, and share
    // the one copy of the SDR read by the last sweep.
    const uint64_t before = rig.source->commandsSent();
    ASSERT_GT(before, 0u);
    for (int round = 0; round < 50; ++round)
        for (const char* p :
             {"/BMC/SDR", "/BMC/SDR/SENSOR_TYPE[1]", "/BMC/SENSOR[0]/NAME", "/BMC/SENSOR[3]/OWNER[32]/LUN[0]",
              "/BMC/SEL/TRANSLATED", "/BMC/FRU", "/BMC/OEM"})
            EXPECT_FALSE(resultOf(sys, p).empty()) << p;
    const auto sdr = rig.source->sharedSdrRepository();
    EXPECT_EQ(rig.source->sharedSdrRepository().get(), sdr.get());
    ASSERT_EQ(sdr->size(), 5u);
    EXPECT_EQ(*sdr, rig.source->sdrRepository());
    auto g = rig.locked();
    EXPECT_EQ(rig.bmc->commands, before);
    EXPECT_EQ(rig.bmc->callers.size(), 1u); // the source's own thread only
    EXPECT_EQ(rig.bmc->callers.count(std::this_thread::get_id()), 0u);
}

TEST(IpmiSource, ReadingsRefreshEachPeriodSelWhenItChangesOrIsClearedSdrOnTheSlowCycle) {
    Rig rig;
    rig.start(fastSettings(50));
    ASSERT_EQ(valueOf(*rig.system, kCpuValue), "45");
    rig.locked(), rig.bmc->readings[1].raw = 77;
    EXPECT_TRUE(eventually([&] { return valueOf(*rig.system, kCpuValue) == "77"; }));
    const uint64_t sweeps = rig.source->sweeps();
    EXPECT_TRUE(eventually([&] { return rig.source->sweeps() >= sweeps + 3; }));
    {
        auto g = rig.locked();
        EXPECT_EQ(rig.bmc->selReads, 1);
        EXPECT_EQ(rig.bmc->sdrReads, 1);
        rig.bmc->sel.push_back(selRaw("02 00 02 c0 c3 1f 69 20 00 04 01 01 01 59 5b 5a"));
        rig.bmc->selInfo = {2, 108, 0};
    }
    EXPECT_TRUE(eventually([&] { return selSize(*rig.system) == 2; }));
    EXPECT_EQ(selQuery(*rig.system, "ffff")["/BMC/SEL/TRANSLATED[0]/VALUE"].Values.at(0), "0002");
    {
        auto g = rig.locked();
        EXPECT_EQ(rig.bmc->selReads, 2);
        EXPECT_EQ(rig.bmc->sdrReads, 1);
        rig.bmc->sel.clear();
        rig.bmc->selInfo = {0, 108, 130};
    }
    // A cleared SEL: the poller's remembered record ID fails with 1089, and there is no last entry.
    EXPECT_TRUE(eventually([&] { return selSize(*rig.system) == 0; }));
    EXPECT_EQ(statusesOf([&] { selQuery(*rig.system, "2"); }).at(0).Code, kelvarn::kSelRecordNotFound);
    EXPECT_EQ(selQuery(*rig.system, "ffff")["/BMC/SEL/TRANSLATED"].Values.size(), 0u);
}

// Fixed pacing never saves idle time for a burst; the refresh plan leaves
// the SEL check its place and spreads the readings over the polls.
TEST(IpmiPacer, PacesEvenlyAndPlansTheRefresh) {
    using ms = std::chrono::milliseconds;
    const Clock::time_point t0{};
    kelvarn::CommandPacer pacer(10);
    const struct {
        int atMs, commands, nextMs; // spent `commands` at atMs, then the next slot
    } steps[] = {{0, 1, 100}, {50, 0, 100}, {100, 3, 400}, {1000, 1, 1100}};
    for (const auto& s : steps) {
        pacer.spent(t0 + ms(s.atMs), unsigned(s.commands));
        EXPECT_EQ(pacer.next(t0 + ms(s.atMs)), t0 + ms(s.nextMs)) << s.atMs;
    }
    kelvarn::CommandPacer unlimited;
    unlimited.spent(t0, 1000);
    EXPECT_EQ(unlimited.next(t0 + ms(1)), t0 + ms(1));

    const struct {
        unsigned sensors, perSecond, pollMs, readingsPerPoll;
        uint64_t periodMs;
        bool within;
    } plans[] = {
        {240, 9, 2000, 16, 30000, true}, {1000, 9, 2000, 17, 118000, true}, {240, 0, 2000, 240, 2000, true},
        {5, 30, 100, 2, 300, true},      {240, 1, 500, 1, 120000, false},   {4, 100, 1000, 4, 1000, true},
        {0, 9, 2000, 0, 2000, true},
    };
    for (const auto& p : plans) {
        const kelvarn::RefreshPlan plan = kelvarn::planRefresh(p.sensors, p.perSecond, p.pollMs);
        EXPECT_EQ(std::make_tuple(plan.readingsPerPoll, plan.periodMs, plan.withinBudget),
                  std::make_tuple(p.readingsPerPoll, p.periodMs, p.within))
            << p.sensors << "@" << p.perSecond;
    }
}

// Under a budget the first sweep reads every sensor, then each poll checks
// the SEL and reads the next readings of the round-robin.
TEST(IpmiSource, BudgetReadsRoundRobinAfterTheSelCheck) {
    Rig rig;
    IpmiSettings s = fastSettings(100);
    s.maxCommandsPerSecond = 30; // 3 commands a poll: the SEL check and 2 readings
    rig.start(s);
    ASSERT_TRUE(eventually([&] { return rig.source->sweeps() >= 5; }));
    EXPECT_EQ(rig.source->readingRefreshPeriodMs(), 300u);
    auto g = rig.locked();
    EXPECT_EQ(rig.bmc->calls.substr(0, 18), "S12345S12S34S51S23");
}

TEST(IpmiSource, BmcGoingAwayFailsAfterTheBoundThenComesBack) {
    Rig rig;
    rig.start(fastSettings(200)); // bound: 3 x 200 ms
    ASSERT_EQ(valueOf(*rig.system, kCpuValue), "45");
    const auto away = Clock::now();
    rig.locked(), rig.bmc->reachable = false;
    // The old value until the bound passes (the last sweep ended at most one period before the
    // BMC went away), then whichever bound is noticed first: the BMC's last contact, or this
    // sensor's last reading; every path fails the same way once the contact bound has passed.
    std::string value;
    EXPECT_TRUE(eventually([&] { return (value = valueOf(*rig.system, kCpuValue)) != "45"; }));
    EXPECT_GE(Clock::now() - away, std::chrono::milliseconds(380));
    EXPECT_TRUE(value.find(": no answer from the mock BMC") != std::string::npos ||
                value == "<failed: BMC data unavailable: the reading of sensor 1 was not refreshed in time>")
        << value;
    for (const char* path : {"/BMC/SEL/TRANSLATED", "/BMC/SDR"})
        EXPECT_TRUE(eventually([&] {
            return failureOf(*rig.system, path).rfind("1086: BMC data unavailable", 0) == 0;
        })) << path;
    {
        auto g = rig.locked();
        rig.bmc->readings[1].raw = 50;
        rig.bmc->reachable = true;
    }
    EXPECT_TRUE(eventually([&] { return failuresOf(*rig.system, kCpu).empty(); }));
    EXPECT_EQ(valueOf(*rig.system, kCpuValue), "50");
    EXPECT_GE((rig.locked(), rig.bmc->opens), 2);
}

// The first query waits for the first sweep while it goes on sending commands (about 13
// at 10 a second, past a start-up wait of 400 ms); a BMC that took one command and then
// says nothing is given up on.
TEST(IpmiSource, FirstQueryWaitsWhileTheFirstSweepGoesOn) {
    IpmiSettings s = fastSettings(60000);
    std::tie(s.startupWaitMs, s.startupCommandsPerSecond) = std::make_tuple(400u, 10u);
    Rig slow, silent;
    slow.start(s);
    EXPECT_EQ(valueOf(*slow.system, kCpu + "/NAME"), "CPU Temp");
    s.startupCommandsPerSecond = 0;
    silent.bmc->openDelayMs = 2000;
    silent.start(s);
    EXPECT_EQ(valueOf(*silent.system, kCpuValue).rfind("<failed: BMC data unavailable: nothing read yet", 0),
              0u);
}

// A service configuration text read as the service reads it: its own keys, then the
// "ipmi-*" ones as the IPMI source reads them for the BMC it names.
IpmiSettings settingsOf(const std::string& text) {
    const kelvarn::ServiceConfig c = kelvarn::parseServiceConfig(text, "/etc/k.conf");
    return kelvarn::parseIpmiSettings(
        c.bmc == "ipmi-lan" ? IpmiSettings::Mode::Lan : IpmiSettings::Mode::Inband, c.ipmi, "/etc/k.conf");
}

TEST(ServiceConfiguration, KeysAndTheirErrors) {
    // source | platform | journal | bmc | smbios; relative paths are the configuration's neighbours.
    auto keys = [](const std::string& text) {
        const kelvarn::ServiceConfig c = kelvarn::parseServiceConfig(text, "/etc/k.conf");
        return c.source + "|" + c.platform + "|" + c.journal + "|" + c.bmc + "|" + c.smbios;
    };
    EXPECT_EQ(keys("smbios=dump:t.bin\n"), "demo|||demo|dump:/etc/t.bin");
    EXPECT_EQ(keys("# kelvarn\n source = simulated \nplatform=rack.json\n"),
              "simulated|/etc/rack.json|/etc/rack.json.journal|simulated|simulated");
    EXPECT_EQ(keys("source=demo\nsmbios=sysfs\n"), "demo|||demo|sysfs");
    EXPECT_EQ(keys("smbios=sysfs:/tmp/dmi\nbmc=simulated\nplatform=p.json\njournal=/j\n"),
              "demo|/etc/p.json|/j|simulated|sysfs:/tmp/dmi");
    IpmiSettings s = settingsOf(
        "bmc=ipmi-lan\nipmi-host=10.0.0.5\nipmi-port=6230\nipmi-user=monitor\nipmi-password-file=p\n"
        "ipmi-privilege=operator\nipmi-cipher-suite=17\nipmi-workarounds=opensesspriv,sun20\n"
        "ipmi-refresh-ms=500\nipmi-stale-after=4\nipmi-slow-every=10\n"
        "ipmi-max-commands-per-second=20\nipmi-sdr-cache=/var/tmp\n");
    EXPECT_EQ(std::make_tuple(s.host, s.port, s.user, s.passwordFile, s.privilege, s.cipherSuite,
                              s.workarounds, s.refreshMs, s.staleAfter, s.slowEvery, s.maxCommandsPerSecond,
                              s.sdrCacheDir),
              std::make_tuple("10.0.0.5", 6230u, "monitor", "/etc/p", 3, 17, 0x18u, 500u, 4u, 10u, 20u,
                              "/var/tmp"));
    IpmiSettings defaults = settingsOf("bmc=ipmi-inband\n");
    EXPECT_EQ(std::make_tuple(defaults.refreshMs, defaults.staleAfter, defaults.maxCommandsPerSecond),
              std::make_tuple(2000u, 3u, 9u));
    // What follows "/etc/k.conf": where, and a distinctive part of the problem.
    const std::pair<const char*, const char*> bad[] = {
        {"smbios=floppy\n", ":1: smbios \"floppy\" is not \"simulated\""},
        {"smbios=dump:\n", ":1: smbios \"dump:\" names no path"},
        {"\nbmc=snmp\n", ":2: bmc \"snmp\" is not \"simulated\""},
        {"bmc=simulated\n", ": source=simulated needs platform=<file>"},
        {"bmc\n", ":1: expected key=value"},
        {"source=ipmi\n", ":1: source \"ipmi\" is not"},
        {"colour=red\n", ":1: unknown key \"colour\""},
        {"ipmi-port=0", ": ipmi-port \"0\" is not a number from 1 to 65535"},
        {"ipmi-cipher-suite=3x", ": ipmi-cipher-suite \"3x\" is not a number from 0 to 17"},
        {"ipmi-privilege=root", ": ipmi-privilege \"root\" is not"},
        {"ipmi-workarounds=opensesspriv,,", ": ipmi-workarounds: unknown workaround \"\""},
        {"ipmi-colour=red", ": unknown key \"ipmi-colour\""},
        {"bmc=ipmi-lan\nipmi-host=h\nipmi-user=u", ": bmc=ipmi-lan needs ipmi-password-file"},
    };
    for (const auto& b : bad)
        EXPECT_EQ(refusal([&] { settingsOf(b.first); }).rfind(std::string("/etc/k.conf") + b.second, 0), 0u)
            << b.first;
    EXPECT_THROW(kelvarn::loadPlatformFile("/nonexistent/platform.json"), kelvarn::PlatformFileError);
}

// The IPMI LAN password file: refused when group or others may read or write it (checked on
// the mode, so this holds when the tests run as root), when not a regular file or longer than
// 20 bytes; its first line read; the refusal as a query sees it, with no session attempted.
const char kOpen[] = ": the password file is open to group or others; allow only its owner (chmod 600)";

TEST(PasswordFile, ModesContentsAndTheRefusalAQuerySees) {
    hmtest::TempDir dir("hm-pass-");
    const std::string file = dir / "bmc.pass";
    auto read = [&] {
        std::string r, why = refusal([&] { r = kelvarn::readPasswordFile(file); });
        return why == "<accepted>" ? r : "refused: " + why;
    };
    EXPECT_NE(read().find(": No such file or directory"), std::string::npos);
    // Accepted modes first; group or others reading or writing are refused.
    for (mode_t mode : {0600, 0400, 0710, 0601, 0500, 0640, 0620, 0604, 0602, 0440}) {
        hmtest::writeFile(file, "s3cret\n");
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        EXPECT_EQ(read(), mode & 066 ? "refused: " + file + kOpen : "s3cret") << std::oct << mode;
    }
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    for (const auto& [text, read_] :
         pairsOf("s3cret\r\nsecond line\n=s3cret|\n=|12345678901234567890\r\n=12345678901234567890|"
                 "123456789012345678901=refused|")) {
        hmtest::writeFile(file, text);
        EXPECT_EQ(read(),
                  read_ != "refused" ? read_ : "refused: " + file + ": the password is longer than 20 bytes");
    }
    for (bool fifo : {true, false}) {
        std::filesystem::remove(file);
        ASSERT_EQ(fifo ? mkfifo(file.c_str(), 0600) : mkdir(file.c_str(), 0700), 0);
        EXPECT_EQ(read(), "refused: " + file + ": not a regular file");
    }
    std::filesystem::remove(file);
    hmtest::writeFile(file, "s3cret\n");
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    hmtest::writeFile(dir / "kelvarn.conf",
                      "bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=9\nipmi-user=ipmiusr\n"
                      "ipmi-password-file=bmc.pass\nipmi-startup-wait-ms=5000\n");
    ScopedConfig config(dir / "kelvarn.conf");
    SDK::System sys;
    EXPECT_EQ(
        failureOf(sys, "/BMC/SDR/SENSOR_TYPE[1]"),
        "1086: BMC data unavailable: nothing read yet from IPMI over LAN at 127.0.0.1:9: password file " +
            file + kOpen);
}

} // namespace
