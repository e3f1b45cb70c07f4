// snmpapi and mgmtapi utility calls.
#include <mgmtapi.h>
#include <snmp.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <vector>

namespace {

using Arcs = std::vector<UINT>;

// An OID view over its own arcs, for comparisons (nothing is freed).
struct Oid {
    explicit Oid(Arcs arcs)
        : ids(std::move(arcs)), oid{static_cast<UINT>(ids.size()), ids.empty() ? nullptr : ids.data()} {}
    Arcs ids;
    AsnObjectIdentifier oid;
};

Arcs arcsOf(const AsnObjectIdentifier& oid) {
    return Arcs(oid.ids, oid.ids + oid.idLength);
}

// The packed structures' pointer members cannot be bound to references (as the EXPECT
// macros do), so tests compare them as prvalues.
const void* ptr(const void* p) {
    return p;
}

TEST(SnmpUtilOid, Compare) {
    const struct {
        Arcs a, b;
        int cmp;  // SnmpUtilOidCmp sign
        UINT n;   // SnmpUtilOidNCmp limit
        int ncmp; // SnmpUtilOidNCmp sign
    } cases[] = {
        {{1, 3, 6}, {1, 3, 6}, 0, 3, 0},
        {{1, 3, 7}, {1, 3, 6}, 1, 2, 0}, // differs only past n
        {{1, 3}, {1, 3, 6}, -1, 3, -1},  // shorter runs out within n
        {{1, 3}, {1, 3, 6}, -1, 2, 0},   // ... but not within n = 2
        {{1, 4}, {1, 3, 6, 1}, 1, 4, 1}, // arc order beats length
        {{}, {1}, -1, 1, -1},
        {{4294967295u}, {0}, 1, 1, 1}, // arcs are unsigned
    };
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    for (const auto& c : cases) {
        Oid a(c.a), b(c.b);
        SCOPED_TRACE(testing::Message() << SnmpUtilOidToA(&a.oid) << " vs " << SnmpUtilOidToA(&b.oid));
        EXPECT_EQ(sign(SnmpUtilOidCmp(&a.oid, &b.oid)), c.cmp);
        EXPECT_EQ(sign(SnmpUtilOidCmp(&b.oid, &a.oid)), -c.cmp);
        EXPECT_EQ(sign(SnmpUtilOidNCmp(&a.oid, &b.oid, c.n)), c.ncmp);
    }
}

TEST(SnmpUtilOid, CopyAppendAndFree) {
    Oid base({1, 3, 6}), big(Arcs(126, 7));
    AsnObjectIdentifier copy{};
    ASSERT_EQ(SnmpUtilOidCpy(&copy, &base.oid), SNMPAPI_NOERROR);
    EXPECT_NE(ptr(copy.ids), ptr(base.oid.ids));
    ASSERT_EQ(SnmpUtilOidAppend(&copy, &copy), SNMPAPI_NOERROR); // appending to itself
    EXPECT_EQ(arcsOf(copy), (Arcs{1, 3, 6, 1, 3, 6}));
    // Past the 128-arc limit: an error, and the destination is kept.
    EXPECT_EQ(SnmpUtilOidAppend(&copy, &big.oid), SNMPAPI_ERROR);
    EXPECT_EQ(copy.idLength, 6u);
    SnmpUtilOidFree(&copy);
    EXPECT_EQ(ptr(copy.ids), nullptr);
    EXPECT_EQ(copy.idLength, 0u);
}

// Absolute and invalid, as the trap split renders them; 128 arcs is the limit.
TEST(SnmpMgrStrToOid, AbsoluteRelativeAndInvalid) {
    std::string maxLen;
    for (int i = 0; i < 128; ++i)
        maxLen += ".9";
    const std::pair<std::string, Arcs> good[] = {
        {".1.3.6.1.4.1.64999.1000", {1, 3, 6, 1, 4, 1, 64999, 1000}},
        {".4294967295", {4294967295u}},
        {maxLen, Arcs(128, 9)},
    };
    for (const auto& [text, arcs] : good) {
        AsnObjectIdentifier oid{};
        ASSERT_TRUE(SnmpMgrStrToOid(const_cast<LPSTR>(text.c_str()), &oid)) << text;
        EXPECT_EQ(arcsOf(oid), arcs) << text;
        SnmpUtilOidFree(&oid);
    }
    // Refused texts, one between each "|", the first one empty.
    std::istringstream bad("|.|..1|1.2.| 1.2|-1|1.a.2|system.sysDescr.0|.4294967296|" + maxLen + ".9");
    for (std::string text; std::getline(bad, text, '|');) {
        AsnObjectIdentifier out{};
        EXPECT_FALSE(SnmpMgrStrToOid(const_cast<LPSTR>(text.c_str()), &out)) << text;
        EXPECT_EQ(ptr(out.ids), nullptr) << text;
    }
}

// Allocations are zero-filled; a block grown keeps its contents.
TEST(SnmpUtilMem, ZeroFilledAllocAndRealloc) {
    auto* p = static_cast<unsigned char*>(SnmpUtilMemAlloc(16));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(p), 16), std::string(16, '\0'));
    std::memset(p, 0xCD, 16);
    ASSERT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 4096)), nullptr);
    EXPECT_EQ(p[15], 0xCD);
    SnmpUtilMemFree(p);
    SnmpUtilMemFree(nullptr);
}

} // namespace
