// SnmpMgrStrToOid: numeric dotted text to an object identifier.
#include <mgmtapi.h>

#include <cstdint>
#include <cstring>

namespace {

// The mib-2 prefix (iso.org.dod.internet.mgmt.mib-2) that text without a leading
// "." is taken relative to.
constexpr UINT kMib2[] = {1, 3, 6, 1, 2, 1};
constexpr UINT kMib2Len = sizeof kMib2 / sizeof kMib2[0];

} // namespace

extern "C" {

HM_COMPAT_API BOOL SNMP_FUNC_TYPE SnmpMgrStrToOid(LPSTR string, AsnObjectIdentifier* oid) {
    if (string == nullptr || oid == nullptr) {
        return FALSE;
    }
    UINT arcs[SNMP_MAX_OID_LEN];
    UINT count = 0;
    const char* p = string;
    if (*p == '.') {
        ++p;
    } else {
        std::memcpy(arcs, kMib2, sizeof kMib2);
        count = kMib2Len;
    }
    if (*p == '\0') {
        return FALSE;
    }
    for (;;) {
        if (*p < '0' || *p > '9') {
            return FALSE; // empty arc, sign, blank or a name
        }
        uint64_t value = 0;
        while (*p >= '0' && *p <= '9') {
            value = value * 10 + static_cast<uint64_t>(*p - '0');
            if (value > 0xFFFFFFFFu) {
                return FALSE;
            }
            ++p;
        }
        if (count == SNMP_MAX_OID_LEN) {
            return FALSE;
        }
        arcs[count++] = static_cast<UINT>(value);
        if (*p == '\0') {
            break;
        }
        if (*p != '.') {
            return FALSE;
        }
        ++p;
    }
    UINT* ids = static_cast<UINT*>(SnmpUtilMemAlloc(count * static_cast<UINT>(sizeof(UINT))));
    if (ids == nullptr) {
        return FALSE;
    }
    std::memcpy(ids, arcs, count * sizeof(UINT));
    oid->ids = ids;
    oid->idLength = count;
    return TRUE;
}

} // extern "C"
