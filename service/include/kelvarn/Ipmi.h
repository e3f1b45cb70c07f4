// The IPMI source: the BMC's SDR, readings, thresholds, SEL, FRU and device
// ID, read through FreeIPMI in a background thread and answered from memory.
#ifndef KELVARN_IPMI_H
#define KELVARN_IPMI_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kelvarn/IpmiPacer.h"
#include "kelvarn/Platform.h"

namespace kelvarn {

// How to reach the BMC and how often to read it.
struct IpmiSettings {
    enum class Mode { Inband, Lan };
    Mode mode = Mode::Inband;
    std::string device;                // in-band: the driver's device, empty: FreeIPMI's probing (/dev/ipmi0)
    std::string host;                  // LAN: host name or address
    unsigned port = 623;               // LAN: UDP port
    std::string user;                  // LAN: user name
    std::string passwordFile;          // LAN: file whose first line is the password
    uint8_t privilege = 2;             // LAN: 2 user, 3 operator, 4 administrator
    uint8_t cipherSuite = 3;           // LAN: IPMI 2.0 cipher suite ID
    unsigned workarounds = 0;          // LAN: FreeIPMI's IPMI 2.0 workaround flags
    unsigned refreshMs = 2000;         // the SEL is checked, and readings wanted, every refreshMs
    bool refreshMsSet = false;         // refreshMs configured: a budget that cannot meet it is reported
    unsigned maxCommandsPerSecond = 9; // steady IPMI command budget; 0: none
    unsigned startupCommandsPerSecond = 0; // budget of a full sweep (start, reconnection); 0: none
    unsigned slowEvery = 30;               // thresholds, names, SDR, FRU: every slowEvery refreshes
    unsigned staleAfter = 3;               // values older than staleAfter refreshes are failures
    unsigned startupWaitMs = 10000;        // the first query waits at most this long for the first sweep
    std::string sdrCacheDir = "/var/cache/kelvarn";
};

// Builds the settings from the "ipmi-*" keys of the service configuration;
// throws std::runtime_error naming the key and the problem.
KELVARN_API IpmiSettings parseIpmiSettings(IpmiSettings::Mode mode,
                                           const std::map<std::string, std::string>& keys,
                                           const std::string& origin);
// Reads the password file: a regular file not readable or writable by group
// or others; its first line, without the line end, at most 20 bytes.
KELVARN_API std::string readPasswordFile(const std::string& path);

// A failed conversation with the BMC. `lost`: the session or device is gone
// (reconnect); otherwise one command failed.
class KELVARN_API IpmiFailure : public std::runtime_error {
public:
    // `absent`: the way to the BMC is not there at all (no IPMI driver), as opposed to a
    // BMC that does not answer.
    IpmiFailure(const std::string& message, bool lost, bool absent = false)
        : std::runtime_error(message), m_lost(lost), m_absent(absent) {}
    bool lost() const { return m_lost; }
    bool absent() const { return m_absent; }

private:
    bool m_lost;
    bool m_absent;
};

struct IpmiDeviceId {
    unsigned deviceId = 0, manufacturerId = 0, productId = 0;
    unsigned firmwareMajor = 0, firmwareMinor = 0, ipmiMajor = 0, ipmiMinor = 0;
};

struct IpmiSelInfo {
    unsigned entries = 0;
    uint32_t lastAddition = 0, lastErase = 0;
    bool operator==(const IpmiSelInfo& o) const {
        return entries == o.entries && lastAddition == o.lastAddition && lastErase == o.lastErase;
    }
};

// Raw thresholds as Get Sensor Thresholds returns them, in SDR order:
// UNR, UC, UNC, LNR, LC, LNC; `readable` bit n as in the SDR's readable mask
// (bit 0 LNC, 1 LC, 2 LNR, 3 UNC, 4 UC, 5 UNR).
struct IpmiThresholds {
    uint8_t readable = 0;
    std::array<uint8_t, 6> values{};
};

// The calls the source makes on the BMC, one for each FreeIPMI operation it
// uses; FreeIpmiBackend makes them with libfreeipmi, tests with a mock.
// Every call may throw IpmiFailure. Not thread-safe: one thread uses it.
class KELVARN_API IpmiBackend {
public:
    virtual ~IpmiBackend();
    virtual void open() = 0;
    virtual void close() = 0;
    virtual IpmiDeviceId getDeviceId() = 0;
    // The SDR repository through the on-disk cache `cacheFile`, which is
    // created, or rebuilt when the BMC's repository changed since.
    virtual std::vector<Bytes> readSdr(const std::string& cacheFile) = 0;
    // false: the BMC gave no reading for that record (reading unavailable).
    virtual bool readSensor(const Bytes& record, SensorReading& out) = 0;
    virtual bool getThresholds(uint8_t sensorNumber, IpmiThresholds& out) = 0;
    virtual IpmiSelInfo getSelInfo() = 0;
    virtual std::vector<std::array<uint8_t, 16>> readSel() = 0;
    // FRU device 0's chassis, board and product fields.
    virtual FruInfo readFru() = 0;
    // How many IPMI requests were sent so far; may be asked from another
    // thread while a call runs.
    virtual uint64_t commandsSent() const = 0;
};

KELVARN_API std::unique_ptr<IpmiBackend> makeFreeIpmiBackend(const IpmiSettings& settings);
// The backend of this build: FreeIPMI on POSIX; on Windows the command backend
// over Windows' IPMI driver through WMI (in-band only). Throws PlatformFileError
// when the build cannot reach a BMC that way.
KELVARN_API std::unique_ptr<IpmiBackend> makeSystemIpmiBackend(const IpmiSettings& settings);

// Answers from what the background thread last read. The thread connects,
// sweeps everything once, then every refresh period checks the SEL and reads
// as many readings, round-robin, as the command budget leaves; the rest is
// read every slowEvery periods or when the SEL or SDR changed (thresholds,
// under a budget, only at a full sweep); it reconnects by itself after a
// failure. Commands are paced evenly within the budget. Nothing here waits on the BMC except
// the first query, which waits for the first sweep while it goes on sending commands, and
// at most startupWaitMs after the last one.
class KELVARN_API IpmiSource : public Source {
public:
    IpmiSource(IpmiSettings settings, std::unique_ptr<IpmiBackend> backend);
    ~IpmiSource() override;
    std::string describe() const override;
    std::vector<Bytes> sdrRepository() override;
    // The records of the last sweep, shared without a copy: the same pointer until
    // a sweep reads the repository again.
    std::shared_ptr<const std::vector<Bytes>> sharedSdrRepository() override;
    bool sensorReading(const SensorAddress& address, SensorReading& out) override;
    std::vector<SelEntry> selEntries() override;
    Inventory inventory() override;

    // Observation for tests and diagnostics.
    uint64_t commandsSent() const { return m_commands.load(); }
    uint64_t sweeps() const { return m_sweeps.load(); }
    // How often every reading is refreshed under the budget (0 before the
    // first sweep): what a manager sees as the sensors' update rate.
    uint64_t readingRefreshPeriodMs() const override { return m_periodMs.load(); }
    // The last attempt found no way to the BMC at all (no IPMI driver).
    bool absent() const override { return m_absent.load(); }
    std::string lastError() const;

private:
    using Clock = std::chrono::steady_clock;
    struct Reading {
        SensorReading value;
        Clock::time_point at;
    };
    struct Memory {
        bool loaded = false;
        std::vector<Bytes> sdr;
        std::map<SensorAddress, Reading> readings;
        std::vector<SelEntry> sel;
        FruInfo fru;
        OemInfo oem;
        Clock::time_point contact; // the last complete sweep
    };

    void run();
    struct Stopping {};
    void sweep(bool slow, bool full);
    // Runs one backend call once `pacer` allows, charging what it sent;
    // throws Stopping when the source is being destroyed.
    template <typename F> auto paced(CommandPacer& pacer, F call) -> decltype(call());
    void waitForFirstSweep();
    // Throws kSourceUnavailable when nothing was read within the bound.
    std::shared_ptr<const Memory> current();
    Clock::duration bound() const;

    IpmiSettings m_settings;
    std::unique_ptr<IpmiBackend> m_backend;
    std::string m_cacheFile;

    mutable std::mutex m_lock;
    std::condition_variable m_wake;
    std::shared_ptr<const Memory> m_memory;
    std::string m_lastError;
    bool m_stop = false;
    bool m_startupDone = false;
    std::atomic<uint64_t> m_commands{0};
    std::atomic<uint64_t> m_sweeps{0};
    std::atomic<uint64_t> m_periodMs{0};
    std::atomic<bool> m_absent{false};

    // Owned by the background thread.
    bool m_open = false;
    IpmiSelInfo m_selInfo;
    std::map<uint8_t, IpmiThresholds> m_thresholds;
    unsigned m_count = 0;
    CommandPacer m_pacer, m_startupPacer;
    size_t m_nextSensor = 0; // where the round-robin of readings goes on
    bool m_reported = false; // a refresh period the budget cannot meet was reported

    std::thread m_thread;
};

} // namespace kelvarn

#endif
