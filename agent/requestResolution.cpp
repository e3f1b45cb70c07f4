// GET, GETNEXT and SET-phase requests: binding by binding, find the variable in the
// live chain and serve it through its handler.
#include "agent/requestResolution.h"

#include <cstring>

#include "agent/agentState.h"
#include "agent/mibChain.h"
#include "agent/snmpExtension.h"
#include "core/debugLog.h"
#include "core/hmClientApi.h"

namespace {

UINT leave(UINT status) {
    debugLog("Leaving ProcessLeafNode status:%d\n", static_cast<int>(status));
    return status;
}

void traceDescriptor(MIB_VAR_TYPE* pMibVar) {
    debugLog("Printing MIB_VAR_TYPE \n");
    debugLog("HMAttribute=%d \n", static_cast<int>(pMibVar->HMAttribute));
    debugLog("HMEntity=%d \n", static_cast<int>(pMibVar->HMEntity));
    debugLog("SubTreeIndex=%d \n", static_cast<int>(pMibVar->SubTreeIndex));
    debugLog("asnType=%d \n", static_cast<int>(pMibVar->asnType));
    debugLog("Oid=%s \n", SnmpUtilOidToA(&pMibVar->Oid));
    debugLog("UseLiveData=%d \n", static_cast<int>(pMibVar->UseLiveData));
}

// Moves the descriptor's text into the binding as an OCTET STRING of its own.
UINT storeText(const MIB_VAR_TYPE* pMibVar, AsnAny* value) {
    const char* text = pMibVar->value != nullptr ? static_cast<const char*>(pMibVar->value) : gMibEmptyText;
    const UINT length = static_cast<UINT>(strnlen(text, MIB_TEXT_SIZE));
    // The stream is reused when the binding already owns one; anything else it owned
    // is released first. At least one byte is requested so that an empty text still
    // yields a stream of its own.
    BYTE* stream = nullptr;
    if (value->asnType == ASN_OCTETSTRING && value->asnValue.string.dynamic) {
        stream = value->asnValue.string.stream;
    } else {
        SnmpUtilAsnAnyFree(value);
    }
    const UINT size = length != 0 ? length : 1;
    // The Windows allocator does not reallocate a null block.
    BYTE* resized =
        static_cast<BYTE*>(stream != nullptr ? SnmpUtilMemReAlloc(stream, size) : SnmpUtilMemAlloc(size));
    if (resized == nullptr) {
        return SNMP_ERRORSTATUS_GENERR;
    }
    memcpy(resized, text, length);
    value->asnType = ASN_OCTETSTRING;
    value->asnValue.string.stream = resized;
    value->asnValue.string.length = length;
    value->asnValue.string.dynamic = TRUE;
    return SNMP_ERRORSTATUS_NOERROR;
}

UINT processGet(MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind) {
    if (pMibVar->access == MIB_ACCESS_NONE) {
        debugLog("no access\n");
        return leave(SNMP_ERRORSTATUS_NOSUCHNAME);
    }
    if (pMibVar->pMibFunc == nullptr) {
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
    const UINT status = pMibVar->pMibFunc(SNMP_EXTENSION_GET, pMibVar, pVarBind);
    if (status != SNMP_ERRORSTATUS_NOERROR) {
        return leave(status);
    }

    AsnAny* value = &pVarBind->value;
    switch (pMibVar->asnType) {
    case ASN_INTEGER:
        SnmpUtilAsnAnyFree(value);
        value->asnType = ASN_INTEGER;
        value->asnValue.number = *static_cast<const int32_t*>(pMibVar->value);
        return leave(SNMP_ERRORSTATUS_NOERROR);
    case ASN_OCTETSTRING:
        return leave(storeText(pMibVar, value));
    default:
        debugLog("found a asnType of item not covered by software:%d\n", static_cast<int>(pMibVar->asnType));
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
}

UINT processGetNext(MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind) {
    MIB_VAR_TYPE* next = pMibVar->pMibNext;
    if (next == nullptr) {
        debugLog("we searched to the bottom of the mib\n");
        return leave(SNMP_ERRORSTATUS_NOSUCHNAME);
    }
    if (next->access == MIB_ACCESS_NONE) {
        debugLog("noaccess\n");
        return leave(SNMP_ERRORSTATUS_NOSUCHNAME);
    }
    UINT arcs[MIB_FULL_OID_MAX];
    AsnObjectIdentifier full;
    if (!mibFullOid(next, arcs, &full) || !mibReplaceName(&pVarBind->name, &full)) {
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
    if (next->pMibFunc == nullptr) {
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
    return ProcessLeafNode(SNMP_EXTENSION_GET, next, pVarBind);
}

// SET_TEST and SET_COMMIT share the access and configuration checks.
UINT processSet(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind) {
    if (pMibVar->access == MIB_ACCESS_NONE) {
        if (nRequestType == SNMP_EXTENSION_SET_TEST) {
            debugLog("no access\n");
        }
        return leave(SNMP_ERRORSTATUS_NOSUCHNAME);
    }
    if (pMibVar->access == MIB_ACCESS_READ || !isSetsEnabled()) {
        if (nRequestType == SNMP_EXTENSION_SET_TEST) {
            debugLog("no access\n");
        }
        return leave(SNMP_ERRORSTATUS_READONLY);
    }
    if (nRequestType == SNMP_EXTENSION_SET_TEST && pMibVar->asnType != pVarBind->value.asnType) {
        return leave(SNMP_ERRORSTATUS_BADVALUE);
    }
    if (pMibVar->pMibFunc == nullptr) {
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
    return leave(pMibVar->pMibFunc(nRequestType, pMibVar, pVarBind));
}

// Where the scan starts: the first variable of the subtree the OID falls in, or of the
// subtree before the first base that is greater than the OID; the head of the chain
// when neither applies or that subtree is empty.
MIB_VAR_TYPE* searchStart(AsnObjectIdentifier* requested) {
    MIB_VAR_TYPE* start = nullptr;
    bool chosen = false;
    for (int i = 0; i < MIB_SUBTREE_COUNT && !chosen; ++i) {
        AsnObjectIdentifier* base = &OidSubTrees[i].baseOid;
        const int order = SnmpUtilOidNCmp(base, requested, base->idLength);
        if (order == 0) {
            start = OidSubTrees[i].pMibVar;
            chosen = true;
        } else if (order > 0 && i >= 1) {
            start = OidSubTrees[i - 1].pMibVar;
            chosen = true;
        }
    }
    if (start == nullptr) {
        debugLog("Starting search at the top\n");
        start = mibChainHead();
    }
    return start;
}

} // namespace

UINT ProcessLeafNode(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind) {
    traceDescriptor(pMibVar);
    switch (nRequestType) {
    case SNMP_EXTENSION_GET:
        return processGet(pMibVar, pVarBind);
    case SNMP_EXTENSION_GET_NEXT:
        return processGetNext(pMibVar, pVarBind);
    case SNMP_EXTENSION_SET_TEST:
    case SNMP_EXTENSION_SET_COMMIT:
        return processSet(nRequestType, pMibVar, pVarBind);
    case SNMP_EXTENSION_SET_UNDO:
    case SNMP_EXTENSION_SET_CLEANUP:
        return leave(SNMP_ERRORSTATUS_NOERROR);
    default:
        return leave(SNMP_ERRORSTATUS_GENERR);
    }
}

UINT ResolveVarBind(UINT nRequestType, SnmpVarBind* pVarBind) {
    AsnObjectIdentifier* requested = &pVarBind->name;
    if (requested->idLength != 0 && requested->ids == nullptr) {
        return SNMP_ERRORSTATUS_NOSUCHNAME;
    }

    MIB_VAR_TYPE* const start = searchStart(requested);
    MIB_VAR_TYPE* answer = nullptr;
    MIB_VAR_TYPE* indexed = nullptr;
    AsnObjectIdentifier indexedFull{0, nullptr};
    switch (start != nullptr ? mibChainSeek(start, requested, &indexed, &indexedFull) : MibSeekResult::End) {
    case MibSeekResult::End:
        return SNMP_ERRORSTATUS_NOSUCHNAME;
    case MibSeekResult::TooLong:
        return SNMP_ERRORSTATUS_GENERR;
    case MibSeekResult::Found:
    case MibSeekResult::NotIndexed:
        break;
    }
    // With an index the walk below starts at the variable it found and stops there;
    // without one it compares every variable from the start on.
    for (MIB_VAR_TYPE* pMibVar = indexed != nullptr ? indexed : start;
         pMibVar != nullptr && answer == nullptr; pMibVar = pMibVar->pMibNext) {
        UINT arcs[MIB_FULL_OID_MAX];
        AsnObjectIdentifier full = indexedFull;
        if (pMibVar != indexed && !mibFullOid(pMibVar, arcs, &full)) {
            return SNMP_ERRORSTATUS_GENERR;
        }
        const int order = SnmpUtilOidCmp(requested, &full);
        if (order < 0) {
            if (nRequestType != SNMP_EXTENSION_GET_NEXT) {
                debugLog("no such name found\n");
                return SNMP_ERRORSTATUS_NOSUCHNAME;
            }
            if (!mibReplaceName(&pVarBind->name, &full)) {
                return SNMP_ERRORSTATUS_GENERR;
            }
            debugLog("Setting new varBind name to %s\n", SnmpUtilOidToA(&pVarBind->name));
            nRequestType = SNMP_EXTENSION_GET;
            answer = pMibVar;
        } else if (order == 0) {
            debugLog("Found varbind match\n");
            answer = pMibVar;
        }
    }
    if (answer == nullptr) {
        return SNMP_ERRORSTATUS_NOSUCHNAME;
    }
    return ProcessLeafNode(nRequestType, answer, pVarBind);
}

extern "C" HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionQueryEx(UINT nRequestType, UINT /*nTransactionId*/,
                                                              SnmpVarBindList* pVarBindList,
                                                              AsnOctetString* /*pContextInfo*/,
                                                              AsnInteger32* pErrorStatus,
                                                              AsnInteger32* pErrorIndex) {
    agentCountQuery();
    if (pVarBindList == nullptr || pErrorStatus == nullptr || pErrorIndex == nullptr) {
        return TRUE;
    }
    if (pVarBindList->len != 0 && pVarBindList->list == nullptr) {
        return TRUE;
    }

    for (UINT i = 0; i < pVarBindList->len; ++i) {
        SnmpVarBind* pVarBind = &pVarBindList->list[i];
        UINT status = ResolveVarBind(nRequestType, pVarBind);
        if ((status == SNMP_ERRORSTATUS_NOSUCHNAME || status == SNMP_ERRORSTATUS_GENERR) &&
            nRequestType == SNMP_EXTENSION_GET_NEXT) {
            // The walk has left this agent's view: hand the service the first OID
            // after it so that it goes on in the next region.
            status = mibReplaceName(&pVarBind->name, &MibEndOfViewOid) ? SNMP_ERRORSTATUS_NOERROR
                                                                       : SNMP_ERRORSTATUS_GENERR;
        }
        *pErrorStatus = static_cast<AsnInteger32>(status);
        if (status != SNMP_ERRORSTATUS_NOERROR) {
            *pErrorIndex = static_cast<AsnInteger32>(i + 1);
            return TRUE;
        }
    }
    return TRUE;
}
