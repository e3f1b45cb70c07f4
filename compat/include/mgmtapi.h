// The one mgmtapi call the agent uses, for POSIX systems.
#ifndef HM_COMPAT_MGMTAPI_H
#define HM_COMPAT_MGMTAPI_H

#include <snmp.h>

#ifdef __cplusplus
extern "C" {
#endif

// Converts dotted text to an OID. A leading "." makes the text absolute; without it
// the text is taken relative to the mib-2 prefix 1.3.6.1.2.1, as on Windows.
HM_COMPAT_API BOOL SNMP_FUNC_TYPE SnmpMgrStrToOid(LPSTR string, AsnObjectIdentifier* oid);

#ifdef __cplusplus
}
#endif

#endif
