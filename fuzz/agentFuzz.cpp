// SnmpExtensionQueryEx with arbitrary request types and binding lists, on the demo
// platform with a quiet configuration and traps off. The input is read as:
//   request type selector, binding count, then per binding: OID length, a prefix
//   choice, the arcs, a value type selector and the value.
#include <snmp.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/snmpExtension.h"
#include "fuzz/fuzzAgent.h"
#include "fuzz/fuzzSupport.h"

namespace {

const UINT kPrefix[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5};
constexpr UINT kPrefixLength = sizeof kPrefix / sizeof kPrefix[0];
constexpr UINT kMaxBindings = 16;
constexpr UINT kMaxArcs = 40;

const UINT kRequestTypes[] = {SNMP_EXTENSION_GET,        SNMP_EXTENSION_GET_NEXT,   SNMP_EXTENSION_GET_BULK,
                              SNMP_EXTENSION_SET_TEST,   SNMP_EXTENSION_SET_COMMIT, SNMP_EXTENSION_SET_UNDO,
                              SNMP_EXTENSION_SET_CLEANUP};
constexpr size_t kRequestTypeCount = sizeof kRequestTypes / sizeof kRequestTypes[0];

void fillValue(hmfuzz::Input& input, AsnAny& value) {
    switch (input.byte() % 6) {
    case 0:
        value.asnType = ASN_NULL;
        break;
    case 1:
        value.asnType = ASN_INTEGER;
        value.asnValue.number = static_cast<AsnInteger32>(input.u32());
        break;
    case 2:
    case 3: {
        value.asnType = input.byte() % 2 == 0 ? ASN_OCTETSTRING : ASN_OPAQUE;
        const UINT length = input.byte() % 80;
        value.asnValue.string.stream = length == 0 ? nullptr : static_cast<BYTE*>(SnmpUtilMemAlloc(length));
        for (UINT i = 0; i < length; ++i) {
            value.asnValue.string.stream[i] = input.byte();
        }
        value.asnValue.string.length = length;
        value.asnValue.string.dynamic = TRUE;
        break;
    }
    case 4:
        value.asnType = input.byte() % 2 == 0 ? ASN_COUNTER32 : ASN_TIMETICKS;
        value.asnValue.counter = input.u32();
        break;
    default: {
        value.asnType = ASN_OBJECTIDENTIFIER;
        const UINT length = input.byte() % 8;
        value.asnValue.object.idLength = length;
        value.asnValue.object.ids =
            length == 0 ? nullptr : static_cast<UINT*>(SnmpUtilMemAlloc(length * sizeof(UINT)));
        for (UINT i = 0; i < length; ++i) {
            value.asnValue.object.ids[i] = input.byte();
        }
        break;
    }
    }
}

// An arc: a small number (columns and rows), a group number of the MIB, or, for
// the last bytes, any 32-bit value.
const UINT kGroupArcs[] = {100, 200, 300, 400, 500, 600, 700, 10, 20, 30, 40, 0xFFFFFFFFu};
constexpr size_t kGroupArcCount = sizeof kGroupArcs / sizeof kGroupArcs[0];

UINT nextArc(hmfuzz::Input& input) {
    const uint8_t b = input.byte();
    if (b < 0xA0) {
        return b % 32;
    }
    return b < 0xF0 ? kGroupArcs[b % kGroupArcCount] : input.u32();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool started = hmfuzz::startAgent(false);
    if (!started) {
        std::abort();
    }
    hmfuzz::Input input(data, size);
    const uint8_t selector = input.byte();
    const UINT requestType = selector < 0xF8 ? kRequestTypes[selector % kRequestTypeCount] : input.u32();
    const UINT count = input.byte() % (kMaxBindings + 1);

    SnmpVarBindList list{nullptr, 0};
    if (count != 0) {
        list.list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(count * sizeof(SnmpVarBind)));
        std::memset(list.list, 0, count * sizeof(SnmpVarBind));
        list.len = count;
    }
    for (UINT n = 0; n < count; ++n) {
        SnmpVarBind& binding = list.list[n];
        const uint8_t shape = input.byte();
        const UINT tail = input.byte() % kMaxArcs;
        // Half the names start inside the agent's MIB, some at a cut of its prefix.
        const UINT prefix = shape % 2 == 0 ? kPrefixLength : (shape / 2) % (kPrefixLength + 1);
        const UINT length = prefix + tail;
        binding.name.idLength = length;
        binding.name.ids =
            length == 0 ? nullptr : static_cast<UINT*>(SnmpUtilMemAlloc(length * sizeof(UINT)));
        for (UINT i = 0; i < length; ++i) {
            binding.name.ids[i] = i < prefix ? kPrefix[i] : nextArc(input);
        }
        fillValue(input, binding.value);
    }

    AsnOctetString context{nullptr, 0, FALSE};
    // Zero, as the SNMP service hands them over.
    AsnInteger32 errorStatus = 0;
    AsnInteger32 errorIndex = 0;
    SnmpExtensionQueryEx(requestType, input.u32(), &list, selector & 1 ? &context : nullptr, &errorStatus,
                         &errorIndex);
    if (errorIndex < 0 || static_cast<UINT>(errorIndex) > count) {
        std::abort(); // the error index names a binding of the list, or none
    }
    SnmpUtilVarBindListFree(&list);
    return 0;
}
