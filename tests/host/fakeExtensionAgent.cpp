// A small scripted extension agent for the host's tests: three regions under
// 1.3.6.1.4.1.64999.7 (the middle one empty), a handful of variables, sets
// refused, and a configurable number of traps queued once start-up is complete.
//   HMFAKE_TRAPS=n      traps queued after the last region is handed out
//   HMFAKE_FAIL_INIT=1  SnmpExtensionInit fails
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <windows.h>
#include <snmp.h>

namespace {

using Arcs = std::vector<UINT>;

struct Variable {
    bool text;
    AsnInteger32 number;
    const char* string;
};

Arcs under(std::initializer_list<UINT> tail) {
    Arcs arcs{1, 3, 6, 1, 4, 1, 64999, 7};
    arcs.insert(arcs.end(), tail);
    return arcs;
}

const std::map<Arcs, Variable>& variables() {
    static const std::map<Arcs, Variable> table{
        {under({1, 1, 0}), {false, 42, nullptr}},  {under({1, 2, 0}), {true, 0, "alpha"}},
        {under({1, 3, 0}), {false, -7, nullptr}},  {under({3, 1, 1}), {false, 100, nullptr}},
        {under({3, 1, 2}), {false, 200, nullptr}}, {under({3, 2, 1}), {true, 0, "row one"}},
    };
    return table;
}

UINT g_regionArcs[3][9];
int g_nextRegion = 0;
HANDLE g_event = nullptr;
int g_trapsLeft = 0;

Arcs arcsOf(const AsnObjectIdentifier& oid) {
    UINT* ids = nullptr;
    std::memcpy(&ids, reinterpret_cast<const char*>(&oid) + offsetof(AsnObjectIdentifier, ids), sizeof ids);
    return ids == nullptr ? Arcs{} : Arcs(ids, ids + oid.idLength);
}

void setName(SnmpVarBind& binding, const Arcs& arcs) {
    SnmpUtilOidFree(&binding.name);
    AsnObjectIdentifier source{static_cast<UINT>(arcs.size()), const_cast<UINT*>(arcs.data())};
    SnmpUtilOidCpy(&binding.name, &source);
}

void setValue(SnmpVarBind& binding, const Variable& variable) {
    SnmpUtilAsnAnyFree(&binding.value);
    if (variable.text) {
        const UINT length = static_cast<UINT>(std::strlen(variable.string));
        auto* stream = static_cast<BYTE*>(SnmpUtilMemAlloc(length));
        std::memcpy(stream, variable.string, length);
        binding.value.asnType = ASN_OCTETSTRING;
        AsnOctetString text{stream, length, TRUE};
        std::memcpy(&binding.value.asnValue.string, &text, sizeof text);
    } else {
        binding.value.asnType = ASN_INTEGER;
        binding.value.asnValue.number = variable.number;
    }
}

void handOut(AsnObjectIdentifier* region, int index) {
    const Arcs arcs = under({static_cast<UINT>(index + 1)});
    std::memcpy(g_regionArcs[index], arcs.data(), arcs.size() * sizeof(UINT));
    AsnObjectIdentifier oid{static_cast<UINT>(arcs.size()), g_regionArcs[index]};
    std::memcpy(region, &oid, sizeof oid);
}

} // namespace

extern "C" __attribute__((visibility("default"))) BOOL SnmpExtensionInit(DWORD, HANDLE* event,
                                                                         AsnObjectIdentifier* region) {
    if (std::getenv("HMFAKE_FAIL_INIT") != nullptr)
        return FALSE;
    g_event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    *event = g_event;
    handOut(region, 0);
    g_nextRegion = 1;
    const char* traps = std::getenv("HMFAKE_TRAPS");
    g_trapsLeft = traps == nullptr ? 0 : std::atoi(traps);
    return TRUE;
}

extern "C" __attribute__((visibility("default"))) BOOL SnmpExtensionInitEx(AsnObjectIdentifier* region) {
    if (g_nextRegion < 3) {
        handOut(region, g_nextRegion++);
        return TRUE;
    }
    if (g_trapsLeft > 0)
        SetEvent(g_event);
    return FALSE;
}

extern "C" __attribute__((visibility("default"))) BOOL
SnmpExtensionQueryEx(UINT type, UINT, SnmpVarBindList* list, AsnOctetString*, AsnInteger32* status,
                     AsnInteger32* index) {
    SnmpVarBind* entries = nullptr;
    std::memcpy(&entries, reinterpret_cast<const char*>(list) + offsetof(SnmpVarBindList, list),
                sizeof entries);
    for (UINT n = 0; n < list->len; ++n) {
        SnmpVarBind& binding = entries[n];
        const Arcs name = arcsOf(binding.name);
        AsnInteger32 result = SNMP_ERRORSTATUS_NOERROR;
        const auto found = variables().find(name);
        if (type == SNMP_EXTENSION_GET) {
            if (found == variables().end())
                result = SNMP_ERRORSTATUS_NOSUCHNAME;
            else
                setValue(binding, found->second);
        } else if (type == SNMP_EXTENSION_GET_NEXT) {
            const auto next = variables().upper_bound(name);
            if (next == variables().end()) {
                setName(binding, under({4})); // the end of the view
            } else {
                setName(binding, next->first);
                setValue(binding, next->second);
            }
        } else if (type == SNMP_EXTENSION_SET_TEST || type == SNMP_EXTENSION_SET_COMMIT) {
            result = found == variables().end() ? SNMP_ERRORSTATUS_NOSUCHNAME : SNMP_ERRORSTATUS_READONLY;
        }
        *status = result;
        if (result != SNMP_ERRORSTATUS_NOERROR) {
            *index = static_cast<AsnInteger32>(n + 1);
            return TRUE;
        }
    }
    return TRUE;
}

// Trap k (counting down) has enterprise 1.3.6.1.4.1.64999.7.1000, specific 20 + k,
// time stamp 4200 and two bindings: 1.3.6.1.4.1.64999.7.1.1.0 = k and
// 1.3.6.1.4.1.64999.7.1.2.0 = "trap k".
extern "C" __attribute__((visibility("default"))) BOOL
SnmpExtensionTrap(AsnObjectIdentifier* enterprise, AsnInteger32* generic, AsnInteger32* specific,
                  AsnTimeticks* stamp, SnmpVarBindList* list) {
    if (g_trapsLeft <= 0)
        return FALSE;
    const int k = g_trapsLeft--;
    static const Arcs arcs = under({1000}); // kept by the agent, as the host expects
    *enterprise = AsnObjectIdentifier{static_cast<UINT>(arcs.size()), const_cast<UINT*>(arcs.data())};
    *generic = SNMP_GENERICTRAP_ENTERSPECIFIC;
    *specific = 20 + k;
    *stamp = 4200;
    auto* entries = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(2 * sizeof(SnmpVarBind)));
    std::memset(entries, 0, 2 * sizeof(SnmpVarBind));
    setName(entries[0], under({1, 1, 0}));
    setValue(entries[0], Variable{false, k, nullptr});
    const std::string text = "trap " + std::to_string(k);
    setName(entries[1], under({1, 2, 0}));
    setValue(entries[1], Variable{true, 0, text.c_str()});
    std::memcpy(reinterpret_cast<char*>(list) + offsetof(SnmpVarBindList, list), &entries, sizeof entries);
    list->len = 2;
    return TRUE;
}

extern "C" __attribute__((visibility("default"))) VOID SnmpExtensionClose() {
    if (g_event != nullptr)
        CloseHandle(g_event);
    g_event = nullptr;
    g_trapsLeft = 0;
}
