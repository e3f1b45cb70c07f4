// SEL RAW decoding, routing and trap assembly, on a started agent with traps on.
// Input: the RAW text on the first line, the entry's description on the second,
// then lines the fake service answers the decoders' SDR and name queries (and one
// poll of the SEL) with. Each routed event goes through the event interface, its
// clone and the event queue; the traps are then collected with SnmpExtensionTrap,
// as the SNMP service collects them, and freed.
#include <snmp.h>

#include <cstdlib>
#include <cstring>

#include "agent/snmpExtension.h"
#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "fuzz/fuzzSupport.h"

namespace {

void collectTraps() {
    // More traps than one input can queue: reaching the limit means the queue never empties.
    for (int traps = 0; traps < 4096; ++traps) {
        AsnObjectIdentifier enterprise{0, nullptr};
        AsnInteger32 generic = 0, specific = 0;
        AsnTimeticks stamp = 0;
        SnmpVarBindList list{nullptr, 0};
        if (!SnmpExtensionTrap(&enterprise, &generic, &specific, &stamp, &list))
            return; // nothing handed over
        SnmpUtilVarBindListFree(&list);
    }
    std::abort();
}

} // namespace

HM_FUZZ_TARGET(input) {
    [[maybe_unused]] static const bool started =
        (setHandOffRetrySleep([](DWORD) {}), hmfuzz::startAgent(true), true);
    const std::string raw = input.line();
    const std::string description = input.line();
    kelvarn::setProcessResponder(std::make_shared<hmfuzz::TextResponder>(input.lines()));
    SelRecord record{};
    std::strncpy(record.stDescription, description.c_str(), sizeof record.stDescription - 1);
    int32_t lastId = static_cast<int32_t>(input.size() % 3 == 0 ? kSelLastEntry : input.size());
    decodeSelEntry(raw.c_str(), record, lastId);
    routeEvent(&record);
    collectTraps();
    resetSelPoller();
    CheckForNewSELEntry();
    collectTraps();
    kelvarn::setProcessResponder(hmfuzz::agentResponder());
}
