// The agent's private MIB: one descriptor per variable, the fourteen OID subtrees
// the variables hang under, and the live chain that links the descriptors in OID
// order once the tables have been expanded into their instances.
#ifndef HM_AGENT_MIBTYPES_H
#define HM_AGENT_MIBTYPES_H

#include <cstdint>
#include <windows.h>
#include <snmp.h>

struct MIB_VAR_TYPE;

// A variable handler: reads or writes one variable through the client facade and
// returns an SNMP error status (0 or genErr).
typedef UINT (*PMIBFUNC)(UINT nRequestType, MIB_VAR_TYPE* pMibVar, SnmpVarBind* pVarBind);

// Access of a variable.
constexpr uint16_t MIB_ACCESS_NONE = 0;
constexpr uint16_t MIB_ACCESS_READ = 1;
constexpr uint16_t MIB_ACCESS_READWRITE = 2;

// One variable descriptor. Field order is fixed.
struct MIB_VAR_TYPE {
    uint32_t HMAttribute; // attribute code 1..156, the facade's "MibVarCode"
    uint32_t HMEntity;    // entity code 1..14, the facade's "SensorCode"
    int32_t SubTreeIndex; // index into OidSubTrees
    BYTE asnType;         // ASN_INTEGER or ASN_OCTETSTRING
    uint16_t access;      // MIB_ACCESS_*
    // INTEGER rows: the integer cell shared by every integer row. OCTET STRING rows:
    // the current NUL-terminated text, the shared empty text until the first read.
    void* value;
    PMIBFUNC pMibFunc;       // null marks the row for removal from the chain
    void* reserved;          // always null
    AsnObjectIdentifier Oid; // relative to the subtree's base OID
    uint32_t UseLiveData;    // 1: live-data getters, 0: cached-information getters
    MIB_VAR_TYPE* pMibNext;  // next variable in OID order, null at the end
};

// One subtree of the MIB, registered with the SNMP service as a region.
struct OID_SUBTREE {
    AsnObjectIdentifier baseOid;
    uint32_t isTable;      // 1: conceptual table (last arc of a variable is its instance)
    MIB_VAR_TYPE* pMibVar; // first variable of the subtree in the chain, or null
};

constexpr int MIB_SUBTREE_COUNT = 14;
constexpr int MIB_ROW_COUNT = 156;
// Longest text a string variable publishes, terminating NUL included.
constexpr size_t MIB_TEXT_SIZE = 128;

// The static descriptor table, linked into the live chain at start-up.
extern MIB_VAR_TYPE hmSubagentMib[MIB_ROW_COUNT];
// The subtrees, in OID order.
extern OID_SUBTREE OidSubTrees[MIB_SUBTREE_COUNT];
// The first OID after the agent's view, 1.3.6.1.4.1.64999.2.10.3.6.
extern AsnObjectIdentifier MibEndOfViewOid;
// The integer cell shared by every INTEGER descriptor: holds the last value read.
extern int32_t gMibIntValue;
// The empty text every OCTET STRING descriptor starts from; never freed.
extern char gMibEmptyText[1];

// Copies the pristine descriptor table into hmSubagentMib (handlers, access and
// values as built, the last row's link pointing back at the first row) and clears
// every subtree's first variable.
void mibLoadStaticTable();

#endif
