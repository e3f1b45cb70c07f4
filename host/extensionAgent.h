// The extension agent as the host sees it: a library loaded by path whose five
// Windows extension-agent entry points are resolved by name, and the calls the
// host makes on them, in plain C++ types (arc vectors and tagged values) so that
// the net-snmp side never sees the Windows SNMP headers, whose names clash with
// net-snmp's.
#ifndef HM_HOST_EXTENSIONAGENT_H
#define HM_HOST_EXTENSIONAGENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace hmhost {

using Arcs = std::vector<uint32_t>;

// Value types, numbered as both SNMP libraries number them (the BER tags).
enum class ValueType : uint8_t {
    Integer = 0x02,
    Bits = 0x03,
    OctetString = 0x04,
    Null = 0x05,
    ObjectId = 0x06,
    IpAddress = 0x40,
    Counter32 = 0x41,
    Gauge32 = 0x42,
    TimeTicks = 0x43,
    Opaque = 0x44,
    Counter64 = 0x46,
    Unsigned32 = 0x47,
};

struct Value {
    ValueType type = ValueType::Null;
    int64_t number = 0;         // Integer (signed), Counter32, Gauge32, TimeTicks, Unsigned32
    uint64_t counter64 = 0;     // Counter64
    std::vector<uint8_t> bytes; // OctetString, Bits, IpAddress, Opaque
    Arcs oid;                   // ObjectId
};

struct Binding {
    Arcs name;
    Value value;
};

// Request types and error statuses of the extension-agent interface.
enum RequestType : uint32_t {
    kGet = 0xA0,
    kGetNext = 0xA1,
    kSetCommit = 0xA3,
    kSetTest = 0xE0,
    kSetUndo = 0xE1,
    kSetCleanup = 0xE2,
};
enum ErrorStatus : int32_t {
    kNoError = 0,
    kTooBig = 1,
    kNoSuchName = 2,
    kBadValue = 3,
    kReadOnly = 4,
    kGenErr = 5,
};

struct Trap {
    Arcs enterprise;
    int32_t generic = 0;
    int32_t specific = 0;
    uint32_t timeStamp = 0;
    std::vector<Binding> bindings;
};

// The five entry points, with the Windows signatures, as opaque function pointers;
// extensionAgent.cpp gives them their types.
struct EntryPoints {
    void* init = nullptr;
    void* initEx = nullptr;
    void* queryEx = nullptr;
    void* trap = nullptr;
    void* close = nullptr;
};

// Opens the library at `path` and resolves the entry points. On failure returns
// false with a one-line reason in `error`. The library stays loaded for the life of
// the process (its event poller thread runs in it).
bool loadEntryPoints(const std::string& path, EntryPoints& out, std::string& error);

class ExtensionAgent {
public:
    explicit ExtensionAgent(const EntryPoints& entries) : m_entries(entries) {}

    // SnmpExtensionInit, then SnmpExtensionInitEx until it answers FALSE (at most
    // kMaxRegions). Returns false when SnmpExtensionInit fails.
    bool start(uint32_t uptimeReference, std::vector<Arcs>& regions);
    // The trap event's pollable descriptor (-1 when the agent gave no event).
    int trapEventFd() const;
    // Consumes the trap event's signal: true when it was signalled.
    bool takeTrapSignal();
    // Signals the trap event again (to resume collection on the next loop turn).
    void resignalTrap();

    // One SnmpExtensionQueryEx call with one binding; the binding's name and value
    // are replaced by what the agent answered. Returns the agent's error status.
    int32_t query(uint32_t requestType, Binding& binding);

    // One SnmpExtensionTrap call: true and `trap` filled when a trap was produced.
    // What the agent allocated is freed before returning.
    bool nextTrap(Trap& trap);

    void close();

    static constexpr size_t kMaxRegions = 4096;

private:
    EntryPoints m_entries;
    void* m_event = nullptr;
};

} // namespace hmhost

#endif
