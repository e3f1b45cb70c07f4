// The agent's life with the SNMP service: start-up and region hand-out, the trap
// event and its signalling, trap production, and shutdown.
#include "agent/snmpExtension.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mgmtapi.h>

#include "agent/agentApi.h"
#include "agent/agentState.h"
#include "agent/mibChain.h"
#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "events/eventSink.h"
#include "events/selPoller.h"

namespace {

// The trap event, the flags and the poller handle are shared with the poller thread.
std::atomic<HANDLE> gTrapEvent{nullptr};
std::atomic<unsigned char> gInitDone{0};
std::atomic<unsigned char> gTrapsWaiting{0};
std::atomic<HANDLE> gPollerThread{nullptr};

// Touched by the service's thread only.
int32_t gRegionCounter = 1;
// SnmpExtensionInit succeeded. The Windows SNMP service never calls SnmpExtensionInitEx
// after a failed SnmpExtensionInit (it does not load the agent); net-snmp's winExtDLL
// does: after a failed start no further region is handed out and no poller starts.
bool gStarted = false;
// The enterprise OID of the last trap handed out. The Windows SNMP service never frees
// the enterprise OID SnmpExtensionTrap returns (Microsoft's SnmpExtensionTrap reference:
// "The SNMP service does not free the memory for this variable"), nor does net-snmp's
// winExtDLL: the agent keeps it until the next SnmpExtensionTrap call or the close.
AsnObjectIdentifier gTrapEnterprise{0, nullptr};
uint32_t gQueryCounter = 0;
unsigned char gHealthPoll = 0;
DWORD gTimeZeroReference = 0;

constexpr int32_t kRegionCount = MIB_SUBTREE_COUNT;
constexpr uint32_t kQueriesPerTrapPoll = 10;

void releaseTrapEnterprise() {
    if (gTrapEnterprise.ids != nullptr) {
        SnmpUtilOidFree(&gTrapEnterprise);
    }
    gTrapEnterprise = AsnObjectIdentifier{0, nullptr};
}

// Forgets everything a previous Init built, so that Init can run again in one process.
void resetModuleState() {
    mibReleaseChain();
    releaseTrapEnterprise();
    if (HANDLE event = gTrapEvent.exchange(nullptr)) {
        CloseHandle(event);
    }
    if (HANDLE thread = gPollerThread.exchange(nullptr)) {
        CloseHandle(thread); // the thread itself runs on
    }
    gStarted = false;
    gInitDone = 0;
    gTrapsWaiting = 0;
    gRegionCounter = 1;
    gQueryCounter = 0;
    gHealthPoll = 0;
}

void failStartup() {
    mibReleaseChain();
    releaseTables();
    closeDebugLog();
}

void traceTrap(AsnObjectIdentifier* pEnterpriseOid, const SnmpVarBindList* pVarBindList) {
    debugLog("Trap enterprise OID:%s\n", SnmpUtilOidToA(pEnterpriseOid));
    debugLog("There are #%d VarBinds in list\n", static_cast<int>(pVarBindList->len));
    for (UINT i = 0; i < pVarBindList->len && pVarBindList->list != nullptr; ++i) {
        SnmpVarBind* pVarBind = &pVarBindList->list[i];
        debugLog("   VarBind %d:%s  value type:%d\n", static_cast<int>(i), SnmpUtilOidToA(&pVarBind->name),
                 static_cast<int>(pVarBind->value.asnType));
    }
}

// The event handler hands out the enterprise and the specific trap as one OID: the
// last arc is the specific trap, the arcs before it are the enterprise. False when
// the enterprise could not be rebuilt.
bool splitEventOid(AsnObjectIdentifier* pEnterpriseOid, AsnInteger32* pSpecificTrapId) {
    const char* rendered = SnmpUtilOidToA(pEnterpriseOid);
    const size_t length = strlen(rendered);
    // Room for a leading "." and the NUL.
    char* text = static_cast<char*>(SnmpUtilMemAlloc(static_cast<UINT>(length + 2)));
    if (text == nullptr) {
        return false;
    }
    text[0] = '.';
    memcpy(text + 1, rendered, length + 1);
    char* dot = strrchr(text + 1, '.');
    if (dot == nullptr) {
        SnmpUtilMemFree(text);
        return true;
    }
    *pSpecificTrapId = static_cast<AsnInteger32>(strtoul(dot + 1, nullptr, 10));
    *dot = '\0';
    AsnObjectIdentifier enterprise{0, nullptr};
    const BOOL converted = SnmpMgrStrToOid(text, &enterprise);
    SnmpUtilMemFree(text);
    if (!converted) {
        SnmpUtilOidFree(&enterprise);
        return false;
    }
    SnmpUtilOidFree(pEnterpriseOid);
    *pEnterpriseOid = enterprise;
    return true;
}

} // namespace

void agentCountQuery() {
    if (++gQueryCounter < kQueriesPerTrapPoll) {
        return;
    }
    gQueryCounter = 0;
    gHealthPoll = 1;
    if (HANDLE event = gTrapEvent.load()) {
        SetEvent(event);
    }
}

HANDLE agentTrapEvent() {
    return gTrapEvent.load();
}
bool agentTrapsWaiting() {
    return gTrapsWaiting.load() != 0;
}
bool agentHealthPollRequested() {
    return gHealthPoll != 0;
}
int agentRegionCounter() {
    return gRegionCounter;
}

unsigned char IsInitDone() {
    return gInitDone.load();
}

void GetOidSubTreeBaseOid(int index, AsnObjectIdentifier* oid) {
    if (oid == nullptr || index < 0 || index >= MIB_SUBTREE_COUNT) {
        return;
    }
    SnmpUtilOidCpy(oid, &OidSubTrees[index].baseOid);
}

extern "C" HM_EXPORT int AssertTrap() {
    debugLog("AssertTrap is called\n");
    if (!gInitDone.load()) {
        gTrapsWaiting = 1;
        return 1;
    }
    if (HANDLE event = gTrapEvent.load()) {
        SetEvent(event);
    }
    return 1;
}

extern "C" HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionInit(DWORD dwUpTimeReference,
                                                           HANDLE* phSubagentTrapEvent,
                                                           AsnObjectIdentifier* pFirstSupportedRegion) {
    if (phSubagentTrapEvent == nullptr || pFirstSupportedRegion == nullptr) {
        return FALSE;
    }
    resetModuleState();
    setEventSink({&addEvent, &AssertTrap, &IsInitDone});
    // The region shares its arcs with the subtree table: the service copies it and never
    // frees it.
    *pFirstSupportedRegion = OidSubTrees[0].baseOid;

    debugLog("\n Inside snmpExtensionInit Function: \n");
    const uint32_t status = initHMClient();
    if (status != CLIENT_SUCCESS) {
        debugLog("Error initializing HM Client: %d\n", static_cast<int>(status));
        failStartup();
        return FALSE;
    }
    gTimeZeroReference = dwUpTimeReference;

    if (!mibBuildChain()) {
        failStartup();
        return FALSE;
    }

    debugLog("About to CreateEvent for traps\n");
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (event == nullptr) {
        debugLog("Error in CreateEvent\n");
        failStartup();
        return FALSE;
    }
    gTrapEvent = event;
    *phSubagentTrapEvent = event;
    gStarted = true;
    debugLog("Leaving 1 SNMPExtensionInit\n");
    return TRUE;
}

extern "C" HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionInitEx(AsnObjectIdentifier* pNextSupportedRegion) {
    if (pNextSupportedRegion == nullptr || !gStarted || gInitDone.load()) {
        return FALSE;
    }
    if (gRegionCounter != kRegionCount) {
        // Shared with the subtree table, like the first region.
        *pNextSupportedRegion = OidSubTrees[gRegionCounter].baseOid;
        ++gRegionCounter;
        debugLog("pNextSupportedRegion is %s\n", SnmpUtilOidToA(pNextSupportedRegion));
        return TRUE;
    }

    gInitDone = 1;
    debugLog("\n\n InitDone \n\n");
    HANDLE thread = CreateThread(nullptr, 0, PollForEvent, nullptr, 0, nullptr);
    if (thread == nullptr) {
        // The agent does not run without its event poller.
        debugLog("Error creating the event poller thread: ending the process\n");
        closeDebugLog();
        ExitProcess(AGENT_EXIT_NO_POLLER);
    }
    gPollerThread = thread;

    if (gTrapsWaiting.load()) {
        debugLog("Traps are waiting...so call AssertTrap\n");
        gTrapsWaiting = 0;
        AssertTrap();
    }
    return FALSE;
}

extern "C" HM_EXPORT BOOL SNMP_FUNC_TYPE SnmpExtensionTrap(AsnObjectIdentifier* pEnterpriseOid,
                                                           AsnInteger32* pGenericTrapId,
                                                           AsnInteger32* pSpecificTrapId,
                                                           AsnTimeticks* pTimeStamp,
                                                           SnmpVarBindList* pVarBindList) {
    if (pEnterpriseOid == nullptr || pGenericTrapId == nullptr || pSpecificTrapId == nullptr ||
        pTimeStamp == nullptr || pVarBindList == nullptr) {
        return FALSE;
    }
    // The service has copied the previous trap's enterprise OID by now.
    releaseTrapEnterprise();
    *pGenericTrapId = SNMP_GENERICTRAP_ENTERSPECIFIC;
    *pTimeStamp = SnmpSvcGetUptime();

    int32_t trapToSend = 0;
    const uint32_t status = processEvent(pEnterpriseOid, pSpecificTrapId, pVarBindList, &trapToSend);
    if (status != CLIENT_SUCCESS || trapToSend != 1) {
        return FALSE;
    }

    traceTrap(pEnterpriseOid, pVarBindList);
    if (!splitEventOid(pEnterpriseOid, pSpecificTrapId)) {
        // Nothing is sent: release what the event handler built.
        SnmpUtilOidFree(pEnterpriseOid);
        SnmpUtilVarBindListFree(pVarBindList);
        return FALSE;
    }
    gTrapEnterprise = *pEnterpriseOid; // the bindings are the service's to free
    return TRUE;
}

extern "C" HM_EXPORT VOID SNMP_FUNC_TYPE SnmpExtensionClose(void) {
    debugLog("SNMP Extension Agent closing\n");
    // The poller must not route events into the tables and the event queue
    // released here.
    parkSelPoller();
    releaseTables();
    closeDebugLog();
    resetModuleState();
}

#ifdef _WIN32
// The library entry does no work; its trace is never open this early.
BOOL WINAPI DllMain(HINSTANCE /*hinstDLL*/, DWORD fdwReason, LPVOID /*lpvReserved*/) {
    switch (fdwReason) {
    case DLL_PROCESS_ATTACH:
        debugLog("dll_process_attach");
        [[fallthrough]];
    case DLL_PROCESS_DETACH:
        debugLog("dll_process_detach");
        [[fallthrough]];
    case DLL_THREAD_ATTACH:
        debugLog("dll_process_thread_attach");
        [[fallthrough]];
    case DLL_THREAD_DETACH:
        debugLog("dll_thread_detach");
        [[fallthrough]];
    default:
        debugLog("Leaving dllmain");
        break;
    }
    return TRUE;
}
#endif
