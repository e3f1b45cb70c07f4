// SnmpExtensionQueryEx with arbitrary request types and binding lists, on the demo
// platform with a quiet configuration and traps off. The input is read as:
//   request type selector, binding count, then per binding: OID length, a prefix
//   choice, the arcs, a value type selector and the value.
#include <snmp.h>

#include <cstdlib>
#include <iterator>

#include "agent/snmpExtension.h"
#include "fuzz/fuzzSupport.h"

namespace {

const UINT kPrefix[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5};
const UINT kRequestTypes[] = {SNMP_EXTENSION_GET,        SNMP_EXTENSION_GET_NEXT,   SNMP_EXTENSION_GET_BULK,
                              SNMP_EXTENSION_SET_TEST,   SNMP_EXTENSION_SET_COMMIT, SNMP_EXTENSION_SET_UNDO,
                              SNMP_EXTENSION_SET_CLEANUP};
// An arc: a small number (columns and rows), a group number of the MIB, or, for
// the last bytes, any 32-bit value.
const UINT kGroupArcs[] = {100, 200, 300, 400, 500, 600, 700, 10, 20, 30, 40, 0xFFFFFFFFu};

UINT nextArc(hmfuzz::Input& input) {
    const uint8_t b = input.byte();
    return b < 0xA0 ? b % 32 : b < 0xF0 ? kGroupArcs[b % std::size(kGroupArcs)] : input.u32();
}

// `length` items from SnmpUtilMemAlloc (null for none), item i filled with next(i).
template <class T, class F> T* allocFilled(UINT length, F next) {
    T* items = length == 0 ? nullptr : static_cast<T*>(SnmpUtilMemAlloc(length * sizeof(T)));
    for (UINT i = 0; i < length; ++i)
        items[i] = static_cast<T>(next(i));
    return items;
}

void fillValue(hmfuzz::Input& input, AsnAny& value) {
    auto byte = [&input](UINT) { return input.byte(); };
    switch (input.byte() % 6) {
    case 0:
        value.asnType = ASN_NULL;
        break;
    case 1:
        value.asnType = ASN_INTEGER;
        value.asnValue.number = static_cast<AsnInteger32>(input.u32());
        break;
    case 2:
    case 3:
        value.asnType = input.byte() % 2 == 0 ? ASN_OCTETSTRING : ASN_OPAQUE;
        value.asnValue.string.length = input.byte() % 80;
        value.asnValue.string.stream = allocFilled<BYTE>(value.asnValue.string.length, byte);
        value.asnValue.string.dynamic = TRUE;
        break;
    case 4:
        value.asnType = input.byte() % 2 == 0 ? ASN_COUNTER32 : ASN_TIMETICKS;
        value.asnValue.counter = input.u32();
        break;
    default:
        value.asnType = ASN_OBJECTIDENTIFIER;
        value.asnValue.object.idLength = input.byte() % 8;
        value.asnValue.object.ids = allocFilled<UINT>(value.asnValue.object.idLength, byte);
    }
}

} // namespace

HM_FUZZ_TARGET(input) {
    [[maybe_unused]] static const bool started = (hmfuzz::startAgent(false), true);
    const uint8_t selector = input.byte();
    const UINT requestType =
        selector < 0xF8 ? kRequestTypes[selector % std::size(kRequestTypes)] : input.u32();
    const UINT count = input.byte() % 17; // at most 16 bindings
    SnmpVarBindList list{allocFilled<SnmpVarBind>(count, [](UINT) { return SnmpVarBind{}; }), count};
    for (UINT n = 0; n < count; ++n) {
        const uint8_t shape = input.byte();
        const UINT tail = input.byte() % 40;
        // Half the names start inside the agent's MIB, some at a cut of its prefix.
        const UINT prefix = shape % 2 == 0 ? std::size(kPrefix) : (shape / 2) % (std::size(kPrefix) + 1);
        list.list[n].name.idLength = prefix + tail;
        list.list[n].name.ids = allocFilled<UINT>(
            prefix + tail, [&](UINT i) { return i < prefix ? kPrefix[i] : nextArc(input); });
        fillValue(input, list.list[n].value);
    }
    AsnOctetString context{nullptr, 0, FALSE};
    AsnInteger32 errorStatus = 0; // zero, as the SNMP service hands them over
    AsnInteger32 errorIndex = 0;
    SnmpExtensionQueryEx(requestType, input.u32(), &list, selector & 1 ? &context : nullptr, &errorStatus,
                         &errorIndex);
    if (errorIndex < 0 || static_cast<UINT>(errorIndex) > count)
        std::abort(); // the error index names a binding of the list, or none
    SnmpUtilVarBindListFree(&list);
}
