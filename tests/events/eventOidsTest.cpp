// The choice of the event OID for each kind of event record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "events/eventOids.h"
#include "support/oids.h"

namespace {

eventData record(int32_t group, int32_t severity, const char* description) {
    eventData e;
    std::memset(&e, 0, sizeof(e));
    e.nEventGroup = group;
    e.nSeverity = severity;
    std::strncpy(e.stEventDesc, description, sizeof(e.stEventDesc) - 1);
    return e;
}

// The rules of every group that the named events of the end-to-end test do not reach
// (other wordings, severities, precedence; uncorrectable ECC and logging disabled read
// as .60.1 and .60.5 there), and near misses.
TEST(EventOidSelection, OtherWordingsPrecedenceAndNearMisses) {
    const struct {
        int32_t group, severity;
        const char* description;
        const char* expected; // arcs below P.1000, or "" for no trap
    } rows[] = {{1, 1, "", ".20.1"},
                {1, 2, "", ".20.2"},
                {1, 0, "", ""},
                {1, 7, "", ""},
                {2, 5, "system boot event has occurred; system has been reconfigured", ".90.1"},
                {2, 3, "System Boot Event Has Occurred", ""},
                {3, 3, "Chassis OK ", ""},
                {3, 5, "there has been a chassis intrusion!", ""},
                {4, 6, "Device Inserted Lower", ".70.7"},
                {4, 3, "Lower Non-critical going low", ".70.7"},
                {4, 4, "lower non-critical", ".70.8"},
                {4, 1, "Lower", ""},
                {5, 6, "", ""},
                {8, 4, "Parity Error: correctable ECC", ".60.1"},
                {8, 4, "parity error", ""},
                {9, 3, "ON and OFF", ".80.3"},
                {9, 3, "slot ready", ".80.1"},
                {9, 4, "slot power OFF", ".80.2"},
                {9, 6, "fault", ""},
                {9, 1, "ON", ""},
                {10, 3, "PS1: Power Supply Presence Detected", ".50.4"},
                {10, 3, "the power supply's presence has been detected", ""},
                {10, 5, "Power Supply Input (AC/DC) Lost", ".50.8"},
                {10, 3, "Power Supply A/C is OK", ".50.9"},
                {10, 3, "power supply ok", ""},
                {11, 6, "", ""},
                {12, 6, "CPU Thermal Trip", ".40.2"},
                {12, 6, "Thermal Trip after IERR (Internal Error)", ".40.1"},
                {12, 6, "thermal trip", ""},
                {14, 3, "Lower Critical going low deasserted", ".70.16"},
                {14, 4, "Lower Non-critical going low", ".70.15"},
                {14, 4, "Upper Non-critical going high", ".70.17"},
                {14, 5, "Lower Critical going low", ".70.14"},
                {14, 5, "Upper Critical going high", ".70.18"},
                {14, 6, "Lower Non-recoverable going low", ".70.13"},
                {14, 6, "Upper Non-recoverable going high", ".70.19"},
                {14, 2, "Lower", ""},
                {14, 7, "Lower", ""},
                {15, 1, "", ""},
                {17, 3, "performance has been met", ".50.17"},
                {17, 4, "performance is lagging", ".50.18"},
                {17, 4, "performance is lagging.", ""},
                {18, 3, "performance has been met", ".70.11"},
                {18, 4, "performance is lagging", ".70.12"},
                {18, 4, "Performance is lagging", ""},
                {19, 3, "Drive 3 removed", ""},
                {0, 5, "Lower Critical going low", ""}, // groups without traps
                {6, 5, "Lower Critical going low", ""},
                {7, 5, "Lower Critical going low", ""},
                {13, 5, "Lower Critical going low", ""},
                {16, 5, "Lower Critical going low", ""},
                {20, 5, "Lower Critical going low", ""},
                {-1, 5, "Lower Critical going low", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.group) + "/" + std::to_string(row.severity) + " " + row.description);
        const AsnObjectIdentifier* oid = selectEventOID(record(row.group, row.severity, row.description));
        EXPECT_EQ(oid == nullptr ? "" : dotted(oid),
                  row.expected[0] == '\0' ? "" : kP + ".1000" + row.expected);
    }
}

TEST(EventOidSelection, DescriptionFillingTheWholeFieldIsSearchedWithoutOverread) {
    eventData e = record(12, 5, "");
    std::memset(e.stEventDesc, 'x', sizeof(e.stEventDesc));
    std::memcpy(e.stEventDesc + sizeof(e.stEventDesc) - 4, "FRB3", 4); // no terminating NUL
    EXPECT_EQ(dotted(getProcessorEventOID(e)), kP + ".1000.40.5");
    std::memset(e.stEventDesc, 'x', sizeof(e.stEventDesc));
    e.nEventGroup = 3;
    EXPECT_EQ(getChassisEventOID(e), nullptr);
}

} // namespace
