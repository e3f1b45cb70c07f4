// Variable handlers: the bridge between one MIB descriptor and the client facade.
#include "agent/mibHandlers.h"

#include <cstdlib>

#include "core/debugLog.h"
#include "core/hmClientApi.h"

namespace {

// Value read back after a SET_COMMIT; kept apart from the shared integer cell.
int32_t gSetReadBack = 0;

// Last arc of the descriptor's OID: the instance number of a table variable.
UINT lastArc(const MIB_VAR_TYPE* pMibVar) {
    if (pMibVar->Oid.idLength == 0 || pMibVar->Oid.ids == nullptr) {
        return 0;
    }
    return pMibVar->Oid.ids[pMibVar->Oid.idLength - 1];
}

bool inTable(const MIB_VAR_TYPE* pMibVar) {
    const int32_t subtree = pMibVar->SubTreeIndex;
    return subtree >= 0 && subtree < MIB_SUBTREE_COUNT && OidSubTrees[subtree].isTable != 0;
}

// Zero-based facade index of the variable: instance k is element k-1 of a table;
// a scalar group is read at `scalarIndex`.
uint32_t facadeIndex(const MIB_VAR_TYPE* pMibVar, uint32_t scalarIndex) {
    return inTable(pMibVar) ? lastArc(pMibVar) - 1 : scalarIndex;
}

bool isSetPhase(UINT nRequestType) {
    return nRequestType == SNMP_EXTENSION_SET_COMMIT || nRequestType == SNMP_EXTENSION_SET_TEST ||
           nRequestType == SNMP_EXTENSION_SET_UNDO || nRequestType == SNMP_EXTENSION_SET_CLEANUP;
}

bool isRead(UINT nRequestType) {
    return nRequestType == SNMP_EXTENSION_GET || nRequestType == SNMP_EXTENSION_GET_NEXT;
}

} // namespace

void mibReleaseText(MIB_VAR_TYPE* pMibVar) {
    if (pMibVar->asnType != ASN_OCTETSTRING) {
        return;
    }
    if (pMibVar->value != nullptr && pMibVar->value != gMibEmptyText) {
        free(pMibVar->value);
    }
    pMibVar->value = gMibEmptyText;
}

UINT ProcessIndexFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* /*pVarBind*/) {
    if (isRead(nRequestType)) {
        *static_cast<int32_t*>(pMibVar->value) = static_cast<int32_t>(lastArc(pMibVar));
        return SNMP_ERRORSTATUS_NOERROR;
    }
    if (isSetPhase(nRequestType)) {
        debugLog("skipping set - this is not an option for index values\n");
    }
    return SNMP_ERRORSTATUS_GENERR;
}

UINT ProcessIntegerFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind) {
    const uint32_t entity = pMibVar->HMEntity;
    const uint32_t attribute = pMibVar->HMAttribute;
    const uint32_t index = facadeIndex(pMibVar, 0);
    int32_t* cell = static_cast<int32_t*>(pMibVar->value);
    uint32_t status;

    if (isRead(nRequestType)) {
        debugLog("Calling GetFunc for SensorCode:%d MibVarCode:%d index:%d\n", static_cast<int>(entity),
                 static_cast<int>(attribute), static_cast<int>(index));
        status = pMibVar->UseLiveData ? getIntData(entity, attribute, index, cell)
                                      : getIntInfo(entity, attribute, index, cell);
    } else if (nRequestType == SNMP_EXTENSION_SET_COMMIT) {
        *cell = pVarBind->value.asnValue.number;
        debugLog("Calling SetFunc for SensorCode:%d MibVarCode:%d index:%d value:%d\n",
                 static_cast<int>(entity), static_cast<int>(attribute), static_cast<int>(index),
                 static_cast<int>(*cell));
        status = setIntData(entity, attribute, index, *cell);
        debugLog("After set status:%d\n", static_cast<int>(status));
        // The outcome is that of the read-back: a set that fails but reads back
        // successfully reports success.
        status = getIntData(entity, attribute, index, &gSetReadBack);
        debugLog("AFter set value is:%d\n", static_cast<int>(gSetReadBack));
    } else if (nRequestType == SNMP_EXTENSION_SET_TEST || nRequestType == SNMP_EXTENSION_SET_UNDO ||
               nRequestType == SNMP_EXTENSION_SET_CLEANUP) {
        return SNMP_ERRORSTATUS_NOERROR;
    } else {
        return SNMP_ERRORSTATUS_GENERR;
    }

    if (status == CLIENT_SUCCESS) {
        return SNMP_ERRORSTATUS_NOERROR;
    }
    debugLog("oops...didn't get CLIENT_SUCCESS\n");
    return SNMP_ERRORSTATUS_GENERR;
}

UINT ProcessStringFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* /*pVarBind*/) {
    if (isSetPhase(nRequestType)) {
        debugLog("skipping set - currently set on strings is not supported or required.\n");
        return SNMP_ERRORSTATUS_GENERR;
    }
    if (!isRead(nRequestType)) {
        return SNMP_ERRORSTATUS_GENERR;
    }

    const uint32_t entity = pMibVar->HMEntity;
    const uint32_t attribute = pMibVar->HMAttribute;
    const uint32_t index = facadeIndex(pMibVar, 1);
    char* text = nullptr;
    debugLog("ProcessStringFunc Calling GetFunc for SensorCode:%d MibVarCode:%d index:%d\n",
             static_cast<int>(entity), static_cast<int>(attribute), static_cast<int>(index));
    const uint32_t status = pMibVar->UseLiveData ? getStrData(entity, attribute, index, &text)
                                                 : getStrInfo(entity, attribute, index, &text);
    if (status != CLIENT_SUCCESS) {
        free(text); // a failing group should hand out nothing; never keep what it did
        debugLog("string got NULL\n");
        debugLog("OOPS..didn't get CLIENT_SUCCESS\n");
        return SNMP_ERRORSTATUS_GENERR;
    }
    if (text == nullptr) {
        // The descriptor keeps its previous text.
        debugLog("string got NULL\n");
        return SNMP_ERRORSTATUS_NOERROR;
    }
    mibReleaseText(pMibVar);
    pMibVar->value = text;
    debugLog("string got assigned:%s:\n", text);
    return SNMP_ERRORSTATUS_NOERROR;
}
