// Helpers shared by the host's end-to-end tests, on top of tests/support/e2e.h.
#pragma once

#include "support/e2e.h"

namespace hmtest {

// Checks `done` every 100 ms until it holds, for at most `limit`; whether it held.
template <typename Done> bool waitUntil(Done done, std::chrono::milliseconds limit) {
    for (const auto deadline = Clock::now() + limit; !done(); std::this_thread::sleep_for(100ms))
        if (Clock::now() > deadline)
            return false;
    return true;
}

// The probes named by the temperature traps of a snmptrapd log, in the order
// received, once there are `count` of them or after 10 s.
inline std::vector<std::string> temperatureTraps(const std::string& log, size_t count = 0) {
    std::vector<std::string> names;
    waitUntil(
        [&] {
            names.clear();
            for (const std::string& line : trapLines(log))
                if (!temperatureTrapSensor(line).empty())
                    names.push_back(temperatureTrapSensor(line));
            return names.size() >= count;
        },
        10s);
    return names;
}

} // namespace hmtest
