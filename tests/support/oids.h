// OIDs as dotted text, the agent's enterprise prefix, and a trace's messages.
#ifndef HM_TESTS_SUPPORT_OIDS_H
#define HM_TESTS_SUPPORT_OIDS_H

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <windows.h>
#include <snmp.h>

using Arcs = std::vector<UINT>;

// "1.3.6..." for an OID's arcs, "" for none.
inline std::string dotted(const Arcs& arcs) {
    std::string text;
    for (size_t i = 0; i < arcs.size(); ++i) {
        text += (i != 0 ? "." : "") + std::to_string(arcs[i]);
    }
    return text;
}

// The first `length` arcs of an OID (all of them by default).
inline std::string dotted(const AsnObjectIdentifier& oid, size_t length) {
    return oid.ids == nullptr ? std::string() : dotted(Arcs(oid.ids, oid.ids + length));
}

inline std::string dotted(const AsnObjectIdentifier& oid) {
    return dotted(oid, oid.idLength);
}

inline std::string dotted(const AsnObjectIdentifier* oid) {
    return oid == nullptr ? std::string("(none)") : dotted(*oid);
}

// The agent's enterprise prefix.
inline const std::string kP = "1.3.6.1.4.1.64999.2.10.3.5";

// The messages of a trace file with each call's "hh:mm:ss: (thread) " prefix removed.
inline std::string traceMessages(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    static const std::regex prefix("[0-9]{2}:[0-9]{2}:[0-9]{2}: \\([0-9]+\\) ");
    return std::regex_replace(all.str(), prefix, "");
}

#endif
