// IpmiBackend on libfreeipmi: one FreeIPMI call (or one FreeIPMI helper
// such as the SDR cache or the SEL parser) for each operation.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "FreeIpmiContext.h"

namespace kelvarn {
namespace {

// Session timeout of a LAN session, in milliseconds: a BMC that does not
// answer within it counts as gone.
constexpr unsigned kSessionTimeoutMs = 5000;
constexpr unsigned kRetransmissionMs = 500;

} // namespace

// Errors after which the session or device handle is no use any more.
bool freeIpmiSessionLost(ipmi_ctx_t ctx) {
    switch (ipmi_ctx_errnum(ctx)) {
    case IPMI_ERR_SESSION_TIMEOUT:
    case IPMI_ERR_CONNECTION_TIMEOUT:
    case IPMI_ERR_DEVICE_NOT_OPEN:
    case IPMI_ERR_DRIVER_TIMEOUT:
    case IPMI_ERR_MESSAGE_TIMEOUT:
    case IPMI_ERR_SYSTEM_ERROR:
        return true;
    default:
        return false;
    }
}

ipmi_ctx_t openFreeIpmiContext(const IpmiSettings& settings) {
    ipmi_ctx_t ctx = ipmi_ctx_create();
    if (!ctx)
        throw std::bad_alloc();
    if (settings.mode == IpmiSettings::Mode::Lan) {
        std::string password;
        try {
            password = readPasswordFile(settings.passwordFile);
        } catch (const std::runtime_error& e) {
            closeFreeIpmiContext(ctx);
            throw IpmiFailure(std::string("password file ") + e.what(), true);
        }
        const std::string host = settings.host + ":" + std::to_string(settings.port);
        int rc =
            ipmi_ctx_open_outofband_2_0(ctx, host.c_str(), settings.user.c_str(), password.c_str(), nullptr,
                                        0, settings.privilege, settings.cipherSuite, kSessionTimeoutMs,
                                        kRetransmissionMs, settings.workarounds, IPMI_FLAGS_DEFAULT);
        std::fill(password.begin(), password.end(), '\0');
        if (rc < 0) {
            std::string why = ipmi_ctx_errormsg(ctx);
            closeFreeIpmiContext(ctx);
            throw IpmiFailure("IPMI session with " + host + " not opened: " + why, true);
        }
    } else {
        // A named device is the kernel driver's; otherwise FreeIPMI probes
        // its in-band drivers (the kernel driver first).
        int rc;
        if (!settings.device.empty()) {
            rc = ipmi_ctx_open_inband(ctx, IPMI_DEVICE_OPENIPMI, 0, 0, 0, settings.device.c_str(), 0,
                                      IPMI_FLAGS_DEFAULT) < 0
                     ? -1
                     : 1;
        } else {
            ipmi_driver_type_t driver;
            rc = ipmi_ctx_find_inband(ctx, &driver, 0, 0, 0, nullptr, 0, IPMI_FLAGS_DEFAULT);
        }
        if (rc <= 0) {
            std::string why = rc == 0 ? "no in-band IPMI interface found (is the ipmi_si/ipmi_devintf driver "
                                        "loaded and /dev/ipmi0 readable?)"
                                      : ipmi_ctx_errormsg(ctx);
            closeFreeIpmiContext(ctx);
            throw IpmiFailure("in-band IPMI not opened" +
                                  (settings.device.empty() ? std::string() : " on " + settings.device) +
                                  ": " + why,
                              true);
        }
    }
    return ctx;
}

void closeFreeIpmiContext(ipmi_ctx_t ctx) {
    if (ctx) {
        ipmi_ctx_close(ctx);
        ipmi_ctx_destroy(ctx);
    }
}

namespace {

// A fiid object freed on scope exit.
class Fiid {
public:
    explicit Fiid(fiid_template_t tmpl) : m_obj(fiid_obj_create(tmpl)) {
        if (!m_obj)
            throw std::bad_alloc();
    }
    ~Fiid() { fiid_obj_destroy(m_obj); }
    Fiid(const Fiid&) = delete;
    Fiid& operator=(const Fiid&) = delete;
    fiid_obj_t get() const { return m_obj; }
    uint64_t field(const char* name) const {
        uint64_t v = 0;
        if (fiid_obj_get(m_obj, name, &v) < 0)
            return 0;
        return v;
    }

private:
    fiid_obj_t m_obj;
};

class FreeIpmiBackend : public IpmiBackend {
public:
    explicit FreeIpmiBackend(IpmiSettings settings) : m_settings(std::move(settings)) {}
    ~FreeIpmiBackend() override { close(); }

    void open() override {
        close();
        ++m_commands;
        m_ctx = openFreeIpmiContext(m_settings);
        m_sensorRead = ipmi_sensor_read_ctx_create(m_ctx);
        if (!m_sensorRead) {
            close();
            throw std::bad_alloc();
        }
        ipmi_sensor_read_ctx_set_flags(m_sensorRead, IPMI_SENSOR_READ_FLAGS_BRIDGE_SENSORS);
    }

    void close() override {
        if (m_sensorRead)
            ipmi_sensor_read_ctx_destroy(m_sensorRead);
        m_sensorRead = nullptr;
        closeFreeIpmiContext(m_ctx);
        m_ctx = nullptr;
    }

    IpmiDeviceId getDeviceId() override {
        Fiid rs(tmpl_cmd_get_device_id_rs);
        ++m_commands;
        if (ipmi_cmd_get_device_id(ctx(), rs.get()) < 0)
            fail("Get Device ID");
        IpmiDeviceId id;
        id.deviceId = unsigned(rs.field("device_id"));
        id.manufacturerId = unsigned(rs.field("manufacturer_id.id"));
        id.productId = unsigned(rs.field("product_id"));
        id.firmwareMajor = unsigned(rs.field("firmware_revision1.major_revision"));
        id.firmwareMinor = unsigned(rs.field("firmware_revision2.minor_revision"));
        id.ipmiMajor = unsigned(rs.field("ipmi_version_major"));
        id.ipmiMinor = unsigned(rs.field("ipmi_version_minor"));
        return id;
    }

    std::vector<Bytes> readSdr(const std::string& cacheFile) override {
        ipmi_sdr_ctx_t sdr = ipmi_sdr_ctx_create();
        if (!sdr)
            throw std::bad_alloc();
        struct Guard {
            ipmi_sdr_ctx_t s;
            ~Guard() {
                ipmi_sdr_cache_close(s);
                ipmi_sdr_ctx_destroy(s);
            }
        } guard{sdr};
        ++m_commands; // the cache's check against the repository's time stamps
        bool current = ipmi_sdr_cache_open(sdr, ctx(), cacheFile.c_str()) == 0;
        if (!current) {
            const int e = ipmi_sdr_ctx_errnum(sdr);
            if (e != IPMI_SDR_ERR_CACHE_READ_CACHE_DOES_NOT_EXIST && e != IPMI_SDR_ERR_CACHE_INVALID &&
                e != IPMI_SDR_ERR_CACHE_OUT_OF_DATE)
                sdrFail(sdr, "SDR cache " + cacheFile + " not opened");
        } else {
            // Some BMCs add records without moving the repository's time
            // stamps: a different record count also makes the cache old.
            Fiid rs(tmpl_cmd_get_sdr_repository_info_rs);
            uint16_t cached = 0;
            ++m_commands;
            if (ipmi_cmd_get_sdr_repository_info(ctx(), rs.get()) < 0)
                fail("Get SDR Repository Info");
            if (ipmi_sdr_cache_record_count(sdr, &cached) < 0 || cached != rs.field("record_count")) {
                ipmi_sdr_cache_close(sdr);
                current = false;
            }
        }
        if (!current) {
            // Build it again from the BMC's repository.
            makeCacheDirectory(cacheFile);
            if (unlink(cacheFile.c_str()) != 0 && errno != ENOENT)
                throw IpmiFailure("SDR cache " + cacheFile + " not removed: " + std::strerror(errno), false);
            if (ipmi_sdr_cache_create(sdr, ctx(), cacheFile.c_str(), IPMI_SDR_CACHE_CREATE_FLAGS_DEFAULT,
                                      &FreeIpmiBackend::countRecord, this) < 0)
                sdrFail(sdr, "SDR cache " + cacheFile + " not built");
            if (ipmi_sdr_cache_open(sdr, nullptr, cacheFile.c_str()) < 0)
                sdrFail(sdr, "SDR cache " + cacheFile + " not opened after building it");
        }
        std::vector<Bytes> records;
        uint16_t count = 0;
        if (ipmi_sdr_cache_record_count(sdr, &count) < 0)
            sdrFail(sdr, "SDR cache " + cacheFile + " unreadable");
        if (count == 0)
            return records;
        if (ipmi_sdr_cache_first(sdr) < 0)
            sdrFail(sdr, "SDR cache " + cacheFile + " unreadable");
        do {
            uint8_t buf[IPMI_SDR_MAX_RECORD_LENGTH];
            int len = ipmi_sdr_cache_record_read(sdr, buf, sizeof buf);
            if (len < 0)
                sdrFail(sdr, "SDR cache " + cacheFile + " unreadable");
            records.emplace_back(buf, buf + len);
        } while (ipmi_sdr_cache_next(sdr) == 1);
        return records;
    }

    bool readSensor(const Bytes& record, SensorReading& out) override {
        uint8_t raw = 0;
        double* value = nullptr;
        uint16_t states = 0;
        ++m_commands;
        int rc =
            ipmi_sensor_read(sensorRead(), record.data(), unsigned(record.size()), 0, &raw, &value, &states);
        std::free(value);
        const int e = ipmi_sensor_read_ctx_errnum(m_sensorRead);
        switch (e) {
        case IPMI_SENSOR_READ_ERR_SENSOR_READING_UNAVAILABLE:
        case IPMI_SENSOR_READ_ERR_SENSOR_SCANNING_DISABLED:
        case IPMI_SENSOR_READ_ERR_SENSOR_READING_CANNOT_BE_OBTAINED:
        case IPMI_SENSOR_READ_ERR_NODE_BUSY:
        case IPMI_SENSOR_READ_ERR_SENSOR_NOT_OWNED_BY_BMC:
        case IPMI_SENSOR_READ_ERR_SENSOR_IS_SYSTEM_SOFTWARE:
        case IPMI_SENSOR_READ_ERR_SENSOR_CANNOT_BE_BRIDGED:
            return false;
        default:
            break;
        }
        if (rc < 0) {
            if (e == IPMI_SENSOR_READ_ERR_IPMI_ERROR && freeIpmiSessionLost(m_ctx))
                throw IpmiFailure(std::string("sensor reading: ") + ipmi_ctx_errormsg(m_ctx), true);
            return false;
        }
        // rc 0: FreeIPMI could not convert the value (a discrete or
        // non-linear sensor); the raw byte and the states are still valid.
        out.available = true;
        out.raw = raw;
        out.states = states & 0x7FFF;
        return true;
    }

    bool getThresholds(uint8_t sensorNumber, IpmiThresholds& out) override {
        Fiid rs(tmpl_cmd_get_sensor_thresholds_rs);
        ++m_commands;
        if (ipmi_cmd_get_sensor_thresholds(ctx(), sensorNumber, rs.get()) < 0) {
            if (freeIpmiSessionLost(m_ctx))
                fail("Get Sensor Thresholds");
            return false;
        }
        // SDR order: UNR, UC, UNC, LNR, LC, LNC; readable bits as the SDR's.
        static const char* const names[6] = {
            "upper_non_recoverable_threshold", "upper_critical_threshold", "upper_non_critical_threshold",
            "lower_non_recoverable_threshold", "lower_critical_threshold", "lower_non_critical_threshold"};
        static const unsigned bits[6] = {5, 4, 3, 2, 1, 0};
        out = IpmiThresholds();
        for (size_t k = 0; k < 6; ++k) {
            const std::string readable = std::string("readable_thresholds.") + names[k];
            if (rs.field(readable.c_str()))
                out.readable |= uint8_t(1u << bits[k]);
            out.values[k] = uint8_t(rs.field(names[k]));
        }
        return true;
    }

    IpmiSelInfo getSelInfo() override {
        Fiid rs(tmpl_cmd_get_sel_info_rs);
        ++m_commands;
        if (ipmi_cmd_get_sel_info(ctx(), rs.get()) < 0)
            fail("Get SEL Info");
        IpmiSelInfo info;
        info.entries = unsigned(rs.field("entries"));
        info.lastAddition = uint32_t(rs.field("most_recent_addition_timestamp"));
        info.lastErase = uint32_t(rs.field("most_recent_erase_timestamp"));
        return info;
    }

    std::vector<std::array<uint8_t, 16>> readSel() override {
        ipmi_sel_ctx_t sel = ipmi_sel_ctx_create(ctx(), nullptr);
        if (!sel)
            throw std::bad_alloc();
        struct Guard {
            ipmi_sel_ctx_t s;
            ~Guard() { ipmi_sel_ctx_destroy(s); }
        } guard{sel};
        SelCollect collect{this, {}};
        ++m_commands; // the reservation
        if (ipmi_sel_parse(sel, IPMI_SEL_RECORD_ID_FIRST, IPMI_SEL_RECORD_ID_LAST,
                           &FreeIpmiBackend::collectSel, &collect) < 0) {
            if (ipmi_sel_ctx_errnum(sel) == IPMI_SEL_ERR_IPMI_ERROR && freeIpmiSessionLost(m_ctx))
                fail("SEL read");
            throw IpmiFailure(std::string("SEL read: ") + ipmi_sel_ctx_errormsg(sel), false);
        }
        return std::move(collect.entries);
    }

    FruInfo readFru() override {
        FruInfo fru;
        ipmi_fru_ctx_t f = ipmi_fru_ctx_create(ctx());
        if (!f)
            throw std::bad_alloc();
        struct Guard {
            ipmi_fru_ctx_t f;
            ~Guard() {
                ipmi_fru_close_device_id(f);
                ipmi_fru_ctx_destroy(f);
            }
        } guard{f};
        ++m_commands;
        if (ipmi_fru_open_device_id(f, 0) < 0) {
            if (ipmi_fru_ctx_errnum(f) == IPMI_FRU_ERR_NO_FRU_INFORMATION)
                return fru; // a BMC without FRU data
            if (ipmi_fru_ctx_errnum(f) == IPMI_FRU_ERR_IPMI_ERROR && freeIpmiSessionLost(m_ctx))
                fail("FRU read");
            throw IpmiFailure(std::string("FRU read: ") + ipmi_fru_ctx_errormsg(f), false);
        }
        bool first = true;
        for (;;) {
            if (!first) {
                int more = ipmi_fru_next(f);
                if (more <= 0)
                    break;
            }
            first = false;
            std::vector<uint8_t> area(IPMI_FRU_AREA_SIZE_MAX + 1);
            unsigned type = 0, length = 0;
            ++m_commands;
            if (ipmi_fru_read_data_area(f, &type, &length, area.data(), unsigned(area.size())) < 0)
                break; // keep the areas read so far
            length = std::min<unsigned>(length, unsigned(area.size()));
            ipmi_fru_field_t a{}, b{}, c{}, d{}, e{}, g{}, h{};
            uint8_t language = IPMI_FRU_LANGUAGE_CODE_ENGLISH;
            if (type == IPMI_FRU_AREA_TYPE_CHASSIS_INFO_AREA) {
                uint8_t chassisType = 0;
                if (ipmi_fru_chassis_info_area(f, area.data(), length, &chassisType, &a, &b, nullptr, 0) ==
                    0) {
                    fru.chassisType = chassisType;
                    fru.chassisPartNumber = text(f, a, language);
                    fru.chassisSerialNumber = text(f, b, language);
                }
            } else if (type == IPMI_FRU_AREA_TYPE_BOARD_INFO_AREA) {
                uint32_t made = 0;
                if (ipmi_fru_board_info_area(f, area.data(), length, &language, &made, &a, &b, &c, &d, &e,
                                             nullptr, 0) == 0) {
                    fru.boardManufacturer = text(f, a, language);
                    fru.boardProductName = text(f, b, language);
                    fru.boardSerialNumber = text(f, c, language);
                    fru.boardPartNumber = text(f, d, language);
                }
            } else if (type == IPMI_FRU_AREA_TYPE_PRODUCT_INFO_AREA) {
                if (ipmi_fru_product_info_area(f, area.data(), length, &language, &a, &b, &c, &d, &e, &g, &h,
                                               nullptr, 0) == 0) {
                    fru.productManufacturer = text(f, a, language);
                    fru.productName = text(f, b, language);
                    fru.productPartNumber = text(f, c, language);
                    fru.productVersion = text(f, d, language);
                    fru.productSerialNumber = text(f, e, language);
                    fru.productAssetTag = text(f, g, language);
                }
            }
        }
        return fru;
    }

    uint64_t commandsSent() const override { return m_commands; }

private:
    struct SelCollect {
        FreeIpmiBackend* self;
        std::vector<std::array<uint8_t, 16>> entries;
    };

    static int collectSel(ipmi_sel_ctx_t sel, void* data) {
        auto* c = static_cast<SelCollect*>(data);
        ++c->self->m_commands;
        std::array<uint8_t, 16> raw{};
        uint8_t buf[IPMI_SEL_RECORD_MAX_RECORD_LENGTH];
        int len = ipmi_sel_parse_read_record(sel, buf, sizeof buf);
        if (len < 0)
            return 0; // skip an entry that cannot be read
        std::memcpy(raw.data(), buf, std::min<size_t>(size_t(len), raw.size()));
        c->entries.push_back(raw);
        return 0;
    }

    static void countRecord(uint8_t, uint16_t, uint32_t, uint32_t, uint16_t, void* data) {
        ++static_cast<FreeIpmiBackend*>(data)->m_commands;
    }

    static std::string text(ipmi_fru_ctx_t f, const ipmi_fru_field_t& field, uint8_t language) {
        if (!field.type_length_field_length)
            return "";
        char buf[IPMI_FRU_AREA_STRING_MAX + 1] = {0};
        unsigned len = IPMI_FRU_AREA_STRING_MAX;
        if (ipmi_fru_type_length_field_to_string(f, field.type_length_field, field.type_length_field_length,
                                                 language, buf, &len) < 0)
            return "";
        return std::string(buf, std::min<unsigned>(len, IPMI_FRU_AREA_STRING_MAX));
    }

    static void makeCacheDirectory(const std::string& cacheFile) {
        size_t slash = cacheFile.rfind('/');
        if (slash == std::string::npos || slash == 0)
            return;
        const std::string dir = cacheFile.substr(0, slash);
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
            throw IpmiFailure("SDR cache folder " + dir + " not created: " + std::strerror(errno), false);
    }

    ipmi_ctx_t ctx() {
        if (!m_ctx)
            throw IpmiFailure("no IPMI session", true);
        return m_ctx;
    }
    ipmi_sensor_read_ctx_t sensorRead() {
        ctx();
        return m_sensorRead;
    }

    [[noreturn]] void fail(const std::string& what) {
        throw IpmiFailure(what + ": " + ipmi_ctx_errormsg(m_ctx), freeIpmiSessionLost(m_ctx));
    }

    [[noreturn]] void sdrFail(ipmi_sdr_ctx_t sdr, const std::string& what) {
        bool lost = ipmi_sdr_ctx_errnum(sdr) == IPMI_SDR_ERR_IPMI_ERROR && freeIpmiSessionLost(m_ctx);
        throw IpmiFailure(what + ": " + ipmi_sdr_ctx_errormsg(sdr), lost);
    }

    IpmiSettings m_settings;
    ipmi_ctx_t m_ctx = nullptr;
    ipmi_sensor_read_ctx_t m_sensorRead = nullptr;
    std::atomic<uint64_t> m_commands{0}; // read by the source's other threads too
};

} // namespace

std::unique_ptr<IpmiBackend> makeFreeIpmiBackend(const IpmiSettings& settings) {
    return std::make_unique<FreeIpmiBackend>(settings);
}

std::unique_ptr<IpmiBackend> makeSystemIpmiBackend(const IpmiSettings& settings) {
    return makeFreeIpmiBackend(settings);
}

} // namespace kelvarn
