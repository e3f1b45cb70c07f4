// SNMP extension-agent types and snmpapi utility calls for POSIX systems, with the
// Windows names, field order, 4-byte packing and constant values, so that a host
// written against the Windows snmp.h can drive the agent library unchanged.
#ifndef HM_COMPAT_SNMP_H
#define HM_COMPAT_SNMP_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    DWORD LowPart;
    DWORD HighPart;
} HM_COMPAT_ULARGE_PARTS;
typedef union {
    HM_COMPAT_ULARGE_PARTS u;
    uint64_t QuadPart;
} ULARGE_INTEGER;

#pragma pack(push, 4)

typedef struct {
    BYTE* stream;
    UINT length;
    BOOL dynamic;
} AsnOctetString;

typedef struct {
    UINT idLength;
    UINT* ids;
} AsnObjectIdentifier;

typedef LONG AsnInteger32;
typedef ULONG AsnUnsigned32;
typedef ULARGE_INTEGER AsnCounter64;
typedef AsnUnsigned32 AsnCounter32;
typedef AsnUnsigned32 AsnGauge32;
typedef AsnUnsigned32 AsnTimeticks;
typedef AsnOctetString AsnBits;
typedef AsnOctetString AsnSequence;
typedef AsnOctetString AsnImplicitSequence;
typedef AsnOctetString AsnIPAddress;
typedef AsnOctetString AsnNetworkAddress;
typedef AsnOctetString AsnDisplayString;
typedef AsnOctetString AsnOpaque;

typedef struct {
    BYTE asnType;
    union {
        AsnInteger32 number;
        AsnUnsigned32 unsigned32;
        AsnCounter64 counter64;
        AsnOctetString string;
        AsnBits bits;
        AsnObjectIdentifier object;
        AsnSequence sequence;
        AsnIPAddress address;
        AsnCounter32 counter;
        AsnGauge32 gauge;
        AsnTimeticks ticks;
        AsnOpaque arbitrary;
    } asnValue;
} AsnAny;

typedef AsnObjectIdentifier AsnObjectName;
typedef AsnAny AsnObjectSyntax;

typedef struct {
    AsnObjectName name;
    AsnObjectSyntax value;
} SnmpVarBind;

typedef struct {
    SnmpVarBind* list;
    UINT len;
} SnmpVarBindList;

#pragma pack(pop)

#define ASN_UNIVERSAL 0x00
#define ASN_APPLICATION 0x40
#define ASN_CONTEXT 0x80
#define ASN_PRIVATE 0xC0
#define ASN_PRIMITIVE 0x00
#define ASN_CONSTRUCTOR 0x20

#define SNMP_PDU_GET (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x0)
#define SNMP_PDU_GETNEXT (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x1)
#define SNMP_PDU_RESPONSE (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x2)
#define SNMP_PDU_SET (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x3)
#define SNMP_PDU_V1TRAP (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x4)
#define SNMP_PDU_GETBULK (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x5)
#define SNMP_PDU_INFORM (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x6)
#define SNMP_PDU_TRAP (ASN_CONTEXT | ASN_CONSTRUCTOR | 0x7)

#define ASN_INTEGER (ASN_UNIVERSAL | ASN_PRIMITIVE | 0x02)
#define ASN_BITS (ASN_UNIVERSAL | ASN_PRIMITIVE | 0x03)
#define ASN_OCTETSTRING (ASN_UNIVERSAL | ASN_PRIMITIVE | 0x04)
#define ASN_NULL (ASN_UNIVERSAL | ASN_PRIMITIVE | 0x05)
#define ASN_OBJECTIDENTIFIER (ASN_UNIVERSAL | ASN_PRIMITIVE | 0x06)
#define ASN_INTEGER32 ASN_INTEGER
#define ASN_SEQUENCE (ASN_UNIVERSAL | ASN_CONSTRUCTOR | 0x10)
#define ASN_SEQUENCEOF ASN_SEQUENCE
#define ASN_IPADDRESS (ASN_APPLICATION | ASN_PRIMITIVE | 0x00)
#define ASN_COUNTER32 (ASN_APPLICATION | ASN_PRIMITIVE | 0x01)
#define ASN_GAUGE32 (ASN_APPLICATION | ASN_PRIMITIVE | 0x02)
#define ASN_TIMETICKS (ASN_APPLICATION | ASN_PRIMITIVE | 0x03)
#define ASN_OPAQUE (ASN_APPLICATION | ASN_PRIMITIVE | 0x04)
#define ASN_COUNTER64 (ASN_APPLICATION | ASN_PRIMITIVE | 0x06)
#define ASN_UINTEGER32 (ASN_APPLICATION | ASN_PRIMITIVE | 0x07)

#define SNMP_EXTENSION_GET SNMP_PDU_GET
#define SNMP_EXTENSION_GET_NEXT SNMP_PDU_GETNEXT
#define SNMP_EXTENSION_GET_BULK SNMP_PDU_GETBULK
#define SNMP_EXTENSION_SET_TEST (ASN_PRIVATE | ASN_CONSTRUCTOR | 0x0)
#define SNMP_EXTENSION_SET_COMMIT SNMP_PDU_SET
#define SNMP_EXTENSION_SET_UNDO (ASN_PRIVATE | ASN_CONSTRUCTOR | 0x1)
#define SNMP_EXTENSION_SET_CLEANUP (ASN_PRIVATE | ASN_CONSTRUCTOR | 0x2)

#define SNMP_ERRORSTATUS_NOERROR 0
#define SNMP_ERRORSTATUS_TOOBIG 1
#define SNMP_ERRORSTATUS_NOSUCHNAME 2
#define SNMP_ERRORSTATUS_BADVALUE 3
#define SNMP_ERRORSTATUS_READONLY 4
#define SNMP_ERRORSTATUS_GENERR 5
#define SNMP_ERRORSTATUS_NOACCESS 6
#define SNMP_ERRORSTATUS_WRONGTYPE 7
#define SNMP_ERRORSTATUS_WRONGLENGTH 8
#define SNMP_ERRORSTATUS_WRONGENCODING 9
#define SNMP_ERRORSTATUS_WRONGVALUE 10
#define SNMP_ERRORSTATUS_NOCREATION 11
#define SNMP_ERRORSTATUS_INCONSISTENTVALUE 12
#define SNMP_ERRORSTATUS_RESOURCEUNAVAILABLE 13
#define SNMP_ERRORSTATUS_COMMITFAILED 14
#define SNMP_ERRORSTATUS_UNDOFAILED 15
#define SNMP_ERRORSTATUS_AUTHORIZATIONERROR 16
#define SNMP_ERRORSTATUS_NOTWRITABLE 17
#define SNMP_ERRORSTATUS_INCONSISTENTNAME 18

#define SNMP_GENERICTRAP_COLDSTART 0
#define SNMP_GENERICTRAP_WARMSTART 1
#define SNMP_GENERICTRAP_LINKDOWN 2
#define SNMP_GENERICTRAP_LINKUP 3
#define SNMP_GENERICTRAP_AUTHFAILURE 4
#define SNMP_GENERICTRAP_EGPNEIGHLOSS 5
#define SNMP_GENERICTRAP_ENTERSPECIFIC 6

#define SNMPAPI INT
#define SNMP_FUNC_TYPE WINAPI
#define SNMPAPI_NOERROR TRUE
#define SNMPAPI_ERROR FALSE

// Longest object identifier SNMP carries, and the GetLastError codes of the
// utility calls.
#define SNMP_MAX_OID_LEN 128
#define SNMP_MEM_ALLOC_ERROR 1
#define SNMP_BERAPI_OVERFLOW 12

// Entry points of an extension agent, as the host resolves them by name.
typedef BOOL(SNMP_FUNC_TYPE* PFNSNMPEXTENSIONINIT)(DWORD dwUpTimeReference, HANDLE* phSubagentTrapEvent,
                                                   AsnObjectIdentifier* pFirstSupportedRegion);
typedef BOOL(SNMP_FUNC_TYPE* PFNSNMPEXTENSIONINITEX)(AsnObjectIdentifier* pNextSupportedRegion);
typedef BOOL(SNMP_FUNC_TYPE* PFNSNMPEXTENSIONQUERYEX)(UINT nRequestType, UINT nTransactionId,
                                                      SnmpVarBindList* pVarBindList,
                                                      AsnOctetString* pContextInfo,
                                                      AsnInteger32* pErrorStatus, AsnInteger32* pErrorIndex);
typedef BOOL(SNMP_FUNC_TYPE* PFNSNMPEXTENSIONTRAP)(AsnObjectIdentifier* pEnterpriseOid,
                                                   AsnInteger32* pGenericTrapId,
                                                   AsnInteger32* pSpecificTrapId, AsnTimeticks* pTimeStamp,
                                                   SnmpVarBindList* pVarBindList);
typedef VOID(SNMP_FUNC_TYPE* PFNSNMPEXTENSIONCLOSE)(void);

HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidCpy(AsnObjectIdentifier* pOidDst,
                                                    AsnObjectIdentifier* pOidSrc);
HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidAppend(AsnObjectIdentifier* pOidDst,
                                                       AsnObjectIdentifier* pOidSrc);
HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidNCmp(AsnObjectIdentifier* pOid1, AsnObjectIdentifier* pOid2,
                                                     UINT nSubIds);
HM_COMPAT_API SNMPAPI SNMP_FUNC_TYPE SnmpUtilOidCmp(AsnObjectIdentifier* pOid1, AsnObjectIdentifier* pOid2);
HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilOidFree(AsnObjectIdentifier* pOid);
HM_COMPAT_API LPSTR SNMP_FUNC_TYPE SnmpUtilOidToA(AsnObjectIdentifier* Oid);
HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilAsnAnyFree(AsnAny* pAny);
HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilVarBindFree(SnmpVarBind* pVb);
HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilVarBindListFree(SnmpVarBindList* pVbl);
HM_COMPAT_API LPVOID SNMP_FUNC_TYPE SnmpUtilMemAlloc(UINT nBytes);
HM_COMPAT_API LPVOID SNMP_FUNC_TYPE SnmpUtilMemReAlloc(LPVOID pMem, UINT nBytes);
HM_COMPAT_API VOID SNMP_FUNC_TYPE SnmpUtilMemFree(LPVOID pMem);
HM_COMPAT_API DWORD SNMP_FUNC_TYPE SnmpSvcGetUptime(void);

#ifdef __cplusplus
}
#endif

#endif
