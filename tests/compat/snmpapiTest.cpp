// snmpapi and mgmtapi utility calls.
#include <mgmtapi.h>
#include <snmp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

// An OID view over a vector, for comparisons (nothing is freed).
struct Oid {
    explicit Oid(std::vector<UINT> arcs) : ids(std::move(arcs)) {
        oid.idLength = static_cast<UINT>(ids.size());
        oid.ids = ids.empty() ? nullptr : ids.data();
    }
    std::vector<UINT> ids;
    AsnObjectIdentifier oid;
};

std::vector<UINT> arcsOf(const AsnObjectIdentifier& oid) {
    return std::vector<UINT>(oid.ids, oid.ids + oid.idLength);
}

// The packed structures' pointer members cannot be bound to references (as the EXPECT
// macros do), so tests compare them as prvalues.
const void* ptr(const void* p) {
    return p;
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

TEST(SnmpUtilOid, Compare) {
    struct Case {
        std::vector<UINT> a, b;
        int cmp;  // SnmpUtilOidCmp sign
        UINT n;   // SnmpUtilOidNCmp limit
        int ncmp; // SnmpUtilOidNCmp sign
    };
    const Case cases[] = {
        {{1, 3, 6}, {1, 3, 6}, 0, 3, 0},
        {{1, 3, 6}, {1, 3, 7}, -1, 3, -1},
        {{1, 3, 7}, {1, 3, 6}, 1, 2, 0}, // differs only past n
        {{1, 3}, {1, 3, 6}, -1, 3, -1},  // shorter runs out within n
        {{1, 3}, {1, 3, 6}, -1, 2, 0},   // ... but not within n = 2
        {{1, 3, 6}, {1, 3}, 1, 5, 1},    // n beyond both lengths
        {{1, 4}, {1, 3, 6, 1}, 1, 4, 1}, // arc order beats length
        {{}, {1}, -1, 1, -1},
        {{}, {}, 0, 0, 0},
        {{1, 2}, {3}, -1, 0, 0},       // n = 0 compares nothing
        {{4294967295u}, {0}, 1, 1, 1}, // arcs are unsigned
    };
    for (const Case& c : cases) {
        Oid a(c.a), b(c.b);
        SCOPED_TRACE(testing::Message()
                     << SnmpUtilOidToA(&a.oid) << " vs " << SnmpUtilOidToA(&b.oid) << " n=" << c.n);
        EXPECT_EQ(sign(SnmpUtilOidCmp(&a.oid, &b.oid)), c.cmp);
        EXPECT_EQ(sign(SnmpUtilOidCmp(&b.oid, &a.oid)), -c.cmp);
        EXPECT_EQ(sign(SnmpUtilOidNCmp(&a.oid, &b.oid, c.n)), c.ncmp);
    }
}

TEST(SnmpUtilOid, CopyAppendAndFree) {
    Oid base({1, 3, 6, 1, 4, 1});
    Oid tail({64999, 2});
    AsnObjectIdentifier copy{};
    ASSERT_EQ(SnmpUtilOidCpy(&copy, &base.oid), SNMPAPI_NOERROR);
    EXPECT_NE(ptr(copy.ids), ptr(base.oid.ids));
    ASSERT_EQ(SnmpUtilOidAppend(&copy, &tail.oid), SNMPAPI_NOERROR);
    EXPECT_EQ(arcsOf(copy), (std::vector<UINT>{1, 3, 6, 1, 4, 1, 64999, 2}));
    ASSERT_EQ(SnmpUtilOidAppend(&copy, &copy), SNMPAPI_NOERROR); // appending to itself
    EXPECT_EQ(arcsOf(copy), (std::vector<UINT>{1, 3, 6, 1, 4, 1, 64999, 2, 1, 3, 6, 1, 4, 1, 64999, 2}));
    SnmpUtilOidFree(&copy);
    EXPECT_EQ(ptr(copy.ids), nullptr);
    EXPECT_EQ(copy.idLength, 0u);
    SnmpUtilOidFree(&copy); // freeing an empty OID again is harmless

    // Past the 128-arc limit: an error, and the destination is kept.
    Oid big(std::vector<UINT>(100, 7));
    ASSERT_EQ(SnmpUtilOidCpy(&copy, &big.oid), SNMPAPI_NOERROR);
    SetLastError(0);
    EXPECT_EQ(SnmpUtilOidAppend(&copy, &big.oid), SNMPAPI_ERROR);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(SNMP_BERAPI_OVERFLOW));
    EXPECT_EQ(copy.idLength, 100u);
    SnmpUtilOidFree(&copy);

    EXPECT_EQ(SnmpUtilOidCpy(nullptr, &base.oid), SNMPAPI_ERROR);
    EXPECT_EQ(SnmpUtilOidCpy(&copy, nullptr), SNMPAPI_ERROR);
}

TEST(SnmpUtilOid, ToText) {
    std::string arcs128 = "4000000000";
    for (int i = 1; i < 128; ++i)
        arcs128 += ".4000000000";
    const std::pair<std::vector<UINT>, std::string> cases[] = {
        {{1, 3, 6, 1, 4, 1, 64999, 4294967295u, 0}, "1.3.6.1.4.1.64999.4294967295.0"},
        {{42}, "42"},
        {{}, "<null oid>"},
        {std::vector<UINT>(128, 4000000000u), arcs128}, // 128 * 11 - 1 characters fit whole
        {std::vector<UINT>(129, 4000000000u), arcs128}, // cut after the last whole arc that fits
    };
    for (const auto& [arcs, text] : cases) {
        Oid oid(arcs);
        EXPECT_EQ(SnmpUtilOidToA(&oid.oid), text) << arcs.size();
    }
    EXPECT_STREQ(SnmpUtilOidToA(nullptr), "<null oid>");
}

// Absolute, relative to 1.3.6.1.2.1, and invalid; 128 arcs is the limit.
TEST(SnmpMgrStrToOid, AbsoluteRelativeAndInvalid) {
    std::string maxLen = ".1";
    for (int i = 1; i < 128; ++i)
        maxLen += ".9";
    std::vector<UINT> maxArcs(128, 9);
    maxArcs[0] = 1;
    const std::pair<std::string, std::vector<UINT>> good[] = {
        {".1.3.6.1.4.1.64999.2.10.3.5.1000", {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 1000}},
        {"1.3.0", {1, 3, 6, 1, 2, 1, 1, 3, 0}},
        {"7", {1, 3, 6, 1, 2, 1, 7}},
        {".0", {0}},
        {".4294967295", {4294967295u}},
        {maxLen, maxArcs},
    };
    for (const auto& [text, arcs] : good) {
        AsnObjectIdentifier oid{};
        ASSERT_TRUE(SnmpMgrStrToOid(const_cast<LPSTR>(text.c_str()), &oid)) << text;
        EXPECT_EQ(arcsOf(oid), arcs) << text;
        SnmpUtilOidFree(&oid);
    }
    // Refused texts, one between each "|", the first one empty.
    std::istringstream bad("|.|..1|1..2|1.2.|.1.2.| 1.2|1.2 |-1|.1.-2|1.a.2|system.sysDescr.0|.4294967296|"
                           ".99999999999999999999|" +
                           maxLen + ".9");
    int refused = 0;
    for (std::string text; std::getline(bad, text, '|'); ++refused) {
        AsnObjectIdentifier out{};
        EXPECT_FALSE(SnmpMgrStrToOid(const_cast<LPSTR>(text.c_str()), &out)) << text;
        EXPECT_EQ(ptr(out.ids), nullptr) << text;
        EXPECT_EQ(out.idLength, 0u);
    }
    EXPECT_EQ(refused, 15);
    AsnObjectIdentifier oid{};
    EXPECT_FALSE(SnmpMgrStrToOid(nullptr, &oid));
}

bool zeros(const unsigned char* p, size_t from, size_t to) {
    return std::all_of(p + from, p + to, [](unsigned char c) { return c == 0; });
}

TEST(SnmpUtilMem, ZeroFilledAllocAndGrowingRealloc) {
    auto* p = static_cast<unsigned char*>(SnmpUtilMemAlloc(16));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(zeros(p, 0, 16));
    std::memset(p, 0xAB, 16);
    ASSERT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 4096)), nullptr);
    EXPECT_EQ(p[15], 0xAB);
    EXPECT_TRUE(zeros(p, 16, 4096));
    // Shrink, then grow: the regrown part is zero, not the old contents.
    std::memset(p, 0xCD, 4096);
    ASSERT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 8)), nullptr);
    ASSERT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 64)), nullptr);
    EXPECT_EQ(p[7], 0xCD);
    EXPECT_TRUE(zeros(p, 8, 64));
    // Shrinking to zero keeps a valid block (never frees behind the caller's back).
    EXPECT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 0)), nullptr);
    SnmpUtilMemFree(p);
    ASSERT_NE(p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(nullptr, 8)), nullptr);
    EXPECT_TRUE(zeros(p, 0, 8));
    SnmpUtilMemFree(p);
    SnmpUtilMemFree(nullptr);
}

void setString(AsnOctetString& s, BYTE* stream, UINT length, BOOL dynamic) {
    s.stream = stream;
    s.length = length;
    s.dynamic = dynamic;
}

// The leak checker proves the frees.
TEST(SnmpUtilVarBind, ListFreeReleasesNamesAndDynamicValues) {
    static BYTE constant[] = "static text";
    SnmpVarBindList vbl;
    vbl.len = 5;
    vbl.list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(vbl.len * sizeof(SnmpVarBind)));
    ASSERT_NE(ptr(vbl.list), nullptr);
    for (UINT i = 0; i < vbl.len; ++i) {
        Oid name({1, 3, 6, 1, 4, 1, i});
        ASSERT_EQ(SnmpUtilOidCpy(&vbl.list[i].name, &name.oid), SNMPAPI_NOERROR);
    }
    vbl.list[0].value.asnType = ASN_OCTETSTRING; // dynamic string: freed
    setString(vbl.list[0].value.asnValue.string, static_cast<BYTE*>(SnmpUtilMemAlloc(32)), 32, TRUE);
    vbl.list[1].value.asnType = ASN_OCTETSTRING; // static string: left alone
    setString(vbl.list[1].value.asnValue.string, constant, sizeof constant - 1, FALSE);
    vbl.list[2].value.asnType = ASN_OBJECTIDENTIFIER; // OID value: always freed
    Oid value({1, 3, 6, 1, 2, 1, 1, 2, 0});
    ASSERT_EQ(SnmpUtilOidCpy(&vbl.list[2].value.asnValue.object, &value.oid), SNMPAPI_NOERROR);
    vbl.list[3].value.asnType = ASN_INTEGER;
    vbl.list[3].value.asnValue.number = -5;
    vbl.list[4].value.asnType = ASN_IPADDRESS; // dynamic address: freed
    setString(vbl.list[4].value.asnValue.address, static_cast<BYTE*>(SnmpUtilMemAlloc(4)), 4, TRUE);
    SnmpUtilVarBindListFree(&vbl);
    EXPECT_EQ(ptr(vbl.list), nullptr);
    EXPECT_EQ(vbl.len, 0u);
    EXPECT_STREQ(reinterpret_cast<char*>(constant), "static text");
    SnmpUtilVarBindListFree(&vbl); // an empty list again

    AsnAny any{};
    any.asnType = ASN_OCTETSTRING;
    setString(any.asnValue.string, static_cast<BYTE*>(SnmpUtilMemAlloc(8)), 8, TRUE);
    SnmpUtilAsnAnyFree(&any);
    EXPECT_EQ(any.asnType, ASN_NULL); // a null value is left
    EXPECT_EQ(ptr(any.asnValue.string.stream), nullptr);
    SnmpUtilAsnAnyFree(&any); // nothing left to free
}

TEST(SnmpSvc, UptimeCountsCentisecondsSinceLoad) {
    DWORD before = SnmpSvcGetUptime();
    struct timespec ts = {0, 120 * 1000 * 1000};
    nanosleep(&ts, nullptr);
    DWORD after = SnmpSvcGetUptime();
    EXPECT_GE(after - before, 11u); // 120 ms is at least 11 whole centiseconds apart
    EXPECT_LT(after - before, 200u);
}

} // namespace
