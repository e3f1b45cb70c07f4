// Building and releasing the live variable chain.
#include "agent/mibChain.h"

#include <cstdint>
#include <new>
#include <unordered_map>
#include <vector>

#include "agent/mibHandlers.h"
#include "core/debugLog.h"
#include "core/hmClientApi.h"

namespace {

MIB_VAR_TYPE* gChainHead = nullptr;

// The live chain in chain order with each row's full OID, for binary search. The
// rows fall into runs whose full OIDs ascend; a row whose full OID does not fit
// stands alone.
struct ChainIndex {
    struct Row {
        MIB_VAR_TYPE* var;
        size_t first;  // offset of its full OID in `arcs`
        UINT length;   // arcs of its full OID
        bool fits;     // false: its full OID exceeds MIB_FULL_OID_MAX arcs
        size_t runEnd; // one past the last row of the ascending run holding this row
    };
    std::vector<Row> rows;
    std::vector<UINT> arcs;
    std::unordered_map<const MIB_VAR_TYPE*, size_t> position;

    AsnObjectIdentifier fullOid(size_t i) {
        return AsnObjectIdentifier{rows[i].length, arcs.data() + rows[i].first};
    }
    void clear() {
        rows = std::vector<Row>();
        arcs = std::vector<UINT>();
        position = std::unordered_map<const MIB_VAR_TYPE*, size_t>();
    }
};
ChainIndex gIndex;

// Instance rows live on the heap; the static table's rows do not.
bool isStaticRow(const MIB_VAR_TYPE* pMibVar) {
    const auto p = reinterpret_cast<uintptr_t>(pMibVar);
    const auto first = reinterpret_cast<uintptr_t>(&hmSubagentMib[0]);
    const auto end = reinterpret_cast<uintptr_t>(&hmSubagentMib[MIB_ROW_COUNT]);
    return p >= first && p < end;
}

OID_SUBTREE& subtreeOf(const MIB_VAR_TYPE* pMibVar) {
    return OidSubTrees[pMibVar->SubTreeIndex];
}

// Step 1: link the rows in storage order; the row whose link points back at the first
// row is the last one. Records each subtree's first row on the way.
void linkStaticTable() {
    MIB_VAR_TYPE* first = &hmSubagentMib[0];
    for (int i = 0; i < MIB_ROW_COUNT; ++i) {
        MIB_VAR_TYPE* pMibVar = &hmSubagentMib[i];
        OID_SUBTREE& subtree = subtreeOf(pMibVar);
        if (subtree.pMibVar == nullptr) {
            subtree.pMibVar = pMibVar;
        }
        if (pMibVar->pMibNext == first || i == MIB_ROW_COUNT - 1) {
            debugLog("Last pMibVar. Hence pMibVar->pMibNext is set to NULL\n");
            pMibVar->pMibNext = nullptr;
            break;
        }
        pMibVar->pMibNext = &hmSubagentMib[i + 1];
    }
}

// A copy of `column` for instance `k`, whose OID is the column's with k appended.
MIB_VAR_TYPE* newInstance(const MIB_VAR_TYPE* column, UINT k) {
    MIB_VAR_TYPE* instance = new (std::nothrow) MIB_VAR_TYPE(*column);
    if (instance == nullptr) {
        return nullptr;
    }
    instance->Oid = AsnObjectIdentifier{0, nullptr};
    instance->pMibNext = nullptr;
    AsnObjectIdentifier source = column->Oid;
    AsnObjectIdentifier arc{1, &k};
    if (!SnmpUtilOidCpy(&instance->Oid, &source) || !SnmpUtilOidAppend(&instance->Oid, &arc)) {
        SnmpUtilOidFree(&instance->Oid);
        delete instance;
        return nullptr;
    }
    return instance;
}

void dropRow(MIB_VAR_TYPE* pMibVar) {
    debugLog("table size is 0 - so no items added\n");
    pMibVar->access = MIB_ACCESS_NONE;
    pMibVar->pMibFunc = nullptr;
}

// Step 2: one row per instance after every table column; empty groups lose their rows.
bool expandTables() {
    for (MIB_VAR_TYPE* pMibVar = &hmSubagentMib[0]; pMibVar != nullptr;) {
        MIB_VAR_TYPE* next = pMibVar->pMibNext;
        const uint32_t size = getTableSize(pMibVar->HMEntity);
        if (subtreeOf(pMibVar).isTable) {
            debugLog("table size for sensor %d is %d\n", static_cast<int>(pMibVar->HMEntity),
                     static_cast<int>(size));
            if (size >= 1) {
                MIB_VAR_TYPE* previous = pMibVar;
                for (uint32_t k = 1; k <= size; ++k) {
                    MIB_VAR_TYPE* instance = newInstance(pMibVar, k);
                    if (instance == nullptr) {
                        debugLog("Error allocatiing memory for adding table entries to hmSubagentMib\n");
                        return false;
                    }
                    debugLog("Constructed instance Oid:%s:\n", SnmpUtilOidToA(&instance->Oid));
                    instance->pMibNext = next;
                    previous->pMibNext = instance;
                    previous = instance;
                }
                debugLog("just added last one in table \n");
                pMibVar->pMibFunc = nullptr;
            } else {
                dropRow(pMibVar);
            }
        } else if (size == 0) {
            dropRow(pMibVar);
        }
        pMibVar = next;
    }
    return true;
}

// Step 3: unlink every row without a handler. The first row is never looked at; it
// belongs to the system group, which is never empty.
void pruneChain() {
    for (MIB_VAR_TYPE* pMibVar = &hmSubagentMib[0]; pMibVar->pMibNext != nullptr;) {
        if (pMibVar->pMibNext->pMibFunc == nullptr) {
            pMibVar->pMibNext = pMibVar->pMibNext->pMibNext;
        } else {
            pMibVar = pMibVar->pMibNext;
        }
    }
}

// Step 4: each subtree points at its first row in the chain, or at nothing.
void repointSubtrees() {
    for (OID_SUBTREE& subtree : OidSubTrees) {
        subtree.pMibVar = nullptr;
    }
    for (MIB_VAR_TYPE* pMibVar = &hmSubagentMib[0]; pMibVar != nullptr; pMibVar = pMibVar->pMibNext) {
        OID_SUBTREE& subtree = subtreeOf(pMibVar);
        if (subtree.pMibVar == nullptr) {
            subtree.pMibVar = pMibVar;
        }
    }
}

void traceChain() {
    debugLog("Printing out entire MIB structure\n");
    for (MIB_VAR_TYPE* pMibVar = &hmSubagentMib[0]; pMibVar != nullptr; pMibVar = pMibVar->pMibNext) {
        UINT arcs[MIB_FULL_OID_MAX];
        AsnObjectIdentifier full;
        if (mibFullOid(pMibVar, arcs, &full)) {
            debugLog("  Full Oid:%s         ", SnmpUtilOidToA(&full));
        }
        debugLog("   OID:%s\n", SnmpUtilOidToA(&pMibVar->Oid));
    }
    debugLog("Printout out entire OidSubTree structure\n");
    for (int i = 0; i < MIB_SUBTREE_COUNT; ++i) {
        debugLog("   OidSubTrees[%d] Oid: %s      ", i, SnmpUtilOidToA(&OidSubTrees[i].baseOid));
        if (OidSubTrees[i].pMibVar != nullptr) {
            debugLog(" hmSubagentMib entry:%s\n", SnmpUtilOidToA(&OidSubTrees[i].pMibVar->Oid));
        } else {
            debugLog("Null pMibVar pointer in OidSubTrees[%d]\n", i);
        }
    }
}

// Step 6: the index of the chain as it now stands. An index that cannot be built
// (out of memory) is left empty and the chain is walked instead.
void indexChain() {
    gIndex.clear();
    try {
        for (MIB_VAR_TYPE* pMibVar = gChainHead; pMibVar != nullptr; pMibVar = pMibVar->pMibNext) {
            UINT arcs[MIB_FULL_OID_MAX];
            AsnObjectIdentifier full{0, nullptr};
            const bool fits = mibFullOid(pMibVar, arcs, &full);
            gIndex.position.emplace(pMibVar, gIndex.rows.size());
            gIndex.rows.push_back(ChainIndex::Row{pMibVar, gIndex.arcs.size(), full.idLength, fits, 0});
            gIndex.arcs.insert(gIndex.arcs.end(), arcs, arcs + full.idLength);
        }
        const size_t n = gIndex.rows.size();
        for (size_t i = n; i-- > 0;) {
            bool joinsNext = i + 1 < n && gIndex.rows[i].fits && gIndex.rows[i + 1].fits;
            if (joinsNext) {
                AsnObjectIdentifier a = gIndex.fullOid(i), b = gIndex.fullOid(i + 1);
                joinsNext = SnmpUtilOidCmp(&a, &b) <= 0;
            }
            gIndex.rows[i].runEnd = joinsNext ? gIndex.rows[i + 1].runEnd : i + 1;
        }
    } catch (const std::bad_alloc&) {
        gIndex.clear();
    }
}

} // namespace

MibSeekResult mibChainSeek(const MIB_VAR_TYPE* start, AsnObjectIdentifier* requested, MIB_VAR_TYPE** found,
                           AsnObjectIdentifier* full) {
    auto it = gIndex.position.find(start);
    if (it == gIndex.position.end()) {
        return MibSeekResult::NotIndexed;
    }
    for (size_t i = it->second; i < gIndex.rows.size();) {
        if (!gIndex.rows[i].fits) {
            return MibSeekResult::TooLong;
        }
        // In an ascending run the rows below `requested` come first: find the first
        // that is not below it.
        size_t low = i, high = gIndex.rows[i].runEnd;
        while (low < high) {
            const size_t middle = low + (high - low) / 2;
            AsnObjectIdentifier candidate = gIndex.fullOid(middle);
            if (SnmpUtilOidCmp(requested, &candidate) > 0) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        if (low < gIndex.rows[i].runEnd) {
            *found = gIndex.rows[low].var;
            *full = gIndex.fullOid(low);
            return MibSeekResult::Found;
        }
        i = gIndex.rows[i].runEnd;
    }
    return MibSeekResult::End;
}

bool mibFullOid(const MIB_VAR_TYPE* pMibVar, UINT (&arcs)[MIB_FULL_OID_MAX], AsnObjectIdentifier* out) {
    const AsnObjectIdentifier& base = subtreeOf(pMibVar).baseOid;
    const AsnObjectIdentifier& relative = pMibVar->Oid;
    if (base.idLength + relative.idLength > MIB_FULL_OID_MAX) {
        return false;
    }
    UINT n = 0;
    for (UINT i = 0; i < base.idLength; ++i) {
        arcs[n++] = base.ids[i];
    }
    for (UINT i = 0; i < relative.idLength; ++i) {
        arcs[n++] = relative.ids[i];
    }
    *out = AsnObjectIdentifier{n, arcs};
    return true;
}

bool mibReplaceName(AsnObjectIdentifier* name, AsnObjectIdentifier* source) {
    AsnObjectIdentifier copy{0, nullptr};
    if (!SnmpUtilOidCpy(&copy, source)) {
        SnmpUtilOidFree(&copy);
        return false;
    }
    SnmpUtilOidFree(name);
    *name = copy;
    return true;
}

bool mibBuildChain() {
    linkStaticTable();
    if (!expandTables()) {
        mibReleaseChain();
        return false;
    }
    pruneChain();
    repointSubtrees();
    gChainHead = &hmSubagentMib[0];
    traceChain();
    indexChain();
    return true;
}

void mibReleaseChain() {
    // The chain from the first row reaches every instance row; the pruned static rows
    // hold no text since they were never read.
    MIB_VAR_TYPE* pMibVar = &hmSubagentMib[0];
    while (pMibVar != nullptr) {
        MIB_VAR_TYPE* next = pMibVar->pMibNext;
        if (next == &hmSubagentMib[0]) {
            next = nullptr;
        }
        mibReleaseText(pMibVar);
        if (!isStaticRow(pMibVar)) {
            SnmpUtilOidFree(&pMibVar->Oid);
            delete pMibVar;
        }
        pMibVar = next;
    }
    for (MIB_VAR_TYPE& row : hmSubagentMib) {
        mibReleaseText(&row);
    }
    gChainHead = nullptr;
    gIndex.clear();
    mibLoadStaticTable();
}

MIB_VAR_TYPE* mibChainHead() {
    return gChainHead;
}
