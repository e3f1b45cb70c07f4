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

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

using Arcs = std::vector<UINT>;

Arcs under(std::initializer_list<UINT> tail) {
    Arcs arcs{1, 3, 6, 1, 4, 1, 64999, 7};
    arcs.insert(arcs.end(), tail);
    return arcs;
}

// Texts are strings, everything else an integer.
struct Variable {
    AsnInteger32 number;
    const char* text;
};
const std::map<Arcs, Variable> kVariables{
    {under({1, 1, 0}), {42, nullptr}},  {under({1, 2, 0}), {0, "alpha"}},
    {under({1, 3, 0}), {-7, nullptr}},  {under({3, 1, 1}), {100, nullptr}},
    {under({3, 1, 2}), {200, nullptr}}, {under({3, 2, 1}), {0, "row one"}},
};

int g_nextRegion = 0;
HANDLE g_event = nullptr;
int g_trapsLeft = 0;

AsnObjectIdentifier oidOf(const Arcs& arcs) { // the arcs are kept by the agent, as the host expects
    return AsnObjectIdentifier{static_cast<UINT>(arcs.size()), const_cast<UINT*>(arcs.data())};
}
Arcs arcsOf(const AsnObjectIdentifier& oid) {
    UINT* ids = nullptr;
    std::memcpy(&ids, reinterpret_cast<const char*>(&oid) + offsetof(AsnObjectIdentifier, ids), sizeof ids);
    return ids == nullptr ? Arcs{} : Arcs(ids, ids + oid.idLength);
}

void set(SnmpVarBind& binding, const Arcs& arcs, const Variable* variable) {
    SnmpUtilOidFree(&binding.name);
    AsnObjectIdentifier source = oidOf(arcs);
    SnmpUtilOidCpy(&binding.name, &source);
    if (variable == nullptr)
        return;
    SnmpUtilAsnAnyFree(&binding.value);
    binding.value.asnType = variable->text != nullptr ? ASN_OCTETSTRING : ASN_INTEGER;
    binding.value.asnValue.number = variable->number;
    if (variable->text != nullptr) {
        const UINT length = static_cast<UINT>(std::strlen(variable->text));
        AsnOctetString text{static_cast<BYTE*>(SnmpUtilMemAlloc(length)), length, TRUE};
        std::memcpy(text.stream, variable->text, length);
        std::memcpy(&binding.value.asnValue.string, &text, sizeof text);
    }
}

const Arcs kRegions[3] = {under({1}), under({2}), under({3})};

} // namespace

EXPORTED BOOL SnmpExtensionInit(DWORD, HANDLE* event, AsnObjectIdentifier* region) {
    if (std::getenv("HMFAKE_FAIL_INIT") != nullptr)
        return FALSE;
    g_event = *event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    *region = oidOf(kRegions[0]);
    g_nextRegion = 1;
    g_trapsLeft = std::getenv("HMFAKE_TRAPS") == nullptr ? 0 : std::atoi(std::getenv("HMFAKE_TRAPS"));
    return TRUE;
}

EXPORTED BOOL SnmpExtensionInitEx(AsnObjectIdentifier* region) {
    if (g_nextRegion < 3) {
        *region = oidOf(kRegions[g_nextRegion++]);
        return TRUE;
    }
    if (g_trapsLeft > 0)
        SetEvent(g_event);
    return FALSE;
}

EXPORTED BOOL SnmpExtensionQueryEx(UINT type, UINT, SnmpVarBindList* list, AsnOctetString*,
                                   AsnInteger32* status, AsnInteger32* index) {
    SnmpVarBind* entries = nullptr;
    std::memcpy(&entries, reinterpret_cast<const char*>(list) + offsetof(SnmpVarBindList, list),
                sizeof entries);
    *status = SNMP_ERRORSTATUS_NOERROR;
    for (UINT n = 0; n < list->len && *status == SNMP_ERRORSTATUS_NOERROR; ++n) {
        SnmpVarBind& binding = entries[n];
        const auto found = kVariables.find(arcsOf(binding.name));
        if (type == SNMP_EXTENSION_GET && found != kVariables.end())
            set(binding, found->first, &found->second);
        else if (type == SNMP_EXTENSION_GET)
            *status = SNMP_ERRORSTATUS_NOSUCHNAME;
        else if (type == SNMP_EXTENSION_SET_TEST || type == SNMP_EXTENSION_SET_COMMIT)
            *status = found == kVariables.end() ? SNMP_ERRORSTATUS_NOSUCHNAME : SNMP_ERRORSTATUS_READONLY;
        else if (type == SNMP_EXTENSION_GET_NEXT) {
            const auto next = kVariables.upper_bound(arcsOf(binding.name));
            if (next == kVariables.end())
                set(binding, under({4}), nullptr); // the end of the view
            else
                set(binding, next->first, &next->second);
        }
        *index = static_cast<AsnInteger32>(n + 1);
    }
    if (*status == SNMP_ERRORSTATUS_NOERROR)
        *index = 0;
    return TRUE;
}

// Trap k (counting down) has enterprise 1.3.6.1.4.1.64999.7.1000, specific 20 + k,
// time stamp 4200 and two bindings: 1.3.6.1.4.1.64999.7.1.1.0 = k and
// 1.3.6.1.4.1.64999.7.1.2.0 = "trap k".
EXPORTED BOOL SnmpExtensionTrap(AsnObjectIdentifier* enterprise, AsnInteger32* generic,
                                AsnInteger32* specific, AsnTimeticks* stamp, SnmpVarBindList* list) {
    if (g_trapsLeft <= 0)
        return FALSE;
    const int k = g_trapsLeft--;
    static const Arcs arcs = under({1000});
    *enterprise = oidOf(arcs);
    *generic = SNMP_GENERICTRAP_ENTERSPECIFIC;
    *specific = 20 + k;
    *stamp = 4200;
    auto* entries = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(2 * sizeof(SnmpVarBind)));
    std::memset(entries, 0, 2 * sizeof(SnmpVarBind));
    const std::string text = "trap " + std::to_string(k);
    const Variable number{k, nullptr}, string{0, text.c_str()};
    set(entries[0], under({1, 1, 0}), &number);
    set(entries[1], under({1, 2, 0}), &string);
    std::memcpy(reinterpret_cast<char*>(list) + offsetof(SnmpVarBindList, list), &entries, sizeof entries);
    list->len = 2;
    return TRUE;
}

EXPORTED VOID SnmpExtensionClose() {
    if (g_event != nullptr)
        CloseHandle(g_event);
}
