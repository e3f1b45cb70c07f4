// The snmpapi utility calls: object identifiers, variable bindings, the shared
// allocator and the service up-time. Every allocation goes through the malloc
// family, so memory handed between the agent library and its host can be freed
// on either side.
#include <snmp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>

namespace {

uint64_t monotonicMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

// Taken when the library is loaded.
const uint64_t g_loadTimeMs = monotonicMs();

// Large enough for the dotted text of any OID of up to SNMP_MAX_OID_LEN arcs of
// ten digits each, plus the terminating NUL.
constexpr size_t kOidTextSize = SNMP_MAX_OID_LEN * 11;
thread_local char t_oidText[kOidTextSize];

const UINT* idsOf(const AsnObjectIdentifier* oid, UINT& len) {
    if (oid == nullptr || oid->ids == nullptr) {
        len = 0;
        return nullptr;
    }
    len = oid->idLength;
    return oid->ids;
}

bool isStringLike(BYTE type) {
    switch (type) {
    case ASN_OCTETSTRING:
    case ASN_BITS:
    case ASN_SEQUENCE:
    case ASN_IPADDRESS:
    case ASN_OPAQUE:
        return true;
    default:
        return false;
    }
}

} // namespace

extern "C" {

HM_COMPAT_API LPVOID SNMP_FUNC_TYPE SnmpUtilMemAlloc(UINT nBytes) {
    void* p = std::malloc(nBytes != 0 ? nBytes : 1);
    if (p != nullptr) {
        std::memset(p, 0, malloc_usable_size(p)); // see SnmpUtilMemReAlloc
    }
    return p;
}

HM_COMPAT_API LPVOID SNMP_FUNC_TYPE SnmpUtilMemReAlloc(LPVOID pMem, UINT nBytes) {
    if (pMem == nullptr) {
        return SnmpUtilMemAlloc(nBytes);
    }
    // Blocks from these calls keep every byte past the requested size zero, up
    // to the usable size, so a block that grows in place shows only zeros in
    // its new part.
    size_t want = nBytes != 0 ? nBytes : 1;
    size_t old = malloc_usable_size(pMem);
    auto* p = static_cast<char*>(std::realloc(pMem, want));
    if (p == nullptr) {
        return nullptr;
    }
    if (want > old) {
        std::memset(p + old, 0, want - old);
    }
    size_t usable = malloc_usable_size(p);
    if (usable > want) {
        std::memset(p + want, 0, usable - want);
    }
    return p;
}

HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilMemFree(LPVOID pMem) {
    std::free(pMem);
}

HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidCpy(AsnObjectIdentifier* pOidDst,
                                                    AsnObjectIdentifier* pOidSrc) {
    if (pOidDst == nullptr || pOidSrc == nullptr || (pOidSrc->idLength != 0 && pOidSrc->ids == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return SNMPAPI_ERROR;
    }
    UINT len = pOidSrc->idLength;
    if (len > UINT32_MAX / sizeof(UINT)) {
        SetLastError(SNMP_MEM_ALLOC_ERROR);
        return SNMPAPI_ERROR;
    }
    UINT* ids = nullptr;
    if (len != 0) {
        ids = static_cast<UINT*>(SnmpUtilMemAlloc(len * static_cast<UINT>(sizeof(UINT))));
        if (ids == nullptr) {
            SetLastError(SNMP_MEM_ALLOC_ERROR);
            return SNMPAPI_ERROR;
        }
        std::memcpy(ids, pOidSrc->ids, len * sizeof(UINT));
    }
    pOidDst->ids = ids;
    pOidDst->idLength = len;
    return SNMPAPI_NOERROR;
}

HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidAppend(AsnObjectIdentifier* pOidDst,
                                                       AsnObjectIdentifier* pOidSrc) {
    if (pOidDst == nullptr || pOidSrc == nullptr || (pOidSrc->idLength != 0 && pOidSrc->ids == nullptr) ||
        (pOidDst->idLength != 0 && pOidDst->ids == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return SNMPAPI_ERROR;
    }
    if (pOidSrc->idLength == 0) {
        return SNMPAPI_NOERROR;
    }
    UINT total = pOidDst->idLength + pOidSrc->idLength;
    if (total > SNMP_MAX_OID_LEN || total < pOidDst->idLength) {
        SetLastError(SNMP_BERAPI_OVERFLOW);
        return SNMPAPI_ERROR;
    }
    UINT* ids = static_cast<UINT*>(SnmpUtilMemReAlloc(pOidDst->ids, total * static_cast<UINT>(sizeof(UINT))));
    if (ids == nullptr) {
        SetLastError(SNMP_MEM_ALLOC_ERROR);
        return SNMPAPI_ERROR;
    }
    // memmove: the source may be the destination itself (its ids just moved).
    const UINT* src = pOidSrc == pOidDst ? ids : pOidSrc->ids;
    std::memmove(ids + pOidDst->idLength, src, pOidSrc->idLength * sizeof(UINT));
    pOidDst->ids = ids;
    pOidDst->idLength = total;
    return SNMPAPI_NOERROR;
}

HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidNCmp(AsnObjectIdentifier* pOid1, AsnObjectIdentifier* pOid2,
                                                     UINT nSubIds) {
    UINT len1;
    UINT len2;
    const UINT* a = idsOf(pOid1, len1);
    const UINT* b = idsOf(pOid2, len2);
    UINT common = len1 < len2 ? len1 : len2;
    if (common > nSubIds) {
        common = nSubIds;
    }
    for (UINT i = 0; i < common; ++i) {
        if (a[i] != b[i]) {
            return a[i] < b[i] ? -1 : 1;
        }
    }
    if (common == nSubIds || len1 == len2) {
        return 0;
    }
    return len1 < len2 ? -1 : 1;
}

HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidCmp(AsnObjectIdentifier* pOid1, AsnObjectIdentifier* pOid2) {
    UINT len1;
    UINT len2;
    idsOf(pOid1, len1);
    idsOf(pOid2, len2);
    return SnmpUtilOidNCmp(pOid1, pOid2, len1 > len2 ? len1 : len2);
}

HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilOidFree(AsnObjectIdentifier* pOid) {
    if (pOid == nullptr) {
        return;
    }
    SnmpUtilMemFree(pOid->ids);
    pOid->ids = nullptr;
    pOid->idLength = 0;
}

HM_COMPAT_API LPSTR SNMP_FUNC_TYPE SnmpUtilOidToA(AsnObjectIdentifier* Oid) {
    UINT len;
    const UINT* ids = idsOf(Oid, len);
    if (len == 0) {
        std::snprintf(t_oidText, sizeof t_oidText, "%s", "<null oid>");
        return t_oidText;
    }
    size_t used = 0;
    t_oidText[0] = '\0';
    for (UINT i = 0; i < len; ++i) {
        char arc[16];
        int n = std::snprintf(arc, sizeof arc, i == 0 ? "%u" : ".%u", ids[i]);
        if (used + static_cast<size_t>(n) >= sizeof t_oidText) {
            break; // cut at the last whole arc that fits
        }
        std::memcpy(t_oidText + used, arc, static_cast<size_t>(n) + 1);
        used += static_cast<size_t>(n);
    }
    return t_oidText;
}

HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilAsnAnyFree(AsnAny* pAny) {
    if (pAny == nullptr) {
        return;
    }
    if (pAny->asnType == ASN_OBJECTIDENTIFIER) {
        SnmpUtilOidFree(&pAny->asnValue.object);
    } else if (isStringLike(pAny->asnType)) {
        if (pAny->asnValue.string.dynamic) {
            SnmpUtilMemFree(pAny->asnValue.string.stream);
        }
        pAny->asnValue.string.stream = nullptr;
        pAny->asnValue.string.length = 0;
        pAny->asnValue.string.dynamic = FALSE;
    }
    pAny->asnType = ASN_NULL;
}

HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilVarBindFree(SnmpVarBind* pVb) {
    if (pVb == nullptr) {
        return;
    }
    SnmpUtilOidFree(&pVb->name);
    SnmpUtilAsnAnyFree(&pVb->value);
}

HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilVarBindListFree(SnmpVarBindList* pVbl) {
    if (pVbl == nullptr) {
        return;
    }
    if (pVbl->list != nullptr) {
        for (UINT i = 0; i < pVbl->len; ++i) {
            SnmpUtilVarBindFree(&pVbl->list[i]);
        }
    }
    SnmpUtilMemFree(pVbl->list);
    pVbl->list = nullptr;
    pVbl->len = 0;
}

HM_COMPAT_API DWORD SNMP_FUNC_TYPE SnmpSvcGetUptime(void) {
    return static_cast<DWORD>((monotonicMs() - g_loadTimeMs) / 10u);
}

} // extern "C"
