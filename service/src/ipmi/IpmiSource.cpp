// The IPMI source: a background thread keeps a copy of the BMC's facts in
// memory; queries are answered from that copy only.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "kelvarn/Errors.h"
#include "kelvarn/Ipmi.h"
#include "kelvarn/IpmiCommands.h"

namespace kelvarn {

IpmiBackend::~IpmiBackend() = default;

namespace {

// SDR layout: the bytes the source looks at.
enum : size_t {
    kRecordType = 3,
    kOwnerId = 5,
    kOwnerLun = 6,
    kSensorNumber = 7,
    kCapabilities = 11,
    kEventReadingType = 13,
    kReadableMask = 18,
    kFirstThreshold = 36, // UNR, UC, UNC, LNR, LC, LNC
    kFullRecordMinimum = 48,
    kCompactRecordMinimum = 32,
};
constexpr uint8_t kFullRecord = 0x01, kCompactRecord = 0x02, kThresholdType = 0x01,
                  kBmcOwner = ipmi::kBmcSlaveAddress;

bool isSensorRecord(const Bytes& r) {
    return (r.size() >= kFullRecordMinimum && r[kRecordType] == kFullRecord) ||
           (r.size() >= kCompactRecordMinimum && r[kRecordType] == kCompactRecord);
}

// Full threshold records of the BMC's own sensors whose thresholds can be
// read (capabilities bits 3:2 not 00 "no thresholds" or 11 "fixed, not readable").
bool hasReadableThresholds(const Bytes& r) {
    if (r.size() < kFullRecordMinimum || r[kRecordType] != kFullRecord ||
        r[kEventReadingType] != kThresholdType)
        return false;
    const unsigned access = (r[kCapabilities] >> 2) & 3;
    return r[kOwnerId] == kBmcOwner && (r[kOwnerLun] & 3) == 0 && (access == 1 || access == 2);
}

// The thresholds the BMC reports now replace the SDR's initial values; the
// readable mask becomes the one the BMC returned.
void overlayThresholds(Bytes& r, const IpmiThresholds& t) {
    r[kReadableMask] = t.readable & 0x3F;
    // values[] is in SDR order UNR..LNC; readable bit for SDR slot k (0 = UNR):
    const unsigned bitOf[6] = {5, 4, 3, 2, 1, 0};
    for (size_t k = 0; k < 6; ++k)
        if (t.readable & (1u << bitOf[k]))
            r[kFirstThreshold + k] = t.values[k];
}

} // namespace

IpmiSource::IpmiSource(IpmiSettings settings, std::unique_ptr<IpmiBackend> backend)
    : m_settings(std::move(settings)), m_backend(std::move(backend)) {
    if (m_settings.refreshMs == 0)
        m_settings.refreshMs = 1;
    if (m_settings.slowEvery == 0)
        m_settings.slowEvery = 1;
    if (m_settings.staleAfter == 0)
        m_settings.staleAfter = 1;
    std::string name = m_settings.mode == IpmiSettings::Mode::Lan
                           ? m_settings.host + "-" + std::to_string(m_settings.port)
                           : std::string("local");
    for (char& c : name)
        if (c == '/' || c == ':')
            c = '_';
    m_cacheFile = m_settings.sdrCacheDir + "/sdr-cache-" + name;
    m_pacer = CommandPacer(m_settings.maxCommandsPerSecond);
    m_startupPacer = CommandPacer(m_settings.startupCommandsPerSecond);
    m_thread = std::thread([this] { run(); });
}

IpmiSource::~IpmiSource() {
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_open)
        m_backend->close();
}

std::string IpmiSource::describe() const {
    if (m_settings.mode == IpmiSettings::Mode::Lan)
        return "IPMI over LAN at " + m_settings.host + ":" + std::to_string(m_settings.port);
    return "in-band IPMI" + (m_settings.device.empty() ? std::string() : " on " + m_settings.device);
}

std::string IpmiSource::lastError() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_lastError;
}

IpmiSource::Clock::duration IpmiSource::bound() const {
    return std::chrono::milliseconds(uint64_t(m_settings.refreshMs) * m_settings.staleAfter);
}

template <typename F> auto IpmiSource::paced(CommandPacer& pacer, F call) -> decltype(call()) {
    {
        std::unique_lock<std::mutex> lock(m_lock);
        if (m_wake.wait_until(lock, pacer.next(Clock::now()), [this] { return m_stop; }))
            throw Stopping();
    }
    // Charged from when the call began: the BMC's own time counts in the gap.
    const auto started = Clock::now();
    const uint64_t before = m_backend->commandsSent();
    try {
        auto result = call();
        pacer.spent(started, m_backend->commandsSent() - before);
        return result;
    } catch (...) {
        pacer.spent(started, m_backend->commandsSent() - before);
        throw;
    }
}

void IpmiSource::run() {
    std::unique_lock<std::mutex> lock(m_lock);
    while (!m_stop) {
        lock.unlock();
        // Polls start every refresh period, however long a paced sweep took.
        const auto started = Clock::now();
        std::string error;
        try {
            bool slow = m_count % m_settings.slowEvery == 0;
            bool full = false;
            if (!m_open) {
                m_backend->open();
                m_open = true;
                slow = full = true; // after a reconnection everything may have changed
            }
            sweep(slow, full);
            ++m_count;
        } catch (const Stopping&) {
            break;
        } catch (const IpmiFailure& e) {
            error = e.what();
            m_absent = e.absent();
        } catch (const std::exception& e) {
            error = e.what();
        }
        if (!error.empty() && m_open) {
            // Start again from a new session or device handle.
            m_backend->close();
            m_open = false;
            m_count = 0;
        }
        m_commands = m_backend->commandsSent();
        lock.lock();
        if (!error.empty())
            m_lastError = error;
        m_startupDone = true;
        m_wake.notify_all();
        m_wake.wait_until(lock, started + std::chrono::milliseconds(m_settings.refreshMs),
                          [this] { return m_stop; });
    }
}

void IpmiSource::sweep(bool slow, bool full) {
    CommandPacer& pacer = full ? m_startupPacer : m_pacer;
    const bool budget = m_settings.maxCommandsPerSecond != 0;
    std::shared_ptr<const Memory> previous;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        previous = m_memory;
    }
    auto next = std::make_shared<Memory>();
    if (previous)
        *next = *previous;
    if (slow || !next->loaded) {
        const IpmiDeviceId id = paced(pacer, [&] { return m_backend->getDeviceId(); });
        next->oem.deviceId = id.deviceId;
        next->oem.manufacturerId = id.manufacturerId;
        next->oem.productId = id.productId;
        char text[32];
        std::snprintf(text, sizeof text, "%u.%02x", id.firmwareMajor, id.firmwareMinor);
        next->oem.firmwareRevision = text;
        std::snprintf(text, sizeof text, "%u.%u", id.ipmiMajor, id.ipmiMinor);
        next->oem.ipmiVersion = text;

        std::vector<Bytes> sdr = paced(pacer, [&] { return m_backend->readSdr(m_cacheFile); });
        // Under a budget the thresholds are read at a full sweep only and kept
        // for the slow cycles: re-reading them all would hold the SEL check back.
        const bool readThresholds = full || !budget || !next->loaded;
        if (readThresholds)
            m_thresholds.clear();
        for (Bytes& r : sdr) {
            if (!hasReadableThresholds(r))
                continue;
            if (!readThresholds) {
                auto kept = m_thresholds.find(r[kSensorNumber]);
                if (kept != m_thresholds.end())
                    overlayThresholds(r, kept->second);
                continue;
            }
            IpmiThresholds t;
            try {
                if (paced(pacer, [&] { return m_backend->getThresholds(r[kSensorNumber], t); })) {
                    overlayThresholds(r, t);
                    m_thresholds[r[kSensorNumber]] = t;
                }
            } catch (const IpmiFailure& e) {
                if (e.lost())
                    throw;
                // This sensor keeps the SDR's thresholds.
            }
        }
        next->sdr = std::move(sdr);
        try {
            next->fru = paced(pacer, [&] { return m_backend->readFru(); });
        } catch (const IpmiFailure& e) {
            if (e.lost())
                throw;
            next->fru = FruInfo(); // a BMC without FRU data
        }
    }

    const IpmiSelInfo info = paced(pacer, [&] { return m_backend->getSelInfo(); });
    if (slow || !next->loaded || !(info == m_selInfo)) {
        std::vector<SelEntry> sel;
        for (const auto& raw : paced(pacer, [&] { return m_backend->readSel(); })) {
            SelEntry e;
            e.raw = raw;
            sel.push_back(e);
        }
        next->sel = std::move(sel);
        m_selInfo = info;
    }

    // The sensors, each once (the first record of a sensor answers for it).
    std::vector<const Bytes*> sensors;
    std::map<SensorAddress, Reading> readings;
    for (const Bytes& r : next->sdr) {
        if (!isSensorRecord(r))
            continue;
        SensorAddress a;
        a.owner = r[kOwnerId];
        a.lun = r[kOwnerLun];
        a.number = r[kSensorNumber];
        if (readings.emplace(a, Reading()).second)
            sensors.push_back(&r);
    }
    const RefreshPlan plan =
        planRefresh(unsigned(sensors.size()), m_settings.maxCommandsPerSecond, m_settings.refreshMs);
    // A full sweep reads every sensor; otherwise the next readingsPerPoll of
    // the round-robin, the others keeping their last reading.
    const size_t count = full || !next->loaded ? sensors.size() : plan.readingsPerPoll;
    if (m_nextSensor >= sensors.size())
        m_nextSensor = 0;
    for (size_t i = 0; i < sensors.size(); ++i) {
        const size_t k = (m_nextSensor + i) % sensors.size();
        const Bytes& r = *sensors[k];
        SensorAddress a;
        a.owner = r[kOwnerId];
        a.lun = r[kOwnerLun];
        a.number = r[kSensorNumber];
        Reading& reading = readings[a];
        auto old = next->readings.find(a);
        if (i >= count && old != next->readings.end()) {
            reading = old->second;
            continue;
        }
        try {
            if (!paced(pacer, [&] { return m_backend->readSensor(r, reading.value); }))
                reading.value.available = false;
        } catch (const IpmiFailure& e) {
            if (e.lost())
                throw;
            reading.value.available = false;
        }
        reading.at = Clock::now();
    }
    if (!sensors.empty())
        m_nextSensor = (m_nextSensor + count) % sensors.size();
    const uint64_t period = plan.periodMs > m_settings.refreshMs ? plan.periodMs : m_settings.refreshMs;
    if (!m_reported && m_settings.refreshMsSet && (period > m_settings.refreshMs || !plan.withinBudget)) {
        m_reported = true;
        const uint64_t needed = (uint64_t(sensors.size()) + 1) * 1000 / m_settings.refreshMs + 1;
        std::fprintf(stderr,
                     "%s: %zu sensors within ipmi-max-commands-per-second=%u are each read every %llu ms, "
                     "not every %u ms as ipmi-refresh-ms asks; a budget of %llu commands per second "
                     "would meet it\n",
                     describe().c_str(), sensors.size(), m_settings.maxCommandsPerSecond,
                     (unsigned long long)period, m_settings.refreshMs, (unsigned long long)needed);
    }
    m_periodMs = period;
    next->readings = std::move(readings);
    next->contact = Clock::now();
    next->loaded = true;
    m_sweeps++;
    m_absent = false;
    std::lock_guard<std::mutex> guard(m_lock);
    m_memory = std::move(next);
    m_lastError.clear();
}

void IpmiSource::waitForFirstSweep() {
    // Waited for while the BMC keeps taking commands: a first read of a large
    // repository at a slow BMC's pace can take minutes, and what the first
    // queries find is what the agent's tables are made of. A whole startupWaitMs
    // in which no command went out ends the wait.
    if (m_settings.startupWaitMs == 0)
        return;
    std::unique_lock<std::mutex> lock(m_lock);
    uint64_t seen = m_backend->commandsSent();
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(m_settings.startupWaitMs),
                            [this] { return m_startupDone; })) {
        const uint64_t sent = m_backend->commandsSent();
        if (sent == seen)
            return;
        seen = sent;
    }
}

std::shared_ptr<const IpmiSource::Memory> IpmiSource::current() {
    waitForFirstSweep();
    std::lock_guard<std::mutex> guard(m_lock);
    const std::string why = m_lastError.empty() ? std::string() : ": " + m_lastError;
    if (!m_memory)
        throw QueryError(kSourceUnavailable,
                         "BMC data unavailable: nothing read yet from " + describe() + why, kFacilitySource);
    const auto age = Clock::now() - m_memory->contact;
    if (age > bound())
        throw QueryError(
            kSourceUnavailable,
            "BMC data unavailable: nothing read from " + describe() + " for " +
                std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(age).count()) + " ms" +
                why,
            kFacilitySource);
    return m_memory;
}

std::vector<Bytes> IpmiSource::sdrRepository() {
    return current()->sdr;
}

std::shared_ptr<const std::vector<Bytes>> IpmiSource::sharedSdrRepository() {
    std::shared_ptr<const Memory> m = current();
    return std::shared_ptr<const std::vector<Bytes>>(m, &m->sdr);
}

bool IpmiSource::sensorReading(const SensorAddress& address, SensorReading& out) {
    std::shared_ptr<const Memory> m = current();
    auto it = m->readings.find(address);
    if (it == m->readings.end())
        return false;
    const auto readingBound = std::max<Clock::duration>(
        bound(), std::chrono::milliseconds(m_periodMs.load() * m_settings.staleAfter));
    if (Clock::now() - it->second.at > readingBound)
        throw QueryError(kSourceUnavailable,
                         "BMC data unavailable: the reading of sensor " + std::to_string(address.number) +
                             " was not refreshed in time",
                         kFacilitySource);
    out = it->second.value;
    return true;
}

std::vector<SelEntry> IpmiSource::selEntries() {
    return current()->sel;
}

Inventory IpmiSource::inventory() {
    std::shared_ptr<const Memory> m = current();
    Inventory inv;
    inv.fru = m->fru;
    inv.oem = m->oem;
    return inv;
}

} // namespace kelvarn
