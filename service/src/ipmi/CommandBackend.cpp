// IpmiBackend over an IpmiTransport: the SDR repository read in parts under a
// reservation and kept in a cache file, the SEL walked record by record, FRU
// device 0 read in blocks, readings and thresholds one command each.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

#include "kelvarn/IpmiCommands.h"
#include "kelvarn/Sdr.h"

namespace kelvarn {

IpmiTransport::~IpmiTransport() = default;

namespace {

using namespace ipmi;

// SDR records are read as a 5-byte header, then the body in parts of at most
// kSdrPart bytes, fewer when the BMC cannot return that many.
constexpr uint8_t kSdrHeaderLength = 5;
constexpr uint8_t kSdrPart = 16;
constexpr unsigned kReservationTries = 5;
constexpr uint16_t kFirstRecord = 0x0000, kLastRecord = 0xFFFF;
constexpr uint8_t kWholeRecord = 0xFF;
constexpr size_t kSelEntryLength = 16;
constexpr uint8_t kFruBlock = 16;

// The cache file: this first line, then the repository's record count and
// time stamps and each record as a 2-byte length and its bytes (little-endian).
const char kCacheMagic[] = "kelvarn SDR cache 1\n";

struct ReservationCancelled {};

class CommandBackend : public IpmiBackend {
public:
    explicit CommandBackend(IpmiConnect connect) : m_connect(std::move(connect)) {}

    void open() override {
        close();
        ++m_commands;
        m_transport = m_connect();
    }
    void close() override { m_transport.reset(); }

    IpmiDeviceId getDeviceId() override { return deviceIdOf(call(kGetDeviceId, 0, {})); }

    std::vector<Bytes> readSdr(const std::string& cacheFile) override {
        const Message info = call(kGetSdrRepositoryInfo, 0, {});
        const Stamp stamp{uint16_t(info["entries"]), uint32_t(info["most_recent_addition_timestamp"]),
                          uint32_t(info["most_recent_erase_timestamp"])};
        std::vector<Bytes> records;
        if (loadCache(cacheFile, stamp, records))
            return records;
        records = readRepository();
        saveCache(cacheFile, stamp, records);
        return records;
    }

    bool readSensor(const Bytes& record, SensorReading& out) override {
        // Byte 6 the owner (bit 0: a system software ID), 7 the LUN, 8 the
        // number, 14 the event/reading type; only the BMC's own sensors are
        // read, as this transport does not bridge.
        if (record.size() < 14 || (record[3] != kSdrFullSensor && record[3] != kSdrCompactSensor) ||
            record[5] != kBmcSlaveAddress)
            return false;
        return readingOf(call(kGetSensorReading, record[6] & 3, {{"sensor_number", record[7]}}), out);
    }

    bool getThresholds(uint8_t sensorNumber, IpmiThresholds& out) override {
        out = thresholdsOf(call(kGetSensorThresholds, 0, {{"sensor_number", sensorNumber}}));
        return true;
    }

    IpmiSelInfo getSelInfo() override { return selInfoOf(call(kGetSelInfo, 0, {})); }

    std::vector<std::array<uint8_t, 16>> readSel() override {
        std::vector<std::array<uint8_t, 16>> entries;
        std::set<uint32_t> seen; // a next record ID seen before ends the walk
        for (uint32_t id = kFirstRecord; id != kLastRecord && seen.insert(id).second;) {
            const Response r = exchange(kGetSelEntry, 0,
                                        {{"record_id", id}, {"offset", 0}, {"bytes_to_read", kWholeRecord}});
            if (r.completionCode == kCcNotPresent && id == kFirstRecord)
                break; // an empty SEL
            const Message m = decodeResponse(kGetSelEntry, r);
            if (m.data.size() < kSelEntryLength)
                throw short_(kGetSelEntry, r);
            std::array<uint8_t, 16> raw{};
            std::copy_n(m.data.begin(), kSelEntryLength, raw.begin());
            entries.push_back(raw);
            id = uint32_t(m["next_record_id"]);
        }
        return entries;
    }

    FruInfo readFru() override {
        const Response r = exchange(kGetFruInventoryAreaInfo, 0, {{"fru_device_id", 0}});
        if (r.completionCode == kCcNotPresent)
            return FruInfo(); // a BMC without FRU data
        const Message info = decodeResponse(kGetFruInventoryAreaInfo, r);
        const size_t size = size_t(info["fru_inventory_area_size"]);
        const unsigned unit = info["device_accessed_by_words"] ? 2 : 1;
        Bytes inventory(size, 0);
        readFruBytes(inventory, 0, kFruHeaderLength, unit);
        Message header;
        if (!decodeFruHeader(inventory, header))
            return FruInfo();
        // The chassis, board and product areas: their length byte, then the rest.
        for (const char* field :
             {"chassis_info_area_offset", "board_info_area_offset", "product_info_area_offset"}) {
            const size_t at = size_t(header[field]) * 8;
            if (at == 0 || at + 2 > size)
                continue;
            readFruBytes(inventory, at, 2, unit);
            const size_t length = size_t(inventory[at + 1]) * 8;
            if (length > 2)
                readFruBytes(inventory, at + 2, length - 2, unit);
        }
        return decodeFru(inventory);
    }

    uint64_t commandsSent() const override { return m_commands; }

private:
    struct Stamp {
        uint16_t count;
        uint32_t addition, erase;
    };

    IpmiTransport& transport() {
        if (!m_transport)
            throw IpmiFailure("no IPMI session", true);
        return *m_transport;
    }

    Response exchange(const Command& c, uint8_t lun, const std::map<std::string, uint64_t>& values) {
        const Bytes request = encode(c.request, values);
        IpmiTransport& t = transport();
        ++m_commands;
        return t.send(c.netFn, lun, c.cmd, request);
    }

    Message call(const Command& c, uint8_t lun, const std::map<std::string, uint64_t>& values) {
        return decodeResponse(c, exchange(c, lun, values));
    }

    static IpmiFailure short_(const Command& c, const Response& r) {
        return IpmiFailure(std::string(c.name) + ": response of " + std::to_string(r.data.size()) +
                               " bytes is too short",
                           false);
    }

    // One part of record `id`; throws ReservationCancelled on 0xC5.
    Response sdrPart(uint16_t reservation, uint16_t id, size_t offset, size_t count) {
        Response r = exchange(kGetSdr, 0,
                              {{"reservation_id", reservation},
                               {"record_id", id},
                               {"offset", offset},
                               {"bytes_to_read", count}});
        if (r.completionCode == kCcReservationCancelled)
            throw ReservationCancelled();
        return r;
    }

    // One record read whole under `reservation`; sets `next` to the next record's ID.
    Bytes readRecord(uint16_t reservation, uint16_t id, uint16_t& next) {
        const Message head = decodeResponse(kGetSdr, sdrPart(reservation, id, 0, kSdrHeaderLength));
        if (head.data.size() < kSdrHeaderLength)
            throw IpmiFailure("Get SDR: record header of " + std::to_string(head.data.size()) + " bytes",
                              false);
        next = uint16_t(head["next_record_id"]);
        Bytes record(head.data.begin(), head.data.begin() + kSdrHeaderLength);
        const size_t length = kSdrHeaderLength + size_t(record[4]);
        size_t part = std::min<size_t>(m_sdrPart, kSdrPart);
        while (record.size() < length) {
            const size_t count = std::min(part, length - record.size());
            const Response r = sdrPart(reservation, id, record.size(), count);
            if ((r.completionCode == kCcCannotReturnBytes || r.completionCode == kCcOtherError) && part > 1) {
                part = std::max<size_t>(1, part / 2); // a BMC with a smaller limit
                m_sdrPart = part;
                continue;
            }
            const Message m = decodeResponse(kGetSdr, r);
            if (m.data.empty())
                throw short_(kGetSdr, r);
            record.insert(record.end(), m.data.begin(),
                          m.data.begin() + long(std::min(m.data.size(), count)));
        }
        return record;
    }

    std::vector<Bytes> readRepository() {
        std::vector<Bytes> records;
        uint16_t reservation = reserve();
        std::set<uint32_t> seen; // a next record ID seen before ends the walk
        for (uint32_t id = kFirstRecord; id != kLastRecord && seen.insert(id).second;) {
            uint16_t next = 0;
            for (unsigned tries = 1;; ++tries) {
                try {
                    records.push_back(readRecord(reservation, uint16_t(id), next));
                    break;
                } catch (const ReservationCancelled&) {
                    // The repository changed under the reservation: this record again.
                    if (tries == kReservationTries)
                        throw IpmiFailure(
                            "Get SDR: reservation cancelled " + std::to_string(tries) + " times", false);
                    reservation = reserve();
                }
            }
            id = next;
        }
        return records;
    }

    uint16_t reserve() { return uint16_t(call(kReserveSdrRepository, 0, {})["reservation_id"]); }

    // Reads `count` bytes at `offset` of FRU device 0 into `inventory` (clipped to its size).
    void readFruBytes(Bytes& inventory, size_t offset, size_t count, unsigned unit) {
        count = std::min(count, inventory.size() > offset ? inventory.size() - offset : 0);
        while (count > 0) {
            const size_t want = std::min<size_t>(count, kFruBlock) / unit;
            const Response r = exchange(kReadFruData, 0,
                                        {{"fru_device_id", 0},
                                         {"fru_inventory_offset", offset / unit},
                                         {"count_to_read", std::max<size_t>(want, 1)}});
            const Message m = decodeResponse(kReadFruData, r);
            const size_t got = std::min({size_t(m["count_returned"]) * unit, m.data.size(), count});
            if (got == 0)
                throw short_(kReadFruData, r);
            std::copy_n(m.data.begin(), got, inventory.begin() + long(offset));
            offset += got;
            count -= got;
        }
    }

    static bool loadCache(const std::string& file, const Stamp& stamp, std::vector<Bytes>& records) {
        std::ifstream in(file, std::ios::binary);
        const Bytes all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const size_t magic = sizeof kCacheMagic - 1;
        if (all.size() < magic + 10 || !std::equal(kCacheMagic, kCacheMagic + magic, all.begin()))
            return false;
        size_t at = magic;
        auto get = [&](size_t bytes) {
            uint32_t v = 0;
            for (size_t i = 0; i < bytes; ++i)
                v |= uint32_t(all[at + i]) << (8 * i);
            at += bytes;
            return v;
        };
        const uint32_t count = get(2), addition = get(4), erase = get(4);
        if (count != stamp.count || addition != stamp.addition || erase != stamp.erase)
            return false; // the repository changed since
        records.clear();
        while (at + 2 <= all.size()) {
            const size_t length = get(2);
            if (at + length > all.size())
                return false;
            records.emplace_back(all.begin() + long(at), all.begin() + long(at + length));
            at += length;
        }
        return at == all.size() && records.size() == count;
    }

    static void saveCache(const std::string& file, const Stamp& stamp, const std::vector<Bytes>& records) {
        namespace fs = std::filesystem;
        std::error_code e;
        const fs::path dir = fs::path(file).parent_path();
        if (!dir.empty() && !fs::create_directories(dir, e) && e)
            throw IpmiFailure("SDR cache folder " + dir.string() + " not created: " + e.message(), false);
        Bytes out(kCacheMagic, kCacheMagic + sizeof kCacheMagic - 1);
        auto put = [&](uint32_t v, size_t bytes) {
            for (size_t i = 0; i < bytes; ++i)
                out.push_back(uint8_t(v >> (8 * i)));
        };
        put(uint32_t(records.size()), 2);
        put(stamp.addition, 4);
        put(stamp.erase, 4);
        for (const Bytes& r : records) {
            put(uint32_t(r.size()), 2);
            out.insert(out.end(), r.begin(), r.end());
        }
        const std::string temp = file + ".new";
        {
            std::ofstream f(temp, std::ios::binary | std::ios::trunc);
            f.write(reinterpret_cast<const char*>(out.data()), std::streamsize(out.size()));
            if (!f.flush())
                throw IpmiFailure("SDR cache " + file + " not written", false);
        }
        fs::rename(temp, file, e);
        if (e)
            throw IpmiFailure("SDR cache " + file + " not written: " + e.message(), false);
    }

    IpmiConnect m_connect;
    std::unique_ptr<IpmiTransport> m_transport;
    size_t m_sdrPart = kSdrPart;         // what the BMC was last found to return
    std::atomic<uint64_t> m_commands{0}; // read by the source's other threads too
};

} // namespace

std::unique_ptr<IpmiBackend> makeCommandBackend(IpmiConnect connect) {
    return std::make_unique<CommandBackend>(std::move(connect));
}

} // namespace kelvarn
