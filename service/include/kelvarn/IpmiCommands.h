// The IPMI commands the IPMI source needs, as data: each request and response
// a table of named fields (bit widths, least significant bit first, multi-byte
// fields little-endian, as FreeIPMI's templates lay them out), pure encoders
// and decoders over byte vectors, a transport interface that carries one
// request to the BMC, and an IpmiBackend made of the two. The commands are
// those of IPMI v2.0 (Get Device ID, the SDR repository, sensor readings and
// thresholds, the SEL and FRU inventory); no I/O happens here.
#ifndef KELVARN_IPMI_COMMANDS_H
#define KELVARN_IPMI_COMMANDS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kelvarn/Ipmi.h"

namespace kelvarn {
namespace ipmi {

// Network functions of the requests (a response carries the next, odd one).
constexpr uint8_t kNetFnSensorEvent = 0x04;
constexpr uint8_t kNetFnApp = 0x06;
constexpr uint8_t kNetFnStorage = 0x0A;

// Completion codes the backend tells apart.
constexpr uint8_t kCcOk = 0x00;
constexpr uint8_t kCcReservationCancelled = 0xC5;
constexpr uint8_t kCcCannotReturnBytes = 0xCA; // a partial read asked for more than the BMC returns
constexpr uint8_t kCcNotPresent = 0xCB;        // requested sensor, data or record not present
constexpr uint8_t kCcOtherError = 0xFF;        // an error of no particular kind

// The software ID and slave address of the BMC as a sensor owner.
constexpr uint8_t kBmcSlaveAddress = 0x20;

// One field of a message. `bits` 0: the rest of the message, as bytes.
struct Field {
    enum Presence : uint8_t { Required, Optional };
    const char* name;
    unsigned bits;
    Presence presence;
};

// A message layout: its fields in order.
struct Layout {
    const Field* fields;
    size_t count;
};

// One command: its name (for messages), where it goes and its layouts.
// Responses are described without their completion code.
struct Command {
    const char* name;
    uint8_t netFn;
    uint8_t cmd;
    Layout request;
    Layout response;
};

KELVARN_API extern const Command kGetDeviceId;
KELVARN_API extern const Command kGetSdrRepositoryInfo;
KELVARN_API extern const Command kReserveSdrRepository;
KELVARN_API extern const Command kGetSdr;
KELVARN_API extern const Command kGetSensorReading;
KELVARN_API extern const Command kGetSensorThresholds;
KELVARN_API extern const Command kGetSelInfo;
KELVARN_API extern const Command kGetSelEntry;
KELVARN_API extern const Command kGetFruInventoryAreaInfo;
KELVARN_API extern const Command kReadFruData;
// The FRU inventory's common header (not a command: the first bytes of FRU data).
KELVARN_API extern const Layout kFruCommonHeader;
constexpr size_t kFruHeaderLength = 8;

// A decoded message: the fields present, and the trailing bytes of a
// rest-of-message field.
struct Message {
    std::map<std::string, uint64_t> fields;
    Bytes data;
    bool has(const std::string& name) const { return fields.count(name) != 0; }
    // The field's value; 0 when absent.
    uint64_t operator[](const std::string& name) const {
        auto it = fields.find(name);
        return it == fields.end() ? 0 : it->second;
    }
};

// Lays out `values` (named as in `layout`; fields not given are 0, a rest
// field takes `data`); throws std::invalid_argument on a name the layout lacks.
KELVARN_API Bytes encode(const Layout& layout, const std::map<std::string, uint64_t>& values,
                         const Bytes& data = {});
// Reads `bytes` by `layout`: false when shorter than its required fields.
// Optional fields are read as far as the bytes go.
KELVARN_API bool decode(const Layout& layout, const Bytes& bytes, Message& out);

// What the BMC answered: the completion code and the response data after it.
struct Response {
    uint8_t completionCode = kCcOk;
    Bytes data;
};

// Decodes `response` of `command`: IpmiFailure (not lost) naming the command
// on a completion code other than 0 or a response too short for the layout.
KELVARN_API Message decodeResponse(const Command& command, const Response& response);

// Typed answers built from decoded responses.
KELVARN_API IpmiDeviceId deviceIdOf(const Message& getDeviceId);
KELVARN_API IpmiSelInfo selInfoOf(const Message& getSelInfo);
KELVARN_API IpmiThresholds thresholdsOf(const Message& getSensorThresholds);
// false: the BMC flags the reading unavailable or the sensor's scanning disabled.
KELVARN_API bool readingOf(const Message& getSensorReading, SensorReading& out);

// The FRU inventory's common header: false when too short, not of format 1 or
// its checksum is wrong.
KELVARN_API bool decodeFruHeader(const Bytes& inventory, Message& header);
// FRU inventory data (from offset 0) decoded into the chassis, board and
// product fields; fields that are absent or malformed stay empty.
KELVARN_API FruInfo decodeFru(const Bytes& inventory);

} // namespace ipmi

// Carries one request to the BMC and brings its answer back. Throws
// IpmiFailure with lost() when the BMC cannot be reached.
class KELVARN_API IpmiTransport {
public:
    virtual ~IpmiTransport();
    virtual ipmi::Response send(uint8_t netFn, uint8_t lun, uint8_t cmd, const Bytes& request) = 0;
};

// Opens a transport (the backend's open()); throws IpmiFailure, lost, when it cannot.
using IpmiConnect = std::function<std::unique_ptr<IpmiTransport>()>;

// An IpmiBackend that speaks the commands above over any transport.
KELVARN_API std::unique_ptr<IpmiBackend> makeCommandBackend(IpmiConnect connect);

// The transport over FreeIPMI's raw command call, opened as the FreeIPMI
// backend opens its session or device (POSIX builds only).
KELVARN_API std::unique_ptr<IpmiTransport> makeFreeIpmiRawTransport(const IpmiSettings& settings);

} // namespace kelvarn

#endif
