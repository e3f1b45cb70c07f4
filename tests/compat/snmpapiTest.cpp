// snmpapi and mgmtapi utility calls.
#include <mgmtapi.h>
#include <snmp.h>

#include <gtest/gtest.h>

#include <cstring>
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

// The packed structures' pointer members cannot be bound to references (as the
// EXPECT macros do), so tests read them through these.
const void* idsOf(const AsnObjectIdentifier& oid) {
    return oid.ids;
}
const void* streamOf(const AsnOctetString& s) {
    return s.stream;
}
const void* listOf(const SnmpVarBindList& l) {
    return l.list;
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

TEST(SnmpUtilOid, Compare) {
    struct Case {
        std::vector<UINT> a;
        std::vector<UINT> b;
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
        Oid a(c.a);
        Oid b(c.b);
        EXPECT_EQ(sign(SnmpUtilOidCmp(&a.oid, &b.oid)), c.cmp)
            << SnmpUtilOidToA(&a.oid) << " vs " << c.b.size();
        EXPECT_EQ(sign(SnmpUtilOidCmp(&b.oid, &a.oid)), -c.cmp);
        EXPECT_EQ(sign(SnmpUtilOidNCmp(&a.oid, &b.oid, c.n)), c.ncmp)
            << SnmpUtilOidToA(&a.oid) << " n=" << c.n;
    }
}

TEST(SnmpUtilOid, CopyAppendAndFree) {
    Oid base({1, 3, 6, 1, 4, 1});
    Oid tail({64999, 2});
    AsnObjectIdentifier copy{};
    ASSERT_EQ(SnmpUtilOidCpy(&copy, &base.oid), SNMPAPI_NOERROR);
    EXPECT_NE(idsOf(copy), idsOf(base.oid));
    ASSERT_EQ(SnmpUtilOidAppend(&copy, &tail.oid), SNMPAPI_NOERROR);
    EXPECT_EQ(arcsOf(copy), (std::vector<UINT>{1, 3, 6, 1, 4, 1, 64999, 2}));
    ASSERT_EQ(SnmpUtilOidAppend(&copy, &copy), SNMPAPI_NOERROR); // appending to itself
    EXPECT_EQ(copy.idLength, 16u);
    EXPECT_EQ(copy.ids[15], 2u);
    EXPECT_EQ(copy.ids[8], 1u);
    SnmpUtilOidFree(&copy);
    EXPECT_EQ(idsOf(copy), nullptr);
    EXPECT_EQ(copy.idLength, 0u);
    SnmpUtilOidFree(&copy); // freeing an empty OID again is harmless

    // Past the 128-arc limit: an error, and the destination is kept.
    std::vector<UINT> many(100, 7);
    Oid big(many);
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
    Oid oid({1, 3, 6, 1, 4, 1, 64999, 4294967295u, 0});
    EXPECT_STREQ(SnmpUtilOidToA(&oid.oid), "1.3.6.1.4.1.64999.4294967295.0");
    Oid one({42});
    EXPECT_STREQ(SnmpUtilOidToA(&one.oid), "42");
    Oid empty({});
    EXPECT_STREQ(SnmpUtilOidToA(&empty.oid), "<null oid>");
    EXPECT_STREQ(SnmpUtilOidToA(nullptr), "<null oid>");

    // 128 arcs of ten digits fit whole (128 * 11 - 1 characters).
    Oid longest(std::vector<UINT>(128, 4000000000u));
    EXPECT_EQ(std::strlen(SnmpUtilOidToA(&longest.oid)), 1407u);
    // Longer OIDs are cut after the last whole arc that fits.
    Oid tooLong(std::vector<UINT>(129, 4000000000u));
    std::string text = SnmpUtilOidToA(&tooLong.oid);
    EXPECT_EQ(text.size(), 1407u);
    EXPECT_EQ(text.substr(text.size() - 11), ".4000000000");
}

TEST(SnmpMgrStrToOid, AbsoluteRelativeAndInvalid) {
    struct Case {
        const char* text;
        std::vector<UINT> arcs;
    };
    const Case good[] = {
        {".1.3.6.1.4.1.64999.2.10.3.5.1000", {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5, 1000}},
        {"1.3.0", {1, 3, 6, 1, 2, 1, 1, 3, 0}},
        {"7", {1, 3, 6, 1, 2, 1, 7}},
        {".0", {0}},
        {".4294967295", {4294967295u}},
    };
    for (const Case& c : good) {
        AsnObjectIdentifier oid{};
        ASSERT_TRUE(SnmpMgrStrToOid(const_cast<LPSTR>(c.text), &oid)) << c.text;
        EXPECT_EQ(arcsOf(oid), c.arcs) << c.text;
        SnmpUtilOidFree(&oid);
    }
    std::string maxLen = ".1";
    for (int i = 1; i < 128; ++i) {
        maxLen += ".9";
    }
    // ".1.9.9...": 128 arcs is the limit, 129 is refused.
    AsnObjectIdentifier oid{};
    ASSERT_TRUE(SnmpMgrStrToOid(const_cast<LPSTR>(maxLen.c_str()), &oid));
    EXPECT_EQ(oid.idLength, 128u);
    SnmpUtilOidFree(&oid);
    std::string over = maxLen + ".9";

    const char* bad[] = {"",
                         ".",
                         "..1",
                         "1..2",
                         "1.2.",
                         ".1.2.",
                         " 1.2",
                         "1.2 ",
                         "-1",
                         ".1.-2",
                         "1.a.2",
                         "system.sysDescr.0",
                         ".4294967296",
                         ".99999999999999999999",
                         over.c_str()};
    for (const char* text : bad) {
        AsnObjectIdentifier out{};
        EXPECT_FALSE(SnmpMgrStrToOid(const_cast<LPSTR>(text), &out)) << text;
        EXPECT_EQ(idsOf(out), nullptr) << text;
        EXPECT_EQ(out.idLength, 0u);
    }
    EXPECT_FALSE(SnmpMgrStrToOid(nullptr, &oid));
}

TEST(SnmpUtilMem, ZeroFilledAllocAndGrowingRealloc) {
    auto* p = static_cast<unsigned char*>(SnmpUtilMemAlloc(16));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(p[i], 0) << i;
    }
    std::memset(p, 0xAB, 16);
    p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 4096));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[15], 0xAB);
    for (int i = 16; i < 4096; ++i) {
        ASSERT_EQ(p[i], 0) << i;
    }
    // Shrink, then grow: the regrown part is zero, not the old contents.
    std::memset(p, 0xCD, 4096);
    p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 8));
    ASSERT_NE(p, nullptr);
    p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 64));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[7], 0xCD);
    for (int i = 8; i < 64; ++i) {
        ASSERT_EQ(p[i], 0) << i;
    }
    // Shrinking to zero keeps a valid block (never frees behind the caller's back).
    p = static_cast<unsigned char*>(SnmpUtilMemReAlloc(p, 0));
    EXPECT_NE(p, nullptr);
    SnmpUtilMemFree(p);
    void* fresh = SnmpUtilMemReAlloc(nullptr, 8);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(fresh)[7], 0);
    SnmpUtilMemFree(fresh);
    SnmpUtilMemFree(nullptr);
}

// Builds a binding with a heap name; the leak checker proves the frees below.
void makeBinding(SnmpVarBind& vb, UINT arc) {
    Oid name({1, 3, 6, 1, 4, 1, arc});
    ASSERT_EQ(SnmpUtilOidCpy(&vb.name, &name.oid), SNMPAPI_NOERROR);
}

TEST(SnmpUtilVarBind, ListFreeReleasesNamesAndDynamicValues) {
    static BYTE constant[] = "static text";
    SnmpVarBindList vbl;
    vbl.len = 5;
    vbl.list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(vbl.len * sizeof(SnmpVarBind)));
    ASSERT_NE(vbl.list, nullptr);
    for (UINT i = 0; i < vbl.len; ++i) {
        makeBinding(vbl.list[i], i);
    }
    vbl.list[0].value.asnType = ASN_OCTETSTRING; // dynamic string: freed
    vbl.list[0].value.asnValue.string.stream = static_cast<BYTE*>(SnmpUtilMemAlloc(32));
    vbl.list[0].value.asnValue.string.length = 32;
    vbl.list[0].value.asnValue.string.dynamic = TRUE;
    vbl.list[1].value.asnType = ASN_OCTETSTRING; // static string: left alone
    vbl.list[1].value.asnValue.string.stream = constant;
    vbl.list[1].value.asnValue.string.length = sizeof constant - 1;
    vbl.list[1].value.asnValue.string.dynamic = FALSE;
    vbl.list[2].value.asnType = ASN_OBJECTIDENTIFIER; // OID value: always freed
    Oid value({1, 3, 6, 1, 2, 1, 1, 2, 0});
    ASSERT_EQ(SnmpUtilOidCpy(&vbl.list[2].value.asnValue.object, &value.oid), SNMPAPI_NOERROR);
    vbl.list[3].value.asnType = ASN_INTEGER;
    vbl.list[3].value.asnValue.number = -5;
    vbl.list[4].value.asnType = ASN_IPADDRESS; // dynamic address: freed
    vbl.list[4].value.asnValue.address.stream = static_cast<BYTE*>(SnmpUtilMemAlloc(4));
    vbl.list[4].value.asnValue.address.length = 4;
    vbl.list[4].value.asnValue.address.dynamic = TRUE;

    SnmpUtilVarBindListFree(&vbl);
    EXPECT_EQ(listOf(vbl), nullptr);
    EXPECT_EQ(vbl.len, 0u);
    EXPECT_STREQ(reinterpret_cast<char*>(constant), "static text");
    SnmpUtilVarBindListFree(&vbl); // an empty list again
}

TEST(SnmpUtilVarBind, AsnAnyFreeLeavesANullValue) {
    AsnAny any{};
    any.asnType = ASN_OCTETSTRING;
    any.asnValue.string.stream = static_cast<BYTE*>(SnmpUtilMemAlloc(8));
    any.asnValue.string.length = 8;
    any.asnValue.string.dynamic = TRUE;
    SnmpUtilAsnAnyFree(&any);
    EXPECT_EQ(any.asnType, ASN_NULL);
    EXPECT_EQ(streamOf(any.asnValue.string), nullptr);
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
