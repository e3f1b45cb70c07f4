// The event-OID selection table and the object OIDs named in traps.
#include "events/eventOids.h"

#include <cstring>
#include <string_view>

#include "core/debugLog.h"

namespace {

// 1.3.6.1.4.1.64999.2.10.3.5, the agent's private tree.
constexpr UINT kPrefix[] = {1, 3, 6, 1, 4, 1, 64999, 2, 10, 3, 5};
constexpr size_t kPrefixLength = sizeof(kPrefix) / sizeof(kPrefix[0]);
constexpr UINT kEventBranch = 1000;
constexpr size_t kEventOidLength = kPrefixLength + 3;

constexpr const char* kLower = "Lower";
constexpr const char* kBiosSysBoot = "system boot event has occurred";
constexpr const char* kPerformanceMet = "performance has been met";
constexpr const char* kPerformanceLagging = "performance is lagging";

using T = EventTest;

// A threshold family: severity 3 is the return to normal; severities 4, 5 and 6 (non-critical,
// critical, non-recoverable) give the "Lower" trap when the description says "Lower" and
// the upper one otherwise.
// clang-format off
#define HM_THRESHOLD_ROWS(group, family, normal, lowerNC, upperNC, lowerC, upperC, lowerNR, upperNR) \
    {group, T::Severity, 3, nullptr, family, normal},                                                \
    {group, T::SeverityContains, 4, kLower, family, lowerNC},                                        \
    {group, T::Severity, 4, nullptr, family, upperNC},                                               \
    {group, T::SeverityContains, 5, kLower, family, lowerC},                                         \
    {group, T::Severity, 5, nullptr, family, upperC},                                                \
    {group, T::SeverityContains, 6, kLower, family, lowerNR},                                        \
    {group, T::Severity, 6, nullptr, family, upperNR}
// clang-format on

// Rows of one group are tried in order; the first match wins.
constexpr EventOidRule kRules[] = {
    // 1: overall system health
    {1, T::Severity, 1, nullptr, 20, 1},
    {1, T::Severity, 2, nullptr, 20, 2},
    {1, T::Severity, 3, nullptr, 20, 3},
    {1, T::Severity, 4, nullptr, 20, 4},
    {1, T::Severity, 5, nullptr, 20, 5},
    {1, T::Severity, 6, nullptr, 20, 6},
    // 2: BIOS / system boot
    {2, T::Contains, 0, "system has been reconfigured", 90, 1},
    {2, T::Contains, 0, kBiosSysBoot, 90, 2},
    {2, T::Contains, 0, "undetermined system hardware failure", 90, 3},
    // 3: chassis
    {3, T::Equals, 0, "Chassis OK", 30, 2},
    {3, T::Equals, 0, "there has been a chassis intrusion", 30, 1},
    // 4: cooling sensor (fan); removal and insertion share the return-to-normal trap
    {4, T::Contains, 0, "Device Removed", 70, 7},
    {4, T::Contains, 0, "Device Inserted", 70, 7},
    HM_THRESHOLD_ROWS(4, 70, 7, 6, 8, 5, 9, 4, 10),
    // 5: cooling redundancy
    {5, T::Severity, 3, nullptr, 70, 1},
    {5, T::Severity, 4, nullptr, 70, 2},
    {5, T::Severity, 5, nullptr, 70, 3},
    // 8: memory. The order is kept as it is: an "uncorrectable ECC" text also
    // contains "correctable ECC", and the logging-disabled text also contains
    // "has been disabled", so .60.2 and .60.6 are never chosen.
    {8, T::Contains, 0, "correctable ECC", 60, 1},
    {8, T::Contains, 0, "uncorrectable ECC", 60, 2},
    {8, T::Contains, 0, "Parity Error", 60, 3},
    {8, T::Contains, 0, "memory scrub failed", 60, 4},
    {8, T::Contains, 0, "has been disabled", 60, 5},
    {8, T::Contains, 0, "correctable memory error logging has been disabled", 60, 6},
    // 9: PHP slot
    {9, T::SeverityContains, 3, "OFF", 80, 3},
    {9, T::SeverityContains, 3, "ON", 80, 4},
    {9, T::Severity, 3, nullptr, 80, 1},
    {9, T::Severity, 4, nullptr, 80, 2},
    {9, T::Severity, 5, nullptr, 80, 2},
    // 10: power supply
    {10, T::Equals, 0, "power supply's presence has been detected", 50, 4},
    {10, T::Contains, 0, "Power Supply Presence Detected", 50, 4},
    {10, T::Contains, 0, "power supply's presence has been lost", 50, 5},
    {10, T::Contains, 0, "power supply has suffered a failure", 50, 6},
    {10, T::Contains, 0, "predictive failure has been detected for the power supply", 50, 7},
    {10, T::Contains, 0, "power supply's input (AC/DC) has been lost", 50, 8},
    {10, T::Contains, 0, "Power Supply Input (AC/DC) Lost", 50, 8},
    {10, T::Contains, 0, "Power Supply A/C is OK", 50, 9},
    {10, T::Contains, 0, "power supply's input (AC/DC) has been regained", 50, 9},
    // 11: power redundancy
    {11, T::Severity, 3, nullptr, 50, 1},
    {11, T::Severity, 4, nullptr, 50, 2},
    {11, T::Severity, 5, nullptr, 50, 3},
    // 12: processor
    {12, T::Contains, 0, "IERR (Internal Error)", 40, 1},
    {12, T::Contains, 0, "Thermal Trip", 40, 2},
    {12, T::Contains, 0, "FRB1/BIST Failure", 40, 3},
    {12, T::Contains, 0, "FRB2/Hang in POST Failure", 40, 4},
    {12, T::Contains, 0, "FRB3", 40, 5},
    {12, T::Contains, 0, "Configuration Error", 40, 6},
    {12, T::Contains, 0, "processor's presence has been detected", 40, 7},
    {12, T::Contains, 0, "processor has been disabled", 40, 8},
    {12, T::Contains, 0, "terminator's presence has been detected", 40, 9},
    {12, T::Contains, 0, "SM BIOS 'Uncorrectable CPU-Complex Error'", 40, 10},
    // 14: temperature
    HM_THRESHOLD_ROWS(14, 70, 16, 15, 17, 14, 18, 13, 19),
    // 15: voltage
    HM_THRESHOLD_ROWS(15, 50, 13, 12, 14, 11, 15, 10, 16),
    // 17: power performance
    {17, T::Equals, 0, kPerformanceMet, 50, 17},
    {17, T::Equals, 0, kPerformanceLagging, 50, 18},
    // 18: cooling performance
    {18, T::Equals, 0, kPerformanceMet, 70, 11},
    {18, T::Equals, 0, kPerformanceLagging, 70, 12},
    // 19: drive slot
    {19, T::Contains, 0, "reports the device has been removed or is absent", 100, 1},
    {19, T::Contains, 0, "reports the device has been inserted or is present", 100, 2},
};
#undef HM_THRESHOLD_ROWS
constexpr size_t kRuleCount = sizeof(kRules) / sizeof(kRules[0]);

// The event OIDs of the rows, built once and never changed afterwards.
struct EventOidStore {
    UINT ids[kRuleCount][kEventOidLength];
    AsnObjectIdentifier oids[kRuleCount];

    EventOidStore() {
        for (size_t i = 0; i < kRuleCount; ++i) {
            std::memcpy(ids[i], kPrefix, sizeof(kPrefix));
            ids[i][kPrefixLength] = kEventBranch;
            ids[i][kPrefixLength + 1] = kRules[i].family;
            ids[i][kPrefixLength + 2] = kRules[i].specific;
            oids[i].idLength = static_cast<UINT>(kEventOidLength);
            oids[i].ids = ids[i];
        }
    }
};

EventOidStore& eventOidStore() {
    static EventOidStore store;
    return store;
}

// The description up to its NUL, never reading past the field.
std::string_view descriptionOf(const eventData& event) {
    return std::string_view(event.stEventDesc, strnlen(event.stEventDesc, sizeof(event.stEventDesc)));
}

bool matches(const EventOidRule& rule, const eventData& event) {
    const std::string_view desc = descriptionOf(event);
    switch (rule.test) {
    case EventTest::Severity:
        return event.nSeverity == rule.severity;
    case EventTest::Contains:
        return desc.find(rule.text) != std::string_view::npos;
    case EventTest::Equals:
        return desc.size() < sizeof(event.stEventDesc) && desc == rule.text;
    case EventTest::SeverityContains:
        return event.nSeverity == rule.severity && desc.find(rule.text) != std::string_view::npos;
    }
    return false;
}

// Index of the first row of `group` that matches, or -1.
long selectRule(int32_t group, const eventData& event) {
    for (size_t i = 0; i < kRuleCount; ++i) {
        if (kRules[i].group == group && matches(kRules[i], event)) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

AsnObjectIdentifier* oidOfRule(long index) {
    return index < 0 ? nullptr : &eventOidStore().oids[index];
}

AsnObjectIdentifier* selectForGroup(int32_t group, const eventData& event) {
    return oidOfRule(selectRule(group, event));
}

// A copy of the description that is certainly terminated, for the trace.
struct TracedText {
    char text[sizeof(eventData::stEventDesc)];
    explicit TracedText(const eventData& event) {
        const std::string_view desc = descriptionOf(event);
        const size_t n = desc.size() < sizeof(text) ? desc.size() : sizeof(text) - 1;
        std::memcpy(text, desc.data(), n);
        text[n] = '\0';
    }
};

struct ObjectOidStore {
    UINT ids[5][kPrefixLength + 3];
    AsnObjectIdentifier oids[5];

    ObjectOidStore() {
        static const UINT kTails[5][3] = {
            {kEventBranch, 10, 1}, {kEventBranch, 10, 2}, {kEventBranch, 10, 3},
            {kEventBranch, 10, 4}, {100, 1, 0},
        };
        for (size_t i = 0; i < 5; ++i) {
            std::memcpy(ids[i], kPrefix, sizeof(kPrefix));
            std::memcpy(ids[i] + kPrefixLength, kTails[i], sizeof(kTails[i]));
            oids[i].idLength = static_cast<UINT>(kPrefixLength + 3);
            oids[i].ids = ids[i];
        }
    }
};

} // namespace

const EventOidRule* eventOidRules(size_t* count) {
    if (count != nullptr) {
        *count = kRuleCount;
    }
    return kRules;
}

AsnObjectIdentifier* getHealthEventOID(const eventData& event) {
    return selectForGroup(1, event);
}

AsnObjectIdentifier* getBiosEventOID(const eventData& event) {
    debugLog("getBiosEventOID() called\n");
    const TracedText desc(event);
    debugLog("stEventDesc=%s\n", desc.text);
    debugLog("BIOS_SYSBOOT=%s\n", kBiosSysBoot);
    return selectForGroup(2, event);
}

AsnObjectIdentifier* getChassisEventOID(const eventData& event) {
    return selectForGroup(3, event);
}

AsnObjectIdentifier* getCoolingSensorEventOID(const eventData& event) {
    return selectForGroup(4, event);
}

AsnObjectIdentifier* getCoolingSpareEventOID(const eventData& event) {
    return selectForGroup(5, event);
}

AsnObjectIdentifier* getMemoryEventOID(const eventData& event) {
    const TracedText desc(event);
    debugLog("getMemoryEventOID ::EventDesc =%s\n", desc.text);
    return selectForGroup(8, event);
}

AsnObjectIdentifier* getPhpSlotEventOID(const eventData& event) {
    return selectForGroup(9, event);
}

AsnObjectIdentifier* getPowerSupplyEventOID(const eventData& event) {
    return selectForGroup(10, event);
}

AsnObjectIdentifier* getPowerSpareEventOID(const eventData& event) {
    return selectForGroup(11, event);
}

AsnObjectIdentifier* getProcessorEventOID(const eventData& event) {
    debugLog("eventHandler::getProcessorEventOID is called \n");
    const long index = selectRule(12, event);
    if (index < 0) {
        debugLog("EventDesc matched none. Returning NULL \n");
        return nullptr;
    }
    if (kRules[index].specific == 8) {
        debugLog("EventDesc matched PROCESSOR_DISABLED \n");
    } else if (kRules[index].specific == 9) {
        debugLog("EventDesc matched PROCESSOR_TERMINATOR \n");
    }
    return oidOfRule(index);
}

AsnObjectIdentifier* getTemperatureEventOID(const eventData& event) {
    return selectForGroup(14, event);
}

AsnObjectIdentifier* getVoltageEventOID(const eventData& event) {
    return selectForGroup(15, event);
}

AsnObjectIdentifier* getPowerPerformanceEventOID(const eventData& event) {
    return selectForGroup(17, event);
}

AsnObjectIdentifier* getCoolingPerformanceEventOID(const eventData& event) {
    return selectForGroup(18, event);
}

AsnObjectIdentifier* getDriveSlotEventOID(const eventData& event) {
    return selectForGroup(19, event);
}

AsnObjectIdentifier* selectEventOID(const eventData& event) {
    using Selector = AsnObjectIdentifier* (*)(const eventData&);
    static constexpr struct {
        int32_t group;
        Selector select;
    } kSelectors[] = {
        {1, getHealthEventOID},
        {2, getBiosEventOID},
        {3, getChassisEventOID},
        {4, getCoolingSensorEventOID},
        {5, getCoolingSpareEventOID},
        {8, getMemoryEventOID},
        {9, getPhpSlotEventOID},
        {10, getPowerSupplyEventOID},
        {11, getPowerSpareEventOID},
        {12, getProcessorEventOID},
        {14, getTemperatureEventOID},
        {15, getVoltageEventOID},
        {17, getPowerPerformanceEventOID},
        {18, getCoolingPerformanceEventOID},
        {19, getDriveSlotEventOID},
    };
    for (const auto& s : kSelectors) {
        if (s.group == event.nEventGroup) {
            return s.select(event);
        }
    }
    return nullptr;
}

AsnObjectIdentifier* trapObjectOID(TrapObject object) {
    static ObjectOidStore store;
    return &store.oids[static_cast<size_t>(object)];
}

int tableSubtreeForGroup(int32_t group) {
    struct GroupTable {
        int32_t group;
        int subtree;
    };
    static constexpr GroupTable kTables[] = {
        {4, 10}, {5, 9}, {8, 8}, {10, 4}, {11, 3}, {12, 2}, {14, 12}, {15, 5}, {17, 6}, {18, 11}, {19, 13},
    };
    for (const GroupTable& t : kTables) {
        if (t.group == group) {
            return t.subtree;
        }
    }
    return -1;
}
