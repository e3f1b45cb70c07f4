// Sensor data records: the byte layouts, checked byte by byte on records
// defined here and by FreeIPMI's own SDR parser and reading conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <tuple>

extern "C" {
#include <freeipmi/freeipmi.h>
}

#include "kelvarn/Errors.h"
#include "kelvarn/Sdr.h"
#include "serviceTestUtil.h"

namespace {

using kelvarn::AnalogFormat;
using kelvarn::Bytes;
using kelvarn::SdrFields;

// A full record: P12V, 2's complement, M=-300, B=257, accuracy 341e2, R-3, B+2, every threshold.
const Bytes kFullRecord = {
    0x02, 0x01, 0x51, 0x01, 0x2f,       // record ID 0x0102, SDR 1.5, full, 47 bytes follow
    0x20, 0x21, 0x30, 0x07, 0x01,       // owner, owner LUN byte, number, entity, instance
    0x7f, 0x68, 0x02, 0x01,             // init, capabilities, voltage, threshold type
    0x95, 0x7a, 0x95, 0x7a, 0x3f, 0x1b, // assertion, deassertion, readable, settable masks
    0x80, 0x04, 0x00, 0x00,             // 2's complement, volts, no modifier, linear
    0xd4, 0x85, 0x01, 0x55, 0x59, 0xd2, // M=-300 tol 5, B=257 acc 341 exp 2 dir 1, R-3 B+2
    0x01, 0x60, 0x70, 0x50, 0x7f, 0x80, // nominal given, nominal/normal/sensor ranges
    0x7a, 0x75, 0x70, 0x86, 0x8a, 0x90, // UNR UC UNC LNR LC LNC
    0x03, 0x04, 0x00, 0x00, 0x5a, 0xc4, // hysteresis, reserved, OEM, 8-bit ASCII length 4
    'P',  '1',  '2',  'V'};

// The fields read from a full record, and the same bytes written back from them (compact records
// are read in every query of the demo server's discrete sensors).
TEST(SdrLayoutTest, RecordFieldsAndBytes) {
    SdrFields f;
    ASSERT_TRUE(kelvarn::decodeSdr(kFullRecord, f));
    EXPECT_EQ(
        std::make_tuple(f.recordId, f.owner, f.lun, f.number, f.entityId, f.entityInstance, f.initialization,
                        f.capabilities, f.sensorType, f.eventReadingType, f.assertionMask, f.deassertionMask,
                        f.readableMask, f.settableMask, f.analogFormat, f.baseUnit, f.m, f.tolerance, f.b,
                        f.accuracy, f.accuracyExp, f.direction, f.rExp, f.bExp, f.analogFlags, f.nominal),
        std::make_tuple(0x0102, 0x20, 0x21, 0x30, 0x07, 0x01, 0x7F, 0x68, 0x02, 0x01, 0x7A95, 0x7A95, 0x3F,
                        0x1B, AnalogFormat::TwosComplement, 4, -300, 5, 257, 341, 2, 1, -3, 2, 0x01, 0x60));
    EXPECT_EQ(std::make_tuple(f.normalMax, f.normalMin, f.sensorMax, f.sensorMin, f.positiveHysteresis,
                              f.negativeHysteresis, f.oem, f.name),
              std::make_tuple(0x70, 0x50, 0x7F, 0x80, 3, 4, 0x5A, "P12V"));
    // Indexed LNC, LC, LNR, UNC, UC, UNR.
    EXPECT_EQ(Bytes(f.thresholds, f.thresholds + 6), (Bytes{0x90, 0x8A, 0x86, 0x70, 0x75, 0x7A}));
    EXPECT_EQ(kelvarn::encodeSdr(f), kFullRecord);
    EXPECT_EQ(kelvarn::hexBytes(kFullRecord.data(), 6), "02 01 51 01 2f 20");
    EXPECT_FALSE(kelvarn::decodeSdr(Bytes{0x01, 0x00, 0x51, 0x01, 0x10, 0x20}, f)); // cut short
    EXPECT_FALSE(kelvarn::decodeSdr(Bytes(60, 0x00), f));                           // record type 0
    f.name = "ABCDEFGHIJKLMNOPQ";                                                   // longer than 16
    EXPECT_THROW(kelvarn::encodeSdr(f), kelvarn::QueryError);
}

// Every full record of the demo server and of signed and linearized records, parsed by
// FreeIPMI: identity, thresholds and the conversion of each raw value 0-255 against
// INTERPRET_SENSOR_VALUE[r].
TEST(SdrFreeIpmiTest, DemoSignedAndLinearizedRecords) {
    const std::string sensors =
        R"({"name": "Neg M", "number": 1, "sensorType": 2, "m": -300, "b": 257, "bExp": 2, "rExp": -3,
            "analogFormat": "2s-complement", "thresholds": {"UPPER_CRITICAL": 117, "LOWER_CRITICAL": 138}},
           {"name": "Ones", "number": 2, "sensorType": 1, "m": 3, "b": -7, "analogFormat": "1s-complement"},
           {"name": "Inverse", "number": 3, "sensorType": 4, "m": 4, "rExp": -6, "linearization": 7},
           {"name": "Log", "number": 4, "sensorType": 2, "m": 1, "b": -20, "linearization": 2},
           {"name": "Exp2", "number": 5, "sensorType": 2, "m": 5, "rExp": -2, "linearization": 6},
           {"name": "Cube", "number": 6, "sensorType": 2, "m": 1, "rExp": -1, "linearization": 9},
           {"name": "Cube root", "number": 7, "sensorType": 2, "linearization": 11, "owner": 44, "lun": 3},
           {"name": "Square", "number": 8, "sensorType": 2, "m": 3, "b": -50, "linearization": 8},
           {"name": "Root", "number": 9, "sensorType": 2, "m": 2, "b": -9, "bExp": 1, "linearization": 10},
           {"name": "None", "number": 10, "sensorType": 2, "analogFormat": "none"})";
    for (const auto& [platformText, expectedFullRecords] :
         {std::make_pair(kelvarn::demoPlatformText(), size_t(32)),
          std::make_pair(platformWith(sensors), size_t(10))}) {
        auto system = systemOver(platformText);
        const Result all = resultOf(*system, "/BMC/SDR/RECORD_TYPE[1]");
        ASSERT_EQ(all.size(), expectedFullRecords);
        ipmi_sdr_ctx_t ctx = ipmi_sdr_ctx_create();
        ASSERT_NE(ctx, nullptr);
        for (const auto& entry : all) {
            SCOPED_TRACE(entry.first);
            const Bytes rec = bytesOf(entry.second.Values[0]);
            uint8_t number, owner, ownerType, lun, channel, eventType;
            ASSERT_EQ(ipmi_sdr_parse_sensor_number(ctx, rec.data(), rec.size(), &number) |
                          ipmi_sdr_parse_sensor_owner_id(ctx, rec.data(), rec.size(), &ownerType, &owner) |
                          ipmi_sdr_parse_sensor_owner_lun(ctx, rec.data(), rec.size(), &lun, &channel) |
                          ipmi_sdr_parse_event_reading_type_code(ctx, rec.data(), rec.size(), &eventType),
                      0);
            char id[32] = {};
            ASSERT_GE(ipmi_sdr_parse_id_string(ctx, rec.data(), rec.size(), id, sizeof id - 1), 0);
            // FreeIPMI splits the owner ID byte into a 7-bit address and a type bit, and the
            // owner-LUN byte into LUN and channel; the service's paths use the whole bytes.
            const int ownerByte = owner << 1 | ownerType, lunByte = channel << 4 | lun;
            const std::string base = "/BMC/SENSOR[" + std::to_string(number) + "]/OWNER[" +
                                     std::to_string(ownerByte) + "]/LUN[" + std::to_string(lunByte) + "]";
            EXPECT_EQ(valueOf(*system, base + "/NAME"), id);
            if (eventType != 0x01)
                continue;
            uint8_t on[6], t[6]; // readable, raw: LNC, LC, LNR, UNC, UC, UNR
            ASSERT_EQ(ipmi_sdr_parse_threshold_readable(ctx, rec.data(), rec.size(), on, on + 1, on + 2,
                                                        on + 3, on + 4, on + 5) |
                          ipmi_sdr_parse_thresholds_raw(ctx, rec.data(), rec.size(), t, t + 1, t + 2, t + 3,
                                                        t + 4, t + 5),
                      0);
            const char* keys[6] = {"LOWER_NONCRITICAL", "LOWER_CRITICAL", "LOWER_NONRECOVERABLE",
                                   "UPPER_NONCRITICAL", "UPPER_CRITICAL", "UPPER_NONRECOVERABLE"};
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(valueOf(*system, base + "/THRESHOLD/" + keys[i]),
                          on[i] ? std::to_string(t[i]) : "NOT SUPPORTED");
            int8_t rExp, bExp;
            int16_t m, b;
            uint8_t lin, analog;
            ASSERT_EQ(ipmi_sdr_parse_sensor_decoding_data(ctx, rec.data(), rec.size(), &rExp, &bExp, &m, &b,
                                                          &lin, &analog),
                      0);
            for (int r = 0; r < 256; ++r) {
                const std::string ours =
                    valueOf(*system, base + "/INTERPRET_SENSOR_VALUE[" + std::to_string(r) + "]");
                double theirs = 0;
                // Non-linear sensors (0x70-0x7F) convert with the record's factors, which FreeIPMI
                // applies when told the sensor is linear. FreeIPMI reads linearization 0x0B as
                // 1/x^3; the service applies the cube root (the inverse of "cube", as ipmitool does),
                // so that one is checked as the cube root of FreeIPMI's linear value.
                const bool cubeRoot = lin == 0x0B;
                const int rc = ipmi_sensor_decode_value(rExp, bExp, m, b, lin >= 0x70 || cubeRoot ? 0 : lin,
                                                        analog, uint8_t(r), &theirs);
                if (cubeRoot)
                    theirs = std::cbrt(theirs);
                if (rc < 0 || !std::isfinite(theirs))
                    EXPECT_EQ(ours, "NOT SUPPORTED") << "raw " << r;
                else
                    EXPECT_NEAR(std::stod(ours), theirs, 1e-9 * std::max(1.0, std::fabs(theirs)))
                        << "raw " << r << ": " << ours;
            }
        }
        ipmi_sdr_ctx_destroy(ctx);
    }
}

} // namespace
