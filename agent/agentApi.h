// What the agent's own event code may call of the SNMP front end.
#ifndef HM_AGENT_AGENTAPI_H
#define HM_AGENT_AGENTAPI_H

#include <windows.h>
#include <snmp.h>

#include "platform/hmVocabulary.h"

extern "C" {
// Asks the SNMP service to collect traps; remembered until start-up is complete.
HM_EXPORT int AssertTrap();
}

// True once the last region has been handed to the SNMP service.
unsigned char IsInitDone();
// Copies the base OID of subtree `index` (0..13); leaves `oid` untouched otherwise.
// The copy has arcs of its own (SnmpUtilMem allocator): the caller may append to it and
// frees it with SnmpUtilOidFree.
void GetOidSubTreeBaseOid(int index, AsnObjectIdentifier* oid);

#endif
