// hmagentd under a steady load for a while: a simulated server of 300 sensors,
// several managers at once (GET, GETNEXT and GETBULK over SNMPv1, v2c and v3), a
// SEL entry every two seconds and snmptrapd receiving the traps. Every request
// must be answered, every SEL entry must come back as its trap, and the daemon's
// resident memory and open descriptors must stay flat once it has warmed up.
//
// HM_SOAK_SECONDS sets the duration of the load (default 120), HM_SOAK_EVENT_SECONDS
// the time between SEL entries (default 2, 0 for none). The figures are printed at
// the end and recorded as test properties.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace {

using namespace hmtest;
using namespace std::chrono_literals;

const std::string kPrivate = "1.3.6.1.4.1.64999";
const std::string kTables = "1.3.6.1.4.1.64999.2.10.3.5";
// Platform id, overall status, temperature row 1 (name, reading), fan row 2 reading.
const std::vector<std::string> kScalars{kTables + ".100.3.0", kTables + ".100.1.0", kTables + ".600.40.1.3.1",
                                        kTables + ".600.40.1.6.1", kTables + ".600.20.1.6.2"};
// Places to step from with GETNEXT: the tables' roots and the end of the view.
const std::vector<std::string> kNexts{kTables + ".400.30", kTables + ".600.20", kTables + ".600.40",
                                      kTables + ".700.10", kTables + ".100"};

// One sample of the daemon: seconds since the load started, resident kB, descriptors.
struct Sample {
    double at;
    long rssKb;
    long fds;
};

// The least-squares slope of resident memory over time, kB per minute.
double rssSlopePerMinute(const std::vector<Sample>& samples) {
    const double n = static_cast<double>(samples.size());
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const Sample& s : samples) {
        sx += s.at;
        sy += static_cast<double>(s.rssKb);
        sxx += s.at * s.at;
        sxy += s.at * static_cast<double>(s.rssKb);
    }
    const double d = n * sxx - sx * sx;
    return d == 0 ? 0 : (n * sxy - sx * sy) / d * 60.0;
}

class SoakE2e : public DaemonTest {
protected:
    SoakE2e() : DaemonTest("hmsoak") {}
    void SetUp() override {
        DaemonTest::SetUp();
        setenv("MIBS", "", 1);
        const char* period = std::getenv("HM_SOAK_EVENT_SECONDS");
        m_eventPeriod = std::chrono::seconds(period != nullptr ? std::atoi(period) : 2);
        const char* seconds = std::getenv("HM_SOAK_SECONDS");
        m_duration =
            std::chrono::seconds(seconds != nullptr && std::atoi(seconds) > 0 ? std::atoi(seconds) : 120);
    }
    void TearDown() override {
        m_daemon.reset();
        m_receiver.reset();
        DaemonTest::TearDown();
    }

    std::chrono::seconds m_duration{120};
    // Between two SEL entries; 0: none (to tell growth that follows the events from
    // growth that follows the requests).
    std::chrono::seconds m_eventPeriod{2};
    std::unique_ptr<Process> m_receiver, m_daemon;
};

TEST_F(SoakE2e, SteadyLoadWithEvents) {
    const Result generated =
        runCommand("python3 " HM_SOURCE_DIR "/bench/gen-platform.py 300 " + m_dir + "/rack.json");
    ASSERT_EQ(generated.status, 0) << generated.output;
    write("kelvarn.conf", "source=simulated\nplatform=rack.json\n");
    setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    // The trace stays off, as on a production server.
    write("agent.conf", "platformid = 4242\ntrapsenabled = 1\n");
    writeRegistryFile(m_dir + "/registry.reg", m_dir + "/agent.conf", m_dir + "/agent.log");

    const int trapPort = freePort();
    m_receiver = launchTrapReceiver(trapPort);
    ASSERT_FALSE(HasFailure());
    const std::string sink = "127.0.0.1:" + std::to_string(trapPort);

    const std::string endpoint = DaemonTest::endpoint();
    write("hmagentd.conf",
          "agentLibrary " HM_SUBAGENT_LIBRARY "\nagentRegistry " + m_dir +
              "/registry.reg\nagentaddress udp:" + endpoint +
              "\nrocommunity public 127.0.0.1\n"
              "createUser soak SHA \"soak-auth-pass\" AES \"soak-priv-pass\"\nrouser soak priv\n"
              "trapsink " +
              sink + " public\n");
    // AddressSanitizer keeps freed memory in a quarantine of up to 256 MB before
    // reusing it, which would look like growth for minutes: a small quarantine
    // fills within the warm-up and leaves real growth visible (unless
    // ASAN_OPTIONS chooses its own).
    const char* asan = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS",
           ("quarantine_size_mb=16" + (asan != nullptr && *asan ? ":" + std::string(asan) : std::string()))
               .c_str(),
           1);
    m_daemon = std::make_unique<Process>(std::vector<std::string>{HM_AGENTD, "-c", m_dir + "/hmagentd.conf"},
                                         m_dir + "/hmagentd.out");
    if (asan != nullptr)
        setenv("ASAN_OPTIONS", asan, 1);
    else
        unsetenv("ASAN_OPTIONS");
    ASSERT_TRUE(m_daemon->waitFor("serving 14 regions", 60s)) << m_daemon->output();
    const pid_t pid = m_daemon->pid();

    // The whole view once, to compare every later walk with.
    const std::string tool = "MIBS= ";
    const Result first =
        runCommand(tool + "snmpbulkwalk -v2c -c public -On -Cr25 -t 3 -r 0 " + endpoint + " " + kPrivate);
    ASSERT_EQ(first.status, 0) << first.output;
    // Variables, not lines: a long Hex-STRING (the engine ID that follows the private view
    // in GETNEXT order) goes on over a second line.
    auto variablesIn = [](const std::string& output) {
        const auto lines = linesOf(output);
        return static_cast<size_t>(
            std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l[0] == '.'; }));
    };
    const size_t viewSize = variablesIn(first.output);
    ASSERT_GT(viewSize, 1000u);
    // The poller's first read (3 s after start) takes the SEL as known.
    std::this_thread::sleep_for(4s);

    std::mutex lock;
    std::vector<std::string> failures;
    std::atomic<size_t> commands{0}, failed{0}, variables{0};
    std::atomic<bool> stop{false};
    // One command; any failure to answer (an error, a time-out, an exception, a
    // walk of another length) is counted and the first few kept.
    auto check = [&](const std::string& command, size_t expectedLines) {
        const Result r = runCommand(tool + command);
        const size_t lines = variablesIn(r.output);
        ++commands;
        variables += lines;
        const bool bad =
            r.status != 0 || lines != expectedLines || r.output.find("Timeout") != std::string::npos ||
            r.output.find("No Such") != std::string::npos || r.output.find("Error") != std::string::npos;
        if (bad) {
            ++failed;
            std::lock_guard<std::mutex> guard(lock);
            if (failures.size() < 5)
                failures.push_back(command + ":\n" + r.output.substr(0, 2000));
        }
    };
    const std::string get = "snmpget -On -t 2 -r 0 ";
    std::string scalars, nexts;
    for (const std::string& oid : kScalars)
        scalars += " " + oid;
    for (const std::string& oid : kNexts)
        nexts += " " + oid;
    std::vector<std::thread> managers;
    managers.emplace_back([&] { // SNMPv2c GETs
        while (!stop)
            check(get + "-v2c -c public " + endpoint + scalars, kScalars.size());
    });
    managers.emplace_back([&] { // SNMPv1 GETNEXTs
        while (!stop)
            check("snmpgetnext -On -t 2 -r 0 -v1 -c public " + endpoint + nexts, kNexts.size());
    });
    managers.emplace_back([&] { // SNMPv2c GETBULK walks of the whole view
        while (!stop)
            check("snmpbulkwalk -v2c -c public -On -Cr25 -t 3 -r 0 " + endpoint + " " + kPrivate, viewSize);
    });
    managers.emplace_back([&] { // SNMPv3 GETs, authenticated and encrypted
        while (!stop)
            check(get + "-v3 -l authPriv -u soak -a SHA -A soak-auth-pass -x AES -X soak-priv-pass " +
                      endpoint + scalars,
                  kScalars.size());
    });

    // A SEL entry every m_eventPeriod: upper critical going high (offset 9) of the
    // next of 72 temperature probes ("Temp 0061" to "Temp 0068", "Temp 0081", ...,
    // "Temp 0228"). An event names its probe by sensor number, and numbers are
    // unique only per owner and LUN: these are the probes of owner 0x20, LUN 0
    // whose numbers no probe on another LUN of this server repeats.
    std::vector<std::string> added;
    std::vector<Sample> samples;
    const auto start = Clock::now();
    auto sinceStart = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    samples.push_back({0, residentKb(pid), openFds(pid)});
    auto nextEvent = start, nextSample = start + 5s;
    while (Clock::now() < start + m_duration) {
        if (m_eventPeriod.count() > 0 && Clock::now() >= nextEvent) {
            const size_t k = added.size() % 72;
            char name[16];
            std::snprintf(name, sizeof name, "Temp %04zu", (k / 8 + 3) * 20 + k % 8 + 1);
            const Result r = runCommand(std::string(HM_KELVARN_SIM) + " sel-add \"" + name + "\" 9");
            EXPECT_EQ(r.status, 0) << r.output;
            added.push_back(name);
            nextEvent += m_eventPeriod;
        }
        if (Clock::now() >= nextSample) {
            samples.push_back({sinceStart(), residentKb(pid), openFds(pid)});
            nextSample += 5s;
        }
        std::this_thread::sleep_for(50ms);
    }
    stop = true;
    for (std::thread& t : managers)
        t.join();
    samples.push_back({sinceStart(), residentKb(pid), openFds(pid)});

    // Every entry's trap, in the order of the entries (the last one within two polls).
    std::vector<std::string> received;
    auto temperatureTraps = [&] {
        std::vector<std::string> names;
        for (const std::string& line : trapLines(m_dir + "/traps.log"))
            if (!temperatureTrapSensor(line).empty())
                names.push_back(temperatureTrapSensor(line));
        return names;
    };
    const auto trapDeadline = Clock::now() + 10s;
    while ((received = temperatureTraps()).size() < added.size() && Clock::now() < trapDeadline)
        std::this_thread::sleep_for(200ms);
    EXPECT_EQ(received, added);
    const size_t allTraps = trapLines(m_dir + "/traps.log").size();

    // Memory and descriptors after the warm-up (the first half, at least 60 s):
    // the allocator's caches (and AddressSanitizer's, in a sanitized build) grow
    // by about 2 MB over the first minute and then level off.
    const double warmUp = std::max(60.0, m_duration.count() / 2.0);
    std::vector<Sample> settled;
    for (const Sample& s : samples)
        if (s.at >= warmUp)
            settled.push_back(s);
    ASSERT_GE(settled.size(), 6u);
    const Sample& warm = settled.front();
    const Sample& last = settled.back();
    const double slope = rssSlopePerMinute(settled);
    EXPECT_EQ(failed.load(), 0u) << (failures.empty() ? "" : failures.front());
    // Descriptors: the daemon opens and closes files as it works (the simulated server's
    // journal at every query), so one sample may catch one passing through. The fewest
    // open over the first third of the settled samples and over the last third compare:
    // a transient is seen at some instants only, a leak raises every later sample.
    auto fewestFds = [](std::vector<Sample>::const_iterator from, std::vector<Sample>::const_iterator to) {
        long fewest = from->fds;
        for (auto it = from; it != to; ++it)
            fewest = std::min(fewest, it->fds);
        return fewest;
    };
    const auto window = static_cast<std::ptrdiff_t>(settled.size() / 3);
    EXPECT_LE(fewestFds(settled.end() - window, settled.end()),
              fewestFds(settled.begin(), settled.begin() + window));
    // After the warm-up the resident size of a release build stays within a few
    // tens of kB; a sanitized build grows by 70 to 500 kB a minute from the
    // sanitizers' own bookkeeping (allocation stacks, shadow memory). At this
    // load (60 to 170 commands and 4,500 to 13,000 variables a second) a leak of
    // 4 bytes per variable served, or of 300 bytes per command, adds more than
    // 1 MB a minute; memory that is lost outright is also reported by
    // LeakSanitizer when the daemon exits.
    EXPECT_LT(slope, 1024.0) << "kB per minute";

    std::printf(
        "soak: %lld s, %zu commands (%zu variables), %zu failed; SEL entries %zu, temperature traps %zu "
        "(all traps %zu); RSS kB start %ld, after warm-up %ld, end %ld (slope %.0f kB/min); fds start %ld, "
        "after warm-up %ld, end %ld\n",
        static_cast<long long>(m_duration.count()), commands.load(), variables.load(), failed.load(),
        added.size(), received.size(), allTraps, samples.front().rssKb, warm.rssKb, last.rssKb, slope,
        samples.front().fds, warm.fds, last.fds);
    for (const Sample& s : samples)
        std::printf("sample %.0f s: RSS %ld kB, %ld fds\n", s.at, s.rssKb, s.fds);
    RecordProperty("commands", static_cast<int>(commands.load()));
    RecordProperty("failed", static_cast<int>(failed.load()));
    RecordProperty("sel_entries", static_cast<int>(added.size()));
    RecordProperty("traps", static_cast<int>(received.size()));
    RecordProperty("rss_kb_warm", static_cast<int>(warm.rssKb));
    RecordProperty("rss_kb_end", static_cast<int>(last.rssKb));
    RecordProperty("fds_end", static_cast<int>(last.fds));
    EXPECT_EQ(m_daemon->stop(SIGTERM), 0) << m_daemon->output();
}

} // namespace
