// The SNMP extension-agent entry points the SNMP service resolves by name.
#ifndef HM_AGENT_SNMPEXTENSION_H
#define HM_AGENT_SNMPEXTENSION_H

#include <windows.h>
#include <snmp.h>

#include "platform/hmVocabulary.h"

extern "C" {
// Starts the client facade, builds the variable chain, creates the trap event and
// hands out the first region. FALSE when the agent cannot start.
HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionInit(DWORD dwUpTimeReference, HANDLE* phSubagentTrapEvent,
                                                AsnObjectIdentifier* pFirstSupportedRegion);
// Hands out the next region; FALSE once every region has been handed out, at which
// point start-up is complete and the event poller runs.
HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionInitEx(AsnObjectIdentifier* pNextSupportedRegion);
// Serves one GET, GETNEXT or SET-phase request. Always TRUE.
HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionQueryEx(UINT nRequestType, UINT nTransactionId,
                                                   SnmpVarBindList* pVarBindList,
                                                   AsnOctetString* pContextInfo, AsnInteger32* pErrorStatus,
                                                   AsnInteger32* pErrorIndex);
// Produces one trap from the event queue; FALSE when there is none.
HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionTrap(AsnObjectIdentifier* pEnterpriseOid,
                                                AsnInteger32* pGenericTrapId, AsnInteger32* pSpecificTrapId,
                                                AsnTimeticks* pTimeStamp, SnmpVarBindList* pVarBindList);
// Releases the groups, the event handler and the variable chain, and closes the trace.
HM_EXPORT VOID SNMP_FUNC_TYPE SnmpExtensionClose(void);
}

#endif
