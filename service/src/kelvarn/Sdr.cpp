#include "kelvarn/Sdr.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "kelvarn/Errors.h"

namespace kelvarn {
namespace {

enum Field {
    F_RECORD_ID,
    F_SDR_VERSION,
    F_RECORD_TYPE,
    F_RECORD_LENGTH,
    F_OWNER,
    F_LUN,
    F_NUMBER,
    F_ENTITY_ID,
    F_ENTITY_INSTANCE,
    F_INIT,
    F_CAPABILITIES,
    F_SENSOR_TYPE,
    F_EVENT_TYPE,
    F_ASSERT_MASK,
    F_DEASSERT_MASK,
    F_READABLE_MASK,
    F_SETTABLE_MASK,
    F_ANALOG_FORMAT,
    F_RATE_UNIT,
    F_MODIFIER_USE,
    F_PERCENTAGE,
    F_BASE_UNIT,
    F_MODIFIER_UNIT,
    F_LINEARIZATION,
    F_M,
    F_TOLERANCE,
    F_B,
    F_ACCURACY,
    F_ACCURACY_EXP,
    F_DIRECTION,
    F_REXP,
    F_BEXP,
    F_ANALOG_FLAGS,
    F_NOMINAL,
    F_NORMAL_MAX,
    F_NORMAL_MIN,
    F_SENSOR_MAX,
    F_SENSOR_MIN,
    F_UNR,
    F_UC,
    F_UNC,
    F_LNR,
    F_LC,
    F_LNC,
    F_POS_HYST,
    F_NEG_HYST,
    F_SHARE_COUNT,
    F_OEM,
    F_ID_TYPE_LENGTH,
};

// One piece of a field: bits [bit, bit+width) of byte `byte` (1-based, as the
// IPMI tables count) hold bits [shift, shift+width) of the field's value.
struct Part {
    Field field;
    uint8_t byte;
    uint8_t bit;
    uint8_t width;
    uint8_t shift;
};

// Bytes 1 to 23, the same in full and compact sensor records (IPMI v2.0 tables 43-1, 43-2).
const Part kHeaderLayout[] = {
    {F_RECORD_ID, 1, 0, 8, 0},
    {F_RECORD_ID, 2, 0, 8, 8},
    {F_SDR_VERSION, 3, 0, 8, 0},
    {F_RECORD_TYPE, 4, 0, 8, 0},
    {F_RECORD_LENGTH, 5, 0, 8, 0},
    {F_OWNER, 6, 0, 8, 0},
    {F_LUN, 7, 0, 8, 0},
    {F_NUMBER, 8, 0, 8, 0},
    {F_ENTITY_ID, 9, 0, 8, 0},
    {F_ENTITY_INSTANCE, 10, 0, 8, 0},
    {F_INIT, 11, 0, 8, 0},
    {F_CAPABILITIES, 12, 0, 8, 0},
    {F_SENSOR_TYPE, 13, 0, 8, 0},
    {F_EVENT_TYPE, 14, 0, 8, 0},
    {F_ASSERT_MASK, 15, 0, 8, 0},
    {F_ASSERT_MASK, 16, 0, 8, 8},
    {F_DEASSERT_MASK, 17, 0, 8, 0},
    {F_DEASSERT_MASK, 18, 0, 8, 8},
    {F_READABLE_MASK, 19, 0, 8, 0},
    {F_SETTABLE_MASK, 20, 0, 8, 0},
    {F_PERCENTAGE, 21, 0, 1, 0},
    {F_MODIFIER_USE, 21, 1, 2, 0},
    {F_RATE_UNIT, 21, 3, 3, 0},
    {F_ANALOG_FORMAT, 21, 6, 2, 0},
    {F_BASE_UNIT, 22, 0, 8, 0},
    {F_MODIFIER_UNIT, 23, 0, 8, 0},
};

// Full sensor record from byte 24 (IPMI v2.0 table 43-1).
const Part kFullBody[] = {
    {F_LINEARIZATION, 24, 0, 7, 0},
    {F_M, 25, 0, 8, 0},
    {F_M, 26, 6, 2, 8},
    {F_TOLERANCE, 26, 0, 6, 0},
    {F_B, 27, 0, 8, 0},
    {F_B, 28, 6, 2, 8},
    {F_ACCURACY, 28, 0, 6, 0},
    {F_ACCURACY, 29, 4, 4, 6},
    {F_ACCURACY_EXP, 29, 2, 2, 0},
    {F_DIRECTION, 29, 0, 2, 0},
    {F_BEXP, 30, 0, 4, 0},
    {F_REXP, 30, 4, 4, 0},
    {F_ANALOG_FLAGS, 31, 0, 8, 0},
    {F_NOMINAL, 32, 0, 8, 0},
    {F_NORMAL_MAX, 33, 0, 8, 0},
    {F_NORMAL_MIN, 34, 0, 8, 0},
    {F_SENSOR_MAX, 35, 0, 8, 0},
    {F_SENSOR_MIN, 36, 0, 8, 0},
    {F_UNR, 37, 0, 8, 0},
    {F_UC, 38, 0, 8, 0},
    {F_UNC, 39, 0, 8, 0},
    {F_LNR, 40, 0, 8, 0},
    {F_LC, 41, 0, 8, 0},
    {F_LNC, 42, 0, 8, 0},
    {F_POS_HYST, 43, 0, 8, 0},
    {F_NEG_HYST, 44, 0, 8, 0},
    {F_OEM, 47, 0, 8, 0},
    {F_ID_TYPE_LENGTH, 48, 0, 8, 0},
};

// Compact sensor record from byte 24 (IPMI v2.0 table 43-2).
const Part kCompactBody[] = {
    {F_SHARE_COUNT, 24, 0, 4, 0}, {F_POS_HYST, 26, 0, 8, 0},       {F_NEG_HYST, 27, 0, 8, 0},
    {F_OEM, 31, 0, 8, 0},         {F_ID_TYPE_LENGTH, 32, 0, 8, 0},
};

// A record type's layout: the shared header, its own body, and where its ID string starts
// (0-based index: byte 49 of a full record, byte 33 of a compact one).
struct Layout {
    const Part* body;
    size_t bodySize;
    size_t idOffset;
};
constexpr Layout kFullLayout = {kFullBody, sizeof kFullBody / sizeof kFullBody[0], 48};
constexpr Layout kCompactLayout = {kCompactBody, sizeof kCompactBody / sizeof kCompactBody[0], 32};

// The layout of a full or compact sensor record; null for any other type.
const Layout* layoutOf(uint8_t recordType) {
    if (recordType == kSdrFullSensor)
        return &kFullLayout;
    if (recordType == kSdrCompactSensor)
        return &kCompactLayout;
    return nullptr;
}

constexpr uint8_t kSdrVersion = 0x51;
constexpr size_t kMaxIdLength = 16;

// The fields as unsigned values, indexed by Field.
struct Values {
    uint32_t v[F_ID_TYPE_LENGTH + 1] = {};
};

int32_t signExtend(uint32_t value, unsigned width) {
    uint32_t sign = 1u << (width - 1);
    return static_cast<int32_t>((value ^ sign) - sign);
}

Values toValues(const SdrFields& f, size_t recordLength) {
    Values x;
    auto& v = x.v;
    v[F_RECORD_ID] = f.recordId;
    v[F_SDR_VERSION] = kSdrVersion;
    v[F_RECORD_TYPE] = f.recordType;
    v[F_RECORD_LENGTH] = static_cast<uint32_t>(recordLength - 5);
    v[F_OWNER] = f.owner;
    v[F_LUN] = f.lun;
    v[F_NUMBER] = f.number;
    v[F_ENTITY_ID] = f.entityId;
    v[F_ENTITY_INSTANCE] = f.entityInstance;
    v[F_INIT] = f.initialization;
    v[F_CAPABILITIES] = f.capabilities;
    v[F_SENSOR_TYPE] = f.sensorType;
    v[F_EVENT_TYPE] = f.eventReadingType;
    v[F_ASSERT_MASK] = f.assertionMask;
    v[F_DEASSERT_MASK] = f.deassertionMask;
    v[F_READABLE_MASK] = f.readableMask;
    v[F_SETTABLE_MASK] = f.settableMask;
    v[F_ANALOG_FORMAT] = static_cast<uint32_t>(f.analogFormat);
    v[F_RATE_UNIT] = f.rateUnit;
    v[F_MODIFIER_USE] = f.modifierUnitUse;
    v[F_PERCENTAGE] = f.percentage;
    v[F_BASE_UNIT] = f.baseUnit;
    v[F_MODIFIER_UNIT] = f.modifierUnit;
    v[F_LINEARIZATION] = f.linearization;
    v[F_M] = static_cast<uint32_t>(f.m) & 0x3FF;
    v[F_TOLERANCE] = f.tolerance;
    v[F_B] = static_cast<uint32_t>(f.b) & 0x3FF;
    v[F_ACCURACY] = f.accuracy;
    v[F_ACCURACY_EXP] = f.accuracyExp;
    v[F_DIRECTION] = f.direction;
    v[F_REXP] = static_cast<uint32_t>(f.rExp) & 0xF;
    v[F_BEXP] = static_cast<uint32_t>(f.bExp) & 0xF;
    v[F_ANALOG_FLAGS] = f.analogFlags;
    v[F_NOMINAL] = f.nominal;
    v[F_NORMAL_MAX] = f.normalMax;
    v[F_NORMAL_MIN] = f.normalMin;
    v[F_SENSOR_MAX] = f.sensorMax;
    v[F_SENSOR_MIN] = f.sensorMin;
    v[F_UNR] = f.thresholds[kUpperNonRecoverable];
    v[F_UC] = f.thresholds[kUpperCritical];
    v[F_UNC] = f.thresholds[kUpperNonCritical];
    v[F_LNR] = f.thresholds[kLowerNonRecoverable];
    v[F_LC] = f.thresholds[kLowerCritical];
    v[F_LNC] = f.thresholds[kLowerNonCritical];
    v[F_POS_HYST] = f.positiveHysteresis;
    v[F_NEG_HYST] = f.negativeHysteresis;
    v[F_SHARE_COUNT] = f.shareCount;
    v[F_OEM] = f.oem;
    v[F_ID_TYPE_LENGTH] = 0xC0u | static_cast<uint32_t>(f.name.size()); // 8-bit ASCII + Latin 1
    return x;
}

void fromValues(const Values& x, SdrFields& f) {
    const auto& v = x.v;
    f.recordId = static_cast<uint16_t>(v[F_RECORD_ID]);
    f.recordType = static_cast<uint8_t>(v[F_RECORD_TYPE]);
    f.owner = static_cast<uint8_t>(v[F_OWNER]);
    f.lun = static_cast<uint8_t>(v[F_LUN]);
    f.number = static_cast<uint8_t>(v[F_NUMBER]);
    f.entityId = static_cast<uint8_t>(v[F_ENTITY_ID]);
    f.entityInstance = static_cast<uint8_t>(v[F_ENTITY_INSTANCE]);
    f.initialization = static_cast<uint8_t>(v[F_INIT]);
    f.capabilities = static_cast<uint8_t>(v[F_CAPABILITIES]);
    f.sensorType = static_cast<uint8_t>(v[F_SENSOR_TYPE]);
    f.eventReadingType = static_cast<uint8_t>(v[F_EVENT_TYPE]);
    f.assertionMask = static_cast<uint16_t>(v[F_ASSERT_MASK]);
    f.deassertionMask = static_cast<uint16_t>(v[F_DEASSERT_MASK]);
    f.readableMask = static_cast<uint8_t>(v[F_READABLE_MASK]);
    f.settableMask = static_cast<uint8_t>(v[F_SETTABLE_MASK]);
    f.analogFormat = static_cast<AnalogFormat>(v[F_ANALOG_FORMAT]);
    f.rateUnit = static_cast<uint8_t>(v[F_RATE_UNIT]);
    f.modifierUnitUse = static_cast<uint8_t>(v[F_MODIFIER_USE]);
    f.percentage = static_cast<uint8_t>(v[F_PERCENTAGE]);
    f.baseUnit = static_cast<uint8_t>(v[F_BASE_UNIT]);
    f.modifierUnit = static_cast<uint8_t>(v[F_MODIFIER_UNIT]);
    f.linearization = static_cast<uint8_t>(v[F_LINEARIZATION]);
    f.m = static_cast<int16_t>(signExtend(v[F_M], 10));
    f.tolerance = static_cast<uint8_t>(v[F_TOLERANCE]);
    f.b = static_cast<int16_t>(signExtend(v[F_B], 10));
    f.accuracy = static_cast<uint16_t>(v[F_ACCURACY]);
    f.accuracyExp = static_cast<uint8_t>(v[F_ACCURACY_EXP]);
    f.direction = static_cast<uint8_t>(v[F_DIRECTION]);
    f.rExp = static_cast<int8_t>(signExtend(v[F_REXP], 4));
    f.bExp = static_cast<int8_t>(signExtend(v[F_BEXP], 4));
    f.analogFlags = static_cast<uint8_t>(v[F_ANALOG_FLAGS]);
    f.nominal = static_cast<uint8_t>(v[F_NOMINAL]);
    f.normalMax = static_cast<uint8_t>(v[F_NORMAL_MAX]);
    f.normalMin = static_cast<uint8_t>(v[F_NORMAL_MIN]);
    f.sensorMax = static_cast<uint8_t>(v[F_SENSOR_MAX]);
    f.sensorMin = static_cast<uint8_t>(v[F_SENSOR_MIN]);
    f.thresholds[kUpperNonRecoverable] = static_cast<uint8_t>(v[F_UNR]);
    f.thresholds[kUpperCritical] = static_cast<uint8_t>(v[F_UC]);
    f.thresholds[kUpperNonCritical] = static_cast<uint8_t>(v[F_UNC]);
    f.thresholds[kLowerNonRecoverable] = static_cast<uint8_t>(v[F_LNR]);
    f.thresholds[kLowerCritical] = static_cast<uint8_t>(v[F_LC]);
    f.thresholds[kLowerNonCritical] = static_cast<uint8_t>(v[F_LNC]);
    f.positiveHysteresis = static_cast<uint8_t>(v[F_POS_HYST]);
    f.negativeHysteresis = static_cast<uint8_t>(v[F_NEG_HYST]);
    f.shareCount = static_cast<uint8_t>(v[F_SHARE_COUNT]);
    f.oem = static_cast<uint8_t>(v[F_OEM]);
}

// Calls `visit(part)` for every part of the header and then of the body.
template <class Visit> void forEachPart(const Layout& layout, Visit visit) {
    for (const Part& p : kHeaderLayout)
        visit(p);
    for (size_t i = 0; i < layout.bodySize; ++i)
        visit(layout.body[i]);
}

void pack(const Layout& layout, const Values& x, Bytes& out) {
    forEachPart(layout, [&](const Part& p) {
        uint32_t mask = (1u << p.width) - 1;
        out[p.byte - 1] |= static_cast<uint8_t>(((x.v[p.field] >> p.shift) & mask) << p.bit);
    });
}

void unpack(const Layout& layout, const Bytes& in, Values& x) {
    forEachPart(layout, [&](const Part& p) {
        uint32_t mask = (1u << p.width) - 1;
        x.v[p.field] |= ((static_cast<uint32_t>(in[p.byte - 1]) >> p.bit) & mask) << p.shift;
    });
}

} // namespace

Bytes encodeSdr(const SdrFields& fields) {
    if (fields.name.size() > kMaxIdLength)
        throw QueryError(kBadParameter, "sensor name \"" + fields.name + "\" is longer than 16 characters");
    const Layout* layout = layoutOf(fields.recordType);
    if (layout == nullptr)
        throw QueryError(kBadParameter, "only full (1) and compact (2) sensor records can be built");
    Bytes out(layout->idOffset + fields.name.size(), 0);
    pack(*layout, toValues(fields, out.size()), out);
    std::memcpy(out.data() + layout->idOffset, fields.name.data(), fields.name.size());
    return out;
}

bool decodeSdr(const Bytes& record, SdrFields& fields) {
    if (record.size() < 5)
        return false;
    const Layout* layout = layoutOf(record[3]);
    if (layout == nullptr || record.size() < layout->idOffset)
        return false;
    Values x;
    unpack(*layout, record, x);
    fields = SdrFields{};
    fromValues(x, fields);
    size_t idLength = std::min<size_t>(x.v[F_ID_TYPE_LENGTH] & 0x1F, record.size() - layout->idOffset);
    fields.name.assign(reinterpret_cast<const char*>(record.data() + layout->idOffset), idLength);
    return true;
}

uint8_t thresholdByte(ThresholdBit bit) {
    static const uint8_t bytes[6] = {42, 41, 40, 39, 38, 37}; // LNC, LC, LNR, UNC, UC, UNR
    return bytes[bit];
}

bool convertReading(const SdrFields& f, uint8_t raw, double& value) {
    double x;
    switch (f.analogFormat) {
    case AnalogFormat::Unsigned:
        x = raw;
        break;
    case AnalogFormat::OnesComplement:
        x = (raw & 0x80) ? -static_cast<double>(static_cast<uint8_t>(~raw)) : raw;
        break;
    case AnalogFormat::TwosComplement:
        x = static_cast<int8_t>(raw);
        break;
    default:
        return false;
    }
    double y = (f.m * x + f.b * std::pow(10.0, f.bExp)) * std::pow(10.0, f.rExp);
    switch (f.linearization) {
    case 0: // linear
        break;
    case 1: // ln
        if (y <= 0)
            return false;
        y = std::log(y);
        break;
    case 2: // log10
        if (y <= 0)
            return false;
        y = std::log10(y);
        break;
    case 3: // log2
        if (y <= 0)
            return false;
        y = std::log2(y);
        break;
    case 4: // e^x
        y = std::exp(y);
        break;
    case 5: // 10^x
        y = std::pow(10.0, y);
        break;
    case 6: // 2^x
        y = std::exp2(y);
        break;
    case 7: // 1/x; an infinite period (0) reads as 0, as FreeIPMI and ipmitool show it
        if (y != 0)
            y = 1.0 / y;
        break;
    case 8: // x^2
        y = y * y;
        break;
    case 9: // x^3
        y = y * y * y;
        break;
    case 10: // sqrt
        if (y < 0)
            return false;
        y = std::sqrt(y);
        break;
    case 11: // cube root
        y = std::cbrt(y);
        break;
    default:
        // 0x70-0x7F: non-linear; the record's factors hold for the current reading.
        if (f.linearization < 0x70)
            return false;
        break;
    }
    if (!std::isfinite(y))
        return false;
    value = y;
    return true;
}

std::string hexBytes(const uint8_t* data, size_t size) {
    std::string out;
    out.reserve(size * 3);
    char buf[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(buf, sizeof buf, i ? " %02x" : "%02x", data[i]);
        out += buf;
    }
    return out;
}

std::string formatNumber(double value) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.10g", value);
    if (std::strcmp(buf, "-0") == 0)
        return "0";
    return buf;
}

} // namespace kelvarn
