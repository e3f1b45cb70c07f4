// Resolution of one variable binding of a GET, GETNEXT or SET-phase request against
// the live variable chain.
#ifndef HM_AGENT_REQUESTRESOLUTION_H
#define HM_AGENT_REQUESTRESOLUTION_H

#include "agent/mibTypes.h"

// Finds the variable a binding names (or, for GETNEXT, the next one) and serves it;
// may rewrite the binding's name. Returns an SNMP error status.
UINT ResolveVarBind(UINT nRequestType, SnmpVarBind* pVarBind);

// Applies the request type to one variable, calling its handler and moving the value
// into the binding for reads. Returns an SNMP error status.
UINT ProcessLeafNode(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind);

#endif
