// Binding lists the way the SNMP service builds them and OIDs as arc vectors, for the
// front-end tests.
#ifndef HM_TESTS_AGENT_AGENTTESTSUPPORT_H
#define HM_TESTS_AGENT_AGENTTESTSUPPORT_H

#include <cstring>
#include <iterator>
#include <map>

#include "support/files.h"
#include "support/oids.h"

namespace hmtest {

// The enterprise prefix of the agent's MIB, 1.3.6.1.4.1.64999.2.10.3.5.
inline Arcs P(std::initializer_list<UINT> tail) {
    Arcs arcs{1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5};
    arcs.insert(arcs.end(), tail);
    return arcs;
}

inline const Arcs kEndOfView{1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 6};

// Base OIDs of the fourteen subtrees.
inline const Arcs kBases[14] = {
    P({100}),     P({200}),     P({300, 10}), P({400, 10}), P({400, 20}), P({400, 30}), P({400, 40}),
    P({500, 10}), P({500, 20}), P({600, 10}), P({600, 20}), P({600, 30}), P({600, 40}), P({700, 10}),
};

inline Arcs arcsOf(const AsnObjectIdentifier& oid) {
    return oid.ids == nullptr ? Arcs{} : Arcs(oid.ids, oid.ids + oid.idLength);
}

// A binding list allocated as the SNMP service allocates it; freed with it.
class Bindings {
public:
    explicit Bindings(const std::vector<Arcs>& names) {
        m_list.len = static_cast<UINT>(names.size());
        m_list.list = names.empty() ? nullptr
                                    : static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(
                                          static_cast<UINT>(names.size() * sizeof(SnmpVarBind))));
        for (size_t n = 0; n < names.size(); ++n) {
            AsnObjectIdentifier oid{static_cast<UINT>(names[n].size()), const_cast<UINT*>(names[n].data())};
            SnmpUtilOidCpy(&m_list.list[n].name, &oid);
            m_list.list[n].value.asnType = ASN_NULL;
        }
    }
    ~Bindings() { SnmpUtilVarBindListFree(&m_list); }
    Bindings(const Bindings&) = delete;
    Bindings& operator=(const Bindings&) = delete;

    SnmpVarBindList* list() { return &m_list; }
    SnmpVarBind& operator[](size_t n) { return m_list.list[n]; }
    Arcs name(size_t n) const { return arcsOf(m_list.list[n].name); }
    std::string text(size_t n) const {
        const AsnOctetString& s = m_list.list[n].value.asnValue.string;
        return std::string(reinterpret_cast<const char*>(s.stream), s.length);
    }
    // The value binding n carries: the integer in decimal, a text of its own, or "" for none.
    std::string value(size_t n) const {
        const AsnAny& v = m_list.list[n].value;
        if (v.asnType == ASN_INTEGER)
            return std::to_string(v.asnValue.number);
        EXPECT_TRUE(v.asnType != ASN_OCTETSTRING || v.asnValue.string.dynamic);
        return v.asnType == ASN_OCTETSTRING ? text(n) : "";
    }
    // Gives binding n a value of its own, as a SET request carries it.
    void setInteger(size_t n, int32_t value) {
        SnmpUtilAsnAnyFree(&m_list.list[n].value);
        m_list.list[n].value.asnType = ASN_INTEGER;
        m_list.list[n].value.asnValue.number = value;
    }
    void setString(size_t n, const std::string& value) {
        SnmpUtilAsnAnyFree(&m_list.list[n].value);
        AsnOctetString& s = m_list.list[n].value.asnValue.string;
        s.stream = static_cast<BYTE*>(SnmpUtilMemAlloc(static_cast<UINT>(value.size())));
        memcpy(s.stream, value.data(), value.size());
        s.length = static_cast<UINT>(value.size());
        s.dynamic = TRUE;
        m_list.list[n].value.asnType = ASN_OCTETSTRING;
    }

private:
    SnmpVarBindList m_list{nullptr, 0};
};

// Error status and index of one request; -1 where the agent did not write.
struct Answer {
    AsnInteger32 status = -1;
    AsnInteger32 index = -1;
};

// Every message is the text of one trace call (after the "hh:mm:ss: (thread) " prefix).
inline ::testing::AssertionResult tracedAll(const std::string& log,
                                            const std::vector<std::string>& messages) {
    for (const std::string& message : messages)
        if (log.find(") " + message) == std::string::npos)
            return ::testing::AssertionFailure() << "not traced: " << message;
    return ::testing::AssertionSuccess();
}

} // namespace hmtest

#endif
