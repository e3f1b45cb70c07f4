// The variable handlers: each reads or writes one variable through the client facade
// and leaves the value in the descriptor, from where the request code copies it into
// the binding. All return an SNMP error status: 0, or genErr (5).
#ifndef HM_AGENT_MIBHANDLERS_H
#define HM_AGENT_MIBHANDLERS_H

#include "agent/mibTypes.h"

// Index column of a table: the value is the variable's own instance number.
UINT ProcessIndexFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind);
// INTEGER variable: getIntInfo / getIntData, and setIntData on SET_COMMIT.
UINT ProcessIntegerFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind);
// OCTET STRING variable: getStrInfo / getStrData; writes are refused.
UINT ProcessStringFunc(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind);

// Frees the text a string descriptor holds (unless it is the shared empty text) and
// points it back at the shared empty text.
void mibReleaseText(MIB_VAR_TYPE* pMibVar);

#endif
