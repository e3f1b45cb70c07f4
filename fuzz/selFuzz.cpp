// SEL RAW decoding, routing and trap assembly, on a started agent with traps on.
// Input: the RAW text on the first line, the entry's description on the second,
// then lines the fake service answers the decoders' SDR and name queries (and one
// poll of the SEL) with. Each routed event goes through the event interface, its
// clone and the event queue; the traps are then collected with SnmpExtensionTrap,
// as the SNMP service collects them, and freed.
#include <snmp.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "agent/snmpExtension.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "fuzz/fuzzAgent.h"
#include "fuzz/fuzzSupport.h"
#include "kelvarn/Responder.h"

namespace {

void noSleep(DWORD) {}

// More traps than one input can queue: reaching it means the queue never empties.
constexpr int kMaxTraps = 4096;

void collectTraps() {
    for (int traps = 0;; ++traps) {
        if (traps == kMaxTraps) {
            std::abort();
        }
        AsnObjectIdentifier enterprise{0, nullptr};
        AsnInteger32 generic = 0;
        AsnInteger32 specific = 0;
        AsnTimeticks stamp = 0;
        SnmpVarBindList list{nullptr, 0};
        if (!SnmpExtensionTrap(&enterprise, &generic, &specific, &stamp, &list)) {
            return; // nothing handed over
        }
        SnmpUtilVarBindListFree(&list);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool started = [] {
        setHandOffRetrySleep(noSleep);
        return hmfuzz::startAgent(true);
    }();
    if (!started) {
        std::abort();
    }

    hmfuzz::Input input(data, size);
    const std::string raw = input.line();
    const std::string description = input.line();
    kelvarn::setProcessResponder(std::make_shared<hmfuzz::TextResponder>(input.lines()));

    SelRecord record;
    std::memset(&record, 0, sizeof record);
    std::strncpy(record.stDescription, description.c_str(), sizeof record.stDescription - 1);
    int32_t lastRecordId = static_cast<int32_t>(size % 3 == 0 ? kSelLastEntry : size);
    decodeSelEntry(raw.c_str(), record, lastRecordId);
    routeEvent(&record);
    collectTraps();

    resetSelPoller();
    CheckForNewSELEntry();
    collectTraps();

    kelvarn::setProcessResponder(hmfuzz::agentResponder());
    return 0;
}
