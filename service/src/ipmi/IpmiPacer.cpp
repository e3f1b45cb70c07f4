// The IPMI command budget's arithmetic.
#include "kelvarn/IpmiPacer.h"

namespace kelvarn {

void CommandPacer::spent(Clock::time_point now, uint64_t commands) {
    if (m_perSecond == 0 || commands == 0)
        return;
    // Time unused before `now` is lost, not saved for a burst.
    const auto gap = std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) / m_perSecond;
    m_next = next(now) + gap * commands;
}

RefreshPlan planRefresh(unsigned sensors, unsigned perSecond, unsigned pollMs) {
    RefreshPlan plan;
    if (perSecond == 0 || sensors == 0) {
        plan.readingsPerPoll = sensors;
        plan.periodMs = pollMs;
        return plan;
    }
    // Commands that fit in one poll interval, the SEL check first.
    const uint64_t perPoll = uint64_t(perSecond) * pollMs / 1000;
    if (perPoll < 2) {
        // Not even one reading beside the SEL check: one reading per poll, over budget.
        plan.withinBudget = false;
        plan.readingsPerPoll = 1;
    } else {
        plan.readingsPerPoll = unsigned(perPoll - 1 < sensors ? perPoll - 1 : sensors);
    }
    const uint64_t polls = (uint64_t(sensors) + plan.readingsPerPoll - 1) / plan.readingsPerPoll;
    // The same number of polls with the readings spread evenly over them: no
    // longer a period, fewer commands (240 sensors in 15 polls: 16 a poll, not 17).
    plan.readingsPerPoll = unsigned((sensors + polls - 1) / polls);
    plan.periodMs = polls * pollMs;
    return plan;
}

} // namespace kelvarn
