// The IPMI command budget: when the next command may be sent, and how often
// every reading can be refreshed within what the SEL check leaves. Pure: fed
// a clock, it never waits and never talks to the BMC.
#ifndef KELVARN_IPMI_PACER_H
#define KELVARN_IPMI_PACER_H

#include <chrono>
#include <cstdint>

#include "kelvarn/Platform.h"

namespace kelvarn {

// Fixed pacing: at most `perSecond` commands per second, one every
// 1/perSecond, never saving up unused time for a burst. 0: no limit.
class KELVARN_API CommandPacer {
public:
    using Clock = std::chrono::steady_clock;
    explicit CommandPacer(unsigned perSecond = 0) : m_perSecond(perSecond) {}
    // The earliest time the next command may be sent, asked at `now`.
    Clock::time_point next(Clock::time_point now) const { return m_next > now ? m_next : now; }
    // `commands` were sent at `now` (a multi-command call is charged after it ran).
    void spent(Clock::time_point now, uint64_t commands);
    unsigned perSecond() const { return m_perSecond; }

private:
    unsigned m_perSecond;
    Clock::time_point m_next{};
};

// The steady refresh within a budget of `perSecond` commands: one SEL check
// every `pollMs`, the readings of `sensors` sensors round-robin in what is left,
// as few a poll as keep the shortest period the budget allows.
struct RefreshPlan {
    unsigned readingsPerPoll = 0; // readings sent between two SEL checks
    uint64_t periodMs = 0;        // every reading is refreshed at least this often
    bool withinBudget = true;     // false: the budget leaves no room for readings at all
};
// perSecond 0: no limit, every reading at every poll.
KELVARN_API RefreshPlan planRefresh(unsigned sensors, unsigned perSecond, unsigned pollMs);

} // namespace kelvarn

#endif
