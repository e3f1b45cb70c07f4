// The Windows side of the host: entry-point resolution and the conversion of
// bindings to and from the extension-agent structures. Everything the agent
// allocates is released here with the same allocator (libhmcompat).
#include "host/extensionAgent.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>

#include <windows.h>
#include <snmp.h>

namespace hmhost {

static_assert(static_cast<int>(ValueType::Integer) == ASN_INTEGER, "type codes");
static_assert(static_cast<int>(ValueType::Bits) == ASN_BITS, "type codes");
static_assert(static_cast<int>(ValueType::OctetString) == ASN_OCTETSTRING, "type codes");
static_assert(static_cast<int>(ValueType::Null) == ASN_NULL, "type codes");
static_assert(static_cast<int>(ValueType::ObjectId) == ASN_OBJECTIDENTIFIER, "type codes");
static_assert(static_cast<int>(ValueType::IpAddress) == ASN_IPADDRESS, "type codes");
static_assert(static_cast<int>(ValueType::Counter32) == ASN_COUNTER32, "type codes");
static_assert(static_cast<int>(ValueType::Gauge32) == ASN_GAUGE32, "type codes");
static_assert(static_cast<int>(ValueType::TimeTicks) == ASN_TIMETICKS, "type codes");
static_assert(static_cast<int>(ValueType::Opaque) == ASN_OPAQUE, "type codes");
static_assert(static_cast<int>(ValueType::Counter64) == ASN_COUNTER64, "type codes");
static_assert(static_cast<int>(ValueType::Unsigned32) == ASN_UINTEGER32, "type codes");
static_assert(kGet == SNMP_EXTENSION_GET && kGetNext == SNMP_EXTENSION_GET_NEXT &&
                  kSetCommit == SNMP_EXTENSION_SET_COMMIT && kSetTest == SNMP_EXTENSION_SET_TEST &&
                  kSetUndo == SNMP_EXTENSION_SET_UNDO && kSetCleanup == SNMP_EXTENSION_SET_CLEANUP,
              "request types");

namespace {

const char* const kEntryNames[] = {"SnmpExtensionInit", "SnmpExtensionInitEx", "SnmpExtensionQueryEx",
                                   "SnmpExtensionTrap", "SnmpExtensionClose"};

// Arcs from an OID whose pointer field may be misaligned (4-byte packing).
Arcs arcsOf(const AsnObjectIdentifier& oid) {
    UINT* ids = nullptr;
    std::memcpy(&ids, reinterpret_cast<const char*>(&oid) + offsetof(AsnObjectIdentifier, ids), sizeof ids);
    const UINT length = oid.idLength;
    if (ids == nullptr || length == 0)
        return {};
    Arcs arcs(length);
    std::memcpy(arcs.data(), ids, length * sizeof(UINT));
    return arcs;
}

std::vector<uint8_t> bytesOf(const AsnOctetString& text) {
    BYTE* stream = nullptr;
    std::memcpy(&stream, reinterpret_cast<const char*>(&text) + offsetof(AsnOctetString, stream),
                sizeof stream);
    const UINT length = text.length;
    if (stream == nullptr || length == 0)
        return {};
    return std::vector<uint8_t>(stream, stream + length);
}

// A fresh SnmpUtilMem copy of `arcs` stored into an OID field; false when out of memory.
bool storeArcs(AsnObjectIdentifier* target, const Arcs& arcs) {
    UINT* ids = nullptr;
    if (!arcs.empty()) {
        ids = static_cast<UINT*>(SnmpUtilMemAlloc(static_cast<UINT>(arcs.size() * sizeof(UINT))));
        if (ids == nullptr)
            return false;
        std::memcpy(ids, arcs.data(), arcs.size() * sizeof(UINT));
    }
    const UINT length = static_cast<UINT>(arcs.size());
    std::memcpy(reinterpret_cast<char*>(target) + offsetof(AsnObjectIdentifier, ids), &ids, sizeof ids);
    std::memcpy(reinterpret_cast<char*>(target) + offsetof(AsnObjectIdentifier, idLength), &length,
                sizeof length);
    return true;
}

bool storeBytes(AsnOctetString* target, const std::vector<uint8_t>& bytes) {
    BYTE* stream = nullptr;
    if (!bytes.empty()) {
        stream = static_cast<BYTE*>(SnmpUtilMemAlloc(static_cast<UINT>(bytes.size())));
        if (stream == nullptr)
            return false;
        std::memcpy(stream, bytes.data(), bytes.size());
    }
    const UINT length = static_cast<UINT>(bytes.size());
    const BOOL dynamic = TRUE;
    char* base = reinterpret_cast<char*>(target);
    std::memcpy(base + offsetof(AsnOctetString, stream), &stream, sizeof stream);
    std::memcpy(base + offsetof(AsnOctetString, length), &length, sizeof length);
    std::memcpy(base + offsetof(AsnOctetString, dynamic), &dynamic, sizeof dynamic);
    return true;
}

Value valueOf(const AsnAny& any) {
    Value value;
    value.type = static_cast<ValueType>(any.asnType);
    switch (any.asnType) {
    case ASN_INTEGER:
        value.number = any.asnValue.number;
        break;
    case ASN_COUNTER32:
    case ASN_GAUGE32:
    case ASN_TIMETICKS:
    case ASN_UINTEGER32:
        value.number = any.asnValue.unsigned32;
        break;
    case ASN_COUNTER64:
        // The 64-bit counter sits at offset 4 (4-byte packing): copied, not loaded.
        std::memcpy(&value.counter64, reinterpret_cast<const char*>(&any) + offsetof(AsnAny, asnValue),
                    sizeof value.counter64);
        break;
    case ASN_OCTETSTRING:
    case ASN_BITS:
    case ASN_IPADDRESS:
    case ASN_OPAQUE:
        value.bytes = bytesOf(any.asnValue.string);
        break;
    case ASN_OBJECTIDENTIFIER:
        value.oid = arcsOf(any.asnValue.object);
        break;
    case ASN_NULL:
        break;
    default:
        // A type the host cannot carry: reported as Null with the raw tag kept out.
        value.type = ValueType::Null;
        value.number = any.asnType;
        break;
    }
    return value;
}

bool storeValue(AsnAny* any, const Value& value) {
    any->asnType = static_cast<BYTE>(value.type);
    switch (value.type) {
    case ValueType::Integer:
        any->asnValue.number = static_cast<AsnInteger32>(value.number);
        return true;
    case ValueType::Counter32:
    case ValueType::Gauge32:
    case ValueType::TimeTicks:
    case ValueType::Unsigned32:
        any->asnValue.unsigned32 = static_cast<AsnUnsigned32>(value.number);
        return true;
    case ValueType::Counter64:
        std::memcpy(reinterpret_cast<char*>(any) + offsetof(AsnAny, asnValue), &value.counter64,
                    sizeof value.counter64);
        return true;
    case ValueType::OctetString:
    case ValueType::Bits:
    case ValueType::IpAddress:
    case ValueType::Opaque:
        return storeBytes(&any->asnValue.string, value.bytes);
    case ValueType::ObjectId:
        return storeArcs(&any->asnValue.object, value.oid);
    case ValueType::Null:
        return true;
    }
    return false;
}

// The binding list fields, read and written through copies (4-byte packing).
SnmpVarBind* listOf(const SnmpVarBindList& list) {
    SnmpVarBind* entries = nullptr;
    std::memcpy(&entries, reinterpret_cast<const char*>(&list) + offsetof(SnmpVarBindList, list),
                sizeof entries);
    return entries;
}

} // namespace

bool loadEntryPoints(const std::string& path, EntryPoints& out, std::string& error) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        error = "agent library " + path + " does not exist";
        return false;
    }
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        error = "cannot load agent library " + path + ": " + (reason ? reason : "unknown error");
        return false;
    }
    void* found[5] = {};
    for (size_t n = 0; n < 5; ++n) {
        found[n] = dlsym(library, kEntryNames[n]);
        if (found[n] == nullptr) {
            error = "agent library " + path + " does not export " + kEntryNames[n];
            dlclose(library);
            return false;
        }
    }
    out = EntryPoints{found[0], found[1], found[2], found[3], found[4]};
    return true;
}

bool ExtensionAgent::start(uint32_t uptimeReference, std::vector<Arcs>& regions) {
    auto init = reinterpret_cast<PFNSNMPEXTENSIONINIT>(m_entries.init);
    auto initEx = reinterpret_cast<PFNSNMPEXTENSIONINITEX>(m_entries.initEx);
    HANDLE event = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    if (!init(uptimeReference, &event, &region))
        return false;
    m_event = event;
    // The region OIDs belong to the agent: copied, never freed.
    if (region.idLength != 0)
        regions.push_back(arcsOf(region));
    for (size_t n = 0; n < kMaxRegions; ++n) {
        AsnObjectIdentifier next{0, nullptr};
        if (!initEx(&next))
            break;
        if (next.idLength != 0)
            regions.push_back(arcsOf(next));
    }
    return true;
}

int ExtensionAgent::trapEventFd() const {
    return m_event == nullptr ? -1 : HmCompatEventFd(m_event);
}

bool ExtensionAgent::takeTrapSignal() {
    return m_event != nullptr && WaitForSingleObject(m_event, 0) == WAIT_OBJECT_0;
}

void ExtensionAgent::resignalTrap() {
    if (m_event != nullptr)
        SetEvent(m_event);
}

int32_t ExtensionAgent::query(uint32_t requestType, Binding& binding) {
    auto queryEx = reinterpret_cast<PFNSNMPEXTENSIONQUERYEX>(m_entries.queryEx);
    SnmpVarBindList list{nullptr, 0};
    auto* entry = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind)));
    if (entry == nullptr)
        return kGenErr;
    std::memset(entry, 0, sizeof *entry);
    std::memcpy(reinterpret_cast<char*>(&list) + offsetof(SnmpVarBindList, list), &entry, sizeof entry);
    list.len = 1;
    if (!storeArcs(&entry->name, binding.name) || !storeValue(&entry->value, binding.value)) {
        SnmpUtilVarBindListFree(&list);
        return kGenErr;
    }
    AsnInteger32 status = kNoError;
    AsnInteger32 index = 0;
    if (!queryEx(requestType, 1, &list, nullptr, &status, &index))
        status = kGenErr;
    SnmpVarBind* answered = listOf(list);
    if (answered != nullptr && list.len >= 1) {
        binding.name = arcsOf(answered[0].name);
        binding.value = valueOf(answered[0].value);
    }
    SnmpUtilVarBindListFree(&list);
    return status;
}

bool ExtensionAgent::nextTrap(Trap& trap) {
    auto collect = reinterpret_cast<PFNSNMPEXTENSIONTRAP>(m_entries.trap);
    AsnObjectIdentifier enterprise{0, nullptr};
    AsnInteger32 generic = 0;
    AsnInteger32 specific = 0;
    AsnTimeticks stamp = 0;
    SnmpVarBindList list{nullptr, 0};
    if (!collect(&enterprise, &generic, &specific, &stamp, &list))
        return false;
    trap.enterprise = arcsOf(enterprise);
    trap.generic = generic;
    trap.specific = specific;
    trap.timeStamp = stamp;
    trap.bindings.clear();
    SnmpVarBind* entries = listOf(list);
    for (UINT n = 0; entries != nullptr && n < list.len; ++n)
        trap.bindings.push_back(Binding{arcsOf(entries[n].name), valueOf(entries[n].value)});
    // The enterprise OID stays the agent's, as with the Windows SNMP service.
    SnmpUtilVarBindListFree(&list);
    return true;
}

void ExtensionAgent::close() {
    auto closeAgent = reinterpret_cast<PFNSNMPEXTENSIONCLOSE>(m_entries.close);
    closeAgent();
    m_event = nullptr;
}

} // namespace hmhost
