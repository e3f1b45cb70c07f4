// The live variable chain: the static descriptor table linked in OID order, with one
// row per instance of every table column, and the subtrees pointing at their first rows.
#ifndef HM_AGENT_MIBCHAIN_H
#define HM_AGENT_MIBCHAIN_H

#include "agent/mibTypes.h"

// Longest full OID of a descriptor: a subtree base and a relative OID with an instance.
constexpr UINT MIB_FULL_OID_MAX = 32;

// Full OID of a descriptor (subtree base followed by its relative OID), written into
// `arcs` without allocating; `out` points into `arcs`. False when it does not fit.
bool mibFullOid(const MIB_VAR_TYPE* pMibVar, UINT (&arcs)[MIB_FULL_OID_MAX], AsnObjectIdentifier* out);

// Replaces `name` with a fresh SnmpUtilMem copy of `source`, freeing the old name.
// On allocation failure `name` is left as it was and false is returned.
bool mibReplaceName(AsnObjectIdentifier* name, AsnObjectIdentifier* source);

// Links, expands and prunes the chain and re-points the subtrees, tracing the result.
// False when an instance row could not be allocated (the chain is then released).
bool mibBuildChain();

// Frees every instance row with its OID and every text a descriptor holds, and puts
// the static table back as it was built, so that the chain can be built again.
void mibReleaseChain();

// First row of the live chain, null while no chain is built.
MIB_VAR_TYPE* mibChainHead();

// Outcome of mibChainSeek.
enum class MibSeekResult {
    Found,      // *found is the variable, *full its full OID
    End,        // no variable from `start` on is at or after the OID
    TooLong,    // the walk from `start` meets a variable whose full OID does not fit first
    NotIndexed, // the chain has no index or `start` is not in it: walk the chain instead
};

// The first variable of the chain, from `start` on in chain order, whose full OID is
// at or after `requested` (the one a walk of the chain comparing full OIDs stops at),
// found by binary search over the full OIDs computed when the chain was built.
// `full` points into the index, valid until the chain is released.
MibSeekResult mibChainSeek(const MIB_VAR_TYPE* start, AsnObjectIdentifier* requested, MIB_VAR_TYPE** found,
                           AsnObjectIdentifier* full);

#endif
