// Small helpers shared by the event tests: OIDs as dotted text, trace reading.
#ifndef HM_TESTS_EVENTS_OIDTEXT_H
#define HM_TESTS_EVENTS_OIDTEXT_H

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <windows.h>
#include <snmp.h>

// "1.3.6..." for an OID, "" for an empty one.
inline std::string dotted(const AsnObjectIdentifier& oid) {
    std::string text;
    for (UINT i = 0; i < oid.idLength; ++i) {
        if (i != 0) {
            text += '.';
        }
        text += std::to_string(oid.ids[i]);
    }
    return text;
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
