// The IPMI command tables and their encoders and decoders.
#include "kelvarn/IpmiCommands.h"

#include <cstdio>
#include <stdexcept>

namespace kelvarn {
namespace ipmi {
namespace {

constexpr Field::Presence R = Field::Required, O = Field::Optional;

template <size_t N> constexpr Layout layout(const Field (&fields)[N]) {
    return Layout{fields, N};
}
constexpr Layout kEmpty{nullptr, 0};

// Get Device ID (App 0x01).
const Field kDeviceIdRs[] = {
    {"device_id", 8, R},          {"device_revision", 4, R},
    {"reserved1", 3, R},          {"device_provides_sdrs", 1, R},
    {"firmware_major", 7, R},     {"device_available", 1, R},
    {"firmware_minor", 8, R},     {"ipmi_version_major", 4, R},
    {"ipmi_version_minor", 4, R}, {"additional_device_support", 8, R},
    {"manufacturer_id", 20, R},   {"reserved2", 4, R},
    {"product_id", 16, R},        {"auxiliary_firmware", 32, O},
};

// Get SDR Repository Info (Storage 0x20) and Get SEL Info (Storage 0x40) answer alike.
const Field kRepositoryInfoRs[] = {
    {"version", 8, R},
    {"entries", 16, R},
    {"free_space", 16, R},
    {"most_recent_addition_timestamp", 32, R},
    {"most_recent_erase_timestamp", 32, R},
    {"operation_support", 8, R},
};

// Reserve SDR Repository (Storage 0x22).
const Field kReservationRs[] = {{"reservation_id", 16, R}};

// Get SDR (Storage 0x23) and Get SEL Entry (Storage 0x43): a part of one record.
const Field kRecordPartRq[] = {
    {"reservation_id", 16, R},
    {"record_id", 16, R},
    {"offset", 8, R},
    {"bytes_to_read", 8, R}, // 0xFF: the whole record
};
const Field kRecordPartRs[] = {{"next_record_id", 16, R}, {"record_data", 0, R}};

// Get Sensor Reading (Sensor/Event 0x2D) and Get Sensor Thresholds (Sensor/Event 0x27).
const Field kSensorNumberRq[] = {{"sensor_number", 8, R}};
const Field kSensorReadingRs[] = {
    {"sensor_reading", 8, R},      {"reserved1", 5, R},
    {"reading_unavailable", 1, R}, {"sensor_scanning", 1, R}, // 0: scanning disabled
    {"all_event_messages", 1, R},  {"state_bits_low", 8, O},  // threshold sensors: the comparison status bits
    {"state_bits_high", 7, O},     {"reserved2", 1, O},
};
const Field kSensorThresholdsRs[] = {
    {"readable_thresholds", 6, R}, // bit 0 LNC, 1 LC, 2 LNR, 3 UNC, 4 UC, 5 UNR
    {"reserved", 2, R},
    {"lower_non_critical_threshold", 8, R},
    {"lower_critical_threshold", 8, R},
    {"lower_non_recoverable_threshold", 8, R},
    {"upper_non_critical_threshold", 8, R},
    {"upper_critical_threshold", 8, R},
    {"upper_non_recoverable_threshold", 8, R},
};

// Get FRU Inventory Area Info (Storage 0x10) and Read FRU Data (Storage 0x11).
const Field kFruDeviceRq[] = {{"fru_device_id", 8, R}};
const Field kFruAreaInfoRs[] = {
    {"fru_inventory_area_size", 16, R},
    {"device_accessed_by_words", 1, R},
    {"reserved", 7, R},
};
const Field kReadFruDataRq[] = {
    {"fru_device_id", 8, R},
    {"fru_inventory_offset", 16, R}, // in words when the device is accessed by words
    {"count_to_read", 8, R},
};
const Field kReadFruDataRs[] = {{"count_returned", 8, R}, {"requested_data", 0, R}};

// FRU inventory common header; area offsets in multiples of 8 bytes, 0: no such area.
const Field kFruHeader[] = {
    {"format_version", 4, R},
    {"reserved", 4, R},
    {"internal_use_area_offset", 8, R},
    {"chassis_info_area_offset", 8, R},
    {"board_info_area_offset", 8, R},
    {"product_info_area_offset", 8, R},
    {"multirecord_area_offset", 8, R},
    {"pad", 8, R},
    {"checksum", 8, R},
};

constexpr uint8_t kFruFormatVersion = 1;

// FRU type/length byte: bits 7:6 the type, 5:0 the data length; 0xC1 ends the fields.
constexpr uint8_t kFruEndOfFields = 0xC1;
enum FruType : uint8_t { kFruBinary = 0, kFruBcdPlus = 1, kFruSixBitAscii = 2, kFruLanguage = 3 };
constexpr uint8_t kLanguageEnglishLegacy = 0, kLanguageEnglish = 25;

const Field* find(const Layout& layout, const std::string& name) {
    for (size_t i = 0; i < layout.count; ++i)
        if (name == layout.fields[i].name)
            return &layout.fields[i];
    return nullptr;
}

// The text of one type/length field (FreeIPMI's reading: binary as "XXh" bytes,
// BCD plus one character a byte, 6-bit ASCII unpacked, 8-bit ASCII in English);
// "" when it cannot be read.
std::string fruText(const uint8_t* data, uint8_t typeLength, uint8_t language) {
    const size_t n = typeLength & 0x3F;
    std::string s;
    switch (typeLength >> 6) {
    case kFruBinary:
        for (size_t i = 0; i < n; ++i) {
            char hex[5];
            std::snprintf(hex, sizeof hex, "%02Xh", data[i]);
            s += (i ? " " : "") + std::string(hex);
        }
        return s;
    case kFruBcdPlus:
        for (size_t i = 0; i < n; ++i) {
            static const char kExtra[] = " -.";
            if (data[i] <= 9)
                s += char('0' + data[i]);
            else if (data[i] >= 0x0A && data[i] <= 0x0C)
                s += kExtra[data[i] - 0x0A];
            else
                return "";
        }
        return s;
    case kFruSixBitAscii:
        // Four characters in three bytes, from ' ' on.
        for (size_t i = 0; i < n; i += 3) {
            uint32_t bits = data[i];
            size_t chars = 2;
            if (i + 1 < n)
                bits |= uint32_t(data[i + 1]) << 8;
            if (i + 2 < n) {
                bits |= uint32_t(data[i + 2]) << 16;
                chars = 4;
            } else if (i + 1 >= n) {
                chars = 1;
            }
            for (size_t c = 0; c < chars; ++c)
                s += char(' ' + ((bits >> (6 * c)) & 0x3F));
        }
        return s;
    default:
        if (language != kLanguageEnglishLegacy && language != kLanguageEnglish)
            return "";
        return std::string(reinterpret_cast<const char*>(data), n);
    }
}

// The fields of one info area body (after its version and length bytes),
// from `at`, until the end-of-fields mark; false when a field overruns the
// area or is malformed (the area is then left unread).
bool fruFields(const Bytes& area, size_t at, uint8_t language, std::vector<std::string>& out, size_t wanted) {
    out.assign(wanted, "");
    for (size_t k = 0; k < wanted && at < area.size() && area[at] != kFruEndOfFields; ++k) {
        const uint8_t tl = area[at];
        const size_t n = tl & 0x3F;
        if ((tl >> 6) == kFruLanguage && n == 1)
            return false;
        if (at + 1 + n > area.size())
            return false;
        out[k] = fruText(area.data() + at + 1, tl, language);
        at += 1 + n;
    }
    return true;
}

} // namespace

const Command kGetDeviceId{"Get Device ID", kNetFnApp, 0x01, kEmpty, layout(kDeviceIdRs)};
const Command kGetSdrRepositoryInfo{"Get SDR Repository Info", kNetFnStorage, 0x20, kEmpty,
                                    layout(kRepositoryInfoRs)};
const Command kReserveSdrRepository{"Reserve SDR Repository", kNetFnStorage, 0x22, kEmpty,
                                    layout(kReservationRs)};
const Command kGetSdr{"Get SDR", kNetFnStorage, 0x23, layout(kRecordPartRq), layout(kRecordPartRs)};
const Command kGetSensorReading{"Get Sensor Reading", kNetFnSensorEvent, 0x2D, layout(kSensorNumberRq),
                                layout(kSensorReadingRs)};
const Command kGetSensorThresholds{"Get Sensor Thresholds", kNetFnSensorEvent, 0x27, layout(kSensorNumberRq),
                                   layout(kSensorThresholdsRs)};
const Command kGetSelInfo{"Get SEL Info", kNetFnStorage, 0x40, kEmpty, layout(kRepositoryInfoRs)};
const Command kGetSelEntry{"Get SEL Entry", kNetFnStorage, 0x43, layout(kRecordPartRq),
                           layout(kRecordPartRs)};
const Command kGetFruInventoryAreaInfo{"Get FRU Inventory Area Info", kNetFnStorage, 0x10,
                                       layout(kFruDeviceRq), layout(kFruAreaInfoRs)};
const Command kReadFruData{"Read FRU Data", kNetFnStorage, 0x11, layout(kReadFruDataRq),
                           layout(kReadFruDataRs)};
const Layout kFruCommonHeader = layout(kFruHeader);

Bytes encode(const Layout& layout, const std::map<std::string, uint64_t>& values, const Bytes& data) {
    for (const auto& v : values)
        if (!find(layout, v.first))
            throw std::invalid_argument("no field " + v.first + " in the message");
    Bytes out;
    unsigned bit = 0;
    for (size_t i = 0; i < layout.count; ++i) {
        const Field& f = layout.fields[i];
        if (f.bits == 0) {
            out.insert(out.end(), data.begin(), data.end());
            continue;
        }
        auto it = values.find(f.name);
        const uint64_t v = it == values.end() ? 0 : it->second;
        for (unsigned b = 0; b < f.bits; ++b, ++bit) {
            if (bit / 8 >= out.size())
                out.push_back(0);
            if ((v >> b) & 1)
                out[bit / 8] |= uint8_t(1u << (bit % 8));
        }
    }
    return out;
}

bool decode(const Layout& layout, const Bytes& bytes, Message& out) {
    out = Message();
    size_t bit = 0;
    for (size_t i = 0; i < layout.count; ++i) {
        const Field& f = layout.fields[i];
        if (f.bits == 0) {
            out.data.assign(bytes.begin() + long((bit + 7) / 8), bytes.end());
            return true;
        }
        if (bit + f.bits > bytes.size() * 8) {
            if (f.presence == Field::Required)
                return false;
            return true; // the optional fields end here
        }
        uint64_t v = 0;
        for (unsigned b = 0; b < f.bits; ++b, ++bit)
            v |= uint64_t((bytes[bit / 8] >> (bit % 8)) & 1) << b;
        out.fields[f.name] = v;
    }
    return true;
}

Message decodeResponse(const Command& command, const Response& response) {
    char text[96];
    if (response.completionCode != kCcOk) {
        std::snprintf(text, sizeof text, "%s: completion code 0x%02X", command.name, response.completionCode);
        throw IpmiFailure(text, false);
    }
    Message m;
    if (!decode(command.response, response.data, m)) {
        std::snprintf(text, sizeof text, "%s: response of %zu bytes is too short", command.name,
                      response.data.size());
        throw IpmiFailure(text, false);
    }
    return m;
}

IpmiDeviceId deviceIdOf(const Message& m) {
    IpmiDeviceId id;
    id.deviceId = unsigned(m["device_id"]);
    id.manufacturerId = unsigned(m["manufacturer_id"]);
    id.productId = unsigned(m["product_id"]);
    id.firmwareMajor = unsigned(m["firmware_major"]);
    id.firmwareMinor = unsigned(m["firmware_minor"]);
    id.ipmiMajor = unsigned(m["ipmi_version_major"]);
    id.ipmiMinor = unsigned(m["ipmi_version_minor"]);
    return id;
}

IpmiSelInfo selInfoOf(const Message& m) {
    IpmiSelInfo info;
    info.entries = unsigned(m["entries"]);
    info.lastAddition = uint32_t(m["most_recent_addition_timestamp"]);
    info.lastErase = uint32_t(m["most_recent_erase_timestamp"]);
    return info;
}

IpmiThresholds thresholdsOf(const Message& m) {
    IpmiThresholds t;
    t.readable = uint8_t(m["readable_thresholds"]);
    // SDR order: UNR, UC, UNC, LNR, LC, LNC.
    static const char* const names[6] = {"upper_non_recoverable_threshold", "upper_critical_threshold",
                                         "upper_non_critical_threshold",    "lower_non_recoverable_threshold",
                                         "lower_critical_threshold",        "lower_non_critical_threshold"};
    for (size_t k = 0; k < 6; ++k)
        t.values[k] = uint8_t(m[names[k]]);
    return t;
}

bool readingOf(const Message& m, SensorReading& out) {
    if (m["reading_unavailable"] || !m["sensor_scanning"])
        return false;
    out.available = true;
    out.raw = uint8_t(m["sensor_reading"]);
    out.states = uint16_t(m["state_bits_low"] | (m["state_bits_high"] << 8));
    return true;
}

bool decodeFruHeader(const Bytes& inventory, Message& header) {
    if (!decode(kFruCommonHeader, inventory, header) || header["format_version"] != kFruFormatVersion)
        return false;
    uint8_t sum = 0;
    for (size_t i = 0; i < kFruHeaderLength; ++i)
        sum = uint8_t(sum + inventory[i]);
    return sum == 0;
}

FruInfo decodeFru(const Bytes& inventory) {
    FruInfo fru;
    Message header;
    if (!decodeFruHeader(inventory, header))
        return fru;
    // An info area: version, length in 8-byte units, then its fields.
    auto area = [&](const char* offsetField) {
        const size_t at = size_t(header[offsetField]) * 8;
        if (at == 0 || at + 2 > inventory.size())
            return Bytes();
        const size_t end = std::min(inventory.size(), at + size_t(inventory[at + 1]) * 8);
        return end > at + 2 ? Bytes(inventory.begin() + long(at + 2), inventory.begin() + long(end))
                            : Bytes();
    };
    std::vector<std::string> f;
    const Bytes chassis = area("chassis_info_area_offset");
    if (!chassis.empty() && fruFields(chassis, 1, kLanguageEnglish, f, 2)) {
        fru.chassisType = chassis[0];
        fru.chassisPartNumber = f[0];
        fru.chassisSerialNumber = f[1];
    }
    const Bytes board = area("board_info_area_offset");
    if (board.size() > 4 && fruFields(board, 4, board[0], f, 4)) {
        fru.boardManufacturer = f[0];
        fru.boardProductName = f[1];
        fru.boardSerialNumber = f[2];
        fru.boardPartNumber = f[3];
    }
    const Bytes product = area("product_info_area_offset");
    if (!product.empty() && fruFields(product, 1, product[0], f, 6)) {
        fru.productManufacturer = f[0];
        fru.productName = f[1];
        fru.productPartNumber = f[2];
        fru.productVersion = f[3];
        fru.productSerialNumber = f[4];
        fru.productAssetTag = f[5];
    }
    return fru;
}

} // namespace ipmi
} // namespace kelvarn
