// The agent's private MIB under 1.3.6.1.4.1.64999.2.10.3.5: fourteen subtrees and
// 156 variables, one line per variable, in OID order. Attribute codes run from 1 to
// 156 in the same order; the entity code of a variable is its subtree index plus one.
#include "agent/mibTypes.h"

#include "agent/mibHandlers.h"

MIB_VAR_TYPE hmSubagentMib[MIB_ROW_COUNT];
int32_t gMibIntValue = 0;
char gMibEmptyText[1] = {'\0'};

namespace {

// Relative OIDs: n.0 for scalar n, 1.c for table column c.
UINT gScalarArcs[16][2] = {{0, 0}, {1, 0}, {2, 0},  {3, 0},  {4, 0},  {5, 0},  {6, 0},  {7, 0},
                           {8, 0}, {9, 0}, {10, 0}, {11, 0}, {12, 0}, {13, 0}, {14, 0}, {15, 0}};
UINT gColumnArcs[22][2] = {{1, 0},  {1, 1},  {1, 2},  {1, 3},  {1, 4},  {1, 5},  {1, 6},  {1, 7},
                           {1, 8},  {1, 9},  {1, 10}, {1, 11}, {1, 12}, {1, 13}, {1, 14}, {1, 15},
                           {1, 16}, {1, 17}, {1, 18}, {1, 19}, {1, 20}, {1, 21}};

constexpr AsnObjectIdentifier sc(UINT n) {
    return AsnObjectIdentifier{2, gScalarArcs[n]};
}
constexpr AsnObjectIdentifier col(UINT c) {
    return AsnObjectIdentifier{2, gColumnArcs[c]};
}

// Value type, access, data source and handler of a row.
enum RowType { I, S };
enum RowAccess : uint16_t { r = MIB_ACCESS_READ, w = MIB_ACCESS_READWRITE };
enum RowSource : uint32_t { C = 0, L = 1 }; // cached information / live data
enum RowHandler { VALUE, INDEX };

constexpr MIB_VAR_TYPE row(int32_t subtree, AsnObjectIdentifier oid, uint32_t attribute, RowType type,
                           RowAccess access, RowSource source, RowHandler handler = VALUE,
                           MIB_VAR_TYPE* next = nullptr) {
    return MIB_VAR_TYPE{attribute,
                        static_cast<uint32_t>(subtree + 1),
                        subtree,
                        static_cast<BYTE>(type == S ? ASN_OCTETSTRING : ASN_INTEGER),
                        access,
                        type == S ? static_cast<void*>(gMibEmptyText) : static_cast<void*>(&gMibIntValue),
                        handler == INDEX ? ProcessIndexFunc
                        : type == S      ? ProcessStringFunc
                                         : ProcessIntegerFunc,
                        nullptr,
                        oid,
                        source,
                        next};
}

// The last row's link points back at the first row: that is how the chain builder
// recognises the end of the table.
constexpr MIB_VAR_TYPE* LAST = &hmSubagentMib[0];

constexpr MIB_VAR_TYPE kMibTable[MIB_ROW_COUNT] = {
    // subtree 0: systemManagement
    row(0, sc(1), 1, I, r, C),
    row(0, sc(2), 2, S, r, C),
    row(0, sc(3), 3, I, r, C),
    row(0, sc(4), 4, I, r, C),
    row(0, sc(5), 5, I, r, C),
    row(0, sc(6), 6, S, r, C),
    row(0, sc(7), 7, S, r, C),
    row(0, sc(8), 8, S, r, C),
    row(0, sc(9), 9, S, r, C),
    row(0, sc(10), 10, S, r, C),
    // subtree 1: chassisInfo
    row(1, sc(1), 11, I, r, L),
    row(1, sc(2), 12, I, r, L),
    row(1, sc(3), 13, I, r, L),
    row(1, sc(4), 14, I, r, L),
    row(1, sc(5), 15, I, r, L),
    row(1, sc(6), 16, I, r, L),
    row(1, sc(7), 17, I, r, C),
    row(1, sc(8), 18, I, r, C),
    row(1, sc(9), 19, I, r, C),
    row(1, sc(10), 20, I, r, C),
    row(1, sc(11), 21, I, r, C),
    row(1, sc(12), 22, S, r, C),
    row(1, sc(13), 23, S, r, C),
    row(1, sc(14), 24, S, r, C),
    row(1, sc(15), 25, S, r, C),
    // subtree 2: processorDevice
    row(2, col(1), 26, I, r, L, INDEX),
    row(2, col(2), 27, I, r, C),
    row(2, col(3), 28, S, r, C),
    row(2, col(4), 29, S, r, C),
    row(2, col(5), 30, I, r, C),
    row(2, col(6), 31, I, r, C),
    row(2, col(7), 32, S, r, C),
    row(2, col(8), 33, S, r, C),
    row(2, col(9), 34, I, r, C),
    row(2, col(10), 35, S, r, C),
    row(2, col(11), 36, I, r, C),
    row(2, col(12), 37, I, r, C),
    row(2, col(13), 38, I, r, C),
    row(2, col(14), 39, I, r, C),
    row(2, col(15), 40, I, r, C),
    row(2, col(16), 41, S, r, C),
    row(2, col(17), 42, S, r, C),
    // subtree 3: powerUnit
    row(3, col(1), 43, I, r, L, INDEX),
    row(3, col(2), 44, I, r, C),
    row(3, col(3), 45, S, r, C),
    row(3, col(4), 46, S, r, L),
    row(3, col(5), 47, I, r, L),
    row(3, col(6), 48, I, r, L),
    // subtree 4: powerSupply
    row(4, col(1), 49, I, r, L, INDEX),
    row(4, col(2), 50, I, r, C),
    row(4, col(3), 51, S, r, C),
    row(4, col(4), 52, S, r, L),
    row(4, col(5), 53, I, r, L),
    // subtree 5: voltageProbe
    row(5, col(1), 54, I, r, L, INDEX),
    row(5, col(2), 55, I, r, C),
    row(5, col(3), 56, S, r, C),
    row(5, col(4), 57, S, r, L),
    row(5, col(5), 58, I, r, L),
    row(5, col(6), 59, I, r, L),
    row(5, col(7), 60, I, w, L),
    row(5, col(8), 61, I, w, L),
    row(5, col(9), 62, I, w, L),
    row(5, col(10), 63, I, w, L),
    row(5, col(11), 64, I, w, L),
    row(5, col(12), 65, I, w, L),
    row(5, col(13), 66, I, r, C),
    row(5, col(14), 67, I, r, C),
    row(5, col(15), 68, I, r, C),
    // subtree 6: discreteVoltage
    row(6, col(1), 69, I, r, L, INDEX),
    row(6, col(2), 70, I, r, C),
    row(6, col(3), 71, S, r, C),
    row(6, col(4), 72, S, r, L),
    row(6, col(5), 73, I, r, L),
    row(6, col(6), 74, I, r, L),
    // subtree 7: MemoryArray
    row(7, col(1), 75, I, r, L, INDEX),
    row(7, col(2), 76, I, r, C),
    row(7, col(3), 77, S, r, C),
    row(7, col(4), 78, S, r, C),
    row(7, col(5), 79, I, r, C),
    row(7, col(6), 80, I, r, C),
    row(7, col(7), 81, I, r, C),
    row(7, col(8), 82, I, r, C),
    row(7, col(9), 83, I, r, C),
    row(7, col(10), 84, I, r, C),
    row(7, col(11), 85, I, r, C),
    row(7, col(12), 86, S, r, C),
    row(7, col(13), 87, I, r, C),
    // subtree 8: MemoryDevice
    row(8, col(1), 88, I, r, L, INDEX),
    row(8, col(2), 89, I, r, C),
    row(8, col(3), 90, S, r, C),
    row(8, col(4), 91, S, r, C),
    row(8, col(5), 92, I, r, C),
    row(8, col(6), 93, S, r, C),
    row(8, col(7), 94, I, r, C),
    row(8, col(8), 95, I, r, C),
    row(8, col(9), 96, I, r, C),
    row(8, col(10), 97, I, r, C),
    row(8, col(11), 98, I, r, C),
    row(8, col(12), 99, I, r, C),
    row(8, col(13), 100, S, r, C),
    row(8, col(14), 101, S, r, C),
    row(8, col(15), 102, I, r, C),
    row(8, col(16), 103, I, r, C),
    row(8, col(17), 104, I, r, C),
    row(8, col(18), 105, S, r, C),
    row(8, col(19), 106, S, r, C),
    row(8, col(20), 107, S, r, C),
    row(8, col(21), 108, S, r, C),
    // subtree 9: coolingUnit
    row(9, col(1), 109, I, r, L, INDEX),
    row(9, col(2), 110, I, r, C),
    row(9, col(3), 111, S, r, C),
    row(9, col(4), 112, S, r, L),
    row(9, col(5), 113, I, r, L),
    row(9, col(6), 114, I, r, L),
    row(9, col(7), 115, S, r, C),
    // subtree 10: coolingDevice
    row(10, col(1), 116, I, r, L, INDEX),
    row(10, col(2), 117, I, r, C),
    row(10, col(3), 118, S, r, C),
    row(10, col(4), 119, S, r, L),
    row(10, col(5), 120, I, r, L),
    row(10, col(6), 121, I, r, L),
    row(10, col(7), 122, I, w, L),
    row(10, col(8), 123, I, w, L),
    row(10, col(9), 124, I, w, L),
    row(10, col(10), 125, I, w, L),
    row(10, col(11), 126, I, w, L),
    row(10, col(12), 127, I, w, L),
    row(10, col(13), 128, I, r, C),
    row(10, col(14), 129, I, r, C),
    row(10, col(15), 130, I, r, C),
    // subtree 11: discreteCooling
    row(11, col(1), 131, I, r, L, INDEX),
    row(11, col(2), 132, I, r, C),
    row(11, col(3), 133, S, r, C),
    row(11, col(4), 134, S, r, L),
    row(11, col(5), 135, I, r, L),
    row(11, col(6), 136, I, r, L),
    // subtree 12: temperatureProbe
    row(12, col(1), 137, I, r, L, INDEX),
    row(12, col(2), 138, I, r, C),
    row(12, col(3), 139, S, r, C),
    row(12, col(4), 140, S, r, L),
    row(12, col(5), 141, I, r, L),
    row(12, col(6), 142, I, r, L),
    row(12, col(7), 143, I, w, L),
    row(12, col(8), 144, I, w, L),
    row(12, col(9), 145, I, w, L),
    row(12, col(10), 146, I, w, L),
    row(12, col(11), 147, I, w, L),
    row(12, col(12), 148, I, w, L),
    row(12, col(13), 149, I, r, C),
    row(12, col(14), 150, I, r, C),
    row(12, col(15), 151, I, r, C),
    // subtree 13: driveSlot
    row(13, col(1), 152, I, r, L, INDEX),
    row(13, col(2), 153, I, r, C),
    row(13, col(3), 154, S, r, C),
    row(13, col(4), 155, S, r, L),
    row(13, col(5), 156, I, r, L, VALUE, LAST),
};

// Attribute codes run 1..156 in table order, the entity is the subtree plus one,
// subtrees never go backwards, and only the threshold columns are writable.
constexpr bool tableIsConsistent() {
    for (int i = 0; i < MIB_ROW_COUNT; ++i) {
        const MIB_VAR_TYPE& v = kMibTable[i];
        if (v.HMAttribute != static_cast<uint32_t>(i + 1) ||
            v.HMEntity != static_cast<uint32_t>(v.SubTreeIndex + 1)) {
            return false;
        }
        if (v.SubTreeIndex < 0 || v.SubTreeIndex >= MIB_SUBTREE_COUNT) {
            return false;
        }
        if (i > 0 && v.SubTreeIndex < kMibTable[i - 1].SubTreeIndex) {
            return false;
        }
        const uint32_t a = v.HMAttribute;
        const bool threshold = (a >= 60 && a <= 65) || (a >= 122 && a <= 127) || (a >= 143 && a <= 148);
        if ((v.access == MIB_ACCESS_READWRITE) != threshold) {
            return false;
        }
        if ((v.pMibNext != nullptr) != (i == MIB_ROW_COUNT - 1)) {
            return false;
        }
    }
    return true;
}
static_assert(tableIsConsistent(), "MIB descriptor table out of order");

// Base OIDs of the subtrees.
UINT gBase0[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 100};
UINT gBase1[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 200};
UINT gBase2[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 300, 10};
UINT gBase3[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 400, 10};
UINT gBase4[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 400, 20};
UINT gBase5[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 400, 30};
UINT gBase6[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 400, 40};
UINT gBase7[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 500, 10};
UINT gBase8[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 500, 20};
UINT gBase9[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 600, 10};
UINT gBase10[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 600, 20};
UINT gBase11[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 600, 30};
UINT gBase12[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 600, 40};
UINT gBase13[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 700, 10};
UINT gEndOfView[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 6};

template <size_t N> constexpr AsnObjectIdentifier oid(UINT (&arcs)[N]) {
    return AsnObjectIdentifier{static_cast<UINT>(N), arcs};
}

} // namespace

OID_SUBTREE OidSubTrees[MIB_SUBTREE_COUNT] = {
    {oid(gBase0), 0, nullptr},  // systemManagement
    {oid(gBase1), 0, nullptr},  // chassisInfo
    {oid(gBase2), 1, nullptr},  // processorDevice
    {oid(gBase3), 1, nullptr},  // powerUnit
    {oid(gBase4), 1, nullptr},  // powerSupply
    {oid(gBase5), 1, nullptr},  // voltageProbe
    {oid(gBase6), 1, nullptr},  // discreteVoltage
    {oid(gBase7), 1, nullptr},  // MemoryArray
    {oid(gBase8), 1, nullptr},  // MemoryDevice
    {oid(gBase9), 1, nullptr},  // coolingUnit
    {oid(gBase10), 1, nullptr}, // coolingDevice
    {oid(gBase11), 1, nullptr}, // discreteCooling
    {oid(gBase12), 1, nullptr}, // temperatureProbe
    {oid(gBase13), 1, nullptr}, // driveSlot
};

AsnObjectIdentifier MibEndOfViewOid = oid(gEndOfView);

void mibLoadStaticTable() {
    for (int i = 0; i < MIB_ROW_COUNT; ++i) {
        hmSubagentMib[i] = kMibTable[i];
    }
    for (OID_SUBTREE& subtree : OidSubTrees) {
        subtree.pMibVar = nullptr;
    }
}
